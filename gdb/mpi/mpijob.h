// An MPI job on this machine with every rank under a gdb of its own: a layer
// beside the single gdb session, not inside it.
//
// The ranks are found through the process acquisition interface that MPI
// launchers offer to debuggers: a gdb runs `mpirun` with
// MPIR_being_debugged set, stops it at MPIR_Breakpoint once the ranks exist,
// and reads MPIR_proctable (host, executable and pid of every rank). One
// GdbSession then attaches to each rank; the ranks wait in MPI_Init until
// the launcher goes on (and, where the library has one, until their debug
// gate MPIR_debug_gate is opened). Attaching to a running job reads the
// same table from its `mpirun`.
//
// Everything is called on the thread that made the job (the GUI thread);
// the calls that wait keep that thread's event loop turning.
#pragma once

#include "eventwait.h"
#include "gdbsession.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace arraylens::gdb {

class MpiJob : public QObject {
    Q_OBJECT
public:
    struct Options {
        QString gdbPath = QStringLiteral("gdb");
        QString mpirun = QStringLiteral("mpirun");
        // How long gdb may take to answer one command.
        int commandTimeoutMs = 120000;
    };

    struct Rank {
        int rank = 0;
        qint64 pid = 0;
        QString host;
        QString executable;
        std::unique_ptr<GdbSession> session;
        // Why its debuggee is gone, once it is ("exited with code 3").
        QString exitText;
        // The reason of its last stop ("breakpoint-hit", "signal-received")
        // and the signal's name, if one stopped it.
        QString stopReason;
        QString stopSignal;
        // The number of the breakpoint on the library's MPI_Abort in this
        // rank's gdb, and whether the rank stopped there.
        std::string abortBreakpoint;
        bool aborting = false;
    };

    // How long a job whose rank ended in error may take to be ended by its
    // launcher, which then says why.
    static constexpr int kLauncherEndMs = 20000;

    explicit MpiJob(Options options, QObject* parent = nullptr);
    // Ends the job as end() does.
    ~MpiJob() override;

    // Starts `mpirun -np N program args` under a gdb and attaches a gdb to
    // every rank, which is then stopped in MPI_Init. False with `error`.
    bool launch(int ranks, const QString& program, const QStringList& args, QString& error);
    // Attaches to the ranks of the running job whose `mpirun` has this pid;
    // they stop where they are. end() detaches and leaves them running.
    bool attach(qint64 mpirunPid, QString& error);

    // Inserts a breakpoint in every rank: `arguments` follow "-break-insert "
    // as they stand (options and a quoted location).
    bool insertBreakpoint(const QString& arguments, QString& error);
    // Lets every rank run (after a launch, also the launcher) and waits until
    // all have stopped. On a rank that exits, a gdb that dies, or ranks that
    // have not stopped within `timeoutMs` (they are interrupted, and the
    // message says where they were), false with `error`.
    bool continueAll(int timeoutMs, QString& error);
    // The same with another command of MI's run control for every rank
    // ("-exec-next", "-exec-step", "-exec-finish"): each rank takes it on its
    // own, and a step over a call that talks to other ranks returns once
    // they have done their part.
    bool resumeAll(const QString& command, int timeoutMs, QString& error);
    // Stops every running rank; the waiting resumeAll then counts their stop
    // on the interrupt as a stop like any other.
    void interruptAll();
    // True while resumeAll waits for the ranks.
    bool resuming() const { return resuming_; }

    // Kills what it launched, or detaches from what it attached to; then
    // every gdb quits. Safe to call twice.
    void end();

    int size() const { return int(ranks_.size()); }
    const Rank& rank(int index) const { return ranks_[std::size_t(index)]; }
    GdbSession* session(int index) const { return ranks_[std::size_t(index)].session.get(); }
    bool attached() const { return attached_; }
    // Pids of the launcher and of every gdb, for checks that nothing is left.
    qint64 launcherPid() const { return launcherPid_; }
    QVector<qint64> gdbPids() const;
    // What the launcher wrote (the ranks' output passes through it).
    const QByteArray& launcherOutput() const { return output_; }

signals:
    void launcherOutputArrived(const QByteArray& bytes);

private:
    bool startLauncher(int ranks, const QString& program, const QStringList& args, QString& error);
    bool readProcTable(QString& error);
    bool attachRanks(QString& error);
    bool command(GdbSession& session, const QString& text, QString& error,
                 QString* value = nullptr);
    bool waitLauncherStop(QString& error);
    void watch(Rank& rank);
    QString whereIs(Rank& rank);
    QString placeOf(Rank& rank);
    void catchAbort(Rank& rank);
    QString abortText(Rank& rank);
    QString abortWords() const;
    bool abortNoticeComplete() const;
    // The launcher's first lines of output (the ranks' pass through it).
    QString firstLauncherLines() const;
    // Waits until the launcher has said why the job ends (or has ended),
    // then reads what its terminal still holds.
    void awaitLauncherWords(bool jobEnds);

    Options options_;
    std::unique_ptr<GdbSession> launcher_;
    std::vector<Rank> ranks_;
    qint64 launcherPid_ = 0;
    bool attached_ = false;
    bool launcherHeld_ = false; // the launcher still waits at MPIR_Breakpoint
    bool ended_ = false;
    bool resuming_ = false;
    bool interrupted_ = false; // interruptAll() during this resumeAll
    QByteArray output_;
    // The last *stopped record of the launcher.
    QString launcherStopReason_;
    QString launcherStopFunction_;
    QString launcherExit_;
};

// "0-3,7" as rank numbers in order, each once. False with `error` when the
// text is not such a list or names a rank at or above `size`.
bool parseRankList(const QString& text, int size, QVector<int>& ranks, QString& error);
// "ranks 1, 2 and 5", "rank 3".
QString rankListWords(const QVector<int>& ranks);

} // namespace arraylens::gdb
