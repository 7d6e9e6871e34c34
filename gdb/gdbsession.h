// One gdb process speaking MI3, its command queue and the state of its
// debuggee.
//
// Commands carry tokens and go to gdb one at a time: the next is written
// when the result record of the previous one has come back, so the console
// output that arrives in between belongs to the command in flight. Any
// thread may send a command; the process itself lives on the thread that
// made the session (the GUI thread), where all MI traffic is read
// asynchronously. Worker threads wait for their replies, the GUI thread
// never does.
#pragma once

#include "mi/MiParser.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

class QSocketNotifier;
class QTemporaryDir;

namespace arraylens::gdb {

// The text every request in flight, and every one after, gets once gdb has
// gone away.
extern const char* const kDebuggerStoppedMessage;

// The answer to one MI command.
class MiReply {
public:
    using Callback = std::function<void(const MiReply&)>;

    // Blocks the calling thread until the answer is there or `timeoutMs`
    // has passed; false on time-out. Never call it on the session's thread.
    bool wait(int timeoutMs) const;
    // As wait(), but keeps the calling thread's event loop running: for the
    // session's own thread in tools and tests.
    bool waitProcessingEvents(int timeoutMs) const;
    bool isFinished() const;

    // Valid once finished.
    const mi::Record& record() const { return record_; }
    bool isError() const { return record_.resultClass == mi::ResultClass::Error || lost_; }
    // ^error's msg, or the debugger-stopped text when gdb went away.
    QString errorMessage() const;
    // What the command printed on the console stream, joined.
    const QString& console() const { return console_; }
    // True when gdb died before it answered.
    bool lost() const { return lost_; }
    const QString& command() const { return command_; }

private:
    friend class GdbSession;
    QString command_;
    quint64 token_ = 0;
    mi::Record record_;
    QString console_;
    bool lost_ = false;
    Callback callback_;
    mutable std::mutex mutex_;
    mutable std::condition_variable cv_;
    bool finished_ = false;
};

using MiReplyPtr = std::shared_ptr<MiReply>;

class GdbSession : public QObject {
    Q_OBJECT
public:
    enum class TargetState { None, Running, Stopped, Exited };
    Q_ENUM(TargetState)

    struct Options {
        QString gdbPath = QStringLiteral("gdb");
        // Read memory through gdb even for a local live process (the way
        // remote targets and core files are read).
        bool memoryThroughGdb = false;
        // Give the debuggee a terminal of its own.
        bool inferiorTerminal = true;
    };

    explicit GdbSession(QObject* parent = nullptr);
    explicit GdbSession(Options options, QObject* parent = nullptr);
    ~GdbSession() override;

    // Starts gdb (with the program to debug when one is given) and sends
    // the settings every session uses. False with `error` filled when gdb
    // cannot be started. Returns without waiting for gdb's answers.
    bool start(const QString& program = {}, const QStringList& programArgs = {},
               QString* error = nullptr);
    // Asks gdb to quit, and kills it if it has not after a short while.
    void shutdown();
    // Kills gdb at once (the debuggee goes with it when gdb started it).
    void kill();

    // Queues a command (without token; "-data-evaluate-expression ...").
    // Safe from any thread. The callback, if any, runs on the session's
    // thread once the answer is there.
    MiReplyPtr send(const QString& command, MiReply::Callback callback = {});

    // Held by a worker thread for the commands of one multi-command
    // transaction (resolving an expression), so that two transactions never
    // interleave in the queue. Never taken on the session's own thread,
    // whose event loop has to keep reading the answers.
    std::unique_lock<std::mutex> beginTransaction() {
        return std::unique_lock<std::mutex>(transactionMutex_);
    }

    bool isAlive() const { return alive_.load(); }
    TargetState targetState() const { return targetState_.load(); }
    // The debuggee's pid while it runs or is stopped; 0 otherwise.
    qint64 pid() const { return pid_.load(); }
    // The thread of the last stop (gdb's id, as text).
    QString stoppedThread() const;
    // Memory is read from the process directly: a local live debuggee.
    bool readsMemoryDirectly() const;
    // A target that is stopped without a stop event (a core file).
    void markStopped() { setTargetState(TargetState::Stopped); }
    // Set by the owner when the target is a core file or a remote one.
    void setTargetIsLocalProcess(bool local) { localProcess_ = local; }
    // Set by the owner before it opens a core (-target-select core PATH):
    // memory is then read from the file itself, through gdb only what the
    // file does not hold. Also marks the target as not a local process.
    void setCoreFile(const QString& path);
    // The core's absolute path; empty when the target is not a core.
    QString coreFile() const;
    // Counter that moves on each time the debuggee runs: a request that saw
    // another value when it started is about data that has changed.
    quint64 runGeneration() const { return runGeneration_.load(); }
    // gdb's own pid; 0 when it is not running.
    qint64 gdbPid() const { return process_ && alive_ ? process_->processId() : 0; }
    // A debuggee that gdb started dies with gdb; off for attached processes.
    void setKillDebuggeeWithGdb(bool kill) { killDebuggee_ = kill; }
    // The pty the debuggee writes to (empty without one).
    QString inferiorTerminalPath() const { return ptyPath_; }
    // Reads what the debuggee's terminal holds now (inferiorOutput), without
    // waiting for its notifier: gdb may report the debuggee's exit before
    // the event loop has read its last lines. On the session's thread.
    void drainTerminal();
    // What gdb said on its own before it answered the first command: why it
    // could not load the program, for one. Read on the session's thread.
    QString startupText() const { return startupText_; }
    // Python's module of the describer: `python arraylens_describe.describe(...)`
    // works in every command sent after start().
    static const char* describerModule() { return "arraylens_describe"; }

signals:
    // Every asynchronous record (*stopped, =thread-group-exited, ...).
    void asyncRecord(const arraylens::mi::Record& record);
    // Console and log stream text, for a console view.
    void streamText(const QString& text);
    // What the debuggee wrote on its terminal.
    void inferiorOutput(const QByteArray& bytes);
    void targetStateChanged(arraylens::gdb::GdbSession::TargetState state);
    void started();
    // gdb has gone (exited, killed, crashed); every open reply has failed.
    void died();

private:
    void enqueue(const MiReplyPtr& reply);
    void writeNext();
    void readOutput();
    void handleLine(const QByteArray& line);
    void finish(const MiReplyPtr& reply);
    void handleProcessGone();
    void setTargetState(TargetState state);
    bool openTerminal(QString* error);
    // Writes the describer's Python files where gdb can import them and
    // queues the import, ahead of any command a request can send.
    bool installDescriber(QString* error);
    void readTerminal();

    Options options_;
    QProcess* process_ = nullptr;
    QByteArray pending_;
    std::deque<MiReplyPtr> queue_;
    MiReplyPtr inFlight_;
    QString consoleBuffer_;
    QString startupText_;
    bool answered_ = false;
    std::atomic<quint64> nextToken_{1};
    std::atomic<bool> alive_{false};
    std::atomic<TargetState> targetState_{TargetState::None};
    std::atomic<qint64> pid_{0};
    std::atomic<quint64> runGeneration_{0};
    mutable std::mutex stateMutex_;
    std::mutex transactionMutex_;
    QString stoppedThread_;
    bool localProcess_ = true;
    QString coreFile_;
    bool killDebuggee_ = true;
    int ptyMaster_ = -1;
    QString ptyPath_;
    QSocketNotifier* ptyNotifier_ = nullptr;
    std::unique_ptr<QTemporaryDir> pythonDir_;
};

} // namespace arraylens::gdb

Q_DECLARE_METATYPE(arraylens::mi::Record)
