// From typed text to a held expression: Return in the combo box, the
// evaluation, the refusals, and how frame and process selections reach the
// expressions.
#include "rig.h"

#include <QTest>
#include <gtest/gtest.h>

using rig::Rig;

namespace {

void typeAndReturn(Rig& r, const QString& text) {
    QLineEdit* edit = r.combo()->lineEdit();
    edit->clear();
    QTest::keyClicks(r.combo(), text);
    // Keys go to the combo box, which hands them to its line edit, as the
    // focus proxy does in real use.
    QTest::keyClick(r.combo(), Qt::Key_Return);
}

QSharedPointer<QObject> sharedFrame() {
    return QSharedPointer<QObject>(new fake::Frame);
}
QSharedPointer<QObject> sharedProcess() {
    return QSharedPointer<QObject>(new fake::Process);
}

} // namespace

// ---- the road of one typed expression ---------------------------------------------

TEST(ExpressionRoad, TypedExpressionGoesSetExpressionThenArrayInfoThenUpdateUIThenSuccess) {
    Rig r;
    r.connectDebugger();
    r.frame->function = "compute";
    r.frame->fileName = "grid.c";
    r.frame->line = 42;
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) {
        e.type = "double[8][8]";
        e.focus = "3";
        e.frameLevel = 2;
        e.recursionDepth = 1;
    });
    // What the controller holds at the moment each request goes out.
    QStringList road;
    r.debugger().respond(rig::INFO_REQUEST, [&](const QObject& request) {
        road << QString("info pending=%1 current=%2")
                    .arg(r.ui->newExpressionPending)
                    .arg(r.ui->currentExpression ? r.ui->currentExpression->getExpression()
                                                 : QString());
        return QVariantMap{{"result", "done"},
                           {"ArrayName", request.property("Expression")},
                           {"DimCount", 2},
                           {"EmptySlice", "[:][:]"},
                           {"ArrayBounds", QStringList{"0:7", "0:7"}}};
    });
    r.debugger().respond(rig::STATS_REQUEST, [&](const QObject& request) {
        road << QString("stats page=%1 bounds=%2").arg(r.page()).arg(r.ui->currentBounds.join(","));
        return QVariantMap{{"result", "done"},
                           {"Array", request.property("Expression")},
                           {"EmptySlice", "[0:7:1][0:7:1]"},
                           {"ActualType", "double[64]"},
                           {"Filter", QString()}};
    });

    typeAndReturn(r, "grid");
    // Nothing blocks: the evaluation is still under way.
    ASSERT_EQ(r.debugger().created.size(), 1);
    EXPECT_EQ(r.debugger().created.first()->text, "grid");
    EXPECT_EQ(r.debugger().created.first()->evaluateCount, 1);
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    // Watched from here on: the evaluated object is released once its copy
    // is held.
    QPointer<fake::Expression> typed = r.debugger().created.first();

    ASSERT_TRUE(fake::waitFor([&] { return r.combo()->count() == 1; }, 3000));
    // setExpression (a copy is current and pending) came before the array
    // information, and updateUI (statistics page, bounds stored) after it.
    EXPECT_EQ(r.sentIds(), (QStringList{rig::INFO_REQUEST, rig::STATS_REQUEST}));
    EXPECT_EQ(road, (QStringList{"info pending=1 current=grid", "stats page=1 bounds=0:7,0:7"}));
    EXPECT_EQ(r.ui->currentExpression->getExpression(), "grid");
    EXPECT_NE(r.ui->currentExpression, r.debugger().created.first());

    // handleSuccess: the item at index 0, its tool tip, the labels.
    EXPECT_EQ(r.combo()->itemText(0), "grid");
    EXPECT_EQ(r.combo()->currentIndex(), 0);
    EXPECT_EQ(r.ui->expressions, QList<IHVExpression*>{r.ui->currentExpression});
    EXPECT_FALSE(r.ui->newExpressionPending);
    EXPECT_FALSE(r.updateContextActive());
    const QString tip = "&nbsp;<b>Expr:</b>&nbsp;grid"
                        "<br/>&nbsp;<b>Type:</b>&nbsp;double[8][8]"
                        "<br/>&nbsp;<b>Actual Type:</b>&nbsp;double[64]"
                        "<br/>&nbsp;<b>Thread ID:</b>&nbsp;3"
                        "<br/>&nbsp;<b>Frame Level:</b>&nbsp;2"
                        "<br/>&nbsp;<b>Recursion Depth:</b>&nbsp;1"
                        "<br/>&nbsp;<b>Function:</b>&nbsp;compute"
                        "<br/>&nbsp;<b>File:</b>&nbsp;grid.c"
                        "<br/>&nbsp;<b>Line:</b>&nbsp;42";
    EXPECT_EQ(r.combo()->toolTip(), tip);
    EXPECT_EQ(r.combo()->itemData(0, Qt::ToolTipRole).toString(), tip);
    EXPECT_EQ(r.bar->threadButton->text(), "Thread: 3");
    EXPECT_EQ(r.bar->typeButton->text(), "double[8][8]");
    EXPECT_EQ(r.bar->sliceButton->text(), "[0:7:1][0:7:1]");
    EXPECT_EQ(r.page(), 1);
    // The evaluated object itself is released; only the copy is kept.
    fake::waitFor([&] { return typed.isNull(); }, 1000);
    EXPECT_TRUE(typed.isNull());
}

