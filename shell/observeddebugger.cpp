#include "shell/observeddebugger.h"

#include <QFutureWatcher>
#include <QPointer>
#include <QTimer>

namespace shell {

ObservedDebugger::ObservedDebugger(QSharedPointer<IHVDebugger> inner, QObject* parent)
    : IHVDebugger(parent), inner_(std::move(inner)) {
    connect(inner_.data(), &IHVDebugger::debuggerEvent, this, [this](AsyncRecord record) {
        emit eventArriving(record);
        emit debuggerEvent(record);
    });
}

QFuture<QSharedPointer<QObject>> ObservedDebugger::sendRequest(HVDWPRequest request) {
    ++requests_;
    ++open_;
    const QString id =
        request.propertyBag ? request.propertyBag->property("id").toString() : QString();
    QFuture<QSharedPointer<QObject>> future = inner_->sendRequest(request);
    // This watcher exists before the requester's, so its finished() comes
    // first; the signal is queued once more to follow the requester's.
    auto* watcher = new QFutureWatcher<QSharedPointer<QObject>>(this);
    QPointer<ObservedDebugger> self(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [self, watcher, id] {
        const QSharedPointer<QObject> bag = watcher->future().resultCount() > 0
                                                ? watcher->future().result()
                                                : QSharedPointer<QObject>();
        watcher->deleteLater();
        QTimer::singleShot(0, self, [self, id, bag] {
            if (!self)
                return;
            --self->open_;
            emit self->answered(id, bag);
        });
    });
    watcher->setFuture(future);
    return future;
}

IHVExpression* ObservedDebugger::createExpression(const QString& text) {
    return inner_->createExpression(text);
}

IHVExpression* ObservedDebugger::cloneExpression(IHVExpression* expression) {
    return inner_->cloneExpression(expression);
}

} // namespace shell
