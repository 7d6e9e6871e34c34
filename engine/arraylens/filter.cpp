#include "filter.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <vector>

namespace arraylens {

namespace {

enum class Tok {
    Number,
    Value,
    Class,
    Abs,
    LParen,
    RParen,
    Plus,
    Minus,
    Star,
    Slash,
    Cmp,
    And,
    Or,
    Not,
    End,
};

enum class CmpOp { Eq, Ne, Lt, Le, Gt, Ge };

struct Token {
    Tok kind;
    std::size_t column; // from 1
    std::string text;
    CmpOp cmp = CmpOp::Eq;
    unsigned classMask = 0;
    bool isInt = false;
    __int128 i = 0;
    double d = 0;
    long double ld = 0;
};

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

Error filterError(std::size_t column, const std::string& what) {
    return Error{ErrorCode::BadFilter,
                 "Filter error at column " + std::to_string(column) + ": " + what + "."};
}

std::optional<Error> lex(std::string_view s, std::vector<Token>& out) {
    std::size_t i = 0;
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
        t.column = i + 1;
        auto two = [&](const char* op) { return s.compare(i, 2, op) == 0; };
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
                                                     std::string(s.substr(b, i - b)) + "'");
                }
                t.isInt = true;
                t.i = static_cast<__int128>(v);
                t.d = static_cast<double>(v);
                t.ld = static_cast<long double>(v);
                t.text = std::string(s.substr(b, i - b));
                out.push_back(t);
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
                                                     std::string(s.substr(b, i - b)) + "'");
                }
            }
            if (i < s.size() && (std::isalpha(static_cast<unsigned char>(s[i])) || s[i] == '_')) {
                while (i < s.size() && isIdent(s[i]))
                    ++i;
                return filterError(t.column, "cannot read the number '" +
                                                 std::string(s.substr(b, i - b)) + "'");
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
            out.push_back(t);
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
                    return filterError(t.column, "unknown name '" + t.text + "'");
            }
            out.push_back(t);
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
                                   "unknown operator '" + std::string(s.substr(i, end - i)) + "'");
            }
            out.push_back(t);
            continue;
        }
        struct Sym {
            const char* text;
            Tok kind;
            CmpOp cmp;
        };
        static const Sym syms[] = {
            {"==", Tok::Cmp, CmpOp::Eq},   {"!=", Tok::Cmp, CmpOp::Ne},
            {"<=", Tok::Cmp, CmpOp::Le},   {">=", Tok::Cmp, CmpOp::Ge},
            {"&&", Tok::And, CmpOp::Eq},   {"||", Tok::Or, CmpOp::Eq},
            {"<", Tok::Cmp, CmpOp::Lt},    {">", Tok::Cmp, CmpOp::Gt},
            {"!", Tok::Not, CmpOp::Eq},    {"(", Tok::LParen, CmpOp::Eq},
            {")", Tok::RParen, CmpOp::Eq}, {"+", Tok::Plus, CmpOp::Eq},
            {"-", Tok::Minus, CmpOp::Eq},  {"*", Tok::Star, CmpOp::Eq},
            {"/", Tok::Slash, CmpOp::Eq},
        };
        bool found = false;
        for (const Sym& sym : syms) {
            std::size_t n = std::char_traits<char>::length(sym.text);
            if ((n == 2 && two(sym.text)) || (n == 1 && c == sym.text[0])) {
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
            return filterError(t.column, std::string("unexpected character '") + c + "'");
        }
        out.push_back(t);
    }
    Token end;
    end.kind = Tok::End;
    end.column = s.size() + 1;
    out.push_back(end);
    return std::nullopt;
}

enum class Node { Or, And, Not, Cmp, ClassTest, Add, Sub, Mul, Div, Neg, Abs, Value, Const, Class };

struct NodeData {
    Node kind = Node::Const;
    int a = -1, b = -1;
    CmpOp cmp = CmpOp::Eq;
    unsigned classMask = 0;
    bool negate = false; // ClassTest: != rather than ==
    bool isInt = false;
    __int128 i = 0;
    double d = 0;
    long double ld = 0;
    std::size_t column = 0;
    std::string text;
};

NodeData makeNode(Node kind, int a = -1, int b = -1) {
    NodeData n;
    n.kind = kind;
    n.a = a;
    n.b = b;
    return n;
}

} // namespace

