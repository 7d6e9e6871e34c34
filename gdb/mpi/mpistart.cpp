#include "mpistart.h"

#include "runcontrol.h"

namespace arraylens::gdb {

QString launchNeedsBreakText() {
    return QStringLiteral("--mpi needs --break LOCATION: the debugger reaches the ranks inside "
                          "MPI_Init, past the start of main.");
}

bool openMpiJob(MpiJob& job, const MpiStart& start, QString& error) {
    if (start.attachPid == 0 && start.breaks.isEmpty()) {
        error = launchNeedsBreakText();
        return false;
    }
    const bool ready = start.attachPid > 0
                           ? job.attach(start.attachPid, error)
                           : job.launch(start.ranks, start.program, start.programArgs, error);
    if (!ready)
        return false;
    for (const QString& text : start.breaks) {
        // "LOCATION if CONDITION" and the hits to pass, as on one process.
        BreakSpec spec;
        parseBreakSpec(text, spec, nullptr);
        const QString command = breakInsertCommand(spec, start.ignore);
        const QString prefix = QStringLiteral("-break-insert ");
        if (!job.insertBreakpoint(command.mid(command.startsWith(prefix) ? prefix.size() : 0),
                                  error)) {
            error = QStringLiteral("Cannot set a breakpoint at %1: %2").arg(text, error);
            return false;
        }
    }
    return true;
}

} // namespace arraylens::gdb
