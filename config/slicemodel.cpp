#include "config/slicemodel.h"

namespace SliceModel {

bool isCStyleLanguage(const QString& language) {
    const QString lang = language.toLower();
    return lang == QLatin1String("c++") || lang == QLatin1String("c") ||
           lang == QLatin1String("upc");
}

namespace {
// The text between the last "(" and the last ")"; a missing parenthesis
// leaves that end open, so a text with neither is taken whole.
QString insideLastParentheses(const QString& text) {
    const int open = text.lastIndexOf(QLatin1Char('('));
    const int close = text.lastIndexOf(QLatin1Char(')'));
    const int begin = open >= 0 ? open + 1 : 0;
    const int end = close >= 0 ? close : text.size();
    return end > begin ? text.mid(begin, end - begin) : QString();
}
} // namespace

int getSliceDimCount(const QString& text) {
    if (text.isEmpty())
        return 0;
    if (text.contains(QLatin1Char('[')))
        return text.count(QStringLiteral("][")) + 1;
    return insideLastParentheses(text).count(QLatin1Char(',')) + 1;
}

QString getDefaultSlice(const QString& backendEmptySlice, const QString& type, bool cStyle) {
    if (!backendEmptySlice.isEmpty())
        return backendEmptySlice;
    if (type.isEmpty())
        return QString();
    const int n = getSliceDimCount(type);
    QStringList whole;
    for (int i = 0; i < n; ++i)
        whole << QStringLiteral(":");
    if (cStyle)
        return QLatin1Char('[') + whole.join(QStringLiteral("][")) + QLatin1Char(']');
    return QLatin1Char('(') + whole.join(QLatin1Char(',')) + QLatin1Char(')');
}

QStringList getBoundsFromType(const QStringList& currentBounds, const QString& type, bool cStyle) {
    if (!currentBounds.isEmpty())
        return currentBounds;
    if (type.isEmpty())
        return QStringList();

    QStringList pieces;
    if (cStyle) {
        const int first = type.indexOf(QLatin1Char('['));
        pieces = type.mid(first >= 0 ? first : 0).split(QStringLiteral("]["));
        for (QString& p : pieces)
            p.remove(QLatin1Char('[')).remove(QLatin1Char(']'));
    } else {
        pieces = insideLastParentheses(type).split(QLatin1Char(','));
        for (QString& p : pieces)
            p.remove(QLatin1Char('(')).remove(QLatin1Char(')'));
    }

    QStringList bounds;
    for (const QString& piece : pieces) {
        QString lower = cStyle ? QStringLiteral("0") : QStringLiteral("1");
        QString upper = piece;
        const int colon = piece.indexOf(QLatin1Char(':'));
        if (colon >= 0) {
            lower = piece.left(colon);
            upper = piece.mid(colon + 1);
        }
        if (cStyle) {
            bool ok = false;
            const int size = upper.toInt(&ok, 10);
            // An unsized or symbolic dimension gets a range of 100 indexes
            // until the back end tells the real bounds.
            upper = ok ? QString::number(size - 1) : QStringLiteral("99");
        }
        bounds << lower + QLatin1Char(':') + upper;
    }
    return bounds;
}

QString getDimensionString(int dimensions, bool cStyle) {
    const QString pattern = cStyle ? QStringLiteral("[ %1 ]") : QStringLiteral("( %1 )");
    const QString labels = QString::fromLatin1(DIMENSION_LABELS);
    QString text;
    for (int i = 0; i < dimensions; ++i)
        text += pattern.arg(labels.mid(i, 1));
    return text;
}

bool adjustSliceDetailsForNegativeStride(ArrayDimensionDetails* d) {
    if (d->stride == 0)
        return false;
    if (d->stride < 0 && d->startIndex >= d->endIndex)
        return false;
    if (d->stride > 0 && d->startIndex <= d->endIndex)
        return false;
    std::swap(d->startIndex, d->endIndex);
    return true;
}

bool valid2DIndexes(ArrayDimensionDetails* d) {
    return d->lowerBound <= d->startIndex && d->startIndex <= d->upperBound &&
           d->lowerBound <= d->endIndex && d->endIndex <= d->upperBound;
}

QStringList splitSlice(const QString& slice, bool cStyle) {
    QStringList pieces =
        slice.split(cStyle ? QStringLiteral("][") : QStringLiteral(","), Qt::KeepEmptyParts);
    for (QString& p : pieces) {
        if (cStyle)
            p.remove(QLatin1Char('[')).remove(QLatin1Char(']'));
        else
            p.remove(QLatin1Char('(')).remove(QLatin1Char(')'));
    }
    return pieces;
}

SlicePiece readSlicePiece(const QString& piece, bool requireTwoCharacters) {
    SlicePiece out;
    if (!piece.contains(QLatin1Char(':')))
        return out;
    if (requireTwoCharacters && piece.size() < 2)
        return out;
    const QStringList parts = piece.split(QLatin1Char(':'), Qt::KeepEmptyParts);
    out.hasRange = true;
    out.start = parts.value(0).toInt(nullptr, 10);
    out.end = parts.value(1).toInt(nullptr, 10);
    out.stride = parts.size() == 3 ? parts.at(2).toInt(nullptr, 10) : 1;
    return out;
}

} // namespace SliceModel
