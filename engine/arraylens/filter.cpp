#include "filter.h"

#include "filterlex.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <vector>

namespace arraylens {

using namespace filtertext;

namespace {

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
    // The nodes reachable from the root in postfix order, and the stack
    // their walk needs.
    std::vector<int> order;
    std::size_t stackSize = 0;
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
    FilterParser(std::vector<Token> toks) : t_(std::move(toks)) { findConditions(); }
    FilterProgram prog;

    // Returns the root, or the failure that got furthest; nesting beyond
    // the limit is the failure whatever else is wrong.
    std::optional<Error> parse(int& root) {
        int r = parseOr();
        if (tooDeep_)
            return tooDeepError();
        if (r < 0)
            return filterError(fail_.column, fail_.message);
        if (cur().kind != Tok::End)
            return filterError(cur().column, cur().kind == Tok::RParen
                                                 ? "unexpected ')'"
                                                 : "unexpected '" + shown(cur().text) + "'");
        root = r;
        return std::nullopt;
    }

private:
    // One level of nesting: a parenthesis, "abs(" or a negation. The parser
    // recurses once per level, so the levels are counted and bounded: text
    // of any depth is answered without running out of stack.
    class Level {
    public:
        explicit Level(FilterParser& p) : p_(p) {
            if (++p_.depth_ > kMaxFilterDepth)
                p_.tooDeep_ = true;
        }
        ~Level() { --p_.depth_; }
        Level(const Level&) = delete;
        Level& operator=(const Level&) = delete;
        bool tooDeep() const { return p_.tooDeep_; }

    private:
        FilterParser& p_;
    };

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
        return " after '" + shown(prev().text) + "'";
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
            const Level level(*this);
            if (level.tooDeep())
                return -1;
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
    int parsePrimary() {
        // A parenthesised condition; otherwise a comparison that may start
        // with a parenthesised sum, such as ($value + 1) > 2.
        if (cur().kind == Tok::LParen && condition_[pos_]) {
            const Level level(*this);
            if (level.tooDeep())
                return -1;
            ++pos_;
            const int inner = parseOr();
            if (inner < 0)
                return -1;
            if (cur().kind != Tok::RParen)
                return fail(cur().column, "expected ')'");
            ++pos_;
            return inner;
        }
        return parseComparison();
    }

