// Opening an MPI job as both front ends do: launch it through `mpirun` or
// attach to a running one, and set the breakpoints in every rank.
#pragma once

#include "mpijob.h"

#include <QString>
#include <QStringList>

namespace arraylens::gdb {

struct MpiStart {
    int ranks = 0;        // launch `mpirun -np ranks`, or
    qint64 attachPid = 0; // attach to the job of this `mpirun`
    QString program;
    QStringList programArgs;
    // "LOCATION" or "LOCATION if CONDITION", checked by the caller with
    // parseBreakSpec; `ignore` hits of each are passed.
    QStringList breaks;
    int ignore = 0;

    // A launched job waits in MPI_Init and must run to its breakpoint; an
    // attached one stops where it is, and runs on only to breakpoints given.
    bool runsToFirstStop() const { return attachPid == 0 || !breaks.isEmpty(); }
};

// The start a front end's options ask for; both front ends name these
// options alike.
template <class FrontEndOptions> MpiStart mpiStartOf(const FrontEndOptions& o) {
    MpiStart start;
    start.ranks = o.mpiRanks;
    start.attachPid = o.attachMpiPid;
    start.program = o.program;
    start.programArgs = o.programArgs;
    start.breaks = o.breaks;
    start.ignore = o.ignore;
    return start;
}

// Why a launch without a breakpoint is refused.
QString launchNeedsBreakText();

// Launches or attaches and sets every breakpoint in every rank; the ranks
// are then stopped (in MPI_Init after a launch). False with `error`, also
// for a launch without a breakpoint.
bool openMpiJob(MpiJob& job, const MpiStart& start, QString& error);

} // namespace arraylens::gdb
