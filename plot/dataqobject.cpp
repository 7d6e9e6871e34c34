#include "plot/dataqobject.h"

#include "plot/chartfeed.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <vector>

DataQObject::DataQObject(QObject* parent) : QObject(parent) {
    feed = new ChartFeed(this);
}

DataQObject::~DataQObject() = default;

void DataQObject::refresh() {
    emit dataAvailable();
}

void DataQObject::beginData(int width, int height, const QString& displayName) {
    this->width = width;
    this->height = height;
    this->displayName = displayName;
}

void DataQObject::setDataJson(const QJsonDocument& document) {
    if (document == dataJson)
        return;
    dataJson = document;
    packed = QJsonDocument();
    emit dataAvailable();
}

void DataQObject::endData(const QJsonObject& object, const QJsonObject& packedObject) {
    // Stored directly and announced once: the page redraws on every signal.
    dataJson = QJsonDocument(object);
    packed = QJsonDocument(packedObject);
    emit dataAvailable();
}

void LineDataQObject::setData(double* data, int count, int width, int height,
                              const QString& displayName) {
    beginData(width, height, displayName);
    QJsonArray x;
    QJsonArray y;
    std::vector<double> positions(size_t(qMax(count, 0)));
    for (int i = 0; i < count; ++i) {
        x.append(i);
        y.append(QJsonValue(data[i]));
        positions[size_t(i)] = i;
    }
    QJsonObject object;
    object.insert(QStringLiteral("x"), x);
    object.insert(QStringLiteral("y"), y);
    QJsonObject packedObject;
    packedObject.insert(QStringLiteral("x"), ChartFeed::packDoubles(positions.data(), count));
    packedObject.insert(QStringLiteral("y"), ChartFeed::packDoubles(data, count));
    endData(object, packedObject);
}

void HistDataQObject::setData(double* data, int count, int width, int height,
                              const QString& displayName) {
    beginData(width, height, displayName);
    QJsonArray x;
    for (int i = 0; i < count; ++i)
        x.append(QJsonValue(data[i]));
    QJsonObject object;
    object.insert(QStringLiteral("x"), x);
    QJsonObject packedObject;
    packedObject.insert(QStringLiteral("x"), ChartFeed::packDoubles(data, count));
    endData(object, packedObject);
}

void SurfDataQObject::setData(double* data, int count, int width, int height,
                              const QString& displayName) {
    beginData(width, height, displayName);
    // The back end's rows and columns describe the values; the flat block is
    // always read row by row. A Fortran array's axes count from 1, with
    // columns along x and rows along y.
    int rows = xDimension;
    const int cols = yDimension;
    // Rows and columns that promise more values than there are would read
    // past the block: only the whole rows that are there are drawn.
    if (cols > 0 && qint64(rows) * cols > qint64(count))
        rows = count > 0 ? count / cols : 0;
    QJsonArray x;
    QJsonArray y;
    QJsonArray z;
    QJsonArray packedX;
    QJsonArray packedY;
    QJsonArray packedZ;
    std::vector<double> xValues(size_t(qMax(cols, 0)));
    std::vector<double> yValues(size_t(qMax(cols, 0)));
    for (int r = 0; r < rows; ++r) {
        QJsonArray xRow;
        QJsonArray yRow;
        QJsonArray zRow;
        const double* row = data + static_cast<qsizetype>(r) * cols;
        for (int c = 0; c < cols; ++c) {
            zRow.append(QJsonValue(row[c]));
            const int xValue = isFortran_ ? c + 1 : r;
            const int yValue = isFortran_ ? r + 1 : c;
            xRow.append(xValue);
            yRow.append(yValue);
            xValues[size_t(c)] = xValue;
            yValues[size_t(c)] = yValue;
        }
        x.append(xRow);
        y.append(yRow);
        z.append(zRow);
        packedX.append(ChartFeed::packDoubles(xValues.data(), cols));
        packedY.append(ChartFeed::packDoubles(yValues.data(), cols));
        packedZ.append(ChartFeed::packDoubles(row, cols));
    }
    QJsonObject object;
    object.insert(QStringLiteral("x"), x);
    object.insert(QStringLiteral("y"), y);
    object.insert(QStringLiteral("z"), z);
    QJsonObject packedObject;
    packedObject.insert(QStringLiteral("x"), packedX);
    packedObject.insert(QStringLiteral("y"), packedY);
    packedObject.insert(QStringLiteral("z"), packedZ);
    endData(object, packedObject);
}
