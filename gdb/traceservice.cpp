#include "traceservice.h"

#include "arraylens/statvalues.h"

#include "wire/arrayrecords.h"

#include <QBitArray>
#include <QCoreApplication>

#include <algorithm>

namespace arraylens::gdb {

namespace {

// A bag value as the exact number it stands for.
std::optional<long double> exactValue(const QVariant& v) {
    switch (int(v.userType())) {
    case QMetaType::Int:
    case QMetaType::LongLong:
        return static_cast<long double>(v.toLongLong());
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return static_cast<long double>(v.toULongLong());
    case QMetaType::Double:
        return static_cast<long double>(v.toDouble());
    default:
        return std::nullopt;
    }
}

QString exitWords(const mi::Record& record) {
    const std::string reason = record.results["reason"].asString();
    if (reason == "exited-signalled")
        return QStringLiteral("The program was ended by signal %1.")
            .arg(QString::fromStdString(record.results["signal-name"].asString()));
    bool ok = false;
    // gdb writes the exit code in octal.
    const int code = QString::fromStdString(record.results["exit-code"].asString()).toInt(&ok, 8);
    return QStringLiteral("The program exited with code %1.").arg(ok ? code : 0);
}

// An answer's fields in a bag, as the request road delivers them.
QSharedPointer<QObject> fieldsBag(const Fields& fields) {
    QSharedPointer<QObject> bag = HVDWPPacket::makeBag();
    for (const auto& field : fields)
        bag->setProperty(field.first.constData(), field.second);
    return bag;
}

} // namespace

TraceService::TraceService(GdbDebugger* debugger, QObject* parent)
    : QObject(parent), debugger_(debugger), cancel_(std::make_shared<std::atomic<bool>>(false)),
      buffers_(std::make_shared<CaptureBuffers>()) {
    // A capture, and the statistics of the copy before it.
    pool_.setMaxThreadCount(3);
    connect(&watcher_, &QFutureWatcherBase::finished, this, &TraceService::answered);
    if (!debugger || !debugger->session())
        return;
    connect(debugger->session(), &GdbSession::asyncRecord, this, &TraceService::handleRecord);
    connect(debugger->session(), &GdbSession::died, this,
            [this] { finish(End::Failed, QString::fromLatin1(kDebuggerStoppedMessage)); });
}

TraceService::~TraceService() {
    active_ = false;
    hookOpen_.store(false);
    ++run_;
    cancel_->store(true);
    buffers_->wake();
    if (hook_)
        hook_->close();
    // A capture may be waiting for gdb, whose answers are read by this
    // thread's event loop: keep it turning until the workers are through.
    while (!pool_.waitForDone(10))
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 10);
}

template <class F> void TraceService::post(quint64 run, F f) {
    QPointer<TraceService> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, run, f = std::move(f)]() mutable {
            if (self && self->active_ && self->run_ == run)
                f();
        },
        Qt::QueuedConnection);
}

QStringList TraceService::statisticNames() {
    QStringList names;
    for (const std::string& n : arraylens::statisticNames())
        names << QString::fromStdString(n);
    return names;
}

bool TraceService::check(const TraceSettings& settings, QString* error) {
    TraceService probe(nullptr);
    return probe.configure(settings, error);
}

bool TraceService::configure(const TraceSettings& settings, QString* error) {
    const QStringList known = statisticNames();
    for (const QString& name : settings.stats) {
        if (!known.contains(name)) {
            if (error)
                *error = QStringLiteral("Unknown statistic '%1'; the statistics are %2.")
                             .arg(name, known.join(QStringLiteral(", ")));
            return false;
        }
    }
    until_.reset();
    if (!settings.until.trimmed().isEmpty()) {
        auto condition =
            arraylens::compileCondition(settings.until.toStdString(), arraylens::statisticNames());
        if (!condition) {
            if (error)
                *error = QString::fromStdString(condition.message());
            return false;
        }
        until_ = *condition;
    }
    settings_ = settings;
    return true;
}

