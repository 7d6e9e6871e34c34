#include "condition.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace arraylens {

namespace {

using Op = Condition::Op;
using Step = Condition::Step;

enum class Kind { Number, Truth };

struct Parsed {
    Kind kind;
    std::size_t column; // where it began, from 1
};

class ConditionParser {
public:
    ConditionParser(std::string_view text, const std::vector<std::string>& names)
        : text_(text), names_(names) {}

    std::optional<Error> parse(std::vector<Step>& code, std::vector<std::size_t>& used) {
        skipBlanks();
        if (atEnd())
            return Error{ErrorCode::BadRequest, "The condition is empty."};
        Parsed p;
        if (auto e = parseOr(p))
            return e;
        skipBlanks();
        if (!atEnd())
            return error("unexpected '" + std::string(1, text_[pos_]) + "'");
        if (p.kind != Kind::Truth)
            return errorAt(p.column, "the condition is a number, not a comparison; write for "
                                     "example 'NanCount > 0'");
        code = std::move(code_);
        used = std::move(used_);
        return std::nullopt;
    }

private:
    bool atEnd() const { return pos_ >= text_.size(); }
    void skipBlanks() {
        while (!atEnd() && std::isspace(static_cast<unsigned char>(text_[pos_])))
            ++pos_;
    }
    std::size_t column() const { return pos_ + 1; }

    Error errorAt(std::size_t column, const std::string& what) const {
        return Error{ErrorCode::BadRequest,
                     "Condition error at column " + std::to_string(column) + ": " + what + "."};
    }
    Error error(const std::string& what) const { return errorAt(column(), what); }

    // Takes `word` when it comes next (dotted words in any case).
    bool take(std::string_view word) {
        skipBlanks();
        if (text_.size() - pos_ < word.size())
            return false;
        for (std::size_t i = 0; i < word.size(); ++i)
            if (std::tolower(static_cast<unsigned char>(text_[pos_ + i])) != word[i])
                return false;
        pos_ += word.size();
        return true;
    }
    bool peek(char c) {
        skipBlanks();
        return !atEnd() && text_[pos_] == c;
    }

    std::optional<Error> deeper() {
        if (++depth_ > kMaxConditionDepth)
            return error("the condition nests more than " + std::to_string(kMaxConditionDepth) +
                         " levels deep");
        return std::nullopt;
    }

    std::optional<Error> needTruth(const Parsed& p, const char* op) {
        if (p.kind != Kind::Truth)
            return errorAt(p.column,
                           std::string("'") + op + "' joins comparisons; this side is a number");
        return std::nullopt;
    }
    std::optional<Error> needNumber(const Parsed& p, const std::string& op) {
        if (p.kind != Kind::Number)
            return errorAt(p.column, "'" + op + "' takes numbers; this side is a comparison");
        return std::nullopt;
    }

    std::optional<Error> parseOr(Parsed& out) {
        if (auto e = parseAnd(out))
            return e;
        for (;;) {
            const char* op = take("||") ? "||" : take(".or.") ? ".or." : nullptr;
            if (!op)
                return std::nullopt;
            if (auto e = needTruth(out, op))
                return e;
            Parsed rhs;
            if (auto e = parseAnd(rhs))
                return e;
            if (auto e = needTruth(rhs, op))
                return e;
            code_.push_back({Op::Or});
        }
    }

    std::optional<Error> parseAnd(Parsed& out) {
        if (auto e = parseNot(out))
            return e;
        for (;;) {
            const char* op = take("&&") ? "&&" : take(".and.") ? ".and." : nullptr;
            if (!op)
                return std::nullopt;
            if (auto e = needTruth(out, op))
                return e;
            Parsed rhs;
            if (auto e = parseNot(rhs))
                return e;
            if (auto e = needTruth(rhs, op))
                return e;
            code_.push_back({Op::And});
        }
    }

