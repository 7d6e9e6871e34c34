#pragma once
// The Trace panel beside the stack and threads: the statistics of one array
// followed from stop to stop, drawn against the stop number as a line chart.
// It drives the trace service, the same trace as `arraylens-cli trace`:
// when the until-condition holds the program stays stopped there, so that
// the rest of the window shows that stop. Stop ends the trace at once.

#include <QPointer>
#include <QSharedPointer>
#include <QVariantMap>
#include <QVector>
#include <QWidget>

#include <functional>

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QWebEngineView;

namespace arraylens::gdb {
class GdbDebugger;
class TraceService;
} // namespace arraylens::gdb

namespace shell {

class TracePanel : public QWidget {
    Q_OBJECT
public:
    explicit TracePanel(arraylens::gdb::GdbDebugger* debugger, QWidget* parent = nullptr);
    ~TracePanel() override;

    // The panel's fields, as a user fills them.
    void setExpression(const QString& text);
    void setSlice(const QString& text);
    void setFilter(const QString& text);
    void setUntil(const QString& text);
    // The statistics to follow (checked in the list); the others unchecked.
    void setFollowed(const QStringList& names);
    QStringList followed() const;

    // As the Start and Stop buttons.
    void startTrace();
    void stopTrace();
    bool isTracing() const;

    // One entry per traced stop: "Stop" and the followed statistics'
    // values (a stop that could not be read has "Stop" and "msg").
    const QVector<QVariantMap>& points() const { return points_; }
    QString statusText() const;
    // Asks the chart page how many points its first series has; -1 when it
    // has not drawn (yet).
    void chartPointCount(std::function<void(int)> done);

signals:
    void traceFinished(bool conditionHeld);
    void chartDrawn();

private:
    void addLine(const QSharedPointer<QObject>& line);
    void redraw();

    QPointer<arraylens::gdb::GdbDebugger> debugger_;
    arraylens::gdb::TraceService* trace_ = nullptr;
    QLineEdit* expression_ = nullptr;
    QLineEdit* slice_ = nullptr;
    QLineEdit* filter_ = nullptr;
    QLineEdit* until_ = nullptr;
    QListWidget* stats_ = nullptr;
    QPushButton* start_ = nullptr;
    QPushButton* stop_ = nullptr;
    QLabel* status_ = nullptr;
    QWebEngineView* chart_ = nullptr;
    bool pageLoaded_ = false;
    QStringList drawn_; // the statistics of the current trace
    QVector<QVariantMap> points_;
};

} // namespace shell
