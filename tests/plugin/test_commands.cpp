// The command handlers: what each one does when the host executes it, and
// the contexts it asks for.
#include "controller/rig.h"
#include "plugin/arraylenscommandhandler.h"

#include <QAction>
#include <gtest/gtest.h>

namespace {

using rig::Rig;

QSharedPointer<fake::CmdEvent> eventWith(NQ::ISelection* selection) {
    auto event = QSharedPointer<fake::CmdEvent>::create();
    event->context.selection = selection;
    return event;
}

constexpr char VIEW_ID[] = "com.northquay.arraylensview";
constexpr char MENU[] = "toolbar:com.northquay.arraylensview.menu";

} // namespace

// ---- the popup command -------------------------------------------------------------

TEST(ArrayLensCommandHandler, TwoSelectedExpressionsTakeTheFirstAndRaiseTheViewOnce) {
    Rig r;
    r.connectDebugger();
    fake::Expression* first = r.makeExpression("first");
    fake::Expression* second = r.makeExpression("second");
    QObject plain;
    NQ::QObjectSelection selection({nullptr, &plain, first, second});

    ArrayLensCommandHandler handler(r.view);
    handler.execute(eventWith(&selection));

    ASSERT_NE(r.ui->currentExpression, nullptr);
    EXPECT_EQ(r.ui->currentExpression->getExpression(), "first");
    // Taken as it stands: the controller holds a copy of it, nothing is
    // evaluated.
    ASSERT_EQ(r.debugger().clones.size(), 1);
    EXPECT_EQ(first->evaluateCount, 0);
    EXPECT_EQ(second->evaluateCount, 0);
    ASSERT_EQ(r.core.views.shown.size(), 1);
    EXPECT_EQ(r.core.views.shown.first(), qMakePair(QString(VIEW_ID), true));
}

TEST(ArrayLensCommandHandler, SelectionWithoutAnExpressionDoesNothingAndRaisesNoView) {
    Rig r;
    r.connectDebugger();
    QObject a, b;
    NQ::QObjectSelection selection({&a, nullptr, &b});

    ArrayLensCommandHandler handler(r.view);
    handler.execute(eventWith(&selection));

    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_TRUE(r.debugger().clones.isEmpty());
    EXPECT_TRUE(r.core.views.shown.isEmpty());
    EXPECT_TRUE(r.debugger().sent.isEmpty());
}

TEST(ArrayLensCommandHandler, NoSelectionOrASelectionOfAnotherKindDoesNothing) {
    Rig r;
    r.connectDebugger();
    fake::Expression* e = r.makeExpression("a");
    // Shared-pointer selections are what frames arrive in; the popup road
    // only reads plain object selections.
    NQ::QSharedObjectSelection shared({QSharedPointer<QObject>(r.makeExpression("b"))});

    ArrayLensCommandHandler handler(r.view);
    handler.execute(eventWith(nullptr));
    handler.execute(eventWith(&shared));
    handler.execute(QSharedPointer<NQ::ICmdExecutionEvent>());

    EXPECT_EQ(r.ui->currentExpression, nullptr);
    EXPECT_TRUE(r.core.views.shown.isEmpty());
    EXPECT_EQ(e->evaluateCount, 0);
}

TEST(ArrayLensCommandHandler, ClaimsTheShowStatsContextAndIsAQObjectWithoutParent) {
    Rig r;
    ArrayLensCommandHandler handler(r.view);
    EXPECT_TRUE(handler.hasContext());
    EXPECT_EQ(handler.getContext(), QStringList{"com.northquay.halvane.context.show_stats"});
    EXPECT_EQ(handler.parent(), nullptr);
    EXPECT_FALSE(handler.hasSelection());
    EXPECT_EQ(handler.getSelectionType(), "None");
    EXPECT_FALSE(handler.hasPartName());
    EXPECT_EQ(handler.getPartName(), "None");
    EXPECT_EQ(handler.view, r.view);
}

// ---- the display commands ----------------------------------------------------------

TEST(DisplayCommands, WithNoExpressionEachChangesTheDropDownLabelAndTheDisplayMode) {
    Rig r;
    r.connectDebugger();
    struct Case {
        const char* command;
        const char* label;
        int mode;
        int kind;
    };
    const Case cases[] = {
        {"com.northquay.arraylensview.array2dtable.command", "Data Table", 3, 0},
        {"com.northquay.arraylensview.arraylineplot.command", "Line", 2, 2},
        {"com.northquay.arraylensview.arrayhistplot.command", "Histogram", 2, 1},
        {"com.northquay.arraylensview.arraysurfplot.command", "Surface", 2, 3},
        {"com.northquay.arraylensview.arraystat.command", "Statistics", 1, 0},
    };
    fake::ContributionManager* menu = r.core.commands.menus.value(MENU);
    ASSERT_NE(menu, nullptr);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        NQ::ICommandHandler* handler = r.core.commands.setHandlers.value(c.command);
        ASSERT_NE(handler, nullptr);
        handler->execute(QSharedPointer<fake::CmdEvent>::create());
        EXPECT_EQ(menu->text, c.label);
        EXPECT_EQ(r.ui->displayMode, c.mode);
        EXPECT_EQ(r.ui->plotKind, c.kind);
        // Nothing to show: the message page stays and nothing is asked.
        EXPECT_EQ(r.page(), 0);
        EXPECT_TRUE(r.debugger().sent.isEmpty());
    }
}

