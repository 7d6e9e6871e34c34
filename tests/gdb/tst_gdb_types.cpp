// gdb's type texts and answers, read without a debugger.
#include "gdbtypes.h"

#include <gtest/gtest.h>

using namespace arraylens::gdb;

namespace {

struct CTypeCase {
    const char* text;
    bool isArray;
    bool isPointer;
    const char* element;
    QVector<qint64> extents;
};

class CTypes : public ::testing::TestWithParam<CTypeCase> {};

TEST_P(CTypes, ShapeAndElement) {
    const CTypeCase& c = GetParam();
    const TypeShape s = parseCType(QString::fromLatin1(c.text));
    EXPECT_EQ(s.isArray, c.isArray);
    EXPECT_EQ(s.isPointer, c.isPointer);
    if (c.isArray) {
        EXPECT_EQ(s.elementType, QString::fromLatin1(c.element));
        ASSERT_EQ(s.dims.size(), c.extents.size());
        for (int i = 0; i < s.dims.size(); ++i) {
            EXPECT_EQ(s.dims[i].lower, 0);
            EXPECT_EQ(s.dims[i].upper, c.extents[i] - 1);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CTypes,
    ::testing::Values(CTypeCase{"double [10][20]", true, false, "double", {10, 20}},
                      CTypeCase{"float [4][5][6]", true, false, "float", {4, 5, 6}},
                      CTypeCase{"const double (&)[24]", true, false, "const double", {24}},
                      CTypeCase{"double (*)[10]", false, true, "", {}},
                      CTypeCase{"double *", false, true, "", {}},
                      CTypeCase{"double", false, false, "", {}},
                      CTypeCase{"struct point [3]", true, false, "struct point", {3}},
                      CTypeCase{"unsigned char [16][16]", true, false, "unsigned char", {16, 16}}));

TEST(FortranTypes, DeclaredBoundsAndDefaults) {
    TypeShape s = parseFortranType(QStringLiteral("real(kind=8) (0:9,-2:5)"));
    ASSERT_TRUE(s.isArray);
    EXPECT_EQ(s.elementType, QStringLiteral("real(kind=8)"));
    ASSERT_EQ(s.dims.size(), 2);
    EXPECT_EQ(s.dims[0].lower, 0);
    EXPECT_EQ(s.dims[0].upper, 9);
    EXPECT_EQ(s.dims[1].lower, -2);
    EXPECT_EQ(s.dims[1].upper, 5);

    s = parseFortranType(QStringLiteral("real(kind=8) (5,8)"));
    ASSERT_EQ(s.dims.size(), 2);
    EXPECT_EQ(s.dims[0].lower, 1);
    EXPECT_EQ(s.dims[1].upper, 8);

    s = parseFortranType(QStringLiteral("real(kind=8), allocatable (3,4)"));
    EXPECT_TRUE(s.isArray);
    EXPECT_EQ(s.elementType, QStringLiteral("real(kind=8)"));
    EXPECT_TRUE(s.problem.isEmpty());
}

TEST(FortranTypes, ScalarsAndUnallocated) {
    EXPECT_FALSE(parseFortranType(QStringLiteral("real(kind=8)")).isArray);
    EXPECT_FALSE(parseFortranType(QStringLiteral("integer(kind=4)")).isArray);
    const TypeShape s = parseFortranType(QStringLiteral("real(kind=8), allocatable (:,:)"));
    EXPECT_TRUE(s.isArray);
    EXPECT_FALSE(s.problem.isEmpty());
    EXPECT_FALSE(parseFortranType(QStringLiteral("real(kind=8) (*)")).problem.isEmpty());
}

TEST(GdbAnswers, LanguageAddressAndType) {
    EXPECT_EQ(languageFromShowLanguage(
                  QStringLiteral("The current source language is \"auto; currently c\".\n")),
              QStringLiteral("c"));
    EXPECT_EQ(languageFromShowLanguage(
                  QStringLiteral("The current source language is \"auto; currently fortran\".")),
              QStringLiteral("fortran"));
    EXPECT_EQ(languageFromShowLanguage(QStringLiteral("The current source language is \"c++\".")),
              QStringLiteral("c++"));
    EXPECT_EQ(parseAddress(QStringLiteral("0x55555555c040 <grid>")), 0x55555555c040ULL);
    EXPECT_EQ(parseAddress(QStringLiteral("(double *) 0x7fff0010")), 0x7fff0010ULL);
    EXPECT_FALSE(parseAddress(QStringLiteral("42")).has_value());
    EXPECT_EQ(typeFromWhatis(QStringLiteral("type = double [10][20]\n")),
              QStringLiteral("double [10][20]"));
    EXPECT_TRUE(isCStyleLanguage(QStringLiteral("C++")));
    EXPECT_TRUE(isCStyleLanguage(QStringLiteral("upc")));
    EXPECT_FALSE(isCStyleLanguage(QStringLiteral("fortran")));
}

TEST(Expressions, ElementsAndCasts) {
    EXPECT_EQ(elementExpression(QStringLiteral("*p@100"), {3}, false),
              QStringLiteral("(&(*p))[3]"));
    EXPECT_EQ(elementExpression(QStringLiteral("grid[1]@3"), {2, 4}, false),
              QStringLiteral("(&(grid[1]))[2][4]"));
    EXPECT_EQ(elementExpression(QStringLiteral("grid"), {2, 4}, false),
              QStringLiteral("(grid)[2][4]"));
    EXPECT_EQ(repeatOperand(QStringLiteral("p[0]@100")), QStringLiteral("p[0]"));
    EXPECT_EQ(repeatOperand(QStringLiteral("f(\"a@b\")")), std::nullopt);
    EXPECT_EQ(repeatOperand(QStringLiteral("a[(b@2)[0]]")), std::nullopt);
    EXPECT_EQ(elementExpression(QStringLiteral("x"), {0, -2}, true), QStringLiteral("(x)(0,-2)"));
    EXPECT_EQ(reinterpretCast(QStringLiteral("p"), QStringLiteral("double[1000]"), false, {}),
              QStringLiteral("*(double(*)[1000])(p)"));
    EXPECT_EQ(reinterpretCast(QStringLiteral("grid"), QStringLiteral("float [10][40]"), true, {}),
              QStringLiteral("*(float(*)[10][40])&(grid)"));
    // A bare element type keeps the array's own extents.
    EXPECT_EQ(reinterpretCast(QStringLiteral("counters"), QStringLiteral("int"), true,
                              {DimBounds{0, 63}}),
              QStringLiteral("*(int(*)[64])&(counters)"));
}

TEST(Elements, Classes) {
    EXPECT_EQ(classifyElement(QStringLiteral("double"), false), ElementClass::Float);
    EXPECT_EQ(classifyElement(QStringLiteral("const long double"), false), ElementClass::Float);
    EXPECT_EQ(classifyElement(QStringLiteral("unsigned long long"), false), ElementClass::Unsigned);
    EXPECT_EQ(classifyElement(QStringLiteral("long unsigned int"), false), ElementClass::Unsigned);
    EXPECT_EQ(classifyElement(QStringLiteral("short"), false), ElementClass::Signed);
    EXPECT_EQ(classifyElement(QStringLiteral("_Bool"), false), ElementClass::Bool);
    EXPECT_EQ(classifyElement(QStringLiteral("char"), false), ElementClass::Char);
    EXPECT_EQ(classifyElement(QStringLiteral("unsigned char"), false), ElementClass::UnsignedChar);
    EXPECT_EQ(classifyElement(QStringLiteral("struct point {"), false), ElementClass::Unsupported);
    EXPECT_EQ(classifyElement(QStringLiteral("real(kind=4)"), true), ElementClass::Float);
    EXPECT_EQ(classifyElement(QStringLiteral("integer(kind=2)"), true), ElementClass::Signed);
    EXPECT_EQ(classifyElement(QStringLiteral("logical(kind=4)"), true), ElementClass::Logical);
    EXPECT_EQ(classifyElement(QStringLiteral("character(kind=1)"), true), ElementClass::Character);
    EXPECT_EQ(classifyElement(QStringLiteral("character*8"), true), ElementClass::Unsupported);
}

} // namespace
