// The window on an MPI job: the job's start, the rank list, and the run
// controls over every rank.
#include "shell/debuggerwindow.h"

#include "gdbexpression.h"
#include "mpidebugger.h"
#include "mpijob.h"
#include "mpistart.h"
#include "shell/mireplies.h"

#include <QAction>
#include <QCloseEvent>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QTabWidget>
#include <QTimer>
#include <QTreeWidget>

namespace shell {

using arraylens::gdb::GdbFrame;
using arraylens::gdb::GdbSession;
using arraylens::gdb::MiReply;
using arraylens::gdb::MpiDebugger;
using arraylens::gdb::MpiJob;

namespace {
const int kRanksRole = Qt::UserRole + 1;

// The ranks an entry of the rank list stands for.
QVector<int> ranksOf(const QTreeWidgetItem* item) {
    QVector<int> ranks;
    for (const QVariant& v : item->data(0, kRanksRole).toList())
        ranks << v.toInt();
    return ranks;
}
} // namespace

arraylens::gdb::MpiDebugger* DebuggerWindow::mpiDebugger() const {
    return job_ ? static_cast<MpiDebugger*>(backend_.data()) : nullptr;
}

bool DebuggerWindow::startMpi(QString* error) {
    MpiJob::Options jobOptions;
    jobOptions.gdbPath = options_.gdbPath;
    jobOptions.mpirun = options_.mpirun;
    job_ = std::make_unique<MpiJob>(jobOptions);
    // The ranks' output reaches the launcher's terminal.
    connect(job_.get(), &MpiJob::launcherOutputArrived, this,
            [this](const QByteArray& bytes) { appendConsole(QString::fromLocal8Bit(bytes)); });
    const arraylens::gdb::MpiStart start = arraylens::gdb::mpiStartOf(options_);
    setStatus(start.attachPid > 0
                  ? QStringLiteral("Attaching to the ranks of mpirun %1").arg(start.attachPid)
                  : QStringLiteral("Starting %1 ranks").arg(start.ranks));
    if (!arraylens::gdb::openMpiJob(*job_, start, *error)) {
        setStatus(*error);
        job_->end();
        job_.reset();
        return false;
    }
    QVector<int> chosen;
    if (!options_.ranks.isEmpty() &&
        !arraylens::gdb::parseRankList(options_.ranks, job_->size(), chosen, *error)) {
        setStatus(*error);
        job_->end();
        job_.reset();
        return false;
    }

    auto* mpi = new MpiDebugger(job_.get());
    if (!chosen.isEmpty())
        mpi->select(chosen);
    installDebugger(QSharedPointer<IHVDebugger>(mpi));
    gdbDebugger_ = mpi->focusDebugger();
    connectSession(job_->session(mpi->focusRank()));
    for (int r = 0; r < job_->size(); ++r) {
        GdbSession* s = job_->session(r);
        connect(s, &GdbSession::targetStateChanged, this, &DebuggerWindow::handleMpiTargetState);
        connect(s, &GdbSession::died, this, [this, r] {
            setStatus(QStringLiteral("The debugger of rank %1 has stopped.").arg(r));
            handleMpiTargetState();
        });
    }
    buildRankList();

    if (!loadPlugin(error)) {
        setStatus(*error);
        return false;
    }
    core_->theme.setTheme(core_->theme.getThemeName());
    // The view hears the debugger become connected (the gdbs are up by now).
    mpi->setContextManager(&core_->contexts);
    const QString program =
        job_->size() > 0 ? QFileInfo(job_->rank(0).executable).fileName() : QString();
    setWindowTitle(QStringLiteral("Array Lens - %1 (%2 ranks)").arg(program).arg(job_->size()));
    pendingEvals_ = options_.evals;
    if (start.runsToFirstStop())
        runMpi(QStringLiteral("-exec-continue"));
    else
        focusOnRank(false);
    return true;
}

void DebuggerWindow::buildRankList() {
    rankList_ = new QTreeWidget;
    rankList_->setObjectName(QStringLiteral("RankList"));
    rankList_->setHeaderLabels({QStringLiteral("Rank"), QStringLiteral("Process")});
    rankList_->setRootIsDecorated(false);
    rankList_->setUniformRowHeights(true);
    rankList_->header()->setStretchLastSection(true);
    auto add = [this](const QString& text, const QString& detail, const QVector<int>& ranks) {
        auto* item = new QTreeWidgetItem(rankList_);
        item->setText(0, text);
        item->setText(1, detail);
        QVariantList list;
        for (int r : ranks)
            list << r;
        item->setData(0, kRanksRole, list);
        return item;
    };
    QVector<int> all;
    for (int r = 0; r < job_->size(); ++r)
        all << r;
    // Threads, stack and locals are one process's: with more than one rank
    // chosen they are the first one's, and the list says so.
    add(QStringLiteral("all ranks"), QStringLiteral("threads, stack and locals of rank 0"), all);
    const QVector<int>& chosen = mpiDebugger()->selection();
    if (chosen.size() > 1 && chosen != all)
        add(arraylens::gdb::rankListWords(chosen),
            QStringLiteral("threads, stack and locals of rank %1").arg(chosen.front()), chosen);
    for (int r = 0; r < job_->size(); ++r) {
        const MpiJob::Rank& rank = job_->rank(r);
        add(QStringLiteral("rank %1").arg(r),
            QStringLiteral("pid %1 on %2").arg(rank.pid).arg(rank.host), {r});
    }
    for (int i = 0; i < rankList_->topLevelItemCount(); ++i)
        if (ranksOf(rankList_->topLevelItem(i)) == chosen)
            rankList_->setCurrentItem(rankList_->topLevelItem(i));
    rankList_->resizeColumnToContents(0);
    connect(rankList_, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item) { chooseRanks(ranksOf(item)); });
    // Beside the threads.
    sideTabs_->insertTab(sideTabs_->indexOf(threads_) + 1, rankList_, QStringLiteral("Ranks"));
}

