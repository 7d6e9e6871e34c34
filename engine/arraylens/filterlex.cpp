#include "filterlex.h"

#include "element.h"
#include "filter.h"
#include "textquote.h"

#include <cctype>
#include <cstdlib>
#include <limits>

namespace arraylens::filtertext {

namespace {

struct ClassName {
    const char* name;
    unsigned mask;
};

const ClassName kClasses[] = {
    {"$nan", kClassNan},           {"$nanq", kClassQuietNan},     {"$qnan", kClassQuietNan},
    {"$nans", kClassSignalingNan}, {"$snan", kClassSignalingNan}, {"$inf", kClassInf},
    {"$pinf", kClassPosInf},       {"$ninf", kClassNegInf},       {"$denorm", kClassDenorm},
    {"$pdenorm", kClassPosDenorm}, {"$ndenorm", kClassNegDenorm},
};

std::string lower(std::string_view s) {
    std::string r;
    for (char c : s)
        r += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return r;
}

} // namespace

Error filterError(std::size_t column, const std::string& what) {
    return Error{ErrorCode::BadFilter,
                 "Filter error at column " + std::to_string(column) + ": " + what + "."};
}

Error tooDeepError() {
    return Error{ErrorCode::BadFilter, "The filter is nested too deeply (more than " +
                                           std::to_string(kMaxFilterDepth) + " levels)."};
}

std::string shown(std::string_view text) {
    return quoteAround(text, 1);
}

std::optional<Error> lex(std::string_view s, std::vector<Token>& out) {
    std::size_t i = 0;
    ColumnCounter columns(s);
    std::size_t open = 0; // parentheses not yet closed
    std::size_t nots = 0; // negations in a row
    auto emit = [&](Token&& t) -> std::optional<Error> {
        nots = t.kind == Tok::Not ? nots + 1 : 0;
        if (t.kind == Tok::LParen)
            ++open;
        else if (t.kind == Tok::RParen && open > 0)
            --open;
        if (open > kMaxFilterDepth || nots > kMaxFilterDepth)
            return tooDeepError();
        out.push_back(std::move(t));
        return std::nullopt;
    };
    auto isIdent = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '$';
    };
    while (i < s.size()) {
        char c = s[i];
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            ++i;
            continue;
        }
        Token t;
        t.column = columns.at(i);
        if (std::isdigit(static_cast<unsigned char>(c)) ||
            (c == '.' && i + 1 < s.size() && std::isdigit(static_cast<unsigned char>(s[i + 1])))) {
            std::size_t b = i;
            t.kind = Tok::Number;
            if (c == '0' && i + 1 < s.size() && (s[i + 1] == 'x' || s[i + 1] == 'X')) {
                i += 2;
                unsigned __int128 v = 0;
                std::size_t digits = 0;
                while (i < s.size() && std::isxdigit(static_cast<unsigned char>(s[i]))) {
                    int d = std::isdigit(static_cast<unsigned char>(s[i]))
                                ? s[i] - '0'
                                : std::tolower(static_cast<unsigned char>(s[i])) - 'a' + 10;
                    v = v * 16 + static_cast<unsigned>(d);
                    if (++digits > 16)
                        return filterError(t.column, "the number '" +
                                                         std::string(s.substr(b, i + 1 - b)) +
                                                         "...' is too large");
                    ++i;
                }
                if (digits == 0 || (i < s.size() && isIdent(s[i]))) {
                    while (i < s.size() && isIdent(s[i]))
                        ++i;
                    return filterError(t.column, "cannot read the number '" +
                                                     shown(s.substr(b, i - b)) + "'");
                }
                t.isInt = true;
                t.i = static_cast<__int128>(v);
                t.d = static_cast<double>(v);
                t.ld = static_cast<long double>(v);
                t.text = std::string(s.substr(b, i - b));
                if (auto e = emit(std::move(t)))
                    return e;
                continue;
            }
            bool isInt = true;
            while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])))
                ++i;
            if (i < s.size() && s[i] == '.' &&
                !(i + 1 < s.size() && std::isalpha(static_cast<unsigned char>(s[i + 1])) &&
                  std::tolower(static_cast<unsigned char>(s[i + 1])) != 'e')) {
                isInt = false;
                ++i;
                while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])))
                    ++i;
            }
            if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
                std::size_t e = i + 1;
                if (e < s.size() && (s[e] == '+' || s[e] == '-'))
                    ++e;
                if (e < s.size() && std::isdigit(static_cast<unsigned char>(s[e]))) {
                    isInt = false;
                    i = e;
                    while (i < s.size() && std::isdigit(static_cast<unsigned char>(s[i])))
                        ++i;
                } else {
                    i = e;
                    return filterError(t.column, "cannot read the number '" +
                                                     shown(s.substr(b, i - b)) + "'");
                }
            }
            if (i < s.size() && (std::isalpha(static_cast<unsigned char>(s[i])) || s[i] == '_')) {
                while (i < s.size() && isIdent(s[i]))
                    ++i;
                return filterError(t.column,
                                   "cannot read the number '" + shown(s.substr(b, i - b)) + "'");
            }
            t.text = std::string(s.substr(b, i - b));
            t.d = std::strtod(t.text.c_str(), nullptr);
            t.ld = std::strtold(t.text.c_str(), nullptr);
            if (isInt) {
                unsigned __int128 v = 0;
                for (char ch : t.text) {
                    v = v * 10 + static_cast<unsigned>(ch - '0');
                    if (v > std::numeric_limits<std::uint64_t>::max()) {
                        isInt = false;
                        break;
                    }
                }
                if (isInt)
                    t.i = static_cast<__int128>(v);
            }
            t.isInt = isInt;
            if (auto e = emit(std::move(t)))
                return e;
            continue;
        }
        if (c == '$' || std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
            std::size_t b = i++;
            while (i < s.size() && (std::isalnum(static_cast<unsigned char>(s[i])) || s[i] == '_'))
                ++i;
            t.text = std::string(s.substr(b, i - b));
            std::string name = lower(t.text);
            if (name == "$value") {
                t.kind = Tok::Value;
            } else if (name == "abs") {
                t.kind = Tok::Abs;
            } else {
                bool found = false;
                for (const ClassName& k : kClasses)
                    if (name == k.name) {
                        t.kind = Tok::Class;
                        t.classMask = k.mask;
                        found = true;
                    }
                if (!found)
                    return filterError(t.column, "unknown name '" + shown(t.text) + "'");
            }
            if (auto e = emit(std::move(t)))
                return e;
            continue;
        }
        if (c == '.') {
            std::size_t e = s.find('.', i + 1);
            std::string word = e == std::string_view::npos ? "" : lower(s.substr(i, e + 1 - i));
            static const struct {
                const char* text;
                Tok kind;
                CmpOp cmp;
            } dotted[] = {
                {".and.", Tok::And, CmpOp::Eq}, {".or.", Tok::Or, CmpOp::Eq},
                {".not.", Tok::Not, CmpOp::Eq}, {".eq.", Tok::Cmp, CmpOp::Eq},
                {".ne.", Tok::Cmp, CmpOp::Ne},  {".lt.", Tok::Cmp, CmpOp::Lt},
                {".le.", Tok::Cmp, CmpOp::Le},  {".gt.", Tok::Cmp, CmpOp::Gt},
                {".ge.", Tok::Cmp, CmpOp::Ge},
            };
            bool found = false;
            for (const auto& d : dotted)
                if (word == d.text) {
                    t.kind = d.kind;
                    t.cmp = d.cmp;
                    t.text = std::string(s.substr(i, e + 1 - i));
                    i = e + 1;
                    found = true;
                    break;
                }
            if (!found) {
                std::size_t end = i + 1;
                while (end < s.size() && std::isalpha(static_cast<unsigned char>(s[end])))
                    ++end;
                if (end < s.size() && s[end] == '.')
                    ++end;
                return filterError(t.column,
                                   "unknown operator '" + shown(s.substr(i, end - i)) + "'");
            }
            if (auto e = emit(std::move(t)))
                return e;
            continue;
        }
        struct Sym {
            const char* text;
            std::size_t n;
            Tok kind;
            CmpOp cmp;
        };
        static const Sym syms[] = {
            {"==", 2, Tok::Cmp, CmpOp::Eq},   {"!=", 2, Tok::Cmp, CmpOp::Ne},
            {"<=", 2, Tok::Cmp, CmpOp::Le},   {">=", 2, Tok::Cmp, CmpOp::Ge},
            {"&&", 2, Tok::And, CmpOp::Eq},   {"||", 2, Tok::Or, CmpOp::Eq},
            {"<", 1, Tok::Cmp, CmpOp::Lt},    {">", 1, Tok::Cmp, CmpOp::Gt},
            {"!", 1, Tok::Not, CmpOp::Eq},    {"(", 1, Tok::LParen, CmpOp::Eq},
            {")", 1, Tok::RParen, CmpOp::Eq}, {"+", 1, Tok::Plus, CmpOp::Eq},
            {"-", 1, Tok::Minus, CmpOp::Eq},  {"*", 1, Tok::Star, CmpOp::Eq},
            {"/", 1, Tok::Slash, CmpOp::Eq},
        };
        const char next = i + 1 < s.size() ? s[i + 1] : '\0';
        bool found = false;
        for (const Sym& sym : syms) {
            const std::size_t n = sym.n;
            if (c == sym.text[0] && (n == 1 || next == sym.text[1])) {
                t.kind = sym.kind;
                t.cmp = sym.cmp;
                t.text = sym.text;
                i += n;
                found = true;
                break;
            }
        }
        if (!found) {
            if (c == '=' || c == '&' || c == '|')
                return filterError(t.column,
                                   std::string("unexpected '") + c + "'; write '" + c + c + "'");
            // The whole character as typed, not its first byte.
            return filterError(t.column, "unexpected character '" +
                                             std::string(s.substr(i, charBytes(s, i))) + "'");
        }
        if (auto e = emit(std::move(t)))
            return e;
    }
    Token end;
    end.kind = Tok::End;
    end.column = columns.at(s.size());
    out.push_back(end);
    return std::nullopt;
}

} // namespace arraylens::filtertext
