#pragma once
// Packets between the plug-in and the debugger back end.
//
// A packet is a small value class around a shared pointer to a plain QObject.
// The fields of a packet are that object's dynamic properties, so property
// names and value types are the wire format. Copying a packet copies the
// handle, never the fields: every copy (also one sliced down to a base class)
// sees and changes the same properties. Packets are cheap to pass by value.

#include "wire/wire_export.h"

#include <QMetaType>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

class ARRAYLENS_WIRE_EXPORT HVDWPPacket {
public:
    // A fresh bag with "id" = `id` (empty text for null) and then "token".
    HVDWPPacket(const char* id, int token);
    // Adopts a bag as delivered by a future and sets nothing; the bag stays
    // shared with whoever else holds it. A null bag is replaced by a fresh,
    // empty one, so that reads give defaults instead of crashing.
    HVDWPPacket(QSharedPointer<QObject> bag);
    virtual ~HVDWPPacket();

    // True when "id" holds a non-empty text.
    virtual bool isValid() const;
    virtual QString getID() const;
    virtual int getToken() const;
    // One line for diagnostics: "id (token) - name = value, ..." with every
    // dynamic property in the order it was first set.
    virtual QString summary() const;
    virtual void setID(const QString& id);

    // The fields. Freed with deleteLater, so the QObject always dies in its
    // own thread's event loop, whichever thread drops the last handle.
    QSharedPointer<QObject> propertyBag;

    // A parentless, empty bag with the deleteLater deleter.
    static QSharedPointer<QObject> makeBag();

protected:
    // Property access by name; a missing property reads as an invalid QVariant.
    QVariant value(const char* name) const;
    void setValue(const char* name, const QVariant& value);
};

class ARRAYLENS_WIRE_EXPORT HVDWPRequest : public HVDWPPacket {
public:
    HVDWPRequest(const char* id, int token);
    HVDWPRequest(QSharedPointer<QObject> bag);
    ~HVDWPRequest() override;
};

// "result" is one of "done", "error" and "exit", compared with case.
class ARRAYLENS_WIRE_EXPORT HVDWPResponse : public HVDWPPacket {
public:
    HVDWPResponse(QSharedPointer<QObject> bag);
    ~HVDWPResponse() override;

    virtual void setDone();
    virtual bool isDone() const;
    // "result" := "error", then "msg", then "code".
    virtual void setErrorResult(QString msg, QString code);
    virtual bool isErrorResult() const;
    virtual QString getErrorMessage() const;
    virtual QString getErrorCode() const;
    // Leaves "msg" and "code" as they are.
    virtual void setExitResult();
    virtual bool isExitResult() const;
};

// An unsolicited event of the debugger, e.g. "StoppedRecord". It travels by
// value through queued signals, hence the meta-type registration.
class ARRAYLENS_WIRE_EXPORT AsyncRecord : public HVDWPPacket {
public:
    // "id" = "AsyncRecord", "token" = 0.
    AsyncRecord();
    // Adopts the bag of an event built by the debugger service.
    explicit AsyncRecord(QSharedPointer<QObject> bag);
    ~AsyncRecord() override;
};

Q_DECLARE_METATYPE(AsyncRecord)

// Registers AsyncRecord under the name "AsyncRecord" and returns its type id.
// Runs once when the library is loaded; calling it again is harmless.
ARRAYLENS_WIRE_EXPORT int registerAsyncRecordMetaType();
