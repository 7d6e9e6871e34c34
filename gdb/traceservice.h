// Statistics across stops: runs the debuggee from stop to stop and takes the
// statistics of one array at each, until a condition over them holds, a
// number of stops is reached, the program ends, or the trace is stopped.
// The command-line tool and the shell's Trace panel both drive this.
//
// Each stop costs one statistics request, resolved in the innermost frame of
// the thread that stopped, and one continue. A stop whose array cannot be
// read gives a line with "result" = "error" and the message; the trace goes
// on. When the condition holds the debuggee stays stopped there.
//
// Every call is made on the GUI thread and returns at once.
#pragma once

#include "gdbdebugger.h"

#include "arraylens/condition.h"

#include <QFutureWatcher>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QStringList>

#include <optional>

namespace arraylens::gdb {

struct TraceSettings {
    QString expression;
    QString slice;
    QString filter;
    // The statistics each line carries; empty: all sixteen.
    QStringList stats;
    // A condition over statistic names; empty: none.
    QString until;
    // Stops to trace at most; 0: no limit.
    int maxStops = 0;
};

class TraceService : public QObject {
    Q_OBJECT
public:
    enum class End {
        Until,       // the condition held at the last stop
        Stops,       // maxStops stops were traced
        Exited,      // the program ended
        Interrupted, // stop() was called
        Failed,      // gdb went away, or the debuggee could not be run on
    };
    Q_ENUM(End)

    explicit TraceService(GdbDebugger* debugger, QObject* parent = nullptr);
    ~TraceService() override;

    // Checks the statistic names and compiles the condition; false with the
    // words why in `error`.
    bool configure(const TraceSettings& settings, QString* error);
    // The same checks without a service, for tools that refuse bad usage
    // before they start gdb.
    static bool check(const TraceSettings& settings, QString* error);
    // Starts at the stop the debuggee is at (or the next one, when it runs).
    void start();
    // Ends the trace at once; a running debuggee is interrupted.
    void stop();
    bool isActive() const { return active_; }
    int stopCount() const { return stops_; }

    // The statistic names a trace knows, as in --stat and conditions.
    static QStringList statisticNames();

signals:
    // One line per stop, in order: "Stop", "Function", "File", "Line", the
    // chosen statistics (a null QVariant, std::nullptr_t, for one that is
    // not valid at the stop), "FirstMatch", "LastMatch" (and "Until" = true on
    // the stop where the condition held); or "Stop", "result" = "error",
    // "msg" for a stop whose array could not be read; or "Stop", "result"
    // = "exit", "msg" when the program ended.
    void lineReady(QSharedPointer<QObject> line);
    void finished(arraylens::gdb::TraceService::End end, const QString& message);

private:
    void handleRecord(const arraylens::mi::Record& record);
    void traceStop();
    void answered();
    void resume();
    // Ends the trace when maxStops stops are traced; true then.
    bool enoughStops();
    void finish(End end, const QString& message);
    void emitLine(const QVector<QPair<QByteArray, QVariant>>& fields);

    QPointer<GdbDebugger> debugger_;
    TraceSettings settings_;
    std::optional<arraylens::Condition> until_;
    QFutureWatcher<QSharedPointer<QObject>> watcher_;
    bool active_ = false;
    bool awaitingStop_ = false;
    int stops_ = 0;
    FrameInfo frame_;
};

} // namespace arraylens::gdb
