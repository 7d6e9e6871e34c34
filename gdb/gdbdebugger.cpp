#include "gdbdebugger.h"

#include "arrayoperations.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>
#include <QVariantList>
#include <QVariantMap>

#include <cerrno>
#include <sys/uio.h>

namespace arraylens::gdb {

namespace {

// "thread-group-exited" gives "ThreadGroupExitedRecord".
QString recordId(const std::string& klass) {
    if (klass == "stopped")
        return QStringLiteral("StoppedRecord");
    QString out;
    bool upper = true;
    for (char c : klass) {
        if (c == '-' || c == '_') {
            upper = true;
            continue;
        }
        out += upper ? QChar(c).toUpper() : QChar(c);
        upper = false;
    }
    return out + QStringLiteral("Record");
}

// Runs `f` on the GUI thread's event loop, whoever calls.
template <class F> void onGuiThread(F&& f) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::forward<F>(f),
                              Qt::QueuedConnection);
}

// True when the process has ended or is ending: no longer there, a zombie
// that its parent has not yet reaped, or on its way out with its memory
// already given back (then a read of it fails with ESRCH, where a read of an
// address it has not mapped fails with EFAULT).
bool processGone(qint64 pid) {
    char byte = 0;
    iovec local{&byte, 1};
    iovec remote{nullptr, 1};
    if (::process_vm_readv(pid_t(pid), &local, 1, &remote, 1, 0) < 0 && errno == ESRCH)
        return true;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray text = stat.readAll();
    // "PID (COMMAND) STATE ...": the command may hold blanks and parentheses.
    const int close = text.lastIndexOf(')');
    if (close < 0 || close + 2 >= text.size())
        return true;
    const char state = text.at(close + 2);
    return state == 'Z' || state == 'X' || state == 'x';
}

// A read of a live local process failed because the process went away
// under it. When gdb dies it takes the program it started along, and the
// read may fail before the session has heard of gdb's end: the death of gdb
// wins, whatever the read said. gdb kills its program on its way out, so
// gdb is gone by the time the program's memory is; the short wait is for a
// slow machine. A program killed by someone else leaves gdb running (gdb
// hears of it only when it next resumes the program): then the read's own
// words stand.
Fields afterDebuggeeLost(const GdbSession& session, qint64 gdbPid, const RequestSnapshot& request,
                         const Fields& readError) {
    constexpr int kSettleMs = 200;
    QElapsedTimer clock;
    clock.start();
    do {
        if (!session.isAlive() || (gdbPid > 0 && processGone(gdbPid)))
            return stoppedFields(request);
        QThread::msleep(5);
    } while (clock.elapsed() < kSettleMs);
    return readError;
}

bool isError(const Fields& fields) {
    for (const auto& field : fields)
        if (field.first == "result")
            return field.second.toString() == QLatin1String("error");
    return false;
}

} // namespace

QVariant toVariant(const mi::Value& value) {
    switch (value.kind()) {
    case mi::Value::Kind::String:
        return QString::fromStdString(value.asString());
    case mi::Value::Kind::Tuple: {
        QVariantMap map;
        for (const auto& m : value.members()) {
            const QString name = QString::fromStdString(m.name);
            if (!map.contains(name))
                map.insert(name, toVariant(m.value));
        }
        return map;
    }
    case mi::Value::Kind::List: {
        QVariantList list;
        for (const auto& m : value.members()) {
            if (m.name.empty()) {
                list.append(toVariant(m.value));
            } else {
                QVariantMap one;
                one.insert(QString::fromStdString(m.name), toVariant(m.value));
                list.append(one);
            }
        }
        return list;
    }
    case mi::Value::Kind::Absent:
        break;
    }
    return QVariant();
}

GdbDebugger::GdbDebugger(GdbSession* session, QObject* parent)
    : IHVDebugger(parent), session_(session), cancel_(std::make_shared<std::atomic<bool>>(false)) {
    // Workers mostly wait for gdb; the engine brings its own threads.
    pool_.setMaxThreadCount(4);
    pool_.setExpiryTimeout(30000);
    connect(session, &GdbSession::asyncRecord, this, &GdbDebugger::handleAsyncRecord);
    connect(session, &GdbSession::died, this, &GdbDebugger::handleDied);
    connect(session, &GdbSession::started, this, &GdbDebugger::updateContexts);
    connect(session, &GdbSession::targetStateChanged, this, &GdbDebugger::updateContexts);
}

