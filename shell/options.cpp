#include "shell/options.h"

#include "mpijob.h"
#include "mpistart.h"
#include "runcontrol.h"

#include <climits>

namespace shell {

QString usageText() {
    return QStringLiteral(
        "Usage: arraylens [options] [--] [program [args...]]\n"
        "\n"
        "A debugger window with the Array Lens view. Without a program it opens\n"
        "the bundled example stopped at its breakpoint.\n"
        "\n"
        "  --break LOCATION    stop at LOCATION (file:line or function); repeatable\n"
        "  --break 'LOCATION if CONDITION'\n"
        "                      stop there only where CONDITION (in the program's\n"
        "                      language) holds\n"
        "  --ignore N          pass the first N hits of each breakpoint given\n"
        "  --eval EXPR         show EXPR in Array Lens once the program stops; repeatable\n"
        "  --attach PID        attach to a running process\n"
        "  --core FILE         open a core file (of the program given)\n"
        "  --remote HOST:PORT  connect to a gdbserver\n"
        "  --mpi N             run the program under mpirun -np N, every rank under\n"
        "                      gdb (needs --break); a list of the ranks chooses the\n"
        "                      ranks Array Lens shows, the run controls act on all\n"
        "  --attach-mpi PID    attach to the ranks of a running job by the pid of its\n"
        "                      mpirun; closing the window leaves the job running\n"
        "  --mpirun PATH       the mpirun of --mpi (default: mpirun)\n"
        "  --ranks LIST        the ranks chosen at the start, e.g. 0-3,7 (default all)\n"
        "  --stop-timeout S    how many seconds the ranks may take to stop together\n"
        "                      (default 600)\n"
        "  --gdb PATH          the gdb to run (default: gdb)\n"
        "  --plugin PATH       the Array Lens plug-in to load\n"
        "  --theme light|dark  the window's theme\n"
        "  --screenshot FILE   save the window as a PNG once the first display has\n"
        "                      answered, then quit\n"
        "  -h, --help          this text\n");
}

bool parseOptions(const QStringList& arguments, Options& options, QString* error) {
    auto fail = [error](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    int i = 0;
    const int n = arguments.size();
    auto value = [&](const QString& name, QString& out) {
        if (i + 1 >= n)
            return fail(QStringLiteral("%1 needs a value.").arg(name));
        out = arguments.at(++i);
        return true;
    };
    for (; i < n; ++i) {
        const QString a = arguments.at(i);
        QString v;
        if (a == QLatin1String("--")) {
            ++i;
            break;
        } else if (a == QLatin1String("-h") || a == QLatin1String("--help")) {
            options.help = true;
        } else if (a == QLatin1String("--break")) {
            if (!value(a, v))
                return false;
            arraylens::gdb::BreakSpec spec;
            if (!arraylens::gdb::parseBreakSpec(v, spec, error))
                return false;
            options.breaks << v;
        } else if (a == QLatin1String("--ignore")) {
            if (!value(a, v))
                return false;
            bool ok = false;
            options.ignore = v.toInt(&ok);
            if (!ok || options.ignore < 0)
                return fail(QStringLiteral("--ignore needs a count of hits, not '%1'.").arg(v));
        } else if (a == QLatin1String("--eval")) {
            if (!value(a, v))
                return false;
            options.evals << v;
        } else if (a == QLatin1String("--attach")) {
            if (!value(a, v))
                return false;
            bool ok = false;
            options.attachPid = v.toLongLong(&ok);
            if (!ok || options.attachPid <= 0)
                return fail(QStringLiteral("--attach needs a process id, not '%1'.").arg(v));
        } else if (a == QLatin1String("--mpi")) {
            if (!value(a, v))
                return false;
            bool ok = false;
            options.mpiRanks = v.toInt(&ok);
            if (!ok || options.mpiRanks < 1)
                return fail(QStringLiteral("--mpi needs a number of ranks, not '%1'.").arg(v));
        } else if (a == QLatin1String("--attach-mpi")) {
            if (!value(a, v))
                return false;
            bool ok = false;
            options.attachMpiPid = v.toLongLong(&ok);
            if (!ok || options.attachMpiPid <= 0)
                return fail(QStringLiteral("--attach-mpi needs the process id of mpirun, not '%1'.")
                                .arg(v));
        } else if (a == QLatin1String("--mpirun")) {
            if (!value(a, options.mpirun))
                return false;
            if (options.mpirun.isEmpty())
                return fail(QStringLiteral("--mpirun needs a path."));
        } else if (a == QLatin1String("--ranks")) {
            if (!value(a, options.ranks))
                return false;
            QVector<int> ranks;
            QString why;
            if (!arraylens::gdb::parseRankList(options.ranks, INT_MAX, ranks, why))
                return fail(why);
        } else if (a == QLatin1String("--stop-timeout")) {
            if (!value(a, v))
                return false;
            bool ok = false;
            const double seconds = v.toDouble(&ok);
            if (!ok || seconds <= 0 || seconds > 86400)
                return fail(
                    QStringLiteral("--stop-timeout needs seconds (up to 86400), not '%1'.").arg(v));
            options.stopTimeoutMs = int(seconds * 1000);
        } else if (a == QLatin1String("--core")) {
            if (!value(a, options.coreFile))
                return false;
        } else if (a == QLatin1String("--remote")) {
            if (!value(a, options.remote))
                return false;
            if (!options.remote.contains(QLatin1Char(':')))
                return fail(
                    QStringLiteral("--remote needs HOST:PORT, not '%1'.").arg(options.remote));
        } else if (a == QLatin1String("--gdb")) {
            if (!value(a, options.gdbPath))
                return false;
        } else if (a == QLatin1String("--plugin")) {
            if (!value(a, options.pluginPath))
                return false;
        } else if (a == QLatin1String("--theme")) {
            if (!value(a, options.theme))
                return false;
            if (options.theme != QLatin1String("light") && options.theme != QLatin1String("dark"))
                return fail(
                    QStringLiteral("--theme is light or dark, not '%1'.").arg(options.theme));
        } else if (a == QLatin1String("--screenshot")) {
            if (!value(a, options.screenshot))
                return false;
        } else if (a.startsWith(QLatin1Char('-')) && a.size() > 1) {
            return fail(QStringLiteral("Unknown option %1.").arg(a));
        } else {
            break;
        }
    }
    if (i < n) {
        options.program = arguments.at(i);
        options.programArgs = arguments.mid(i + 1);
    }
    const int targets = (options.attachPid > 0) + !options.coreFile.isEmpty() +
                        !options.remote.isEmpty() + (options.mpiRanks > 0) +
                        (options.attachMpiPid > 0);
    if (targets > 1)
        return fail(
            QStringLiteral("Give only one of --attach, --core, --remote, --mpi and --attach-mpi."));
    if (options.mpiRanks > 0 && options.program.isEmpty())
        return fail(QStringLiteral("--mpi needs the program to run (after --)."));
    if (options.mpiRanks > 0 && options.breaks.isEmpty())
        return fail(arraylens::gdb::launchNeedsBreakText());
    if (!options.isMpi() && !options.ranks.isEmpty())
        return fail(QStringLiteral("--ranks needs --mpi or --attach-mpi."));
    if (!options.coreFile.isEmpty() && options.program.isEmpty())
        return fail(QStringLiteral("--core needs the program that dumped it."));
    options.bundledExample = !options.hasTarget();
    return true;
}

} // namespace shell
