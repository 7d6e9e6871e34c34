// Cell texts of every display format.
#include "arraylens/format.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace arraylens;

namespace {

template <class T> std::string fmt(ElementKind kind, T value, DataFormat format) {
    unsigned char bytes[16] = {};
    std::memcpy(bytes, &value, sizeof value);
    return formatElement(kind, bytes, format);
}

TEST(Format, IntegerFormats) {
    const std::int32_t v = -42;
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::Automatic), "-42");
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::Default), "-42");
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::Decimal), "-42");
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::Hex), "0xffffffd6");
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::Octal), "037777777726");
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::HexDec), "0xffffffd6 (-42)");
    EXPECT_EQ(fmt(ElementKind::Int32, v, DataFormat::DecHex), "-42 (0xffffffd6)");
    // Two's complement of the element's own width.
    EXPECT_EQ(fmt(ElementKind::Int8, std::int8_t(-42), DataFormat::Hex), "0xd6");
    EXPECT_EQ(fmt(ElementKind::FortranInteger2, std::int16_t(-1), DataFormat::Octal), "0177777");
    EXPECT_EQ(fmt(ElementKind::Int64, std::int64_t(-1), DataFormat::Hex), "0xffffffffffffffff");
    EXPECT_EQ(fmt(ElementKind::UInt64, ~std::uint64_t(0), DataFormat::Decimal),
              "18446744073709551615");
    EXPECT_EQ(
        fmt(ElementKind::Int64, std::numeric_limits<std::int64_t>::min(), DataFormat::Automatic),
        "-9223372036854775808");
    EXPECT_EQ(fmt(ElementKind::UInt16, std::uint16_t(0), DataFormat::Octal), "0");
    EXPECT_EQ(fmt(ElementKind::UInt16, std::uint16_t(0), DataFormat::Hex), "0x0");
}

TEST(Format, Characters) {
    EXPECT_EQ(fmt(ElementKind::Char, 'a', DataFormat::Character), "97 'a'");
    EXPECT_EQ(fmt(ElementKind::Char, 'a', DataFormat::Automatic), "97 'a'");
    EXPECT_EQ(fmt(ElementKind::Char, 'a', DataFormat::Decimal), "97");
    EXPECT_EQ(fmt(ElementKind::Char, 'a', DataFormat::Hex), "0x61");
    EXPECT_EQ(fmt(ElementKind::Char, '\n', DataFormat::Character), "10 '\\n'");
    EXPECT_EQ(fmt(ElementKind::Char, '\0', DataFormat::Character), "0 '\\0'");
    EXPECT_EQ(fmt(ElementKind::Char, '\'', DataFormat::Character), "39 '\\''");
    EXPECT_EQ(fmt(ElementKind::Char, '\\', DataFormat::Character), "92 '\\\\'");
    EXPECT_EQ(fmt(ElementKind::Char, char(-1), DataFormat::Character), "-1 '\\377'");
    EXPECT_EQ(
        fmt(ElementKind::UnsignedChar, static_cast<unsigned char>(200), DataFormat::Character),
        "200 '\\310'");
    EXPECT_EQ(
        fmt(ElementKind::FortranCharacter, static_cast<unsigned char>('Z'), DataFormat::Automatic),
        "90 'Z'");
    EXPECT_EQ(fmt(ElementKind::WChar, wchar_t(0x3bb), DataFormat::Character), "955 '\\u03bb'");
    EXPECT_EQ(fmt(ElementKind::Char32, char32_t(0x1f600), DataFormat::Character),
              "128512 '\\U0001f600'");
    EXPECT_EQ(fmt(ElementKind::Char16, char16_t(7), DataFormat::Automatic), "7 '\\a'");
    // The character format of a plain integer shows its code too.
    EXPECT_EQ(fmt(ElementKind::Int8, std::int8_t(65), DataFormat::Character), "65 'A'");
}

TEST(Format, CharacterFormatKeepsAllSixtyFourBits) {
    // 2^32 + 65 is not 'A': the high bits are not dropped.
    EXPECT_EQ(fmt(ElementKind::Int64, std::int64_t(4294967361LL), DataFormat::Character),
              "4294967361 '\\x100000041'");
    EXPECT_EQ(fmt(ElementKind::Int64, std::int64_t(-1), DataFormat::Character),
              "-1 '\\xffffffffffffffff'");
    EXPECT_EQ(
        fmt(ElementKind::UInt64, std::numeric_limits<std::uint64_t>::max(), DataFormat::Character),
        "18446744073709551615 '\\xffffffffffffffff'");
    EXPECT_EQ(fmt(ElementKind::FortranInteger8, std::int64_t(1LL << 32), DataFormat::Character),
              "4294967296 '\\x100000000'");
    // Values that fit in 32 bits read as before.
    EXPECT_EQ(fmt(ElementKind::Int64, std::int64_t(65), DataFormat::Character), "65 'A'");
    EXPECT_EQ(fmt(ElementKind::UInt64, std::uint64_t(0x1f600), DataFormat::Character),
              "128512 '\\U0001f600'");
    EXPECT_EQ(fmt(ElementKind::Int32, std::int32_t(-1), DataFormat::Character), "-1 '\\Uffffffff'");
}