// The tree flattened into postfix operations on a small stack, for the
// common filters whose result does not depend on exact integer arithmetic:
// walking the tree per element costs several times more.
enum class FlatOp : unsigned char {
    Value,
    Const,
    Add,
    Sub,
    Mul,
    Div,
    Neg,
    Abs,
    Cmp,
    ClassOfValue,
    ClassOfResult,
    And,
    Or,
    Not,
};

struct FlatStep {
    FlatOp op;
    CmpOp cmp = CmpOp::Eq;
    bool negate = false;
    unsigned classMask = 0;
    double d = 0;
    __int128 i = 0;
};

constexpr std::size_t kFlatStack = 32;

struct FilterProgram {
    std::vector<NodeData> nodes;
    int root = -1;
    // Postfix form for float and double elements, empty when it would not
    // give the tree's answers.
    std::vector<FlatStep> flatDouble;
    // Postfix form for integer elements: comparisons of the element with
    // integer constants, no arithmetic.
    std::vector<FlatStep> flatInteger;
};

namespace {

struct ParseFail {
    std::size_t column;
    std::string message;
};

class FilterParser {
public:
    FilterParser(std::vector<Token> toks) : t_(std::move(toks)) {}
    FilterProgram prog;

    // Returns the root or the failure that got furthest.
    bool parse(int& root, ParseFail& fail) {
        int r = parseOr();
        if (r < 0) {
            fail = fail_;
            return false;
        }
        if (cur().kind != Tok::End) {
            fail = ParseFail{cur().column, cur().kind == Tok::RParen
                                               ? "unexpected ')'"
                                               : "unexpected '" + cur().text + "'"};
            return false;
        }
        root = r;
        return true;
    }

private:
    const Token& cur() const { return t_[pos_]; }
    const Token& prev() const { return t_[pos_ > 0 ? pos_ - 1 : 0]; }

    int fail(std::size_t column, std::string message) {
        if (!failed_ || column >= fail_.column)
            fail_ = ParseFail{column, std::move(message)};
        failed_ = true;
        return -1;
    }
    int add(NodeData n) {
        prog.nodes.push_back(std::move(n));
        return static_cast<int>(prog.nodes.size() - 1);
    }
    std::string afterPrev() const {
        if (pos_ == 0)
            return "";
        return " after '" + prev().text + "'";
    }

    int parseOr() {
        int l = parseAnd();
        while (l >= 0 && cur().kind == Tok::Or) {
            ++pos_;
            int r = parseAnd();
            if (r < 0)
                return -1;
            l = add(makeNode(Node::Or, l, r));
        }
        return l;
    }
    int parseAnd() {
        int l = parseNot();
        while (l >= 0 && cur().kind == Tok::And) {
            ++pos_;
            int r = parseNot();
            if (r < 0)
                return -1;
            l = add(makeNode(Node::And, l, r));
        }
        return l;
    }
    int parseNot() {
        if (cur().kind == Tok::Not) {
            ++pos_;
            if (cur().kind == Tok::End)
                return fail(cur().column, "expected a condition" + afterPrev());
            int a = parseNot();
            if (a < 0)
                return -1;
            return add(makeNode(Node::Not, a));
        }
        return parsePrimary();
    }
    static bool continuesSum(Tok k) {
        return k == Tok::Plus || k == Tok::Minus || k == Tok::Star || k == Tok::Slash ||
               k == Tok::Cmp;
    }
    int parsePrimary() {
        if (cur().kind == Tok::LParen) {
            std::size_t save = pos_;
            std::size_t nodes = prog.nodes.size();
            ++pos_;
            int inner = parseOr();
            if (inner >= 0 && cur().kind == Tok::RParen && !continuesSum(t_[pos_ + 1].kind)) {
                ++pos_;
                return inner;
            }
            if (inner >= 0 && cur().kind != Tok::RParen)
                fail(cur().column, "expected ')'");
            // Not a parenthesised condition: a comparison starting with a
            // parenthesised sum, such as ($value + 1) > 2.
            pos_ = save;
            prog.nodes.resize(nodes);
        }
        return parseComparison();
    }
    int parseComparison() {
        int left;
        if (cur().kind == Tok::Cmp) {
            NodeData v = makeNode(Node::Value);
            v.column = cur().column;
            left = add(v);
        } else {
            if (!startsFactor(cur().kind))
                return fail(cur().column, cur().kind == Tok::End
                                              ? "expected a condition" + afterPrev()
                                              : "unexpected '" + cur().text + "'");
            left = parseSum();
            if (left < 0)
                return -1;
            if (cur().kind != Tok::Cmp)
                return fail(cur().column,
                            cur().kind == Tok::End
                                ? "expected a comparison such as '> 0'" + afterPrev()
                                : "expected a comparison operator before '" + cur().text + "'");
        }
        const Token op = cur();
        ++pos_;
        int right = parseSum();
        if (right < 0)
            return -1;
        return makeComparison(left, right, op);
    }