bool DebuggerWindow::chooseRanks(const QVector<int>& ranks) {
    MpiDebugger* mpi = mpiDebugger();
    if (!mpi || mpi->running() || !mpi->select(ranks))
        return false;
    for (int i = 0; i < rankList_->topLevelItemCount(); ++i)
        if (ranksOf(rankList_->topLevelItem(i)) == ranks)
            rankList_->setCurrentItem(rankList_->topLevelItem(i));
    focusOnRank(true);
    return true;
}

void DebuggerWindow::focusOnRank(bool select) {
    MpiDebugger* mpi = mpiDebugger();
    const int focus = mpi->focusRank();
    if (job_->session(focus) != session_)
        connectSession(job_->session(focus));
    gdbDebugger_ = mpi->focusDebugger();
    if (select) {
        // A new process set: the view unbinds every expression it holds...
        process_ = QSharedPointer<ShellProcess>(new ShellProcess(job_->rank(focus).pid),
                                                &QObject::deleteLater);
        NQ::QSharedObjectSelection selection({process_});
        core_->selections.select(QString::fromLatin1(NQ::Ids::SELECTION_PROCESS), nullptr,
                                 &selection);
    }
    if (!session_->isAlive() || session_->targetState() != GdbSession::TargetState::Stopped) {
        setStatus(QStringLiteral("Rank %1 is not stopped.").arg(focus));
        return;
    }
    // ...and the focus frame of the rank (its current thread's innermost)
    // has the one on show evaluated anew there.
    session_->send(QStringLiteral("-thread-info"), [this, select, focus](const MiReply& r) {
        if (r.isError() || !mpiDebugger() || mpiDebugger()->focusRank() != focus)
            return;
        const QVariantMap results = resultsOf(r);
        const QString current = results.value(QStringLiteral("current-thread-id")).toString();
        QVariantMap frame;
        for (const QVariant& entry : results.value(QStringLiteral("threads")).toList())
            if (entry.toMap().value(QStringLiteral("id")).toString() == current)
                frame = entry.toMap().value(QStringLiteral("frame")).toMap();
        if (!select) {
            // Attached where the ranks were: that is the first stop.
            QVariantMap stop;
            stop.insert(QStringLiteral("reason"), QStringLiteral("attached"));
            stop.insert(QStringLiteral("frame"), frame);
            stop.insert(QStringLiteral("thread-id"), current);
            handleStopped(stop);
            return;
        }
        frame.insert(QStringLiteral("level"), 0);
        const arraylens::gdb::FrameInfo info = frameInfo(frame, current);
        auto f = QSharedPointer<IHVFrame>(new GdbFrame(info), &QObject::deleteLater);
        corePlugin_->currentThread =
            QSharedPointer<IHVThread>(new ShellThread(current), &QObject::deleteLater);
        corePlugin_->currentFrame = f;
        showSource(info.fullname, info.file, info.line);
        const MpiDebugger* mpi = mpiDebugger();
        setStatus(QStringLiteral("%1 chosen; rank %2 in %3 at %4:%5, thread %6")
                      .arg(mpi->allRanks() ? QStringLiteral("All ranks")
                                           : arraylens::gdb::rankListWords(mpi->selection()))
                      .arg(focus)
                      .arg(info.function, info.file)
                      .arg(info.line)
                      .arg(current));
        refreshLists();
        NQ::QSharedObjectSelection selection({f});
        core_->selections.select(QString::fromLatin1(NQ::Ids::SELECTION_FRAME), nullptr,
                                 &selection);
    });
}

