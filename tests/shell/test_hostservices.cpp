// The shell's host services with the real plug-in module loaded into them:
// its toolbar, popups, commands, contexts and selections as the plug-in uses
// them. The debugger behind them is the scripted fake of tests/support.
#include "shell/hostservices.h"
#include "support/fakehost.h"
#include "wire/hvdwppacket.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QPluginLoader>
#include <QPushButton>
#include <QSignalSpy>
#include <QSplitter>
#include <QTabWidget>
#include <QToolBar>
#include <QToolButton>
#include <QWidgetAction>
#include <gtest/gtest.h>

namespace {

const QString kView = QStringLiteral("com.northquay.arraylensview");
const QString kDataView = QStringLiteral("com.northquay.dataview");
const QString kUpdate = QStringLiteral("com.northquay.command.update.com.northquay.arraylensview");
const QString kFilterCommand = QStringLiteral("com.northquay.arraylensview.filter.command");
const QString kPopupEntry = QStringLiteral("Add to Array Lens - Statistics, Visualize");

using fake::waitFor;

// A main window with a tab widget inside a splitter, the services over it,
// the fake debugger as the core plug-in's service, and the module loaded
// and started the way the application does it.
class HostWithPlugin : public ::testing::Test {
protected:
    void SetUp() override {
        window = new QMainWindow;
        auto* splitter = new QSplitter;
        tabs = new QTabWidget;
        splitter->addWidget(tabs);
        window->setCentralWidget(splitter);
        core = new shell::HostCore(window, tabs);
        dataPage = new QWidget;
        core->views.addHostTab(kDataView, QStringLiteral("Data View"), dataPage);
        debugger = QSharedPointer<fake::Debugger>::create();
        corePlugin = new shell::CorePlugin(debugger);
        core->plugins.registerPlugin(corePlugin);
        core->commands.defineHostCommand(
            QStringLiteral("com.northquay.command.showmessageoverlay"),
            [this](const QVariantMap& p) { overlayMessages << p.value("Message").toString(); });
        QString error;
        plugin = core->plugins.load(QString::fromUtf8(ARRAYLENS_MODULE_PATH), {}, &error);
        ASSERT_NE(plugin, nullptr) << qPrintable(error);
        view = core->views.view(kView);
        ASSERT_NE(view, nullptr);
        toolBar = core->views.toolBarOf(kView);
        ASSERT_NE(toolBar, nullptr);
        window->resize(1000, 700);
        window->show();
    }
    void TearDown() override {
        for (NQ::IView* v : core->views.views())
            delete v;
        delete window;
        delete corePlugin;
        delete core;
    }

    QAction* toolAction(const QString& text) const {
        for (QAction* a : toolBar->actions())
            if (a->text() == text || a->toolTip() == text)
                return a;
        return nullptr;
    }
    QToolButton* displayButton() const {
        return toolBar->findChild<QToolButton*>(
            QStringLiteral("toolbar:com.northquay.arraylensview.menu"));
    }
    // What the host does when gdb is up and the debuggee has stopped.
    void becomeReady() {
        core->contexts.activateContext(QStringLiteral("HVDebugger.CONNECTED"));
        core->contexts.activateContext(QStringLiteral("HVDebugger.READY"));
        corePlugin->currentThread = QSharedPointer<fake::Thread>::create();
        corePlugin->currentFrame = QSharedPointer<fake::Frame>::create();
    }
    // Hands an expression to the plug-in through the data view's popup.
    void addThroughPopup(fake::Expression* expression) {
        becomeReady();
        core->contexts.activateContext(QStringLiteral("com.northquay.halvane.context.show_stats"));
        QMenu menu;
        menu.addAction(QStringLiteral("Dive"))
            ->setObjectName(QStringLiteral("com.northquay.dataview.popup.redive"));
        NQ::QObjectSelection selection({expression});
        core->commands.populatePopup(&menu, QStringLiteral("popup:") + kDataView, &selection);
        QAction* entry = nullptr;
        for (QAction* a : menu.actions())
            if (a->text() == kPopupEntry)
                entry = a;
        ASSERT_NE(entry, nullptr);
        ASSERT_TRUE(entry->isEnabled());
        entry->trigger();
    }

    int evaluations() const {
        int n = 0;
        for (fake::Expression* e : debugger->clones)
            n += e->evaluateCount;
        return n;
    }

