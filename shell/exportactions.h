#pragma once
// "Save as .npy…" and "Save as CSV…" in the data view's popup for arrays:
// the export request of the debugger service, with the file chosen in a
// dialog.

#include <QString>

#include <functional>

class IHVExpression;
class QMenu;
class QWidget;

namespace arraylens::gdb {
class GdbDebugger;
}

namespace shell {

// Asks for the file to write: (suggested name, dialog filter) -> path, empty
// to cancel. Tests put their own in place of the dialog.
using SavePathChooser = std::function<QString(const QString& suggested, const QString& filter)>;
SavePathChooser& savePathChooser();

// Adds both entries when `expression` (evaluated) is an array. `report`
// gets the outcome in words ("Saved 2400 elements to /tmp/u.npy.", or why
// not).
void addExportActions(QMenu* menu, IHVExpression* expression, arraylens::gdb::GdbDebugger* debugger,
                      QWidget* dialogParent, std::function<void(const QString&)> report);

} // namespace shell
