// arraylens-cli: its options, its JSON, and whole runs of the tool on an
// example program, checked against the values the program writes itself.
#include "clioptions.h"
#include "jsonwriter.h"
#include "support/examples.h"

#include <QBitArray>
#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>
#include <QVariantMap>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

using namespace arraylens::cli;

namespace {

bool parse(const QStringList& args, Options& o, QString& error) {
    return parseArguments(args, o, error);
}

TEST(CliOptions, ReadsEveryOption) {
    Options o;
    QString error;
    ASSERT_TRUE(parse(
        {"table",     "--expr", "grid",      "--slice", "[0:9:2][:]",   "--filter", "$value > 0",
         "--format",  "4",      "--row-dim", "1",       "--col-dim",    "0",        "--rows",
         "2:5",       "--cols", "0:3",       "--break", "arrays.c:296", "--break",  "main",
         "--timings", "--",     "prog",      "a1",      "--x"},
        o, error))
        << error.toStdString();
    EXPECT_EQ(o.command, Command::Table);
    EXPECT_EQ(o.expression, QStringLiteral("grid"));
    EXPECT_EQ(o.slice, QStringLiteral("[0:9:2][:]"));
    EXPECT_EQ(o.filter, QStringLiteral("$value > 0"));
    EXPECT_EQ(o.format, 4);
    EXPECT_EQ(o.rowDim, 1);
    EXPECT_EQ(o.colDim, 0);
    EXPECT_EQ(o.startRow, 2);
    EXPECT_EQ(o.endRow, 5);
    EXPECT_EQ(o.startCol, 0);
    EXPECT_EQ(o.endCol, 3);
    EXPECT_EQ(o.breaks, (QStringList{"arrays.c:296", "main"}));
    EXPECT_TRUE(o.timings);
    EXPECT_EQ(o.program, QStringLiteral("prog"));
    EXPECT_EQ(o.programArgs, (QStringList{"a1", "--x"}));
}

TEST(CliOptions, DefaultsAndTargets) {
    Options o;
    QString error;
    ASSERT_TRUE(parse({"stats", "--expr", "x", "--attach", "1234"}, o, error));
    EXPECT_EQ(o.attachPid, 1234);
    EXPECT_EQ(o.rowDim, -1);
    EXPECT_EQ(o.endRow, 39);
    EXPECT_EQ(o.endCol, 19);
    EXPECT_EQ(o.format, 8);
    Options c;
    ASSERT_TRUE(parse({"info", "--expr", "x", "--core", "core.1", "--", "prog"}, c, error));
    EXPECT_EQ(c.core, QStringLiteral("core.1"));
}

TEST(CliOptions, BadUsageIsRefused) {
    const QList<QStringList> bad = {
        {},
        {"histogram", "--expr", "x", "--", "p"},
        {"stats", "--", "p"},
        {"stats", "--expr", "x"},
        {"stats", "--expr"},
        {"stats", "--expr", "x", "--format", "nine", "--", "p"},
        {"stats", "--expr", "x", "--rows", "5:2", "--", "p"},
        {"stats", "--expr", "x", "--attach", "1", "--core", "c", "--", "p"},
        {"stats", "--expr", "x", "--remote", "nohostport", "--", "p"},
        {"stats", "--expr", "x", "--bogus", "1", "--", "p"},
        {"stats", "stray", "--expr", "x", "--", "p"},
    };
    for (const QStringList& args : bad) {
        Options o;
        QString error;
        EXPECT_FALSE(parse(args, o, error)) << args.join(' ').toStdString();
        EXPECT_FALSE(error.isEmpty());
    }
}

TEST(CliJson, ValuesKeepTheirExactForm) {
    EXPECT_EQ(valueToJson(QVariant(qlonglong(9007199254740993LL))), QByteArray("9007199254740993"));
    EXPECT_EQ(valueToJson(QVariant(qulonglong(18446744073709551615ULL))),
              QByteArray("18446744073709551615"));
    EXPECT_EQ(valueToJson(QVariant(std::nan(""))), QByteArray("\"nan\""));
    EXPECT_EQ(valueToJson(QVariant(-INFINITY)), QByteArray("\"-inf\""));
    EXPECT_EQ(valueToJson(QVariant(INFINITY)), QByteArray("\"inf\""));
    EXPECT_EQ(valueToJson(QVariant(0.1)), QByteArray("0.1"));
    EXPECT_EQ(valueToJson(QVariant(1e300)), QByteArray("1e+300"));
    EXPECT_EQ(valueToJson(QVariant(true)), QByteArray("true"));
    EXPECT_EQ(valueToJson(QVariant(QStringLiteral("a\"b\\c\nd"))),
              QByteArray("\"a\\\"b\\\\c\\nd\""));
    EXPECT_EQ(valueToJson(QVariant(QStringList{"0:9", "-2:5"})), QByteArray("[\"0:9\",\"-2:5\"]"));
    QBitArray bits(16);
    bits.setBit(0);
    bits.setBit(3);
    EXPECT_EQ(valueToJson(QVariant(bits), "StatValid"), QByteArray("\"1001000000000000\""));
    const double values[] = {1.5, -2.0, std::numeric_limits<double>::quiet_NaN()};
    const QByteArray block(reinterpret_cast<const char*>(values), sizeof values);
    EXPECT_EQ(valueToJson(QVariant(block), "AllEvaluations"), QByteArray("[1.5,-2,\"nan\"]"));
    QVariantMap cell{{"row", 1}, {"col", 2}, {"value", "0x1f"}};
    EXPECT_EQ(valueToJson(QVariant(QVariantList{cell})),
              QByteArray("[{\"col\":2,\"row\":1,\"value\":\"0x1f\"}]"));
}

TEST(CliJson, BagInSettingOrder) {
    QObject bag;
    bag.setProperty("id", QStringLiteral("x"));
    bag.setProperty("Count", 3);
    bag.setProperty("result", QStringLiteral("done"));
    EXPECT_EQ(bagToJson(&bag), QByteArray("{\"id\":\"x\",\"Count\":3,\"result\":\"done\"}"));
}

// ---------------------------------------------------------------- whole runs

struct CliRun {
    int exitCode = -1;
    QJsonObject json;
    QByteArray out, err;
};

class CliRuns : public ::testing::Test {
protected:
    static QString breakAt(const QString& key) { return examples::breakLocation(key); }

