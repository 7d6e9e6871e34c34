// The fake host must behave like a host where the plug-in's tests rely on
// it: futures finish from the event loop, held requests wait, contexts
// signal their changes.
#include "support/fakehost.h"
#include "wire/arrayrecords.h"

#include <QFutureWatcher>
#include <QSignalSpy>
#include <gtest/gtest.h>

TEST(FakeDebugger, ScriptedAnswerArrivesFromTheEventLoop) {
    fake::Core core;
    core.debugger().respond("ArrayInfoRequest", QVariantMap{{"DimCount", 2}, {"result", "done"}});
    ArrayInfoRequest request;
    QFuture<QSharedPointer<QObject>> future = core.debugger().sendRequest(request);
    EXPECT_FALSE(future.isFinished());
    ASSERT_TRUE(fake::waitFor([&] { return future.isFinished(); }));
    QSharedPointer<QObject> bag = future.result();
    EXPECT_EQ(bag->property("DimCount").toInt(), 2);
    ASSERT_EQ(core.debugger().sent.size(), 1);
    EXPECT_EQ(core.debugger().sent.first().id, "ArrayInfoRequest");
}

TEST(FakeDebugger, HeldRequestWaitsUntilAnswered) {
    fake::Core core;
    core.debugger().hold("ArrayStatisticsRequest");
    ArrayStatisticsRequest request;
    QFuture<QSharedPointer<QObject>> future = core.debugger().sendRequest(request);
    EXPECT_FALSE(fake::waitFor([&] { return future.isFinished(); }, 50));
    EXPECT_EQ(core.debugger().heldCount(), 1);
    core.debugger().answerHeld(QVariantMap{{"Count", 7}});
    ASSERT_TRUE(fake::waitFor([&] { return future.isFinished(); }));
    EXPECT_EQ(future.result()->property("Count").toInt(), 7);
    EXPECT_EQ(core.debugger().heldCount(), 0);
}

TEST(FakeDebugger, WatcherSignalsFinishedOnTheGuiThread) {
    fake::Core core;
    core.debugger().respond("ArrayInfoRequest", QVariantMap{{"DimCount", 1}});
    QFutureWatcher<QSharedPointer<QObject>> watcher;
    QSignalSpy finished(&watcher, &QFutureWatcherBase::finished);
    watcher.setFuture(core.debugger().sendRequest(ArrayInfoRequest()));
    ASSERT_TRUE(fake::waitFor([&] { return finished.count() == 1; }));
}

TEST(FakeExpression, EvaluateRunsTheScriptedEvaluatorThenFinishes) {
    fake::Core core;
    core.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) {
        e.type = "double [10]";
        e.array = true;
    });
    IHVExpression* e = core.debugger().createExpression("a");
    QSharedPointer<fake::Frame> frame = core.makeCurrentFrame();
    QFuture<IHVExpression*> future = e->evaluate(frame);
    ASSERT_TRUE(fake::waitFor([&] { return future.isFinished(); }));
    EXPECT_EQ(e->getType(), "double [10]");
    EXPECT_EQ(e->getFrame(), frame);
    delete e;
}

TEST(FakeExpression, CloneCopiesEveryFieldAndCanBeRefused) {
    fake::Core core;
    auto* e = static_cast<fake::Expression*>(core.debugger().createExpression("b"));
    e->type = "int [3]";
    e->focus = "4";
    auto* copy = static_cast<fake::Expression*>(core.debugger().cloneExpression(e));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, e);
    EXPECT_EQ(copy->getExpression(), "b");
    EXPECT_EQ(copy->getType(), "int [3]");
    EXPECT_EQ(copy->getFocus(), "4");
    core.debugger().setCloneReturnsNull(true);
    EXPECT_EQ(core.debugger().cloneExpression(e), nullptr);
    delete copy;
    delete e;
}

TEST(FakeContexts, EveryChangeIsSignalled) {
    fake::Core core;
    QSignalSpy changed(&core.contexts, &NQ::IContextManager::contextChanged);
    core.contexts.registerContext("x");
    EXPECT_TRUE(core.contexts.isContextRegistered("x"));
    EXPECT_FALSE(core.contexts.hasContext("x"));
    core.contexts.activateContext("x");
    EXPECT_TRUE(core.contexts.hasContext("x"));
    core.contexts.deactivateContext("x");
    EXPECT_FALSE(core.contexts.hasContext("x"));
    EXPECT_EQ(changed.count(), 3);
}