void DebuggerWindow::runMpi(const QString& command) {
    MpiDebugger* mpi = mpiDebugger();
    if (!mpi || mpi->running())
        return;
    heldStop_.clear();
    setStatus(QStringLiteral("Running all %1 ranks").arg(job_->size()));
    QString error;
    // Waits, the event loop turning, until every rank has stopped; the
    // focus rank's stop reaches the view then, and the lists after it.
    const bool ok = mpi->runAll(command, options_.stopTimeoutMs, error);
    if (!heldStop_.isEmpty())
        handleStopped(heldStop_);
    handleMpiTargetState();
    if (ok) {
        setStatus(QStringLiteral("All %1 ranks stopped. Rank %2: %3")
                      .arg(job_->size())
                      .arg(mpi->focusRank())
                      .arg(statusText()));
    } else {
        setStatus(error);
        appendConsole(error + QLatin1Char('\n'));
    }
    if (closeAfterRun_)
        QTimer::singleShot(0, this, &QWidget::close);
}

void DebuggerWindow::handleMpiTargetState() {
    MpiDebugger* mpi = mpiDebugger();
    if (!mpi || runActions_.isEmpty())
        return;
    const bool running = mpi->running();
    const bool stopped = !running && mpi->allStopped();
    for (const char* name : {"continue", "next", "step", "finish"})
        runActions_.value(QString::fromLatin1(name))->setEnabled(stopped);
    runActions_.value(QStringLiteral("interrupt"))->setEnabled(running);
    // A job is not run anew, nor ended, from here: closing the window ends
    // what it launched.
    runActions_.value(QStringLiteral("run"))->setEnabled(false);
    runActions_.value(QStringLiteral("kill"))->setEnabled(false);
    stack_->setEnabled(!running);
    locals_->setEnabled(!running);
    if (rankList_)
        rankList_->setEnabled(!running);
}

void DebuggerWindow::closeEvent(QCloseEvent* event) {
    // The ranks are waited for on this window's turn of the event loop: stop
    // them first, and close once they are.
    if (job_ && job_->resuming()) {
        closeAfterRun_ = true;
        job_->interruptAll();
        setStatus(QStringLiteral("Stopping every rank before closing"));
        event->ignore();
        return;
    }
    QMainWindow::closeEvent(event);
}

} // namespace shell
