// The plug-in object's init() against the fake host, and the view's answers
// to the host.
#include "plugin/arraylens.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/arraylensview.h"
#include "plugin/halvanehelp.h"
#include "support/fakehost.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

// init() hands the view to the host, which keeps it; the test plays the
// host and destroys it at the end.
struct InitializedPlugin {
    fake::Core core;
    ArrayLens plugin;
    bool result = plugin.init(nullptr, {});
    ~InitializedPlugin() { delete plugin.view; }
};

} // namespace

TEST(ArrayLensInit, RegistersInOrderPluginViewCommandHandlerAndPopups) {
    InitializedPlugin p;
    ASSERT_TRUE(p.result);
    const QStringList expected{
        "registerPlugin ArrayLens",
        // The view's own init, run by its constructor.
        "addContributionFactory toolbar:com.northquay.arraylensview",
        "registerContext com.northquay.arraylensview.filter",
        "registerCommand com.northquay.arraylensview.filter.command",
        "addCommandHandler com.northquay.arraylensview.filter.command",
        "addView com.northquay.arraylensview",
        "registerCommand com.northquay.arraylens.command",
        "addCommandHandler com.northquay.arraylens.command",
        "addContributionFactory "
        "popup:com.northquay.dataview?after=com.northquay.dataview.popup.redive",
        "addContributionFactory "
        "popup:com.northquay.localvariable?after=com.northquay.localvariable.popup.dive_in_new",
    };
    // Other entries (the controller's own start-up) may stand in between;
    // these must come in this order.
    int at = 0;
    for (const QString& entry : p.core.log.entries)
        if (at < expected.size() && entry == expected[at])
            ++at;
    EXPECT_EQ(at, expected.size()) << "log: " << qPrintable(p.core.log.entries.join("\n"));
    EXPECT_EQ(p.core.log.entries.first(), "registerPlugin ArrayLens");
}

TEST(ArrayLensInit, AddsItsInterfaceIdAsExtension) {
    InitializedPlugin p;
    EXPECT_EQ(p.plugin.extensions(), QStringList{"com.northquay.iarraylens"});
    EXPECT_EQ(p.core.plugins.registered, QList<NQ::IPlugin*>{&p.plugin});
}

TEST(ArrayLensInit, ViewGoesToTheViewManagerAndIsKeptByThePlugin) {
    InitializedPlugin p;
    ASSERT_NE(p.plugin.view, nullptr);
    ASSERT_EQ(p.core.views.views.size(), 1);
    EXPECT_EQ(p.core.views.views.first(), p.plugin.view);
}

TEST(ArrayLensInit, CommandHandlerServesThePopupCommandUnderTheStatsContext) {
    InitializedPlugin p;
    const auto handlers = p.core.commands.addedHandlers.value(HVUI::Constants::ARRAYLENS_COMMAND);
    ASSERT_EQ(handlers.size(), 1);
    EXPECT_TRUE(handlers.first()->hasContext());
    EXPECT_EQ(handlers.first()->getContext(),
              QStringList{"com.northquay.halvane.context.show_stats"});
    EXPECT_TRUE(p.core.commands.registered.contains(HVUI::Constants::ARRAYLENS_COMMAND));
}

TEST(ArrayLensInit, ReturnsTrueWithNullErrorStringAndEmptyArguments) {
    fake::Core core;
    ArrayLens plugin;
    EXPECT_TRUE(plugin.init(nullptr, QStringList()));
    delete plugin.view;
}

TEST(ArrayLensInit, LeavesAGivenErrorStringAlone) {
    fake::Core core;
    ArrayLens plugin;
    QString error = "untouched";
    EXPECT_TRUE(plugin.init(&error, {"--some", "argument"}));
    EXPECT_EQ(error, "untouched");
    delete plugin.view;
}

TEST(ArrayLensConfigure, TrueBeforeAndAfterInit) {
    fake::Core core;
    ArrayLens plugin;
    EXPECT_TRUE(plugin.configure());
    plugin.init(nullptr, {});
    EXPECT_TRUE(plugin.configure());
    plugin.shuttingDown();
    EXPECT_TRUE(plugin.configure());
    delete plugin.view;
}

TEST(ArrayLensConstruction, HasNoParentAndNoView) {
    ArrayLens plugin;
    EXPECT_EQ(plugin.parent(), nullptr);
    EXPECT_EQ(plugin.view, nullptr);
    EXPECT_TRUE(plugin.extensions().isEmpty());
}

TEST(ArrayLensDestruction, LeavesTheViewToTheHost) {
    fake::Core core;
    auto plugin = std::make_unique<ArrayLens>();
    plugin->init(nullptr, {});
    QPointer<ArrayLensView> view = plugin->view;
    plugin.reset();
    EXPECT_FALSE(view.isNull());
    delete view.data();
}

TEST(ArrayLensMetacast, AnswersItsThreeNamesWithItself) {
    ArrayLens plugin;
    void* self = static_cast<QObject*>(&plugin);
    EXPECT_EQ(plugin.qt_metacast("ArrayLens"), self);
    EXPECT_EQ(plugin.qt_metacast("IArrayLens"), self);
    EXPECT_EQ(plugin.qt_metacast("com.northquay.iarraylens"), self);
    EXPECT_EQ(plugin.qt_metacast("com.northquay.iarraylens"), plugin.qt_metacast("IArrayLens"));
}

