#include "gdbtypes.h"

#include <QRegularExpression>
#include <QStringList>

namespace arraylens::gdb {

namespace {

// Index of the bracket that opens the group closed at `close`, or -1.
int matchingOpen(const QString& text, int close, QChar open, QChar shut) {
    int depth = 0;
    for (int i = close; i >= 0; --i) {
        if (text[i] == shut)
            ++depth;
        else if (text[i] == open && --depth == 0)
            return i;
    }
    return -1;
}

bool parseInt(const QString& text, qint64& out) {
    bool ok = false;
    const qint64 v = text.trimmed().toLongLong(&ok);
    if (ok)
        out = v;
    return ok;
}

// One dimension of a Fortran shape: bounds `lo:hi`, or an extent `n` whose
// lower bound is 1. False when a number cannot be read.
bool parseFortranDim(const QString& part, DimBounds& out) {
    const int colon = part.indexOf(QLatin1Char(':'));
    if (colon < 0) {
        out.lower = 1;
        return parseInt(part, out.upper);
    }
    return parseInt(part.left(colon), out.lower) && parseInt(part.mid(colon + 1), out.upper);
}

QString normalisedType(QString text) {
    text = text.trimmed();
    static const QRegularExpression qualifiers(QStringLiteral("\\b(const|volatile)\\b"));
    text.remove(qualifiers);
    return text.simplified();
}

} // namespace

TypeShape parseCType(const QString& typeText) {
    TypeShape shape;
    QString t = typeText.trimmed();
    QVector<DimBounds> reversed;
    while (t.endsWith(QLatin1Char(']'))) {
        const int open = matchingOpen(t, t.size() - 1, QLatin1Char('['), QLatin1Char(']'));
        if (open < 0)
            break;
        const QString inner = t.mid(open + 1, t.size() - open - 2).trimmed();
        qint64 n = 0;
        if (inner.isEmpty()) {
            shape.problem = QStringLiteral("The array has no known size.");
            n = 0;
        } else if (!parseInt(inner, n)) {
            break;
        }
        reversed.append(DimBounds{0, n - 1});
        t = t.left(open).trimmed();
    }
    if (reversed.isEmpty()) {
        shape.isPointer = t.endsWith(QLatin1Char('*'));
        shape.elementType = t;
        return shape;
    }
    // "double (*)[10]" is a pointer to an array; "(&)" a reference to one.
    static const QRegularExpression declarator(QStringLiteral("\\((\\*|&|&&)\\)$"));
    const auto m = declarator.match(t);
    if (m.hasMatch()) {
        if (m.captured(1) == QLatin1String("*")) {
            shape.isPointer = true;
            shape.elementType = t;
            return shape;
        }
        t = t.left(m.capturedStart()).trimmed();
    }
    shape.isArray = true;
    for (int i = reversed.size() - 1; i >= 0; --i)
        shape.dims.append(reversed[i]);
    shape.elementType = t;
    return shape;
}

TypeShape parseFortranType(const QString& typeText) {
    TypeShape shape;
    QString t = typeText.trimmed();
    if (t.endsWith(QLatin1Char(')'))) {
        const int open = matchingOpen(t, t.size() - 1, QLatin1Char('('), QLatin1Char(')'));
        // "real(kind=8)" has its parenthesis glued to the name; the shape
        // stands apart after a blank.
        if (open > 0 && t[open - 1] == QLatin1Char(' ')) {
            const QStringList parts = t.mid(open + 1, t.size() - open - 2).split(QLatin1Char(','));
            for (const QString& raw : parts) {
                const QString part = raw.trimmed();
                DimBounds d;
                if (part == QLatin1String("*") || part.endsWith(QLatin1Char('*'))) {
                    shape.problem = QStringLiteral("The array is an assumed-size array; its "
                                                   "extent is not known.");
                } else if (!parseFortranDim(part, d)) {
                    // A deferred shape, `(:,:)`: not allocated yet.
                    const bool bounds = part.contains(QLatin1Char(':'));
                    shape.problem = bounds ? QStringLiteral("The array is not allocated.")
                                           : QStringLiteral("Cannot read the array's shape.");
                    d = bounds ? DimBounds{0, 0} : DimBounds{1, 0};
                }
                shape.dims.append(d);
            }
            shape.isArray = true;
            t = t.left(open).trimmed();
        }
    }
    // "integer(kind=4), allocatable" and the like: the attributes are not
    // part of the element type.
    const int comma = t.indexOf(QLatin1Char(','));
    if (comma >= 0)
        t = t.left(comma).trimmed();
    if (t.startsWith(QLatin1String("PTR TO")))
        shape.isPointer = true;
    shape.elementType = t;
    return shape;
}

bool isCStyleLanguage(const QString& language) {
    const QString l = language.toLower();
    return l == QLatin1String("c") || l == QLatin1String("c++") || l == QLatin1String("upc");
}

bool isFortranLanguage(const QString& language) {
    return language.toLower().startsWith(QLatin1String("fortran"));
}

QString parenthesised(const QString& expression) {
    return QLatin1Char('(') + expression + QLatin1Char(')');
}

int firstOutsideQuotes(const QString& text, const std::function<bool(int)>& stop) {
    QChar quote;
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (!quote.isNull()) {
            if (c == QLatin1Char('\\'))
                ++i;
            else if (c == quote)
                quote = QChar();
            continue;
        }
        if (c == QLatin1Char('"') || c == QLatin1Char('\''))
            quote = c;
        else if (stop(i))
            return i;
    }
    return -1;
}

