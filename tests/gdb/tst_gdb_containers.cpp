// C++ containers by their own names, through a real gdb, on the containers
// example: every array's information, statistics, table and plot against the
// values the program wrote itself in logical index order, slices and filters
// across storage orders and index bases, and the words of every refusal.
#include "referencecheck.h"

#include <QVariantMap>

#include <algorithm>
#include <functional>
#include <vector>

using namespace gdbtest;

namespace {

// One debuggee run, stopped at containers.main, for all the checks of a test
// suite.
class GdbContainers : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        rig_ = makeRig();
        QString why;
        if (!rig_->startAt(QStringLiteral("example_containers"), QStringLiteral("containers.main"),
                           &why))
            startError_ = why.isEmpty() ? QStringLiteral("cannot start") : why;
    }
    static void TearDownTestSuite() { rig_.reset(); }
    void SetUp() override { ASSERT_TRUE(startError_.isEmpty()) << startError_.toStdString(); }

    static std::unique_ptr<Rig> rig_;
    static QString startError_;
};

std::unique_ptr<Rig> GdbContainers::rig_;
QString GdbContainers::startError_;

ArrayRef arrayNamed(const Rig& rig, const QString& name) {
    const QList<ArrayRef> found = arraysOf(rig.ref, {name});
    return found.isEmpty() ? ArrayRef{} : found.first();
}

// "NAME.values": every element in logical index order, first index slowest.
// A float's 9 digits read back exactly as that float, not as a double.
std::vector<double> valuesOf(const ArrayRef& a) {
    std::vector<double> out;
    const bool single = isSinglePrecision(a.type);
    for (const QString& part :
         a.values.value(QStringLiteral("values")).split(QLatin1Char(','), Qt::SkipEmptyParts))
        out.push_back(single ? double(float(number(part))) : number(part));
    return out;
}

std::vector<qint64> extentsOf(const ArrayRef& a) {
    std::vector<qint64> out;
    for (const QString& b : a.bounds)
        out.push_back(b.section(QLatin1Char(':'), 1, 1).toLongLong() -
                      b.section(QLatin1Char(':'), 0, 0).toLongLong() + 1);
    return out;
}

// The same element value, as the element's own type compares it.
::testing::AssertionResult sameElement(const ArrayRef& a, double expected, double actual) {
    if (isSinglePrecision(a.type) ? float(expected) == float(actual) : expected == actual)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected " << expected << " got " << actual;
}

// Count, Sum, Min, Max and Median of `values` worked out here, naively,
// against the statistics answer.
void expectNaiveStatistics(const QSharedPointer<QObject>& stats, const ArrayRef& a,
                           std::vector<double> values) {
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    ASSERT_FALSE(values.empty());
    EXPECT_EQ(stats->property("Count").toLongLong(), qint64(values.size()));
    long double sum = 0;
    for (double v : values)
        sum += v;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median =
        n % 2 ? values[n / 2] : values[n / 2 - 1] + 0.5 * (values[n / 2] - values[n / 2 - 1]);
    if (isFloatType(a.type)) {
        EXPECT_TRUE(near(double(sum), stats->property("Sum").toDouble(), 1e-14));
        EXPECT_TRUE(sameElement(a, values.front(), stats->property("Min").toDouble()));
        EXPECT_TRUE(sameElement(a, values.back(), stats->property("Max").toDouble()));
    } else {
        EXPECT_EQ(stats->property("Sum").toLongLong(), qint64(sum));
        EXPECT_EQ(stats->property("Min").toLongLong(), qint64(values.front()));
        EXPECT_EQ(stats->property("Max").toLongLong(), qint64(values.back()));
    }
    EXPECT_TRUE(near(median, stats->property("Median").toDouble(), 1e-15));
}