    bool isClass(int n) const { return prog.nodes[n].kind == Node::Class; }
    bool isSignedInfinity(int n) const {
        unsigned m = prog.nodes[n].classMask;
        return m == kClassPosInf || m == kClassNegInf;
    }
    // A class used as a number: only the signed infinities are numbers.
    int classAsNumber(int n) {
        if (n < 0 || !isClass(n))
            return n;
        NodeData& d = prog.nodes[n];
        if (!isSignedInfinity(n))
            return fail(d.column, d.text + " can only be compared with == or !=");
        d.kind = Node::Const;
        d.isInt = false;
        d.d = d.classMask == kClassPosInf ? HUGE_VAL : -HUGE_VAL;
        d.ld = d.classMask == kClassPosInf ? HUGE_VALL : -HUGE_VALL;
        return n;
    }
    int makeComparison(int left, int right, const Token& op) {
        bool lc = isClass(left), rc = isClass(right);
        if (lc && rc)
            return fail(prog.nodes[right].column,
                        "compare an element with " + prog.nodes[right].text + ", not two classes");
        if (lc || rc) {
            int cls = lc ? left : right;
            int other = lc ? right : left;
            if (op.cmp == CmpOp::Eq || op.cmp == CmpOp::Ne) {
                NodeData n = makeNode(Node::ClassTest, other);
                n.classMask = prog.nodes[cls].classMask;
                n.negate = op.cmp == CmpOp::Ne;
                return add(n);
            }
            if (classAsNumber(cls) < 0)
                return -1;
        }
        NodeData n = makeNode(Node::Cmp, left, right);
        n.cmp = op.cmp;
        return add(n);
    }
    static bool startsFactor(Tok k) {
        return k == Tok::Number || k == Tok::Value || k == Tok::Class || k == Tok::LParen ||
               k == Tok::Abs || k == Tok::Minus || k == Tok::Plus;
    }
    int parseSum() {
        int l = parseTerm();
        while (l >= 0 && (cur().kind == Tok::Plus || cur().kind == Tok::Minus)) {
            Node k = cur().kind == Tok::Plus ? Node::Add : Node::Sub;
            ++pos_;
            int r = parseTerm();
            if (r < 0 || classAsNumber(l) < 0 || classAsNumber(r) < 0)
                return -1;
            l = add(makeNode(k, l, r));
        }
        return l;
    }
    int parseTerm() {
        int l = parseFactor();
        while (l >= 0 && (cur().kind == Tok::Star || cur().kind == Tok::Slash)) {
            Node k = cur().kind == Tok::Star ? Node::Mul : Node::Div;
            ++pos_;
            int r = parseFactor();
            if (r < 0 || classAsNumber(l) < 0 || classAsNumber(r) < 0)
                return -1;
            l = add(makeNode(k, l, r));
        }
        return l;
    }
    int parseFactor() {
        bool negate = false;
        if (cur().kind == Tok::Minus || cur().kind == Tok::Plus) {
            negate = cur().kind == Tok::Minus;
            ++pos_;
        }
        int f = parseAtom();
        if (f < 0)
            return -1;
        if (negate) {
            if (classAsNumber(f) < 0)
                return -1;
            f = add(makeNode(Node::Neg, f));
        }
        return f;
    }
    int parseAtom() {
        const Token& t = cur();
        switch (t.kind) {
        case Tok::Number: {
            NodeData n = makeNode(Node::Const);
            n.isInt = t.isInt;
            n.i = t.i;
            n.d = t.d;
            n.ld = t.ld;
            ++pos_;
            return add(n);
        }
        case Tok::Value: {
            NodeData n = makeNode(Node::Value);
            n.column = t.column;
            ++pos_;
            return add(n);
        }
        case Tok::Class: {
            NodeData n = makeNode(Node::Class);
            n.classMask = t.classMask;
            n.column = t.column;
            n.text = t.text;
            ++pos_;
            return add(n);
        }
        case Tok::LParen: {
            ++pos_;
            int s = parseSum();
            if (s < 0)
                return -1;
            if (cur().kind != Tok::RParen)
                return fail(cur().column, "expected ')'");
            ++pos_;
            return classAsNumber(s);
        }
        case Tok::Abs: {
            ++pos_;
            if (cur().kind != Tok::LParen)
                return fail(cur().column, "expected '(' after 'abs'");
            ++pos_;
            int s = parseSum();
            if (s < 0)
                return -1;
            if (cur().kind != Tok::RParen)
                return fail(cur().column, "expected ')'");
            ++pos_;
            if (classAsNumber(s) < 0)
                return -1;
            return add(makeNode(Node::Abs, s));
        }
        default:
            return fail(t.column, "expected a number or $value" + afterPrev());
        }
    }

