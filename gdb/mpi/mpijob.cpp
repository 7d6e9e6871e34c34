#include "mpijob.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>
#include <csignal>
#include <unistd.h>

namespace arraylens::gdb {

namespace {

using State = GdbSession::TargetState;

QString quoted(const QString& text) {
    return QString::fromStdString(mi::quoteCString(text.toStdString()));
}

// The text of a `char*` value as gdb prints it: 0x5555 "text".
QString cString(const QString& value) {
    static const QRegularExpression re(QStringLiteral("^0x[0-9a-fA-F]+\\s+\"(.*)\"$"));
    const auto m = re.match(value.trimmed());
    if (!m.hasMatch())
        return QString();
    QString out, in = m.captured(1);
    for (int i = 0; i < in.size(); ++i) {
        if (in[i] == QLatin1Char('\\') && i + 1 < in.size())
            ++i;
        out += in[i];
    }
    return out;
}

// gdb gives exit codes in octal ("03").
QString exitCode(const std::string& code) {
    bool ok = false;
    const int value = QString::fromStdString(code).toInt(&ok, 8);
    return ok ? QString::number(value) : QString::fromStdString(code);
}

// The parent pid of a process, from /proc; 0 when it is gone.
qint64 parentOf(qint64 pid) {
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = f.readAll();
    // "pid (comm) state ppid ...": the name may hold blanks and parentheses.
    const int close = stat.lastIndexOf(')');
    const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() : 0;
}

bool isDebugged(const std::unique_ptr<GdbSession>& s) {
    return s && s->isAlive();
}

} // namespace

QString rankListWords(const QVector<int>& ranks) {
    QStringList parts;
    for (int r : ranks)
        parts << QString::number(r);
    if (parts.size() == 1)
        return QStringLiteral("rank ") + parts.first();
    const QString last = parts.takeLast();
    return QStringLiteral("ranks ") + parts.join(QStringLiteral(", ")) + QStringLiteral(" and ") +
           last;
}

bool parseRankList(const QString& text, int size, QVector<int>& ranks, QString& error) {
    ranks.clear();
    QVector<bool> seen;
    const QStringList items = text.split(QLatin1Char(','));
    for (const QString& raw : items) {
        const QString item = raw.trimmed();
        const QStringList ends = item.split(QLatin1Char('-'));
        bool ok1 = false, ok2 = false;
        int from = ends.value(0).trimmed().toInt(&ok1);
        int to = ends.size() == 2 ? ends[1].trimmed().toInt(&ok2) : from;
        if (ends.size() == 1)
            ok2 = ok1;
        if (item.isEmpty() || ends.size() > 2 || !ok1 || !ok2 || from < 0 || to < from) {
            error = QStringLiteral("Bad rank list '%1': write rank numbers and ranges such as "
                                   "0-3,7.")
                        .arg(text);
            return false;
        }
        if (to >= size) {
            error = QStringLiteral("The rank list '%1' names rank %2, but the job has %3 ranks.")
                        .arg(text)
                        .arg(to)
                        .arg(size);
            return false;
        }
        for (int r = from; r <= to; ++r) {
            if (seen.size() <= r)
                seen.resize(r + 1);
            if (!seen[r])
                ranks << r;
            seen[r] = true;
        }
    }
    std::sort(ranks.begin(), ranks.end());
    return true;
}

MpiJob::MpiJob(Options options, QObject* parent) : QObject(parent), options_(std::move(options)) {}

MpiJob::~MpiJob() {
    end();
}

bool MpiJob::command(GdbSession& session, const QString& text, QString& error, QString* value) {
    auto reply = session.send(text);
    if (!reply->waitProcessingEvents(options_.commandTimeoutMs)) {
        error = QStringLiteral("gdb did not answer '%1' in time.").arg(text);
        return false;
    }
    if (reply->isError()) {
        error = reply->errorMessage();
        return false;
    }
    if (value)
        *value = QString::fromStdString(reply->record().results["value"].asString());
    return true;
}

QVector<qint64> MpiJob::gdbPids() const {
    QVector<qint64> pids;
    if (launcher_ && launcher_->gdbPid() > 0)
        pids << launcher_->gdbPid();
    for (const Rank& r : ranks_)
        if (r.session && r.session->gdbPid() > 0)
            pids << r.session->gdbPid();
    return pids;
}

QString MpiJob::abortWords() const {
    // Open MPI names the rank that called MPI_Abort on the launcher's output.
    const QString text = QString::fromLocal8Bit(output_);
    static const QRegularExpression re(
        QStringLiteral("MPI_ABORT was invoked on rank [^\\n]*(\\n\\s*with errorcode [^\\n]*)?"));
    const auto m = re.match(text);
    return m.hasMatch() ? m.captured(0).simplified() : QString();
}

QString MpiJob::firstLauncherLines() const {
    return QString::fromLocal8Bit(output_)
        .trimmed()
        .split(QLatin1Char('\n'))
        .mid(0, 12)
        .join(QLatin1Char('\n'))
        .trimmed();
}

bool MpiJob::abortNoticeComplete() const {
    // Both lines, each ended: the terminal may hand them over in pieces.
    static const QRegularExpression re(
        QStringLiteral("MPI_ABORT was invoked on rank [^\\n]*\\n\\s*with errorcode [^\\n]*\\n"));
    return re.match(QString::fromLocal8Bit(output_)).hasMatch();
}

void MpiJob::awaitLauncherWords(bool jobEnds) {
    if (!launcher_)
        return;
    // A rank that ended with an error code or a signal makes the launcher
    // end the whole job and say why; it notices the rank's end later than
    // the rank's gdb does, and on a loaded machine that can take seconds.
    // Otherwise it has nothing to say soon, and a short look is enough.
    waitWithEventLoop(
        [&] {
            return abortNoticeComplete() || !launcher_->isAlive() ||
                   launcher_->targetState() != State::Running;
        },
        jobEnds ? kLauncherEndMs : 3000);
    // gdb may report the launcher's exit before its terminal's last lines
    // were read.
    launcher_->drainTerminal();
}

bool MpiJob::startLauncher(int count, const QString& program, const QStringList& args,
                           QString& error) {
    QString mpirun = options_.mpirun;
    if (!mpirun.contains(QLatin1Char('/')))
        mpirun = QStandardPaths::findExecutable(mpirun);
    if (mpirun.isEmpty() || !QFileInfo(mpirun).isExecutable()) {
        error = QStringLiteral("Cannot find the MPI launcher '%1': install Open MPI (Debian "
                               "packages openmpi-bin and libopenmpi-dev) or name it with "
                               "--mpirun PATH.")
                    .arg(options_.mpirun);
        return false;
    }
    GdbSession::Options o;
    o.gdbPath = options_.gdbPath;
    launcher_ = std::make_unique<GdbSession>(o);
    connect(launcher_.get(), &GdbSession::inferiorOutput, this, [this](const QByteArray& bytes) {
        output_ += bytes;
        emit launcherOutputArrived(bytes);
    });
    connect(launcher_.get(), &GdbSession::asyncRecord, this, [this](const mi::Record& record) {
        if (record.klass == "stopped") {
            launcherStopReason_ = QString::fromStdString(record.results["reason"].asString());
            launcherStopFunction_ =
                QString::fromStdString(record.results["frame"]["func"].asString());
            if (launcherStopReason_.startsWith(QLatin1String("exited"))) {
                const std::string code = record.results["exit-code"].asString();
                const std::string signal = record.results["signal-name"].asString();
                launcherExit_ =
                    !signal.empty()
                        ? QStringLiteral("was killed by %1").arg(QString::fromStdString(signal))
                    : !code.empty() ? QStringLiteral("exited with code %1").arg(exitCode(code))
                                    : QStringLiteral("exited");
            }
        }
    });
    QStringList mpirunArgs{QStringLiteral("-np"), QString::number(count), program};
    mpirunArgs << args;
    if (!launcher_->start(mpirun, mpirunArgs, &error))
        return false;
    launcherPid_ = 0;
    // Open MPI's launcher: more ranks than cores on one machine is what a
    // debugging session wants; no notice that MPIR is old; and as root it
    // runs only when told twice. Other launchers ignore these variables.
    QStringList environment{QStringLiteral("OMPI_MPIR_DO_NOT_WARN=1")};
    if (qEnvironmentVariableIsEmpty("OMPI_MCA_rmaps_base_oversubscribe"))
        environment << QStringLiteral("OMPI_MCA_rmaps_base_oversubscribe=1");
    if (::geteuid() == 0)
        environment << QStringLiteral("OMPI_ALLOW_RUN_AS_ROOT=1")
                    << QStringLiteral("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1");
    for (const QString& variable : environment)
        if (!command(*launcher_,
                     QStringLiteral("-interpreter-exec console ") +
                         quoted(QStringLiteral("set environment ") + variable),
                     error))
            return false;
    // MPIR_being_debugged may live in a shared library of the launcher: stop
    // at every library load until it can be set, before any rank exists.
    if (!command(*launcher_, QStringLiteral("-gdb-set stop-on-solib-events 1"), error) ||
        !command(*launcher_, QStringLiteral("-exec-run"), error))
        return false;
    bool flagSet = false;
    for (;;) {
        if (!waitLauncherStop(error))
            return false;
        launcherPid_ = launcher_->pid();
        if (launcherStopReason_ == QLatin1String("solib-event") && !flagSet) {
            QString ignored;
            if (command(*launcher_,
                        QStringLiteral("-data-evaluate-expression ") +
                            quoted(QStringLiteral("*(int*)&MPIR_being_debugged = 1")),
                        ignored)) {
                flagSet = true;
                if (!command(*launcher_, QStringLiteral("-gdb-set stop-on-solib-events 0"),
                             error) ||
                    !command(*launcher_, QStringLiteral("-break-insert MPIR_Breakpoint"), error))
                    return false;
            }
        } else if (launcherStopFunction_ == QLatin1String("MPIR_Breakpoint")) {
            launcherHeld_ = true;
            return true;
        } else if (launcherStopReason_ != QLatin1String("solib-event")) {
            error = QStringLiteral("The MPI launcher stopped unexpectedly (%1) before starting "
                                   "the ranks.")
                        .arg(launcherStopReason_);
            return false;
        }
        if (!command(*launcher_, QStringLiteral("-exec-continue"), error))
            return false;
    }
}

bool MpiJob::waitLauncherStop(QString& error) {
    waitWithEventLoop(
        [&] { return launcher_->targetState() != State::Running || !launcher_->isAlive(); },
        options_.commandTimeoutMs);
    // A stop right after a run command: wait for the *stopped record itself.
    waitWithEventLoop(
        [&] {
            const auto s = launcher_->targetState();
            return s == State::Stopped || s == State::Exited || s == State::None ||
                   !launcher_->isAlive();
        },
        options_.commandTimeoutMs);
    if (!launcher_->isAlive()) {
        error = QStringLiteral("The debugger of the MPI launcher has stopped.");
        return false;
    }
    const auto s = launcher_->targetState();
    if (s == State::Exited || s == State::None) {
        // Its first lines say why (a missing program, too few slots, ...).
        const QString tail = firstLauncherLines();
        error = QStringLiteral("The MPI launcher %1 before the ranks reached the debugger.")
                    .arg(launcherExit_.isEmpty() ? QStringLiteral("exited") : launcherExit_);
        if (!tail.isEmpty())
            error += QStringLiteral(" It said:\n") + tail;
        return false;
    }
    if (s != State::Stopped) {
        error = QStringLiteral("The MPI launcher did not start the ranks in time.");
        return false;
    }
    return true;
}

bool MpiJob::readProcTable(QString& error) {
    QString value;
    if (!command(*launcher_,
                 QStringLiteral("-data-evaluate-expression ") +
                     quoted(QStringLiteral("*(int*)&MPIR_proctable_size")),
                 error, &value)) {
        error = QStringLiteral("The process offers no MPIR_proctable (is it an MPI launcher?): "
                               "%1")
                    .arg(error);
        return false;
    }
    const int count = value.toInt();
    if (count <= 0) {
        error = QStringLiteral("The MPI launcher lists no ranks (MPIR_proctable is empty).");
        return false;
    }
    // struct MPIR_PROCDESC { char* host_name; char* executable_name; int pid; }
    const QString entry = QStringLiteral("((char*)MPIR_proctable + %1 * (2 * sizeof(char*) + "
                                         "sizeof(long)))");
    for (int i = 0; i < count; ++i) {
        Rank r;
        r.rank = i;
        QString host, exe, pid;
        const QString e = entry.arg(i);
        if (!command(*launcher_,
                     QStringLiteral("-data-evaluate-expression ") +
                         quoted(QStringLiteral("*(char**)") + e),
                     error, &host) ||
            !command(
                *launcher_,
                QStringLiteral("-data-evaluate-expression ") +
                    quoted(QStringLiteral("*(char**)(") + e + QStringLiteral(" + sizeof(char*))")),
                error, &exe) ||
            !command(*launcher_,
                     QStringLiteral("-data-evaluate-expression ") +
                         quoted(QStringLiteral("*(int*)(") + e +
                                QStringLiteral(" + 2 * sizeof(char*))")),
                     error, &pid)) {
            error = QStringLiteral("Cannot read entry %1 of MPIR_proctable: %2").arg(i).arg(error);
            return false;
        }
        r.host = cString(host);
        r.executable = cString(exe);
        r.pid = pid.toLongLong();
        if (r.pid <= 0) {
            error = QStringLiteral("MPIR_proctable gives no pid for rank %1.").arg(i);
            return false;
        }
        ranks_.push_back(std::move(r));
    }
    // Only ranks on this machine can be read: their processes must exist here.
    for (const Rank& r : ranks_) {
        if (::kill(pid_t(r.pid), 0) != 0) {
            error = QStringLiteral("Rank %1 (pid %2 on %3) is not a process on this machine; "
                                   "only jobs on one machine can be debugged.")
                        .arg(r.rank)
                        .arg(r.pid)
                        .arg(r.host);
            return false;
        }
    }
    return true;
}

void MpiJob::watch(Rank& rank) {
    GdbSession* s = rank.session.get();
    const int index = rank.rank;
    connect(s, &GdbSession::asyncRecord, this, [this, index](const mi::Record& record) {
        Rank& r = ranks_[std::size_t(index)];
        const std::string reason = record.results["reason"].asString();
        if (record.klass == "stopped") {
            r.stopReason = QString::fromStdString(reason);
            r.stopSignal = QString::fromStdString(record.results["signal-name"].asString());
            r.aborting = reason == "breakpoint-hit" && !r.abortBreakpoint.empty() &&
                         record.results["bkptno"].asString() == r.abortBreakpoint;
        }
        if (record.klass == "stopped" && reason.rfind("exited", 0) == 0) {
            const std::string code = record.results["exit-code"].asString();
            const std::string signal = record.results["signal-name"].asString();
            r.exitText =
                !signal.empty()
                    ? QStringLiteral("was killed by %1").arg(QString::fromStdString(signal))
                : !code.empty() ? QStringLiteral("exited with code %1").arg(exitCode(code))
                                : QStringLiteral("exited");
        } else if (record.klass == "thread-group-exited" && r.exitText.isEmpty()) {
            const std::string code = record.results["exit-code"].asString();
            r.exitText = code.empty() ? QStringLiteral("exited")
                                      : QStringLiteral("exited with code %1").arg(exitCode(code));
        }
    });
}

bool MpiJob::attachRanks(QString& error) {
    GdbSession::Options o;
    o.gdbPath = options_.gdbPath;
    o.inferiorTerminal = false;
    // Every gdb starts and attaches at once; most of the time goes into
    // reading the symbols of the MPI libraries, which they do side by side.
    QVector<MiReplyPtr> replies;
    for (Rank& r : ranks_) {
        r.session = std::make_unique<GdbSession>(o);
        r.session->setKillDebuggeeWithGdb(!attached_);
        watch(r);
        if (!r.session->start(r.executable, {}, &error)) {
            error = QStringLiteral("Cannot start gdb for rank %1: %2").arg(r.rank).arg(error);
            return false;
        }
        replies << r.session->send(QStringLiteral("-target-attach %1").arg(r.pid));
    }
    for (int i = 0; i < replies.size(); ++i) {
        Rank& r = ranks_[std::size_t(i)];
        if (!replies[i]->waitProcessingEvents(options_.commandTimeoutMs)) {
            error = QStringLiteral("gdb did not attach to rank %1 (pid %2) in time.")
                        .arg(r.rank)
                        .arg(r.pid);
            return false;
        }
        if (replies[i]->isError()) {
            error = QStringLiteral("Cannot attach to rank %1 (pid %2): %3")
                        .arg(r.rank)
                        .arg(r.pid)
                        .arg(replies[i]->errorMessage());
            return false;
        }
    }
    for (Rank& r : ranks_) {
        // The launcher ends a job (MPI_Abort, a rank that died) with SIGCONT
        // and SIGTERM to every rank: let them through, so that the ranks
        // end as they would without a debugger and the wait learns of it.
        for (const char* signal : {"SIGCONT", "SIGTERM"})
            r.session->send(QStringLiteral("-interpreter-exec console \"handle %1 nostop noprint "
                                           "pass\"")
                                .arg(QLatin1String(signal)));
        if (!waitWithEventLoop([&] { return r.session->targetState() == State::Stopped; },
                               options_.commandTimeoutMs)) {
            error = QStringLiteral("Rank %1 (pid %2) did not stop after gdb attached.")
                        .arg(r.rank)
                        .arg(r.pid);
            return false;
        }
        catchAbort(r);
    }
    return true;
}

// A rank that calls MPI_Abort (the C and Fortran bindings both end in
// PMPI_Abort) stops there, so the wait learns which rank gave up, with what
// code and from where, and the user can look at it. Left to itself the call
// ends the job through the launcher, whose own notice of it is not always
// printed. At the entry of the function, where the arguments are still in
// their registers: the library has no debug information to name them.
void MpiJob::catchAbort(Rank& r) {
    auto reply = r.session->send(QStringLiteral("-break-insert *PMPI_Abort"));
    if (reply->waitProcessingEvents(options_.commandTimeoutMs) && !reply->isError())
        r.abortBreakpoint = reply->record().results["bkpt"]["number"].asString();
}

bool MpiJob::launch(int count, const QString& program, const QStringList& args, QString& error) {
    if (count < 1) {
        error = QStringLiteral("An MPI job needs at least one rank.");
        return false;
    }
    if (!startLauncher(count, program, args, error) || !readProcTable(error) || !attachRanks(error))
        return false;
    // The launcher need not stop again.
    return command(*launcher_, QStringLiteral("-break-delete"), error);
}

bool MpiJob::attach(qint64 mpirunPid, QString& error) {
    attached_ = true;
    GdbSession::Options o;
    o.gdbPath = options_.gdbPath;
    o.inferiorTerminal = false;
    launcher_ = std::make_unique<GdbSession>(o);
    launcher_->setKillDebuggeeWithGdb(false);
    if (!launcher_->start({}, {}, &error))
        return false;
    if (!command(*launcher_, QStringLiteral("-target-attach %1").arg(mpirunPid), error)) {
        error = QStringLiteral("Cannot attach to the MPI launcher (pid %1): %2")
                    .arg(mpirunPid)
                    .arg(error);
        return false;
    }
    waitWithEventLoop([&] { return launcher_->targetState() == State::Stopped; },
                      options_.commandTimeoutMs);
    launcherPid_ = mpirunPid;
    const bool read = readProcTable(error);
    // The launcher goes on at once: its ranks may need it while they run.
    QString ignored;
    command(*launcher_, QStringLiteral("-target-detach"), ignored);
    launcher_->kill();
    launcher_.reset();
    return read && attachRanks(error);
}

bool MpiJob::insertBreakpoint(const QString& arguments, QString& error) {
    for (Rank& r : ranks_) {
        if (!command(*r.session, QStringLiteral("-break-insert ") + arguments, error)) {
            error = QStringLiteral("Rank %1: %2").arg(r.rank).arg(error);
            return false;
        }
    }
    return true;
}

QString MpiJob::whereIs(Rank& r) {
    return QStringLiteral("rank %1 is %2").arg(r.rank).arg(placeOf(r));
}

// "in f at file.c:12", "in PMPI_Abort, called from main at file.c:40".
QString MpiJob::placeOf(Rank& r) {
    auto reply = r.session->send(QStringLiteral("-stack-list-frames 0 15"));
    if (!reply->waitProcessingEvents(options_.commandTimeoutMs) || reply->isError())
        return QStringLiteral("somewhere gdb cannot tell");
    const mi::Value& stack = reply->record().results["stack"];
    QString innermost, own;
    for (const auto& m : stack.members()) {
        const mi::Value& f = m.value;
        const QString func = QString::fromStdString(f["func"].asString());
        // Frames without a name (code without symbols) say nothing.
        if (innermost.isEmpty() && !func.isEmpty() && func != QLatin1String("??"))
            innermost = func;
        // The first frame of the program's own sources (libraries may carry
        // line information of sources that are not on this machine).
        if (own.isEmpty() && f["file"] &&
            QFileInfo::exists(QString::fromStdString(f["fullname"].asString()))) {
            own = QStringLiteral("%1 at %2:%3")
                      .arg(func, QFileInfo(QString::fromStdString(f["file"].asString())).fileName(),
                           QString::fromStdString(f["line"].asString()));
            if (&m == &stack.members().front())
                return QStringLiteral("in %1").arg(own);
        }
    }
    if (innermost.isEmpty())
        innermost = QStringLiteral("code without symbols");
    if (own.isEmpty())
        return QStringLiteral("in %1").arg(innermost);
    return QStringLiteral("in %1, called from %2").arg(innermost, own);
}

// "rank 2 called MPI_Abort with error code 3 in main at heat.c:125": the
// code is the call's second argument, still in its register at the entry.
QString MpiJob::abortText(Rank& r) {
    QString code, ignored;
    // x86-64 passes it in rsi, AArch64 in x1.
    for (const char* reg : {"$rsi", "$x1"})
        if (command(*r.session,
                    QStringLiteral("-data-evaluate-expression \"(int)%1\"").arg(QLatin1String(reg)),
                    ignored, &code))
            break;
    auto reply = r.session->send(QStringLiteral("-stack-list-frames 1 15"));
    QString from;
    if (reply->waitProcessingEvents(options_.commandTimeoutMs) && !reply->isError()) {
        for (const auto& m : reply->record().results["stack"].members()) {
            const mi::Value& f = m.value;
            if (f["file"] && QFileInfo::exists(QString::fromStdString(f["fullname"].asString()))) {
                from = QStringLiteral(" in %1 at %2:%3")
                           .arg(QString::fromStdString(f["func"].asString()),
                                QFileInfo(QString::fromStdString(f["file"].asString())).fileName(),
                                QString::fromStdString(f["line"].asString()));
                break;
            }
        }
    }
    return QStringLiteral("rank %1 called MPI_Abort%2%3")
        .arg(r.rank)
        .arg(code.isEmpty() ? QString() : QStringLiteral(" with error code ") + code, from);
}

bool MpiJob::continueAll(int timeoutMs, QString& error) {
    return resumeAll(QStringLiteral("-exec-continue"), timeoutMs, error);
}

void MpiJob::interruptAll() {
    if (!resuming_)
        return;
    interrupted_ = true;
    for (Rank& r : ranks_)
        if (isDebugged(r.session) && r.session->targetState() == State::Running)
            r.session->send(QStringLiteral("-exec-interrupt"));
}

bool MpiJob::resumeAll(const QString& how, int timeoutMs, QString& error) {
    if (resuming_) {
        error = QStringLiteral("The ranks are running already.");
        return false;
    }
    resuming_ = true;
    interrupted_ = false;
    struct Done {
        bool& flag;
        ~Done() { flag = false; }
    } done{resuming_};
    const bool toBreakpoint = how == QLatin1String("-exec-continue");
    for (Rank& r : ranks_) {
        if (!isDebugged(r.session)) {
            error = QStringLiteral("The debugger of rank %1 has stopped.").arg(r.rank);
            return false;
        }
        // Open the debug gate the ranks of some MPI libraries wait on in
        // MPI_Init; where there is none the command fails, harmlessly.
        QString ignored;
        command(*r.session,
                QStringLiteral("-data-evaluate-expression ") +
                    quoted(QStringLiteral("*(volatile int*)&MPIR_debug_gate = 1")),
                ignored);
        r.stopReason.clear();
        r.stopSignal.clear();
        r.aborting = false;
        if (!command(*r.session, how, error)) {
            error = QStringLiteral("Rank %1: %2").arg(r.rank).arg(error);
            return false;
        }
    }
    if (launcherHeld_) {
        launcherHeld_ = false;
        if (!command(*launcher_, QStringLiteral("-exec-continue"), error))
            return false;
    }
    QElapsedTimer clock;
    clock.start();
    auto settled = [&] {
        for (const Rank& r : ranks_) {
            if (!r.session->isAlive())
                continue;
            const auto s = r.session->targetState();
            if (s == State::Running)
                return false;
        }
        return true;
    };
    auto anyAborting = [&] {
        for (const Rank& r : ranks_)
            if (r.aborting && r.session->isAlive() && r.session->targetState() == State::Stopped)
                return true;
        return false;
    };
    waitWithEventLoop([&] { return settled() || anyAborting(); }, timeoutMs);
    const bool aborted = anyAborting();
    // The others may be about to give up too, or wait for the ranks that
    // did: a moment for the former, then the latter are stopped where they
    // are, so that the words can say where.
    if (aborted && !waitWithEventLoop(settled, 1000)) {
        for (Rank& r : ranks_)
            if (r.session->isAlive() && r.session->targetState() == State::Running)
                r.session->send(QStringLiteral("-exec-interrupt"));
        waitWithEventLoop(settled, 10000);
    }

    QVector<int> dead, exited, running, signalled;
    for (const Rank& r : ranks_) {
        if (!r.session->isAlive())
            dead << r.rank;
        else if (r.session->targetState() != State::Stopped)
            (r.session->targetState() == State::Running ? running : exited) << r.rank;
        else if (r.stopReason == QLatin1String("signal-received") &&
                 !(interrupted_ && r.stopSignal == QLatin1String("SIGINT")))
            signalled << r.rank;
    }
    if (!dead.isEmpty()) {
        error = QStringLiteral("The debugger of %1 has stopped.").arg(rankListWords(dead));
        return false;
    }
    if (aborted) {
        QStringList what;
        for (Rank& r : ranks_) {
            if (!r.session->isAlive())
                continue;
            if (r.aborting && r.session->targetState() == State::Stopped)
                what << abortText(r);
            else if (exited.contains(r.rank))
                what << QStringLiteral("rank %1 %2")
                            .arg(r.rank)
                            .arg(r.exitText.isEmpty() ? QStringLiteral("exited") : r.exitText);
            else if (r.stopReason == QLatin1String("signal-received") &&
                     r.stopSignal == QLatin1String("SIGINT"))
                what << whereIs(r);
        }
        error = QStringLiteral("Not every rank %1: %2.")
                    .arg(toBreakpoint ? QStringLiteral("reached the breakpoint")
                                      : QStringLiteral("stopped"),
                         what.join(QStringLiteral(", ")));
        return false;
    }
    if (!exited.isEmpty() || !signalled.isEmpty()) {
        // The launcher's words on why (MPI_Abort) come through its terminal
        // after the ranks are gone.
        bool jobEnds = false;
        for (int r : exited) {
            const QString& how = ranks_[std::size_t(r)].exitText;
            jobEnds = jobEnds || (!how.isEmpty() && how != QLatin1String("exited") &&
                                  how != QLatin1String("exited with code 0"));
        }
        awaitLauncherWords(jobEnds);
        QStringList what;
        for (Rank& r : ranks_) {
            if (exited.contains(r.rank))
                what << QStringLiteral("rank %1 %2")
                            .arg(r.rank)
                            .arg(r.exitText.isEmpty() ? QStringLiteral("exited") : r.exitText);
            else if (signalled.contains(r.rank))
                what << QStringLiteral("%1 when %2 stopped it")
                            .arg(whereIs(r), r.stopSignal.isEmpty() ? QStringLiteral("a signal")
                                                                    : r.stopSignal);
        }
        error = QStringLiteral("Not every rank %1: %2.")
                    .arg(toBreakpoint ? QStringLiteral("reached the breakpoint")
                                      : QStringLiteral("stopped"),
                         what.join(QStringLiteral(", ")));
        const QString abort = abortWords();
        if (!abort.isEmpty()) {
            error += QStringLiteral(" The launcher said: ") + abort;
        } else if (jobEnds) {
            // Open MPI's launcher now and then loses its own notice (the
            // aborting rank ends before the notice is whole); the ranks'
            // own lines on why pass through its output all the same.
            const QString lines = firstLauncherLines();
            if (!lines.isEmpty())
                error += QStringLiteral(" The launcher said:\n") + lines;
        }
        return false;
    }
    if (!running.isEmpty()) {
        // Stop them to say where they are; they stay stopped there.
        for (int r : running)
            ranks_[std::size_t(r)].session->send(QStringLiteral("-exec-interrupt"));
        waitWithEventLoop(settled, 10000);
        QStringList where;
        for (int r : running) {
            Rank& rank = ranks_[std::size_t(r)];
            if (rank.session->isAlive() && rank.session->targetState() == State::Stopped)
                where << whereIs(rank);
            else
                where << QStringLiteral("rank %1 did not stop when interrupted").arg(r);
        }
        error =
            QStringLiteral("%1 did not %2 within %3 s: %4.")
                .arg(rankListWords(running),
                     toBreakpoint ? QStringLiteral("reach the breakpoint") : QStringLiteral("stop"))
                .arg(timeoutMs / 1000.0)
                .arg(where.join(QStringLiteral("; ")));
        error[0] = error[0].toUpper();
        return false;
    }
    return true;
}

void MpiJob::end() {
    if (ended_)
        return;
    ended_ = true;
    if (attached_) {
        for (Rank& r : ranks_) {
            if (!isDebugged(r.session))
                continue;
            if (r.session->targetState() == State::Running) {
                auto stop = r.session->send(QStringLiteral("-exec-interrupt"));
                stop->waitProcessingEvents(5000);
                waitWithEventLoop([&] { return r.session->targetState() != State::Running; }, 5000);
            }
            QString ignored;
            command(*r.session, QStringLiteral("-target-detach"), ignored);
        }
    }
    for (Rank& r : ranks_) {
        if (r.session) {
            r.session->kill();
            r.session.reset();
        }
        // A rank this job launched goes with it, even one no gdb holds yet;
        // only while it is still the launcher's child, so that a pid used
        // again by now is never hit.
        if (!attached_ && r.pid > 0 && parentOf(r.pid) == launcherPid_ && launcherPid_ > 0)
            ::kill(pid_t(r.pid), SIGKILL);
    }
    if (launcher_) {
        launcher_->kill();
        launcher_.reset();
    }
}

} // namespace arraylens::gdb