    std::optional<Error> parseNot(Parsed& out) {
        skipBlanks();
        const std::size_t at = column();
        // "!" but not "!=".
        const bool bang = peek('!') && !(pos_ + 1 < text_.size() && text_[pos_ + 1] == '=');
        if (bang || take(".not.")) {
            if (auto e = deeper())
                return e;
            if (bang)
                ++pos_;
            Parsed inner;
            if (auto e = parseNot(inner))
                return e;
            --depth_;
            if (inner.kind != Kind::Truth)
                return errorAt(at, "'!' takes a comparison, not a number");
            code_.push_back({Op::Not});
            out = {Kind::Truth, at};
            return std::nullopt;
        }
        return parseComparison(out);
    }

    bool takeComparison(Op& op, std::string& text) {
        static const struct {
            const char* text;
            Op op;
        } ops[] = {{"==", Op::Equal},        {"!=", Op::NotEqual},   {"<=", Op::LessEqual},
                   {">=", Op::GreaterEqual}, {"<", Op::Less},        {">", Op::Greater},
                   {".eq.", Op::Equal},      {".ne.", Op::NotEqual}, {".lt.", Op::Less},
                   {".le.", Op::LessEqual},  {".gt.", Op::Greater},  {".ge.", Op::GreaterEqual}};
        for (const auto& o : ops)
            if (take(o.text)) {
                op = o.op;
                text = o.text;
                return true;
            }
        return false;
    }

    std::optional<Error> parseComparison(Parsed& out) {
        if (auto e = parseSum(out))
            return e;
        Op op;
        std::string opText;
        if (!takeComparison(op, opText))
            return std::nullopt;
        if (auto e = needNumber(out, opText))
            return e;
        const std::size_t after = column();
        skipBlanks();
        if (atEnd())
            return errorAt(after, "expected a number or a name after '" + opText + "'");
        Parsed rhs;
        if (auto e = parseSum(rhs))
            return e;
        if (auto e = needNumber(rhs, opText))
            return e;
        code_.push_back({op});
        out.kind = Kind::Truth;
        return std::nullopt;
    }

    std::optional<Error> parseSum(Parsed& out) {
        if (auto e = parseTerm(out))
            return e;
        for (;;) {
            skipBlanks();
            if (atEnd() || (text_[pos_] != '+' && text_[pos_] != '-'))
                return std::nullopt;
            const std::string op(1, text_[pos_++]);
            if (auto e = needNumber(out, op))
                return e;
            Parsed rhs;
            if (auto e = parseTerm(rhs))
                return e;
            if (auto e = needNumber(rhs, op))
                return e;
            code_.push_back({op == "+" ? Op::Add : Op::Subtract});
        }
    }

    std::optional<Error> parseTerm(Parsed& out) {
        if (auto e = parseFactor(out))
            return e;
        for (;;) {
            skipBlanks();
            if (atEnd() || (text_[pos_] != '*' && text_[pos_] != '/'))
                return std::nullopt;
            const std::string op(1, text_[pos_++]);
            if (auto e = needNumber(out, op))
                return e;
            Parsed rhs;
            if (auto e = parseFactor(rhs))
                return e;
            if (auto e = needNumber(rhs, op))
                return e;
            code_.push_back({op == "*" ? Op::Multiply : Op::Divide});
        }
    }