GdbDebugger::~GdbDebugger() {
    cancel_->store(true);
    const auto open = open_.values();
    for (const OpenRequestPtr& request : open)
        complete(request, stoppedFields(request->request));
    // Workers may be waiting for gdb, whose answers are read by this
    // thread's event loop: keep it turning until they are through.
    while (!pool_.waitForDone(10))
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 10);
}

void GdbDebugger::setContextManager(NQ::IContextManager* contexts) {
    contexts_ = contexts;
    if (!contexts)
        return;
    for (const char* id : {kConnectedContext, kReadyContext})
        if (!contexts->isContextRegistered(QString::fromLatin1(id)))
            contexts->registerContext(QString::fromLatin1(id));
    updateContexts();
}

void GdbDebugger::updateContexts() {
    if (!contexts_)
        return;
    const bool connected = session_ && session_->isAlive();
    const bool ready = connected && session_->targetState() == GdbSession::TargetState::Stopped;
    auto follow = [this](const char* id, bool on) {
        const QString name = QString::fromLatin1(id);
        if (on && !contexts_->hasContext(name))
            contexts_->activateContext(name);
        else if (!on && contexts_->hasContext(name))
            contexts_->deactivateContext(name);
    };
    follow(kConnectedContext, connected);
    follow(kReadyContext, ready);
}

IHVExpression* GdbDebugger::createExpression(const QString& text) {
    return new GdbExpression(this, text);
}

IHVExpression* GdbDebugger::cloneExpression(IHVExpression* expression) {
    auto* source = qobject_cast<GdbExpression*>(expression);
    if (!source)
        return nullptr;
    auto* copy = new GdbExpression(this, source->getExpression());
    copy->copyFrom(*source);
    return copy;
}

QFuture<IHVExpression*> GdbDebugger::evaluateExpression(GdbExpression* expression,
                                                        QSharedPointer<IHVFrame> frame) {
    QFutureInterface<IHVExpression*> future;
    future.reportStarted();
    QFuture<IHVExpression*> result = future.future();
    QPointer<GdbExpression> target(expression);
    const QString text = expression->effectiveText();
    QString thread;
    int level = 0;
    QString function;
    if (auto* f = qobject_cast<GdbFrame*>(frame.data())) {
        thread = f->getThreadID();
        level = f->level();
    } else if (frame) {
        thread = frame->getThreadID();
        function = frame->getFunction();
    }
    GdbSession* session = session_;
    if (!session || !session->isAlive()) {
        expression->applyEvaluation(
            FrameInfo(), ArrayFacts(),
            {Failure::Kind::Lost, QString::fromLatin1(kDebuggerStoppedMessage)});
        future.reportResult(expression);
        future.reportFinished();
        return result;
    }
    pool_.start([session, text, thread, level, function, target, future]() mutable {
        ArrayResolver resolver(*session);
        Failure failure;
        FrameInfo chosen;
        ArrayFacts facts;
        QVector<FrameInfo> frames;
        auto transaction = session->beginTransaction();
        const QString t = thread.isEmpty() ? session->stoppedThread() : thread;
        if (checkExpressionText(text, failure) && resolver.stack(t, frames, failure)) {
            bool found = false;
            for (const FrameInfo& f : frames) {
                if (function.isEmpty() ? f.level == level : f.function == function) {
                    chosen = f;
                    found = true;
                    break;
                }
            }
            if (!found) {
                failure = {Failure::Kind::Frame,
                           QStringLiteral("Frame %1 of thread %2 is gone.").arg(level).arg(t)};
            } else if (!resolver.describe(chosen, text, true, facts, failure)) {
                // An array whose elements cannot be taken is still an array;
                // the requests say why they cannot show it.
                if (failure.kind == Failure::Kind::Type && facts.isArray && facts.problem.isEmpty())
                    failure = Failure();
            }
        }
        transaction.unlock();
        onGuiThread([target, chosen, facts, failure, future]() mutable {
            if (target)
                target->applyEvaluation(chosen, facts, failure);
            future.reportResult(target.data());
            future.reportFinished();
        });
    });
    return result;
}

QFuture<QSharedPointer<QObject>> GdbDebugger::sendRequest(HVDWPRequest request) {
    return sendRequest(std::move(request), RequestRoute());
}