void TraceService::start() {
    if (!debugger_ || active_)
        return;
    active_ = true;
    stops_ = 0;
    emitted_ = 0;
    copied_ = 0;
    inGdb_ = 0;
    ++run_;
    pending_.clear();
    cancel_ = std::make_shared<std::atomic<bool>>(false);
    GdbSession* session = debugger_->session();
    if (!session || !session->isAlive()) {
        finish(End::Failed, QString::fromLatin1(kDebuggerStoppedMessage));
        return;
    }
    switch (session->targetState()) {
    case GdbSession::TargetState::Stopped:
        // Before the first continue, which goes to gdb after it.
        installHook();
        traceStop();
        return;
    case GdbSession::TargetState::Running:
        awaitingStop_ = true;
        return;
    default:
        emitLine({{"Stop", stops_ + 1},
                  {"result", QStringLiteral("exit")},
                  {"msg", QStringLiteral("The program is not running.")}});
        finish(End::Exited, QStringLiteral("The program is not running."));
    }
}

void TraceService::stop() {
    if (!active_)
        return;
    GdbSession* session = debugger_ ? debugger_->session() : nullptr;
    const bool running = session && session->targetState() == GdbSession::TargetState::Running;
    finish(End::Interrupted, QStringLiteral("The trace was stopped."));
    if (running)
        session->send(QStringLiteral("-exec-interrupt"));
}

void TraceService::handleRecord(const mi::Record& record) {
    if (!active_ || !awaitingStop_ || record.klass != "stopped")
        return;
    awaitingStop_ = false;
    const std::string reason = record.results["reason"].asString();
    if (reason.rfind("exited", 0) == 0) {
        // After the lines of the stops still being computed.
        Pending closing;
        closing.ready = true;
        closing.closing = true;
        closing.message = exitWords(record);
        closing.closingLine = {
            {"Stop", stops_ + 1}, {"result", QStringLiteral("exit")}, {"msg", closing.message}};
        closing.end = End::Exited;
        addPending(closing);
        flush();
        return;
    }
    traceStop();
}

void TraceService::traceStop() {
    Pending stop;
    stop.stop = ++stops_;
    if (auto* f = qobject_cast<GdbFrame*>(debugger_->currentFrame().data()))
        stop.frame = f->info();
    addPending(stop);
    request_ = RequestSnapshot::fromBag(statisticsRequest(stop.frame).propertyBag.data());

    GdbSession* session = debugger_->session();
    const bool copy = settings_.overlap && !until_;
    const FrameInfo frame = stop.frame;
    const RequestSnapshot snapshot = request_;
    auto cancel = cancel_;
    auto buffers = buffers_;
    const quint64 run = run_;
    QPointer<TraceService> self(this);
    pool_.start([this, self, run, session, frame, snapshot, copy, cancel, buffers] {
        auto capture = std::make_shared<StopCapture>(
            captureStop(*session, frame, snapshot, copy, *buffers, cancel.get()));
        // The service waits for its workers before it goes: `this` is alive.
        post(run, [self, capture] { self->captured(capture); });
    });
}

ArrayStatisticsRequest TraceService::statisticsRequest(const FrameInfo& frame) const {
    // The innermost frame of the thread that stopped: no evaluation of its
    // own is needed first.
    ArrayStatisticsRequest request;
    request.setFocusFields(nullptr);
    request.setSlice(settings_.slice);
    request.setFilter(settings_.filter);
    request.setOperationFields(nullptr);
    QObject* bag = request.propertyBag.data();
    bag->setProperty("Expression", settings_.expression);
    bag->setProperty("Focus", frame.thread);
    bag->setProperty("ScopeID", frame.function);
    bag->setProperty("FrameRecursionDepth", QVariant::fromValue<uint>(0));
    return request;
}

void TraceService::captured(const std::shared_ptr<StopCapture>& capture) {
    switch (capture->kind) {
    case StopCapture::Kind::Fallback:
        requestStop();
        return;
    case StopCapture::Kind::Computed:
        settle(stops_, fieldsBag(capture->fields));
        return;
    case StopCapture::Kind::Copied:
        break;
    }
    const int stop = stops_;
    Pending* pending = pendingStop(stop);
    if (!pending)
        return;
    // The last stop of --stops leaves the program there, as it would be
    // without the overlap.
    const bool last = settings_.maxStops > 0 && stop >= settings_.maxStops;
    pending->resumed = !last;
    ++copied_;
    const FrameInfo frame = pending->frame;
    if (!last)
        resume();
    computeCopy(stop, frame, capture);
}

