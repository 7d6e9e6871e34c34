// The view's own operations beyond answering the host: building once,
// forwarding the filter switch, reset and the configuration command.
#include "controller/rig.h"

#include <QDialog>
#include <gtest/gtest.h>

using rig::Rig;

TEST(ArrayLensViewOperations, InitCalledAgainBuildsNothingTheSecondTime) {
    Rig r;
    ArrayLensUI* ui = r.view->ui;
    ArrayLensConfigDialog* dialog = r.view->configDialog;
    ArrayLensToolBarContributionFactory* factory = r.view->toolBarFactory;
    const QStringList logBefore = r.core.log.entries;
    const int factoriesBefore = r.core.commands.factories.size();

    r.view->init();

    EXPECT_EQ(r.view->ui, ui);
    EXPECT_EQ(r.view->configDialog, dialog);
    EXPECT_EQ(r.view->toolBarFactory, factory);
    EXPECT_EQ(r.core.commands.factories.size(), factoriesBefore);
    EXPECT_EQ(r.core.log.entries, logBefore);
}

TEST(ArrayLensViewOperations, GetConfigTypeWithoutTheDialogIsEmpty) {
    Rig r;
    ArrayLensConfigDialog* dialog = r.view->configDialog;
    r.view->configDialog = nullptr;
    EXPECT_TRUE(r.view->getConfigType().isEmpty());
    r.view->configDialog = dialog;
}

TEST(ArrayLensViewOperations, FilterSwitchedOffSetsFilterDisabledAndShowsAgainWithoutFilter) {
    Rig r;
    r.connectDebugger();
    r.bringIn(r.makeExpression("grid"), QString(), "$value > 2");
    ASSERT_EQ(r.ui->currentFilter, "$value > 2");
    const int before = r.sentCount(rig::STATS_REQUEST);

    r.view->enableOrDisableFilter(false);
    EXPECT_TRUE(r.ui->filterDisabled);
    ASSERT_EQ(r.sentCount(rig::STATS_REQUEST), before + 1);
    EXPECT_EQ(r.lastSent(rig::STATS_REQUEST).value("Filter").toString(), QString());

    r.view->enableOrDisableFilter(true);
    EXPECT_FALSE(r.ui->filterDisabled);
    ASSERT_EQ(r.sentCount(rig::STATS_REQUEST), before + 2);
    EXPECT_EQ(r.lastSent(rig::STATS_REQUEST).value("Filter").toString(), "$value > 2");
}

TEST(ArrayLensViewOperations, ResetWithNoExpressionsChangesNothingOnScreen) {
    Rig r;
    r.connectDebugger();
    const QString text = r.page0Text();
    r.view->reset();
    EXPECT_EQ(r.page0Text(), text);
    EXPECT_EQ(r.page(), 0);
    EXPECT_EQ(r.combo()->count(), 0);
    EXPECT_EQ(r.combo()->currentIndex(), -1);
    EXPECT_TRUE(r.debugger().sent.isEmpty());
}

TEST(ArrayLensViewOperations, OpenConfigDialogWithoutExpressionSaysNoArrayDataAndOpensNothing) {
    Rig r;
    r.connectDebugger();
    r.ui->postMessage("something else");
    r.view->openConfigDialog();
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
    EXPECT_EQ(r.page(), 0);
    const bool shown = r.view->configDialog->dialog && r.view->configDialog->dialog->isVisible();
    EXPECT_FALSE(shown);
}

TEST(ArrayLensViewOperations, OpenConfigDialogWithAnExpressionShowsItFilledWithThatExpression) {
    Rig r;
    r.connectDebugger();
    r.bringIn("grid", "double[10][5]");
    r.view->openConfigDialog();
    ASSERT_NE(r.view->configDialog->dialog, nullptr);
    EXPECT_TRUE(r.view->configDialog->dialog->isVisible());
    EXPECT_EQ(r.view->getConfigType(), "double[10][5]");
    r.view->closeConfigDialog();
}
