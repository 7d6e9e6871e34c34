// The three request watchers: plain future watchers with the context of one
// request, and the way a response is read from what they deliver.

#include "wire/arrayrecords.h"
#include "wire/watchers.h"

#include "fakeexpression.h"
#include "qtprinters.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFutureInterface>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include <type_traits>

using BagWatcher = QFutureWatcher<QSharedPointer<QObject>>;

static_assert(std::is_base_of<BagWatcher, StatisticsWatcher>::value, "");
static_assert(std::is_base_of<BagWatcher, Data2DTableWatcher>::value, "");
static_assert(std::is_base_of<BagWatcher, VisualDataWatcher>::value, "");

namespace {

// Same methods as the base watcher: no signals or slots of their own.
void expectNoOwnMethods(const QMetaObject* meta) {
    EXPECT_EQ(meta->methodCount(), QFutureWatcherBase::staticMetaObject.methodCount())
        << meta->className();
    EXPECT_EQ(meta->superClass(), &QFutureWatcherBase::staticMetaObject);
}

QFuture<QSharedPointer<QObject>> finishedFuture(const QSharedPointer<QObject>& bag) {
    QFutureInterface<QSharedPointer<QObject>> promise;
    promise.reportStarted();
    promise.reportResult(bag);
    promise.reportFinished();
    return promise.future();
}

} // namespace

TEST(Watchers, StatisticsWatcherMembersDefaultToNullAndEmpty) {
    StatisticsWatcher watcher;
    EXPECT_EQ(watcher.expression, nullptr);
    EXPECT_TRUE(watcher.slice.isEmpty());
    EXPECT_TRUE(watcher.filter.isEmpty());
    EXPECT_EQ(watcher.parent(), nullptr);
}

TEST(Watchers, Data2DTableWatcherMembersDefaultToNullEmptyAndFalse) {
    Data2DTableWatcher watcher;
    EXPECT_EQ(watcher.expression, nullptr);
    EXPECT_TRUE(watcher.slice.isEmpty());
    EXPECT_FALSE(watcher.forceSetup);
    EXPECT_FALSE(watcher.boundsOnly);
}

TEST(Watchers, VisualDataWatcherMembersDefaultToNullAndEmpty) {
    VisualDataWatcher watcher;
    EXPECT_EQ(watcher.expression, nullptr);
    EXPECT_TRUE(watcher.slice.isEmpty());
    EXPECT_TRUE(watcher.filter.isEmpty());
}

TEST(Watchers, EachHasItsOwnMetaObjectButNoSignalsOrSlots) {
    StatisticsWatcher statistics;
    Data2DTableWatcher table;
    VisualDataWatcher visual;
    EXPECT_STREQ(statistics.metaObject()->className(), "StatisticsWatcher");
    EXPECT_STREQ(table.metaObject()->className(), "Data2DTableWatcher");
    EXPECT_STREQ(visual.metaObject()->className(), "VisualDataWatcher");
    expectNoOwnMethods(statistics.metaObject());
    expectNoOwnMethods(table.metaObject());
    expectNoOwnMethods(visual.metaObject());
}

TEST(Watchers, HandlerCanTellItsWatcherFromAnother) {
    // Handlers cast the sender dynamically and give up on a wrong type.
    StatisticsWatcher statistics;
    QObject* sender = &statistics;
    EXPECT_NE(dynamic_cast<StatisticsWatcher*>(sender), nullptr);
    EXPECT_EQ(dynamic_cast<Data2DTableWatcher*>(sender), nullptr);
    EXPECT_EQ(qobject_cast<VisualDataWatcher*>(sender), nullptr);
    EXPECT_NE(qobject_cast<StatisticsWatcher*>(sender), nullptr);
}

TEST(Watchers, FinishedWatcherDeliversTheResponseBag) {
    FakeExpression expression;
    auto* watcher = new StatisticsWatcher;
    watcher->expression = &expression;
    watcher->slice = "[0:9]";
    QSignalSpy finished(watcher, SIGNAL(finished()));

    ArrayStatisticsResponse answer(HVDWPPacket::makeBag());
    answer.setDone();
    answer.propertyBag->setProperty("Count", 10);
    watcher->setFuture(finishedFuture(answer.propertyBag));

    QElapsedTimer timer;
    timer.start();
    while (finished.isEmpty() && timer.elapsed() < 5000)
        QCoreApplication::processEvents();
    ASSERT_EQ(finished.size(), 1);

    ArrayStatisticsResponse response(watcher->future().result());
    EXPECT_EQ(response.propertyBag.data(), answer.propertyBag.data());
    EXPECT_FALSE(response.isErrorResult());
    EXPECT_EQ(response.getCount(), 10);
    EXPECT_EQ(watcher->expression, &expression);
    EXPECT_EQ(watcher->slice, QString("[0:9]"));
    delete watcher;
}