std::optional<QString> repeatOperand(const QString& expression) {
    int depth = 0;
    const int at = firstOutsideQuotes(expression, [&](int i) {
        const QChar c = expression[i];
        if (c == QLatin1Char('(') || c == QLatin1Char('['))
            ++depth;
        else if (c == QLatin1Char(')') || c == QLatin1Char(']'))
            --depth;
        else
            return c == QLatin1Char('@') && depth == 0;
        return false;
    });
    if (at < 0)
        return std::nullopt;
    return expression.left(at).trimmed();
}

namespace {

// A cast's element type and its dimensions in C form (`[6][8]`); a type
// without dimensions takes those of the array as it is now.
void splitCastType(const QString& type, const QVector<DimBounds>& currentDims, QString& base,
                   QString& dims) {
    base = type.trimmed();
    dims.clear();
    const int bracket = base.indexOf(QLatin1Char('['));
    if (bracket >= 0) {
        dims = base.mid(bracket).remove(QLatin1Char(' '));
        base = base.left(bracket).trimmed();
    } else {
        for (const DimBounds& d : currentDims)
            dims += QLatin1Char('[') + QString::number(d.upper - d.lower + 1) + QLatin1Char(']');
    }
}

} // namespace

QString reinterpretCast(const QString& expression, const QString& type, bool expressionIsArray,
                        const QVector<DimBounds>& currentDims) {
    QString base, dims;
    splitCastType(type, currentDims, base, dims);
    const QString pointerType = base + QLatin1String("(*)") + dims;
    if (expressionIsArray) {
        // `&(L@N)` makes gdb read all N elements first; `&(L)` is the same
        // address and reads nothing.
        const auto operand = repeatOperand(expression);
        return QStringLiteral("*(%1)&(%2)").arg(pointerType, operand ? *operand : expression);
    }
    return QStringLiteral("*(%1)(%2)").arg(pointerType, expression);
}

QString containerReinterpretCast(const QString& expression, const QString& type,
                                 const QVector<DimBounds>& currentDims) {
    QString base, dims;
    splitCastType(type, currentDims, base, dims);
    return QStringLiteral("{%1 %2} %3").arg(base, dims, expression);
}

