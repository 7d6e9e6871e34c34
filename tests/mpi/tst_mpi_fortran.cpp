// The Fortran wave solver on 2, 3 and 4 ranks (oversubscribed), one job per
// rank count shared by its checks: the process dimension comes last in
// Fortran form, after the slab's own bounds; slabs of different widths are
// refused by information and the table and concatenated by statistics.
// Expected numbers come from the slabs the ranks wrote, never the engine.
#include "mpirig.h"

using namespace mpitest;

namespace {

const QString kSlab = QStringLiteral("u");
// The grid's interior: 30 rows; the columns are shared by the ranks.
constexpr int kNx = 30;

// A rank's slab as it wrote it: bounds, and values in memory order (first
// index fastest).
struct Slab {
    qint64 lo1 = 0, hi1 = -1, lo2 = 0, hi2 = -1;
    std::vector<double> values;

    qint64 rows() const { return hi1 - lo1 + 1; }
    qint64 cols() const { return hi2 - lo2 + 1; }
    double at(qint64 i, qint64 j) const {
        return values[std::size_t((j - lo2) * rows() + (i - lo1))];
    }
    // The values in the order of a result: first index slowest.
    std::vector<double> resultOrder() const {
        std::vector<double> out;
        for (qint64 i = lo1; i <= hi1; ++i)
            for (qint64 j = lo2; j <= hi2; ++j)
                out.push_back(at(i, j));
        return out;
    }
};

Slab readSlab(const QString& prefix, int rank) {
    Slab s;
    QFile f(QStringLiteral("%1.rank%2").arg(prefix).arg(rank));
    if (!f.open(QIODevice::ReadOnly))
        return s;
    QTextStream in(&f);
    bool values = false;
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        if (values) {
            s.values.push_back(line.toDouble());
        } else if (line.startsWith(QLatin1String("bounds="))) {
            // "lo:hi,lo:hi"
            const QStringList dims = line.mid(7).split(QLatin1Char(','));
            if (dims.size() == 2) {
                s.lo1 = dims[0].section(QLatin1Char(':'), 0, 0).toLongLong();
                s.hi1 = dims[0].section(QLatin1Char(':'), 1, 1).toLongLong();
                s.lo2 = dims[1].section(QLatin1Char(':'), 0, 0).toLongLong();
                s.hi2 = dims[1].section(QLatin1Char(':'), 1, 1).toLongLong();
            }
        } else if (line == QLatin1String("values=")) {
            values = true;
        }
    }
    return s;
}

std::vector<Slab> readSlabs(const JobRig& rig) {
    std::vector<Slab> slabs;
    for (int r = 0; r < rig.size; ++r)
        slabs.push_back(readSlab(rig.prefix, r));
    return slabs;
}

QString boundsText(qint64 lo, qint64 hi) {
    return QStringLiteral("%1:%2").arg(lo).arg(hi);
}

// The solver on NY columns, stopped at its first report, after 10 steps.
bool launchWave(JobRig& rig, int ranks, int ny) {
    return rig.launchProgram(ranks, QStringLiteral("example_mpi_wave"),
                             {rig.prefix, QString::number(kNx), QString::number(ny),
                              QStringLiteral("20"), QStringLiteral("10")},
                             QStringLiteral("mpi_wave.report"));
}

// The cells of a table answer against one slab.
void expectPlane(const QVariantMap& table, const Slab& slab) {
    ASSERT_EQ(table.value("result").toString(), QStringLiteral("done"))
        << table.value("msg").toString().toStdString();
    EXPECT_EQ(table.value("RowCount").toLongLong(), slab.rows());
    EXPECT_EQ(table.value("ColCount").toLongLong(), slab.cols());
    EXPECT_EQ(table.value("RowLowerBound").toLongLong(), slab.lo1);
    EXPECT_EQ(table.value("ColLowerBound").toLongLong(), slab.lo2);
    const QVariantList cells = table.value("TableDataList").toList();
    ASSERT_EQ(cells.size(), slab.rows() * slab.cols());
    int wrong = 0;
    for (const QVariant& c : cells) {
        const QVariantMap cell = c.toMap();
        const qint64 row = cell.value("row").toLongLong(), col = cell.value("col").toLongLong();
        if (cell.value("value").toString().toDouble() != slab.at(slab.lo1 + row, slab.lo2 + col))
            ++wrong;
    }
    EXPECT_EQ(wrong, 0);
}

// Every rank's slab of one shape, stacked: `u` has the process dimension
// last.
template <int Ranks> class EvenSlabs : public JobSuite<EvenSlabs<Ranks>> {
public:
    // 24 columns shared evenly.
    static bool start(JobRig& rig) { return launchWave(rig, Ranks, 24); }

protected:
    using JobSuite<EvenSlabs<Ranks>>::rig;

    void checkInformation(const std::vector<Slab>& slabs) {
        const QVariantMap info = rig->request(Operation::ArrayInfo, kSlab);
        ASSERT_EQ(info.value("result").toString(), QStringLiteral("done"))
            << info.value("msg").toString().toStdString();
        const Slab& s = slabs.front();
        EXPECT_EQ(info.value("DimCount").toInt(), 3);
        EXPECT_EQ(info.value("ArrayBounds").toStringList().join(QLatin1Char(' ')).toStdString(),
                  QStringList({boundsText(s.lo1, s.hi1), boundsText(s.lo2, s.hi2),
                               boundsText(0, Ranks - 1)})
                      .join(QLatin1Char(' '))
                      .toStdString());
        EXPECT_EQ(info.value("EmptySlice").toString().toStdString(),
                  QStringLiteral("(%1,%2,0:%3)")
                      .arg(boundsText(s.lo1, s.hi1), boundsText(s.lo2, s.hi2))
                      .arg(Ranks - 1)
                      .toStdString());
    }

    // All ranks' values in result order: the process dimension, being the
    // last, runs fastest.
    static std::vector<double> stacked(const std::vector<Slab>& slabs) {
        std::vector<double> out;
        const Slab& s = slabs.front();
        for (qint64 i = s.lo1; i <= s.hi1; ++i)
            for (qint64 j = s.lo2; j <= s.hi2; ++j)
                for (const Slab& rank : slabs)
                    out.push_back(rank.at(i, j));
        return out;
    }
};

