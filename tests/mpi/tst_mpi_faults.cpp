// What goes wrong with a job: no launcher, a rank that calls MPI_Abort,
// ranks that never reach the breakpoint, a rank's gdb that dies; and a
// running job attached to and left running. Each ends with no rank, no
// launcher and no gdb of the job left.
#include "mpirig.h"

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

TEST(MpiFaults, ARankThatAbortsEndsTheWaitWithTheLaunchersWords) {
    JobRig rig;
    // Six rows over four ranks: ranks 2 and 3 get one row each and abort.
    EXPECT_FALSE(rig.launch(4, 6));
    EXPECT_TRUE(rig.error.startsWith(QLatin1String("Not every rank reached the breakpoint")))
        << rig.error.toStdString();
    // What the launcher wrote, for a failure to show.
    const std::string said = "\nThe launcher wrote:\n" + rig.job->launcherOutput().toStdString();
    EXPECT_TRUE(rig.error.contains(QLatin1String("MPI_ABORT was invoked on rank")))
        << rig.error.toStdString() << said;
    EXPECT_TRUE(rig.error.contains(QLatin1String("with errorcode 3")))
        << rig.error.toStdString() << said;
    // The rank that aborted leaves with its code, in decimal.
    EXPECT_TRUE(
        rig.error.contains(QRegularExpression(QStringLiteral("rank [23] exited with code 3[,.]"))))
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
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("OMPI_ALLOW_RUN_AS_ROOT"), QStringLiteral("1"));
    env.insert(QStringLiteral("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM"), QStringLiteral("1"));
    env.insert(QStringLiteral("OMPI_MCA_rmaps_base_oversubscribe"), QStringLiteral("1"));
    // Ranks that wait for a message give their core away instead of
    // spinning on it, so that the gdbs attached to them get to run.
    env.insert(QStringLiteral("OMPI_MCA_mpi_yield_when_idle"), QStringLiteral("1"));
    mpirun.setProcessEnvironment(env);
    mpirun.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // Long enough to outlast the test; it reports every 200 steps.
    mpirun.start(QStringLiteral("mpirun"),
                 {QStringLiteral("-np"), QStringLiteral("2"),
                  examples::program(QStringLiteral("example_mpi_heat")), prefix,
                  QStringLiteral("48"), QStringLiteral("100000000"), QStringLiteral("200")});
    ASSERT_TRUE(mpirun.waitForStarted(10000));
    // Running once both ranks have reported.
    ASSERT_TRUE(waitUntil(
        [&] {
            return QFile::exists(prefix + QStringLiteral(".rank0")) &&
                   QFile::exists(prefix + QStringLiteral(".rank1"));
        },
        30000));

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