    // Which parentheses hold a condition rather than a sum: those with a
    // comparison or a logical operator at their own level, or nothing but
    // another such group. Told in one pass beforehand, so that the parser
    // never tries one reading and then the other: that would parse nested
    // groups again at every level, and a long text for minutes.
    void findConditions() {
        struct Open {
            std::size_t at;
            bool logical = false;
            std::size_t items = 0;
            std::size_t firstGroup = 0;
            bool startsWithGroup = false;
        };
        condition_.assign(t_.size(), 0);
        std::vector<Open> open;
        auto close = [&](const Open& o) {
            condition_[o.at] =
                o.logical || (o.items == 1 && o.startsWithGroup && condition_[o.firstGroup]);
        };
        for (std::size_t k = 0; k < t_.size(); ++k) {
            const Tok kind = t_[k].kind;
            if (kind == Tok::LParen) {
                if (!open.empty()) {
                    Open& parent = open.back();
                    if (parent.items++ == 0) {
                        parent.startsWithGroup = true;
                        parent.firstGroup = k;
                    }
                }
                open.push_back(Open{k});
            } else if (kind == Tok::RParen) {
                if (!open.empty()) {
                    close(open.back());
                    open.pop_back();
                }
            } else if (!open.empty()) {
                Open& o = open.back();
                if (kind == Tok::Cmp || kind == Tok::And || kind == Tok::Or || kind == Tok::Not)
                    o.logical = true;
                if (kind != Tok::End)
                    ++o.items;
            }
        }
        // Groups never closed: innermost first, as if closed at the end.
        while (!open.empty()) {
            close(open.back());
            open.pop_back();
        }
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
                                              : "unexpected '" + shown(cur().text) + "'");
            left = parseSum();
            if (left < 0)
                return -1;
            if (cur().kind != Tok::Cmp)
                return fail(cur().column, cur().kind == Tok::End
                                              ? "expected a comparison such as '> 0'" + afterPrev()
                                              : "expected a comparison operator before '" +
                                                    shown(cur().text) + "'");
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
            const Level level(*this);
            if (level.tooDeep())
                return -1;
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
            const Level level(*this);
            if (level.tooDeep())
                return -1;
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
    std::vector<char> condition_; // per token: a '(' that opens a condition
    std::size_t pos_ = 0;
    std::size_t depth_ = 0;
    bool tooDeep_ = false;
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

template <class F> Num<F> truth(bool b) {
    return Num<F>{true, b ? 1 : 0, F(0)};
}

// Node n over the values of its children, a and b (b unused for one child).
template <class F>
Num<F> evalNode(const FilterProgram& p, const NodeData& n, const Num<F>& a, const Num<F>& b,
                const Elem<F>& e) {
    switch (n.kind) {
    case Node::Value:
        return Num<F>{e.isInt, e.i, e.f};
    case Node::Const:
        return Num<F>{n.isInt, n.i, constOf<F>(n)};
    case Node::Neg:
        if (a.isInt && a.i != -kInt128Max - 1)
            return Num<F>{true, -a.i, F(0)};
        return Num<F>{false, 0, -a.asFloat()};
    case Node::Abs:
        if (a.isInt && a.i != -kInt128Max - 1)
            return Num<F>{true, a.i < 0 ? -a.i : a.i, F(0)};
        return Num<F>{false, 0, std::fabs(a.asFloat())};
    case Node::Add:
    case Node::Sub:
    case Node::Mul: {
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
    case Node::Div:
        if (a.isInt && b.isInt && b.i != 0 && a.i % b.i == 0 &&
            !(a.i == -kInt128Max - 1 && b.i == -1))
            return Num<F>{true, a.i / b.i, F(0)};
        return Num<F>{false, 0, a.asFloat() / b.asFloat()};
    case Node::Or:
        return truth<F>(a.i != 0 || b.i != 0);
    case Node::And:
        return truth<F>(a.i != 0 && b.i != 0);
    case Node::Not:
        return truth<F>(a.i == 0);
    case Node::Cmp:
        return truth<F>(applyCmp(n.cmp, a, b));
    case Node::ClassTest: {
        bool in;
        if (e.isInt)
            in = false;
        else if (p.nodes[static_cast<std::size_t>(n.a)].kind == Node::Value)
            in = (e.cls & n.classMask) != 0;
        else
            in = !a.isInt && (classOf(a.f) & n.classMask) != 0;
        return truth<F>(in != n.negate);
    }
    default:
        return truth<F>(false);
    }
}

// The tree walk: the nodes in postfix order on a stack, so that a filter of
// any length runs without recursion. Conditions are numbers 1 and 0; both
// sides of "&&" and "||" are evaluated, which, without side effects, gives
// the answers of short-circuit evaluation.
template <class F> bool evalTree(const FilterProgram& p, const Elem<F>& e) {
    constexpr std::size_t kLocal = 32;
    Num<F> local[kLocal];
    Num<F>* stack = local;
    if (p.stackSize > kLocal) {
        thread_local std::vector<Num<F>> deep;
        if (deep.size() < p.stackSize)
            deep.resize(p.stackSize);
        stack = deep.data();
    }
    std::size_t top = 0;
    const Num<F> none{true, 0, F(0)};
    for (const int idx : p.order) {
        const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
        const std::size_t args = (n.a >= 0 ? 1 : 0) + (n.b >= 0 ? 1 : 0);
        top -= args;
        const Num<F>& a = args > 0 ? stack[top] : none;
        const Num<F>& b = args > 1 ? stack[top + 1] : none;
        stack[top] = evalNode(p, n, a, b, e);
        ++top;
    }
    return stack[0].i != 0;
}

// The nodes reachable from the root, children before their parent, and the
// stack the walk needs; built without recursion.
void orderNodes(FilterProgram& p) {
    std::vector<std::pair<int, bool>> work{{p.root, false}};
    while (!work.empty()) {
        const auto [idx, expanded] = work.back();
        work.pop_back();
        if (expanded) {
            p.order.push_back(idx);
            continue;
        }
        work.emplace_back(idx, true);
        const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
        if (n.b >= 0)
            work.emplace_back(n.b, false);
        if (n.a >= 0)
            work.emplace_back(n.a, false);
    }
    std::size_t height = 0;
    for (const int idx : p.order) {
        const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
        height = height - (n.a >= 0 ? 1 : 0) - (n.b >= 0 ? 1 : 0) + 1;
        p.stackSize = std::max(p.stackSize, height);
    }
}

// The postfix operations for the block runner; false when the flat form
// would differ from the tree or need more than kFlatStack rows.
bool flatten(const FilterProgram& p, bool integer, std::vector<FlatStep>& out) {
    // Whether each node's value depends on the element.
    std::vector<char> depends(p.nodes.size(), 0);
    std::size_t height = 0;
    for (const int idx : p.order) {
        const NodeData& n = p.nodes[static_cast<std::size_t>(idx)];
        depends[static_cast<std::size_t>(idx)] =
            n.kind == Node::Value || (n.a >= 0 && depends[static_cast<std::size_t>(n.a)]) ||
            (n.b >= 0 && depends[static_cast<std::size_t>(n.b)]);
        FlatStep st{FlatOp::Value};
        st.cmp = n.cmp;
        switch (n.kind) {
        case Node::Or:
            st.op = FlatOp::Or;
            break;
        case Node::And:
            st.op = FlatOp::And;
            break;
        case Node::Not:
            st.op = FlatOp::Not;
            break;
        case Node::Cmp:
            st.op = FlatOp::Cmp;
            break;
        case Node::ClassTest:
            st.classMask = n.classMask;
            st.negate = n.negate;
            if (p.nodes[static_cast<std::size_t>(n.a)].kind == Node::Value) {
                // The class of the element itself, from its own format: the
                // element's value just pushed is not needed.
                out.pop_back();
                st.op = FlatOp::ClassOfValue;
            } else {
                if (integer)
                    return false;
                st.op = FlatOp::ClassOfResult;
            }
            break;
        case Node::Value:
            st.op = FlatOp::Value;
            break;
        case Node::Const:
            st.op = FlatOp::Const;
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
            break;
        case Node::Add:
        case Node::Sub:
        case Node::Mul:
        case Node::Div:
            // Arithmetic on constants alone is exact integer arithmetic in the
            // tree; with the element in it, it is floating point there too.
            if (integer || !depends[static_cast<std::size_t>(idx)])
                return false;
            st.op = n.kind == Node::Add   ? FlatOp::Add
                    : n.kind == Node::Sub ? FlatOp::Sub
                    : n.kind == Node::Mul ? FlatOp::Mul
                                          : FlatOp::Div;
            break;
        case Node::Neg:
        case Node::Abs:
            if (integer)
                return false;
            st.op = n.kind == Node::Neg ? FlatOp::Neg : FlatOp::Abs;
            break;
        default:
            return false;
        }
        out.push_back(st);
        height = height - (n.a >= 0 ? 1 : 0) - (n.b >= 0 ? 1 : 0) + 1;
        if (height > kFlatStack)
            return false;
    }
    return true;
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
    return evalTree(*program_, Elem<double>{true, value, 0.0, 0});
}

bool Filter::matchesDouble(double value, unsigned floatClass) const {
    if (!program_)
        return true;
    if (!program_->flatDouble.empty())
        return runFlatDouble(program_->flatDouble, value, floatClass);
    return evalTree(*program_, Elem<double>{false, 0, value, floatClass});
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
    return evalTree(*program_, Elem<double>{isInt, i, d, floatClass});
}

bool Filter::matchesLongDouble(long double value, unsigned floatClass) const {
    if (!program_)
        return true;
    return evalTree(*program_, Elem<long double>{false, 0, value, floatClass});
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
    if (auto err = parser.parse(root))
        return *err;
    auto prog = std::make_shared<FilterProgram>(std::move(parser.prog));
    prog->root = root;
    orderNodes(*prog);
    if (!flatten(*prog, false, prog->flatDouble))
        prog->flatDouble.clear();
    if (!flatten(*prog, true, prog->flatInteger))
        prog->flatInteger.clear();
    f.program_ = std::move(prog);
    f.text_ = std::string(text.substr(b, e - b));
    return f;
}

} // namespace arraylens
