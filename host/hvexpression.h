#pragma once
// Objects of the debugger service: expressions and frames. The plug-in only
// reads them; the service creates, evaluates and owns them.

#include "host/host_export.h"

#include <QFuture>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariantList>

class IHVFrame;

// Empty markers that let every expression, frame and process object answer
// qt_metacast with the interface id the host's selections are tested with.
struct HVExpressionIid {};
struct HVFrameIid {};
struct HVProcessIid {};
Q_DECLARE_INTERFACE(HVExpressionIid, "com.northquay.IHVExpression")
Q_DECLARE_INTERFACE(HVFrameIid, "com.northquay.IHVFrame")
Q_DECLARE_INTERFACE(HVProcessIid, "com.northquay.IHVProcess")

class ARRAYLENS_HOST_EXPORT IHVExpression : public QObject, public HVExpressionIid {
    Q_OBJECT
    Q_INTERFACES(HVExpressionIid)
public:
    explicit IHVExpression(QObject* parent = nullptr) : QObject(parent) {}
    ~IHVExpression() override;

    virtual QString getExpression() const = 0;
    virtual QString getErrorMessage() const = 0;
    virtual QString getType() const = 0;
    virtual void setType(const QString& type, bool reinterpret) = 0;
    // Evaluates in the given frame off the GUI thread; the future finishes on
    // the GUI thread's event loop. Callers look at the object afterwards.
    virtual QFuture<IHVExpression*> evaluate(QSharedPointer<IHVFrame> frame) = 0;
    virtual QString getScopedExpression() const = 0;
    virtual bool isResolved() const = 0;
    virtual void setResolved(bool resolved) = 0;
    virtual QSharedPointer<IHVFrame> getFrame() const = 0;
    virtual QString getScopePath() const = 0;
    virtual QString getScopeID() const = 0;
    virtual QStringList getOperationArgs() const = 0;
    virtual QStringList getOperationQualifiedArgs() const = 0;
    virtual QVariantList getOperationKinds() const = 0;
    virtual bool isFortranExpression() const = 0;
    virtual bool isCLanguageExpression() const = 0;
    virtual bool isArray() const = 0;
    virtual QString getActualType() const = 0;
    virtual void setActualType(const QString& type) = 0;
    virtual unsigned int getFrameRecursionDepth() const = 0;
    virtual QString getBlockLine() const = 0;
    virtual bool hasAlternateExpression() const = 0;
    virtual QString getAlternateExpression() const = 0;
    virtual QString getFocus() const = 0;
    virtual void setFocus(const QString& focus) = 0;
    virtual int getFrameLevel() const = 0;
    virtual QString getLanguage() const = 0;
    virtual bool hasError() const = 0;
};

class ARRAYLENS_HOST_EXPORT IHVFrame : public QObject, public HVFrameIid {
    Q_OBJECT
    Q_INTERFACES(HVFrameIid)
public:
    explicit IHVFrame(QObject* parent = nullptr) : QObject(parent) {}
    ~IHVFrame() override;

    virtual QString getThreadID() const = 0;
    virtual QString getAddress() const = 0;
    virtual QString getFunction() const = 0;
    virtual QString getFileName() const = 0;
    virtual int getLine() const = 0;
    virtual quint64 getFP() const = 0;
};

// Threads and processes are only recognised (by interface id) and tested for
// being there; they carry no operations the plug-in calls.
class ARRAYLENS_HOST_EXPORT IHVThread : public QObject {
    Q_OBJECT
public:
    explicit IHVThread(QObject* parent = nullptr) : QObject(parent) {}
    ~IHVThread() override;
};

class ARRAYLENS_HOST_EXPORT IHVProcess : public QObject, public HVProcessIid {
    Q_OBJECT
    Q_INTERFACES(HVProcessIid)
public:
    explicit IHVProcess(QObject* parent = nullptr) : QObject(parent) {}
    ~IHVProcess() override;
};
