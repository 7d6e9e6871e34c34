// arraylens-cli trace against the real gdb on the blowup example, whose
// explicit time step is too large: the lines' statistics are the program's
// own for each stop, --until stops at the stop where the first NaN appears
// with FirstMatch at that element, and --stops, the program's end and an
// unreadable array behave as the tool says. Each program run is made once
// and shared by the checks about it.
#include "clirun.h"

#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace clitest;

namespace {

const QString kPlate = QStringLiteral("*(double(*)[40][60])u");

QString program() {
    return QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_blowup");
}

// One program run per test: ctest runs each test in a process of its own,
// so a run shared through the suite would be made once per test.
class Trace : public ::testing::Test {
protected:
    CliResult trace(const QStringList& options, const QString& reference,
                    const QStringList& programArgs) {
        QStringList args{"trace", "--expr", kPlate};
        args << options << "--break" << examples::breakLocation("blowup.blowup") << "--"
             << program() << path(reference) << programArgs;
        return cli(args);
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    QTemporaryDir dir;
};

TEST_F(Trace, UntilStopsAtTheFirstNanWithItsElement) {
    // The first NaN, every fifth step traced.
    const CliResult run = trace({"--filter", "$value == $nan", "--until", "NanCount > 0"},
                                "nan.txt", {"700", "40", "60", "5"});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const auto ref = referenceStops(path("nan.txt"));
    const QList<QJsonObject> lines = run.lines();
    ASSERT_FALSE(lines.isEmpty());
    // The program says at which step the first NaN appeared, and where.
    int nanStep = 0;
    QString nanElement;
    for (const auto& stop : ref)
        if (stop.contains("nan_step")) {
            nanStep = stop.value("nan_step").toInt();
            nanElement = stop.value("nan_step.first");
        }
    ASSERT_GT(nanStep, 0);
    const int every = ref[0].value("report_every").toInt();
    ASSERT_EQ(every, 5);
    const QJsonObject last = lines.last();
    const int stop = last.value("Stop").toInt();
    EXPECT_EQ(stop, (nanStep + every - 1) / every);
    EXPECT_EQ(lines.size(), stop);
    EXPECT_TRUE(last.value("Until").toBool());
    ASSERT_LT(stop, ref.size());
    EXPECT_EQ(ref[stop].value("step").toInt(), stop * every);
    // At that stop the first NaN in row-major order is where the program
    // found it; here the stop is the step itself, so it is the first NaN
    // there has ever been.
    EXPECT_EQ(last.value("FirstMatch").toString(), ref[stop].value("u.first_nan"));
    EXPECT_EQ(stop * every, nanStep);
    EXPECT_EQ(last.value("FirstMatch").toString(), nanElement);
    EXPECT_EQ(last.value("NanCount").toInt(), ref[stop].value("u.nans").toInt());
    // Only NaN pass the filter: the value statistics have no value there.
    EXPECT_TRUE(last.value("Max").isNull());
    EXPECT_TRUE(last.value("Mean").isNull());
    EXPECT_EQ(last.value("Count").toInt(), ref[stop].value("u.nans").toInt());
    EXPECT_EQ(last.value("Function").toString(), QStringLiteral("main"));
    EXPECT_TRUE(last.value("File").toString().endsWith("blowup.c"));
    // Every stop before had no NaN, and says so with empty match fields.
    for (int i = 0; i + 1 < lines.size(); ++i) {
        EXPECT_EQ(lines[i].value("Stop").toInt(), i + 1);
        EXPECT_EQ(lines[i].value("NanCount").toInt(), 0);
        EXPECT_EQ(lines[i].value("FirstMatch").toString(), QString());
        EXPECT_FALSE(lines[i].contains("Until"));
    }
}

TEST_F(Trace, EachLineHoldsTheProgramsOwnStatistics) {
    // Every statistic at 36 stops, two past the first NaN.
    const CliResult run = trace({"--stops", "36"}, "stats.txt", {});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const auto ref = referenceStops(path("stats.txt"));
    const QList<QJsonObject> lines = run.lines();
    ASSERT_EQ(lines.size(), 36);
    ASSERT_GT(ref.size(), 36);
    auto number = [](const QJsonValue& v) -> double {
        if (v.isString())
            return v.toString() == "nan" ? NAN : v.toString() == "-inf" ? -INFINITY : INFINITY;
        return v.toDouble();
    };
    for (int k = 1; k <= 36; ++k) {
        const QJsonObject& line = lines[k - 1];
        const auto& want = ref[k];
        SCOPED_TRACE("stop " + std::to_string(k));
        EXPECT_EQ(line.value("Stop").toInt(), k);
        EXPECT_EQ(line.value("Line").toInt(),
                  examples::breakLocation("blowup.blowup").section(':', -1).toInt());
        EXPECT_EQ(line.value("Count").toInt(), want.value("u.count").toInt());
        EXPECT_EQ(line.value("ZeroCount").toInt(), want.value("u.zeros").toInt());
        EXPECT_EQ(line.value("NanCount").toInt(), want.value("u.nans").toInt());
        EXPECT_EQ(line.value("InfCount").toInt(), want.value("u.infs").toInt());
        EXPECT_EQ(line.value("DenormCount").toInt(), want.value("u.denormals").toInt());
        EXPECT_EQ(number(line.value("Min")), want.value("u.min").toDouble());
        EXPECT_EQ(number(line.value("Max")), want.value("u.max").toDouble());
        EXPECT_DOUBLE_EQ(number(line.value("Median")), want.value("u.median").toDouble());
        EXPECT_DOUBLE_EQ(number(line.value("FirstQuartile")), want.value("u.q1").toDouble());
        EXPECT_DOUBLE_EQ(number(line.value("ThirdQuartile")), want.value("u.q3").toDouble());
        EXPECT_EQ(number(line.value("LowerAdjValue")), want.value("u.lower_adjacent").toDouble());
        EXPECT_EQ(number(line.value("UpperAdjValue")), want.value("u.upper_adjacent").toDouble());
        // The mean of a chequerboard is a small difference of large sums:
        // its error is bounded by the size of the elements, not of the mean.
        const double scale = std::max(std::fabs(want.value("u.min").toDouble()),
                                      std::fabs(want.value("u.max").toDouble()));
        EXPECT_NEAR(number(line.value("Mean")), want.value("u.mean").toDouble(), 1e-12 * scale);
        // Beyond 1e150 the squares of the elements overflow a double, and the
        // engine's standard deviation is then infinite (left to the
        // statistics arithmetic's owners); below, it is the program's.
        if (scale < 1e150) {
            EXPECT_NEAR(number(line.value("StdDev")), want.value("u.stddev").toDouble(),
                        1e-12 * std::fabs(want.value("u.stddev").toDouble()));
        }
        // Without a filter the match fields span the whole plate.
        EXPECT_EQ(line.value("FirstMatch").toString(), QStringLiteral("[0][0]"));
        EXPECT_EQ(line.value("LastMatch").toString(), QStringLiteral("[39][59]"));
    }
    // Until the values overflow, the maximum grows by the factor of the
    // fastest mode per step, as the program works it out.
    const double growth = ref[0].value("growth_per_step").toDouble();
    const int every = ref[0].value("report_every").toInt();
    ASSERT_GT(growth, 2.9);
    for (int k = 28; k <= 32; ++k) {
        const double perStep = std::pow(
            number(lines[k].value("Max")) / number(lines[k - 1].value("Max")), 1.0 / every);
        EXPECT_NEAR(perStep, growth, 0.01 * growth) << "stop " << k + 1;
    }
}

TEST_F(Trace, TheProgramEndsBeforeTheCondition) {
    // 60 steps: 3 stops, and the program ends before the condition holds.
    const CliResult run =
        trace({"--until", "NanCount > 0", "--stat", "NanCount,Max"}, "ends.txt", {"60"});
    EXPECT_EQ(run.exitCode, 1);
    const QList<QJsonObject> lines = run.lines();
    ASSERT_EQ(lines.size(), 4) << run.out.toStdString();
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(lines[k].value("Stop").toInt(), k + 1);
        // Only the statistics asked for, besides the stop and the matches.
        EXPECT_EQ(lines[k].keys(), (QStringList{"File", "FirstMatch", "Function", "LastMatch",
                                                "Line", "Max", "NanCount", "Stop"}));
    }
    EXPECT_EQ(lines[3].value("result").toString(), QStringLiteral("exit"));
    EXPECT_EQ(lines[3].value("msg").toString(), QStringLiteral("The program exited with code 0."));
    EXPECT_TRUE(run.err.contains("exited")) << run.err.toStdString();
}

TEST(TraceAlone, AStopThatCannotBeReadIsALineAndTheTraceGoesOn) {
    QTemporaryDir dir;
    const CliResult r = cli({"trace", "--expr", "nosuchvar", "--stops", "2", "--break",
                             examples::breakLocation("blowup.blowup"), "--", program(),
                             dir.filePath("ref.txt"), "100"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QList<QJsonObject> lines = r.lines();
    ASSERT_EQ(lines.size(), 2);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(lines[k].value("Stop").toInt(), k + 1);
        EXPECT_EQ(lines[k].value("result").toString(), QStringLiteral("error"));
        EXPECT_TRUE(lines[k].value("msg").toString().contains("nosuchvar"));
    }
}

TEST(TraceAlone, BadConditionsAndNamesAreBadUsage) {
    const CliResult cond =
        cli({"trace", "--expr", "u", "--until", "NaNCount > 0", "--", program()});
    EXPECT_EQ(cond.exitCode, 2);
    EXPECT_TRUE(cond.err.contains("Condition error at column 1: unknown name 'NaNCount'"))
        << cond.err.toStdString();
    const CliResult stat = cli({"trace", "--expr", "u", "--stat", "Max,Maximum", "--", program()});
    EXPECT_EQ(stat.exitCode, 2);
    EXPECT_TRUE(stat.err.contains("Unknown statistic 'Maximum'")) << stat.err.toStdString();
    const CliResult column = cli({"trace", "--expr", "u", "--until", "Max > ", "--", program()});
    EXPECT_EQ(column.exitCode, 2);
    EXPECT_TRUE(column.err.contains("Condition error at column 6")) << column.err.toStdString();
}

} // namespace