    std::optional<Error> parseFactor(Parsed& out) {
        skipBlanks();
        const std::size_t at = column();
        if (atEnd())
            return error("expected a number or a name at the end");
        bool negate = false;
        if (text_[pos_] == '-' || text_[pos_] == '+') {
            negate = text_[pos_] == '-';
            ++pos_;
            skipBlanks();
            if (atEnd())
                return error("expected a number or a name after the sign");
        }
        const char c = text_[pos_];
        if (c == '(') {
            if (auto e = deeper())
                return e;
            ++pos_;
            if (auto e = parseOr(out))
                return e;
            --depth_;
            if (!peek(')'))
                return atEnd() ? error("expected ')' at the end") : error("expected ')'");
            ++pos_;
            out.column = at;
        } else if (std::isdigit(static_cast<unsigned char>(c)) ||
                   (c == '.' && pos_ + 1 < text_.size() &&
                    std::isdigit(static_cast<unsigned char>(text_[pos_ + 1])))) {
            if (auto e = parseNumber())
                return e;
            out = {Kind::Number, at};
        } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
            const std::size_t begin = pos_;
            while (!atEnd() &&
                   (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_'))
                ++pos_;
            const std::string word(text_.substr(begin, pos_ - begin));
            if (word == "abs" && peek('(')) {
                if (auto e = deeper())
                    return e;
                ++pos_;
                Parsed inner;
                if (auto e = parseSum(inner))
                    return e;
                --depth_;
                if (auto e = needNumber(inner, "abs"))
                    return e;
                if (!peek(')'))
                    return atEnd() ? error("expected ')' at the end") : error("expected ')'");
                ++pos_;
                code_.push_back({Op::Abs});
            } else {
                const auto it = std::find(names_.begin(), names_.end(), word);
                if (it == names_.end()) {
                    std::string all;
                    for (const std::string& n : names_)
                        all += (all.empty() ? "" : ", ") + n;
                    return errorAt(begin + 1, "unknown name '" + word + "'; the names are " + all);
                }
                const std::size_t index = static_cast<std::size_t>(it - names_.begin());
                code_.push_back({Op::Name, index});
                if (std::find(used_.begin(), used_.end(), index) == used_.end())
                    used_.push_back(index);
            }
            out = {Kind::Number, at};
        } else {
            return error("expected a number or a name, not '" + std::string(1, c) + "'");
        }
        if (negate) {
            if (out.kind != Kind::Number)
                return errorAt(at, "a sign takes a number, not a comparison");
            code_.push_back({Op::Negate});
        }
        return std::nullopt;
    }

    std::optional<Error> parseNumber() {
        const std::size_t begin = pos_;
        // The number's characters only (copying the rest of a long text for
        // each number would make long conditions slow).
        std::size_t stop = begin;
        while (stop < text_.size()) {
            const char c = text_[stop];
            const char before = stop > begin ? text_[stop - 1] : ' ';
            const bool sign = (c == '+' || c == '-') &&
                              (before == 'e' || before == 'E' || before == 'p' || before == 'P');
            if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || sign))
                break;
            ++stop;
        }
        const std::string rest(text_.substr(begin, stop - begin));
        const bool hex = rest.size() > 1 && rest[0] == '0' && (rest[1] == 'x' || rest[1] == 'X');
        // A whole number is taken exactly when it fits in 64 bits; any
        // other number is the double closest to it, as a statistic is.
        std::size_t end = 0;
        while (end < rest.size() &&
               (hex ? std::isxdigit(static_cast<unsigned char>(rest[end])) || end < 2
                    : std::isdigit(static_cast<unsigned char>(rest[end]))))
            ++end;
        const bool operatorDot = end + 1 < rest.size() && rest[end] == '.' &&
                                 std::isalpha(static_cast<unsigned char>(rest[end + 1]));
        const bool whole = end == rest.size() || operatorDot ||
                           !(rest[end] == '.' || rest[end] == 'e' || rest[end] == 'E' ||
                             (hex && (rest[end] == 'p' || rest[end] == 'P')));
        long double value;
        if (whole && (!hex || end > 2)) {
            unsigned __int128 v = 0;
            bool overflow = false;
            for (std::size_t i = hex ? 2 : 0; i < end; ++i) {
                const int d = std::isdigit(static_cast<unsigned char>(rest[i]))
                                  ? rest[i] - '0'
                                  : std::tolower(static_cast<unsigned char>(rest[i])) - 'a' + 10;
                v = v * (hex ? 16 : 10) + static_cast<unsigned>(d);
                if (v > ~std::uint64_t(0)) {
                    overflow = true;
                    break;
                }
            }
            if (overflow) {
                value = std::strtod(rest.substr(0, end).c_str(), nullptr);
            } else {
                value = static_cast<long double>(static_cast<std::uint64_t>(v));
            }
            pos_ += end;
        } else {
            char* stop = nullptr;
            const double d = std::strtod(rest.c_str(), &stop);
            std::size_t used = static_cast<std::size_t>(stop - rest.c_str());
            // `3.gt.x`: the dot belongs to the operator.
            if (used > 1 && rest[used - 1] == '.' && used < rest.size() &&
                std::isalpha(static_cast<unsigned char>(rest[used])))
                --used;
            if (used == 0 || (hex && used <= 2))
                return errorAt(begin + 1, "cannot read the number");
            value = d;
            pos_ += used;
        }
        // A dot after a number only begins a dotted operator (`0.or.`).
        const bool dotted = !atEnd() && text_[pos_] == '.' && pos_ + 1 < text_.size() &&
                            std::isalpha(static_cast<unsigned char>(text_[pos_ + 1]));
        if (!atEnd() && !dotted &&
            (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_' ||
             text_[pos_] == '.'))
            return errorAt(begin + 1, "cannot read the number");
        code_.push_back({Op::Number, 0, value});
        return std::nullopt;
    }

