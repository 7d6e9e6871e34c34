// Conditions over named numbers, such as the statistics of one stop of a
// trace: `NanCount > 0`, `Max > 1e6 || InfCount > 0`, `abs(Mean) > 3`.
//
//   condition  := or
//   or         := and { ("||" | ".or.") and }
//   and        := not { ("&&" | ".and.") not }
//   not        := ("!" | ".not.") not | comparison
//   comparison := sum [op sum]
//   sum        := term { ("+" | "-") term }
//   term       := factor { ("*" | "/") factor }
//   factor     := ["-" | "+"] (number | name | "(" or ")" | "abs" "(" sum ")")
//   op         := "==" | "!=" | "<" | "<=" | ">" | ">=" | ".eq." | ".ne." | ".lt." | ".le."
//               | ".gt." | ".ge."
//
// The operators are the filter's, with names in place of $value; the whole
// must be a truth, each side of a comparison a number. Numbers are decimal,
// with exponent, or 0x hexadecimal; whole numbers up to 2^64 are exact.
// Arithmetic is in x87 extended precision, which holds every 64-bit integer
// and every double exactly, so that `Checksum == 9007199254740993` and
// `Mean == 0.1` mean what they say. A name without a value (a statistic that
// is not valid at this stop, such as Min when no finite element passed)
// makes every comparison it takes part in false, `!=` too.
//
// Nesting is limited (kMaxConditionDepth); beyond it, and for any other
// text that is not a condition, the answer is an error that names the
// column. A compiled condition is evaluated without recursion.
#pragma once

#include "result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens {

constexpr int kMaxConditionDepth = 64;

class Condition {
public:
    bool empty() const { return code_.empty(); }
    // The condition as applied: the text without surrounding blanks.
    const std::string& text() const { return text_; }
    // Whether it holds for these values, one per name in the order the names
    // were given to compileCondition; nullopt for a name without a value.
    bool holds(const std::vector<std::optional<long double>>& values) const;
    // The names it reads (indices into the names), each once.
    const std::vector<std::size_t>& namesUsed() const { return used_; }

    enum class Op : std::uint8_t {
        Number,
        Name,
        Negate,
        Abs,
        Add,
        Subtract,
        Multiply,
        Divide,
        Equal,
        NotEqual,
        Less,
        LessEqual,
        Greater,
        GreaterEqual,
        And,
        Or,
        Not,
    };
    struct Step {
        Op op;
        std::size_t name = 0;
        long double number = 0;
    };

private:
    friend Result<Condition> compileCondition(std::string_view, const std::vector<std::string>&);
    std::vector<Step> code_; // postfix
    std::vector<std::size_t> used_;
    std::string text_;
};

// Compiles `text` over `names`. The empty (or blank) text is refused: a
// condition has to say something. Unknown names are refused with the list
// of those there are.
Result<Condition> compileCondition(std::string_view text, const std::vector<std::string>& names);

} // namespace arraylens
