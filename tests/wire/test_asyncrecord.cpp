// AsyncRecord as a meta-type: it has to travel by value through a queued
// connection such as the debugger service's debuggerEvent(AsyncRecord).

#include "wire/hvdwppacket.h"

#include "qtprinters.h"

#include <QCoreApplication>
#include <QMetaType>
#include <QObject>
#include <gtest/gtest.h>

namespace {

class EventSource : public QObject {
    Q_OBJECT
signals:
    void debuggerEvent(AsyncRecord record);
};

class EventSink : public QObject {
    Q_OBJECT
public:
    QList<AsyncRecord> received;
public slots:
    void handleDebuggerEvent(AsyncRecord record) { received.append(record); }
};

} // namespace

// Keep this test free of any use of qMetaTypeId<AsyncRecord>() before the
// lookup by name: the name must be known from the library's load alone.
TEST(AsyncRecordMetaType, NameIsRegisteredWhenLibraryLoads) {
    const int byName = QMetaType::type("AsyncRecord");
    EXPECT_NE(byName, int(QMetaType::UnknownType));
    EXPECT_EQ(byName, qMetaTypeId<AsyncRecord>());
}

TEST(AsyncRecordMetaType, ExplicitRegistrationGivesTheSameId) {
    const int first = registerAsyncRecordMetaType();
    EXPECT_EQ(registerAsyncRecordMetaType(), first);
    EXPECT_EQ(first, QMetaType::type("AsyncRecord"));
    EXPECT_STREQ(QMetaType::typeName(first), "AsyncRecord");
}

TEST(AsyncRecordMetaType, DefaultRecordHasIdAsyncRecordAndTokenZero) {
    AsyncRecord record;
    EXPECT_EQ(record.propertyBag->dynamicPropertyNames(), (QList<QByteArray>{"id", "token"}));
    EXPECT_EQ(record.getID(), QString("AsyncRecord"));
    EXPECT_EQ(record.getToken(), 0);
    EXPECT_TRUE(record.isValid());
}

TEST(AsyncRecordMetaType, RecordTravelsThroughQueuedStringConnection) {
    EventSource source;
    EventSink sink;
    ASSERT_TRUE(QObject::connect(&source, SIGNAL(debuggerEvent(AsyncRecord)), &sink,
                                 SLOT(handleDebuggerEvent(AsyncRecord)), Qt::QueuedConnection));
    AsyncRecord record;
    record.setID("StoppedRecord");
    emit source.debuggerEvent(record);
    EXPECT_TRUE(sink.received.isEmpty());
    QCoreApplication::sendPostedEvents(&sink, QEvent::MetaCall);
    ASSERT_EQ(sink.received.size(), 1);
    EXPECT_EQ(sink.received.first().getID(), QString("StoppedRecord"));
    // The copy that crossed the queue still shares the sender's bag.
    EXPECT_EQ(sink.received.first().propertyBag.data(), record.propertyBag.data());
}

TEST(AsyncRecordMetaType, RecordTravelsInsideAQVariant) {
    AsyncRecord record;
    record.propertyBag->setProperty("reason", QString("breakpoint"));
    const QVariant boxed = QVariant::fromValue(record);
    EXPECT_EQ(boxed.userType(), QMetaType::type("AsyncRecord"));
    const AsyncRecord unboxed = boxed.value<AsyncRecord>();
    EXPECT_EQ(unboxed.propertyBag->property("reason").toString(), QString("breakpoint"));
}

#include "test_asyncrecord.moc"
