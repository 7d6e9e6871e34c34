// Which page is on show, what each display is asked for, how its answers come
// back, and how the controller follows the debugger.
#include "rig.h"

#include <QResizeEvent>
#include <QTest>
#include <gtest/gtest.h>

using rig::Rig;

namespace {

AsyncRecord record(const QString& id) {
    AsyncRecord r;
    r.setID(id);
    return r;
}

void resize(ArrayLensUI* ui, int width) {
    QResizeEvent event(QSize(width, 300), ui->size());
    QCoreApplication::sendEvent(ui, &event);
}

} // namespace

// ---- the show operations ---------------------------------------------------------

TEST(DisplaySwitching, ShowOperationsWriteModeAndKind) {
    Rig r;
    struct Case {
        void (ArrayLensUI::*show)();
        int mode;
        int kind;
    };
    const Case cases[] = {{&ArrayLensUI::showStats, 1, 0},
                          {&ArrayLensUI::showData2DTable, 3, 0},
                          {&ArrayLensUI::showLinePlot, 2, 2},
                          {&ArrayLensUI::showHistPlot, 2, 1},
                          {&ArrayLensUI::showSurfacePlot, 2, 3}};
    for (const Case& c : cases) {
        (r.ui->*c.show)();
        EXPECT_EQ(r.ui->displayMode, c.mode);
        EXPECT_EQ(r.ui->plotKind, c.kind);
    }
}

TEST(DisplaySwitching, EachDisplayGetsItsPageAndItsRequest) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.ui->showData2DTable();
    EXPECT_EQ(r.page(), 3);
    r.ui->showLinePlot();
    EXPECT_EQ(r.page(), 2);
    EXPECT_GE(r.sentCount(rig::PLOT_REQUEST), 1);
    r.ui->showStats();
    EXPECT_EQ(r.page(), 1);
}

// ---- the cases worth a test of their own ------------------------------------------

TEST(DisplaySwitching, LinePlotWithNoExpressionChangesModeAndKindLeavesPageAndNextIsALinePlot) {
    Rig r;
    r.connectDebugger();
    r.ui->showLinePlot();
    EXPECT_EQ(r.ui->displayMode, 2);
    EXPECT_EQ(r.ui->plotKind, 2);
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_TRUE(r.debugger().sent.isEmpty());

    r.ui->setExpression(r.makeExpression("a"), QString(), QString(), true);
    ASSERT_TRUE(fake::waitFor([&] { return r.sentCount(rig::PLOT_REQUEST) == 1; }));
    EXPECT_EQ(r.sentCount(rig::STATS_REQUEST), 0);
    EXPECT_EQ(r.page(), 2);
}

TEST(DisplaySwitching, WithExpressionButNoThreadShowSaysNoCurrentThreadAndRemembersTheChoice) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.core.corePlugin.currentThread.reset();
    const int sent = r.debugger().sent.size();
    r.ui->showHistPlot();
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "No Current Thread");
    EXPECT_EQ(r.ui->displayMode, 2);
    EXPECT_EQ(r.ui->plotKind, 1);
    EXPECT_EQ(r.debugger().sent.size(), sent);
    // The next refresh follows the remembered choice.
    r.ui->updateUI();
    EXPECT_EQ(r.page(), 2);
    EXPECT_EQ(r.sentCount(rig::PLOT_REQUEST), 1);
}

TEST(DisplaySwitching, AfterAStopTheValuesOnShowStayUntilUpdate) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    const int sent = r.debugger().sent.size();
    const QString slice = r.ui->currentSlice;
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    r.settle();
    EXPECT_EQ(r.debugger().sent.size(), sent);
    EXPECT_EQ(r.page(), 1);
    EXPECT_EQ(r.ui->currentSlice, slice);
    EXPECT_TRUE(r.updateContextActive());

    // The user's Update, through the host's command aimed at this view.
    r.core.commands.trigger("com.northquay.command.update.com.northquay.arraylensview",
                            QSharedPointer<NQ::ICmdExecutionEvent>(new fake::CmdEvent));
    EXPECT_EQ(r.sentCount(rig::STATS_REQUEST), 2);
    ASSERT_TRUE(fake::waitFor([&] { return !r.updateContextActive(); }));
}

