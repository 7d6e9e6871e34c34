#pragma once
// The objects the chart pages read over the web channel. Each turns a flat
// block of doubles into the JSON document its page draws, and tells the page
// when a new one is there.

#include <QJsonDocument>
#include <QObject>
#include <QString>

class ChartFeed;

class DataQObject : public QObject {
    Q_OBJECT
    // Written through the meta-object, a document equal to the stored one
    // changes nothing; a different one is stored and announced.
    Q_PROPERTY(QJsonDocument dataJson MEMBER dataJson WRITE setDataJson NOTIFY dataAvailable)
public:
    explicit DataQObject(QObject* parent = nullptr);
    ~DataQObject() override;

    // Builds dataJson from `count` values; `data` stays the caller's.
    virtual void setData(double* data, int count, int width, int height,
                         const QString& displayName) = 0;

    Q_INVOKABLE int getWidth() { return width; }
    Q_INVOKABLE void setWidth(int width) { this->width = width; }
    Q_INVOKABLE int getHeight() { return height; }
    Q_INVOKABLE void setHeight(int height) { this->height = height; }
    Q_INVOKABLE QString getDisplayName() { return displayName; }
    Q_INVOKABLE void setRank(int rank) { this->rank = rank; }
    Q_INVOKABLE void setxDimension(int xDimension) { this->xDimension = xDimension; }
    Q_INVOKABLE void setyDimension(int yDimension) { this->yDimension = yDimension; }
    Q_INVOKABLE void setFortran(bool isFortran) { this->isFortran_ = isFortran; }
    Q_INVOKABLE int getRank() { return rank; }
    Q_INVOKABLE int getxDimension() { return xDimension; }
    Q_INVOKABLE int getyDimension() { return yDimension; }
    Q_INVOKABLE bool isFortran() { return isFortran_; }

    // Tells a page to read dataJson again.
    void refresh();

    void setDataJson(const QJsonDocument& document);

    // dataJson with its arrays of numbers packed as the channel carries them
    // (see ChartFeed), made by setData straight from the values, which is
    // much quicker than packing the document afterwards; null after a
    // document was written from outside.
    const QJsonDocument& packedJson() const { return packed; }

    // What the web channel publishes in this object's place (see ChartFeed).
    ChartFeed* channelObject() const { return feed; }

    int width = 0;
    int height = 0;
    int rank = 0;
    int xDimension = 0;
    int yDimension = 0;
    QString displayName;
    QJsonDocument dataJson;
    // The Fortran flag; named with a trailing underscore because the
    // invokable isFortran() answers it.
    bool isFortran_ = false;

signals:
    void dataAvailable();

protected:
    // Stores width, height and name: the common start of every setData.
    void beginData(int width, int height, const QString& displayName);
    // Stores the document and its packed form and announces them: the
    // common end of every setData.
    void endData(const QJsonObject& object, const QJsonObject& packedObject);

private:
    ChartFeed* feed = nullptr;
    QJsonDocument packed;
};

// x: 0 to n-1, y: the values.
class LineDataQObject : public DataQObject {
    Q_OBJECT
public:
    explicit LineDataQObject(QObject* parent = nullptr) : DataQObject(parent) {}
    void setData(double* data, int count, int width, int height,
                 const QString& displayName) override;
};

// x: the values; the page bins them.
class HistDataQObject : public DataQObject {
    Q_OBJECT
public:
    explicit HistDataQObject(QObject* parent = nullptr) : DataQObject(parent) {}
    void setData(double* data, int count, int width, int height,
                 const QString& displayName) override;
};

// x, y, z: xDimension rows of yDimension values each, read row by row.
class SurfDataQObject : public DataQObject {
    Q_OBJECT
public:
    explicit SurfDataQObject(QObject* parent = nullptr) : DataQObject(parent) {}
    void setData(double* data, int count, int width, int height,
                 const QString& displayName) override;
};