namespace {

struct FortranTypeName {
    const char* name;    // as typed, lower case
    const char* gdbName; // gdb's word
    QVector<int> kinds;  // the kinds there are; the size in bytes is the kind
    int defaultKind;
};

const FortranTypeName* fortranTypeName(const QString& name) {
    static const FortranTypeName names[] = {
        {"integer", "integer", {1, 2, 4, 8}, 4}, {"real", "real", {4, 8}, 4},
        {"double precision", "real", {8}, 8},    {"logical", "logical", {1, 2, 4, 8}, 4},
        {"character", "character", {1}, 1},
    };
    for (const FortranTypeName& n : names)
        if (name == QLatin1String(n.name))
            return &n;
    return nullptr;
}

QString kindList(const QVector<int>& kinds) {
    QStringList parts;
    for (int k : kinds)
        parts << QString::number(k);
    if (parts.size() == 1)
        return QStringLiteral("the kind ") + parts.first();
    const QString last = parts.takeLast();
    return QStringLiteral("the kinds ") + parts.join(QStringLiteral(", ")) +
           QStringLiteral(" and ") + last;
}

// "4", "kind=4", "kind = 4"; for character also "len=1".
bool readKind(QString inner, bool character, int& kind) {
    inner.remove(QLatin1Char(' '));
    if (inner.startsWith(QLatin1String("kind=")))
        inner = inner.mid(5);
    else if (character && inner.startsWith(QLatin1String("len=")))
        inner = inner.mid(4);
    if (inner.isEmpty())
        return false;
    for (QChar c : inner)
        if (!c.isDigit())
            return false;
    bool ok = false;
    kind = inner.toInt(&ok);
    return ok;
}

// A Fortran array has at most 15 dimensions; bounds beyond 2^40 would make
// byte offsets overflow long before any memory could hold them.
constexpr int kMaxFortranRank = 15;
constexpr qint64 kMaxBound = qint64(1) << 40;

bool readShape(const QString& inner, QVector<DimBounds>& dims, QString& error) {
    const QStringList parts = inner.split(QLatin1Char(','));
    if (parts.size() > kMaxFortranRank) {
        error = QStringLiteral("A Fortran array has at most %1 dimensions.").arg(kMaxFortranRank);
        return false;
    }
    for (int d = 0; d < parts.size(); ++d) {
        const QString part = parts[d].trimmed();
        DimBounds b;
        if (!parseFortranDim(part, b)) {
            error = QStringLiteral("Cannot read dimension %1 of the shape ('%2'): write an "
                                   "extent such as 20 or bounds such as 0:19.")
                        .arg(d + 1)
                        .arg(part);
            return false;
        }
        if (qAbs(b.lower) > kMaxBound || qAbs(b.upper) > kMaxBound) {
            error = QStringLiteral("Dimension %1 of the shape is too large.").arg(d + 1);
            return false;
        }
        if (b.upper < b.lower) {
            error = QStringLiteral("Dimension %1 of the shape (%2) has no elements.")
                        .arg(d + 1)
                        .arg(part);
            return false;
        }
        dims.append(b);
    }
    return true;
}

} // namespace

