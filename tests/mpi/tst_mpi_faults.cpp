// What goes wrong with a job: no launcher, a rank that calls MPI_Abort,
// ranks that never reach the breakpoint, a rank's gdb that dies; and a
// running job attached to and left running. Each ends with no rank, no
// launcher and no gdb of the job left.
#include "mpirig.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

using namespace mpitest;

TEST(MpiFaults, AMissingLauncherIsNamed) {
    MpiJob::Options o;
    o.mpirun = QStringLiteral("/nonexistent/mpirun");
    MpiJob job(o);
    QString error;
    EXPECT_FALSE(job.launch(2, examples::program(QStringLiteral("example_mpi_heat")), {}, error));
    EXPECT_TRUE(
        error.startsWith(QLatin1String("Cannot find the MPI launcher '/nonexistent/mpirun'")))
        << error.toStdString();
    EXPECT_TRUE(job.gdbPids().isEmpty());
}

TEST(MpiFaults, ARankThatAbortsIsNamedWithItsCodeAndWhereItGaveUp) {
    JobRig rig;
    // Six rows over four ranks: ranks 2 and 3 get one row each and abort
    // with code 3; ranks 0 and 1 wait for them in their first exchange.
    EXPECT_FALSE(rig.launch(4, 6));
    EXPECT_TRUE(rig.error.startsWith(QLatin1String("Not every rank reached the breakpoint: ")))
        << rig.error.toStdString();
    const QRegularExpression gaveUp(QStringLiteral(
        "rank ([23]) called MPI_Abort with error code 3 in main at mpi_heat\\.c:(\\d+)"));
    const QRegularExpressionMatch m = gaveUp.match(rig.error);
    ASSERT_TRUE(m.hasMatch()) << rig.error.toStdString();
    // The line is the program's own call of MPI_Abort for too few rows.
    const QString summary = examples::breakLocation(QStringLiteral("mpi_heat.summary"));
    QFile source(summary.left(summary.lastIndexOf(QLatin1Char(':'))));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = source.readAll().split('\n');
    const int line = m.captured(2).toInt();
    ASSERT_GE(line, 1);
    ASSERT_LE(line, lines.size());
    EXPECT_TRUE(lines[line - 1].contains("MPI_Abort(MPI_COMM_WORLD, 3)"))
        << lines[line - 1].constData();
    // The ranks that did not give up are named with where they wait.
    EXPECT_TRUE(rig.error.contains(QRegularExpression(QStringLiteral("rank [01] is in "))))
        << rig.error.toStdString();
    QString left;
    EXPECT_TRUE(rig.endAndCheckNothingLeft(&left)) << left.toStdString();
}

TEST(MpiFaults, RanksThatDoNotStopInTimeAreNamedWithWhereTheyAre) {
    JobRig rig;
    ASSERT_TRUE(rig.launch(3, 48)) << rig.error.toStdString();
    // Only rank 0 passes the summary line; the others wait for it in their
    // next exchange.
    const QString summary = examples::breakLocation(QStringLiteral("mpi_heat.summary"));
    ASSERT_TRUE(rig.job->insertBreakpoint(
        QString::fromStdString(arraylens::mi::quoteCString(summary.toStdString())), rig.error));
    EXPECT_FALSE(rig.job->continueAll(3000, rig.error));
    EXPECT_TRUE(rig.error.startsWith(
        QLatin1String("Ranks 1 and 2 did not reach the breakpoint within 3 s: rank 1 is in ")))
        << rig.error.toStdString();
    EXPECT_TRUE(rig.error.contains(QLatin1String("mpi_heat.c:"))) << rig.error.toStdString();
    EXPECT_TRUE(rig.error.contains(QLatin1String("; rank 2 is in "))) << rig.error.toStdString();
    QString left;
    EXPECT_TRUE(rig.endAndCheckNothingLeft(&left)) << left.toStdString();
}

TEST(MpiFaults, ARanksGdbThatDiesIsNamedAndTakesItsRankAlong) {
    JobRig rig;
    ASSERT_TRUE(rig.launch(2, 48)) << rig.error.toStdString();
    const qint64 rankPid = rig.job->rank(1).pid;
    ::kill(pid_t(rig.job->session(1)->gdbPid()), SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return !rig.job->session(1)->isAlive(); }, 10000));
    QVariantMap f = rig.request(Operation::Statistics, QStringLiteral("u[1]@nloc"));
    EXPECT_EQ(f.value("result").toString(), QStringLiteral("error"));
    EXPECT_EQ(f.value("msg").toString(), QStringLiteral("The debugger of rank 1 has stopped."));
    // A rank left stopped without its debugger would hold the job forever.
    EXPECT_TRUE(waitUntil([&] { return !alive(rankPid); }, 10000));
    QString left;
    EXPECT_TRUE(rig.endAndCheckNothingLeft(&left)) << left.toStdString();
}

TEST(MpiFaults, AnAttachedJobIsLeftRunning) {
    QTemporaryDir dir;
    const QString prefix = dir.filePath(QStringLiteral("band"));
    QProcess mpirun;
    // Long enough to outlast the test; it reports every 200 steps.
    ASSERT_TRUE(startPlainJob(mpirun, prefix, QStringLiteral("100000000"), QStringLiteral("200")));

    MpiJob::Options o;
    MpiJob job(o);
    QString error;
    ASSERT_TRUE(job.attach(mpirun.processId(), error)) << error.toStdString();
    ASSERT_EQ(job.size(), 2);
    const QString location = examples::breakLocation(QStringLiteral("mpi_heat.report"));
    ASSERT_TRUE(job.insertBreakpoint(
        QString::fromStdString(arraylens::mi::quoteCString(location.toStdString())), error))
        << error.toStdString();
    ASSERT_TRUE(job.continueAll(60000, error)) << error.toStdString();

    RequestSnapshot r;
    r.operation = Operation::ArrayInfo;
    r.expression = QStringLiteral("u[1]@nloc");
    const QVariantMap info = runRequest({{0, job.session(0)}, {1, job.session(1)}}, r);
    EXPECT_EQ(info.value("ArrayBounds").toStringList(),
              QStringList({QStringLiteral("0:1"), QStringLiteral("0:23"), QStringLiteral("0:63")}))
        << info.value("msg").toString().toStdString();

    const qint64 rank0 = job.rank(0).pid, rank1 = job.rank(1).pid;
    const QVector<qint64> gdbs = job.gdbPids();
    job.end();
    // The ranks run on, traced by no one, and the gdbs are gone.
    EXPECT_TRUE(waitUntil([&] { return tracerOf(rank0) == 0 && tracerOf(rank1) == 0; }, 10000));
    EXPECT_TRUE(alive(rank0));
    EXPECT_TRUE(alive(rank1));
    EXPECT_EQ(mpirun.state(), QProcess::Running);
    for (qint64 pid : gdbs)
        EXPECT_TRUE(waitUntil([&] { return !alive(pid); }, 10000)) << pid;
    const qint64 before = readBand(prefix, 0).values.size();
    EXPECT_EQ(before, 24 * 64);
    mpirun.terminate();
    mpirun.waitForFinished(10000);
    EXPECT_TRUE(waitUntil([&] { return !alive(rank0) && !alive(rank1); }, 10000));
}
