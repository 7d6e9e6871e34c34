// Filters: a condition on each element, compiled once per request and then
// run per element.
//
//   filter     := or
//   or         := and { ("||" | ".or.") and }
//   and        := not { ("&&" | ".and.") not }
//   not        := ("!" | ".not.") not | primary
//   primary    := "(" or ")" | comparison
//   comparison := [sum] op sum        -- a missing left side is $value
//   sum        := term { ("+" | "-") term }
//   term       := factor { ("*" | "/") factor }
//   factor     := ["-" | "+"] (number | "$value" | class | "(" sum ")"
//                              | "abs" "(" sum ")")
//
// Comparing with a class ($nan, $inf, $denorm, ...) tests the element's
// floating-point class in its own format; integer elements never belong to a
// class. Integer elements compare exactly: integer arithmetic is done in 128
// bits, and an integer meets a non-integer through an exact comparison.
#pragma once

#include "element.h"
#include "result.h"

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace arraylens {

struct FilterProgram;

// Parentheses, "abs(" and negations nested deeper than this are refused:
// "The filter is nested too deeply (more than 256 levels)."
constexpr std::size_t kMaxFilterDepth = 256;

class Filter {
public:
    Filter() = default; // passes everything
    bool empty() const { return !program_; }
    // The filter as applied: the text without surrounding blanks.
    const std::string& text() const { return text_; }

    bool matchesInteger(__int128 value) const;
    bool matchesDouble(double value, unsigned floatClass) const;
    bool matchesLongDouble(long double value, unsigned floatClass) const;
    // Whether elements of floating point (or integer) type run the
    // flattened form rather than the tree walk.
    bool flattened(bool integer) const;
    // The tree walk alone, without the flattened form; tests compare the two.
    bool matchesTree(__int128 i, double d, bool isInt, unsigned floatClass) const;

    // Elements a block test takes at most.
    static constexpr std::size_t kBlock = 256;

    // Tests n <= kBlock elements, the k-th at p + k * step, and sets pass[k]
    // to 1 or 0. Each operation of the filter then runs over the whole
    // block, which costs much less per element than n calls of matches().
    template <Repr R>
    void matchBlock(const unsigned char* p, std::ptrdiff_t step, std::size_t n,
                    unsigned char* pass) const {
        using T = ReprTraits<R>;
        if (!program_) {
            std::memset(pass, 1, n);
            return;
        }
        if constexpr (R == Repr::F32 || R == Repr::F64) {
            if (flattened(false)) {
                double values[kBlock];
                unsigned classes[kBlock];
                for (std::size_t k = 0; k < n; ++k, p += step) {
                    values[k] = static_cast<double>(T::native(p));
                    classes[k] = T::classify(p);
                }
                runBlock(values, classes, n, pass);
                return;
            }
        } else if constexpr (!T::isFloat) {
            if (flattened(true)) {
                __int128 values[kBlock];
                for (std::size_t k = 0; k < n; ++k, p += step)
                    values[k] = static_cast<__int128>(T::value(p));
                runBlock(values, n, pass);
                return;
            }
        }
        for (std::size_t k = 0; k < n; ++k, p += step)
            pass[k] = matches<R>(p) ? 1 : 0;
    }

    // Tests the element at p, whose representation is R.
    template <Repr R> bool matches(const unsigned char* p) const {
        using T = ReprTraits<R>;
        if (!program_)
            return true;
        if constexpr (!T::isFloat) {
            return matchesInteger(static_cast<__int128>(T::value(p)));
        } else if constexpr (R == Repr::F80) {
            return matchesLongDouble(T::native(p), T::classify(p));
        } else {
            return matchesDouble(static_cast<double>(T::native(p)), T::classify(p));
        }
    }

private:
    friend Result<Filter> compileFilter(std::string_view text);
    void runBlock(const double* values, const unsigned* classes, std::size_t n,
                  unsigned char* pass) const;
    void runBlock(const __int128* values, std::size_t n, unsigned char* pass) const;
    std::shared_ptr<const FilterProgram> program_;
    std::string text_;
};

// The empty or blank text gives the empty filter.
Result<Filter> compileFilter(std::string_view text);

} // namespace arraylens
