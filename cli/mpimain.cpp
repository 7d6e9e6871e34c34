#include "mpimain.h"

#include "jsonwriter.h"
#include "requests.h"

#include "mpijob.h"
#include "mpistart.h"
#include "processset.h"

#include "wire/hvdwppacket.h"

#include <QCoreApplication>

#include <atomic>
#include <cstdio>
#include <thread>

namespace arraylens::cli {

namespace {

constexpr int kCommandTimeoutMs = 120000;
constexpr int kAnswerTimeoutMs = 600000;

int fail(const QString& message) {
    std::fprintf(stderr, "arraylens-cli: %s\n", message.toLocal8Bit().constData());
    return 1;
}

int answer(gdb::MpiJob& job, const Options& o) {
    QVector<int> chosen;
    QString error;
    const QString list = o.ranks.isEmpty() ? QStringLiteral("0-%1").arg(job.size() - 1) : o.ranks;
    if (!gdb::parseRankList(list, job.size(), chosen, error))
        return fail(error);
    QVector<gdb::RankTarget> set;
    for (int r : chosen)
        set.push_back({r, job.session(r)});

    // The request waits for gdb's answers, which this thread reads.
    gdb::Fields fields;
    std::atomic<bool> done{false}, cancel{false};
    std::thread worker([&] {
        fields = gdb::performProcessSetRequest(set, requestSnapshot(o), &cancel);
        done = true;
    });
    gdb::waitWithEventLoop([&] { return done.load(); }, kAnswerTimeoutMs);
    if (!done) {
        cancel = true;
        gdb::waitWithEventLoop([&] { return done.load(); }, kCommandTimeoutMs);
    }
    worker.join();

    QSharedPointer<QObject> bag = HVDWPPacket::makeBag();
    for (const auto& field : fields)
        bag->setProperty(field.first.constData(), field.second);
    const QByteArray json = bagToJson(bag.data());
    std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    const QString result = bag->property("result").toString();
    if (result == QLatin1String("error"))
        return fail(bag->property("msg").toString());
    if (result == QLatin1String("exit"))
        return fail(QStringLiteral("The program is not running (it has exited)."));
    return 0;
}

} // namespace

int runMpi(const Options& o) {
    gdb::MpiJob::Options jobOptions;
    jobOptions.gdbPath = o.gdb;
    jobOptions.mpirun = o.mpirun;
    jobOptions.commandTimeoutMs = kCommandTimeoutMs;
    gdb::MpiJob job(jobOptions);
    // The ranks' own output goes to standard error, so that standard output
    // holds the JSON alone.
    QObject::connect(&job, &gdb::MpiJob::launcherOutputArrived, [](const QByteArray& bytes) {
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    });
    const gdb::MpiStart start = gdb::mpiStartOf(o);
    QString error;
    bool stopped = gdb::openMpiJob(job, start, error);
    if (stopped && start.runsToFirstStop())
        stopped = job.continueAll(o.stopTimeoutMs, error);
    const int status = stopped ? answer(job, o) : fail(error);
    job.end();
    return status;
}

} // namespace arraylens::cli