void TraceService::computeCopy(int stop, const FrameInfo& frame,
                               const std::shared_ptr<StopCapture>& capture) {
    const RequestSnapshot snapshot =
        RequestSnapshot::fromBag(statisticsRequest(frame).propertyBag.data());
    auto cancel = cancel_;
    const quint64 run = run_;
    QPointer<TraceService> self(this);
    // The copy goes back to the pool when the job is done with it.
    pool_.start([this, self, run, stop, capture, snapshot, cancel] {
        const Fields fields = computeCopied(*capture, snapshot, cancel.get());
        post(run, [self, stop, fields] { self->settle(stop, fieldsBag(fields)); });
    });
}

void TraceService::installHook() {
    GdbSession* session = debugger_->session();
    if (!settings_.inGdb || !settings_.overlap || until_ || !session->readsMemoryDirectly())
        return;
    const QString expression = settings_.expression;
    const int maxStops = settings_.maxStops;
    auto buffers = buffers_;
    auto cancel = cancel_;
    const quint64 run = run_;
    QPointer<TraceService> self(this);
    // Decided on the hook's thread: the program stands still until then, and
    // a hop to this object's thread costs milliseconds on a busy machine.
    // While gdb waits in a hit no stop can be reported over MI, so the stop
    // count is this thread's alone.
    hook_ = std::make_unique<TraceHook>([this, self, run, session, expression, maxStops, buffers,
                                         cancel](const TraceHook::Hit& hit) {
        if (!hookOpen_.load())
            return false;
        const int stop = stops_.load() + 1;
        // The last stop is an ordinary one: the program is left standing there.
        if (maxStops > 0 && stop >= maxStops)
            return false;
        auto capture = std::make_shared<StopCapture>(
            captureDescribed(*session, expression, hit.describe, *buffers, cancel.get()));
        if (capture->kind != StopCapture::Kind::Copied || !hookOpen_.load())
            return false;
        stops_.store(stop);
        post(run,
             [self, stop, frame = hit.frame, capture] { self->hookStop(stop, frame, capture); });
        return true;
    });
    QString error;
    if (!hook_->listen(&error)) {
        hook_.reset();
        return;
    }
    hookOpen_.store(true);
    session->send(hook_->installCommand(expression));
}

void TraceService::hookStop(int stop, const FrameInfo& frame,
                            const std::shared_ptr<StopCapture>& capture) {
    ++copied_;
    ++inGdb_;
    Pending p;
    p.stop = stop;
    p.frame = frame;
    p.resumed = true;
    addPending(p);
    computeCopy(stop, frame, capture);
}

void TraceService::addPending(const Pending& stop) {
    // A stop from the hook's thread may arrive after a later one reported
    // over MI; closing lines come after every stop.
    auto at = pending_.end();
    if (!stop.closing)
        at = std::find_if(pending_.begin(), pending_.end(),
                          [&](const Pending& p) { return p.closing || p.stop > stop.stop; });
    pending_.insert(at, stop);
}

TraceService::Pending* TraceService::pendingStop(int stop) {
    for (Pending& p : pending_)
        if (!p.closing && p.stop == stop)
            return &p;
    return nullptr;
}

void TraceService::requestStop() {
    if (Pending* stop = pendingStop(stops_))
        watcher_.setFuture(debugger_->sendRequest(statisticsRequest(stop->frame)));
}

void TraceService::answered() {
    if (!active_)
        return;
    settle(stops_, watcher_.result());
}

void TraceService::settle(int stop, const QSharedPointer<QObject>& answer) {
    if (Pending* p = pendingStop(stop)) {
        p->ready = true;
        p->answer = answer;
    }
    flush();
}