TEST(ExpressionRoad, ADuplicateSelectsTheHeldOneAndAsksForArrayInformationAgain) {
    Rig r;
    r.connectDebugger();
    typeAndReturn(r, "a");
    ASSERT_TRUE(fake::waitFor([&] { return r.combo()->count() == 1; }));
    IHVExpression* held = r.ui->currentExpression;
    typeAndReturn(r, "b");
    ASSERT_TRUE(fake::waitFor([&] { return r.combo()->count() == 2; }));
    const int infoBefore = r.sentCount(rig::INFO_REQUEST);
    typeAndReturn(r, "a");
    ASSERT_TRUE(fake::waitFor([&] { return r.sentCount(rig::INFO_REQUEST) == infoBefore + 1; }));
    EXPECT_EQ(r.ui->currentExpression, held);
    EXPECT_EQ(r.combo()->currentIndex(), 1);
    r.settle(100);
    EXPECT_EQ(r.combo()->count(), 2);
    EXPECT_EQ(r.ui->expressions.size(), 2);
}

// ---- what is refused ----------------------------------------------------------------

TEST(ExpressionRefusals, EmptyTextClearsTheCurrentExpressionWithNoArrayDataAvailable) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    typeAndReturn(r, "");
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_TRUE(r.debugger().created.size() == 1); // only the one made by the rig
}

TEST(ExpressionRefusals, NoFocusFrameEvaluatesNothingWithNoArrayDataAvailable) {
    Rig r;
    r.connectDebugger();
    r.core.corePlugin.currentFrame.reset();
    typeAndReturn(r, "a");
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_EQ(r.page(), 0);
    EXPECT_TRUE(r.debugger().created.isEmpty());
    // The field keeps what was typed.
    EXPECT_EQ(r.combo()->currentText(), "a");
}

TEST(ExpressionRefusals, NoHostExtensionEvaluatesNothingWithNoArrayDataAvailable) {
    Rig r(false);
    r.connectDebugger();
    typeAndReturn(r, "a");
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_TRUE(r.debugger().created.isEmpty());
}

TEST(ExpressionRefusals, EvaluationWithoutExpressionSaysUndefinedAndHoldsNothing) {
    Rig r;
    r.connectDebugger();
    // A watcher whose expression is gone by the time the evaluation ends.
    auto* watcher = new ExpressionWatcher(nullptr, "[0:1:1]", "a > 0", true);
    QObject::connect(watcher, SIGNAL(finished()), r.ui, SLOT(handleExprEvalFinished()));
    QFutureInterface<IHVExpression*> promise;
    promise.reportStarted();
    watcher->setFuture(promise.future());
    promise.reportResult(static_cast<IHVExpression*>(nullptr));
    promise.reportFinished();
    ASSERT_TRUE(fake::waitFor([&] { return r.page0Text() == "Error: undefined expression"; }));
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_TRUE(r.ui->expressions.isEmpty());
    // The values the watcher carried are restored all the same.
    EXPECT_EQ(r.ui->currentSlice, "[0:1:1]");
    EXPECT_EQ(r.ui->currentFilter, "a > 0");
}

TEST(ExpressionRefusals, FailedEvaluationShowsItsOwnTextClearsButtonsAndHoldsNothing) {
    Rig r;
    r.connectDebugger();
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) {
        e.error = true;
        e.errorMessage = "No symbol \"nope\" in current context.";
    });
    r.bar->typeButton->setText("int[4]");
    r.bar->typeButton->setToolTip("Type: int[4]");
    r.bar->sliceButton->setText("[0:3:1]");
    typeAndReturn(r, "nope");
    ASSERT_TRUE(
        fake::waitFor([&] { return r.page0Text() == "No symbol \"nope\" in current context."; }));
    EXPECT_TRUE(r.bar->typeButton->text().isEmpty());
    EXPECT_TRUE(r.bar->typeButton->toolTip().isEmpty());
    EXPECT_TRUE(r.bar->sliceButton->text().isEmpty());
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.combo()->count(), 0);
    EXPECT_EQ(r.combo()->currentText(), "nope");
}