bool parseFortranCastType(const QString& text, FortranCastType& out, QString& error) {
    out = FortranCastType();
    const QString typed = text.simplified();
    const QString t = typed.toLower();
    const QString hint = QStringLiteral(
        "a Fortran cast is integer, real, double precision, logical or character, with an "
        "optional kind and shape, for example integer(kind=4) (0:19,-2:5)");
    static const QRegularExpression allowed(QStringLiteral("^[a-z0-9 ()*=:,-]*$"));
    if (!allowed.match(t).hasMatch()) {
        error = QStringLiteral("Cannot read the type '%1': %2.").arg(typed, hint);
        return false;
    }
    static const QRegularExpression word(QStringLiteral("^(double precision|[a-z]+)"));
    const auto m = word.match(t);
    const FortranTypeName* name = m.hasMatch() ? fortranTypeName(m.captured(1)) : nullptr;
    if (!name) {
        error = QStringLiteral("Unknown type '%1': %2.").arg(typed, hint);
        return false;
    }
    const bool character = QLatin1String(name->name) == QLatin1String("character");
    int pos = int(m.capturedLength());
    auto skipBlanks = [&] {
        while (pos < t.size() && t[pos] == QLatin1Char(' '))
            ++pos;
    };
    int kind = name->defaultKind;
    bool kindGiven = false;
    if (pos < t.size() && t[pos] == QLatin1Char('*')) {
        ++pos;
        skipBlanks();
        const int start = pos;
        while (pos < t.size() && t[pos].isDigit())
            ++pos;
        if (pos == start || !readKind(t.mid(start, pos - start), character, kind)) {
            error = QStringLiteral("Cannot read the kind after '*' in '%1'.").arg(typed);
            return false;
        }
        kindGiven = true;
    } else {
        const int afterName = pos;
        const bool blank = pos < t.size() && t[pos] == QLatin1Char(' ');
        skipBlanks();
        if (pos < t.size() && t[pos] == QLatin1Char('(')) {
            const int close = t.indexOf(QLatin1Char(')'), pos);
            if (close < 0) {
                error = QStringLiteral("'(' without ')' in '%1'.").arg(typed);
                return false;
            }
            const QString inner = t.mid(pos + 1, close - pos - 1).trimmed();
            // Glued to the name, or naming itself, or followed by a second
            // group (which can only be the shape): the kind.
            int next = close + 1;
            while (next < t.size() && t[next] == QLatin1Char(' '))
                ++next;
            const bool isKind = !blank || inner.startsWith(QLatin1String("kind")) ||
                                inner.startsWith(QLatin1String("len")) ||
                                (next < t.size() && t[next] == QLatin1Char('('));
            if (isKind) {
                if (!readKind(inner, character, kind)) {
                    error = QStringLiteral("Cannot read the kind '(%1)' in '%2': write it as "
                                           "(4) or (kind=4).")
                                .arg(inner, typed);
                    return false;
                }
                kindGiven = true;
                pos = close + 1;
            } else {
                pos = afterName;
            }
        } else {
            pos = afterName;
        }
    }
    if (kindGiven && QLatin1String(name->name) == QLatin1String("double precision")) {
        error = QStringLiteral("double precision takes no kind: write real(8) or real(kind=8).");
        return false;
    }
    if (!name->kinds.contains(kind)) {
        if (character)
            error = QStringLiteral("A cast to character takes single characters only: "
                                   "character or character(1), not '%1'.")
                        .arg(typed);
        else
            error = QStringLiteral("There is no %1(kind=%2): %1 has %3.")
                        .arg(QLatin1String(name->gdbName))
                        .arg(kind)
                        .arg(kindList(name->kinds));
        return false;
    }
    skipBlanks();
    if (pos < t.size()) {
        if (t[pos] != QLatin1Char('(') || !t.endsWith(QLatin1Char(')'))) {
            error = QStringLiteral("Cannot read '%1' after the type in '%2': a shape is written "
                                   "in parentheses, for example (20,8) or (0:19,-2:5).")
                        .arg(typed.mid(pos), typed);
            return false;
        }
        const QString inner = t.mid(pos + 1, t.size() - pos - 2);
        if (inner.contains(QLatin1Char('(')) || inner.contains(QLatin1Char(')'))) {
            error =
                QStringLiteral("Cannot read the shape '%1' in '%2'.").arg(typed.mid(pos), typed);
            return false;
        }
        if (!readShape(inner, out.dims, error))
            return false;
        out.hasShape = true;
    }
    out.elementType = QStringLiteral("%1(kind=%2)").arg(QLatin1String(name->gdbName)).arg(kind);
    out.elementSize = kind;
    return true;
}

QString fortranArrayType(const QString& elementType, const QVector<DimBounds>& dims) {
    if (dims.isEmpty())
        return elementType;
    QStringList parts;
    for (const DimBounds& d : dims)
        parts << (d.lower == 1 ? QString::number(d.upper)
                               : QStringLiteral("%1:%2").arg(d.lower).arg(d.upper));
    return elementType + QStringLiteral(" (") + parts.join(QLatin1Char(',')) + QLatin1Char(')');
}

