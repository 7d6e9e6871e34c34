#pragma once
// The debugger service as the plug-ins get it: every call goes to the real
// service, and the host hears when an answer has reached its requester, so
// that it can say "the display has answered" (for the screenshot, the
// status line and the benchmark) without looking into any plug-in.

#include "host/hvdebugger.h"

#include <QSharedPointer>

namespace shell {

class ObservedDebugger : public IHVDebugger {
    Q_OBJECT
public:
    explicit ObservedDebugger(QSharedPointer<IHVDebugger> inner, QObject* parent = nullptr);

    QFuture<QSharedPointer<QObject>> sendRequest(HVDWPRequest request) override;
    IHVExpression* createExpression(const QString& text) override;
    IHVExpression* cloneExpression(IHVExpression* expression) override;

    IHVDebugger* inner() const { return inner_.data(); }
    int requestCount() const { return requests_; }
    // Requests sent whose answered() has not been emitted yet.
    int openRequests() const { return open_; }

signals:
    // A debugger event, before any plug-in hears it: the host sets its focus
    // (current thread and frame) here, so that a plug-in that asks for it
    // on a stop finds the stop's.
    void eventArriving(AsyncRecord record);
    // After the requester's own watcher has handled the answer (the signal
    // is queued behind it).
    void answered(const QString& requestId, const QSharedPointer<QObject>& bag);

private:
    QSharedPointer<IHVDebugger> inner_;
    int requests_ = 0;
    int open_ = 0;
};

} // namespace shell
