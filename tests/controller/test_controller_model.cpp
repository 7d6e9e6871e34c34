// The controller's data: construction, the list of expressions with their
// settings, duplicates, bounds, and the settings the dialog hands back.
#include "rig.h"

#include <QHBoxLayout>
#include <QSignalSpy>
#include <QVBoxLayout>
#include <gtest/gtest.h>

using rig::Rig;

TEST(ControllerConstruction, StackHoldsMessageStatisticsPlotTableInThatOrder) {
    Rig r;
    ASSERT_EQ(r.ui->stack->count(), 4);
    EXPECT_EQ(r.ui->stack->widget(0), r.ui->messageLabel);
    EXPECT_EQ(r.ui->stack->widget(1), static_cast<QWidget*>(r.ui->statisticsUI));
    EXPECT_EQ(r.ui->stack->widget(2), static_cast<QWidget*>(r.ui->visualizer));
    EXPECT_EQ(r.ui->stack->widget(3), static_cast<QWidget*>(r.ui->data2DTableUI));
    EXPECT_EQ(r.ui->stack->parentWidget(), r.ui);
}

TEST(ControllerConstruction, MessageLabelCarriesItsObjectNameClassAndStartMessage) {
    Rig r;
    EXPECT_EQ(r.ui->messageLabel->objectName(), "ArrayLensMessageLabel");
    EXPECT_EQ(r.ui->messageLabel->property("class").toString(), "message-area-label");
    EXPECT_EQ(r.ui->messageLabel->alignment(), Qt::AlignHCenter | Qt::AlignVCenter);
    EXPECT_TRUE(r.ui->messageLabel->wordWrap());
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
}

TEST(ControllerConstruction, FlagsStartFalseAndSizeHintIsInvalid) {
    Rig r;
    EXPECT_FALSE(r.ui->connected);
    EXPECT_FALSE(r.ui->ready);
    EXPECT_FALSE(r.ui->newExpressionPending);
    EXPECT_FALSE(r.ui->use2DSlice);
    EXPECT_FALSE(r.ui->filterDisabled);
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.ui->currentDimCount, 0);
    EXPECT_TRUE(r.ui->currentEmptySlice.isEmpty());
    EXPECT_TRUE(r.ui->currentBounds.isEmpty());
    EXPECT_EQ(r.ui->sizeHint(), QSize(-1, -1));
    auto* layout = qobject_cast<QVBoxLayout*>(r.ui->layout());
    ASSERT_NE(layout, nullptr);
    EXPECT_EQ(layout->contentsMargins(), QMargins(0, 0, 0, 0));
}

TEST(ControllerConstruction, FindsBothExtensionsAndListensToFramesAndProcesses) {
    Rig r;
    EXPECT_EQ(r.ui->debugger.data(), &r.debugger());
    EXPECT_EQ(r.ui->halvane, static_cast<IHalvane*>(&r.core.corePlugin));
    QStringList types;
    for (const auto& l : r.core.selections.listeners)
        if (l.first == r.ui)
            types << l.second;
    EXPECT_EQ(types, (QStringList{"HVFrame", "HVProcess"}));
}

TEST(ControllerConstruction, WithoutTheFocusExtensionHalvaneIsNull) {
    Rig r(false);
    EXPECT_EQ(r.ui->halvane, nullptr);
    EXPECT_NE(r.ui->debugger, nullptr);
}

TEST(ControllerConstruction, DestructorEndsTheSelectionSubscription) {
    Rig r;
    const int before = r.core.selections.removals;
    delete r.view;
    r.view = nullptr;
    EXPECT_EQ(r.core.selections.removals, before + 1);
    EXPECT_TRUE(r.core.selections.listeners.isEmpty());
}

