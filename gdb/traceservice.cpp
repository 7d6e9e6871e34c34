#include "traceservice.h"

#include "arraylens/statvalues.h"

#include "wire/arrayrecords.h"

#include <QBitArray>

namespace arraylens::gdb {

namespace {

using LineFields = QVector<QPair<QByteArray, QVariant>>;

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

} // namespace

TraceService::TraceService(GdbDebugger* debugger, QObject* parent)
    : QObject(parent), debugger_(debugger) {
    connect(&watcher_, &QFutureWatcherBase::finished, this, &TraceService::answered);
    if (!debugger || !debugger->session())
        return;
    connect(debugger->session(), &GdbSession::asyncRecord, this, &TraceService::handleRecord);
    connect(debugger->session(), &GdbSession::died, this,
            [this] { finish(End::Failed, QString::fromLatin1(kDebuggerStoppedMessage)); });
}

TraceService::~TraceService() = default;

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
    GdbSession* session = debugger_->session();
    if (!session || !session->isAlive()) {
        finish(End::Failed, QString::fromLatin1(kDebuggerStoppedMessage));
        return;
    }
    switch (session->targetState()) {
    case GdbSession::TargetState::Stopped:
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
        const QString words = exitWords(record);
        emitLine({{"Stop", stops_ + 1}, {"result", QStringLiteral("exit")}, {"msg", words}});
        finish(End::Exited, words);
        return;
    }
    traceStop();
}

void TraceService::traceStop() {
    ++stops_;
    frame_ = FrameInfo();
    if (auto* f = qobject_cast<GdbFrame*>(debugger_->currentFrame().data()))
        frame_ = f->info();
    // The request names the innermost frame of the thread that stopped: no
    // evaluation of its own is needed first.
    ArrayStatisticsRequest request;
    request.setFocusFields(nullptr);
    request.setSlice(settings_.slice);
    request.setFilter(settings_.filter);
    request.setOperationFields(nullptr);
    QObject* bag = request.propertyBag.data();
    bag->setProperty("Expression", settings_.expression);
    bag->setProperty("Focus", frame_.thread);
    bag->setProperty("ScopeID", frame_.function);
    bag->setProperty("FrameRecursionDepth", QVariant::fromValue<uint>(0));
    watcher_.setFuture(debugger_->sendRequest(request));
}

void TraceService::answered() {
    if (!active_)
        return;
    const QSharedPointer<QObject> answer = watcher_.result();
    const QString result = answer->property("result").toString();
    LineFields line{{"Stop", stops_},
                    {"Function", frame_.function},
                    {"File", frame_.file},
                    {"Line", frame_.line}};
    if (result == QLatin1String("exit")) {
        line = {{"Stop", stops_},
                {"result", QStringLiteral("exit")},
                {"msg", QStringLiteral("The program is not running.")}};
        emitLine(line);
        finish(End::Exited, QStringLiteral("The program is not running."));
        return;
    }
    if (result != QLatin1String("done") || answer->property("IsStale").toBool()) {
        const QString msg = result == QLatin1String("done")
                                ? QStringLiteral("The program ran on while the array was read.")
                                : answer->property("msg").toString();
        line.append({"result", QStringLiteral("error")});
        line.append({"msg", msg});
        emitLine(line);
        if (!enoughStops())
            resume();
        return;
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
        finish(End::Until, QStringLiteral("The condition holds at stop %1.").arg(stops_));
        return;
    }
    if (!enoughStops())
        resume();
}

bool TraceService::enoughStops() {
    if (settings_.maxStops <= 0 || stops_ < settings_.maxStops)
        return false;
    finish(End::Stops, QStringLiteral("%1 stops traced.").arg(stops_));
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
    emit finished(end, message);
}

} // namespace arraylens::gdb
