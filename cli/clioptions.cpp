#include "clioptions.h"

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
        "usage: arraylens-cli {info|stats|table|plot|trace|export} --expr E [--slice S]\n"
        "         [--filter F] [--format N] [--row-dim N --col-dim N] [--rows a:b --cols c:d]\n"
        "         [--until CONDITION] [--stops N] [--stat NAMES] (trace)\n"
        "         [--out FILE.npy|FILE.csv] (export)\n"
        "         [--break LOCATION]... [--attach PID | --core FILE | --remote HOST:PORT]\n"
        "         [--gdb PATH] [--timings] [-- program args]\n");
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
        error = QStringLiteral("--attach, --core and --remote exclude each other.");
        return false;
    }
    if (o.program.isEmpty() && o.attachPid == 0) {
        error = QStringLiteral("No program given (after --).");
        return false;
    }
    return true;
}

} // namespace arraylens::cli