TEST(DisplaySwitching, StatisticsToTableUnchecksFilterButKeepsAndSendsTheFilter) {
    Rig r;
    r.connectDebugger();
    r.bringIn(r.makeExpression("a"), QString(), "a > 5");
    ASSERT_EQ(r.ui->currentFilter, "a > 5");
    EXPECT_TRUE(r.bar->filterAction->isChecked());
    EXPECT_TRUE(r.core.contexts.hasContext(rig::FILTER_CONTEXT));
    r.ui->showData2DTable();
    EXPECT_FALSE(r.bar->filterAction->isChecked());
    EXPECT_FALSE(r.core.contexts.hasContext(rig::FILTER_CONTEXT));
    EXPECT_EQ(r.ui->currentFilter, "a > 5");
    ASSERT_TRUE(fake::waitFor([&] { return r.sentCount(rig::TABLE_REQUEST) >= 1; }));
    EXPECT_EQ(r.lastSent(rig::TABLE_REQUEST).value("Filter").toString(), "a > 5");
}

TEST(DisplaySwitching, WithFilterDisabledStatisticsAndTableGetNoFilterButTheLinePlotDoes) {
    Rig r;
    r.connectDebugger();
    r.bringIn(r.makeExpression("a"), QString(), "a > 5");
    r.ui->filterDisabled = true;
    r.ui->updateUI();
    EXPECT_EQ(r.lastSent(rig::STATS_REQUEST).value("Filter").toString(), "");
    // Statistics leave a disabled filter as it is: still disabled, still held.
    EXPECT_TRUE(r.ui->filterDisabled);
    EXPECT_EQ(r.ui->currentFilter, "a > 5");

    r.ui->filterDisabled = true;
    r.ui->showData2DTable();
    ASSERT_TRUE(fake::waitFor([&] { return r.sentCount(rig::TABLE_REQUEST) >= 1; }));
    EXPECT_EQ(r.lastSent(rig::TABLE_REQUEST).value("Filter").toString(), "");

    r.ui->filterDisabled = true;
    r.ui->showLinePlot();
    EXPECT_EQ(r.lastSent(rig::PLOT_REQUEST).value("Filter").toString(), "a > 5");
}

TEST(DisplaySwitching, FirstSuccessWithEmptyNameUsesTheExpressionsOwnText) {
    Rig r;
    r.connectDebugger();
    r.debugger().hold(rig::INFO_REQUEST);
    r.ui->setExpression(r.makeExpression("grid[1]"), QString(), QString(), true);
    emit r.ui->statisticsUI->statSuccess(QString(), "[0:9:1]", QString(), QString());
    ASSERT_EQ(r.combo()->count(), 1);
    EXPECT_EQ(r.combo()->itemText(0), "grid[1]");
    EXPECT_FALSE(r.ui->newExpressionPending);
}

TEST(DisplaySwitching, FirstSuccessAddsItemAtZeroAndLaterSuccessAtTwoWritesTipOnItemZero) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    const QString tipOfA = r.combo()->itemData(0, Qt::ToolTipRole).toString();
    EXPECT_TRUE(tipOfA.startsWith("&nbsp;<b>Expr:</b>&nbsp;a<br/>"));
    r.bringIn("b");
    r.bringIn("c");
    ASSERT_EQ(r.combo()->itemText(2), "a");
    EXPECT_TRUE(r.combo()->itemData(0, Qt::ToolTipRole).toString().contains("Expr:</b>&nbsp;c"));
    const QString tipOfBAtOne = r.combo()->itemData(1, Qt::ToolTipRole).toString();

    r.combo()->setCurrentIndex(2); // "a" again: statistics answer for it
    ASSERT_TRUE(fake::waitFor([&] { return r.combo()->toolTip().contains("Expr:</b>&nbsp;a"); }));
    EXPECT_EQ(r.ui->currentExpression, a);
    EXPECT_EQ(r.combo()->currentIndex(), 2);
    // Item 0 ("c") now carries a's tip; a's own item keeps its old one.
    EXPECT_EQ(r.combo()->itemData(0, Qt::ToolTipRole).toString(), r.combo()->toolTip());
    EXPECT_EQ(r.combo()->itemData(2, Qt::ToolTipRole).toString(), tipOfA);
    EXPECT_EQ(r.combo()->itemData(1, Qt::ToolTipRole).toString(), tipOfBAtOne);
}

