// The window on an MPI job of the heat solver: two ranks (oversubscribed),
// every rank under a real gdb, one job for all the checks. Expected numbers
// come from the bands the ranks wrote to their own reference files.
#include "mpi/mpirig.h"
#include "shellrig.h"

#include "mpidebugger.h"

#include <QAction>
#include <QProcess>
#include <QTimer>
#include <QTreeWidget>

using namespace shelltest;

namespace {

const QString kStats = QStringLiteral("ArrayStatisticsRequest");
const QString kBand = QStringLiteral("u[1]@nloc");

QTreeWidgetItem* rankItem(QTreeWidget* list, const QString& text) {
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        if (list->topLevelItem(i)->text(0) == text)
            return list->topLevelItem(i);
    return nullptr;
}

// The statistics on show against what the values give.
void expectShown(const QMap<QString, QString>& shown, const std::vector<double>& values) {
    ASSERT_FALSE(shown.isEmpty()) << "no statistics on show";
    const mpitest::Expected e = mpitest::expectedOf(values);
    EXPECT_EQ(shown.value("Count").toULongLong(), e.count);
    const QList<QPair<QString, double>> pairs = {
        {"Sum", e.sum},       {"Minimum", e.min},       {"Maximum", e.max},
        {"Median", e.median}, {"First Quartile", e.q1}, {"Third Quartile", e.q3},
    };
    for (const auto& p : pairs)
        EXPECT_TRUE(near(shown.value(p.first).toDouble(), p.second))
            << qPrintable(p.first) << ": shown " << qPrintable(shown.value(p.first))
            << ", the ranks wrote " << p.second;
}

// The step a rank's reference file is of.
int stepOf(const QString& prefix, int rank) {
    QFile f(QStringLiteral("%1.rank%2").arg(prefix).arg(rank));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray first = f.readLine().trimmed();
    return first.startsWith("step=") ? first.mid(5).toInt() : -1;
}

// `--mpi 2 --break STOP -- mpi_heat PREFIX 48 STEPS 50`: 48 rows, a report
// every 50 steps.
shell::Options launchOf(const QString& prefix, const QString& steps, const QString& stop) {
    shell::Options o;
    o.mpiRanks = 2;
    o.program = exampleProgram(QStringLiteral("example_mpi_heat"));
    o.programArgs = QStringList{prefix, QStringLiteral("48"), steps, QStringLiteral("50")};
    o.breaks = QStringList{breakLocation(stop)};
    return o;
}

TEST(MpiWindow, RanksAsTheProcessSelectionRunTogetherAndEndWithTheWindow) {
    ShellRig rig;
    const QString prefix = rig.dir.filePath(QStringLiteral("band"));
    // Two reports: steps 50 and 100.
    shell::Options o = launchOf(prefix, QStringLiteral("100"), QStringLiteral("mpi_heat.report"));
    o.stopTimeoutMs = 120000;
    ASSERT_TRUE(rig.start(o));
    arraylens::gdb::MpiJob* job = rig.window->mpiJob();
    ASSERT_NE(job, nullptr);
    ASSERT_EQ(job->size(), 2);
    QVector<qint64> pids{job->launcherPid(), job->rank(0).pid, job->rank(1).pid};
    pids << job->gdbPids();
    for (qint64 pid : pids)
        EXPECT_TRUE(mpitest::alive(pid)) << pid;
    EXPECT_EQ(stepOf(prefix, 0), 50);
    EXPECT_EQ(stepOf(prefix, 1), 50);

    // The rank list beside the threads: all ranks, then each rank.
    QTreeWidget* ranks = rig.window->rankList();
    ASSERT_NE(ranks, nullptr);
    ASSERT_EQ(ranks->topLevelItemCount(), 3);
    EXPECT_EQ(ranks->topLevelItem(0)->text(0), "all ranks");
    EXPECT_EQ(ranks->topLevelItem(0)->text(1), "threads, stack and locals of rank 0");
    EXPECT_EQ(ranks->topLevelItem(1)->text(0), "rank 0");
    EXPECT_EQ(ranks->topLevelItem(2)->text(0), "rank 1");
    EXPECT_EQ(ranks->currentItem(), ranks->topLevelItem(0));
    auto* tabs = rig.window->findChild<QTabWidget*>("ToolTabs");
    ASSERT_NE(tabs, nullptr);
    EXPECT_EQ(tabs->indexOf(ranks),
              tabs->indexOf(rig.window->findChild<QWidget*>("ThreadList")) + 1);
    EXPECT_TRUE(rig.window->statusText().startsWith("All 2 ranks stopped."))
        << qPrintable(rig.window->statusText());

    // All ranks: the statistics cover both bands.
    const std::vector<double> band0 = mpitest::readBand(prefix, 0).values;
    const std::vector<double> band1 = mpitest::readBand(prefix, 1).values;
    ASSERT_EQ(band0.size(), std::size_t(24 * 64));
    ASSERT_EQ(band1.size(), std::size_t(24 * 64));
    std::vector<double> both = band0;
    both.insert(both.end(), band1.begin(), band1.end());
    ASSERT_TRUE(rig.window->typeIntoArrayLens(kBand));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0)) << qPrintable(rig.window->statusText());
    EXPECT_EQ(rig.statistics().value("Count").toULongLong(), band0.size() + band1.size());
    expectShown(rig.statistics(), both);

    // Rank 1 chosen: the held expression is evaluated anew there, and
    // Update shows that rank's band alone; the lists are rank 1's.
    auto* update = rig.window->findChild<QAction*>("UpdateAction");
    ASSERT_NE(update, nullptr);
    EXPECT_FALSE(update->isEnabled());
    emit ranks->itemClicked(rankItem(ranks, "rank 1"), 0);
    EXPECT_EQ(rig.window->mpiDebugger()->selection(), QVector<int>{1});
    EXPECT_EQ(rig.window->session(), job->session(1));
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 20000));
    int before = rig.answerCount(kStats);
    QSharedPointer<QObject> answer;
    QObject::connect(rig.window->debugger(), &shell::ObservedDebugger::answered,
                     [&](const QString&, const QSharedPointer<QObject>& bag) { answer = bag; });
    update->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->property("result").toString(), "done")
        << qPrintable(answer->property("msg").toString());
    expectShown(rig.statistics(), band1);
    ASSERT_TRUE(waitFor([&] { return rig.window->listsCurrent(); }));
    auto* threads = rig.window->findChild<QTreeWidget*>("ThreadList");
    ASSERT_GE(threads->topLevelItemCount(), 1);
    EXPECT_EQ(threads->topLevelItem(0)->text(0),
              QStringLiteral("Process %1").arg(job->rank(1).pid));

    // Back to all ranks, then Continue: every rank runs to its next report,
    // and Update shows the numbers they wrote there.
    emit ranks->itemClicked(rankItem(ranks, "all ranks"), 0);
    EXPECT_EQ(rig.window->mpiDebugger()->selection(), (QVector<int>{0, 1}));
    EXPECT_EQ(rig.window->session(), job->session(0));
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 20000));
    auto* cont = rig.window->findChild<QAction*>("continueAction");
    ASSERT_TRUE(cont->isEnabled());
    EXPECT_FALSE(rig.window->findChild<QAction*>("runAction")->isEnabled());
    EXPECT_FALSE(rig.window->findChild<QAction*>("killAction")->isEnabled());
    const int stops = rig.window->stopCount();
    cont->trigger();
    ASSERT_TRUE(rig.waitForStops(stops + 1));
    EXPECT_EQ(stepOf(prefix, 0), 100);
    EXPECT_EQ(stepOf(prefix, 1), 100);
    std::vector<double> later = mpitest::readBand(prefix, 0).values;
    const std::vector<double> later1 = mpitest::readBand(prefix, 1).values;
    later.insert(later.end(), later1.begin(), later1.end());
    ASSERT_NE(later, both);
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 20000));
    before = rig.answerCount(kStats);
    update->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    expectShown(rig.statistics(), later);

    // Next steps every rank over the report line, together.
    auto* source = rig.window->findChild<QWidget*>("SourcePane");
    ASSERT_NE(source, nullptr);
    const int reportLine = source->property("currentLine").toInt();
    EXPECT_EQ(QStringLiteral("%1").arg(reportLine),
              breakLocation(QStringLiteral("mpi_heat.report")).section(QLatin1Char(':'), -1));
    auto* next = rig.window->findChild<QAction*>("nextAction");
    ASSERT_TRUE(next->isEnabled());
    next->trigger();
    ASSERT_TRUE(rig.waitForStops(stops + 2));
    EXPECT_EQ(source->property("currentLine").toInt(), reportLine + 1);
    EXPECT_TRUE(rig.window->statusText().startsWith("All 2 ranks stopped."))
        << qPrintable(rig.window->statusText());
    EXPECT_TRUE(rig.window->mpiDebugger()->allStopped());

    // On past the last report the ranks end: the window says so, and the
    // run controls are off.
    ASSERT_TRUE(cont->isEnabled());
    cont->trigger();
    // (gdb gives no code for a normal exit.)
    EXPECT_EQ(rig.window->statusText(),
              "Not every rank reached the breakpoint: rank 0 exited, rank 1 exited.")
        << qPrintable(rig.window->statusText());
    EXPECT_FALSE(cont->isEnabled());
    EXPECT_FALSE(next->isEnabled());
    // A rank's gdb that dies is named.
    const qint64 gdb1 = job->session(1)->gdbPid();
    ASSERT_GT(gdb1, 0);
    ::kill(pid_t(gdb1), SIGKILL);
    EXPECT_TRUE(waitFor(
        [&] { return rig.window->statusText() == "The debugger of rank 1 has stopped."; }, 10000))
        << qPrintable(rig.window->statusText());

    // Closing the window ends the ranks, their gdbs and mpirun.
    rig.window->close();
    rig.window.reset();
    const QString left = mpitest::leftAlive(pids, 15000);
    EXPECT_TRUE(left.isEmpty()) << "left running: " << qPrintable(left);
}

} // namespace

