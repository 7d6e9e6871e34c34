// The command line of arraylens-cli.
#pragma once

#include <QString>
#include <QStringList>

namespace arraylens::cli {

enum class Command { Info, Stats, Table, Plot, Trace, Export };

struct Options {
    Command command = Command::Stats;
    QString expression;
    QString slice;
    QString filter;
    int format = 8;
    // 64-bit, as every extent and index: a table can have more than 2^31
    // rows, and a dimension number out of range is for the service to
    // refuse in words.
    qint64 rowDim = -1;
    qint64 colDim = -1;
    // The table's viewport in table coordinates, inclusive.
    qint64 startRow = 0, endRow = 39;
    qint64 startCol = 0, endCol = 19;
    // "LOCATION" or "LOCATION if CONDITION", as gdb's break takes them.
    QStringList breaks;
    // Hits of each breakpoint to pass before stopping.
    int ignore = 0;
    qint64 attachPid = 0;
    QString core;
    QString remote;
    QString gdb = QStringLiteral("gdb");
    bool timings = false;
    // trace: the statistics per line (empty: all), the condition that ends
    // it, the most stops (0: no limit).
    QStringList stats;
    QString until;
    int stops = 0;
    // export: the file to write.
    QString out;
    // An MPI job: ranks to launch through `mpirun`, or the pid of the
    // `mpirun` of a running job; the ranks to show (empty: all).
    int mpiRanks = 0;
    QString mpirun = QStringLiteral("mpirun");
    qint64 attachMpiPid = 0;
    QString ranks;
    // How long the program (every rank of a job) may take to reach its
    // breakpoint.
    int stopTimeoutMs = 600000;
    // The program and its arguments (after "--").
    QString program;
    QStringList programArgs;
};

// Reads the arguments after the program's own name. False with `error`
// set on bad usage.
bool parseArguments(const QStringList& args, Options& options, QString& error);

QString usage();

} // namespace arraylens::cli