TEST(DisplaySwitching, WithTheConnectionLostUpdateUIDoesNothingAlsoFromTheUpdateCommand) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.disconnectDebugger();
    r.ui->postMessage("kept");
    const int sent = r.debugger().sent.size();
    r.ui->updateUI();
    r.core.commands.trigger("com.northquay.command.update.com.northquay.arraylensview",
                            QSharedPointer<NQ::ICmdExecutionEvent>(new fake::CmdEvent));
    r.settle();
    EXPECT_EQ(r.debugger().sent.size(), sent);
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "kept");
}

TEST(DisplaySwitching, ThreeResizes100msApartUnderAPlotGiveOneRequest300msAfterTheLast) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.ui->showLinePlot();
    r.settle(); // the plot's own answer
    const int before = r.sentCount(rig::PLOT_REQUEST);
    resize(r.ui, 400);
    QTest::qWait(100);
    resize(r.ui, 500);
    QTest::qWait(100);
    resize(r.ui, 600);
    QElapsedTimer sinceLast;
    sinceLast.start();
    QTest::qWait(200);
    EXPECT_EQ(r.sentCount(rig::PLOT_REQUEST), before) << "too early";
    ASSERT_TRUE(fake::waitFor([&] { return r.sentCount(rig::PLOT_REQUEST) > before; }, 2000));
    // A coarse QTimer may fire up to 5 % early.
    EXPECT_GE(sinceLast.elapsed(), 285);
    QTest::qWait(400);
    EXPECT_EQ(r.sentCount(rig::PLOT_REQUEST), before + 1);
    EXPECT_FALSE(r.ui->resizeTimer.isActive());
}

TEST(DisplaySwitching, ResizeUnderStatisticsOrTableRequestsNothing) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    const int sent = r.debugger().sent.size();
    resize(r.ui, 450);
    EXPECT_TRUE(r.ui->resizeTimer.isActive());
    EXPECT_EQ(r.ui->resizeTimer.interval(), 300);
    QTest::qWait(450);
    EXPECT_FALSE(r.ui->resizeTimer.isActive());
    EXPECT_EQ(r.debugger().sent.size(), sent);
}

// ---- answers of the displays -------------------------------------------------------

TEST(DisplayAnswers, TableSuccessTakesTheNewConfigFreesTheOldAndOffersUpdateWhenCanceled) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    auto* fresh = new Config2DTable(1, 0, "[1:1:1][0:4:1]", al_pres_decimal, al_type_integer, {});
    emit r.ui->data2DTableUI->data2DTableSuccess("a", "[1:1:1][0:4:1]", QString(), QString(), fresh,
                                                 true);
    EXPECT_EQ(r.ui->configMap.value(a), fresh);
    EXPECT_EQ(r.ui->currentConfig, fresh);
    EXPECT_EQ(r.ui->currentSlice2dTable, "[1:1:1][0:4:1]");
    EXPECT_EQ(r.ui->slice2dTableMap.value(a), "[1:1:1][0:4:1]");
    EXPECT_TRUE(r.updateContextActive());
}

TEST(DisplayAnswers, ErrorAfterTypingKeepsTheUsersTextAndTouchesNeitherListNorPending) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    r.combo()->lineEdit()->setText("a[");
    emit r.ui->statisticsUI->statError("Request to get statistics FAILED \nError:bad");
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "Request to get statistics FAILED \nError:bad");
    EXPECT_EQ(r.combo()->currentIndex(), -1);
    EXPECT_EQ(r.combo()->currentText(), "a[");
    EXPECT_EQ(r.ui->currentExpression, a);
    EXPECT_EQ(r.ui->expressions.size(), 1);
    EXPECT_FALSE(r.ui->newExpressionPending);
}

// ---- the debugger's states and events, one by one ------------------------------------

TEST(DebuggerEvents, AtStartNotConnectedNoDataMessageAndComboNotConnected) {
    Rig r;
    EXPECT_FALSE(r.ui->connected);
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    QTest::keyClicks(r.combo(), "a");
    QTest::keyClick(r.combo(), Qt::Key_Return);
    r.settle();
    EXPECT_TRUE(r.debugger().created.isEmpty());
}

TEST(DebuggerEvents, ConnectedContextConnectsTheComboAndTypingWorks) {
    Rig r;
    r.core.contexts.activateContext(rig::CONNECTED);
    EXPECT_TRUE(r.ui->connected);
    QTest::keyClicks(r.combo(), "a");
    QTest::keyClick(r.combo(), Qt::Key_Return);
    EXPECT_EQ(r.debugger().created.size(), 1);
}