    CliRun cli(const QStringList& args) {
        QProcess p;
        p.start(QStringLiteral(ARRAYLENS_CLI), args);
        CliRun r;
        if (!p.waitForFinished(60000)) {
            p.kill();
            p.waitForFinished();
            return r;
        }
        r.exitCode = p.exitCode();
        r.out = p.readAllStandardOutput();
        r.err = p.readAllStandardError();
        r.json = QJsonDocument::fromJson(r.out).object();
        return r;
    }

    // The heat example at its first stop, with its reference file.
    CliRun heat(const QString& command, const QStringList& more) {
        QStringList args{command};
        args << more << "--break" << breakAt("heat.heat") << "--"
             << QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_heat") << ref();
        return cli(args);
    }

    QString ref() const { return dir.filePath("reference.txt"); }

    QMap<QString, QString> reference() const {
        QMap<QString, QString> out;
        QFile f(ref());
        if (f.open(QIODevice::ReadOnly)) {
            QTextStream in(&f);
            while (!in.atEnd()) {
                const QString line = in.readLine();
                const int eq = line.indexOf('=');
                if (eq > 0 && !line.startsWith('#'))
                    out.insert(line.left(eq), line.mid(eq + 1));
            }
        }
        return out;
    }

    QTemporaryDir dir;
};

TEST_F(CliRuns, StatisticsOfThePlate) {
    const CliRun r = heat("stats", {"--expr", "plate", "--timings"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const auto v = reference();
    EXPECT_EQ(r.json.value("result").toString(), QStringLiteral("done"));
    EXPECT_EQ(r.json.value("Count").toInt(), v.value("plate.count").toInt());
    EXPECT_DOUBLE_EQ(r.json.value("Sum").toDouble(), v.value("plate.sum").toDouble());
    EXPECT_DOUBLE_EQ(r.json.value("Median").toDouble(), v.value("plate.median").toDouble());
    EXPECT_DOUBLE_EQ(r.json.value("Max").toDouble(), v.value("plate.max").toDouble());
    EXPECT_EQ(r.json.value("StatValid").toString(), QStringLiteral("1111111111111111"));
    EXPECT_TRUE(r.err.contains("timing: request"));
    EXPECT_TRUE(r.err.contains("timing: total"));
}

TEST_F(CliRuns, InfoTableAndPlot) {
    CliRun info = heat("info", {"--expr", "plate"});
    ASSERT_EQ(info.exitCode, 0) << info.err.toStdString();
    EXPECT_EQ(info.json.value("ArrayBounds").toArray().size(), 2);
    EXPECT_EQ(info.json.value("EmptySlice").toString(), QStringLiteral("[0:47][0:63]"));

    CliRun table = heat("table", {"--expr", "plate", "--rows", "0:1", "--cols", "0:2"});
    ASSERT_EQ(table.exitCode, 0) << table.err.toStdString();
    const QJsonArray cells = table.json.value("TableDataList").toArray();
    EXPECT_EQ(cells.size(), 6);
    ASSERT_FALSE(cells.isEmpty());
    EXPECT_TRUE(cells[0].toObject().contains("value"));

    CliRun plot = heat("plot", {"--expr", "centre_row"});
    ASSERT_EQ(plot.exitCode, 0) << plot.err.toStdString();
    EXPECT_EQ(plot.json.value("AllEvaluations").toArray().size(), 64);
    EXPECT_EQ(plot.json.value("Rank").toInt(), 1);
}

TEST_F(CliRuns, CoreFile) {
    // A core of the heat example at its first stop, made by gdb itself.
    const QString core = dir.filePath("heat.core");
    QProcess gdb;
    gdb.start("gdb", {"-q", "-nx", "-batch", "-ex", "break " + breakAt("heat.heat"), "-ex", "run",
                      "-ex", "gcore " + core, "-ex", "kill", "--args",
                      QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_heat"), ref()});
    ASSERT_TRUE(gdb.waitForFinished(60000));
    ASSERT_TRUE(QFile::exists(core)) << gdb.readAllStandardError().toStdString();
    const auto v = reference();
    const CliRun r = cli({"stats", "--expr", "plate", "--core", core, "--",
                          QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_heat")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.json.value("Count").toInt(), v.value("plate.count").toInt());
    EXPECT_DOUBLE_EQ(r.json.value("Sum").toDouble(), v.value("plate.sum").toDouble());
    EXPECT_DOUBLE_EQ(r.json.value("ThirdQuartile").toDouble(), v.value("plate.q3").toDouble());
}

TEST_F(CliRuns, RemoteTarget) {
    if (QStandardPaths::findExecutable("gdbserver").isEmpty())
        GTEST_SKIP() << "gdbserver is not installed";
    const QString port = QString::number(20000 + QCoreApplication::applicationPid() % 20000);
    QProcess server;
    server.setProcessChannelMode(QProcess::MergedChannels);
    server.start("gdbserver", {"--once", "localhost:" + port,
                               QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_heat"), ref()});
    ASSERT_TRUE(server.waitForStarted(10000));
    // It listens once it says so.
    QByteArray said;
    for (int i = 0; i < 100 && !said.contains("Listening"); ++i) {
        server.waitForReadyRead(100);
        said += server.readAll();
    }
    ASSERT_TRUE(said.contains("Listening")) << said.toStdString();
    const CliRun r =
        cli({"stats", "--expr", "plate", "--remote", "localhost:" + port, "--break",
             breakAt("heat.heat"), "--", QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_heat")});
    server.kill();
    server.waitForFinished(5000);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const auto v = reference();
    EXPECT_EQ(r.json.value("Count").toInt(), v.value("plate.count").toInt());
    EXPECT_DOUBLE_EQ(r.json.value("Sum").toDouble(), v.value("plate.sum").toDouble());
    EXPECT_DOUBLE_EQ(r.json.value("Median").toDouble(), v.value("plate.median").toDouble());
}

TEST_F(CliRuns, ProgramThatExitsBeforeItsBreakpoint) {
    // A line only reached when malloc fails: the program runs to its end.
    const QString source = breakAt("bigarray.big").section(':', 0, 0);
    QFile f(source);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(f.readAll()).split('\n');
    int line = 0;
    for (int i = 0; i < lines.size() && !line; ++i)
        if (lines[i].contains("perror(\"malloc\")"))
            line = i + 1;
    ASSERT_GT(line, 0);
    const CliRun r = cli({"stats", "--expr", "*data@10", "--break",
                          QStringLiteral("%1:%2").arg(source).arg(line), "--",
                          QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_bigarray"), "10"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.json.value("result").toString(), QStringLiteral("exit")) << r.out.toStdString();
    EXPECT_TRUE(r.err.contains("exited")) << r.err.toStdString();
}

TEST_F(CliRuns, AttachToARunningProgram) {
    QProcess program;
    program.start(QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_bigarray"), {"5000", "wait"});
    ASSERT_TRUE(program.waitForStarted(10000));
    QByteArray said;
    for (int i = 0; i < 100 && !said.contains("waiting"); ++i) {
        program.waitForReadyRead(100);
        said += program.readAllStandardError();
    }
    ASSERT_TRUE(said.contains("waiting")) << said.toStdString();
    const CliRun r =
        cli({"stats", "--expr", "*data@5000", "--attach", QString::number(program.processId())});
    // Detached again: the program goes on sleeping.
    EXPECT_FALSE(program.waitForFinished(300));
    program.kill();
    program.waitForFinished(5000);
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    // The program puts a zero at every 4096th element and nowhere else.
    EXPECT_EQ(r.json.value("Count").toInt(), 5000);
    EXPECT_EQ(r.json.value("ZeroCount").toInt(), 2);
    EXPECT_EQ(r.json.value("EmptySlice").toString(), QStringLiteral("[0:4999]"));
}

TEST_F(CliRuns, ExitCodes) {
    CliRun unknown = heat("stats", {"--expr", "nosuchvar"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.json.value("result").toString(), QStringLiteral("error"));
    EXPECT_TRUE(unknown.err.contains("nosuchvar")) << unknown.err.toStdString();
    CliRun usage = cli({"stats", "--", "whatever"});
    EXPECT_EQ(usage.exitCode, 2);
    EXPECT_TRUE(usage.err.contains("usage:"));
    // A breakpoint that cannot be set is an error with its reason.
    CliRun noBreak = heat("stats", {"--expr", "plate", "--break", "nosuchfunction_xyz"});
    EXPECT_EQ(noBreak.exitCode, 1);
    EXPECT_TRUE(noBreak.err.contains("breakpoint")) << noBreak.err.toStdString();
}

} // namespace

// ------------------------------------------------- stops where the user asks

namespace {

QProcessEnvironment withoutDisplay() {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(QString::fromLatin1(name));
    return env;
}

} // namespace

TEST(CliHelp, UsageOnStandardOutputWithoutADisplay) {
    for (const QStringList& args : {QStringList{"--help"}, QStringList{"-h"},
                                    QStringList{"stats", "--expr", "x", "--help"}}) {
        QProcess p;
        p.setProcessEnvironment(withoutDisplay());
        p.start(QStringLiteral(ARRAYLENS_CLI), args);
        ASSERT_TRUE(p.waitForFinished(30000));
        EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(p.exitCode(), 0) << args.join(' ').toStdString();
        const QByteArray out = p.readAllStandardOutput();
        EXPECT_TRUE(out.startsWith("usage: arraylens-cli")) << out.toStdString();
        EXPECT_TRUE(out.contains("--ignore N")) << out.toStdString();
        EXPECT_TRUE(out.contains("[if CONDITION]")) << out.toStdString();
        EXPECT_TRUE(p.readAllStandardError().isEmpty());
    }
}

TEST(CliOptions, IgnoreCount) {
    Options o;
    QString error;
    ASSERT_TRUE(parse(
        {"stats", "--expr", "x", "--break", "f if n == 3", "--ignore", "9", "--", "p"}, o, error));
    EXPECT_EQ(o.ignore, 9);
    EXPECT_EQ(o.breaks, QStringList{"f if n == 3"});
    Options bad;
    EXPECT_FALSE(parse({"stats", "--expr", "x", "--ignore", "-1", "--", "p"}, bad, error));
    EXPECT_FALSE(parse({"stats", "--expr", "x", "--ignore", "many", "--", "p"}, bad, error));
}

TEST_F(CliRuns, ConditionAndIgnoreCountStopAtTheRightHit) {
    // The heat example passes its breakpoint at steps 20, 40, 60, ...
    const QString heatProgram = QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_heat");
    const QString at = breakAt("heat.heat");
    const CliRun conditional = cli(
        {"stats", "--expr", "plate", "--break", at + " if step == 60", "--", heatProgram, ref()});
    ASSERT_EQ(conditional.exitCode, 0) << conditional.err.toStdString();
    auto v = reference();
    EXPECT_EQ(v.value("step"), QStringLiteral("60"));
    EXPECT_DOUBLE_EQ(conditional.json.value("Sum").toDouble(), v.value("plate.sum").toDouble());
    EXPECT_DOUBLE_EQ(conditional.json.value("Median").toDouble(),
                     v.value("plate.median").toDouble());

    const CliRun skipped =
        cli({"stats", "--expr", "plate", "--break", at, "--ignore", "3", "--", heatProgram, ref()});
    ASSERT_EQ(skipped.exitCode, 0) << skipped.err.toStdString();
    v = reference();
    EXPECT_EQ(v.value("step"), QStringLiteral("80"));
    EXPECT_DOUBLE_EQ(skipped.json.value("Sum").toDouble(), v.value("plate.sum").toDouble());
    EXPECT_DOUBLE_EQ(skipped.json.value("Max").toDouble(), v.value("plate.max").toDouble());

    // An empty condition is refused before gdb starts.
    const CliRun empty =
        cli({"stats", "--expr", "plate", "--break", at + " if ", "--", heatProgram, ref()});
    EXPECT_EQ(empty.exitCode, 2);
    EXPECT_TRUE(empty.err.contains("The condition after 'if' in the breakpoint"))
        << empty.err.toStdString();
}

TEST_F(CliRuns, AMissingProgramIsSaidToBeMissing) {
    const CliRun r = cli({"stats", "--expr", "x", "--", "/no/such/dir/program"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    EXPECT_TRUE(r.err.contains("The program /no/such/dir/program was not found (No such file or "
                               "directory)."))
        << r.err.toStdString();
    EXPECT_FALSE(r.err.contains("symbol")) << r.err.toStdString();
}

TEST_F(CliRuns, AStopAtASignalIsNamedWithItsFunction) {
    // Checkpoints every 10 sweeps raise SIGUSR1 long before the breakpoint.
    const CliRun r =
        cli({"stats", "--expr", "displacement", "--break", breakAt("membrane.membrane"), "--",
             QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_membrane"), ref(), "10"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    EXPECT_TRUE(r.err.contains("The program stopped at SIGUSR1 (User defined signal 1) in "))
        << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("main (membrane.c:")) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("before reaching a breakpoint.")) << r.err.toStdString();
    EXPECT_FALSE(r.err.contains("No symbol")) << r.err.toStdString();
}