TEST(DisplayCommands, WithAnExpressionTheTableCommandShowsTheTable) {
    Rig r;
    r.connectDebugger();
    r.bringIn("grid");
    const int before = r.sentCount(rig::TABLE_REQUEST);
    r.core.commands.setHandlers.value("com.northquay.arraylensview.array2dtable.command")
        ->execute(QSharedPointer<fake::CmdEvent>::create());
    EXPECT_EQ(r.ui->displayMode, 3);
    EXPECT_TRUE(fake::waitFor([&] { return r.sentCount(rig::TABLE_REQUEST) > before; }, 3000));
    EXPECT_EQ(r.core.commands.menus.value(MENU)->text, "Data Table");
}

TEST(DisplayCommands, HandlersKeepTheDefaultContextAndSelection) {
    Rig r;
    for (const char* id : {"com.northquay.arraylensview.arraystat.command",
                           "com.northquay.arraylensview.array2dtable.command",
                           "com.northquay.arraylensview.arraylineplot.command",
                           "com.northquay.arraylensview.arrayhistplot.command",
                           "com.northquay.arraylensview.arraysurfplot.command",
                           "com.northquay.arraylensview.slice.command"}) {
        SCOPED_TRACE(id);
        NQ::ICommandHandler* handler = r.core.commands.setHandlers.value(id);
        ASSERT_NE(handler, nullptr);
        EXPECT_FALSE(handler->hasContext());
        EXPECT_TRUE(handler->getContext().isEmpty());
        EXPECT_FALSE(handler->hasSelection());
        EXPECT_EQ(handler->getSelectionType(), "None");
    }
}

// ---- the other handlers --------------------------------------------------------------

TEST(SliceCommand, ExecuteDoesNothingWhatever) {
    Rig r;
    r.connectDebugger();
    r.bringIn("grid");
    const QStringList logBefore = r.core.log.entries;
    const int sentBefore = r.debugger().sent.size();
    const int modeBefore = r.ui->displayMode;
    const QString textBefore = r.combo()->currentText();

    NQ::ICommandHandler* handler =
        r.core.commands.setHandlers.value("com.northquay.arraylensview.slice.command");
    ASSERT_NE(handler, nullptr);
    handler->execute(QSharedPointer<fake::CmdEvent>::create());
    handler->execute(QSharedPointer<NQ::ICmdExecutionEvent>());
    r.settle(50);

    EXPECT_EQ(r.core.log.entries, logBefore);
    EXPECT_EQ(r.debugger().sent.size(), sentBefore);
    EXPECT_EQ(r.ui->displayMode, modeBefore);
    EXPECT_EQ(r.combo()->currentText(), textBefore);
}

TEST(FilterCommand, CheckedActionAppliesTheFilterAndUncheckedDisablesIt) {
    Rig r;
    r.connectDebugger();
    ArrayLensFilterCommandHandler handler(r.view);
    QAction action;
    action.setCheckable(true);
    auto event = QSharedPointer<fake::CmdEvent>::create();
    event->action = &action;

    action.setChecked(false);
    handler.execute(event);
    EXPECT_TRUE(r.ui->filterDisabled);
    action.setChecked(true);
    handler.execute(event);
    EXPECT_FALSE(r.ui->filterDisabled);

    // A missing event leaves the switch as it was.
    r.ui->filterDisabled = true;
    handler.execute(QSharedPointer<NQ::ICmdExecutionEvent>());
    EXPECT_TRUE(r.ui->filterDisabled);

    EXPECT_TRUE(handler.hasContext());
    EXPECT_EQ(handler.getContext(),
              (QStringList{"HVDebugger.READY", "com.northquay.arraylensview.filter"}));
}

TEST(UpdateCommand, IsAddedForTheViewAndResendsTheCurrentDisplaysRequest) {
    Rig r;
    r.connectDebugger();
    r.bringIn("grid");
    const QString id = QStringLiteral("com.northquay.command.update.") + r.view->name();
    const auto handlers = r.core.commands.addedHandlers.value(id);
    ASSERT_EQ(handlers.size(), 1);
    EXPECT_FALSE(r.core.commands.registered.contains(id));
    EXPECT_TRUE(handlers.first()->hasContext());
    EXPECT_EQ(handlers.first()->getContext(), QStringList{"com.northquay.arraylensview.update"});

    const int before = r.sentCount(rig::STATS_REQUEST);
    r.core.commands.trigger(id, QSharedPointer<fake::CmdEvent>::create());
    EXPECT_EQ(r.sentCount(rig::STATS_REQUEST), before + 1);
}

TEST(ConfigCommand, ClaimsAContextButNamesNoneAndOpensTheDialog) {
    Rig r;
    r.connectDebugger();
    const QString id = QStringLiteral("com.northquay.arraylensview.config.command");
    const auto handlers = r.core.commands.addedHandlers.value(id);
    ASSERT_EQ(handlers.size(), 1);
    EXPECT_TRUE(r.core.commands.registered.contains(id));
    EXPECT_TRUE(handlers.first()->hasContext());
    EXPECT_TRUE(handlers.first()->getContext().isEmpty());

    // Without an expression the command only says so.
    r.core.commands.trigger(id, QSharedPointer<fake::CmdEvent>::create());
    EXPECT_EQ(r.page0Text(), "No Array Data Available");
}
