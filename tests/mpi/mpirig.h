// An MPI job of the example heat solver with every rank under gdb, stopped
// at its report line, and the bands the ranks wrote to their reference
// files; expected numbers are worked out here from those files with plain
// code (sorting, XXH3 of the bytes), never with the engine.
#pragma once

#include "mpijob.h"
#include "processset.h"
#include "support/examples.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QVariantMap>

#include <gtest/gtest.h>
#include <xxhash.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>
#include <thread>

namespace mpitest {

using arraylens::gdb::MpiJob;
using arraylens::gdb::Operation;
using arraylens::gdb::RequestSnapshot;

// A rank's band as it wrote it.
struct Band {
    int rows = 0, cols = 0;
    std::vector<double> values; // row order
};

inline Band readBand(const QString& prefix, int rank) {
    Band b;
    QFile f(QStringLiteral("%1.rank%2").arg(prefix).arg(rank));
    if (!f.open(QIODevice::ReadOnly))
        return b;
    QTextStream in(&f);
    bool values = false;
    while (!in.atEnd()) {
        const QString line = in.readLine();
        if (values) {
            b.values.push_back(line.toDouble());
        } else if (line.startsWith(QLatin1String("rows="))) {
            b.rows = line.mid(5).toInt();
        } else if (line.startsWith(QLatin1String("cols="))) {
            b.cols = line.mid(5).toInt();
        } else if (line == QLatin1String("values=")) {
            values = true;
        }
    }
    return b;
}

// What numpy's percentile (linear) gives, over sorted values.
inline double quantile(const std::vector<double>& sorted, double p) {
    const double at = p * double(sorted.size() - 1);
    const std::size_t lo = std::size_t(std::floor(at));
    const std::size_t hi = std::min(lo + 1, sorted.size() - 1);
    return sorted[lo] + (sorted[hi] - sorted[lo]) * (at - double(lo));
}

struct Expected {
    qulonglong count = 0;
    double min = 0, max = 0, sum = 0, median = 0, q1 = 0, q3 = 0;
    qlonglong checksum = 0;
};

inline Expected expectedOf(const std::vector<double>& values) {
    Expected e;
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    e.count = values.size();
    e.min = sorted.front();
    e.max = sorted.back();
    for (double v : values)
        e.sum += v;
    e.median = quantile(sorted, 0.5);
    e.q1 = quantile(sorted, 0.25);
    e.q3 = quantile(sorted, 0.75);
    e.checksum = qlonglong(XXH3_64bits(values.data(), values.size() * sizeof(double)));
    return e;
}

// Statistics fields against what the values give.
inline void expectStatistics(const QVariantMap& f, const std::vector<double>& values) {
    ASSERT_EQ(f.value("result").toString(), QStringLiteral("done"))
        << f.value("msg").toString().toStdString();
    const Expected e = expectedOf(values);
    EXPECT_EQ(f.value("Count").toULongLong(), e.count);
    EXPECT_EQ(f.value("Min").toDouble(), e.min);
    EXPECT_EQ(f.value("Max").toDouble(), e.max);
    EXPECT_EQ(f.value("Median").toDouble(), e.median);
    EXPECT_EQ(f.value("FirstQuartile").toDouble(), e.q1);
    EXPECT_EQ(f.value("ThirdQuartile").toDouble(), e.q3);
    EXPECT_NEAR(f.value("Sum").toDouble(), e.sum, 1e-9 * std::abs(e.sum));
    EXPECT_EQ(f.value("Checksum").toLongLong(), e.checksum);
    EXPECT_EQ(f.value("NanCount").toInt(), 0);
}

inline std::vector<double> plotValues(const QVariantMap& f) {
    const QByteArray block = f.value("AllEvaluations").toByteArray();
    std::vector<double> v(std::size_t(block.size()) / sizeof(double));
    std::memcpy(v.data(), block.constData(), v.size() * sizeof(double));
    return v;
}

// A process that exists and is not a zombie.
inline bool alive(qint64 pid) {
    if (pid <= 0 || ::kill(pid_t(pid), 0) != 0)
        return false;
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return false;
    const QByteArray stat = f.readAll();
    const int close = stat.lastIndexOf(')');
    return close > 0 && stat.size() > close + 2 && stat[close + 2] != 'Z';
}

// The tracer of a process (0 when none), from /proc.
inline qint64 tracerOf(qint64 pid) {
    QFile f(QStringLiteral("/proc/%1/status").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith("TracerPid:"))
            return line.mid(10).trimmed().toLongLong();
    return -1;
}

inline bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    return arraylens::gdb::waitWithEventLoop(done, timeoutMs);
}

// A process-set request on a worker thread, this thread reading gdb's
// answers meanwhile; the answer's fields by name.
inline QVariantMap runRequest(const QVector<arraylens::gdb::RankTarget>& set,
                              const RequestSnapshot& request) {
    arraylens::gdb::Fields fields;
    std::atomic<bool> done{false};
    std::thread worker([&] {
        fields = arraylens::gdb::performProcessSetRequest(set, request, nullptr);
        done = true;
    });
    waitUntil([&] { return done.load(); }, 120000);
    worker.join();
    QVariantMap out;
    for (const auto& f : fields)
        out.insert(QString::fromLatin1(f.first), f.second);
    return out;
}