    QMainWindow* window = nullptr;
    QTabWidget* tabs = nullptr;
    QWidget* dataPage = nullptr;
    shell::HostCore* core = nullptr;
    QSharedPointer<fake::Debugger> debugger;
    shell::CorePlugin* corePlugin = nullptr;
    NQ::IPlugin* plugin = nullptr;
    NQ::IView* view = nullptr;
    QToolBar* toolBar = nullptr;
    QStringList overlayMessages;
};

TEST(ContextManager, TellsEveryChangeOnce) {
    shell::ContextManager contexts;
    QSignalSpy changed(&contexts, &NQ::IContextManager::contextChanged);
    EXPECT_FALSE(contexts.isContextRegistered("a"));
    contexts.registerContext("a");
    EXPECT_TRUE(contexts.isContextRegistered("a"));
    EXPECT_FALSE(contexts.hasContext("a"));
    contexts.activateContext("a");
    contexts.activateContext("a");
    EXPECT_TRUE(contexts.hasContext("a"));
    contexts.deactivateContext("a");
    contexts.deactivateContext("a");
    EXPECT_FALSE(contexts.hasContext("a"));
    EXPECT_EQ(changed.count(), 3); // register, activate, deactivate
}

TEST_F(HostWithPlugin, ViewIsATabBesideTheDataView) {
    const int data = tabs->indexOf(dataPage);
    ASSERT_GE(data, 0);
    QWidget* page = tabs->widget(data + 1);
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->property("viewName").toString(), kView);
    EXPECT_EQ(tabs->tabText(data + 1), "Array Lens");
    EXPECT_TRUE(page->isAncestorOf(view->widget()));
    // The plug-in registered itself and its interface id.
    EXPECT_EQ(core->plugins.getPlugin("com.northquay.iarraylens"), plugin);
    // Both extensions the plug-in looks up come from the core plug-in.
    EXPECT_EQ(NQ::findExtension(&core->plugins, "com.northquay.ihvcore"),
              static_cast<void*>(static_cast<IHVCore*>(corePlugin)));
    EXPECT_EQ(NQ::findExtension(&core->plugins, "com.northquay.ihalvane"),
              static_cast<void*>(static_cast<IHalvane*>(corePlugin)));
    tabs->setCurrentIndex(data);
    core->views.showView(kView, true);
    EXPECT_EQ(tabs->currentIndex(), data + 1);
    EXPECT_EQ(core->views.currentViewName(), kView);
}

TEST_F(HostWithPlugin, ToolbarHoldsTheContributedItemsInOrder) {
    QStringList seen;
    for (QAction* a : toolBar->actions()) {
        if (a->isSeparator()) {
            seen << "|";
        } else if (auto* w = qobject_cast<QWidgetAction*>(a)) {
            seen << w->defaultWidget()->objectName();
        } else if (QWidget* widget = toolBar->widgetForAction(a);
                   widget && qobject_cast<QToolButton*>(widget) && !a->icon().isNull()) {
            seen << "action";
        } else if (toolBar->widgetForAction(a)) {
            seen << toolBar->widgetForAction(a)->objectName();
        }
    }
    EXPECT_EQ(seen.join(" "), "ThreadString | TypeString ArrayLensComboBox SliceString | "
                              "toolbar:com.northquay.arraylensview.menu | action | action |");
    auto* combo = toolBar->findChild<QComboBox*>("ArrayLensComboBox");
    ASSERT_NE(combo, nullptr);
    EXPECT_EQ(combo->lineEdit()->placeholderText(), "[Enter Array]");

    // The drop-down lists the five displays, starting on Statistics.
    QToolButton* menuButton = displayButton();
    ASSERT_NE(menuButton, nullptr);
    EXPECT_EQ(menuButton->text(), "Statistics");
    QStringList entries;
    for (QAction* a : menuButton->menu()->actions())
        entries << a->text();
    EXPECT_EQ(entries.join(","), "Statistics,Data Table,Histogram Plot,Line Plot,Surface Plot");
    for (QAction* a : menuButton->menu()->actions())
        EXPECT_FALSE(a->icon().isNull()) << qPrintable(a->text());
}

TEST_F(HostWithPlugin, HostIconsAreThereForBothThemes) {
    for (const char* theme : {"light", "dark"})
        for (const char* file : {"Settings_16x16.png", "Settings_16x16-hover.png"}) {
            const QImage image(QStringLiteral(":/nqcore/themes/%1/%2").arg(theme, file));
            ASSERT_FALSE(image.isNull()) << theme << " " << file;
            EXPECT_EQ(image.size(), QSize(16, 16));
            // Drawn, not blank: some pixels opaque, some clear.
            int opaque = 0, clear = 0;
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x) {
                    const int alpha = qAlpha(image.pixel(x, y));
                    opaque += alpha > 200;
                    clear += alpha < 20;
                }
            EXPECT_GT(opaque, 40);
            EXPECT_GT(clear, 40);
        }
    for (const char* colour : {"Orange", "DarkGray", "Gray"}) {
        const QImage image(QStringLiteral(":/halvane/icons/Filter_15px-%1.png").arg(colour));
        ASSERT_FALSE(image.isNull()) << colour;
        EXPECT_EQ(image.size(), QSize(15, 15));
    }
    QAction* settings = toolAction("Configure array type, slice and stride settings.");
    ASSERT_NE(settings, nullptr);
    EXPECT_FALSE(settings->icon().pixmap(16, 16, QIcon::Normal, QIcon::Off).isNull());
}