    std::vector<Token> t_;
    std::size_t pos_ = 0;
    bool failed_ = false;
    ParseFail fail_{0, ""};
};

// A number during evaluation: an exact integer, or floating point of type F.
template <class F> struct Num {
    bool isInt;
    __int128 i;
    F f;
    F asFloat() const { return isInt ? static_cast<F>(i) : f; }
};

// The element being tested.
template <class F> struct Elem {
    bool isInt;
    __int128 i;
    F f;
    unsigned cls;
};

constexpr __int128 kInt128Max = static_cast<__int128>(~static_cast<unsigned __int128>(0) >> 1);

// Exact order of an integer and a floating-point number: -1, 0, 1; 2 if f is NaN.
template <class F> int compareExact(__int128 i, F f) {
    if (std::isnan(f))
        return 2;
    const F two127 = std::ldexp(F(1), 127);
    if (f >= two127)
        return -1;
    if (f < -two127)
        return 1;
    F t = std::trunc(f);
    __int128 ti = static_cast<__int128>(t);
    if (i < ti)
        return -1;
    if (i > ti)
        return 1;
    F frac = f - t;
    return frac > 0 ? -1 : (frac < 0 ? 1 : 0);
}

template <class F> bool applyCmp(CmpOp op, const Num<F>& a, const Num<F>& b) {
    int c;
    if (a.isInt && b.isInt) {
        c = a.i < b.i ? -1 : (a.i > b.i ? 1 : 0);
    } else if (a.isInt) {
        c = compareExact(a.i, b.f);
    } else if (b.isInt) {
        c = compareExact(b.i, a.f);
        if (c != 2)
            c = -c;
    } else {
        if (std::isnan(a.f) || std::isnan(b.f))
            c = 2;
        else
            c = a.f < b.f ? -1 : (a.f > b.f ? 1 : 0);
    }
    if (c == 2)
        return op == CmpOp::Ne;
    switch (op) {
    case CmpOp::Eq:
        return c == 0;
    case CmpOp::Ne:
        return c != 0;
    case CmpOp::Lt:
        return c < 0;
    case CmpOp::Le:
        return c <= 0;
    case CmpOp::Gt:
        return c > 0;
    case CmpOp::Ge:
        return c >= 0;
    }
    return false;
}

template <class F> F constOf(const NodeData& n) {
    if constexpr (std::is_same<F, long double>::value)
        return n.ld;
    else
        return static_cast<F>(n.d);
}

template <class F> Num<F> evalNum(const FilterProgram& p, int idx, const Elem<F>& e) {
    const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
    switch (n.kind) {
    case Node::Value:
        return Num<F>{e.isInt, e.i, e.f};
    case Node::Const:
        return Num<F>{n.isInt, n.i, constOf<F>(n)};
    case Node::Neg: {
        Num<F> a = evalNum(p, n.a, e);
        if (a.isInt && a.i != -kInt128Max - 1)
            return Num<F>{true, -a.i, F(0)};
        return Num<F>{false, 0, -a.asFloat()};
    }
    case Node::Abs: {
        Num<F> a = evalNum(p, n.a, e);
        if (a.isInt && a.i != -kInt128Max - 1)
            return Num<F>{true, a.i < 0 ? -a.i : a.i, F(0)};
        return Num<F>{false, 0, std::fabs(a.asFloat())};
    }
    case Node::Add:
    case Node::Sub:
    case Node::Mul: {
        Num<F> a = evalNum(p, n.a, e), b = evalNum(p, n.b, e);
        if (a.isInt && b.isInt) {
            __int128 r;
            bool over = n.kind == Node::Add   ? __builtin_add_overflow(a.i, b.i, &r)
                        : n.kind == Node::Sub ? __builtin_sub_overflow(a.i, b.i, &r)
                                              : __builtin_mul_overflow(a.i, b.i, &r);
            if (!over)
                return Num<F>{true, r, F(0)};
        }
        F x = a.asFloat(), y = b.asFloat();
        F r = n.kind == Node::Add ? x + y : n.kind == Node::Sub ? x - y : x * y;
        return Num<F>{false, 0, r};
    }
    case Node::Div: {
        Num<F> a = evalNum(p, n.a, e), b = evalNum(p, n.b, e);
        if (a.isInt && b.isInt && b.i != 0 && a.i % b.i == 0 &&
            !(a.i == -kInt128Max - 1 && b.i == -1))
            return Num<F>{true, a.i / b.i, F(0)};
        return Num<F>{false, 0, a.asFloat() / b.asFloat()};
    }
    default:
        return Num<F>{true, 0, F(0)};
    }
}

template <class F> unsigned classOf(F f) {
    switch (std::fpclassify(f)) {
    case FP_NAN:
        return kClassQuietNan;
    case FP_INFINITE:
        return std::signbit(f) ? kClassNegInf : kClassPosInf;
    case FP_SUBNORMAL:
        return std::signbit(f) ? kClassNegDenorm : kClassPosDenorm;
    case FP_ZERO:
        return kClassZero;
    default:
        return 0;
    }
}

template <class F> bool evalBool(const FilterProgram& p, int idx, const Elem<F>& e) {
    const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
    switch (n.kind) {
    case Node::Or:
        return evalBool(p, n.a, e) || evalBool(p, n.b, e);
    case Node::And:
        return evalBool(p, n.a, e) && evalBool(p, n.b, e);
    case Node::Not:
        return !evalBool(p, n.a, e);
    case Node::Cmp:
        return applyCmp(n.cmp, evalNum(p, n.a, e), evalNum(p, n.b, e));
    case Node::ClassTest: {
        bool in;
        if (e.isInt) {
            in = false;
        } else if (p.nodes[static_cast<std::size_t>(n.a)].kind == Node::Value) {
            in = (e.cls & n.classMask) != 0;
        } else {
            Num<F> v = evalNum(p, n.a, e);
            in = !v.isInt && (classOf(v.f) & n.classMask) != 0;
        }
        return in != n.negate;
    }
    default:
        return false;
    }
}

bool dependsOnValue(const FilterProgram& p, int idx) {
    if (idx < 0)
        return false;
    const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
    return n.kind == Node::Value || dependsOnValue(p, n.a) || dependsOnValue(p, n.b);
}

// Emits node idx in postfix; false when the flat form would differ from
// the tree. depth tracks the stack the program needs.
bool flatten(const FilterProgram& p, int idx, bool integer, std::vector<FlatStep>& out,
             std::size_t depth, std::size_t& maxDepth) {
    const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
    maxDepth = std::max(maxDepth, depth + 1);
    if (maxDepth > kFlatStack)
        return false;
    auto binary = [&](FlatOp op) {
        if (!flatten(p, n.a, integer, out, depth, maxDepth) ||
            !flatten(p, n.b, integer, out, depth + 1, maxDepth))
            return false;
        FlatStep st{op};
        st.cmp = n.cmp;
        out.push_back(st);
        return true;
    };
    auto unary = [&](FlatOp op) {
        if (!flatten(p, n.a, integer, out, depth, maxDepth))
            return false;
        out.push_back(FlatStep{op});
        return true;
    };
    switch (n.kind) {
    case Node::Or:
        return binary(FlatOp::Or);
    case Node::And:
        return binary(FlatOp::And);
    case Node::Not:
        return unary(FlatOp::Not);
    case Node::Cmp:
        return binary(FlatOp::Cmp);
    case Node::ClassTest: {
        FlatStep st{FlatOp::ClassOfValue};
        st.classMask = n.classMask;
        st.negate = n.negate;
        if (p.nodes[static_cast<std::size_t>(n.a)].kind == Node::Value) {
            out.push_back(st);
            return true;
        }
        if (integer)
            return false;
        if (!flatten(p, n.a, integer, out, depth, maxDepth))
            return false;
        st.op = FlatOp::ClassOfResult;
        out.push_back(st);
        return true;
    }
    case Node::Value:
        out.push_back(FlatStep{FlatOp::Value});
        return true;
    case Node::Const: {
        FlatStep st{FlatOp::Const};
        if (integer) {
            if (!n.isInt)
                return false;
            st.i = n.i;
        } else {
            // Integers beyond 2^53 are not all doubles: exactness needs the tree.
            if (n.isInt && (n.i > (__int128(1) << 53) || n.i < -(__int128(1) << 53)))
                return false;
            st.d = n.d;
        }
        out.push_back(st);
        return true;
    }
    case Node::Add:
    case Node::Sub:
    case Node::Mul:
    case Node::Div:
        // Arithmetic on constants alone is exact integer arithmetic in the
        // tree; with the element in it, it is floating point there too.
        if (integer || !dependsOnValue(p, idx))
            return false;
        return binary(n.kind == Node::Add   ? FlatOp::Add
                      : n.kind == Node::Sub ? FlatOp::Sub
                      : n.kind == Node::Mul ? FlatOp::Mul
                                            : FlatOp::Div);
    case Node::Neg:
    case Node::Abs:
        if (integer)
            return false;
        return unary(n.kind == Node::Neg ? FlatOp::Neg : FlatOp::Abs);
    default:
        return false;
    }
}

template <class T> bool compareFlat(CmpOp op, T a, T b) {
    switch (op) {
    case CmpOp::Eq:
        return a == b;
    case CmpOp::Ne:
        return a != b;
    case CmpOp::Lt:
        return a < b;
    case CmpOp::Le:
        return a <= b;
    case CmpOp::Gt:
        return a > b;
    case CmpOp::Ge:
        return a >= b;
    }
    return false;
}

bool runFlatDouble(const std::vector<FlatStep>& prog, double value, unsigned cls) {
    double stack[kFlatStack];
    std::size_t top = 0;
    for (const FlatStep& st : prog) {
        switch (st.op) {
        case FlatOp::Value:
            stack[top++] = value;
            break;
        case FlatOp::Const:
            stack[top++] = st.d;
            break;
        case FlatOp::Add:
            --top;
            stack[top - 1] += stack[top];
            break;
        case FlatOp::Sub:
            --top;
            stack[top - 1] -= stack[top];
            break;
        case FlatOp::Mul:
            --top;
            stack[top - 1] *= stack[top];
            break;
        case FlatOp::Div:
            --top;
            stack[top - 1] /= stack[top];
            break;
        case FlatOp::Neg:
            stack[top - 1] = -stack[top - 1];
            break;
        case FlatOp::Abs:
            stack[top - 1] = std::fabs(stack[top - 1]);
            break;
        case FlatOp::Cmp:
            // IEEE comparisons: false with a NaN, except !=, as in the tree.
            --top;
            stack[top - 1] = compareFlat(st.cmp, stack[top - 1], stack[top]) ? 1 : 0;
            break;
        case FlatOp::ClassOfValue:
            stack[top++] = ((cls & st.classMask) != 0) != st.negate ? 1 : 0;
            break;
        case FlatOp::ClassOfResult:
            stack[top - 1] = ((classOf(stack[top - 1]) & st.classMask) != 0) != st.negate ? 1 : 0;
            break;
        case FlatOp::And:
            --top;
            stack[top - 1] = (stack[top - 1] != 0 && stack[top] != 0) ? 1 : 0;
            break;
        case FlatOp::Or:
            --top;
            stack[top - 1] = (stack[top - 1] != 0 || stack[top] != 0) ? 1 : 0;
            break;
        case FlatOp::Not:
            stack[top - 1] = stack[top - 1] != 0 ? 0 : 1;
            break;
        }
    }
    return stack[0] != 0;
}

bool runFlatInteger(const std::vector<FlatStep>& prog, __int128 value) {
    __int128 stack[kFlatStack];
    std::size_t top = 0;
    for (const FlatStep& st : prog) {
        switch (st.op) {
        case FlatOp::Value:
            stack[top++] = value;
            break;
        case FlatOp::Const:
            stack[top++] = st.i;
            break;
        case FlatOp::Cmp:
            --top;
            stack[top - 1] = compareFlat(st.cmp, stack[top - 1], stack[top]) ? 1 : 0;
            break;
        case FlatOp::ClassOfValue: // integers belong to no class
            stack[top++] = st.negate ? 1 : 0;
            break;
        case FlatOp::And:
            --top;
            stack[top - 1] = (stack[top - 1] != 0 && stack[top] != 0) ? 1 : 0;
            break;
        case FlatOp::Or:
            --top;
            stack[top - 1] = (stack[top - 1] != 0 || stack[top] != 0) ? 1 : 0;
            break;
        case FlatOp::Not:
            stack[top - 1] = stack[top - 1] != 0 ? 0 : 1;
            break;
        default:
            break;
        }
    }
    return stack[0] != 0;
}

} // namespace