TEST(ControllerSlots, MetaObjectListsTheSlotsInOrderAndNoSignals) {
    const QMetaObject& mo = ArrayLensUI::staticMetaObject;
    QStringList slotNames;
    int signalCount = 0;
    for (int i = mo.methodOffset(); i < mo.methodCount(); ++i) {
        const QMetaMethod m = mo.method(i);
        if (m.methodType() == QMetaMethod::Slot)
            slotNames << QString::fromLatin1(m.methodSignature());
        if (m.methodType() == QMetaMethod::Signal)
            ++signalCount;
    }
    EXPECT_EQ(signalCount, 0);
    EXPECT_EQ(
        slotNames,
        (QStringList{"handleStaleData()", "handleError(QString)", "handleConfigError(QString)",
                     "handleContextChange()", "handleComboIndexChanged(int)",
                     "handleExprEvalFinished()", "handleExpressionCancelled()",
                     "handleSuccess(QString,QString,QString,QString)",
                     "handle2DTableSuccess(QString,QString,QString,QString,Config2DTable*,bool)",
                     "handleReturnPressed()", "handleDebuggerEvent(AsyncRecord)", "updateUI()",
                     "handleTimeout()"}));
}

// ---- the cases worth a test of their own ------------------------------------------

TEST(ControllerModel, ClearExpressionsOnAnEmptyControllerLeavesComboAtMinusOneAndPostsNothing) {
    Rig r;
    r.connectDebugger();
    r.ui->postMessage("something else");
    r.ui->clearExpressions();
    EXPECT_EQ(r.combo()->currentIndex(), -1);
    EXPECT_EQ(r.combo()->count(), 0);
    EXPECT_EQ(r.page0Text(), "something else");
    EXPECT_EQ(r.page(), 0);
    EXPECT_TRUE(r.debugger().sent.isEmpty());
}

TEST(ControllerModel, SameTextInDifferentFramesGivesTwoItemsEachWithItsOwnSettings) {
    Rig r;
    r.connectDebugger();
    QSharedPointer<fake::Frame> other(new fake::Frame);
    other->function = "helper";
    IHVExpression* first = r.bringIn(r.makeExpression("a"), "[0:4:1][0:4:1]", "a > 1");
    IHVExpression* second =
        r.bringIn(r.makeExpression("a", "int[10][5]", other), "[1:2:1][0:4:1]", "a < 0");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(first, second);
    ASSERT_EQ(r.combo()->count(), 2);
    EXPECT_EQ(r.combo()->itemText(0), "a");
    EXPECT_EQ(r.combo()->itemText(1), "a");

    r.combo()->setCurrentIndex(1); // the older one
    EXPECT_EQ(r.ui->currentExpression, first);
    EXPECT_EQ(r.ui->currentSlice, "[0:4:1][0:4:1]");
    EXPECT_EQ(r.ui->currentFilter, "a > 1");
    r.combo()->setCurrentIndex(0);
    EXPECT_EQ(r.ui->currentExpression, second);
    EXPECT_EQ(r.ui->currentSlice, "[1:2:1][0:4:1]");
    EXPECT_EQ(r.ui->currentFilter, "a < 0");
}

TEST(ControllerModel, ComboChangeDoesNothingWhileANewExpressionIsPending) {
    Rig r;
    r.connectDebugger();
    IHVExpression* held = r.bringIn("a");
    r.bringIn("b");
    r.debugger().hold(rig::INFO_REQUEST);
    r.ui->setExpression(r.makeExpression("c"), QString(), QString(), true);
    ASSERT_TRUE(r.ui->newExpressionPending);
    IHVExpression* pending = r.ui->currentExpression;
    const int sentBefore = r.debugger().sent.size();
    r.combo()->setCurrentIndex(1);
    EXPECT_EQ(r.ui->currentExpression, pending);
    EXPECT_NE(r.ui->currentExpression, held);
    r.settle();
    EXPECT_EQ(r.debugger().sent.size(), sentBefore);
}

TEST(ControllerModel, GetOrigArrayBoundsWithoutExpressionOrBoundsIsEmptyAndAddsNoEntry) {
    Rig r;
    EXPECT_TRUE(r.ui->getOrigArrayBounds().isEmpty());
    EXPECT_TRUE(r.ui->origBoundsMap.isEmpty());
    r.connectDebugger();
    r.debugger().hold(rig::INFO_REQUEST);
    r.ui->setExpression(r.makeExpression("a"), QString(), QString(), true);
    ASSERT_NE(r.ui->currentExpression, nullptr);
    EXPECT_TRUE(r.ui->getOrigArrayBounds().isEmpty());
    EXPECT_FALSE(r.ui->origBoundsMap.contains(r.ui->currentExpression));
}

