// arraylens-cli on an MPI job: a whole run from mpirun to the JSON answer,
// a chosen rank, and the refusals of bad MPI options.
#include "mpirig.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

using namespace mpitest;

namespace {

struct CliRun {
    int status = -1;
    QByteArray out, err;
};

CliRun cli(const QStringList& args) {
    QProcess p;
    p.start(QStringLiteral(ARRAYLENS_CLI), args);
    CliRun r;
    if (!p.waitForFinished(240000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

QStringList jobArgs(const QString& prefix, int ranks, const QString& condition = {}) {
    const QString at = examples::breakLocation(QStringLiteral("mpi_heat.report"));
    return {QStringLiteral("--mpi"),
            QString::number(ranks),
            QStringLiteral("--break"),
            condition.isEmpty() ? at : at + QStringLiteral(" if ") + condition,
            QStringLiteral("--expr"),
            QStringLiteral("u[1]@nloc"),
            QStringLiteral("--"),
            examples::program(QStringLiteral("example_mpi_heat")),
            prefix,
            QStringLiteral("48")};
}

} // namespace

TEST(MpiCli, StatisticsOfTwoRanksFromLaunchToAnswer) {
    QTemporaryDir dir;
    const QString prefix = dir.filePath(QStringLiteral("band"));
    const CliRun r = cli(QStringList{QStringLiteral("stats")} + jobArgs(prefix, 2));
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    std::vector<double> all = readBand(prefix, 0).values;
    const std::vector<double> second = readBand(prefix, 1).values;
    all.insert(all.end(), second.begin(), second.end());
    ASSERT_EQ(all.size(), std::size_t(48 * 64));
    const QJsonObject json = QJsonDocument::fromJson(r.out).object();
    const Expected e = expectedOf(all);
    EXPECT_EQ(json.value("Count").toInt(), int(e.count));
    EXPECT_EQ(json.value("Median").toDouble(), e.median);
    EXPECT_EQ(json.value("Max").toDouble(), e.max);
    // 64-bit integers are exact in the text, beyond a double's reach.
    const auto m = QRegularExpression(QStringLiteral("\"Checksum\":(-?[0-9]+)"))
                       .match(QString::fromUtf8(r.out));
    ASSERT_TRUE(m.hasMatch());
    EXPECT_EQ(m.captured(1).toLongLong(), e.checksum);
}

TEST(MpiCli, OneRankChosenWithRanksAtAConditionalBreakpoint) {
    QTemporaryDir dir;
    const QString prefix = dir.filePath(QStringLiteral("band"));
    // The second report (step 100), not the first: the condition holds in
    // every rank's gdb.
    const CliRun r =
        cli(QStringList{QStringLiteral("plot"), QStringLiteral("--ranks"), QStringLiteral("1")} +
            jobArgs(prefix, 2, QStringLiteral("step == 100")));
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    QFile band(prefix + QStringLiteral(".rank1"));
    ASSERT_TRUE(band.open(QIODevice::ReadOnly));
    EXPECT_EQ(band.readLine().trimmed(), QByteArray("step=100"));
    const QJsonObject json = QJsonDocument::fromJson(r.out).object();
    const std::vector<double> values1 = readBand(prefix, 1).values;
    const auto values = json.value("AllEvaluations").toArray();
    ASSERT_EQ(values.size(), int(values1.size()));
    for (int i = 0; i < values.size(); ++i)
        EXPECT_EQ(values[i].toDouble(), values1[std::size_t(i)]) << i;
    EXPECT_EQ(json.value("Rank").toInt(), 2);
}

TEST(MpiCli, BadMpiOptionsAreRefused) {
    const QString program = examples::program(QStringLiteral("example_mpi_heat"));
    struct Case {
        QStringList args;
        int status;
        const char* words;
    };
    const QList<Case> cases = {
        {{"stats", "--mpi", "0", "--expr", "u", "--", program}, 2, "Bad value '0' for --mpi."},
        {{"stats", "--mpi", "2", "--ranks", "3-1", "--expr", "u", "--", program},
         2,
         "Bad rank list '3-1'"},
        {{"stats", "--ranks", "1", "--expr", "u", "--", program},
         2,
         "--ranks needs --mpi or --attach-mpi."},
        {{"stats", "--mpi", "2", "--attach", "5", "--expr", "u", "--", program},
         2,
         "exclude each other"},
        {{"trace", "--mpi", "2", "--break", "main", "--expr", "u", "--", program},
         2,
         "trace and export work on one process"},
        {{"stats", "--mpi", "2", "--expr", "u", "--", program}, 1, "--mpi needs --break"},
        {{"stats", "--mpi", "2", "--mpirun", "/nonexistent/mpirun", "--break", "main", "--expr",
          "u", "--", program},
         1,
         "Cannot find the MPI launcher '/nonexistent/mpirun'"},
    };
    for (const Case& c : cases) {
        const CliRun r = cli(c.args);
        EXPECT_EQ(r.status, c.status) << c.args.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains(c.words)) << r.err.toStdString();
    }
}

TEST(MpiCli, ARankListBeyondTheJobIsRefused) {
    QTemporaryDir dir;
    const CliRun r =
        cli(QStringList{QStringLiteral("info"), QStringLiteral("--ranks"), QStringLiteral("0-3")} +
            jobArgs(dir.filePath(QStringLiteral("band")), 2));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("names rank 3, but the job has 2 ranks")) << r.err.toStdString();
}
