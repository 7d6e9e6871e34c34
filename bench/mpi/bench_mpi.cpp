// MPI jobs, in one run:
// 1. statistics of 4 ranks x 256 MiB of doubles (one engine pass over the
//    process set) against one process holding 1 GiB of the same kind of
//    values, the same request road otherwise; the target is at most 1.25
//    times the single process's time;
// 2. the time from starting mpirun to every rank stopped at its breakpoint,
//    8 ranks against 1.
// Usage: bench_mpi [REPEATS]   (run from anywhere; paths are built in)
#include "mpijob.h"
#include "processset.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTextStream>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

using namespace arraylens::gdb;

namespace {

// "path:line" of the line carrying "arraylens-break: NAME" in a source.
QString marker(const QString& source, const QString& name) {
    QFile f(source);
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    QTextStream in(&f);
    for (int line = 1; !in.atEnd(); ++line)
        if (in.readLine().contains(QStringLiteral("arraylens-break: ") + name))
            return source + QLatin1Char(':') + QString::number(line);
    return QString();
}

QString quoted(const QString& text) {
    return QString::fromStdString(arraylens::mi::quoteCString(text.toStdString()));
}

// Runs `work` on a worker thread while this one reads gdb's answers.
template <class F> double timed(F work) {
    std::atomic<bool> done{false};
    QElapsedTimer clock;
    clock.start();
    std::thread worker([&] {
        work();
        done = true;
    });
    waitWithEventLoop([&] { return done.load(); }, 600000);
    worker.join();
    return clock.nsecsElapsed() / 1e9;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

RequestSnapshot statistics(const QString& expression) {
    RequestSnapshot r;
    r.operation = Operation::Statistics;
    r.id = QStringLiteral("ArrayStatisticsRequest");
    r.expression = expression;
    return r;
}

bool fail(const QString& what) {
    std::fprintf(stderr, "bench_mpi: %s\n", what.toLocal8Bit().constData());
    return false;
}

// mpirun -np N mpi_heat ... up to every rank stopped at its report line.
double launchToStop(int ranks, QString& error) {
    MpiJob job(MpiJob::Options{});
    QElapsedTimer clock;
    clock.start();
    if (!job.launch(ranks, QStringLiteral(ARRAYLENS_BENCH_BIN "/example_mpi_heat"),
                    {QStringLiteral("/tmp/bench_mpi_heat"), QStringLiteral("48"),
                     QStringLiteral("100"), QStringLiteral("50")},
                    error) ||
        !job.insertBreakpoint(quoted(marker(QStringLiteral(ARRAYLENS_EXAMPLES_SOURCE "/mpi_heat.c"),
                                            QStringLiteral("report"))),
                              error) ||
        !job.continueAll(300000, error))
        return -1;
    const double seconds = clock.nsecsElapsed() / 1e9;
    job.end();
    return seconds;
}

int run(int repeats) {
    QString error;
    const qint64 perRank = qint64(1) << 25, single = qint64(1) << 27;

    // One process, 1 GiB.
    GdbSession session;
    if (!session.start(QStringLiteral(ARRAYLENS_BENCH_BIN "/example_bigarray"),
                       {QString::number(single)}, &error))
        return fail(error), 1;
    const QString big =
        marker(QStringLiteral(ARRAYLENS_EXAMPLES_SOURCE "/bigarray.c"), QStringLiteral("big"));
    session.send(QStringLiteral("-break-insert ") + quoted(big))->waitProcessingEvents(60000);
    session.send(QStringLiteral("-exec-run"))->waitProcessingEvents(60000);
    if (!waitWithEventLoop(
            [&] { return session.targetState() == GdbSession::TargetState::Stopped; }, 300000))
        return fail(QStringLiteral("example_bigarray did not stop")), 1;

    // Four ranks, 256 MiB each.
    MpiJob job(MpiJob::Options{});
    if (!job.launch(4, QStringLiteral(ARRAYLENS_BENCH_MPI_BIGARRAY), {QString::number(perRank)},
                    error) ||
        !job.insertBreakpoint(
            quoted(marker(QStringLiteral(ARRAYLENS_BENCH_SOURCE "/mpi_bigarray.c"),
                          QStringLiteral("big"))),
            error) ||
        !job.continueAll(600000, error))
        return fail(error), 1;
    QVector<RankTarget> set;
    for (int r = 0; r < job.size(); ++r)
        set.push_back({r, job.session(r)});

    std::vector<double> one, four;
    Fields a, b;
    for (int i = 0; i < repeats; ++i) {
        one.push_back(timed([&] {
            a = performRequest(session, statistics(QStringLiteral("*data@count")), nullptr);
        }));
        four.push_back(timed([&] {
            b = performProcessSetRequest(set, statistics(QStringLiteral("*data@count")), nullptr);
        }));
    }
    auto field = [](const Fields& f, const char* name) {
        for (const auto& p : f)
            if (p.first == name)
                return p.second.toString();
        return QString();
    };
    std::printf("statistics, 1 process x 1 GiB:  median %.3f s of %d  (Count %s, %s)\n",
                median(one), repeats, qPrintable(field(a, "Count")),
                qPrintable(field(a, "result")));
    std::printf("statistics, 4 ranks x 256 MiB:  median %.3f s of %d  (Count %s, %s)\n",
                median(four), repeats, qPrintable(field(b, "Count")),
                qPrintable(field(b, "result")));
    std::printf("ratio 4 ranks / 1 process:      %.3f  (target at most 1.25)\n",
                median(four) / median(one));
    job.end();
    session.kill();

    std::vector<double> start1, start8;
    for (int i = 0; i < repeats; ++i) {
        start1.push_back(launchToStop(1, error));
        start8.push_back(launchToStop(8, error));
        if (start1.back() < 0 || start8.back() < 0)
            return fail(error), 1;
    }
    std::printf("mpirun to first stop, 1 rank:   median %.3f s of %d\n", median(start1), repeats);
    std::printf("mpirun to first stop, 8 ranks:  median %.3f s of %d\n", median(start8), repeats);
    std::printf("ratio 8 ranks / 1 rank:         %.3f\n", median(start8) / median(start1));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int repeats = argc > 1 ? std::max(1, atoi(argv[1])) : 3;
    return run(repeats);
}