namespace {

TEST(MpiWindow, AnAttachedJobIsShownAndLeftRunningWhenTheWindowCloses) {
    ShellRig rig;
    const QString prefix = rig.dir.filePath(QStringLiteral("band"));
    QProcess mpirun;
    // Long enough to outlast the test; a report every 200 steps.
    ASSERT_TRUE(
        mpitest::startPlainJob(mpirun, prefix, QStringLiteral("100000000"), QStringLiteral("200")));

    shell::Options o;
    o.attachMpiPid = mpirun.processId();
    o.breaks = QStringList{breakLocation(QStringLiteral("mpi_heat.report"))};
    o.stopTimeoutMs = 60000;
    // Rank 1 chosen from the start.
    o.ranks = QStringLiteral("1");
    ASSERT_TRUE(rig.start(o));
    arraylens::gdb::MpiJob* job = rig.window->mpiJob();
    ASSERT_EQ(job->size(), 2);
    QTreeWidget* ranks = rig.window->rankList();
    ASSERT_EQ(ranks->topLevelItemCount(), 3);
    EXPECT_EQ(ranks->currentItem(), rankItem(ranks, "rank 1"));
    EXPECT_EQ(rig.window->session(), job->session(1));

    // Stopped at a report: the files are of this stop.
    const std::vector<double> band0 = mpitest::readBand(prefix, 0).values;
    std::vector<double> both = band0;
    const std::vector<double> band1 = mpitest::readBand(prefix, 1).values;
    both.insert(both.end(), band1.begin(), band1.end());
    ASSERT_EQ(both.size(), std::size_t(48 * 64));
    ASSERT_TRUE(rig.window->typeIntoArrayLens(kBand));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0)) << qPrintable(rig.window->statusText());
    expectShown(rig.statistics(), band1);

    // All ranks, then rank 0 alone: the process dimension comes and goes.
    auto* update = rig.window->findChild<QAction*>("UpdateAction");
    for (const QVector<int>& set : {QVector<int>{0, 1}, QVector<int>{0}}) {
        ASSERT_TRUE(rig.window->chooseRanks(set));
        ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 20000));
        const int before = rig.answerCount(kStats);
        update->trigger();
        ASSERT_TRUE(rig.waitForAnswer(kStats, before));
        expectShown(rig.statistics(), set.size() == 2 ? both : band0);
    }

    // Closing lets the ranks go: they run on, traced by no one.
    const qint64 rank0 = job->rank(0).pid, rank1 = job->rank(1).pid;
    const QVector<qint64> gdbs = job->gdbPids();
    rig.window->close();
    rig.window.reset();
    EXPECT_TRUE(waitFor(
        [&] { return mpitest::tracerOf(rank0) == 0 && mpitest::tracerOf(rank1) == 0; }, 10000));
    EXPECT_TRUE(mpitest::alive(rank0));
    EXPECT_TRUE(mpitest::alive(rank1));
    EXPECT_EQ(mpirun.state(), QProcess::Running);
    for (qint64 pid : gdbs)
        EXPECT_TRUE(waitFor([&] { return !mpitest::alive(pid); }, 10000)) << pid;
    mpirun.terminate();
    mpirun.waitForFinished(10000);
    EXPECT_TRUE(waitFor([&] { return !mpitest::alive(rank0) && !mpitest::alive(rank1); }, 10000));
}

} // namespace

