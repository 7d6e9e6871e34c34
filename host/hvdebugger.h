#pragma once
// The debugger service and the two extensions through which the plug-in
// reaches it and the focus of the debugger.

#include "host/host_export.h"
#include "host/hvexpression.h"
#include "wire/hvdwppacket.h"

#include <QFuture>
#include <QObject>
#include <QSharedPointer>
#include <QWeakPointer>

class ARRAYLENS_HOST_EXPORT IHVDebugger : public QObject {
    Q_OBJECT
public:
    explicit IHVDebugger(QObject* parent = nullptr);
    ~IHVDebugger() override;

    // Hands a request to the back end and returns at once; the future
    // delivers the answer's property bag on the GUI thread.
    virtual QFuture<QSharedPointer<QObject>> sendRequest(HVDWPRequest request) = 0;
    // A new, unevaluated expression object.
    virtual IHVExpression* createExpression(const QString& text) = 0;
    // A private copy owned by the caller; may be null.
    virtual IHVExpression* cloneExpression(IHVExpression* expression) = 0;

signals:
    // Every asynchronous record of the back end, delivered on the GUI thread.
    void debuggerEvent(AsyncRecord record);
};

class ARRAYLENS_HOST_EXPORT IHVCore {
public:
    virtual ~IHVCore();
    virtual QWeakPointer<IHVDebugger> getDebugger() = 0;
    virtual bool isRemoteClient() const = 0;
};

class ARRAYLENS_HOST_EXPORT IHalvane {
public:
    virtual ~IHalvane();
    // The focus thread and frame; null when there is none.
    virtual QSharedPointer<IHVThread> getCurrentThread() = 0;
    virtual QSharedPointer<IHVFrame> getCurrentFrame() = 0;
};

Q_DECLARE_INTERFACE(IHVCore, "com.northquay.ihvcore")
Q_DECLARE_INTERFACE(IHalvane, "com.northquay.ihalvane")

namespace NQ {
class IPluginManager;

// The extension lookup every caller uses: the plug-in that offers `id` must
// list it among its extensions (compared with case), and its qt_metacast of
// the id yields the interface. Null when there is no such extension.
ARRAYLENS_HOST_EXPORT void* findExtension(IPluginManager* manager, const QString& id);
} // namespace NQ
