// The packet base: the shared property bag, id and token, the result words
// of a response, the base summary and how the bag is freed.

#include "wire/hvdwppacket.h"

#include "qtprinters.h"

#include <QAtomicInt>
#include <QBitArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QList>
#include <QStringList>
#include <QThread>
#include <gtest/gtest.h>

#include <optional>

namespace {

QList<QByteArray> namesOf(const HVDWPPacket& packet) {
    return packet.propertyBag->dynamicPropertyNames();
}

QSharedPointer<QObject> emptyBag() {
    return HVDWPPacket::makeBag();
}

} // namespace

TEST(PacketBase, NewPacketSetsIdThenTokenAsTextAndInt) {
    HVDWPPacket packet("SomeKind", 7);
    EXPECT_EQ(namesOf(packet), (QList<QByteArray>{"id", "token"}));
    EXPECT_EQ(packet.propertyBag->property("id").userType(), int(QMetaType::QString));
    EXPECT_EQ(packet.propertyBag->property("token").userType(), int(QMetaType::Int));
    EXPECT_EQ(packet.getID(), QString("SomeKind"));
    EXPECT_EQ(packet.getToken(), 7);
    EXPECT_TRUE(packet.isValid());
}

TEST(PacketBase, NullIdGivesEmptyTextAndAnInvalidPacket) {
    HVDWPPacket packet(nullptr, 3);
    const QVariant id = packet.propertyBag->property("id");
    ASSERT_TRUE(id.isValid());
    EXPECT_EQ(id.userType(), int(QMetaType::QString));
    EXPECT_TRUE(id.toString().isEmpty());
    EXPECT_FALSE(packet.isValid());
    EXPECT_EQ(packet.getToken(), 3);
}

TEST(PacketBase, BagIsAParentlessPlainQObject) {
    HVDWPPacket packet("X", 0);
    ASSERT_FALSE(packet.propertyBag.isNull());
    EXPECT_EQ(packet.propertyBag->parent(), nullptr);
    EXPECT_EQ(packet.propertyBag->metaObject(), &QObject::staticMetaObject);
}

TEST(PacketBase, CopyChangedThroughCopyShowsThroughFirstHandle) {
    HVDWPPacket first("First", 0);
    HVDWPPacket copy = first;
    copy.propertyBag->setProperty("Extra", QString("seen"));
    copy.setID("Changed");
    EXPECT_EQ(first.propertyBag->property("Extra").toString(), QString("seen"));
    EXPECT_EQ(first.getID(), QString("Changed"));
    EXPECT_EQ(first.propertyBag.data(), copy.propertyBag.data());
}

TEST(PacketBase, CopySlicedToRequestSharesTheFields) {
    HVDWPRequest request("Req", 0);
    HVDWPPacket sliced = request;
    sliced.propertyBag->setProperty("Slice", QString("[0:3]"));
    EXPECT_EQ(request.propertyBag->property("Slice").toString(), QString("[0:3]"));
}

TEST(PacketBase, IsValidFalseForPacketBuiltWithEmptyId) {
    HVDWPPacket packet("", 0);
    EXPECT_FALSE(packet.isValid());
}

TEST(PacketBase, IsValidFalseAfterSetIdWithEmptyString) {
    HVDWPPacket packet("Something", 0);
    ASSERT_TRUE(packet.isValid());
    packet.setID(QString());
    EXPECT_FALSE(packet.isValid());
    EXPECT_EQ(packet.propertyBag->property("id").userType(), int(QMetaType::QString));
}

TEST(PacketBase, IsValidFalseWhenIdIsMissing) {
    HVDWPPacket packet(emptyBag());
    EXPECT_FALSE(packet.isValid());
    EXPECT_EQ(packet.getID(), QString());
    EXPECT_EQ(packet.getToken(), 0);
}

TEST(PacketBase, AdoptedBagIsSharedAndNothingIsSet) {
    QSharedPointer<QObject> bag = emptyBag();
    bag->setProperty("result", QString("done"));
    HVDWPResponse response(bag);
    EXPECT_EQ(response.propertyBag.data(), bag.data());
    EXPECT_EQ(namesOf(response), (QList<QByteArray>{"result"}));
    EXPECT_TRUE(response.isDone());
    response.setErrorResult("broken", "7");
    EXPECT_EQ(bag->property("msg").toString(), QString("broken"));
}

TEST(PacketBase, AdoptingNullBagGivesEmptyUsableBag) {
    HVDWPResponse response{QSharedPointer<QObject>()};
    ASSERT_FALSE(response.propertyBag.isNull());
    EXPECT_TRUE(namesOf(response).isEmpty());
    EXPECT_FALSE(response.isErrorResult());
    EXPECT_EQ(response.getErrorMessage(), QString());
}

TEST(PacketBase, ResultTestsAllFalseWhenResultMissing) {
    HVDWPResponse response(emptyBag());
    EXPECT_FALSE(response.isDone());
    EXPECT_FALSE(response.isErrorResult());
    EXPECT_FALSE(response.isExitResult());
}

TEST(PacketBase, ResultWordsCompareCaseSensitively) {
    HVDWPResponse response(emptyBag());
    response.propertyBag->setProperty("result", QString("Done"));
    EXPECT_FALSE(response.isDone());
    response.propertyBag->setProperty("result", QString("ERROR"));
    EXPECT_FALSE(response.isErrorResult());
    response.propertyBag->setProperty("result", QString("Exit"));
    EXPECT_FALSE(response.isExitResult());
    EXPECT_FALSE(response.isDone());
}