QFuture<QSharedPointer<QObject>> GdbDebugger::sendRequest(HVDWPRequest request,
                                                          RequestRoute route) {
    auto open = std::make_shared<OpenRequest>();
    open->future.reportStarted();
    QFuture<QSharedPointer<QObject>> result = open->future.future();
    const RequestSnapshot snapshot = RequestSnapshot::fromBag(request.propertyBag.data());
    open->request = snapshot;

    GdbSession* session = session_;
    if (!session || !session->isAlive()) {
        complete(open, stoppedFields(snapshot));
        return result;
    }
    switch (session->targetState()) {
    case GdbSession::TargetState::None:
    case GdbSession::TargetState::Exited:
        complete(open, exitFields(snapshot));
        return result;
    case GdbSession::TargetState::Running:
        complete(open, staleFields(snapshot));
        return result;
    case GdbSession::TargetState::Stopped:
        break;
    }

    open_.insert(open.get(), open);
    // Workers never outlive this object (its destructor waits for them), so
    // they may post to it; an answer posted here and not yet delivered when
    // it dies is dropped with it, while the application still runs.
    GdbDebugger* self = this;
    auto cancel = cancel_;
    const qint64 gdbPid = session->gdbPid();
    pool_.start([self, session, gdbPid, snapshot, open, cancel, route] {
        const quint64 generation = session->runGeneration();
        const qint64 debuggee = session->readsMemoryDirectly() ? session->pid() : 0;
        Fields fields = route ? route(snapshot, cancel.get())
                              : performRequest(*session, snapshot, cancel.get());
        if (debuggee > 0 && isError(fields) && processGone(debuggee))
            fields = afterDebuggeeLost(*session, gdbPid, snapshot, fields);
        // The debuggee ran while we read: the numbers mix two states.
        if (session->runGeneration() != generation)
            fields = staleFields(snapshot);
        QMetaObject::invokeMethod(
            self, [self, open, fields] { self->complete(open, fields); }, Qt::QueuedConnection);
    });
    return result;
}

void GdbDebugger::complete(const OpenRequestPtr& request, const Fields& fields) {
    open_.remove(request.get());
    if (request->completed)
        return;
    request->completed = true;
    QSharedPointer<QObject> bag = HVDWPPacket::makeBag();
    HVDWPResponse response(bag);
    for (const auto& field : fields)
        bag->setProperty(field.first.constData(), field.second);
    request->future.reportResult(bag);
    request->future.reportFinished();
}

void GdbDebugger::handleAsyncRecord(const mi::Record& record) {
    if (record.klass == "stopped") {
        const mi::Value& frame = record.results["frame"];
        const std::string reason = record.results["reason"].asString();
        if (frame && reason.rfind("exited", 0) != 0) {
            FrameInfo info;
            info.thread = QString::fromStdString(record.results["thread-id"].asString());
            info.level = 0;
            info.function = QString::fromStdString(frame["func"].asString());
            info.file = QString::fromStdString(frame["file"].asString());
            info.fullname = QString::fromStdString(frame["fullname"].asString());
            info.address = QString::fromStdString(frame["addr"].asString());
            info.line = QString::fromStdString(frame["line"].asString()).toInt();
            currentFrame_ = QSharedPointer<IHVFrame>(new GdbFrame(info), &QObject::deleteLater);
        } else {
            currentFrame_.reset();
        }
    } else if (record.klass == "running" || record.klass == "thread-group-exited") {
        currentFrame_.reset();
    }
    AsyncRecord event;
    event.setID(recordId(record.klass));
    QObject* bag = event.propertyBag.data();
    bag->setProperty("class", QString::fromStdString(record.klass));
    for (const auto& member : record.results.members()) {
        const QByteArray name = QByteArray::fromStdString(member.name);
        if (!bag->property(name.constData()).isValid())
            bag->setProperty(name.constData(), toVariant(member.value));
    }
    updateContexts();
    emit debuggerEvent(event);
}

void GdbDebugger::handleDied() {
    cancel_->store(true);
    // Later requests get a fresh flag; they are refused anyway while gdb is
    // gone.
    cancel_ = std::make_shared<std::atomic<bool>>(false);
    currentFrame_.reset();
    const auto open = open_.values();
    for (const OpenRequestPtr& request : open)
        complete(request, stoppedFields(request->request));
    updateContexts();
    AsyncRecord event;
    event.setID(QStringLiteral("DebuggerStoppedRecord"));
    event.propertyBag->setProperty("msg", QString::fromLatin1(kDebuggerStoppedMessage));
    emit debuggerEvent(event);
}

} // namespace arraylens::gdb