TEST(ControllerModel, SetCurrentArrayBoundsTwiceKeepsTheFirstAsOriginalAndTheSecondAsCurrent) {
    Rig r;
    r.connectDebugger();
    r.debugger().hold(rig::INFO_REQUEST);
    r.ui->setExpression(r.makeExpression("a"), QString(), QString(), true);
    r.ui->setCurrentArrayBounds({"0:9", "0:4"});
    r.ui->setCurrentArrayBounds({"2:3", "1:1"});
    EXPECT_EQ(r.ui->origBoundsMap.value(r.ui->currentExpression), (QStringList{"0:9", "0:4"}));
    EXPECT_EQ(r.ui->getOrigArrayBounds(), (QStringList{"0:9", "0:4"}));
    EXPECT_EQ(r.ui->currentBounds, (QStringList{"2:3", "1:1"}));
}

TEST(ControllerModel, UpdateUIFromConfigWithANewCastAndASliceEmptiesSliceAndEndsWithout2DSlice) {
    Rig r;
    r.connectDebugger();
    IHVExpression* held = r.bringIn("a", "int[10][5]");
    // The dialog's type field holds the cast.
    r.view->configDialog->typeLineEdit->setText("float[50]");
    auto* config = new Config2DTable(0, 1, "[0:9:1][0:4:1]", al_pres_hex, al_type_float, {});
    r.ui->updateUIFromConfig("[0:9:1][0:4:1]", QString(), config, true);
    EXPECT_EQ(held->getType(), "float[50]");
    auto* fakeHeld = static_cast<fake::Expression*>(held);
    ASSERT_FALSE(fakeHeld->setTypeCalls.isEmpty());
    EXPECT_EQ(fakeHeld->setTypeCalls.last(), qMakePair(QString("float[50]"), true));
    EXPECT_TRUE(config->slice.isEmpty());         // the table's slice was cleared
    EXPECT_EQ(config->dataPres, al_pres_default); // and its format reset
    EXPECT_FALSE(r.ui->use2DSlice);
    // The map keeps the flag as the dialog gave it.
    EXPECT_TRUE(r.ui->use2DSliceMap.value(held));
    EXPECT_EQ(r.ui->currentConfig, config);
    // The slice went in empty, so the controller's slice is empty too.
    EXPECT_TRUE(r.ui->currentSlice.isEmpty());
    EXPECT_TRUE(r.ui->sliceMap.value(held).isEmpty());
}

TEST(ControllerModel, SetExpressionWithSliceOfOtherRankStoresEmptySliceButMapKeepsTextUntilAnswer) {
    Rig r;
    r.connectDebugger();
    r.debugger().hold(rig::INFO_REQUEST);
    r.ui->setExpression(r.makeExpression("a", "int[10][5]"), "[0:3:1]", QString(), true);
    IHVExpression* current = r.ui->currentExpression;
    ASSERT_NE(current, nullptr);
    EXPECT_TRUE(r.ui->currentSlice.isEmpty());
    EXPECT_EQ(r.ui->sliceMap.value(current), "[0:3:1]");
    // The first answer brings the real slice.
    r.debugger().answerHeldWithResponder();
    fake::waitFor([&] { return !r.ui->newExpressionPending; }, 2000);
    EXPECT_FALSE(r.ui->newExpressionPending);
    EXPECT_EQ(r.ui->sliceMap.value(current), "[0:9:1][0:4:1]");
    EXPECT_EQ(r.ui->currentSlice, "[0:9:1][0:4:1]");
}

// ---- the rest of the operations ---------------------------------------------------