namespace {

// A stop that only rank 0 reaches (the summary line): rank 1 waits for it
// in its next exchange and never stops on its own.
TEST(MpiWindow, RanksThatDoNotStopAreNamedInterruptStopsAllAndCloseWaitsForThem) {
    ShellRig rig;
    const QString prefix = rig.dir.filePath(QStringLiteral("band"));
    shell::Options o =
        launchOf(prefix, QStringLiteral("100000000"), QStringLiteral("mpi_heat.summary"));
    o.stopTimeoutMs = 4000;
    ASSERT_TRUE(rig.start(o));
    arraylens::gdb::MpiJob* job = rig.window->mpiJob();
    QVector<qint64> pids{job->launcherPid(), job->rank(0).pid, job->rank(1).pid};
    pids << job->gdbPids();
    // Rank 1 was interrupted where it waited, and the words say where.
    const QString status = rig.window->statusText();
    EXPECT_TRUE(status.startsWith("Rank 1 did not reach the breakpoint within 4 s: rank 1 "))
        << qPrintable(status);
    EXPECT_TRUE(rig.window->mpiDebugger()->allStopped());
    auto* cont = rig.window->findChild<QAction*>("continueAction");
    auto* interrupt = rig.window->findChild<QAction*>("interruptAction");
    ASSERT_TRUE(cont->isEnabled());
    EXPECT_FALSE(interrupt->isEnabled());

    // Continue, and Interrupt while rank 1 runs: every rank stops, and it
    // counts as a stop of the job.
    bool interruptWasOn = false;
    QTimer::singleShot(1500, [&] {
        interruptWasOn = interrupt->isEnabled();
        interrupt->trigger();
    });
    const int stops = rig.window->stopCount();
    cont->trigger();
    EXPECT_TRUE(interruptWasOn);
    ASSERT_TRUE(rig.waitForStops(stops + 1));
    EXPECT_TRUE(rig.window->statusText().startsWith("All 2 ranks stopped."))
        << qPrintable(rig.window->statusText());
    EXPECT_TRUE(rig.window->mpiDebugger()->allStopped());

    // Closing while the ranks run stops them first; the window goes once
    // they have, and takes the job along.
    QTimer::singleShot(1500, [&] { rig.window->close(); });
    cont->trigger();
    EXPECT_TRUE(waitFor([&] { return !rig.window->isVisible(); }, 10000));
    rig.window.reset();
    const QString left = mpitest::leftAlive(pids, 15000);
    EXPECT_TRUE(left.isEmpty()) << "left running: " << qPrintable(left);
}

} // namespace