bool Filter::matchesInteger(__int128 value) const {
    if (!program_)
        return true;
    if (!program_->flatInteger.empty())
        return runFlatInteger(program_->flatInteger, value);
    return evalBool(*program_, program_->root, Elem<double>{true, value, 0.0, 0});
}

bool Filter::matchesDouble(double value, unsigned floatClass) const {
    if (!program_)
        return true;
    if (!program_->flatDouble.empty())
        return runFlatDouble(program_->flatDouble, value, floatClass);
    return evalBool(*program_, program_->root, Elem<double>{false, 0, value, floatClass});
}

namespace {

// Per-thread rows of the block stack, grown on demand.
template <class T> T* blockStack(std::size_t rows) {
    thread_local std::vector<T> storage;
    if (storage.size() < rows * Filter::kBlock)
        storage.resize(rows * Filter::kBlock);
    return storage.data();
}

template <class T, class Op> void binaryRows(T* a, const T* b, std::size_t n, Op op) {
    for (std::size_t k = 0; k < n; ++k)
        a[k] = op(a[k], b[k]);
}

template <class T> void compareRows(CmpOp c, T* a, const T* b, std::size_t n) {
    switch (c) {
    case CmpOp::Eq:
        binaryRows(a, b, n, [](T x, T y) { return x == y ? T(1) : T(0); });
        break;
    case CmpOp::Ne:
        binaryRows(a, b, n, [](T x, T y) { return x != y ? T(1) : T(0); });
        break;
    case CmpOp::Lt:
        binaryRows(a, b, n, [](T x, T y) { return x < y ? T(1) : T(0); });
        break;
    case CmpOp::Le:
        binaryRows(a, b, n, [](T x, T y) { return x <= y ? T(1) : T(0); });
        break;
    case CmpOp::Gt:
        binaryRows(a, b, n, [](T x, T y) { return x > y ? T(1) : T(0); });
        break;
    case CmpOp::Ge:
        binaryRows(a, b, n, [](T x, T y) { return x >= y ? T(1) : T(0); });
        break;
    }
}

template <class T> void logicRows(FlatOp op, T* a, const T* b, std::size_t n) {
    if (op == FlatOp::And)
        binaryRows(a, b, n, [](T x, T y) { return (x != 0 && y != 0) ? T(1) : T(0); });
    else
        binaryRows(a, b, n, [](T x, T y) { return (x != 0 || y != 0) ? T(1) : T(0); });
}

} // namespace