void TraceService::flush() {
    while (active_ && !pending_.empty() && pending_.front().ready) {
        const Pending stop = pending_.front();
        // In order, with none missing: a stop handled in gdb may not be
        // here yet.
        if (stop.closing ? emitted_ < stops_.load() : stop.stop != emitted_ + 1)
            return;
        pending_.pop_front();
        if (stop.closing) {
            emitLine(stop.closingLine);
            finish(stop.end, stop.message);
            return;
        }
        ++emitted_;
        if (!report(stop))
            return;
        // A stop the program has gone on from needs nothing more.
        if (!stop.resumed && !enoughStops())
            resume();
    }
}

bool TraceService::report(const Pending& stop) {
    const QSharedPointer<QObject>& answer = stop.answer;
    const QString result = answer->property("result").toString();
    LineFields line{{"Stop", stop.stop},
                    {"Function", stop.frame.function},
                    {"File", stop.frame.file},
                    {"Line", stop.frame.line}};
    if (result == QLatin1String("exit")) {
        line = {{"Stop", stop.stop},
                {"result", QStringLiteral("exit")},
                {"msg", QStringLiteral("The program is not running.")}};
        emitLine(line);
        finish(End::Exited, QStringLiteral("The program is not running."));
        return false;
    }
    if (result != QLatin1String("done") || answer->property("IsStale").toBool()) {
        const QString msg = result == QLatin1String("done")
                                ? QStringLiteral("The program ran on while the array was read.")
                                : answer->property("msg").toString();
        line.append({"result", QStringLiteral("error")});
        line.append({"msg", msg});
        emitLine(line);
        return true;
    }
    const QStringList names = statisticNames();
    const QStringList shown = settings_.stats.isEmpty() ? names : settings_.stats;
    // A statistic that is not valid at this stop (Min when no finite
    // element passed) has no value: null, never a number that looks like one.
    const QBitArray valid = answer->property("StatValid").toBitArray();
    for (const QString& name : shown) {
        const int bit = names.indexOf(name);
        const bool has = bit >= 0 && bit < valid.size() && valid.testBit(bit);
        line.append({name.toLatin1(), has ? answer->property(name.toLatin1().constData())
                                          : QVariant::fromValue(nullptr)});
    }
    line.append({"FirstMatch", answer->property("FirstMatch")});
    line.append({"LastMatch", answer->property("LastMatch")});
    bool holds = false;
    if (until_) {
        std::vector<std::optional<long double>> values(std::size_t(names.size()));
        for (int i = 0; i < names.size(); ++i)
            if (i < valid.size() && valid.testBit(i))
                values[std::size_t(i)] =
                    exactValue(answer->property(names[i].toLatin1().constData()));
        holds = until_->holds(values);
    }
    if (holds)
        line.append({"Until", true});
    emitLine(line);
    if (holds) {
        finish(End::Until, QStringLiteral("The condition holds at stop %1.").arg(stop.stop));
        return false;
    }
    return true;
}

bool TraceService::enoughStops() {
    if (settings_.maxStops <= 0 || stops_ < settings_.maxStops)
        return false;
    finish(End::Stops, QStringLiteral("%1 stops traced.").arg(stops_.load()));
    return true;
}

void TraceService::resume() {
    if (!active_)
        return;
    GdbSession* session = debugger_->session();
    awaitingStop_ = true;
    QPointer<TraceService> self(this);
    session->send(QStringLiteral("-exec-continue"), [self](const MiReply& reply) {
        if (self && self->active_ && reply.isError()) {
            self->awaitingStop_ = false;
            self->finish(End::Failed, reply.errorMessage());
        }
    });
}

void TraceService::emitLine(const LineFields& fields) {
    QSharedPointer<QObject> bag = HVDWPPacket::makeBag();
    for (const auto& f : fields)
        bag->setProperty(f.first.constData(), f.second);
    emit lineReady(bag);
}

void TraceService::finish(End end, const QString& message) {
    if (!active_)
        return;
    active_ = false;
    awaitingStop_ = false;
    hookOpen_.store(false);
    ++run_;
    pending_.clear();
    cancel_->store(true);
    buffers_->wake();
    if (hook_) {
        hook_->close();
        hook_.reset();
        GdbSession* session = debugger_ ? debugger_->session() : nullptr;
        if (session && session->isAlive())
            session->send(TraceHook::uninstallCommand());
    }
    emit finished(end, message);
}

} // namespace arraylens::gdb
