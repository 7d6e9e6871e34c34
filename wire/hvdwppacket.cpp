#include "wire/hvdwppacket.h"

#include <QByteArray>
#include <QList>

namespace {
const char RESULT[] = "result";
const char MSG[] = "msg";
const char CODE[] = "code";
const char RESULT_DONE[] = "done";
const char RESULT_ERROR[] = "error";
const char RESULT_EXIT[] = "exit";

// Done at load so that a queued debuggerEvent(AsyncRecord) connection works
// before anyone has named the type in code.
[[maybe_unused]] const int asyncRecordTypeId = registerAsyncRecordMetaType();
} // namespace

QSharedPointer<QObject> HVDWPPacket::makeBag() {
    return QSharedPointer<QObject>(new QObject, &QObject::deleteLater);
}

HVDWPPacket::HVDWPPacket(const char* id, int token) : propertyBag(makeBag()) {
    setValue("id", QString::fromUtf8(id));
    setValue("token", QVariant(token));
}

HVDWPPacket::HVDWPPacket(QSharedPointer<QObject> bag)
    : propertyBag(bag.isNull() ? makeBag() : std::move(bag)) {}

HVDWPPacket::~HVDWPPacket() = default;

bool HVDWPPacket::isValid() const {
    const QVariant id = value("id");
    return id.isValid() && !id.toString().isEmpty();
}

QString HVDWPPacket::getID() const {
    return value("id").toString();
}

int HVDWPPacket::getToken() const {
    return value("token").toInt();
}

QString HVDWPPacket::summary() const {
    const QList<QByteArray> names = propertyBag->dynamicPropertyNames();
    QString text;
    for (int i = 0; i < names.size(); ++i) {
        const QByteArray& name = names.at(i);
        text += QString("%1 = %2")
                    .arg(QString::fromUtf8(name))
                    .arg(propertyBag->property(name.constData()).toString());
        if (i < names.size() - 1)
            text += ", ";
    }
    return QString("%1 (%2) - %3")
        .arg(value("id").toString())
        .arg(value("token").toString())
        .arg(text);
}

void HVDWPPacket::setID(const QString& id) {
    setValue("id", id);
}

QVariant HVDWPPacket::value(const char* name) const {
    return propertyBag->property(name);
}

void HVDWPPacket::setValue(const char* name, const QVariant& value) {
    propertyBag->setProperty(name, value);
}

HVDWPRequest::HVDWPRequest(const char* id, int token) : HVDWPPacket(id, token) {}

HVDWPRequest::HVDWPRequest(QSharedPointer<QObject> bag) : HVDWPPacket(std::move(bag)) {}

HVDWPRequest::~HVDWPRequest() = default;

HVDWPResponse::HVDWPResponse(QSharedPointer<QObject> bag) : HVDWPPacket(std::move(bag)) {}

HVDWPResponse::~HVDWPResponse() = default;

void HVDWPResponse::setDone() {
    setValue(RESULT, QString(RESULT_DONE));
}

bool HVDWPResponse::isDone() const {
    return value(RESULT).toString() == RESULT_DONE;
}

void HVDWPResponse::setErrorResult(QString msg, QString code) {
    setValue(RESULT, QString(RESULT_ERROR));
    setValue(MSG, msg);
    setValue(CODE, code);
}

bool HVDWPResponse::isErrorResult() const {
    return value(RESULT).toString() == RESULT_ERROR;
}

QString HVDWPResponse::getErrorMessage() const {
    return value(MSG).toString();
}

QString HVDWPResponse::getErrorCode() const {
    return value(CODE).toString();
}

void HVDWPResponse::setExitResult() {
    setValue(RESULT, QString(RESULT_EXIT));
}

bool HVDWPResponse::isExitResult() const {
    return value(RESULT).toString() == RESULT_EXIT;
}

AsyncRecord::AsyncRecord() : HVDWPPacket("AsyncRecord", 0) {}

AsyncRecord::AsyncRecord(QSharedPointer<QObject> bag) : HVDWPPacket(std::move(bag)) {}

AsyncRecord::~AsyncRecord() = default;

int registerAsyncRecordMetaType() {
    return qRegisterMetaType<AsyncRecord>("AsyncRecord");
}
