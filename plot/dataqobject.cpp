#include "plot/dataqobject.h"

#include "plot/chartfeed.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

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

void DataQObject::endData(const QJsonObject& object) {
    // Stored directly and announced once: the page redraws on every signal.
    dataJson = QJsonDocument(object);
    emit dataAvailable();
}

void LineDataQObject::setData(double* data, int count, int width, int height,
                              const QString& displayName) {
    beginData(width, height, displayName);
    QJsonArray x;
    QJsonArray y;
    for (int i = 0; i < count; ++i) {
        x.append(i);
        y.append(QJsonValue(data[i]));
    }
    QJsonObject object;
    object.insert(QStringLiteral("x"), x);
    object.insert(QStringLiteral("y"), y);
    endData(object);
}

void HistDataQObject::setData(double* data, int count, int width, int height,
                              const QString& displayName) {
    beginData(width, height, displayName);
    QJsonArray x;
    for (int i = 0; i < count; ++i)
        x.append(QJsonValue(data[i]));
    QJsonObject object;
    object.insert(QStringLiteral("x"), x);
    endData(object);
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
    for (int r = 0; r < rows; ++r) {
        QJsonArray xRow;
        QJsonArray yRow;
        QJsonArray zRow;
        for (int c = 0; c < cols; ++c) {
            zRow.append(QJsonValue(data[static_cast<qsizetype>(r) * cols + c]));
            if (isFortran_) {
                xRow.append(c + 1);
                yRow.append(r + 1);
            } else {
                xRow.append(r);
                yRow.append(c);
            }
        }
        x.append(xRow);
        y.append(yRow);
        z.append(zRow);
    }
    QJsonObject object;
    object.insert(QStringLiteral("x"), x);
    object.insert(QStringLiteral("y"), y);
    object.insert(QStringLiteral("z"), z);
    endData(object);
}
