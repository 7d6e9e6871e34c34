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
                const int colon = part.indexOf(QLatin1Char(':'));
                if (part == QLatin1String("*") || part.endsWith(QLatin1Char('*'))) {
                    shape.problem = QStringLiteral("The array is an assumed-size array; its "
                                                   "extent is not known.");
                } else if (colon >= 0) {
                    qint64 lo = 0, hi = 0;
                    if (!parseInt(part.left(colon), lo) || !parseInt(part.mid(colon + 1), hi))
                        shape.problem = QStringLiteral("The array is not allocated.");
                    d = DimBounds{lo, hi};
                } else {
                    qint64 n = 0;
                    if (!parseInt(part, n))
                        shape.problem = QStringLiteral("Cannot read the array's shape.");
                    d = DimBounds{1, n};
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

QString languageFromShowLanguage(const QString& text) {
    static const QRegularExpression currently(QStringLiteral("currently ([^\"]+)\""));
    auto m = currently.match(text);
    if (m.hasMatch())
        return m.captured(1).trimmed();
    static const QRegularExpression plain(QStringLiteral("language is \"([^\"]+)\""));
    m = plain.match(text);
    return m.hasMatch() ? m.captured(1).trimmed() : QString();
}

bool isCStyleLanguage(const QString& language) {
    const QString l = language.toLower();
    return l == QLatin1String("c") || l == QLatin1String("c++") || l == QLatin1String("upc");
}

bool isFortranLanguage(const QString& language) {
    return language.toLower().startsWith(QLatin1String("fortran"));
}

std::optional<quint64> parseAddress(const QString& text) {
    static const QRegularExpression hex(QStringLiteral("0x([0-9a-fA-F]+)"));
    const auto m = hex.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    bool ok = false;
    const quint64 v = m.captured(1).toULongLong(&ok, 16);
    if (!ok)
        return std::nullopt;
    return v;
}

QString typeFromWhatis(const QString& consoleText) {
    QString t = consoleText;
    const int at = t.indexOf(QLatin1String("type = "));
    if (at >= 0)
        t = t.mid(at + 7);
    const int nl = t.indexOf(QLatin1Char('\n'));
    if (nl >= 0)
        t = t.left(nl);
    return t.trimmed();
}

QString parenthesised(const QString& expression) {
    return QLatin1Char('(') + expression + QLatin1Char(')');
}

std::optional<QString> repeatOperand(const QString& expression) {
    int depth = 0;
    QChar quote;
    for (int i = 0; i < expression.size(); ++i) {
        const QChar c = expression[i];
        if (!quote.isNull()) {
            if (c == QLatin1Char('\\'))
                ++i;
            else if (c == quote)
                quote = QChar();
            continue;
        }
        if (c == QLatin1Char('"') || c == QLatin1Char('\''))
            quote = c;
        else if (c == QLatin1Char('(') || c == QLatin1Char('['))
            ++depth;
        else if (c == QLatin1Char(')') || c == QLatin1Char(']'))
            --depth;
        else if (c == QLatin1Char('@') && depth == 0)
            return expression.left(i).trimmed();
    }
    return std::nullopt;
}

QString elementExpression(const QString& expression, const QVector<qint64>& index, bool fortran) {
    const auto operand = fortran ? std::nullopt : repeatOperand(expression);
    QString out = operand ? QStringLiteral("(&(%1))").arg(*operand) : parenthesised(expression);
    if (fortran) {
        QStringList parts;
        for (qint64 i : index)
            parts << QString::number(i);
        out += QLatin1Char('(') + parts.join(QLatin1Char(',')) + QLatin1Char(')');
    } else {
        for (qint64 i : index)
            out += QLatin1Char('[') + QString::number(i) + QLatin1Char(']');
    }
    return out;
}

QString reinterpretCast(const QString& expression, const QString& type, bool expressionIsArray,
                        const QVector<DimBounds>& currentDims) {
    QString base = type.trimmed();
    QString dims;
    const int bracket = base.indexOf(QLatin1Char('['));
    if (bracket >= 0) {
        dims = base.mid(bracket).remove(QLatin1Char(' '));
        base = base.left(bracket).trimmed();
    } else {
        for (const DimBounds& d : currentDims)
            dims += QLatin1Char('[') + QString::number(d.upper - d.lower + 1) + QLatin1Char(']');
    }
    const QString pointerType = base + QLatin1String("(*)") + dims;
    if (expressionIsArray)
        return QStringLiteral("*(%1)&(%2)").arg(pointerType, expression);
    return QStringLiteral("*(%1)(%2)").arg(pointerType, expression);
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
