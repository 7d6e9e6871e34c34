#pragma once
// Where the application finds its plug-in and its bundled example, in the
// build tree and once installed.

#include <QString>
#include <QStringList>

namespace shell {

// The Array Lens plug-in: $ARRAYLENS_PLUGIN, else next to the application
// (../lib/arraylens, ../plugins, ../lib). Empty when there is none.
QString locatePlugin();
// The bundled example program (example_heat): next to the application, or
// under ../share/arraylens/examples once installed.
QString locateExample();
// Where the bundled example stops with its arrays in scope.
QString exampleBreakLocation();
// The places searched, for messages.
QStringList pluginCandidates();

} // namespace shell
