#pragma once
// What a chart page sees of a data object over the web channel.
//
// The web engine's channel transport converts every message to Qt's binary
// JSON, whose cost grows with the square of an array's length: a document of
// 500,000 values took about 20 s to reach the page, all of it on the GUI
// thread, while the same values as one base64 text of raw doubles took a third
// of a second. So the channel carries not the data object itself but this twin
// of it, under the same name, with the same signal and a `dataJson` of the
// same keys in which each array of numbers is packed as
// {"$f64": base64 of the raw doubles}, or {"$i32": base64 of 32-bit integers}
// when all of them are whole numbers that fit; the page unpacks it into typed
// arrays, so it draws exactly the values of the data object's own document.

#include <QJsonDocument>
#include <QObject>

class DataQObject;

class ChartFeed : public QObject {
    Q_OBJECT
    Q_PROPERTY(QJsonDocument dataJson READ dataJson WRITE setDataJson NOTIFY dataAvailable)
public:
    // A child of `source`; follows its dataAvailable().
    explicit ChartFeed(DataQObject* source);

    // The packed form of the source's document: the one its setData made,
    // or else built when first asked for after a change. Empty while
    // withheld.
    QJsonDocument dataJson();
    // A page's write goes to the source, which keeps plain documents.
    void setDataJson(const QJsonDocument& document);

    // The source's invokables, so that a page sees the whole data object.
    Q_INVOKABLE int getWidth();
    Q_INVOKABLE void setWidth(int width);
    Q_INVOKABLE int getHeight();
    Q_INVOKABLE void setHeight(int height);
    Q_INVOKABLE QString getDisplayName();
    Q_INVOKABLE void setRank(int rank);
    Q_INVOKABLE void setxDimension(int xDimension);
    Q_INVOKABLE void setyDimension(int yDimension);
    Q_INVOKABLE void setFortran(bool isFortran);
    Q_INVOKABLE int getRank();
    Q_INVOKABLE int getxDimension();
    Q_INVOKABLE int getyDimension();
    Q_INVOKABLE bool isFortran();

    // A page that is loading reads nothing on its start but waits for the
    // signal, and the channel hands every published value to a new page: a
    // withheld feed keeps old plots out of that first message. The next
    // dataAvailable() of the source publishes it again.
    void withhold();
    bool isWithheld() const { return withheld; }

    // The packed form of any JSON value: arrays whose members are all numbers
    // become {"$f64": base64} or {"$i32": base64}, other arrays and objects
    // are packed member by member, everything else stays as it is.
    static QJsonValue pack(const QJsonValue& value);
    // The packed form of `count` values: {"$i32": base64} when all are whole
    // numbers that fit, else {"$f64": base64}, or an empty array for none,
    // as pack() gives for the same values.
    static QJsonValue packDoubles(const double* values, int count);

signals:
    void dataAvailable();

private:
    void sourceChanged();

    DataQObject* source;
    QJsonDocument packed;
    bool stale = true;
    bool withheld = true;
};
