// The debugger service over one gdb session: expressions, the four array
// operations and the debugger's events.
//
// All public calls are made on the GUI thread and return at once. Requests
// and evaluations are resolved through MI and computed by the engine on
// worker threads; their futures finish on the GUI thread, each exactly once,
// also when gdb dies (then with "The debugger has stopped.").
#pragma once

#include "arrayoperations.h"
#include "gdbexpression.h"
#include "gdbsession.h"

#include "host/hvdebugger.h"
#include "host/nqcore.h"

#include <QFutureInterface>
#include <QHash>
#include <QPointer>
#include <QSharedPointer>
#include <QThreadPool>
#include <QVariant>
#include <QVector>

#include <atomic>
#include <functional>
#include <memory>

namespace arraylens::gdb {

class GdbDebugger : public IHVDebugger {
    Q_OBJECT
public:
    static constexpr const char* kConnectedContext = "HVDebugger.CONNECTED";
    static constexpr const char* kReadyContext = "HVDebugger.READY";

    // Uses `session` (not owned; it must outlive this object).
    explicit GdbDebugger(GdbSession* session, QObject* parent = nullptr);
    ~GdbDebugger() override;

    QFuture<QSharedPointer<QObject>> sendRequest(HVDWPRequest request) override;
    // Where a request is answered, on a worker thread, when not by this
    // session alone (the ranks of an MPI job as one array).
    using RequestRoute =
        std::function<Fields(const RequestSnapshot& request, const std::atomic<bool>* cancel)>;
    // The request goes the route, with this session's checks of state
    // before and of a run meanwhile after.
    QFuture<QSharedPointer<QObject>> sendRequest(HVDWPRequest request, RequestRoute route);
    IHVExpression* createExpression(const QString& text) override;
    IHVExpression* cloneExpression(IHVExpression* expression) override;

    // The contexts follow gdb and the debuggee from now on.
    void setContextManager(NQ::IContextManager* contexts);
    // The innermost frame of the thread of the last stop; null when the
    // debuggee is not stopped.
    QSharedPointer<IHVFrame> currentFrame() const { return currentFrame_; }
    GdbSession* session() const { return session_; }
    // Requests whose future has not finished yet.
    int openRequestCount() const { return open_.size(); }

    // Used by GdbExpression::evaluate.
    QFuture<IHVExpression*> evaluateExpression(GdbExpression* expression,
                                               QSharedPointer<IHVFrame> frame);

private:
    struct OpenRequest {
        QFutureInterface<QSharedPointer<QObject>> future;
        RequestSnapshot request;
        bool completed = false;
    };
    using OpenRequestPtr = std::shared_ptr<OpenRequest>;

    void complete(const OpenRequestPtr& request, const Fields& fields);
    void handleAsyncRecord(const arraylens::mi::Record& record);
    void handleDied();
    void updateContexts();

    QPointer<GdbSession> session_;
    QPointer<NQ::IContextManager> contexts_;
    QThreadPool pool_;
    QHash<OpenRequest*, OpenRequestPtr> open_;
    QSharedPointer<IHVFrame> currentFrame_;
    std::shared_ptr<std::atomic<bool>> cancel_;
};

// An MI value as a QVariant: strings as QString, tuples as QVariantMap,
// lists as QVariantList.
QVariant toVariant(const arraylens::mi::Value& value);

} // namespace arraylens::gdb