void Filter::runBlock(const double* values, const unsigned* classes, std::size_t n,
                      unsigned char* pass) const {
    const std::size_t rows = kFlatStack;
    double* stack = blockStack<double>(rows);
    auto row = [&](std::size_t i) { return stack + i * kBlock; };
    std::size_t top = 0;
    for (const FlatStep& st : program_->flatDouble) {
        double* a = top >= 2 ? row(top - 2) : nullptr;
        double* b = top >= 1 ? row(top - 1) : nullptr;
        switch (st.op) {
        case FlatOp::Value:
            std::copy(values, values + n, row(top++));
            break;
        case FlatOp::Const:
            std::fill(row(top), row(top) + n, st.d);
            ++top;
            break;
        case FlatOp::Add:
            binaryRows(a, b, n, [](double x, double y) { return x + y; });
            --top;
            break;
        case FlatOp::Sub:
            binaryRows(a, b, n, [](double x, double y) { return x - y; });
            --top;
            break;
        case FlatOp::Mul:
            binaryRows(a, b, n, [](double x, double y) { return x * y; });
            --top;
            break;
        case FlatOp::Div:
            binaryRows(a, b, n, [](double x, double y) { return x / y; });
            --top;
            break;
        case FlatOp::Neg:
            for (std::size_t k = 0; k < n; ++k)
                b[k] = -b[k];
            break;
        case FlatOp::Abs:
            for (std::size_t k = 0; k < n; ++k)
                b[k] = std::fabs(b[k]);
            break;
        case FlatOp::Cmp:
            compareRows(st.cmp, a, b, n);
            --top;
            break;
        case FlatOp::ClassOfValue: {
            double* r = row(top++);
            for (std::size_t k = 0; k < n; ++k)
                r[k] = ((classes[k] & st.classMask) != 0) != st.negate ? 1 : 0;
            break;
        }
        case FlatOp::ClassOfResult:
            for (std::size_t k = 0; k < n; ++k)
                b[k] = ((classOf(b[k]) & st.classMask) != 0) != st.negate ? 1 : 0;
            break;
        case FlatOp::And:
        case FlatOp::Or:
            logicRows(st.op, a, b, n);
            --top;
            break;
        case FlatOp::Not:
            for (std::size_t k = 0; k < n; ++k)
                b[k] = b[k] != 0 ? 0 : 1;
            break;
        }
    }
    for (std::size_t k = 0; k < n; ++k)
        pass[k] = stack[k] != 0 ? 1 : 0;
}

