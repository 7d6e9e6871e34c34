// Statistics across stops: runs the debuggee from stop to stop and takes the
// statistics of one array at each, until a condition over them holds, a
// number of stops is reached, the program ends, or the trace is stopped.
// The command-line tool and the shell's Trace panel both drive this.
//
// At each stop the array is described in the innermost frame of the thread
// that stopped, as the stop record names it (no stack listing), on a worker
// thread. Without a condition the array's bytes are then copied out of the
// stopped program, the program goes on at once, and the statistics are
// computed on the copy while it runs its next step; the lines still come
// out in order, the same lines as without the overlap. With a condition
// the statistics are computed before the program goes on, so that it stays
// stopped where the condition holds. A stop whose array cannot be read goes
// the ordinary request road and gives a line with "result" = "error" and
// the message; the trace goes on.
//
// Every call is made on the GUI thread and returns at once.
#pragma once

#include "gdbdebugger.h"
#include "tracecapture.h"
#include "tracehook.h"

#include "arraylens/condition.h"

#include "wire/arrayrecords.h"

#include <QFutureWatcher>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QStringList>
#include <QThreadPool>

#include <atomic>
#include <deque>
#include <memory>
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
    // Let the program go on while a stop's statistics are computed on a copy
    // of the array (never with a condition). Off: every stop is computed
    // before the program goes on, as a statistics request would be.
    bool overlap = true;
    // With the overlap: the stops that need nothing but the copy are handled
    // inside gdb, by a breakpoint condition that asks this service, and are
    // never reported over MI (no stop and continue round trip, no MI
    // describe). The first stop, the last one of maxStops, and any stop this
    // road cannot take are ordinary stops. Off in the shell, whose views
    // follow every stop.
    bool inGdb = false;
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
    int stopCount() const { return stops_.load(); }
    // Stops whose statistics were computed on a copy while the program ran on.
    int copiedStops() const { return copied_; }
    // Stops handled inside gdb.
    int inGdbStops() const { return inGdb_; }

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
    using LineFields = QVector<QPair<QByteArray, QVariant>>;
    // A stop whose line is not out yet, or the closing line after them.
    struct Pending {
        int stop = 0;
        FrameInfo frame;
        bool ready = false;
        // The program went on after the copy was taken.
        bool resumed = false;
        QSharedPointer<QObject> answer;
        // A closing line ("exit") and how the trace ends with it.
        bool closing = false;
        LineFields closingLine;
        End end = End::Exited;
        QString message;
    };

    void handleRecord(const arraylens::mi::Record& record);
    void traceStop();
    ArrayStatisticsRequest statisticsRequest(const FrameInfo& frame) const;
    void captured(const std::shared_ptr<StopCapture>& capture);
    // Computes the statistics of stop `stop` from its copy.
    void computeCopy(int stop, const FrameInfo& frame, const std::shared_ptr<StopCapture>& capture);
    // Connects gdb's breakpoint condition to this service.
    void installHook();
    // A stop handled inside gdb, which the program has gone on from.
    void hookStop(int stop, const FrameInfo& frame, const std::shared_ptr<StopCapture>& capture);
    // Puts a stop in its place among those waiting for their lines.
    void addPending(const Pending& stop);
    Pending* pendingStop(int stop);
    // The ordinary request road for the stop being handled.
    void requestStop();
    void answered();
    // The answer of stop `stop` is there.
    void settle(int stop, const QSharedPointer<QObject>& answer);
    // Emits the lines that are ready, in order, and goes on or ends.
    void flush();
    // Emits the line of one stop; false when the trace ended with it.
    bool report(const Pending& stop);
    void resume();
    // Ends the trace when maxStops stops are traced; true then.
    bool enoughStops();
    void finish(End end, const QString& message);
    void emitLine(const LineFields& fields);
    // Runs `f` on this object's thread while the trace run `run` is on.
    template <class F> void post(quint64 run, F f);

    QPointer<GdbDebugger> debugger_;
    TraceSettings settings_;
    std::optional<arraylens::Condition> until_;
    QFutureWatcher<QSharedPointer<QObject>> watcher_;
    bool active_ = false;
    bool awaitingStop_ = false;
    // Written by the hook's thread while gdb waits in a hit, by this
    // object's thread otherwise.
    std::atomic<int> stops_{0};
    // The stops whose lines are out.
    int emitted_ = 0;
    // Hits inside gdb may go on.
    std::atomic<bool> hookOpen_{false};
    int copied_ = 0;
    int inGdb_ = 0;
    // Counts trace runs, so that work finished for an ended run is dropped.
    quint64 run_ = 0;
    std::deque<Pending> pending_;
    arraylens::gdb::RequestSnapshot request_;
    std::shared_ptr<std::atomic<bool>> cancel_;
    std::shared_ptr<CaptureBuffers> buffers_;
    std::unique_ptr<TraceHook> hook_;
    // Declared last: destroyed (and waited for) first.
    QThreadPool pool_;
};

} // namespace arraylens::gdb
