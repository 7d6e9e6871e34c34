#include "plot/chartfeed.h"

#include "plot/dataqobject.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QVariant>
#include <cmath>

ChartFeed::ChartFeed(DataQObject* source) : QObject(source), source(source) {
    connect(source, &DataQObject::dataAvailable, this, &ChartFeed::sourceChanged);
}

void ChartFeed::sourceChanged() {
    stale = true;
    withheld = false;
    packed = QJsonDocument();
    emit dataAvailable();
}

void ChartFeed::withhold() {
    withheld = true;
    stale = true;
    packed = QJsonDocument();
}

QJsonDocument ChartFeed::dataJson() {
    if (withheld)
        return QJsonDocument();
    if (stale) {
        const QJsonDocument& doc = source->dataJson;
        if (!source->packedJson().isNull())
            packed = source->packedJson();
        else if (doc.isArray())
            packed = QJsonDocument(pack(doc.array()).toArray());
        else if (doc.isObject())
            packed = QJsonDocument(pack(doc.object()).toObject());
        else
            packed = QJsonDocument();
        stale = false;
    }
    return packed;
}

void ChartFeed::setDataJson(const QJsonDocument& document) {
    source->setProperty("dataJson", QVariant::fromValue(document));
}

int ChartFeed::getWidth() {
    return source->getWidth();
}
void ChartFeed::setWidth(int width) {
    source->setWidth(width);
}
int ChartFeed::getHeight() {
    return source->getHeight();
}
void ChartFeed::setHeight(int height) {
    source->setHeight(height);
}
QString ChartFeed::getDisplayName() {
    return source->getDisplayName();
}
void ChartFeed::setRank(int rank) {
    source->setRank(rank);
}
void ChartFeed::setxDimension(int xDimension) {
    source->setxDimension(xDimension);
}
void ChartFeed::setyDimension(int yDimension) {
    source->setyDimension(yDimension);
}
void ChartFeed::setFortran(bool isFortran) {
    source->setFortran(isFortran);
}
int ChartFeed::getRank() {
    return source->getRank();
}
int ChartFeed::getxDimension() {
    return source->getxDimension();
}
int ChartFeed::getyDimension() {
    return source->getyDimension();
}
bool ChartFeed::isFortran() {
    return source->isFortran();
}

QJsonValue ChartFeed::packDoubles(const double* values, int count) {
    if (count <= 0)
        return QJsonArray();
    // Positions, and the values of integer arrays, are whole numbers: as
    // 32-bit integers they take half the text. -0 stays a double, so that
    // every value arrives exactly as it is.
    bool whole = true;
    for (int i = 0; i < count && whole; ++i) {
        const double v = values[i];
        whole = v >= -2147483648.0 && v <= 2147483647.0 && v == double(qint32(v)) &&
                !(v == 0 && std::signbit(v));
    }
    QJsonObject packedArray;
    if (whole) {
        QByteArray raw(int(count * sizeof(qint32)), Qt::Uninitialized);
        qint32* out = reinterpret_cast<qint32*>(raw.data());
        for (int i = 0; i < count; ++i)
            out[i] = qint32(values[i]);
        packedArray.insert(QStringLiteral("$i32"), QString::fromLatin1(raw.toBase64()));
    } else {
        const QByteArray raw = QByteArray::fromRawData(reinterpret_cast<const char*>(values),
                                                       int(count * sizeof(double)));
        packedArray.insert(QStringLiteral("$f64"), QString::fromLatin1(raw.toBase64()));
    }
    return packedArray;
}

QJsonValue ChartFeed::pack(const QJsonValue& value) {
    if (value.isObject()) {
        const QJsonObject in = value.toObject();
        QJsonObject out;
        for (auto it = in.begin(); it != in.end(); ++it)
            out.insert(it.key(), pack(it.value()));
        return out;
    }
    if (!value.isArray())
        return value;
    const QJsonArray in = value.toArray();
    if (!in.isEmpty() && in.first().isDouble()) {
        // One pass: the values go straight into the raw block, which is
        // dropped at the first member that isn't a number.
        QByteArray raw(int(in.size() * sizeof(double)), Qt::Uninitialized);
        double* out = reinterpret_cast<double*>(raw.data());
        bool numbers = true;
        for (const QJsonValue& v : in) {
            if (!v.isDouble()) {
                numbers = false;
                break;
            }
            *out++ = v.toDouble();
        }
        if (numbers)
            return packDoubles(reinterpret_cast<const double*>(raw.constData()), int(in.size()));
    }
    QJsonArray out;
    for (const QJsonValue& v : in)
        out.append(pack(v));
    return out;
}