void Filter::runBlock(const __int128* values, std::size_t n, unsigned char* pass) const {
    __int128* stack = blockStack<__int128>(kFlatStack);
    auto row = [&](std::size_t i) { return stack + i * kBlock; };
    std::size_t top = 0;
    for (const FlatStep& st : program_->flatInteger) {
        __int128* a = top >= 2 ? row(top - 2) : nullptr;
        __int128* b = top >= 1 ? row(top - 1) : nullptr;
        switch (st.op) {
        case FlatOp::Value:
            std::copy(values, values + n, row(top++));
            break;
        case FlatOp::Const:
            std::fill(row(top), row(top) + n, st.i);
            ++top;
            break;
        case FlatOp::Cmp:
            compareRows(st.cmp, a, b, n);
            --top;
            break;
        case FlatOp::ClassOfValue: // integers belong to no class
            std::fill(row(top), row(top) + n, st.negate ? 1 : 0);
            ++top;
            break;
        case FlatOp::And:
        case FlatOp::Or:
            logicRows(st.op, a, b, n);
            --top;
            break;
        case FlatOp::Not:
            for (std::size_t k = 0; k < n; ++k)
                b[k] = b[k] != 0 ? 0 : 1;
            break;
        default:
            break;
        }
    }
    for (std::size_t k = 0; k < n; ++k)
        pass[k] = stack[k] != 0 ? 1 : 0;
}