// The plane the table shows by default (the last two dimensions, every other
// one at its lower bound): its first cells against the values.
void expectFirstCells(Rig& rig, IHVExpression* e, const ArrayRef& a,
                      const std::vector<double>& values) {
    const std::vector<qint64> extent = extentsOf(a);
    const size_t rank = extent.size();
    const qint64 rows = rank == 1 ? extent[0] : extent[rank - 2];
    const qint64 cols = rank == 1 ? 1 : extent[rank - 1];
    const int lastRow = int(std::min<qint64>(rows, 4)) - 1;
    const int lastCol = int(std::min<qint64>(cols, 4)) - 1;
    auto table = rig.table(e, QString(), 0, 0, lastRow, 0, lastCol);
    ASSERT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    EXPECT_EQ(table->property("RowCount").toLongLong(), rows);
    EXPECT_EQ(table->property("ColCount").toLongLong(), cols);
    int seen = 0;
    for (const QVariant& entry : table->property("TableDataList").toList()) {
        const QVariantMap m = entry.toMap();
        const int r = m.value(QStringLiteral("row")).toInt();
        const int c = m.value(QStringLiteral("col")).toInt();
        const QString cell = m.value(QStringLiteral("value")).toString();
        ASSERT_LT(size_t(r * cols + c), values.size());
        const double expected = values[size_t(r * cols + c)];
        SCOPED_TRACE(QStringLiteral("cell %1,%2 = %3").arg(r).arg(c).arg(cell).toStdString());
        if (isFloatType(a.type))
            EXPECT_TRUE(sameElement(a, expected, number(cell)));
        else
            EXPECT_EQ(cell, QString::number(qint64(expected)));
        ++seen;
    }
    EXPECT_EQ(seen, (lastRow + 1) * (lastCol + 1));
}

// Everything about one container: the checks every example's arrays get,
// then the C-form empty slice, statistics worked out here from the values,
// every plot value in logical index order and the table's first cells.
void checkContainer(Rig& rig, const QString& name) {
    SCOPED_TRACE(name.toStdString());
    const ArrayRef a = arrayNamed(rig, name);
    ASSERT_EQ(a.name, name) << "no reference for " << name.toStdString();
    const std::vector<double> values = valuesOf(a);
    ASSERT_EQ(qint64(values.size()), a.values.value(QStringLiteral("count")).toLongLong());

    checkArray(rig, a);
    GdbExpression* e = rig.evaluate(a.expr);
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();

    auto info = rig.info(e);
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    QString emptySlice;
    for (const QString& b : a.bounds)
        emptySlice += QLatin1Char('[') + b + QLatin1Char(']');
    EXPECT_EQ(info->property("EmptySlice").toString(), emptySlice);

    expectNaiveStatistics(rig.statistics(e), a, values);

    auto plot = rig.plot(e);
    ASSERT_EQ(resultOf(plot), QStringLiteral("done")) << msgOf(plot).toStdString();
    const QVariantList plotted = doublesOf(plot->property("AllEvaluations").toByteArray());
    ASSERT_EQ(size_t(plotted.size()), values.size());
    for (size_t i = 0; i < values.size(); ++i)
        EXPECT_TRUE(sameElement(a, values[i], plotted[int(i)].toDouble())) << "plot value " << i;

    expectFirstCells(rig, e, a, values);
}

// A selection of a container: the slice (and filter) text, and the logical
// indices it keeps per dimension in slice order (one index for a fixed
// dimension).
struct Selection {
    QString slice;
    std::vector<std::vector<qint64>> indices;
    QString filter;
    std::function<bool(double)> passes;
};

std::vector<qint64> run(qint64 from, qint64 to, qint64 step) {
    std::vector<qint64> out;
    for (qint64 i = from; step > 0 ? i <= to : i >= to; i += step)
        out.push_back(i);
    return out;
}

// Statistics and plot values of a selection against the values it picks out
// of the reference, in the order the selection lists them.
void expectSelection(Rig& rig, const QString& name, const Selection& s) {
    SCOPED_TRACE((name + QLatin1Char(' ') + s.slice + QLatin1Char(' ') + s.filter).toStdString());
    const ArrayRef a = arrayNamed(rig, name);
    ASSERT_EQ(a.name, name);
    const std::vector<double> values = valuesOf(a);
    const std::vector<qint64> extent = extentsOf(a);
    ASSERT_EQ(s.indices.size(), extent.size());
    std::vector<qint64> lower;
    for (const QString& b : a.bounds)
        lower.push_back(b.section(QLatin1Char(':'), 0, 0).toLongLong());

    std::vector<double> expected;
    std::vector<size_t> at(extent.size(), 0);
    for (bool more = true; more;) {
        qint64 linear = 0;
        for (size_t d = 0; d < extent.size(); ++d)
            linear = linear * extent[d] + (s.indices[d][at[d]] - lower[d]);
        const double v = values[size_t(linear)];
        if (!s.passes || s.passes(v))
            expected.push_back(v);
        more = false;
        for (size_t d = extent.size(); d-- > 0;) {
            if (++at[d] < s.indices[d].size()) {
                more = true;
                break;
            }
            at[d] = 0;
        }
    }

    GdbExpression* e = rig.evaluate(a.expr);
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    expectNaiveStatistics(rig.statistics(e, s.slice, s.filter), a, expected);
    auto plot = rig.plot(e, s.slice, s.filter);
    ASSERT_EQ(resultOf(plot), QStringLiteral("done")) << msgOf(plot).toStdString();
    const QVariantList plotted = doublesOf(plot->property("AllEvaluations").toByteArray());
    ASSERT_EQ(size_t(plotted.size()), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_TRUE(sameElement(a, expected[i], plotted[int(i)].toDouble())) << "value " << i;
}

} // namespace