TEST(DebuggerEvents, LostConnectionClosesTheDialogMakesUpdateInertAndKeepsThePage) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.view->openConfigDialog();
    ASSERT_TRUE(r.view->configDialog->dialog->isVisible());
    r.disconnectDebugger();
    EXPECT_FALSE(r.ui->connected);
    EXPECT_FALSE(r.view->configDialog->dialog->isVisible());
    EXPECT_EQ(r.page(), 1);
    const int sent = r.debugger().sent.size();
    r.ui->updateUI();
    EXPECT_EQ(r.debugger().sent.size(), sent);
}

TEST(DebuggerEvents, StoppedRecordWithExpressionActivatesUpdateAndChangesNothingElse) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    const int sent = r.debugger().sent.size();
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    EXPECT_TRUE(r.updateContextActive());
    EXPECT_EQ(r.page(), 1);
    EXPECT_EQ(r.debugger().sent.size(), sent);
}

TEST(DebuggerEvents, OtherRecordsAndRecordsWithoutExpressionLeaveTheUpdateContext) {
    Rig r;
    r.connectDebugger();
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    EXPECT_FALSE(r.updateContextActive());
    r.bringIn("a");
    emit r.debugger().debuggerEvent(record("RunningRecord"));
    emit r.debugger().debuggerEvent(record("stoppedrecord"));
    EXPECT_FALSE(r.updateContextActive());
    // Not connected: nothing is looked at.
    r.disconnectDebugger();
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    EXPECT_FALSE(r.updateContextActive());
}

TEST(DebuggerEvents, UserUpdateSendsRequestsAndTheAnswerDeactivatesTheUpdateContext) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    ASSERT_TRUE(r.updateContextActive());
    const int stats = r.sentCount(rig::STATS_REQUEST);
    r.view->updateView();
    EXPECT_EQ(r.sentCount(rig::STATS_REQUEST), stats + 1);
    ASSERT_TRUE(fake::waitFor([&] { return !r.updateContextActive(); }));
}

TEST(DebuggerEvents, PickedFrameOffersUpdateForAResolvedExpression) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    NQ::QSharedObjectSelection selection({QSharedPointer<QObject>(new fake::Frame)});
    r.core.selections.select("HVFrame", nullptr, &selection);
    EXPECT_TRUE(r.updateContextActive());
}

TEST(DebuggerEvents, PickedProcessUnresolvesAllExpressions) {
    Rig r;
    r.connectDebugger();
    IHVExpression* a = r.bringIn("a");
    NQ::QSharedObjectSelection selection({QSharedPointer<QObject>(new fake::Process)});
    r.core.selections.select("HVProcess", nullptr, &selection);
    EXPECT_FALSE(a->isResolved());
}

TEST(DebuggerEvents, StaleAnswerShowsDataIsStale) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    emit r.ui->statisticsUI->statStaleData();
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "Data is Stale");
}

TEST(DebuggerEvents, ErrorAnswerShowsItsTextAndTheFieldKeepsTheUsersText) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.combo()->lineEdit()->setText("typed");
    emit r.ui->visualizer->visualizeError("plot went wrong");
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "plot went wrong");
    EXPECT_EQ(r.combo()->lineEdit()->text(), "typed");
}

TEST(DebuggerEvents, SuccessKeepsThePageRefreshesLabelsAndTipAndDeactivatesUpdate) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.ui->setUpdateContext(true);
    r.bar->typeButton->setText("old");
    r.combo()->setToolTip("old");
    emit r.ui->statisticsUI->statSuccess("a", "[0:1:1][0:4:1]", "long[10]", QString());
    EXPECT_EQ(r.page(), 1);
    EXPECT_EQ(r.bar->typeButton->text(), "int[10][5]");
    EXPECT_EQ(r.bar->sliceButton->text(), "[0:1:1][0:4:1]");
    EXPECT_TRUE(r.combo()->toolTip().contains("<b>Actual Type:</b>&nbsp;long[10]"));
    EXPECT_FALSE(r.updateContextActive());
}

TEST(DebuggerEvents, ViewResetClearsTheExpressions) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.view->reset();
    EXPECT_TRUE(r.ui->expressions.isEmpty());
    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.combo()->count(), 0);
}

