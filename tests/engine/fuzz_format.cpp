// libFuzzer target for the cell formatter. The first byte of an input picks
// an element kind, the second a display format (also numbers the plug-in
// never sends), the next 16 bytes are the element. Besides "no crash, no
// overflow" (the sanitizers watch those) it checks on every input:
//  - every text is non-empty and short;
//  - integers: the decimal text is the value, hexadecimal and octal read
//    back to the element's own bits, the character format keeps the value;
//  - floating point: the automatic text reads back to the same value in
//    the element's own precision.
#include "arraylens/element.h"
#include "arraylens/format.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

using namespace arraylens;

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "fuzz_format: property violated: %s\n", what);
        std::abort();
    }
}

// A long double's shortest text has at most 21 digits; fixed notation of
// 1e4932 has 4933.
constexpr std::size_t kMaxText = 5100;

template <class F> bool sameValue(F a, F b) {
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

template <Repr R> void checkText(ElementKind kind, const unsigned char* p, int formatNumber) {
    using T = ReprTraits<R>;
    const auto format = static_cast<DataFormat>(formatNumber);
    const std::string text = formatElement(kind, p, format);
    check(!text.empty() && text.size() <= kMaxText, "a short, non-empty text");
    if constexpr (!T::isFloat) {
        using Raw = typename T::Raw_;
        const Raw raw = T::raw(p);
        const std::uint64_t bits = static_cast<std::make_unsigned_t<Raw>>(raw);
        const std::string dec = std::to_string(raw);
        const std::string hex = formatElement(kind, p, DataFormat::Hex);
        check(std::strtoull(hex.c_str(), nullptr, 16) == bits, "hexadecimal is the bits");
        const std::string oct = formatElement(kind, p, DataFormat::Octal);
        check(std::strtoull(oct.c_str(), nullptr, 8) == bits, "octal is the bits");
        check(formatElement(kind, p, DataFormat::Decimal) == dec, "decimal is the value");
        const std::string chr = formatElement(kind, p, DataFormat::Character);
        check(chr.compare(0, dec.size() + 2, dec + " '") == 0 && chr.back() == '\'',
              "the character format starts with the value");
        check(chr == dec + " " + charLiteral(bits), "the character literal keeps all the bits");
    } else {
        const std::string automatic = formatElement(kind, p, DataFormat::Automatic);
        const auto v = T::native(p);
        using F = std::remove_const_t<decltype(v)>;
        for (DataFormat other : {DataFormat::Decimal, DataFormat::Scientific}) {
            const std::string t = formatElement(kind, p, other);
            check(!t.empty() && t.size() <= kMaxText, "every notation gives a text");
        }
        // x87 encodings the processor itself refuses (unnormals) are no
        // number to read back.
        if (!(v == v) && !std::isnan(v))
            return;
        F back;
        if (automatic == "nan")
            back = std::numeric_limits<F>::quiet_NaN();
        else if (automatic == "inf")
            back = std::numeric_limits<F>::infinity();
        else if (automatic == "-inf")
            back = -std::numeric_limits<F>::infinity();
        else if constexpr (std::is_same<F, float>::value)
            back = std::strtof(automatic.c_str(), nullptr);
        else if constexpr (std::is_same<F, double>::value)
            back = std::strtod(automatic.c_str(), nullptr);
        else
            back = std::strtold(automatic.c_str(), nullptr);
        check(sameValue(back, v), "the automatic text reads back to the value");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::vector<ElementKind>& kinds = allElementKinds();
    const ElementKind kind = kinds[data[0] % kinds.size()];
    const int format = static_cast<int>(data[1] % 12);
    unsigned char element[16] = {};
    std::memcpy(element, data + 2, std::min<std::size_t>(size - 2, sizeof element));
    withRepr(kindInfo(kind).repr, [&](auto tag) {
        checkText<decltype(tag)::repr>(kind, element, format);
        return 0;
    });
    // Any code at all as a character literal.
    std::uint64_t code = 0;
    std::memcpy(&code, element, sizeof code);
    const std::string literal = charLiteral(code);
    check(literal.size() >= 3 && literal.front() == '\'' && literal.back() == '\'',
          "a literal is quoted");
    return 0;
}