TEST(PacketBase, SetDoneMakesOnlyIsDoneTrue) {
    HVDWPResponse response(emptyBag());
    response.setDone();
    EXPECT_EQ(response.propertyBag->property("result"), QVariant(QString("done")));
    EXPECT_TRUE(response.isDone());
    EXPECT_FALSE(response.isErrorResult());
    EXPECT_FALSE(response.isExitResult());
}

TEST(PacketBase, SetErrorResultSetsResultThenMsgThenCode) {
    HVDWPResponse response(emptyBag());
    response.setErrorResult("no such symbol", "42");
    EXPECT_EQ(namesOf(response), (QList<QByteArray>{"result", "msg", "code"}));
    EXPECT_TRUE(response.isErrorResult());
    EXPECT_FALSE(response.isDone());
    EXPECT_EQ(response.getErrorMessage(), QString("no such symbol"));
    EXPECT_EQ(response.getErrorCode(), QString("42"));
    EXPECT_EQ(response.propertyBag->property("code").userType(), int(QMetaType::QString));
}

TEST(PacketBase, SetExitAfterErrorTurnsErrorFalseButKeepsMessage) {
    HVDWPResponse response(emptyBag());
    response.setErrorResult("old text", "9");
    response.setExitResult();
    EXPECT_FALSE(response.isErrorResult());
    EXPECT_TRUE(response.isExitResult());
    EXPECT_EQ(response.getErrorMessage(), QString("old text"));
    EXPECT_EQ(response.getErrorCode(), QString("9"));
}

TEST(PacketBase, SummaryOfFreshAsyncRecordRepeatsIdAndToken) {
    AsyncRecord record;
    EXPECT_EQ(record.summary(), QString("AsyncRecord (0) - id = AsyncRecord, token = 0"));
}

TEST(PacketBase, SummaryListsPropertiesInOrderOfFirstSetting) {
    HVDWPPacket packet("Kind", 12);
    packet.propertyBag->setProperty("b", QString("2"));
    packet.propertyBag->setProperty("a", 1);
    packet.propertyBag->setProperty("b", QString("3"));
    EXPECT_EQ(packet.summary(), QString("Kind (12) - id = Kind, token = 12, b = 3, a = 1"));
}

TEST(PacketBase, SummaryPrintsNothingAfterEqualsForListsAndBitArrays) {
    HVDWPPacket packet("K", 0);
    packet.propertyBag->setProperty("Args", QStringList{"x", "y"});
    packet.propertyBag->setProperty("Bits", QBitArray(4, true));
    EXPECT_EQ(packet.summary(), QString("K (0) - id = K, token = 0, Args = , Bits = "));
}

TEST(PacketBase, SummaryOfBagWithoutIdOrTokenHasEmptyHead) {
    HVDWPPacket packet(emptyBag());
    packet.propertyBag->setProperty("result", QString("done"));
    EXPECT_EQ(packet.summary(), QString(" () - result = done"));
}

TEST(PacketBase, SummaryPlaceMarkerInsideIdIsFilledByLaterArgument) {
    // The head is filled by chained arg calls: the "%3" inside the id is the
    // lowest marker left for the last call and so gets the property text too.
    HVDWPPacket packet("A%3", 5);
    EXPECT_EQ(packet.summary(), QString("Aid = A%3, token = 5 (5) - id = A%3, token = 5"));
}

TEST(PacketBase, BagReleasedOnWorkerThreadDiesOnlyWhenDeferredDeletionsRun) {
    bool destroyed = false;
    QThread* destroyedIn = nullptr;
    std::optional<HVDWPRequest> lastHandle;
    {
        HVDWPRequest request("ArrayStatisticsRequest", 0);
        QObject::connect(request.propertyBag.data(), &QObject::destroyed, [&] {
            destroyed = true;
            destroyedIn = QThread::currentThread();
        });
        lastHandle.emplace(request);
    }

    QThread* worker = QThread::create([&] { lastHandle.reset(); });
    worker->start();
    ASSERT_TRUE(worker->wait(10000));
    delete worker;

    EXPECT_FALSE(lastHandle.has_value());
    // The last handle is gone, but the bag lives on until the GUI thread,
    // which it belongs to, runs its deferred deletions.
    EXPECT_FALSE(destroyed);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(destroyedIn, QCoreApplication::instance()->thread());
}

TEST(PacketBase, BagReleasedOnItsOwnThreadAlsoWaitsForDeferredDeletions) {
    bool destroyed = false;
    {
        HVDWPPacket packet("P", 0);
        QObject::connect(packet.propertyBag.data(), &QObject::destroyed, [&] { destroyed = true; });
    }
    EXPECT_FALSE(destroyed);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(destroyed);
}

TEST(PacketBase, BagLivingOnWorkerThreadDiesInThatThreadsEventLoop) {
    QThread worker;
    worker.start();
    QAtomicInt destroyed(0);
    QAtomicPointer<QThread> destroyedIn(nullptr);
    {
        HVDWPPacket packet("P", 0);
        QObject::connect(packet.propertyBag.data(), &QObject::destroyed, [&] {
            destroyedIn.storeRelease(QThread::currentThread());
            destroyed.storeRelease(1);
        });
        packet.propertyBag->moveToThread(&worker);
    } // last handle dropped here, on the GUI thread
    // Deferred deletions of the GUI thread do not touch an object of another
    // thread.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QElapsedTimer timer;
    timer.start();
    while (!destroyed.loadAcquire() && timer.elapsed() < 10000)
        QThread::msleep(5);
    worker.quit();
    ASSERT_TRUE(worker.wait(10000));
    EXPECT_EQ(destroyed.loadAcquire(), 1);
    EXPECT_EQ(destroyedIn.loadAcquire(), &worker);
}
