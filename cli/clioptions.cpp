#include "clioptions.h"

#include "mpijob.h"
#include <QRegularExpression>

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

// A whole number of 64 bits; `why` says what is wrong with any other text.
bool parseInteger(const QString& text, qint64& out, QString& why) {
    bool ok = false;
    const qint64 v = text.trimmed().toLongLong(&ok);
    if (ok) {
        out = v;
        return true;
    }
    static const QRegularExpression digits(QStringLiteral("^\\s*[-+]?[0-9]+\\s*$"));
    why = digits.match(text).hasMatch()
              ? QStringLiteral("%1 is beyond the 64-bit range").arg(text.trimmed())
              : QStringLiteral("'%1' is not a whole number").arg(text);
    return false;
}

// "a:b" with both ends, 0 <= a <= b.
bool parseRange(const QString& text, qint64& from, qint64& to, QString& why) {
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() != 2) {
        why = QStringLiteral("write it as a:b, for example 0:39");
        return false;
    }
    if (!parseInteger(parts[0], from, why) || !parseInteger(parts[1], to, why))
        return false;
    if (from < 0) {
        why = QStringLiteral("rows and columns count from 0");
        return false;
    }
    if (to < from) {
        why = QStringLiteral("the end %1 is before the start %2").arg(to).arg(from);
        return false;
    }
    return true;
}

} // namespace

QString usage() {
    return QStringLiteral(
        "usage: arraylens-cli {info|stats|table|plot|trace|export} --expr E [--slice S]\n"
        "         [--filter F] [--format N] [--row-dim N --col-dim N] [--rows a:b --cols c:d]\n"
        "         [--until CONDITION] [--stops N] [--stat NAMES] (trace)\n"
        "         [--out FILE.npy|FILE.csv] (export)\n"
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
    else if (command == QLatin1String("trace"))
        o.command = Command::Trace;
    else if (command == QLatin1String("export"))
        o.command = Command::Export;
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
        QString why;
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
            ok = parseInteger(v, o.rowDim, why);
        } else if (a == QLatin1String("--col-dim")) {
            ok = parseInteger(v, o.colDim, why);
        } else if (a == QLatin1String("--rows")) {
            ok = parseRange(v, o.startRow, o.endRow, why);
        } else if (a == QLatin1String("--cols")) {
            ok = parseRange(v, o.startCol, o.endCol, why);
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
        } else if (a == QLatin1String("--until")) {
            o.until = v;
            ok = !v.trimmed().isEmpty();
        } else if (a == QLatin1String("--stops")) {
            ok = parseInt(v, o.stops) && o.stops > 0;
        } else if (a == QLatin1String("--stat")) {
            for (const QString& name : v.split(QLatin1Char(',')))
                if (!name.trimmed().isEmpty())
                    o.stats << name.trimmed();
            ok = !o.stats.isEmpty();
        } else if (a == QLatin1String("--out")) {
            o.out = v;
            ok = !v.isEmpty();
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
            error = why.isEmpty() ? QStringLiteral("Bad value '%1' for %2.").arg(v, a)
                                  : QStringLiteral("Bad value '%1' for %2: %3.").arg(v, a, why);
            return false;
        }
    }
    if (!haveExpr || o.expression.isEmpty()) {
        error = QStringLiteral("--expr is required.");
        return false;
    }
    const bool tracing = o.command == Command::Trace;
    if (!tracing && (!o.until.isEmpty() || o.stops > 0 || !o.stats.isEmpty())) {
        error = QStringLiteral("--until, --stops and --stat go with trace.");
        return false;
    }
    if ((o.command == Command::Export) != !o.out.isEmpty()) {
        error = o.out.isEmpty() ? QStringLiteral("export needs --out FILE.npy or --out FILE.csv.")
                                : QStringLiteral("--out goes with export.");
        return false;
    }
    if (tracing && !o.core.isEmpty()) {
        error = QStringLiteral("A core file does not run: trace does not go with --core.");
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
    if ((o.mpiRanks > 0 || o.attachMpiPid > 0) &&
        (o.command == Command::Trace || o.command == Command::Export)) {
        error = QStringLiteral("trace and export work on one process: they do not take --mpi or "
                               "--attach-mpi.");
        return false;
    }
    if (o.program.isEmpty() && o.attachPid == 0 && o.attachMpiPid == 0) {
        error = QStringLiteral("No program given (after --).");
        return false;
    }
    return true;
}

} // namespace arraylens::cli