TEST(ExpressionRefusals, NotAnArrayGetsTheWordsBehindItsTextAndHoldsNothing) {
    Rig r;
    r.connectDebugger();
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) {
        e.array = false;
        e.type = "int";
    });
    typeAndReturn(r, "count");
    ASSERT_TRUE(fake::waitFor([&] { return r.page() == 0 && r.page0Text().startsWith("count"); }));
    EXPECT_EQ(r.page0Text(),
              "count is not an array. Please pre-process allocated arrays in the Data View");
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.combo()->count(), 0);
    EXPECT_TRUE(r.debugger().sent.isEmpty());
}

// ---- the cases worth a test of their own ------------------------------------------

TEST(ExpressionEntry, ReturnOnEmptyFieldKeepsMapsAndTheNextPickRestoresSettings) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn(r.makeExpression("a"), "[0:4:1][0:4:1]", "a > 1");
    r.bringIn("b");
    const auto slices = r.ui->sliceMap;
    const auto filters = r.ui->filterMap;
    const auto configs = r.ui->configMap;
    typeAndReturn(r, "");
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_EQ(r.combo()->currentIndex(), -1);
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.ui->currentConfig, nullptr);
    EXPECT_EQ(r.ui->sliceMap, slices);
    EXPECT_EQ(r.ui->filterMap, filters);
    EXPECT_EQ(r.ui->configMap, configs);
    EXPECT_EQ(r.ui->expressions.size(), 2);

    r.combo()->setCurrentIndex(1);
    EXPECT_EQ(r.ui->currentExpression, a);
    EXPECT_EQ(r.ui->currentSlice, "[0:4:1][0:4:1]");
    EXPECT_EQ(r.ui->currentFilter, "a > 1");
    EXPECT_EQ(r.ui->currentConfig, configs.value(a));
}

TEST(ExpressionEntry, ReturnWithTheCurrentTextEvaluatesNothingAndOnlyRefreshesLabels) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    const int created = r.debugger().created.size();
    const int sent = r.debugger().sent.size();
    r.bar->threadButton->setText("stale label");
    const QString slice = r.ui->currentSlice;
    // The combo box's current text is the current expression's.
    QTest::keyClick(r.combo(), Qt::Key_Return);
    r.settle();
    EXPECT_EQ(r.debugger().created.size(), created);
    EXPECT_EQ(r.debugger().sent.size(), sent);
    EXPECT_EQ(r.ui->currentExpression, a);
    EXPECT_EQ(r.ui->currentSlice, slice);
    EXPECT_FALSE(r.updateContextActive());
    EXPECT_EQ(r.bar->threadButton->text(), "Thread: " + a->getFocus());
}

TEST(ExpressionEntry, ScalarGetsTheNotAnArrayWordsBehindItsTextAndNoItem) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) {
        if (e.text == "n")
            e.array = false;
    });
    typeAndReturn(r, "n");
    ASSERT_TRUE(fake::waitFor([&] { return r.page() == 0; }));
    EXPECT_EQ(r.page0Text(),
              "n is not an array. Please pre-process allocated arrays in the Data View");
    EXPECT_EQ(r.combo()->count(), 1);
    EXPECT_EQ(r.combo()->itemText(0), "a");
}

TEST(ExpressionEntry, FrameSelectionWithResolvedExpressionActivatesUpdateAndEvaluatesNothing) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    const int clones = r.debugger().clones.size();
    NQ::QSharedObjectSelection selection({sharedFrame(), sharedProcess()});
    r.core.selections.select("HVFrame", nullptr, &selection);
    r.settle();
    EXPECT_TRUE(r.updateContextActive());
    EXPECT_EQ(r.debugger().clones.size(), clones);
    // The walk ended at the frame: the process after it was not looked at.
    EXPECT_TRUE(r.ui->currentExpression->isResolved());
}

TEST(ExpressionEntry, FrameSelectionWithUnresolvedExpressionEvaluatesACopyAgain) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    a->setResolved(false);
    const int clones = r.debugger().clones.size();
    NQ::QSharedObjectSelection selection({sharedFrame()});
    r.core.selections.select("HVFrame", nullptr, &selection);
    ASSERT_EQ(r.debugger().clones.size(), clones + 1);
    EXPECT_EQ(r.debugger().clones.last()->evaluateCount, 1);
    EXPECT_FALSE(r.updateContextActive());
}