    std::string_view text_;
    const std::vector<std::string>& names_;
    std::size_t pos_ = 0;
    int depth_ = 0;
    std::vector<Step> code_;
    std::vector<std::size_t> used_;
};

std::string_view trimmed(std::string_view t) {
    while (!t.empty() && std::isspace(static_cast<unsigned char>(t.front())))
        t.remove_prefix(1);
    while (!t.empty() && std::isspace(static_cast<unsigned char>(t.back())))
        t.remove_suffix(1);
    return t;
}

bool compare(Op op, long double a, long double b) {
    // A value that is not there, or not a number, satisfies no comparison.
    if (std::isnan(a) || std::isnan(b))
        return false;
    switch (op) {
    case Op::Equal:
        return a == b;
    case Op::NotEqual:
        return a != b;
    case Op::Less:
        return a < b;
    case Op::LessEqual:
        return a <= b;
    case Op::Greater:
        return a > b;
    default:
        return a >= b;
    }
}

} // namespace

Result<Condition> compileCondition(std::string_view text, const std::vector<std::string>& names) {
    Condition c;
    ConditionParser parser(text, names);
    if (auto e = parser.parse(c.code_, c.used_))
        return *e;
    c.text_ = std::string(trimmed(text));
    return c;
}

bool Condition::holds(const std::vector<std::optional<long double>>& values) const {
    std::vector<long double> stack;
    stack.reserve(16);
    const long double missing = std::numeric_limits<long double>::quiet_NaN();
    for (const Step& s : code_) {
        switch (s.op) {
        case Op::Number:
            stack.push_back(s.number);
            continue;
        case Op::Name:
            stack.push_back(s.name < values.size() && values[s.name] ? *values[s.name] : missing);
            continue;
        case Op::Negate:
            stack.back() = -stack.back();
            continue;
        case Op::Abs:
            stack.back() = std::fabs(stack.back());
            continue;
        case Op::Not:
            stack.back() = stack.back() != 0 ? 0 : 1;
            continue;
        default:
            break;
        }
        const long double b = stack.back();
        stack.pop_back();
        long double& a = stack.back();
        switch (s.op) {
        case Op::Add:
            a = a + b;
            break;
        case Op::Subtract:
            a = a - b;
            break;
        case Op::Multiply:
            a = a * b;
            break;
        case Op::Divide:
            a = a / b;
            break;
        case Op::And:
            a = (a != 0 && b != 0) ? 1 : 0;
            break;
        case Op::Or:
            a = (a != 0 || b != 0) ? 1 : 0;
            break;
        default:
            a = compare(s.op, a, b) ? 1 : 0;
            break;
        }
    }
    return !stack.empty() && stack.back() != 0;
}

} // namespace arraylens
