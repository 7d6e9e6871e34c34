// Defaults of the host's base classes and the extension lookup.
#include "host/hostids.h"
#include "host/hvdebugger.h"
#include "host/nqcore.h"
#include "support/fakehost.h"

#include <gtest/gtest.h>

namespace {

class MinimalView : public NQ::IView {
public:
    QString name() const override { return "test.view"; }
    int position() const override { return 3; }
    bool wantsManualUpdate() const override { return false; }
    QWidget* widget() override { return this; }
    QString tabRelativeToView() const override { return QString(); }
    void reset() override {}
};

class MinimalHandler : public NQ::ICommandHandler {
public:
    void execute(QSharedPointer<NQ::ICmdExecutionEvent>) override {}
};

class OtherPlugin : public NQ::IPlugin {
public:
    bool init(QString*, const QStringList&) override { return true; }
    bool configure() override { return true; }
    void shuttingDown() override {}
};

} // namespace

TEST(ViewDefaults, BaseAnswersAreThoseTheHostExpects) {
    MinimalView v;
    EXPECT_EQ(v.topWidget(), nullptr);
    EXPECT_EQ(v.bottomWidget(), nullptr);
    EXPECT_TRUE(v.visibleAtStartup());
    EXPECT_EQ(v.split(), "None");
    EXPECT_EQ(v.splitRelativeToView(), "None");
    EXPECT_EQ(v.toolTipText(), "");
    EXPECT_FALSE(v.isSearchBarVisible());
    EXPECT_FALSE(v.supportsDuplicate());
    EXPECT_EQ(v.duplicate("copy"), nullptr);
    EXPECT_EQ(v.defaultDrawerPercentOpen(), 0);
}

TEST(ViewDefaults, PartDataStartsEmptyAndTrue) {
    MinimalView v;
    EXPECT_TRUE(v.partName().isEmpty());
    EXPECT_TRUE(v.partEnabled());
}

TEST(CommandHandlerDefaults, NoContextNoSelectionNoPart) {
    MinimalHandler h;
    EXPECT_FALSE(h.hasContext());
    EXPECT_TRUE(h.getContext().isEmpty());
    EXPECT_FALSE(h.hasSelection());
    EXPECT_EQ(h.getSelectionType(), "None");
    EXPECT_FALSE(h.hasPartName());
    EXPECT_EQ(h.getPartName(), "None");
}

TEST(CoreInstance, FakeCoreInstallsItselfAndRestoresThePrevious) {
    NQ::ICore* before = NQ::ICore::instance();
    {
        fake::Core outer;
        EXPECT_EQ(NQ::ICore::instance(), &outer);
        {
            fake::Core inner;
            EXPECT_EQ(NQ::ICore::instance(), &inner);
        }
        EXPECT_EQ(NQ::ICore::instance(), &outer);
    }
    EXPECT_EQ(NQ::ICore::instance(), before);
}

TEST(PluginExtensions, AddedInOrder) {
    OtherPlugin p;
    EXPECT_TRUE(p.extensions().isEmpty());
    p.addExtension("a.b");
    p.addExtension("c.d");
    EXPECT_EQ(p.extensions(), (QStringList{"a.b", "c.d"}));
}

TEST(ExtensionLookup, FindsTheDebuggerServiceThroughTheCorePlugin) {
    fake::Core core;
    void* found = NQ::findExtension(core.pluginManager(), NQ::Ids::IHVCORE_EXTENSION);
    ASSERT_NE(found, nullptr);
    auto* hvcore = static_cast<IHVCore*>(found);
    EXPECT_EQ(hvcore->getDebugger().toStrongRef().data(), &core.debugger());
    auto* halvane = static_cast<IHalvane*>(
        NQ::findExtension(core.pluginManager(), NQ::Ids::IHALVANE_EXTENSION));
    ASSERT_NE(halvane, nullptr);
    EXPECT_EQ(halvane->getCurrentFrame(), nullptr);
}

TEST(ExtensionLookup, PluginThatDoesNotListTheIdGivesNothing) {
    fake::Core core(false);
    EXPECT_NE(NQ::findExtension(core.pluginManager(), NQ::Ids::IHVCORE_EXTENSION), nullptr);
    // The manager still hands out the core plug-in, but it does not list the id.
    EXPECT_EQ(core.plugins.getPlugin(NQ::Ids::IHALVANE_EXTENSION), &core.corePlugin);
    EXPECT_EQ(NQ::findExtension(core.pluginManager(), NQ::Ids::IHALVANE_EXTENSION), nullptr);
}

TEST(ExtensionLookup, IdsCompareWithCase) {
    fake::Core core;
    EXPECT_EQ(NQ::findExtension(core.pluginManager(), "com.northquay.IHVCORE"), nullptr);
    EXPECT_EQ(NQ::findExtension(nullptr, NQ::Ids::IHVCORE_EXTENSION), nullptr);
}

TEST(ObjectInterfaceIds, ExpressionFrameAndProcessAnswerTheirIds) {
    fake::Expression e("a");
    fake::Frame f;
    fake::Process p;
    EXPECT_NE(e.qt_metacast(NQ::Ids::IHVEXPRESSION_IID), nullptr);
    EXPECT_EQ(e.qt_metacast(NQ::Ids::IHVFRAME_IID), nullptr);
    EXPECT_NE(f.qt_metacast(NQ::Ids::IHVFRAME_IID), nullptr);
    EXPECT_EQ(f.qt_metacast(NQ::Ids::IHVEXPRESSION_IID), nullptr);
    EXPECT_NE(p.qt_metacast(NQ::Ids::IHVPROCESS_IID), nullptr);
    QObject plain;
    EXPECT_EQ(plain.qt_metacast(NQ::Ids::IHVEXPRESSION_IID), nullptr);
}

TEST(Selections, HoldersGiveBackWhatTheyWereGiven) {
    QObject a, b;
    NQ::QObjectSelection s({&a, nullptr, &b});
    EXPECT_EQ(s.getSelected(), (QList<QObject*>{&a, nullptr, &b}));
    QSharedPointer<QObject> shared(new QObject);
    NQ::QSharedObjectSelection ss({shared});
    ASSERT_EQ(ss.getSelected().size(), 1);
    EXPECT_EQ(ss.getSelected().first(), shared);
    NQ::ISelection* base = &s;
    EXPECT_NE(dynamic_cast<NQ::IQObjectSelection*>(base), nullptr);
    EXPECT_EQ(dynamic_cast<NQ::IQSharedObjectSelection*>(base), nullptr);
}
