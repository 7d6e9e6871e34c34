// The toolbar the plug-in contributes: its twelve items, the display menu,
// the expression field and the commands registered behind them.
#include "controller/arraylensui.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/arraylensview.h"
#include "plugin/noadjustcombobox.h"
#include "support/fakehost.h"

#include <QAction>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QWidgetAction>
#include <gtest/gtest.h>

namespace {

constexpr char LOCATION[] = "toolbar:com.northquay.arraylensview";
constexpr char MENU[] = "toolbar:com.northquay.arraylensview.menu";

// A view and its factory before the host has asked for the toolbar.
struct Toolbar {
    fake::Core core;
    ArrayLensView* view = new ArrayLensView;
    ArrayLensToolBarContributionFactory* factory = view->toolBarFactory;
    ~Toolbar() {
        delete view;
        delete factory;
    }
    fake::ContributionItem* item(NQ::IContributionItem* i) {
        return static_cast<fake::ContributionItem*>(i);
    }
};

QImage imageOf(const QIcon& icon, QIcon::Mode mode, QIcon::State state) {
    return icon.pixmap(QSize(15, 15), mode, state).toImage().convertToFormat(QImage::Format_ARGB32);
}

// Through a pixmap, as the icon holds it, so both sides take the same
// premultiplied round trip.
QImage resourceImage(const QString& path) {
    return QPixmap(path).toImage().convertToFormat(QImage::Format_ARGB32);
}

} // namespace

TEST(Toolbar, FactoryIsRegisteredForTheViewsToolbarLocationWithNoParent) {
    Toolbar t;
    ASSERT_NE(t.factory, nullptr);
    EXPECT_EQ(t.factory->getLocation(), LOCATION);
    EXPECT_EQ(t.factory->parent(), nullptr);
    EXPECT_EQ(t.core.commands.factoryAt(LOCATION), t.factory);
}

TEST(Toolbar, CreateItemsGivesTwelveItemsFromTheThreadItemToSeparatorFive) {
    Toolbar t;
    const QList<NQ::IContributionItem*> items = t.factory->createItems();
    ASSERT_EQ(items.size(), 12);

    using K = fake::ContributionItem;
    const struct {
        K::Kind kind;
        const char* id;
        const char* description;
    } expected[] = {
        {K::Action, "com.northquay.arraylensview.thread.command", "com.arraylens.threadid"},
        {K::Separator, "com.northquay.arraylens.separator1", ""},
        {K::Action, "com.northquay.arraylensview.type_string.command", "com.arraylens.type"},
        {K::Action, "com.northquay.arraylensview.slice.command", "Array Slicing"},
        {K::Action, "com.northquay.arraylensview.slice_string.command", "com.arraylens.slice"},
        {K::Separator, "com.northquay.arraylens.separator2", ""},
        {K::Menu, MENU, ""},
        {K::Separator, "com.northquay.arraylens.separator3", ""},
        {K::Action, "com.northquay.arraylensview.config.command",
         "Modify array configuration settings"},
        {K::Separator, "com.northquay.arraylens.separator4", ""},
        {K::Action, "com.northquay.arraylensview.filter.command", "Enable/Disable array filtering"},
        {K::Separator, "com.northquay.arraylens.separator5", ""},
    };
    for (int i = 0; i < 12; ++i) {
        SCOPED_TRACE(i + 1);
        fake::ContributionItem* item = t.item(items[i]);
        EXPECT_EQ(item->kind, expected[i].kind);
        EXPECT_EQ(item->getId(), expected[i].id);
        if (item->kind == K::Action) {
            EXPECT_EQ(item->description, expected[i].description);
            // The host's two flags: always true and false.
            EXPECT_TRUE(item->flagA);
            EXPECT_FALSE(item->flagB);
            EXPECT_EQ(item->action->parent(), t.factory);
        }
    }
    EXPECT_EQ(t.item(items[6])->label, "Statistics");

    // The three labels sit in widget actions; the field is item 4.
    EXPECT_EQ(static_cast<QWidgetAction*>(t.item(items[0])->action)->defaultWidget(),
              t.factory->threadButton);
    EXPECT_EQ(static_cast<QWidgetAction*>(t.item(items[2])->action)->defaultWidget(),
              t.factory->typeButton);
    EXPECT_EQ(static_cast<QWidgetAction*>(t.item(items[3])->action)->defaultWidget(),
              t.factory->comboBox);
    EXPECT_EQ(static_cast<QWidgetAction*>(t.item(items[4])->action)->defaultWidget(),
              t.factory->sliceButton);
    EXPECT_EQ(t.item(items[10])->action, t.factory->filterAction);
}

