#pragma once
// The application's command line:
//   arraylens [options] [-- program args]
// With neither a program nor a target the bundled example is opened.

#include <QString>
#include <QStringList>

namespace shell {

struct Options {
    QString program;
    QStringList programArgs;
    // "LOCATION" or "LOCATION if CONDITION", as gdb's break takes them.
    QStringList breaks;
    // Hits of each breakpoint given to pass before stopping.
    int ignore = 0;
    QStringList evals;
    qint64 attachPid = 0;
    QString coreFile;
    // An MPI job: ranks to launch through `mpirun`, or the pid of the
    // `mpirun` of a running job; the ranks chosen at the start (empty: all)
    // and how long the ranks may take to stop together.
    int mpiRanks = 0;
    qint64 attachMpiPid = 0;
    QString mpirun = QStringLiteral("mpirun");
    QString ranks;
    int stopTimeoutMs = 600000;
    QString remote; // HOST:PORT of a gdbserver
    QString gdbPath = QStringLiteral("gdb");
    QString screenshot;
    QString pluginPath;
    QString theme = QStringLiteral("light");
    // Set when nothing was named: the bundled example at its breakpoint.
    bool bundledExample = false;
    bool help = false;

    bool hasTarget() const {
        return !program.isEmpty() || attachPid > 0 || !coreFile.isEmpty() || !remote.isEmpty() ||
               attachMpiPid > 0;
    }
    bool isMpi() const { return mpiRanks > 0 || attachMpiPid > 0; }
};

// Fills `options` from the arguments (without the program name). False with
// `error` filled on bad usage.
bool parseOptions(const QStringList& arguments, Options& options, QString* error);
QString usageText();

} // namespace shell
