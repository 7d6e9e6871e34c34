#include "tracecommand.h"

#include "jsonwriter.h"
#include "requests.h"

#include "traceservice.h"

#include <QEventLoop>

#include <cstdio>

namespace arraylens::cli {

gdb::TraceSettings traceSettings(const Options& o) {
    gdb::TraceSettings s;
    setSelection(s, o);
    s.stats = o.stats;
    s.until = o.until;
    s.maxStops = o.stops;
    // No window follows the stops: those that need no MI are handled in gdb.
    s.inGdb = true;
    return s;
}

int runTrace(gdb::GdbDebugger& debugger, const Options& o) {
    gdb::TraceService trace(&debugger);
    QString error;
    if (!trace.configure(traceSettings(o), &error)) {
        std::fprintf(stderr, "arraylens-cli: %s\n", error.toLocal8Bit().constData());
        return 2;
    }
    QObject::connect(&trace, &gdb::TraceService::lineReady, [](QSharedPointer<QObject> line) {
        const QByteArray json = bagToJson(line.data());
        std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    });
    int status = 1;
    QEventLoop loop;
    QObject::connect(
        &trace, &gdb::TraceService::finished,
        [&](gdb::TraceService::End end, const QString& message) {
            using End = gdb::TraceService::End;
            const bool asked = !o.until.isEmpty() || o.stops > 0;
            status =
                end == End::Until || end == End::Stops || (end == End::Exited && !asked) ? 0 : 1;
            if (status != 0)
                std::fprintf(stderr, "arraylens-cli: %s\n", message.toLocal8Bit().constData());
            loop.quit();
        });
    trace.start();
    if (trace.isActive())
        loop.exec();
    return status;
}

} // namespace arraylens::cli
