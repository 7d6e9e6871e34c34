#include "format.h"

#include "element.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace arraylens {

namespace {

std::string hexText(std::uint64_t bits) {
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(bits));
    return buf;
}

std::string octalText(std::uint64_t bits) {
    if (bits == 0)
        return "0";
    char buf[32];
    std::snprintf(buf, sizeof buf, "0%llo", static_cast<unsigned long long>(bits));
    return buf;
}

// The shortest digits that read back to the same value, laid out in fixed
// notation: 1e+300 becomes a 1 and 300 zeros, not the binary value's exact
// expansion.
std::string fixedFromScientific(const std::string& sci) {
    const std::size_t e = sci.find('e');
    std::string mantissa = sci.substr(0, e);
    const int exponent = std::stoi(sci.substr(e + 1));
    std::string sign;
    if (!mantissa.empty() && mantissa[0] == '-') {
        sign = "-";
        mantissa.erase(0, 1);
    }
    std::string digits;
    for (char c : mantissa)
        if (c != '.')
            digits += c;
    // The value is 0.digits * 10^(exponent + 1).
    const int point = exponent + 1;
    std::string out;
    if (point <= 0) {
        out = "0." + std::string(static_cast<std::size_t>(-point), '0') + digits;
    } else if (static_cast<std::size_t>(point) >= digits.size()) {
        out = digits + std::string(static_cast<std::size_t>(point) - digits.size(), '0');
    } else {
        out = digits.substr(0, static_cast<std::size_t>(point)) + "." +
              digits.substr(static_cast<std::size_t>(point));
    }
    return sign + out;
}

// Shortest round trip in the element's own precision, in the notation asked.
template <class F> std::string floatText(F v, DataFormat format) {
    if (std::isnan(v))
        return "nan";
    if (std::isinf(v))
        return v < 0 ? "-inf" : "inf";
    char buf[128];
    const std::chars_format notation =
        format == DataFormat::Decimal || format == DataFormat::Scientific
            ? std::chars_format::scientific
            : std::chars_format::general;
    std::to_chars_result r = notation == std::chars_format::general
                                 ? std::to_chars(buf, buf + sizeof buf, v)
                                 : std::to_chars(buf, buf + sizeof buf, v, notation);
    if (r.ec != std::errc())
        return "?";
    std::string text(buf, r.ptr);
    if (format == DataFormat::Decimal)
        return fixedFromScientific(text);
    return text;
}

template <Repr R>
std::string integerText(ElementKind kind, const unsigned char* p, DataFormat format) {
    using T = ReprTraits<R>;
    using Raw = typename T::Raw_;
    const Raw raw = T::raw(p);
    // Hexadecimal and octal show the element's own bits, so -42 in four
    // bytes is 0xffffffd6.
    const std::uint64_t bits = static_cast<std::make_unsigned_t<Raw>>(raw);
    const std::string dec = std::to_string(raw);
    const bool character = dataTypeOf(kind) == DataType::Character;
    switch (format) {
    case DataFormat::Hex:
        return hexText(bits);
    case DataFormat::Octal:
        return octalText(bits);
    case DataFormat::HexDec:
        return hexText(bits) + " (" + dec + ")";
    case DataFormat::DecHex:
        return dec + " (" + hexText(bits) + ")";
    case DataFormat::Character:
        return dec + " " + charLiteral(bits);
    case DataFormat::Decimal:
        return dec;
    default:
        break;
    }
    if (character)
        return dec + " " + charLiteral(bits);
    if constexpr (T::isLogical) {
        const bool fortran =
            kind == ElementKind::FortranLogical1 || kind == ElementKind::FortranLogical2 ||
            kind == ElementKind::FortranLogical4 || kind == ElementKind::FortranLogical8;
        if (fortran)
            return raw != 0 ? ".TRUE." : ".FALSE.";
        return raw != 0 ? "true" : "false";
    }
    return dec;
}

} // namespace

std::string charLiteral(std::uint64_t code) {
    std::string s = "'";
    switch (code) {
    case '\0':
        s += "\\0";
        break;
    case '\a':
        s += "\\a";
        break;
    case '\b':
        s += "\\b";
        break;
    case '\f':
        s += "\\f";
        break;
    case '\n':
        s += "\\n";
        break;
    case '\r':
        s += "\\r";
        break;
    case '\t':
        s += "\\t";
        break;
    case '\v':
        s += "\\v";
        break;
    case '\'':
        s += "\\'";
        break;
    case '\\':
        s += "\\\\";
        break;
    default: {
        char buf[24];
        if (code >= 0x20 && code < 0x7f)
            s += static_cast<char>(code);
        else if (code < 0x100)
            std::snprintf(buf, sizeof buf, "\\%03o", static_cast<unsigned>(code)), s += buf;
        else if (code < 0x10000)
            std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(code)), s += buf;
        else if (code <= 0xffffffffu)
            std::snprintf(buf, sizeof buf, "\\U%08x", static_cast<unsigned>(code)), s += buf;
        else // all the bits of a 64-bit value: no code, but nothing dropped
            std::snprintf(buf, sizeof buf, "\\x%llx", static_cast<unsigned long long>(code)),
                s += buf;
    }
    }
    return s + "'";
}

std::string formatElement(ElementKind kind, const unsigned char* p, DataFormat format) {
    return withRepr(kindInfo(kind).repr, [&](auto tag) -> std::string {
        constexpr Repr R = decltype(tag)::repr;
        using T = ReprTraits<R>;
        if constexpr (T::isFloat)
            return floatText(T::native(p), format);
        else
            return integerText<R>(kind, p, format);
    });
}

} // namespace arraylens
