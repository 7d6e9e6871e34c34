// The built shared object, loaded as the host loads it: metadata first,
// then the single plug-in instance.
#include "host/nqcore.h"
#include "support/fakehost.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QPluginLoader>
#include <gtest/gtest.h>

namespace {
QString modulePath() {
    return QString::fromUtf8(ARRAYLENS_MODULE_PATH);
}
} // namespace

TEST(PluginLoader, MetadataNamesInterfaceClassAndKey) {
    QPluginLoader loader(modulePath());
    const QJsonObject meta = loader.metaData();
    ASSERT_FALSE(meta.isEmpty()) << qPrintable(loader.errorString());
    EXPECT_EQ(meta.value("IID").toString(), "com.northquay.ArrayLens");
    EXPECT_EQ(meta.value("className").toString(), "ArrayLens");
    const QJsonObject data = meta.value("MetaData").toObject();
    EXPECT_EQ(data.keys(), QStringList{"Keys"});
    EXPECT_EQ(data.value("Keys").toArray(), QJsonArray{"ArrayLens"});
}

TEST(PluginLoader, InstanceIsASingleObjectAnsweringItsNames) {
    QPluginLoader loader(modulePath());
    QObject* first = loader.instance();
    ASSERT_NE(first, nullptr) << qPrintable(loader.errorString());
    QObject* second = loader.instance();
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->parent(), nullptr);

    EXPECT_EQ(first->qt_metacast("ArrayLens"), static_cast<void*>(first));
    EXPECT_EQ(first->qt_metacast("IArrayLens"), static_cast<void*>(first));
    EXPECT_EQ(first->qt_metacast("com.northquay.iarraylens"), static_cast<void*>(first));
    EXPECT_EQ(first->qt_metacast("com.northquay.iarraylens"), first->qt_metacast("IArrayLens"));
    EXPECT_EQ(first->qt_metacast(nullptr), nullptr);
    EXPECT_EQ(first->qt_metacast("com.northquay.IArrayLens"), nullptr);
    // Everything else goes to the host's plug-in base.
    EXPECT_NE(first->qt_metacast("NQ::IPlugin"), nullptr);
    EXPECT_NE(qobject_cast<NQ::IPlugin*>(first), nullptr);
}

TEST(PluginLoader, DestroyedInstanceIsMadeAnew) {
    QPluginLoader loader(modulePath());
    QObject* first = loader.instance();
    ASSERT_NE(first, nullptr) << qPrintable(loader.errorString());
    delete first;
    QObject* again = loader.instance();
    ASSERT_NE(again, nullptr);
    EXPECT_NE(again->qt_metacast("ArrayLens"), nullptr);
}

TEST(PluginLoader, ResourceTreesAreRegisteredAtLoad) {
    QPluginLoader loader(modulePath());
    ASSERT_TRUE(loader.load()) << qPrintable(loader.errorString());
    EXPECT_TRUE(QFile::exists(":/arraylens/themes/light/theme.css"));
    EXPECT_TRUE(QFile::exists(":/arraylens/themes/dark/theme.css"));
}

TEST(PluginLoader, InitAgainstTheHostRegistersTheView) {
    fake::Core core;
    QPluginLoader loader(modulePath());
    auto* plugin = qobject_cast<NQ::IPlugin*>(loader.instance());
    ASSERT_NE(plugin, nullptr) << qPrintable(loader.errorString());
    EXPECT_TRUE(plugin->init(nullptr, {}));
    ASSERT_EQ(core.views.views.size(), 1);
    EXPECT_EQ(core.views.views.first()->name(), "com.northquay.arraylensview");
    EXPECT_EQ(core.plugins.registered, QList<NQ::IPlugin*>{plugin});
    // The host keeps the view; it is destroyed with the host's window.
    delete core.views.views.first();
}