TEST(Toolbar, DropDownHoldsTheFiveDisplaysInOrderWithTheirIdsAndHandlers) {
    Toolbar t;
    t.factory->createItems();
    fake::ContributionManager* menu = t.core.commands.menus.value(MENU);
    ASSERT_NE(menu, nullptr);
    ASSERT_EQ(menu->items.size(), 5);
    const struct {
        const char* text;
        const char* command;
        const char* id;
    } expected[] = {
        {"Statistics", "com.northquay.arraylensview.arraystat.command",
         "toolbar:com.northquay.arraylensview.menu.stats"},
        {"Data Table", "com.northquay.arraylensview.array2dtable.command",
         "toolbar:com.northquay.arraylensview.menu.data2Dtable"},
        {"Histogram Plot", "com.northquay.arraylensview.arrayhistplot.command",
         "toolbar:com.northquay.arraylensview.menu.hist"},
        // These two suffixes carry no dot.
        {"Line Plot", "com.northquay.arraylensview.arraylineplot.command",
         "toolbar:com.northquay.arraylensviewmenu.line"},
        {"Surface Plot", "com.northquay.arraylensview.arraysurfplot.command",
         "toolbar:com.northquay.arraylensviewmenu.surf"},
    };
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(expected[i].text);
        auto* item = static_cast<fake::ContributionItem*>(menu->items[i]);
        EXPECT_EQ(item->action->text(), expected[i].text);
        EXPECT_EQ(item->commandId, expected[i].command);
        EXPECT_EQ(item->description, expected[i].id);
        EXPECT_TRUE(item->flagA);
        EXPECT_FALSE(item->flagB);
        EXPECT_FALSE(item->action->isCheckable());
        EXPECT_EQ(item->action->parent(), t.factory);
        EXPECT_TRUE(t.core.commands.registered.contains(expected[i].command));
        EXPECT_NE(t.core.commands.setHandlers.value(expected[i].command), nullptr);
    }
}

TEST(Toolbar, StatisticsIsTheChosenDisplayByTheTimeCreateItemsReturns) {
    Toolbar t;
    EXPECT_EQ(t.view->ui->displayMode, 0);
    t.factory->createItems();
    EXPECT_EQ(t.view->ui->displayMode, 1);
    EXPECT_EQ(t.view->ui->plotKind, 0);
    // The statistics command was in place before the table's was made.
    const QStringList& log = t.core.log.entries;
    const int statHandler =
        log.indexOf("setCommandHandler com.northquay.arraylensview.arraystat.command");
    const int tableCommand =
        log.indexOf("registerCommand com.northquay.arraylensview.array2dtable.command");
    ASSERT_GE(statHandler, 0);
    EXPECT_LT(statHandler, tableCommand);
}

TEST(Toolbar, UpdateContextStartsOffAndTheUpdateHandlerIsAddedLast) {
    Toolbar t;
    t.factory->createItems();
    const QString context = "com.northquay.arraylensview.update";
    EXPECT_TRUE(t.core.contexts.isContextRegistered(context));
    EXPECT_FALSE(t.core.contexts.hasContext(context));
    const QStringList& log = t.core.log.entries;
    EXPECT_LT(log.indexOf("registerContext " + context),
              log.indexOf("deactivateContext " + context));
    const QString update = "addCommandHandler com.northquay.command.update." + t.view->name();
    EXPECT_EQ(log.last(), update);
    EXPECT_FALSE(
        t.core.commands.registered.contains("com.northquay.command.update." + t.view->name()));
}

TEST(Toolbar, LabelButtonsAreFlatDisabledDisplaysWithTheirTextsAndNames) {
    Toolbar t;
    t.factory->createItems();
    const struct {
        QPushButton* button;
        const char* text;
        const char* name;
    } expected[] = {
        {t.factory->threadButton, "No Thread", "ThreadString"},
        {t.factory->typeButton, "Type: None", "TypeString"},
        {t.factory->sliceButton, "Slice: None", "SliceString"},
    };
    for (const auto& e : expected) {
        SCOPED_TRACE(e.name);
        EXPECT_EQ(e.button->text(), e.text);
        EXPECT_EQ(e.button->objectName(), e.name);
        EXPECT_EQ(e.button->property("style").toString(), "no-border-button");
        EXPECT_TRUE(e.button->isFlat());
        EXPECT_FALSE(e.button->isEnabled());
    }
    // No handler stands behind the label commands, and they are not
    // registered.
    for (const char* id : {"com.northquay.arraylensview.thread.command",
                           "com.northquay.arraylensview.type_string.command",
                           "com.northquay.arraylensview.slice_string.command"}) {
        EXPECT_FALSE(t.core.commands.registered.contains(id)) << id;
        EXPECT_FALSE(t.core.commands.setHandlers.contains(id)) << id;
        EXPECT_FALSE(t.core.commands.addedHandlers.contains(id)) << id;
    }
}