TEST(ControllerModel, SetExpressionOfANewExpressionHoldsACopyWithFreshTableSettings) {
    Rig r;
    r.connectDebugger();
    r.debugger().hold(rig::INFO_REQUEST);
    fake::Expression* given = r.makeExpression("a");
    r.ui->setExpression(given, "[0:9:1][0:4:1]", "a > 0", true);
    IHVExpression* current = r.ui->currentExpression;
    ASSERT_NE(current, nullptr);
    EXPECT_NE(current, given);
    EXPECT_TRUE(r.debugger().clones.contains(static_cast<fake::Expression*>(current)));
    EXPECT_EQ(r.ui->currentSlice, "[0:9:1][0:4:1]");
    EXPECT_EQ(r.ui->currentFilter, "a > 0");
    EXPECT_EQ(r.ui->filterMap.value(current), "a > 0");
    ASSERT_NE(r.ui->currentConfig, nullptr);
    EXPECT_EQ(r.ui->configMap.value(current), r.ui->currentConfig);
    EXPECT_EQ(r.ui->currentSlice2dTable, r.ui->currentConfig->slice);
    EXPECT_FALSE(r.ui->use2DSliceMap.value(current, true));
    EXPECT_TRUE(r.ui->newExpressionPending);
    EXPECT_TRUE(r.ui->expressions.isEmpty()); // not before its first success
    EXPECT_EQ(r.combo()->count(), 0);
    EXPECT_EQ(r.sentCount(rig::INFO_REQUEST), 1);
}

TEST(ControllerModel, SetExpressionWithAFailedCloneLeavesNoCurrentExpression) {
    Rig r;
    r.connectDebugger();
    r.debugger().setCloneReturnsNull(true);
    r.ui->setExpression(r.makeExpression("a"), QString(), QString(), true);
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_FALSE(r.ui->newExpressionPending);
    EXPECT_EQ(r.sentCount(rig::INFO_REQUEST), 0);
}

TEST(ControllerModel, SetExpressionOfAnUnresolvedHeldExpressionRebindsItAndOffersUpdate) {
    Rig r;
    r.connectDebugger();
    IHVExpression* held = r.bringIn("a");
    r.bringIn("b");
    held->setResolved(false);
    fake::Expression* again = r.makeExpression("a");
    again->focus = "7";
    const int infoBefore = r.sentCount(rig::INFO_REQUEST);
    r.ui->setExpression(again, "ignored", "ignored", false);
    EXPECT_EQ(r.ui->currentExpression, held);
    EXPECT_TRUE(held->isResolved());
    EXPECT_EQ(held->getFocus(), "7");
    EXPECT_EQ(r.combo()->currentIndex(), 1);
    EXPECT_TRUE(r.updateContextActive());
    EXPECT_EQ(r.sentCount(rig::INFO_REQUEST), infoBefore);
    EXPECT_NE(r.ui->currentSlice, "ignored");
    EXPECT_EQ(r.bar->threadButton->text(), "Thread: 7");
}

TEST(ControllerModel, FindDuplicateComparesThreadTypeScopeLevelDepthAndFunction) {
    Rig r;
    r.connectDebugger();
    IHVExpression* held = r.bringIn("a", "int[10][5]");
    ASSERT_EQ(r.ui->findDuplicate("a", r.makeExpression("a", "int[10][5]")), 0);
    EXPECT_EQ(r.ui->findDuplicate("b", r.makeExpression("a", "int[10][5]")), -1);
    EXPECT_EQ(r.ui->findDuplicate("a", r.makeExpression("a", "float[50]")), -1);
    fake::Expression* e = r.makeExpression("a");
    e->scopePath = "other";
    EXPECT_EQ(r.ui->findDuplicate("a", e), -1);
    e = r.makeExpression("a");
    e->frameLevel = 1;
    EXPECT_EQ(r.ui->findDuplicate("a", e), -1);
    e = r.makeExpression("a");
    e->recursionDepth = 2;
    EXPECT_EQ(r.ui->findDuplicate("a", e), -1);
    QSharedPointer<fake::Frame> otherThread(new fake::Frame);
    otherThread->threadId = "2";
    EXPECT_EQ(r.ui->findDuplicate("a", r.makeExpression("a", "int[10][5]", otherThread)), -1);
    e = r.makeExpression("a");
    e->frame.reset();
    EXPECT_EQ(r.ui->findDuplicate("a", e), -1);
    // A null expression matches on the text alone, and marks a pending one.
    r.ui->newExpressionPending = false;
    EXPECT_EQ(r.ui->findDuplicate("a", nullptr), 0);
    EXPECT_TRUE(r.ui->newExpressionPending);
    (void)held;
}