using TwoEvenSlabs = EvenSlabs<2>;
using FourEvenSlabs = EvenSlabs<4>;

// Slabs of different widths: 25 columns over 3 ranks are 9, 8 and 8.
class UnevenSlabs : public JobSuite<UnevenSlabs> {
public:
    static bool start(JobRig& rig) { return launchWave(rig, 3, 25); }
};

} // namespace

// ctest runs every test in a process of its own, and each process starts
// its own job: the checks of one job are one test.
TEST_F(TwoEvenSlabs, ProcessDimensionLastWithTheSlabsOwnBounds) {
    const std::vector<Slab> slabs = readSlabs(*rig);
    ASSERT_EQ(slabs.size(), 2u);
    // Ghost columns and rim included: (0:31, 0:13) on each rank.
    ASSERT_EQ(slabs[0].values.size(), std::size_t((kNx + 2) * 14));
    ASSERT_EQ(slabs[1].values.size(), slabs[0].values.size());
    checkInformation(slabs);

    // Statistics and plot values over both ranks: Count, Sum, Min, Max,
    // exact quartiles, and the checksum of the values in result order.
    const std::vector<double> all = stacked(slabs);
    expectStatistics(rig->request(Operation::Statistics, kSlab), all);
    EXPECT_EQ(plotValues(rig->request(Operation::Plot, kSlab)), all);

    // The table's default plane is rank 0's own slab.
    const QVariantMap table = rig->request(Operation::Table, kSlab);
    expectPlane(table, slabs[0]);
    EXPECT_TRUE(table.value("Slice").toString().endsWith(QLatin1String(",0:0:1)")))
        << table.value("Slice").toString().toStdString();

    // Fixing the process dimension at 1: rank 1 alone.
    const QString one = QStringLiteral("(:,:,1)");
    expectPlane(rig->request(Operation::Table, kSlab, one), slabs[1]);
    const std::vector<double> rank1 = slabs[1].resultOrder();
    expectStatistics(rig->request(Operation::Statistics, kSlab, one), rank1);
    EXPECT_EQ(plotValues(rig->request(Operation::Plot, kSlab, one)), rank1);
}

TEST_F(FourEvenSlabs, ProcessDimensionLastOverFourRanks) {
    const std::vector<Slab> slabs = readSlabs(*rig);
    ASSERT_EQ(slabs.size(), 4u);
    checkInformation(slabs);
    expectStatistics(rig->request(Operation::Statistics, kSlab), stacked(slabs));
}

TEST_F(UnevenSlabs, InformationAndTableNameTheRanksWhileStatisticsConcatenate) {
    const std::vector<Slab> slabs = readSlabs(*rig);
    ASSERT_EQ(slabs.size(), 3u);
    EXPECT_EQ(slabs[0].cols(), 9 + 2);
    EXPECT_EQ(slabs[1].cols(), 8 + 2);
    EXPECT_EQ(slabs[2].cols(), 8 + 2);

    for (Operation op : {Operation::ArrayInfo, Operation::Table}) {
        const QVariantMap f = rig->request(op, kSlab);
        EXPECT_EQ(f.value("result").toString().toStdString(), "error");
        const QString msg = f.value("msg").toString();
        EXPECT_TRUE(msg.contains(QLatin1String("rank 0 holds (0:31,0:10) of real(kind=8)")))
            << msg.toStdString();
        EXPECT_TRUE(msg.contains(QLatin1String("ranks 1 and 2 hold (0:31,0:9) of real(kind=8)")))
            << msg.toStdString();
        EXPECT_TRUE(msg.contains(QLatin1String("Choose one rank"))) << msg.toStdString();
    }

    // Statistics and plot values: every rank's slab in result order, one
    // rank after another.
    std::vector<double> all;
    for (const Slab& s : slabs) {
        const std::vector<double> v = s.resultOrder();
        all.insert(all.end(), v.begin(), v.end());
    }
    expectStatistics(rig->request(Operation::Statistics, kSlab), all);
    EXPECT_EQ(plotValues(rig->request(Operation::Plot, kSlab)), all);

    // One rank chosen: its own slab with its own bounds.
    const QVariantMap info = rig->request(Operation::ArrayInfo, kSlab, {}, {}, {0});
    EXPECT_EQ(info.value("ArrayBounds").toStringList().join(QLatin1Char(' ')).toStdString(),
              "0:31 0:10")
        << info.value("msg").toString().toStdString();
    expectPlane(rig->request(Operation::Table, kSlab, {}, {}, {2}), slabs[2]);
}