TEST_F(GdbContainers, StandardLibraryContainers) {
    for (const char* name : {"rod", "material", "flux", "probes", "interior", "leftCells"})
        checkContainer(*rig_, QLatin1String(name));
}

TEST_F(GdbContainers, EigenMatricesArraysAndMaps) {
    for (const char* name : {"laplacian", "load", "deflection", "jacobian", "pose", "neighbours",
                             "plate", "inner", "snapshot"})
        checkContainer(*rig_, QLatin1String(name));
}

TEST_F(GdbContainers, ArmadilloMatricesVectorsAndCubes) {
    for (const char* name :
         {"samples", "centre", "energy", "covariance", "history", "counts", "gains"})
        checkContainer(*rig_, QLatin1String(name));
}

TEST_F(GdbContainers, BoostMultiArraysWithTheirBasesAndOrders) {
    for (const char* name : {"pressure", "velocity", "stage"})
        checkContainer(*rig_, QLatin1String(name));
}

TEST_F(GdbContainers, XtensorArraysAndTensors) {
    for (const char* name : {"density", "stress", "moments"})
        checkContainer(*rig_, QLatin1String(name));
}

TEST_F(GdbContainers, BlitzArraysWithTheirBasesAndOrders) {
    for (const char* name : {"potential", "flow", "labels"})
        checkContainer(*rig_, QLatin1String(name));
}

TEST_F(GdbContainers, SlicesAndFiltersFollowLogicalIndices) {
    // Column-major Eigen: every other row of one column.
    expectSelection(*rig_, QStringLiteral("plate"), {"[2:10:2][3]", {run(2, 10, 2), {3}}, {}, {}});
    // A strided Map, reversed along its columns.
    expectSelection(*rig_, QStringLiteral("inner"),
                    {"[1:2][6:0:-2]", {run(1, 2, 1), run(6, 0, -2)}, {}, {}});
    // Armadillo: one variable of the samples, filtered.
    expectSelection(
        *rig_, QStringLiteral("samples"),
        {"[:][1]", {run(0, 39, 1), {1}}, "$value > 20", [](double v) { return v > 20; }});
    // Boost with negative bases, backwards through the middle dimension.
    expectSelection(*rig_, QStringLiteral("pressure"),
                    {"[-1:4][6:-1:-3][1]", {run(-1, 4, 1), run(6, -1, -3), {1}}, {}, {}});
    // Fortran-ordered Boost based at 1.
    expectSelection(*rig_, QStringLiteral("velocity"), {"[4][1:6]", {{4}, run(1, 6, 1)}, {}, {}});
    // Blitz++ from -2, a filter over the whole potential.
    expectSelection(
        *rig_, QStringLiteral("potential"),
        {"", {run(-2, 5, 1), run(0, 9, 1)}, "$value >= 0.25 && $value < 0.5", [](double v) {
             return v >= 0.25 && v < 0.5;
         }});
    expectSelection(*rig_, QStringLiteral("potential"),
                    {"[-2:5:3][9:0:-4]", {run(-2, 5, 3), run(9, 0, -4)}, {}, {}});
    // Column-major xtensor and an Armadillo cube's slice.
    expectSelection(*rig_, QStringLiteral("moments"), {"[2][:]", {{2}, run(0, 5, 1)}, {}, {}});
    expectSelection(*rig_, QStringLiteral("history"),
                    {"[0:5][2][1:3]", {run(0, 5, 1), {2}, run(1, 3, 1)}, {}, {}});
    // Integers: Blitz++ labels that are negative.
    expectSelection(*rig_, QStringLiteral("labels"),
                    {"", {run(0, 2, 1), run(0, 3, 1), run(0, 4, 1)}, "$value < 0", [](double v) {
                         return v < 0;
                     }});
}
