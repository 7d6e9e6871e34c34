// libFuzzer target for filter texts and their evaluation. The first byte of
// an input picks an element kind, the next 64 bytes are four elements of that
// kind (any bits: NaNs, subnormals, the ends of every integer range); the
// rest is the filter text. Besides "no crash, no runaway recursion, no
// overflow" (the sanitizers watch those) it checks on every input:
//  - a refusal is a filter error of bounded length, and the column it
//    names lies within the text;
//  - the filter as applied is the text without surrounding blanks;
//  - the block form, the per-element form and the tree walk agree on every
//    element.
#include "arraylens/descriptor.h"
#include "arraylens/element.h"
#include "arraylens/filter.h"
#include "arraylens/textquote.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

using namespace arraylens;

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "fuzz_filter: property violated: %s\n", what);
        std::abort();
    }
}

constexpr std::size_t kMaxMessage = 500;
constexpr std::size_t kElements = 4;
constexpr std::size_t kElementBytes = 16;

std::string_view trimmed(std::string_view s) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && blank(s.back()))
        s.remove_suffix(1);
    return s;
}

template <Repr R> void evaluate(const Filter& f, const unsigned char* elements) {
    using T = ReprTraits<R>;
    unsigned char block[kElements];
    f.matchBlock<R>(elements, kElementBytes, kElements, block);
    for (std::size_t k = 0; k < kElements; ++k) {
        const unsigned char* p = elements + k * kElementBytes;
        const bool one = f.matches<R>(p);
        check((block[k] != 0) == one, "the block form agrees with the single test");
        if constexpr (!T::isFloat) {
            check(one == f.matchesTree(static_cast<__int128>(T::value(p)), 0, true, 0),
                  "integers: the flat form agrees with the tree");
        } else if constexpr (R != Repr::F80) {
            check(one == f.matchesTree(0, static_cast<double>(T::native(p)), false, T::classify(p)),
                  "floating point: the flat form agrees with the tree");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<ElementKind>& kinds = allElementKinds();
    const ElementKind kind = kinds[(size > 0 ? data[0] : 0) % kinds.size()];
    unsigned char elements[kElements * kElementBytes] = {};
    const std::size_t head = 1 + sizeof elements;
    if (size > 1)
        std::memcpy(elements, data + 1, std::min(size - 1, sizeof elements));
    const std::string_view text =
        size > head ? std::string_view(reinterpret_cast<const char*>(data + head), size - head)
                    : std::string_view();

    Result<Filter> f = compileFilter(text);
    if (!f.ok()) {
        const std::string& m = f.message();
        check(f.error().code == ErrorCode::BadFilter, "a refusal is a filter error");
        check(!m.empty() && m.size() <= kMaxMessage, "a refusal is short and says why");
        const std::string prefix = "Filter error at column ";
        if (m.compare(0, prefix.size(), prefix) == 0) {
            const unsigned long column = std::strtoul(m.c_str() + prefix.size(), nullptr, 10);
            check(column >= 1 && column <= charCount(text) + 1, "the column is inside the text");
        } else {
            check(m == "The filter is nested too deeply (more than " +
                           std::to_string(kMaxFilterDepth) + " levels).",
                  "a refusal names a column or the nesting");
        }
        return 0;
    }
    check(f->text() == trimmed(text), "the filter as applied is the trimmed text");
    withRepr(kindInfo(kind).repr, [&](auto tag) {
        evaluate<decltype(tag)::repr>(f.value(), elements);
        return 0;
    });
    return 0;
}
