#include "clioptions.h"

#include "mpijob.h"

#include <climits>

namespace arraylens::cli {

namespace {

bool parseInt(const QString& text, int& out) {
    bool ok = false;
    const int v = text.toInt(&ok);
    if (ok)
        out = v;
    return ok;
}

// "a:b" with both ends.
bool parseRange(const QString& text, int& from, int& to) {
    const QStringList parts = text.split(QLatin1Char(':'));
    return parts.size() == 2 && parseInt(parts[0], from) && parseInt(parts[1], to) && from >= 0 &&
           to >= from;
}

} // namespace

QString usage() {
    return QStringLiteral(
        "usage: arraylens-cli {info|stats|table|plot} --expr E [--slice S] [--filter F]\n"
        "         [--format N] [--row-dim N --col-dim N] [--rows a:b --cols c:d]\n"
        "         [--break 'LOCATION [if CONDITION]']... [--ignore N]\n"
        "         [--attach PID | --core FILE | --remote HOST:PORT]\n"
        "         [--mpi N [--mpirun PATH] | --attach-mpi PID] [--ranks LIST]\n"
        "         [--stop-timeout SECONDS] [--gdb PATH] [--timings] [-- program args]\n"
        "\n"
        "  --break       stop at LOCATION (function or file:line; default main), only\n"
        "                where CONDITION, an expression of the program's language, holds\n"
        "  --ignore N    pass the first N hits of each breakpoint, stop at the next\n"
        "  --mpi N       run the program under mpirun -np N, every rank under gdb; the\n"
        "                array gains a process dimension 0:N-1 over the ranks of --ranks\n"
        "  --attach-mpi  attach to the ranks of a running job by the pid of its mpirun\n"
        "  --ranks LIST  the ranks to show, e.g. 0-3,7 (default all)\n"
        "  --help        this text\n");
}

bool parseArguments(const QStringList& args, Options& o, QString& error) {
    if (args.isEmpty()) {
        error = QStringLiteral("No command given.");
        return false;
    }
    const QString command = args.first();
    if (command == QLatin1String("info"))
        o.command = Command::Info;
    else if (command == QLatin1String("stats"))
        o.command = Command::Stats;
    else if (command == QLatin1String("table"))
        o.command = Command::Table;
    else if (command == QLatin1String("plot"))
        o.command = Command::Plot;
    else {
        error = QStringLiteral("Unknown command '%1'.").arg(command);
        return false;
    }
    bool haveExpr = false;
    int targets = 0;
    for (int i = 1; i < args.size(); ++i) {
        const QString a = args[i];
        if (a == QLatin1String("--")) {
            if (i + 1 < args.size()) {
                o.program = args[i + 1];
                o.programArgs = args.mid(i + 2);
            }
            break;
        }
        if (a == QLatin1String("--timings")) {
            o.timings = true;
            continue;
        }
        if (!a.startsWith(QLatin1String("--"))) {
            error = QStringLiteral("Unexpected argument '%1'.").arg(a);
            return false;
        }
        if (i + 1 >= args.size()) {
            error = QStringLiteral("Option %1 needs a value.").arg(a);
            return false;
        }
        const QString v = args[++i];
        bool ok = true;
        if (a == QLatin1String("--expr")) {
            o.expression = v;
            haveExpr = true;
        } else if (a == QLatin1String("--slice")) {
            o.slice = v;
        } else if (a == QLatin1String("--filter")) {
            o.filter = v;
        } else if (a == QLatin1String("--format")) {
            ok = parseInt(v, o.format) && o.format >= 0 && o.format <= 8;
        } else if (a == QLatin1String("--row-dim")) {
            ok = parseInt(v, o.rowDim);
        } else if (a == QLatin1String("--col-dim")) {
            ok = parseInt(v, o.colDim);
        } else if (a == QLatin1String("--rows")) {
            ok = parseRange(v, o.startRow, o.endRow);
        } else if (a == QLatin1String("--cols")) {
            ok = parseRange(v, o.startCol, o.endCol);
        } else if (a == QLatin1String("--break")) {
            o.breaks << v;
        } else if (a == QLatin1String("--ignore")) {
            ok = parseInt(v, o.ignore) && o.ignore >= 0;
        } else if (a == QLatin1String("--attach")) {
            o.attachPid = v.toLongLong(&ok);
            ok = ok && o.attachPid > 0;
            ++targets;
        } else if (a == QLatin1String("--core")) {
            o.core = v;
            ++targets;
        } else if (a == QLatin1String("--remote")) {
            o.remote = v;
            ok = v.contains(QLatin1Char(':'));
            ++targets;
        } else if (a == QLatin1String("--mpi")) {
            ok = parseInt(v, o.mpiRanks) && o.mpiRanks >= 1;
            ++targets;
        } else if (a == QLatin1String("--mpirun")) {
            o.mpirun = v;
            ok = !v.isEmpty();
        } else if (a == QLatin1String("--attach-mpi")) {
            o.attachMpiPid = v.toLongLong(&ok);
            ok = ok && o.attachMpiPid > 0;
            ++targets;
        } else if (a == QLatin1String("--ranks")) {
            o.ranks = v;
            QVector<int> ranks;
            if (!arraylens::gdb::parseRankList(v, INT_MAX, ranks, error))
                return false;
        } else if (a == QLatin1String("--stop-timeout")) {
            const double seconds = v.toDouble(&ok);
            ok = ok && seconds > 0 && seconds <= 86400;
            o.stopTimeoutMs = ok ? int(seconds * 1000) : o.stopTimeoutMs;
        } else if (a == QLatin1String("--gdb")) {
            o.gdb = v;
        } else {
            error = QStringLiteral("Unknown option '%1'.").arg(a);
            return false;
        }
        if (!ok) {
            error = QStringLiteral("Bad value '%1' for %2.").arg(v, a);
            return false;
        }
    }
    if (!haveExpr || o.expression.isEmpty()) {
        error = QStringLiteral("--expr is required.");
        return false;
    }
    if (targets > 1) {
        error = QStringLiteral(
            "--attach, --core, --remote, --mpi and --attach-mpi exclude each other.");
        return false;
    }
    if (!o.ranks.isEmpty() && o.mpiRanks == 0 && o.attachMpiPid == 0) {
        error = QStringLiteral("--ranks needs --mpi or --attach-mpi.");
        return false;
    }
    if (o.program.isEmpty() && o.attachPid == 0 && o.attachMpiPid == 0) {
        error = QStringLiteral("No program given (after --).");
        return false;
    }
    return true;
}

} // namespace arraylens::cli
