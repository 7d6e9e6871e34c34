// C++ containers by their own names, through a real gdb, on the containers
// example: every array's information, statistics, table and plot against the
// values the program wrote itself in logical index order, slices and filters
// across storage orders and index bases, and the words of every refusal.
#include "referencecheck.h"
#include "sharedstop.h"

#include <QVariantMap>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <vector>

using namespace gdbtest;

namespace {

// One debuggee run, stopped at containers.main, for all the checks.
class GdbContainers : public SharedStop {
protected:
    static void SetUpTestSuite() { start("example_containers", "containers.main"); }
};

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

// The table of `e`'s default plane (the last two dimensions, every other
// one at its lower bound) in `format`, rows 0..lastRow and columns
// 0..lastCol: `check(row, col, text)` of every cell, and that all came.
// Answers with the table's bag for further checks.
QSharedPointer<QObject> expectCells(Rig& rig, IHVExpression* e, int format, int lastRow,
                                    int lastCol,
                                    const std::function<void(int, int, const QString&)>& check) {
    auto table = rig.table(e, QString(), format, 0, lastRow, 0, lastCol);
    EXPECT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    if (resultOf(table) != QLatin1String("done"))
        return table;
    int seen = 0;
    for (const QVariant& entry : table->property("TableDataList").toList()) {
        const QVariantMap m = entry.toMap();
        const int r = m.value(QStringLiteral("row")).toInt();
        const int c = m.value(QStringLiteral("col")).toInt();
        const QString cell = m.value(QStringLiteral("value")).toString();
        SCOPED_TRACE(QStringLiteral("cell %1,%2 = %3").arg(r).arg(c).arg(cell).toStdString());
        check(r, c, cell);
        ++seen;
    }
    EXPECT_EQ(seen, (lastRow + 1) * (lastCol + 1));
    return table;
}

// The default plane's first cells against the values.
void expectFirstCells(Rig& rig, IHVExpression* e, const ArrayRef& a,
                      const std::vector<double>& values) {
    const std::vector<qint64> extent = extentsOf(a);
    const size_t rank = extent.size();
    const qint64 rows = rank == 1 ? extent[0] : extent[rank - 2];
    const qint64 cols = rank == 1 ? 1 : extent[rank - 1];
    auto table =
        expectCells(rig, e, 0, int(std::min<qint64>(rows, 4)) - 1,
                    int(std::min<qint64>(cols, 4)) - 1, [&](int r, int c, const QString& cell) {
                        ASSERT_LT(size_t(r * cols + c), values.size());
                        const double expected = values[size_t(r * cols + c)];
                        if (isFloatType(a.type))
                            EXPECT_TRUE(sameElement(a, expected, number(cell)));
                        else
                            EXPECT_EQ(cell, QString::number(qint64(expected)));
                    });
    ASSERT_TRUE(table);
    EXPECT_EQ(table->property("RowCount").toLongLong(), rows);
    EXPECT_EQ(table->property("ColCount").toLongLong(), cols);
}

// Everything about one container: the checks every example's arrays get,
// then the C-form empty slice, statistics worked out here from the values,
// every plot value in logical index order and the table's first cells.
void checkContainer(Rig& rig, const ArrayRef& a) {
    SCOPED_TRACE(a.name.toStdString());
    ASSERT_FALSE(a.name.isEmpty()) << "no reference for this container";
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
void expectSelection(Rig& rig, const ArrayRef& a, const Selection& s) {
    SCOPED_TRACE((a.name + QLatin1Char(' ') + s.slice + QLatin1Char(' ') + s.filter).toStdString());
    ASSERT_FALSE(a.name.isEmpty()) << "no reference for this container";
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

// One test for all families: each ctest run starts gdb on the example anew,
// and loading its debug information is most of a run's time.
TEST_F(GdbContainers, EveryContainerAgainstTheProgramsOwnValues) {
    const char* const names[] = {
        // libstdc++
        "rod", "material", "flux", "probes", "interior", "leftCells",
        // Eigen: dynamic and fixed, both orders, vectors, Maps with and without a stride
        "laplacian", "load", "deflection", "jacobian", "pose", "neighbours", "plate", "inner",
        "snapshot",
        // Armadillo
        "samples", "centre", "energy", "covariance", "history", "counts", "gains",
        // Boost.MultiArray: bases -1, a strided view, a Fortran order based at 1, a multi_array_ref
        "pressure", "pressureInterior", "velocity", "stage",
        // xtensor, both layouts
        "density", "stress", "moments",
        // Blitz++: based at -2, a fortranArray, an int cube
        "potential", "flow", "labels"};
    for (const char* name : names)
        checkContainer(*rig_, reference(QLatin1String(name)));
}

TEST_F(GdbContainers, SlicesFiltersAndFormatsFollowLogicalIndices) {
    // Column-major Eigen: every other row of one column.
    expectSelection(*rig_, reference(QStringLiteral("plate")),
                    {"[2:10:2][3]", {run(2, 10, 2), {3}}, {}, {}});
    // A strided Map, reversed along its columns.
    expectSelection(*rig_, reference(QStringLiteral("inner")),
                    {"[1:2][6:0:-2]", {run(1, 2, 1), run(6, 0, -2)}, {}, {}});
    // Armadillo: one variable of the samples, filtered.
    expectSelection(
        *rig_, reference(QStringLiteral("samples")),
        {"[:][1]", {run(0, 39, 1), {1}}, "$value > 20", [](double v) { return v > 20; }});
    // Boost with negative bases, backwards through the middle dimension.
    expectSelection(*rig_, reference(QStringLiteral("pressure")),
                    {"[-1:4][6:-1:-3][1]", {run(-1, 4, 1), run(6, -1, -3), {1}}, {}, {}});
    // Fortran-ordered Boost based at 1.
    expectSelection(*rig_, reference(QStringLiteral("velocity")),
                    {"[4][1:6]", {{4}, run(1, 6, 1)}, {}, {}});
    // Blitz++ from -2, a filter over the whole potential.
    expectSelection(
        *rig_, reference(QStringLiteral("potential")),
        {"", {run(-2, 5, 1), run(0, 9, 1)}, "$value >= 0.25 && $value < 0.5", [](double v) {
             return v >= 0.25 && v < 0.5;
         }});
    expectSelection(*rig_, reference(QStringLiteral("potential")),
                    {"[-2:5:3][9:0:-4]", {run(-2, 5, 3), run(9, 0, -4)}, {}, {}});
    // Column-major xtensor and an Armadillo cube's slice.
    expectSelection(*rig_, reference(QStringLiteral("moments")),
                    {"[2][:]", {{2}, run(0, 5, 1)}, {}, {}});
    expectSelection(*rig_, reference(QStringLiteral("history")),
                    {"[0:5][2][1:3]", {run(0, 5, 1), {2}, run(1, 3, 1)}, {}, {}});
    // Integers: Blitz++ labels that are negative.
    expectSelection(*rig_, reference(QStringLiteral("labels")),
                    {"", {run(0, 2, 1), run(0, 3, 1), run(0, 4, 1)}, "$value < 0", [](double v) {
                         return v < 0;
                     }});

    // Formats: the Blitz++ int cube's plane at its first index in hexadecimal
    // (two's complement of 32 bits), the potential in scientific notation.
    const ArrayRef labels = reference(QStringLiteral("labels"));
    const std::vector<double> labelValues = valuesOf(labels);
    GdbExpression* e = rig_->evaluate(QStringLiteral("labels"));
    expectCells(*rig_, e, 4, 3, 4, [&](int r, int c, const QString& cell) {
        const quint32 bits = quint32(qint32(labelValues[size_t(r * 5 + c)]));
        EXPECT_EQ(cell, QStringLiteral("0x") + QString::number(bits, 16));
    });
    const ArrayRef potential = reference(QStringLiteral("potential"));
    const std::vector<double> potentialValues = valuesOf(potential);
    GdbExpression* p = rig_->evaluate(QStringLiteral("potential"));
    expectCells(*rig_, p, 7, 1, 9, [&](int r, int c, const QString& cell) {
        EXPECT_TRUE(cell.contains(QLatin1Char('e')));
        EXPECT_EQ(number(cell), potentialValues[size_t(r * 10 + c)]);
    });
}

TEST_F(GdbContainers, WhatIsNoArrayOfNumbersIsRefusedWithWhatToShowAndEmptyIsEmpty) {
    const Words cases[] = {
        {"perMaterial", "perMaterial is a std::vector of std::vector<double>, a container of "
                        "containers: show one of them, for example perMaterial[0]."},
        {"positions", "positions is a std::vector of Eigen::Matrix<double, 3, 1, 0, 3, 1>, a "
                      "container of containers: show one of them, for example positions[0]."},
        {"particles", "particles is a std::vector of Particle, which are structures, not numbers: "
                      "print a member of one of them, for example particles[0].x."},
        {"spectrum", "spectrum is a std::vector of std::complex<double>, which are structures, "
                     "not numbers: print one of them, for example spectrum[0]."},
        {"frozen", "frozen is a std::vector<bool>, which packs its elements as bits: show one "
                   "element, for example frozen[0]."},
        // gdb cannot call Eigen's or Armadillo's operator(): one element is
        // named through the member that holds them.
        {"dft", "dft is a Eigen::Matrix of std::complex<double>, which are structures, not "
                "numbers: print one of them, for example dft.m_storage.m_data[0]."},
        {"roots", "roots is a arma::Mat of std::complex<double>, which are structures, not "
                  "numbers: print one of them, for example roots.mem[0]."},
        // An expression that is no plain name is indexed as an operand:
        // `*&particles[0]` would index before it dereferences.
        {"*&particles", "*&particles is a std::vector of Particle, which are structures, not "
                        "numbers: print a member of one of them, for example (*&particles)[0].x."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expression);
        GdbExpression* e = rig_->evaluate(QLatin1String(c.expression));
        EXPECT_FALSE(e->isArray());
        EXPECT_EQ(refusalOf(QLatin1String(c.expression)).toStdString(),
                  std::string("error ") + c.words);
        // What the words offer is what gdb reads in this frame.
        EXPECT_NE(valueOfOffered(QLatin1String(c.words)), QStringLiteral("<error>"));
    }

    // Empty is no refusal: an array without elements.
    expectEmptyArray(*rig_, QStringLiteral("pending"));
}

namespace {

// The bytes of `values` (logical order, first index slowest) as the
// container holds them in memory, column-major: element (i, j) of a
// rows x cols matrix at i + rows * j.
template <class T>
std::vector<T> columnMajorMemory(const std::vector<double>& values, size_t rows, size_t cols) {
    std::vector<T> memory(rows * cols);
    for (size_t i = 0; i < rows; ++i)
        for (size_t j = 0; j < cols; ++j)
            memory[i + rows * j] = T(values[i * cols + j]);
    return memory;
}

// Every cell of a cast's whole table.
void expectCastTable(Rig& rig, GdbExpression* e, int rows, int cols,
                     const std::function<void(int, int, const QString&)>& check) {
    auto table = expectCells(rig, e, 0, rows - 1, cols - 1, check);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->property("RowCount").toInt(), rows);
    EXPECT_EQ(table->property("ColCount").toInt(), cols);
}

// The same value, or both NaN.
::testing::AssertionResult sameBits(double expected, double actual) {
    if (expected == actual || (std::isnan(expected) && std::isnan(actual)))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected " << expected << " got " << actual;
}

void reevaluate(Rig& rig, GdbExpression* e) {
    auto future = e->evaluate(rig.debugger->currentFrame());
    ASSERT_TRUE(waitFor([&] { return future.isFinished(); }));
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
}

} // namespace

TEST_F(GdbContainers, ACastReinterpretsTheElementsInTheContainersOwnLayout) {
    // Armadillo's counts are long long, column-major: read as unsigned they
    // keep their logical places.
    const ArrayRef counts = reference(QStringLiteral("counts"));
    const std::vector<double> countValues = valuesOf(counts);
    ASSERT_EQ(countValues.size(), 15u);
    GdbExpression* e = rig_->evaluate(QStringLiteral("counts"));
    e->setType(QStringLiteral("unsigned long long"), true);
    EXPECT_EQ(e->getAlternateExpression(), QStringLiteral("{unsigned long long [5][3]} counts"));
    reevaluate(*rig_, e);
    expectCastTable(*rig_, e, 5, 3, [&](int r, int c, const QString& cell) {
        EXPECT_EQ(cell, QString::number(qint64(countValues[size_t(r * 3 + c)])));
    });

    // The samples' doubles read as floats: as many floats, in the matrix's
    // own (column-major) order from its first element.
    const ArrayRef samples = reference(QStringLiteral("samples"));
    const std::vector<double> sampleValues = valuesOf(samples);
    ASSERT_EQ(sampleValues.size(), 120u);
    const std::vector<double> memory = columnMajorMemory<double>(sampleValues, 40, 3);
    std::vector<float> floats(memory.size() * 2);
    std::memcpy(floats.data(), memory.data(), memory.size() * sizeof(double));
    GdbExpression* s = rig_->evaluate(QStringLiteral("samples"));
    s->setType(QStringLiteral("float"), true);
    reevaluate(*rig_, s);
    auto stats = rig_->statistics(s);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), 120);
    expectCastTable(*rig_, s, 40, 3, [&](int r, int c, const QString& cell) {
        EXPECT_TRUE(sameBits(floats[size_t(r + 40 * c)], float(number(cell))))
            << cell.toStdString();
    });

    // An array type is C's: the same memory as 3 rows of 40, the matrix's
    // columns.
    s->setType(QStringLiteral("double [3][40]"), true);
    reevaluate(*rig_, s);
    expectCastTable(*rig_, s, 3, 40, [&](int r, int c, const QString& cell) {
        EXPECT_TRUE(sameBits(memory[size_t(r * 40 + c)], number(cell))) << cell.toStdString();
    });

    // A strided Map read in place: each element's own bytes.
    const ArrayRef inner = reference(QStringLiteral("inner"));
    const std::vector<double> innerValues = valuesOf(inner);
    GdbExpression* m = rig_->evaluate(QStringLiteral("inner"));
    m->setType(QStringLiteral("long long"), true);
    reevaluate(*rig_, m);
    expectCastTable(*rig_, m, 10, 7, [&](int r, int c, const QString& cell) {
        qint64 bits;
        std::memcpy(&bits, &innerValues[size_t(r * 7 + c)], sizeof bits);
        EXPECT_EQ(cell, QString::number(bits));
    });
    m->setType(QString(), true);
    EXPECT_FALSE(m->hasAlternateExpression());
}