bool Filter::flattened(bool integer) const {
    return program_ && !(integer ? program_->flatInteger : program_->flatDouble).empty();
}

bool Filter::matchesTree(__int128 i, double d, bool isInt, unsigned floatClass) const {
    if (!program_)
        return true;
    return evalBool(*program_, program_->root, Elem<double>{isInt, i, d, floatClass});
}

bool Filter::matchesLongDouble(long double value, unsigned floatClass) const {
    if (!program_)
        return true;
    return evalBool(*program_, program_->root, Elem<long double>{false, 0, value, floatClass});
}

Result<Filter> compileFilter(std::string_view text) {
    std::size_t b = 0, e = text.size();
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (b < e && blank(text[b]))
        ++b;
    while (e > b && blank(text[e - 1]))
        --e;
    Filter f;
    if (b == e)
        return f;
    std::vector<Token> toks;
    if (auto err = lex(text, toks))
        return *err;
    FilterParser parser(std::move(toks));
    int root = -1;
    ParseFail fail;
    if (!parser.parse(root, fail))
        return filterError(fail.column, fail.message);
    auto prog = std::make_shared<FilterProgram>(std::move(parser.prog));
    prog->root = root;
    std::size_t depth = 0;
    if (!flatten(*prog, root, false, prog->flatDouble, 0, depth))
        prog->flatDouble.clear();
    depth = 0;
    if (!flatten(*prog, root, true, prog->flatInteger, 0, depth))
        prog->flatInteger.clear();
    f.program_ = std::move(prog);
    f.text_ = std::string(text.substr(b, e - b));
    return f;
}

} // namespace arraylens