TEST(ExpressionEntry, ProcessSelectionMarksAllUnresolvedAndEvaluatesOnlyWhenPicked) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    IHVExpression* b = r.bringIn("b");
    const int clones = r.debugger().clones.size();
    const int sent = r.debugger().sent.size();
    NQ::QSharedObjectSelection selection({sharedProcess()});
    r.core.selections.select("HVProcess", nullptr, &selection);
    r.settle();
    EXPECT_FALSE(a->isResolved());
    EXPECT_FALSE(b->isResolved());
    EXPECT_EQ(r.debugger().clones.size(), clones);
    EXPECT_EQ(r.debugger().sent.size(), sent);

    r.combo()->setCurrentIndex(1); // "a"
    ASSERT_EQ(r.debugger().clones.size(), clones + 1);
    EXPECT_EQ(r.debugger().clones.last()->text, "a");
    EXPECT_EQ(r.debugger().clones.last()->evaluateCount, 1);
}

TEST(ExpressionEntry, SelectionThatIsNotOfTheSharedKindIsIgnored) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    fake::Process process;
    fake::Frame frame;
    NQ::QObjectSelection selection({&frame, &process});
    r.core.selections.select("HVProcess", nullptr, &selection);
    r.core.selections.select("HVFrame", nullptr, &selection);
    EXPECT_TRUE(a->isResolved());
    EXPECT_FALSE(r.updateContextActive());
}

TEST(ExpressionEntry, CanceledWatcherLeavesCurrentExpressionAndMessagePageAsTheyWere) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    r.ui->postMessage("as it was");
    fake::Expression* pending = r.makeExpression("b");
    QPointer<ExpressionWatcher> watcher = new ExpressionWatcher(pending, "s", "f", true);
    QObject::connect(watcher, SIGNAL(finished()), r.ui, SLOT(handleExprEvalFinished()));
    QObject::connect(watcher, SIGNAL(canceled()), r.ui, SLOT(handleExpressionCancelled()));
    QFutureInterface<IHVExpression*> promise;
    promise.reportStarted();
    watcher->setFuture(promise.future());
    promise.reportCanceled();
    promise.reportFinished();
    fake::waitFor([&] { return watcher.isNull(); }, 2000);
    EXPECT_TRUE(watcher.isNull()); // released
    EXPECT_EQ(r.ui->currentExpression, a);
    EXPECT_EQ(r.page0Text(), "as it was");
    EXPECT_EQ(r.page(), 0);
    EXPECT_NE(r.ui->currentSlice, "s");
    EXPECT_EQ(pending->evaluateCount, 0);
}

// ---- the evaluation roads -------------------------------------------------------------

TEST(ExpressionEntry, TypedExpressionStartsWithTheSliceAndFilterOfTheOneBefore) {
    Rig r;
    r.connectDebugger();
    r.bringIn(r.makeExpression("a", "int[10][5]"), "[0:4:1][1:1:1]", "a > 2");
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) { e.type = "long[3][3]"; });
    r.debugger().hold(rig::INFO_REQUEST);
    typeAndReturn(r, "b");
    ASSERT_TRUE(fake::waitFor([&] { return r.ui->newExpressionPending; }));
    EXPECT_EQ(r.ui->currentExpression->getExpression(), "b");
    // Same rank, so the slice is kept; the filter always is.
    EXPECT_EQ(r.ui->currentExpression->getType(), "long[3][3]");
    EXPECT_EQ(r.ui->currentSlice, "[0:4:1][1:1:1]");
    EXPECT_EQ(r.ui->currentFilter, "a > 2");
}

TEST(ExpressionEntry, TypedExpressionOfAnotherRankDropsTheSliceButKeepsTheFilter) {
    Rig r;
    r.connectDebugger();
    r.bringIn(r.makeExpression("a", "int[10][5]"), "[0:4:1][1:1:1]", "a > 2");
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) { e.type = "long[3]"; });
    r.debugger().hold(rig::INFO_REQUEST);
    typeAndReturn(r, "b");
    ASSERT_TRUE(fake::waitFor([&] { return r.ui->newExpressionPending; }));
    EXPECT_TRUE(r.ui->currentSlice.isEmpty());
    EXPECT_EQ(r.ui->sliceMap.value(r.ui->currentExpression), "[0:4:1][1:1:1]");
    EXPECT_EQ(r.ui->currentFilter, "a > 2");
}

TEST(ExpressionEntry, UpdateCurrentExpressionEvaluatesACopyInItsOwnFrame) {
    Rig r;
    r.connectDebugger();
    QSharedPointer<fake::Frame> own(new fake::Frame);
    own->function = "own";
    IHVExpression* a = r.bringIn(r.makeExpression("a", "int[10][5]", own));
    IHVFrame* seen = nullptr;
    r.debugger().setEvaluator([&](fake::Expression&, IHVFrame* frame) { seen = frame; });
    r.ui->updateCurrentExpression(false);
    ASSERT_TRUE(fake::waitFor([&] { return seen != nullptr; }));
    EXPECT_EQ(seen, own.data());
    r.settle();
    // The evaluated copy equals the held one, which stays current.
    EXPECT_EQ(r.ui->currentExpression, a);
}
