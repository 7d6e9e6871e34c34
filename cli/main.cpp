// arraylens-cli: one array operation from a terminal. Runs the program to
// its breakpoint (or attaches, or opens a core file, or connects to a
// gdbserver), evaluates the expression in the innermost frame of the
// stopped thread, sends the one request and prints the answer as JSON.
#include "clioptions.h"
#include "jsonwriter.h"
#include "mpimain.h"
#include "tracecommand.h"

#include "mpijob.h"

#include "arrayexport.h"
#include "gdbdebugger.h"
#include "gdbsession.h"
#include "runcontrol.h"
#include "traceservice.h"

#include "wire/arrayrecords.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QTextStream>

#include <cstdio>
#include <memory>
#include <utility>

using namespace arraylens;

namespace {

// How long a program may take to reach its breakpoint, and gdb to answer.
constexpr int kStopTimeoutMs = 600000;
constexpr int kCommandTimeoutMs = 120000;

class Timings {
public:
    explicit Timings(bool on) : on_(on) {
        total_.start();
        stage_.start();
    }
    void stage(const char* name) {
        if (on_)
            std::fprintf(stderr, "timing: %-18s %8.3f s\n", name, stage_.nsecsElapsed() / 1e9);
        stage_.restart();
    }
    void total() {
        if (on_)
            std::fprintf(stderr, "timing: %-18s %8.3f s\n", "total", total_.nsecsElapsed() / 1e9);
    }

private:
    bool on_;
    QElapsedTimer total_, stage_;
};

int fail(const QString& message) {
    std::fprintf(stderr, "arraylens-cli: %s\n", message.toLocal8Bit().constData());
    return 1;
}

// Sleeps in an event loop (a spinning main thread would take a core from
// the engine's threads while they compute).
template <class Pred> bool waitFor(Pred done, int timeoutMs) {
    return gdb::waitWithEventLoop(done, timeoutMs);
}

// Runs an MI command and waits; false with `error` set when it fails.
bool command(gdb::GdbSession& session, const QString& text, QString& error) {
    auto reply = session.send(text);
    if (!reply->waitProcessingEvents(kCommandTimeoutMs)) {
        error = QStringLiteral("gdb did not answer '%1'.").arg(text);
        return false;
    }
    if (reply->isError()) {
        error = reply->errorMessage();
        return false;
    }
    return true;
}

// -target-select hands its arguments to gdb's command line as they stand,
// without taking quotes away: only plain words can pass.
bool plainWord(const QString& text) {
    if (text.isEmpty())
        return false;
    for (const QChar c : text)
        if (!(c.isLetterOrNumber() || QStringLiteral("/._-:+~@").contains(c)))
            return false;
    return true;
}

HVDWPRequest buildRequest(const cli::Options& o, IHVExpression* e) {
    switch (o.command) {
    case cli::Command::Info: {
        ArrayInfoRequest r;
        r.setFields(e);
        return r;
    }
    case cli::Command::Stats: {
        ArrayStatisticsRequest r;
        r.setFields(e, o.slice, o.filter);
        return r;
    }
    case cli::Command::Table: {
        ArrayData2DTableRequest r;
        r.setFocusFields(e);
        r.setSlice(o.slice);
        r.setOperationFields(e);
        r.setRowDim(int(o.rowDim));
        r.setColDim(int(o.colDim));
        r.setDataFormat(o.format);
        r.setFilter(o.filter);
        r.setRequestViewport(true, int(o.startRow), int(o.endRow), int(o.startCol), int(o.endCol));
        // The builders take ints, as the plug-in sends them; a number past
        // 2^31 goes into the same field as the whole 64-bit value.
        QObject* bag = r.propertyBag.data();
        const std::pair<const char*, qint64> wide[] = {
            {"RowDim", o.rowDim},      {"ColDim", o.colDim},          {"TableStartRow", o.startRow},
            {"TableEndRow", o.endRow}, {"TableStartCol", o.startCol}, {"TableEndCol", o.endCol}};
        for (const auto& [name, value] : wide)
            if (value != qint64(int(value)))
                bag->setProperty(name, QVariant(qlonglong(value)));
        return r;
    }
    case cli::Command::Export:
        return gdb::exportRequest(e, o.slice, o.filter, QFileInfo(o.out).absoluteFilePath());
    case cli::Command::Plot:
    case cli::Command::Trace:
        break;
    }
    VisEvaluateExpressionRequest r;
    r.setFields(e, o.slice, o.filter);
    return r;
}

int run(const cli::Options& o) {
    QString usageError;
    if (o.command == cli::Command::Trace &&
        !gdb::TraceService::check(cli::traceSettings(o), &usageError)) {
        std::fprintf(stderr, "arraylens-cli: %s\n", usageError.toLocal8Bit().constData());
        return 2;
    }
    Timings timings(o.timings);
    gdb::GdbSession::Options sessionOptions;
    sessionOptions.gdbPath = o.gdb;
    gdb::GdbSession session(sessionOptions);
    gdb::GdbDebugger debugger(&session);
    QObject::connect(&session, &gdb::GdbSession::inferiorOutput, [](const QByteArray& bytes) {
        // The program's own output goes to standard error, so that standard
        // output holds the JSON alone.
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    });

    // The last stop, for the words when it is no breakpoint's.
    mi::Record lastStop;
    QObject::connect(&session, &gdb::GdbSession::asyncRecord, [&](const mi::Record& record) {
        if (record.klass == "stopped")
            lastStop = record;
    });

    QString error;
    const bool started = o.attachPid == 0 && o.remote.isEmpty()
                             ? session.start(o.program, o.programArgs, &error)
                             : session.start(o.program, {}, &error);
    if (!started)
        return fail(error);
    if (!o.program.isEmpty()) {
        // gdb goes on without a program it cannot load; every later command
        // would then fail for want of symbols.
        auto groups = session.send(QStringLiteral("-list-thread-groups"));
        if (!groups->waitProcessingEvents(kCommandTimeoutMs))
            return fail(QStringLiteral("gdb did not answer '-list-thread-groups'."));
        const QString missing = gdb::programNotFoundText(
            o.program, groups->record().results["groups"], session.startupText());
        if (!missing.isEmpty())
            return fail(missing);
    }
    timings.stage("start gdb");

    if (!o.core.isEmpty()) {
        session.setCoreFile(o.core);
        if (!plainWord(o.core))
            return fail(QStringLiteral("The core file's path must not contain blanks or quotes."));
        if (!command(session, QStringLiteral("-target-select core ") + o.core, error))
            return fail(error);
        session.markStopped();
    } else if (o.attachPid > 0) {
        session.setKillDebuggeeWithGdb(false);
        if (!command(session, QStringLiteral("-target-attach %1").arg(o.attachPid), error))
            return fail(error);
        if (!waitFor([&] { return session.targetState() == gdb::GdbSession::TargetState::Stopped; },
                     kCommandTimeoutMs))
            return fail(QStringLiteral("The process did not stop after attaching."));
    } else {
        const bool remote = !o.remote.isEmpty();
        if (remote) {
            session.setTargetIsLocalProcess(false);
            if (!plainWord(o.remote))
                return fail(QStringLiteral("Bad remote target '%1'.").arg(o.remote));
            if (!command(session, QStringLiteral("-target-select remote ") + o.remote, error))
                return fail(error);
        }
        const QStringList breaks =
            o.breaks.isEmpty() ? QStringList{QStringLiteral("main")} : o.breaks;
        for (const QString& text : breaks) {
            gdb::BreakSpec spec;
            gdb::parseBreakSpec(text, spec, nullptr);
            if (!command(session, gdb::breakInsertCommand(spec, o.ignore), error))
                return fail(QStringLiteral("Cannot set a breakpoint at %1: %2").arg(text, error));
        }
        lastStop = mi::Record();
        if (!command(session,
                     remote ? QStringLiteral("-exec-continue") : QStringLiteral("-exec-run"),
                     error))
            return fail(error);
        if (!waitFor(
                [&] {
                    const auto s = session.targetState();
                    return s == gdb::GdbSession::TargetState::Stopped ||
                           s == gdb::GdbSession::TargetState::Exited || !session.isAlive();
                },
                o.stopTimeoutMs))
            return fail(QStringLiteral("The program did not reach a breakpoint in time."));
        if (session.targetState() == gdb::GdbSession::TargetState::Stopped) {
            auto stack = session.send(QStringLiteral("-stack-list-frames"));
            stack->waitProcessingEvents(kCommandTimeoutMs);
            const QString elsewhere =
                gdb::unexpectedStopText(lastStop.results, stack->record().results["stack"]);
            if (!elsewhere.isEmpty())
                return fail(elsewhere);
        }
    }
    timings.stage("run to breakpoint");

    if (o.command == cli::Command::Trace) {
        const int status = cli::runTrace(debugger, o);
        timings.stage("trace");
        if (o.attachPid > 0)
            command(session, QStringLiteral("-target-detach"), error);
        session.kill();
        timings.total();
        return status;
    }

    // Not evaluated first: the request resolves the expression itself, in the
    // innermost frame of the stopped thread, so it is evaluated once per run
    // (a function it calls runs once).
    std::unique_ptr<IHVExpression> expression(debugger.createExpression(o.expression));

    auto future = debugger.sendRequest(buildRequest(o, expression.get()));
    waitFor([&] { return future.isFinished(); }, kStopTimeoutMs);
    if (!future.isFinished())
        return fail(QStringLiteral("No answer in time."));
    const QSharedPointer<QObject> bag = future.result();
    timings.stage("request");

    const QByteArray json = cli::bagToJson(bag.data());
    std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    timings.stage("print");

    const QString result = bag->property("result").toString();
    int status = 0;
    if (result == QLatin1String("error")) {
        status = fail(bag->property("msg").toString());
    } else if (result == QLatin1String("exit")) {
        status = fail(QStringLiteral("The program is not running (it has exited)."));
    }
    if (o.attachPid > 0)
        command(session, QStringLiteral("-target-detach"), error);
    session.kill();
    timings.total();
    return status;
}

// Bad usage: the reason and the usage on standard error, exit code 2.
int usageError(const QString& error) {
    std::fprintf(stderr, "arraylens-cli: %s\n%s", error.toLocal8Bit().constData(),
                 cli::usage().toLocal8Bit().constData());
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    // Asked for help anywhere before the program's own arguments.
    for (const QString& a : args) {
        if (a == QLatin1String("--"))
            break;
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            std::fputs(cli::usage().toLocal8Bit().constData(), stdout);
            return 0;
        }
    }
    cli::Options options;
    QString error;
    if (!cli::parseArguments(args, options, error))
        return usageError(error);
    for (const QString& text : options.breaks) {
        gdb::BreakSpec spec;
        if (!gdb::parseBreakSpec(text, spec, &error))
            return usageError(error);
    }
    if (options.mpiRanks > 0 || options.attachMpiPid > 0)
        return cli::runMpi(options);
    return run(options);
}