TEST_F(HostWithPlugin, DisplayMenuEntryRunsItsCommandAndRelabelsTheDropDown) {
    QToolButton* menuButton = displayButton();
    ASSERT_NE(menuButton, nullptr);
    QAction* table = nullptr;
    for (QAction* a : menuButton->menu()->actions())
        if (a->text() == "Data Table")
            table = a;
    ASSERT_NE(table, nullptr);
    table->trigger();
    EXPECT_EQ(menuButton->text(), "Data Table");
}

TEST_F(HostWithPlugin, FilterActionFollowsItsContexts) {
    QAction* filter = nullptr;
    for (QAction* a : toolBar->actions())
        if (a->isCheckable() && !qobject_cast<QWidgetAction*>(a))
            filter = a;
    ASSERT_NE(filter, nullptr);
    EXPECT_FALSE(core->commands.isAvailable(kFilterCommand));
    EXPECT_FALSE(filter->isEnabled());
    core->contexts.activateContext("HVDebugger.READY");
    EXPECT_FALSE(filter->isEnabled()); // the view's own filter context is still off
    core->contexts.activateContext("com.northquay.arraylensview.filter");
    EXPECT_TRUE(core->commands.isAvailable(kFilterCommand));
    EXPECT_TRUE(filter->isEnabled());
    core->contexts.deactivateContext("HVDebugger.READY");
    EXPECT_FALSE(filter->isEnabled());
}

TEST_F(HostWithPlugin, StopRecordMakesTheViewsUpdateAvailable) {
    EXPECT_TRUE(core->commands.isRegistered("com.northquay.arraylensview.config.command"));
    EXPECT_FALSE(core->commands.isAvailable(kUpdate));
    // With an array on hand (its answers still out) a stop offers Update.
    auto* expression = new fake::Expression("grid", debugger.data());
    addThroughPopup(expression);
    EXPECT_FALSE(core->commands.isAvailable(kUpdate));
    AsyncRecord stop;
    stop.setID("StoppedRecord");
    debugger->emitEvent(stop);
    EXPECT_TRUE(core->contexts.hasContext("com.northquay.arraylensview.update"));
    EXPECT_TRUE(core->commands.isAvailable(kUpdate));
    delete expression;
}

TEST_F(HostWithPlugin, BothPopupsCarryTheEntryAfterTheHostsOwn) {
    struct Popup {
        QString location, anchor, itemId;
    };
    const Popup popups[] = {
        {"popup:com.northquay.dataview", "com.northquay.dataview.popup.redive",
         "com.northquay.dataview.popup.arraylens"},
        {"popup:com.northquay.localvariable", "com.northquay.localvariable.popup.dive_in_new",
         "com.northquay.localvariable.popup.arraylens"},
    };
    core->contexts.activateContext("com.northquay.halvane.context.show_stats");
    for (const Popup& p : popups) {
        QMenu menu;
        menu.addAction("First")->setObjectName("first");
        menu.addAction("Dive")->setObjectName(p.anchor);
        menu.addAction("Last")->setObjectName("last");
        NQ::QObjectSelection selection;
        core->commands.populatePopup(&menu, p.location, &selection);
        const QList<QAction*> actions = menu.actions();
        ASSERT_EQ(actions.size(), 5) << qPrintable(p.location);
        EXPECT_EQ(actions[1]->objectName(), p.anchor);
        EXPECT_TRUE(actions[2]->isSeparator());
        EXPECT_EQ(actions[3]->text(), kPopupEntry);
        EXPECT_EQ(actions[3]->objectName(), p.itemId);
        EXPECT_TRUE(actions[3]->isEnabled());
        EXPECT_EQ(actions[4]->objectName(), "last");
    }
    // Without its context the entry is offered but not available.
    core->contexts.deactivateContext("com.northquay.halvane.context.show_stats");
    QMenu menu;
    NQ::QObjectSelection selection;
    core->commands.populatePopup(&menu, "popup:com.northquay.dataview", &selection);
    bool found = false;
    for (QAction* a : menu.actions())
        if (a->text() == kPopupEntry) {
            found = true;
            EXPECT_FALSE(a->isEnabled());
        }
    EXPECT_TRUE(found);
}

