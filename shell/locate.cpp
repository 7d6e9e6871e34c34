#include "shell/locate.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace shell {

namespace {
QString firstExisting(const QStringList& paths) {
    for (const QString& p : paths)
        if (QFileInfo(p).isFile())
            return QFileInfo(p).absoluteFilePath();
    return QString();
}
} // namespace

QStringList pluginCandidates() {
    const QString app = QCoreApplication::applicationDirPath();
    QStringList paths;
    const QString fromEnv = qEnvironmentVariable("ARRAYLENS_PLUGIN");
    if (!fromEnv.isEmpty())
        paths << fromEnv;
    paths << app + QStringLiteral("/../lib/arraylens/libArrayLens.so")
          << app + QStringLiteral("/../plugins/libArrayLens.so")
          << app + QStringLiteral("/../lib/libArrayLens.so");
    return paths;
}

QString locatePlugin() {
    return firstExisting(pluginCandidates());
}

QString locateExample() {
    const QString app = QCoreApplication::applicationDirPath();
    return firstExisting({app + QStringLiteral("/example_heat"),
                          app + QStringLiteral("/../share/arraylens/examples/example_heat")});
}

QString exampleBreakLocation() {
    return QStringLiteral(ARRAYLENS_HEAT_BREAK);
}

} // namespace shell