// `mpirun -np 2 mpi_heat PREFIX 48 STEPS REPORT` started as a user would,
// with no debugger, running once both ranks have written a report.
inline bool startPlainJob(QProcess& mpirun, const QString& prefix, const QString& steps,
                          const QString& report) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("OMPI_ALLOW_RUN_AS_ROOT"), QStringLiteral("1"));
    env.insert(QStringLiteral("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM"), QStringLiteral("1"));
    env.insert(QStringLiteral("OMPI_MCA_rmaps_base_oversubscribe"), QStringLiteral("1"));
    // Ranks that wait for a message give their core away instead of
    // spinning on it, so that the gdbs attached to them get to run.
    env.insert(QStringLiteral("OMPI_MCA_mpi_yield_when_idle"), QStringLiteral("1"));
    mpirun.setProcessEnvironment(env);
    mpirun.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    mpirun.start(QStringLiteral("mpirun"), {QStringLiteral("-np"), QStringLiteral("2"),
                                            examples::program(QStringLiteral("example_mpi_heat")),
                                            prefix, QStringLiteral("48"), steps, report});
    if (!mpirun.waitForStarted(10000))
        return false;
    return waitUntil(
        [&] {
            return QFile::exists(prefix + QStringLiteral(".rank0")) &&
                   QFile::exists(prefix + QStringLiteral(".rank1"));
        },
        30000);
}

// Waits until none of the processes is alive; the pids of those that are
// otherwise.
inline QString leftAlive(const QVector<qint64>& pids, int timeoutMs) {
    waitUntil(
        [&] {
            for (qint64 pid : pids)
                if (alive(pid))
                    return false;
            return true;
        },
        timeoutMs);
    QString left;
    for (qint64 pid : pids)
        if (alive(pid))
            left += QString::number(pid) + QLatin1Char(' ');
    return left;
}

class JobRig {
public:
    JobRig() {
        MpiJob::Options o;
        o.commandTimeoutMs = 60000;
        job = std::make_unique<MpiJob>(o);
        prefix = dir.filePath(QStringLiteral("band"));
    }
    ~JobRig() { job->end(); }

    // mpirun -np N mpi_heat PREFIX NY STEPS REPORT, stopped at `stop`.
    bool launch(int ranks, int ny, const QString& stop = QStringLiteral("mpi_heat.report"),
                int timeoutMs = 120000, int steps = 100, int report = 50) {
        return launchProgram(
            ranks, QStringLiteral("example_mpi_heat"),
            {prefix, QString::number(ny), QString::number(steps), QString::number(report)}, stop,
            timeoutMs);
    }

    // mpirun -np N EXAMPLE ARGS, stopped in every rank at `stop`.
    bool launchProgram(int ranks, const QString& example, const QStringList& args,
                       const QString& stop, int timeoutMs = 120000) {
        size = ranks;
        if (!job->launch(ranks, examples::program(example), args, error))
            return false;
        pids.clear();
        for (int r = 0; r < job->size(); ++r)
            pids << job->rank(r).pid;
        pids << job->launcherPid() << job->gdbPids();
        const QString location = examples::breakLocation(stop);
        if (location.isEmpty()) {
            error = QStringLiteral("no break location ") + stop;
            return false;
        }
        if (!job->insertBreakpoint(
                QString::fromStdString(arraylens::mi::quoteCString(location.toStdString())), error))
            return false;
        return job->continueAll(timeoutMs, error);
    }

    // One request over the given ranks (all when empty).
    QVariantMap request(Operation op, const QString& expression, const QString& slice = {},
                        const QString& filter = {}, QVector<int> ranks = {}) {
        RequestSnapshot r;
        r.operation = op;
        r.expression = expression;
        r.slice = slice;
        r.filter = filter;
        r.usingViewPort = true;
        r.startRow = 0;
        r.endRow = 99;
        r.startCol = 0;
        r.endCol = 99;
        if (ranks.isEmpty())
            for (int i = 0; i < job->size(); ++i)
                ranks << i;
        QVector<arraylens::gdb::RankTarget> set;
        for (int i : ranks)
            set.push_back({i, job->session(i)});
        return runRequest(set, r);
    }

    std::vector<double> allValues() const {
        std::vector<double> all;
        for (int r = 0; r < size; ++r) {
            const Band b = readBand(prefix, r);
            all.insert(all.end(), b.values.begin(), b.values.end());
        }
        return all;
    }

    // Ends the job; true when none of its processes is left.
    bool endAndCheckNothingLeft(QString* left = nullptr) {
        job->end();
        const QString alive = leftAlive(pids, 10000);
        if (left)
            *left += alive;
        return alive.isEmpty();
    }

    QTemporaryDir dir;
    QString prefix;
    QString error;
    std::unique_ptr<MpiJob> job;
    QVector<qint64> pids;
    int size = 0;
};

// A test suite whose checks share one job: Derived::start(rig) launches it
// once, before the suite's first test.
template <class Derived> class JobSuite : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        rig = new JobRig;
        launched = Derived::start(*rig);
    }
    static void TearDownTestSuite() {
        delete rig;
        rig = nullptr;
    }
    void SetUp() override { ASSERT_TRUE(launched) << rig->error.toStdString(); }

    static inline JobRig* rig = nullptr;
    static inline bool launched = false;
};

} // namespace mpitest
