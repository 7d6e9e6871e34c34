// The entries the plug-in adds to the popups of the host's data view and
// local variable view.
#include "plugin/popupfactories.h"
#include "support/fakehost.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

constexpr char DATA_QUERY[] = "?after=com.northquay.dataview.popup.redive";
constexpr char LOCAL_QUERY[] = "?after=com.northquay.localvariable.popup.dive_in_new";

fake::ContributionItem* item(NQ::IContributionItem* i) {
    return static_cast<fake::ContributionItem*>(i);
}

} // namespace

TEST(PopupFactories, LocationWithoutColonKeepsMenuAndSoDoesOneWithTwoColons) {
    UpdateDataViewPopupFactory none("com.northquay.dataview");
    EXPECT_EQ(none.popupName, "menu");
    UpdateDataViewPopupFactory two("popup:com.northquay:dataview");
    EXPECT_EQ(two.popupName, "menu");
    UpdateLocalVarPopupFactory one("context:com.northquay.localvariable");
    EXPECT_EQ(one.popupName, "context");
}

TEST(PopupFactories, NewDataViewFactoryEndsInThePlacementQuery) {
    UpdateDataViewPopupFactory f("popup:com.northquay.dataview");
    EXPECT_EQ(f.getLocation(), QString("popup:com.northquay.dataview") + DATA_QUERY);
    EXPECT_TRUE(f.getLocation().endsWith(DATA_QUERY));
    EXPECT_EQ(f.popupName, "popup");
    UpdateLocalVarPopupFactory g("popup:com.northquay.localvariable");
    EXPECT_EQ(g.getLocation(), QString("popup:com.northquay.localvariable") + LOCAL_QUERY);
}

TEST(PopupFactories, DuplicateOfALocationWithoutQueryAddsTheQueryOnce) {
    UpdateDataViewPopupFactory f("popup:com.northquay.dataview");
    std::unique_ptr<NQ::IContributionFactory> copy(f.duplicate("popup:com.northquay.dataview2"));
    auto* typed = dynamic_cast<UpdateDataViewPopupFactory*>(copy.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(copy->getLocation(), QString("popup:com.northquay.dataview2") + DATA_QUERY);
    EXPECT_EQ(copy->getLocation().count(DATA_QUERY), 1);
    // The original is untouched.
    EXPECT_EQ(f.getLocation(), QString("popup:com.northquay.dataview") + DATA_QUERY);

    UpdateLocalVarPopupFactory g("popup:com.northquay.localvariable");
    std::unique_ptr<NQ::IContributionFactory> other(g.duplicate("popup:x"));
    EXPECT_NE(dynamic_cast<UpdateLocalVarPopupFactory*>(other.get()), nullptr);
    EXPECT_EQ(other->getLocation(), QString("popup:x") + LOCAL_QUERY);
}

TEST(PopupFactories, CreateItemsGivesASeparatorThenTheEntryBoundToThePluginsCommand) {
    fake::Core core;
    UpdateDataViewPopupFactory f("popup:com.northquay.dataview");
    const auto items = f.createItems();
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(item(items[0])->kind, fake::ContributionItem::Separator);
    EXPECT_EQ(item(items[0])->getId(),
              QString("popup:com.northquay.dataview") + DATA_QUERY + ".separtor.arraylens");
    EXPECT_EQ(item(items[1])->kind, fake::ContributionItem::Command);
    EXPECT_EQ(item(items[1])->label, "Add to Array Lens - Statistics, Visualize");
    EXPECT_EQ(item(items[1])->commandId, "com.northquay.arraylens.command");
    EXPECT_EQ(item(items[1])->getId(), "com.northquay.dataview.popup.arraylens");
    EXPECT_EQ(item(items[1])->qualifier, "None");
}

TEST(PopupFactories, LocalVariableEntryTakesItsViewIdAndItsQuery) {
    fake::Core core;
    UpdateLocalVarPopupFactory f("popup:com.northquay.localvariable");
    const auto items = f.createItems();
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(item(items[0])->getId(),
              QString("popup:com.northquay.localvariable") + LOCAL_QUERY + ".separtor.arraylens");
    EXPECT_EQ(item(items[1])->getId(), "com.northquay.localvariable.popup.arraylens");
    EXPECT_EQ(item(items[1])->label, "Add to Array Lens - Statistics, Visualize");
}

TEST(PopupFactories, CreateItemsCanBeCalledAgainAndChangesNothingInTheFactory) {
    fake::Core core;
    UpdateDataViewPopupFactory f("popup:com.northquay.dataview");
    const QString location = f.getLocation();
    const auto first = f.createItems();
    const auto second = f.createItems();
    ASSERT_EQ(second.size(), 2);
    EXPECT_NE(first[0], second[0]);
    EXPECT_NE(first[1], second[1]);
    EXPECT_EQ(item(first[1])->getId(), item(second[1])->getId());
    EXPECT_EQ(item(first[0])->getId(), item(second[0])->getId());
    EXPECT_EQ(f.getLocation(), location);
    EXPECT_EQ(f.popupName, "popup");
}

TEST(PopupFactories, AreQObjectsWithoutParent) {
    UpdateDataViewPopupFactory f("popup:com.northquay.dataview");
    EXPECT_EQ(f.parent(), nullptr);
}