TEST(Format, Logicals) {
    EXPECT_EQ(fmt(ElementKind::Bool, std::uint8_t(1), DataFormat::Automatic), "true");
    EXPECT_EQ(fmt(ElementKind::Bool, std::uint8_t(0), DataFormat::Automatic), "false");
    EXPECT_EQ(fmt(ElementKind::FortranLogical4, std::uint32_t(1), DataFormat::Automatic), ".TRUE.");
    EXPECT_EQ(fmt(ElementKind::FortranLogical4, std::uint32_t(0), DataFormat::Default), ".FALSE.");
    EXPECT_EQ(fmt(ElementKind::FortranLogical1, std::uint8_t(1), DataFormat::Decimal), "1");
    EXPECT_EQ(fmt(ElementKind::FortranLogical2, std::uint16_t(1), DataFormat::Hex), "0x1");
}

TEST(Format, FloatingPointShortestRoundTrip) {
    EXPECT_EQ(fmt(ElementKind::Double, 0.1, DataFormat::Automatic), "0.1");
    EXPECT_EQ(fmt(ElementKind::Double, 1e300, DataFormat::Automatic), "1e+300");
    EXPECT_EQ(fmt(ElementKind::Double, -2.5, DataFormat::Automatic), "-2.5");
    EXPECT_EQ(fmt(ElementKind::Double, 123456.0, DataFormat::Automatic), "123456");
    EXPECT_EQ(fmt(ElementKind::Double, 1.0 / 3, DataFormat::Automatic), "0.3333333333333333");
    EXPECT_EQ(fmt(ElementKind::Double, 5e-324, DataFormat::Automatic), "5e-324");
    EXPECT_EQ(fmt(ElementKind::Double, -0.0, DataFormat::Automatic), "-0");
    // Shortest in the element's own precision.
    EXPECT_EQ(fmt(ElementKind::Float, 0.1f, DataFormat::Automatic), "0.1");
    EXPECT_EQ(fmt(ElementKind::FortranReal4, 1.0f / 3, DataFormat::Automatic), "0.33333334");
    EXPECT_EQ(fmt(ElementKind::LongDouble, 0.1L, DataFormat::Automatic), "0.1");
    EXPECT_EQ(fmt(ElementKind::FortranReal8, 0.1, DataFormat::Default), "0.1");
}

TEST(Format, FloatingPointNotations) {
    EXPECT_EQ(fmt(ElementKind::Double, 0.1, DataFormat::Decimal), "0.1");
    EXPECT_EQ(fmt(ElementKind::Double, 1.5e-5, DataFormat::Decimal), "0.000015");
    EXPECT_EQ(fmt(ElementKind::Double, 1e300, DataFormat::Decimal), "1" + std::string(300, '0'));
    EXPECT_EQ(fmt(ElementKind::Double, -1.5e-5, DataFormat::Decimal), "-0.000015");
    EXPECT_EQ(fmt(ElementKind::Double, 1234.5, DataFormat::Decimal), "1234.5");
    EXPECT_EQ(fmt(ElementKind::Double, 1.5e20, DataFormat::Decimal), "150000000000000000000");
    EXPECT_EQ(fmt(ElementKind::Float, 0.1f, DataFormat::Decimal), "0.1");
    EXPECT_EQ(fmt(ElementKind::Double, 0.0, DataFormat::Decimal), "0");
    EXPECT_EQ(fmt(ElementKind::Double, 0.1, DataFormat::Scientific), "1e-01");
    EXPECT_EQ(fmt(ElementKind::Double, 123456.0, DataFormat::Scientific), "1.23456e+05");
    EXPECT_EQ(fmt(ElementKind::Float, 0.1f, DataFormat::Scientific), "1e-01");
    // Integer formats do not apply to floating point.
    EXPECT_EQ(fmt(ElementKind::Double, 0.1, DataFormat::Hex), "0.1");
    EXPECT_FALSE(
        fmt(ElementKind::LongDouble, std::numeric_limits<long double>::max(), DataFormat::Decimal)
            .empty());
}

TEST(Format, NonFiniteValues) {
    for (DataFormat f : {DataFormat::Automatic, DataFormat::Decimal, DataFormat::Scientific}) {
        EXPECT_EQ(fmt(ElementKind::Double, std::numeric_limits<double>::quiet_NaN(), f), "nan");
        EXPECT_EQ(fmt(ElementKind::Double, -std::numeric_limits<double>::quiet_NaN(), f), "nan");
        EXPECT_EQ(fmt(ElementKind::Double, std::numeric_limits<double>::infinity(), f), "inf");
        EXPECT_EQ(fmt(ElementKind::Float, -std::numeric_limits<float>::infinity(), f), "-inf");
        EXPECT_EQ(
            fmt(ElementKind::LongDouble, std::numeric_limits<long double>::signaling_NaN(), f),
            "nan");
    }
}

} // namespace