TEST(Toolbar, ComboBoxIsSetUpAsAnEditableFieldThatInsertsNothing) {
    Toolbar t;
    t.factory->createItems();
    NoAdjustComboBox* combo = t.factory->comboBox;
    EXPECT_EQ(combo->objectName(), "ArrayLensComboBox");
    EXPECT_TRUE(combo->isEditable());
    EXPECT_EQ(combo->sizeAdjustPolicy(), QComboBox::AdjustToContentsOnFirstShow);
    EXPECT_EQ(combo->currentIndex(), -1);
    EXPECT_EQ(combo->insertPolicy(), QComboBox::NoInsert);
    EXPECT_EQ(combo->completer(), nullptr);
    EXPECT_FALSE(combo->duplicatesEnabled());
    EXPECT_EQ(combo->lineEdit()->placeholderText(), "[Enter Array]");
    EXPECT_EQ(combo->maximumWidth(), 125);
    EXPECT_TRUE(t.core.commands.registered.contains("com.northquay.arraylensview.slice.command"));
}

TEST(Toolbar, ReturnInTheComboBoxLeavesTheListUnchanged) {
    Toolbar t;
    t.factory->createItems();
    NoAdjustComboBox* combo = t.factory->comboBox;
    combo->addItem("held");
    combo->setCurrentIndex(-1);
    combo->show();
    QTest::keyClicks(combo->lineEdit(), "typed[3]");
    QTest::keyClick(combo->lineEdit(), Qt::Key_Return);
    QTest::keyClicks(combo->lineEdit(), "held");
    QTest::keyClick(combo->lineEdit(), Qt::Key_Return);
    EXPECT_EQ(combo->count(), 1);
    EXPECT_EQ(combo->itemText(0), "held");
}

TEST(Toolbar, ComboBoxWidthStaysAt150AndIsLimitedTo125) {
    Toolbar t;
    t.factory->createItems();
    NoAdjustComboBox* combo = t.factory->comboBox;
    EXPECT_EQ(combo->sizeHint().width(), 150);
    EXPECT_EQ(combo->minimumSizeHint().width(), 150);
    combo->addItem(QString(400, QLatin1Char('x')));
    EXPECT_EQ(combo->sizeHint().width(), 150);
    EXPECT_EQ(combo->minimumSizeHint().width(), 150);
    // The height is the base class's.
    EXPECT_EQ(combo->sizeHint().height(), combo->QComboBox::minimumSizeHint().height());
    combo->show();
    EXPECT_LE(combo->width(), 125);
}

TEST(Toolbar, DisplayIconsComeFromThePluginsOwnOrangeAndGrayResources) {
    Toolbar t;
    t.factory->createItems();
    fake::ContributionManager* menu = t.core.commands.menus.value(MENU);
    ASSERT_NE(menu, nullptr);
    const char* names[] = {"stats", "2dTable", "histplot", "lineplot", "3dplot"};
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(names[i]);
        const QString base = QStringLiteral(":/arraylens/icons/%1_15px-").arg(names[i]);
        const QImage orange = resourceImage(base + "orange.png");
        const QImage gray = resourceImage(base + "darkgray.png");
        ASSERT_FALSE(orange.isNull());
        ASSERT_FALSE(gray.isNull());
        EXPECT_EQ(orange.size(), QSize(15, 15));
        EXPECT_NE(orange, gray);
        const QIcon icon = static_cast<fake::ContributionItem*>(menu->items[i])->action->icon();
        EXPECT_EQ(imageOf(icon, QIcon::Normal, QIcon::On), orange);
        EXPECT_EQ(imageOf(icon, QIcon::Active, QIcon::Off), orange);
        EXPECT_EQ(imageOf(icon, QIcon::Normal, QIcon::Off), gray);
    }
}

TEST(Toolbar, SettingsAndFilterActionsTakeTheHostsIconsAndTheirSwitches) {
    Toolbar t;
    t.core.theme.name = "dark";
    t.factory->createItems();
    const QString config = "com.northquay.arraylensview.config.command";
    EXPECT_TRUE(t.core.commands.registered.contains(config));
    ASSERT_EQ(t.core.commands.addedHandlers.value(config).size(), 1);
    const QStringList& log = t.core.log.entries;
    EXPECT_LT(log.indexOf("registerCommand " + config), log.indexOf("addCommandHandler " + config));

    fake::ContributionItem* settings = nullptr;
    for (fake::ContributionItem* item : t.core.commands.items)
        if (item->commandId == config)
            settings = item;
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(settings->action->text(), "Configure array type, slice and stride settings.");
    EXPECT_FALSE(settings->action->isCheckable());
    EXPECT_TRUE(settings->action->isEnabled());

    QAction* filter = t.factory->filterAction;
    EXPECT_EQ(filter->text(), "Enable/disable filtering for this array.");
    EXPECT_TRUE(filter->isCheckable());
    EXPECT_FALSE(filter->isChecked());
    // The filter's command belongs to the view, which registered it when it
    // was made; the toolbar adds no second handler.
    EXPECT_EQ(
        t.core.commands.addedHandlers.value("com.northquay.arraylensview.filter.command").size(),
        1);
}