QString fortranReinterpretCast(const QString& expression, const QString& type,
                               const QString& declaredType, const QVector<DimBounds>& currentDims,
                               QString& error) {
    error.clear();
    FortranCastType cast;
    if (!parseFortranCastType(type, cast, error)) {
        // The text between the braces ends at the first closing brace: a
        // brace of the typed text must not move that end, so it is carried
        // as a character no type has, and the refusal stands.
        QString carried = type.simplified();
        carried.replace(QLatin1Char('{'), QLatin1Char('?'))
            .replace(QLatin1Char('}'), QLatin1Char('?'));
        return QStringLiteral("{%1} %2").arg(carried, expression);
    }
    const QVector<DimBounds> dims = cast.hasShape ? cast.dims : currentDims;
    // gdb's own text of the expression's type ("real(kind=8), allocatable
    // (3,4)", "character*1 (26)") read the same way: the same element and
    // the same bounds is no cast at all.
    const TypeShape declared = parseFortranType(declaredType);
    FortranCastType declaredElement;
    QString ignored;
    if (declared.problem.isEmpty() && declared.dims == dims &&
        parseFortranCastType(declared.elementType, declaredElement, ignored) &&
        declaredElement.elementType == cast.elementType)
        return QString();
    return QStringLiteral("{%1} %2").arg(fortranArrayType(cast.elementType, dims), expression);
}

std::optional<FortranCastText> splitFortranCast(const QString& text) {
    const QString t = text.trimmed();
    if (!t.startsWith(QLatin1Char('{')))
        return std::nullopt;
    const int close = t.indexOf(QLatin1Char('}'));
    if (close < 0)
        return std::nullopt;
    return FortranCastText{t.mid(1, close - 1).trimmed(), t.mid(close + 1).trimmed()};
}

ElementClass classifyElement(const QString& resolvedType, bool fortran) {
    const QString t = normalisedType(resolvedType).toLower();
    if (fortran) {
        if (t.startsWith(QLatin1String("real")))
            return ElementClass::Float;
        if (t.startsWith(QLatin1String("integer")))
            return ElementClass::Signed;
        if (t.startsWith(QLatin1String("logical")))
            return ElementClass::Logical;
        if (t == QLatin1String("character") || t.startsWith(QLatin1String("character(")) ||
            t == QLatin1String("character*1"))
            return ElementClass::Character;
        return ElementClass::Unsupported;
    }
    if (t == QLatin1String("float") || t == QLatin1String("double") ||
        t == QLatin1String("long double"))
        return ElementClass::Float;
    if (t == QLatin1String("_bool") || t == QLatin1String("bool"))
        return ElementClass::Bool;
    if (t == QLatin1String("char"))
        return ElementClass::Char;
    if (t == QLatin1String("signed char"))
        return ElementClass::SignedChar;
    if (t == QLatin1String("unsigned char"))
        return ElementClass::UnsignedChar;
    if (t == QLatin1String("wchar_t"))
        return ElementClass::WChar;
    if (t == QLatin1String("char16_t"))
        return ElementClass::Char16;
    if (t == QLatin1String("char32_t"))
        return ElementClass::Char32;
    // gdb writes integer types in several word orders ("unsigned long",
    // "long unsigned int"): any mix of these words is an integer.
    const QStringList words = t.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    bool integer = !words.isEmpty();
    for (const QString& w : words)
        integer = integer && (w == QLatin1String("signed") || w == QLatin1String("unsigned") ||
                              w == QLatin1String("short") || w == QLatin1String("int") ||
                              w == QLatin1String("long"));
    if (integer)
        return words.contains(QLatin1String("unsigned")) ? ElementClass::Unsigned
                                                         : ElementClass::Signed;
    return ElementClass::Unsupported;
}

} // namespace arraylens::gdb