TEST(DebuggerEvents, LostAndRegainedConnectionDoublesTheComboConnections) {
    Rig r;
    r.connectDebugger();
    r.disconnectDebugger();
    r.core.contexts.activateContext(rig::CONNECTED);
    QTest::keyClicks(r.combo(), "a");
    QTest::keyClick(r.combo(), Qt::Key_Return);
    // handleReturnPressed ran twice: two evaluations of the same text.
    EXPECT_EQ(r.debugger().created.size(), 2);
}

TEST(DebuggerEvents, ReadyIsFollowedFromItsContext) {
    Rig r;
    r.core.contexts.activateContext(rig::READY);
    EXPECT_TRUE(r.ui->ready);
    r.core.contexts.deactivateContext(rig::READY);
    EXPECT_FALSE(r.ui->ready);
}

// ---- the words on page 0 ---------------------------------------------------------------

TEST(Page0Words, NoArrayDataAvailableAtStart) {
    Rig r;
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_EQ(r.page(), 0);
}

TEST(Page0Words, NoArrayDataAvailableAfterReturnOnAnEmptyField) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.combo()->lineEdit()->clear();
    QTest::keyClick(r.combo(), Qt::Key_Return);
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
}

TEST(Page0Words, NoArrayDataAvailableOnReturnWithoutHostExtensionOrFocusFrame) {
    Rig withoutExtension(false);
    withoutExtension.connectDebugger();
    withoutExtension.ui->postMessage("x");
    QTest::keyClicks(withoutExtension.combo(), "a");
    QTest::keyClick(withoutExtension.combo(), Qt::Key_Return);
    EXPECT_EQ(withoutExtension.page0Text(), "No Array Data Available");

    Rig withoutFrame;
    withoutFrame.connectDebugger();
    withoutFrame.core.corePlugin.currentFrame.reset();
    withoutFrame.ui->postMessage("x");
    QTest::keyClicks(withoutFrame.combo(), "a");
    QTest::keyClick(withoutFrame.combo(), Qt::Key_Return);
    EXPECT_EQ(withoutFrame.page0Text(), "No Array Data Available");
}

TEST(Page0Words, NoArrayDataAvailableFromTheConfigurationCommandWithoutExpression) {
    Rig r;
    r.connectDebugger();
    r.ui->postMessage("x");
    r.core.commands.trigger("com.northquay.arraylensview.config.command",
                            QSharedPointer<NQ::ICmdExecutionEvent>(new fake::CmdEvent));
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_EQ(r.page(), 0);
}

TEST(Page0Words, NoArrayDataAvailableOnADebuggerEventWithNeitherThreadNorExpression) {
    Rig r;
    r.connectDebugger();
    r.core.corePlugin.currentThread.reset();
    r.ui->postMessage("x");
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
}

TEST(Page0Words, DebuggerEventWithoutThreadButWithExpressionPostsNothing) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.core.corePlugin.currentThread.reset();
    emit r.debugger().debuggerEvent(record("StoppedRecord"));
    EXPECT_EQ(r.page(), 1);
    EXPECT_FALSE(r.updateContextActive());
}

TEST(Page0Words, NoCurrentThreadFromAShowOperation) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    r.core.corePlugin.currentThread.reset();
    r.ui->showStats();
    EXPECT_EQ(r.page0Text(), "No Current Thread");
    EXPECT_EQ(r.page(), 0);
}

TEST(Page0Words, DataIsStaleFromEachDisplaysStaleSignal) {
    Rig r;
    r.connectDebugger();
    r.bringIn("a");
    emit r.ui->statisticsUI->statStaleData();
    EXPECT_EQ(r.page0Text(), "Data is Stale");
    r.ui->postMessage("x");
    emit r.ui->data2DTableUI->data2DTableStaleData();
    EXPECT_EQ(r.page0Text(), "Data is Stale");
}

TEST(Page0Words, TheErrorsOwnTextFromHandleErrorAndHandleConfigError) {
    Rig r;
    r.connectDebugger();
    r.ui->handleError("first text");
    EXPECT_EQ(r.page0Text(), "first text");
    EXPECT_EQ(r.page(), 0);
    r.ui->postMessage("x");
    // The dialog's refusals arrive through its configError signal.
    QMetaObject::invokeMethod(r.view->configDialog, "configError", Q_ARG(QString, "second text"));
    EXPECT_EQ(r.page0Text(), "second text");
}