TEST(ArrayLensMetacast, NullNameYieldsNullAndOthersGoToThePluginBase) {
    ArrayLens plugin;
    EXPECT_EQ(plugin.qt_metacast(nullptr), nullptr);
    EXPECT_EQ(plugin.qt_metacast("arraylens"), nullptr);
    EXPECT_EQ(plugin.qt_metacast("NQ::IPlugin"),
              static_cast<void*>(static_cast<NQ::IPlugin*>(&plugin)));
    EXPECT_EQ(plugin.qt_metacast("QObject"), static_cast<void*>(static_cast<QObject*>(&plugin)));
}

TEST(ArrayLensView, AnswersTheHostsQuestions) {
    fake::Core core;
    ArrayLensView view;
    EXPECT_EQ(view.name(), "com.northquay.arraylensview");
    EXPECT_EQ(view.position(), 8);
    EXPECT_TRUE(view.wantsManualUpdate());
    EXPECT_EQ(view.tabRelativeToView(), "com.northquay.dataview");
    EXPECT_EQ(view.widget(), reinterpret_cast<QWidget*>(view.ui));
    EXPECT_NE(view.widget(), nullptr);
    EXPECT_FALSE(view.updatePending);
    // The base's defaults.
    EXPECT_EQ(view.topWidget(), nullptr);
    EXPECT_EQ(view.bottomWidget(), nullptr);
    EXPECT_TRUE(view.visibleAtStartup());
    EXPECT_EQ(view.split(), "None");
    EXPECT_EQ(view.splitRelativeToView(), "None");
    EXPECT_EQ(view.toolTipText(), "");
    EXPECT_FALSE(view.isSearchBarVisible());
    EXPECT_FALSE(view.supportsDuplicate());
    EXPECT_EQ(view.duplicate("x"), nullptr);
    EXPECT_EQ(view.defaultDrawerPercentOpen(), 0);
    EXPECT_TRUE(view.partName().isEmpty());
    EXPECT_TRUE(view.partEnabled());
}

TEST(ArrayLensView, WidgetCarriesTheDisplayName) {
    fake::Core core;
    ArrayLensView view;
    EXPECT_EQ(view.widget()->windowTitle(), "Array Lens");
}

TEST(ArrayLensView, HelpTopicOfTheViewReplacesTheGeneralOne) {
    fake::Core core;
    ArrayLensView view;
    QList<NQ::HelpReference> forUi;
    for (const auto& r : core.help.references)
        if (r.first == view.widget())
            forUi << r.second;
    ASSERT_EQ(forUi.size(), 2);
    EXPECT_EQ(forUi[0], NQ::HelpReference("halvane", "DocumentationRoot"));
    EXPECT_EQ(forUi[1], NQ::HelpReference("halvane", "ArrayStatistics"));
}

TEST(ArrayLensView, FilterCommandIsRegisteredWithItsContext) {
    fake::Core core;
    ArrayLensView view;
    EXPECT_TRUE(core.contexts.isContextRegistered("com.northquay.arraylensview.filter"));
    EXPECT_TRUE(core.commands.registered.contains("com.northquay.arraylensview.filter.command"));
    const auto handlers =
        core.commands.addedHandlers.value("com.northquay.arraylensview.filter.command");
    ASSERT_EQ(handlers.size(), 1);
    EXPECT_EQ(handlers.first()->getContext(),
              (QStringList{"HVDebugger.READY", "com.northquay.arraylensview.filter"}));
}

TEST(ArrayLensView, ToolbarFactoryIsRegisteredButNotBuilt) {
    fake::Core core;
    ArrayLensView view;
    NQ::IContributionFactory* factory =
        core.commands.factoryAt("toolbar:com.northquay.arraylensview");
    ASSERT_NE(factory, nullptr);
    EXPECT_EQ(factory, static_cast<NQ::IContributionFactory*>(view.toolBarFactory));
    EXPECT_EQ(dynamic_cast<QObject*>(factory)->objectName(), "ArrayLensBar");
    // No items until the host asks for them.
    EXPECT_TRUE(core.commands.items.isEmpty());
}

TEST(HalvaneHelp, NullTopicGivesANullTopicText) {
    fake::Core core;
    QWidget w;
    HalvaneHelp::setHelpReference(&w, nullptr);
    const NQ::HelpReference r = core.help.referenceOf(&w);
    EXPECT_EQ(r.first, "halvane");
    EXPECT_TRUE(r.second.isNull());
    HalvaneHelp::setHelpReference(&w, "Topic");
    EXPECT_EQ(core.help.referenceOf(&w).second, "Topic");
}

TEST(SliceTextsOnTheView, CountAndDefaultFollowTheSliceModel) {
    fake::Core core;
    ArrayLensView view;
    EXPECT_EQ(view.getSliceDimCount("int[10][20]"), 2);
    EXPECT_EQ(view.getDefaultSlice("double [10][20]", true), "[:][:]");
    EXPECT_EQ(view.getDefaultSlice("integer(10,20)", false), "(:,:)");
}
