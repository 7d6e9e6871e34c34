#include "plot/chartfeed.h"

#include "plot/dataqobject.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

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
        if (doc.isArray())
            packed = QJsonDocument(pack(doc.array()).toArray());
        else if (doc.isObject())
            packed = QJsonDocument(pack(doc.object()).toObject());
        else
            packed = QJsonDocument();
        stale = false;
    }
    return packed;
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
    bool numbers = !in.isEmpty();
    for (const QJsonValue& v : in) {
        if (!v.isDouble()) {
            numbers = false;
            break;
        }
    }
    if (numbers) {
        QByteArray raw(int(in.size() * sizeof(double)), Qt::Uninitialized);
        double* out = reinterpret_cast<double*>(raw.data());
        for (const QJsonValue& v : in)
            *out++ = v.toDouble();
        QJsonObject packedArray;
        packedArray.insert(QStringLiteral("$f64"), QString::fromLatin1(raw.toBase64()));
        return packedArray;
    }
    QJsonArray out;
    for (const QJsonValue& v : in)
        out.append(pack(v));
    return out;
}
