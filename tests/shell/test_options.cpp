// The application's command line.
#include "shell/options.h"

#include <QProcess>

#include <gtest/gtest.h>

namespace {

shell::Options parse(const QStringList& args, bool expectOk = true, QString* error = nullptr) {
    shell::Options o;
    QString why;
    EXPECT_EQ(shell::parseOptions(args, o, &why), expectOk) << qPrintable(why);
    if (error)
        *error = why;
    return o;
}

TEST(Options, NothingNamedMeansTheBundledExample) {
    const shell::Options o = parse({});
    EXPECT_TRUE(o.bundledExample);
    EXPECT_TRUE(o.program.isEmpty());
    EXPECT_EQ(o.gdbPath, "gdb");
}

TEST(Options, ProgramAndItsArgumentsAfterTheDashes) {
    const shell::Options o = parse({"--break", "heat.c:124", "--break", "main", "--eval", "plate",
                                    "--", "/bin/prog", "--eval", "x"});
    EXPECT_FALSE(o.bundledExample);
    EXPECT_EQ(o.breaks, (QStringList{"heat.c:124", "main"}));
    EXPECT_EQ(o.evals, QStringList{"plate"});
    EXPECT_EQ(o.program, "/bin/prog");
    EXPECT_EQ(o.programArgs, (QStringList{"--eval", "x"}));
}

TEST(Options, ProgramWithoutDashes) {
    const shell::Options o = parse({"--gdb", "/usr/bin/gdb", "prog", "a", "b"});
    EXPECT_EQ(o.gdbPath, "/usr/bin/gdb");
    EXPECT_EQ(o.program, "prog");
    EXPECT_EQ(o.programArgs, (QStringList{"a", "b"}));
}

TEST(Options, Targets) {
    EXPECT_EQ(parse({"--attach", "1234"}).attachPid, 1234);
    EXPECT_FALSE(parse({"--attach", "1234"}).bundledExample);
    EXPECT_EQ(parse({"--remote", "host:2345", "prog"}).remote, "host:2345");
    const shell::Options core = parse({"--core", "core.1", "prog"});
    EXPECT_EQ(core.coreFile, "core.1");
    EXPECT_EQ(core.program, "prog");
    EXPECT_EQ(parse({"--screenshot", "/tmp/a.png"}).screenshot, "/tmp/a.png");
    EXPECT_TRUE(parse({"--screenshot", "/tmp/a.png"}).bundledExample);
}

TEST(Options, AnMpiJobLaunchedOrAttached) {
    const shell::Options o =
        parse({"--mpi", "4", "--mpirun", "/usr/bin/mpirun", "--ranks", "1-2", "--stop-timeout",
               "2.5", "--break", "heat.c:10", "--", "/bin/prog", "a"});
    EXPECT_TRUE(o.isMpi());
    EXPECT_EQ(o.mpiRanks, 4);
    EXPECT_EQ(o.mpirun, "/usr/bin/mpirun");
    EXPECT_EQ(o.ranks, "1-2");
    EXPECT_EQ(o.stopTimeoutMs, 2500);
    EXPECT_EQ(o.program, "/bin/prog");
    EXPECT_EQ(o.programArgs, QStringList{"a"});
    EXPECT_FALSE(o.bundledExample);
    const shell::Options attached = parse({"--attach-mpi", "1234"});
    EXPECT_TRUE(attached.isMpi());
    EXPECT_EQ(attached.attachMpiPid, 1234);
    EXPECT_FALSE(attached.bundledExample);
    EXPECT_EQ(attached.stopTimeoutMs, 600000);
    EXPECT_FALSE(parse({"--break", "main", "--", "prog"}).isMpi());
}

TEST(Options, BadMpiUsageIsRefusedWithAReason) {
    QString why;
    parse({"--mpi", "4", "--", "prog"}, false, &why);
    EXPECT_EQ(why, "--mpi needs --break LOCATION: the debugger reaches the ranks inside "
                   "MPI_Init, past the start of main.");
    parse({"--mpi", "4", "--break", "main"}, false, &why);
    EXPECT_EQ(why, "--mpi needs the program to run (after --).");
    parse({"--mpi", "0", "--break", "main", "--", "prog"}, false, &why);
    EXPECT_EQ(why, "--mpi needs a number of ranks, not '0'.");
    parse({"--attach-mpi", "x"}, false, &why);
    EXPECT_EQ(why, "--attach-mpi needs the process id of mpirun, not 'x'.");
    parse({"--attach", "5", "--attach-mpi", "6"}, false, &why);
    EXPECT_EQ(why, "Give only one of --attach, --core, --remote, --mpi and --attach-mpi.");
    parse({"--ranks", "0-1", "--", "prog"}, false, &why);
    EXPECT_EQ(why, "--ranks needs --mpi or --attach-mpi.");
    parse({"--attach-mpi", "6", "--ranks", "3-1"}, false, &why);
    EXPECT_EQ(why, "Bad rank list '3-1': write rank numbers and ranges such as 0-3,7.");
    parse({"--attach-mpi", "6", "--stop-timeout", "-1"}, false, &why);
    EXPECT_EQ(why, "--stop-timeout needs seconds (up to 86400), not '-1'.");
}

TEST(Options, BadUsageIsRefusedWithAReason) {
    QString why;
    parse({"--attach", "abc"}, false, &why);
    EXPECT_EQ(why, "--attach needs a process id, not 'abc'.");
    parse({"--break"}, false, &why);
    EXPECT_EQ(why, "--break needs a value.");
    parse({"--frobnicate"}, false, &why);
    EXPECT_EQ(why, "Unknown option --frobnicate.");
    parse({"--attach", "1", "--remote", "h:1"}, false, &why);
    EXPECT_EQ(why, "Give only one of --attach, --core, --remote, --mpi and --attach-mpi.");
    parse({"--core", "core.1"}, false, &why);
    EXPECT_EQ(why, "--core needs the program that dumped it.");
    parse({"--remote", "nohost"}, false, &why);
    EXPECT_EQ(why, "--remote needs HOST:PORT, not 'nohost'.");
    parse({"--theme", "blue"}, false, &why);
    EXPECT_EQ(why, "--theme is light or dark, not 'blue'.");
}

TEST(Options, HelpIsNoError) {
    EXPECT_TRUE(parse({"--help"}).help);
    EXPECT_TRUE(shell::usageText().contains("--screenshot FILE"));
}

TEST(Options, ConditionsAndAnIgnoreCount) {
    const shell::Options o =
        parse({"--break", "heat.c:124 if step == 60", "--ignore", "2", "--", "prog"});
    EXPECT_EQ(o.breaks, QStringList{"heat.c:124 if step == 60"});
    EXPECT_EQ(o.ignore, 2);
    EXPECT_EQ(parse({"prog"}).ignore, 0);
    QString why;
    parse({"--break", "heat.c:124 if ", "prog"}, false, &why);
    EXPECT_EQ(why, "The condition after 'if' in the breakpoint 'heat.c:124 if' is empty.");
    parse({"--ignore", "-3", "prog"}, false, &why);
    EXPECT_EQ(why, "--ignore needs a count of hits, not '-3'.");
    EXPECT_TRUE(shell::usageText().contains("--ignore N"));
    EXPECT_TRUE(shell::usageText().contains("--break 'LOCATION if CONDITION'"));
}

// The application prints its usage and ends well, with no display to open
// a window on.
TEST(Options, HelpOfTheApplicationWithoutADisplay) {
    for (const char* flag : {"--help", "-h"}) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(QString::fromLatin1(name));
        QProcess app;
        app.setProcessEnvironment(env);
        app.start(QStringLiteral(ARRAYLENS_APP), {QString::fromLatin1(flag)});
        ASSERT_TRUE(app.waitForFinished(30000));
        EXPECT_EQ(app.exitStatus(), QProcess::NormalExit) << flag;
        EXPECT_EQ(app.exitCode(), 0) << flag << ": " << app.readAllStandardError().constData();
        EXPECT_EQ(QString::fromLocal8Bit(app.readAllStandardOutput()), shell::usageText());
    }
}

} // namespace