TEST(ControllerModel, ClearExpressionsForgetsEverythingButKeepsThePage) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    ASSERT_EQ(r.page(), 1);
    r.ui->clearExpressions();
    EXPECT_TRUE(r.ui->expressions.isEmpty());
    EXPECT_TRUE(r.ui->sliceMap.isEmpty());
    EXPECT_TRUE(r.ui->filterMap.isEmpty());
    EXPECT_TRUE(r.ui->typeMap.isEmpty());
    EXPECT_TRUE(r.ui->configMap.isEmpty());
    EXPECT_TRUE(r.ui->use2DSliceMap.isEmpty());
    EXPECT_TRUE(r.ui->slice2dTableMap.isEmpty());
    EXPECT_TRUE(r.ui->origBoundsMap.isEmpty());
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.combo()->count(), 0);
    EXPECT_EQ(r.combo()->currentIndex(), -1);
    EXPECT_TRUE(r.bar->threadButton->text().isEmpty());
    EXPECT_TRUE(r.bar->sliceButton->text().isEmpty());
    EXPECT_TRUE(r.bar->typeButton->text().isEmpty());
    EXPECT_EQ(r.page(), 1);
}

TEST(ControllerModel, UpdateUIFromConfigWithoutExpressionOnlyWritesTheFlag) {
    Rig r;
    r.connectDebugger();
    auto* config = new Config2DTable;
    r.ui->updateUIFromConfig("[0:1:1]", "a > 0", config, true);
    EXPECT_TRUE(r.ui->use2DSlice);
    EXPECT_TRUE(r.ui->currentSlice.isEmpty());
    EXPECT_TRUE(r.ui->currentFilter.isEmpty());
    EXPECT_EQ(r.ui->currentConfig, nullptr);
    delete config;
}

TEST(ControllerModel, UpdateUIFromConfigUnder2DSliceKeepsTheSliceButTakesTheFilter) {
    Rig r;
    r.connectDebugger();
    IHVExpression* held = r.bringIn("a");
    r.view->configDialog->typeLineEdit->setText(held->getType());
    const QString sliceBefore = r.ui->currentSlice;
    auto* config = new Config2DTable;
    const int statsBefore = r.sentCount(rig::STATS_REQUEST);
    r.ui->updateUIFromConfig("[1:1:1][0:4:1]", "a > 3", config, true);
    EXPECT_EQ(r.ui->currentSlice, sliceBefore);
    EXPECT_EQ(r.ui->currentFilter, "a > 3");
    EXPECT_EQ(r.ui->filterMap.value(held), "a > 3");
    EXPECT_EQ(r.ui->currentConfig, config);
    // configMap only takes it from the table's answer.
    EXPECT_NE(r.ui->configMap.value(held), config);
    EXPECT_EQ(r.sentCount(rig::STATS_REQUEST), statsBefore + 1);
}

TEST(ControllerModel, UpdateToolbarTextWritesThreadSliceAndTypeWithTips) {
    Rig r;
    r.connectDebugger();
    IHVExpression* held = r.bringIn("a", "double[3][4]");
    r.ui->updateToolbarText("[0:2:1][1:1:1]");
    EXPECT_EQ(r.bar->threadButton->text(), "Thread: " + held->getFocus());
    EXPECT_EQ(r.bar->sliceButton->text(), "[0:2:1][1:1:1]");
    EXPECT_EQ(r.bar->sliceButton->toolTip(), "Slice: [0:2:1][1:1:1]");
    EXPECT_EQ(r.bar->typeButton->text(), "double[3][4]");
    EXPECT_EQ(r.bar->typeButton->toolTip(), "Type: double[3][4]");
}