TEST_F(HostWithPlugin, PopupEntryHandsTheSelectedExpressionToTheView) {
    tabs->setCurrentWidget(dataPage);
    auto* expression = new fake::Expression("grid", debugger.data());
    expression->type = "double [10][20]";
    addThroughPopup(expression);
    // The view comes forward and asks the back end about the array.
    EXPECT_EQ(core->views.currentViewName(), kView);
    ASSERT_TRUE(waitFor([&] { return !debugger->sent.isEmpty(); }));
    EXPECT_EQ(debugger->sent.first().id, "ArrayInfoRequest");
    EXPECT_EQ(debugger->sent.first().properties.value("Expression").toString(), "grid");
    delete expression;
}

TEST_F(HostWithPlugin, FrameSelectionReachesTheViewsListener) {
    EXPECT_EQ(core->selections.listenerCount("HVFrame"), 1);
    EXPECT_EQ(core->selections.listenerCount("HVProcess"), 1);
    auto* expression = new fake::Expression("grid", debugger.data());
    addThroughPopup(expression);
    EXPECT_FALSE(core->commands.isAvailable(kUpdate));
    // A click on a frame while the expression is bound offers Update.
    auto frame = QSharedPointer<fake::Frame>::create();
    NQ::QSharedObjectSelection selection({frame});
    core->selections.select("HVFrame", nullptr, &selection);
    EXPECT_TRUE(core->commands.isAvailable(kUpdate));
    delete expression;
}

TEST_F(HostWithPlugin, ProcessSelectionUnbindsSoAFrameClickEvaluatesAnew) {
    // This time the back end answers, so the array is on show and in the
    // list of the view's expressions.
    debugger->respond("ArrayInfoRequest", QVariantMap{{"result", "done"},
                                                      {"DimCount", 2},
                                                      {"ArrayBounds", QStringList{"0:9", "0:19"}},
                                                      {"EmptySlice", "[0:9][0:19]"},
                                                      {"DataType", 1}});
    debugger->respond("ArrayStatisticsRequest", QVariantMap{{"result", "done"}, {"Count", 200}});
    auto* expression = new fake::Expression("grid", debugger.data());
    expression->type = "double [10][20]";
    addThroughPopup(expression);
    auto* combo = toolBar->findChild<QComboBox*>("ArrayLensComboBox");
    ASSERT_TRUE(waitFor([&] { return combo->count() == 1; }));
    EXPECT_EQ(combo->itemText(0), "grid");
    const int clonesBefore = debugger->clones.size();
    const int evaluationsBefore = evaluations();
    auto process = QSharedPointer<fake::Process>::create();
    NQ::QSharedObjectSelection processSelection({process});
    core->selections.select("HVProcess", nullptr, &processSelection);
    auto frame = QSharedPointer<fake::Frame>::create();
    corePlugin->currentFrame = frame;
    NQ::QSharedObjectSelection frameSelection({frame});
    core->selections.select("HVFrame", nullptr, &frameSelection);
    // The unbound expression is evaluated again: a fresh copy of it.
    EXPECT_GT(debugger->clones.size(), clonesBefore);
    EXPECT_GT(evaluations(), evaluationsBefore);
    delete expression;
}

TEST_F(HostWithPlugin, MessageOverlayGetsItsParameter) {
    NQ::ICommandManager* commands = core->commandManager();
    commands->setCommandParameter("com.northquay.command.showmessageoverlay", "Message",
                                  "Applied slice");
    commands->getCommand("com.northquay.command.showmessageoverlay")->execute();
    EXPECT_EQ(overlayMessages, QStringList{"Applied slice"});
}

TEST_F(HostWithPlugin, HelpReferencesReachTheViewsWidgets) {
    const NQ::HelpReference reference = core->help.referenceFor(view->widget());
    EXPECT_EQ(reference.first, "halvane");
    EXPECT_EQ(reference.second, "ArrayStatistics");
}

TEST_F(HostWithPlugin, ThemesSwitchPaletteAndStyleSheets) {
    core->theme.setTheme("dark");
    EXPECT_EQ(core->theme.getThemeName(), "dark");
    EXPECT_LT(qApp->palette().color(QPalette::Window).lightness(), 80);
    QFile pluginSheet(":/arraylens/themes/dark/theme.css");
    ASSERT_TRUE(pluginSheet.open(QIODevice::ReadOnly));
    const QString sheet = QString::fromUtf8(pluginSheet.readAll()).trimmed();
    EXPECT_TRUE(qApp->styleSheet().contains(sheet.left(200)));
    EXPECT_TRUE(qApp->styleSheet().contains("QPlainTextEdit#SourcePane"));
    core->theme.setTheme("light");
    EXPECT_EQ(core->theme.getThemeName(), "light");
    EXPECT_GT(qApp->palette().color(QPalette::Window).lightness(), 180);
    // Unknown names fall back to the light theme.
    core->theme.setTheme("purple");
    EXPECT_EQ(core->theme.getThemeName(), "light");
}

} // namespace
