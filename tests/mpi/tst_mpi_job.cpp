// The heat solver on 1, 2 and 4 ranks (oversubscribed), one job per rank
// count shared by its checks: the four operations over the process
// dimension and over single ranks, against the bands the ranks wrote; and a
// decomposition whose bands differ in height.
#include "mpirig.h"

using namespace mpitest;

namespace {

const QString kBand = QStringLiteral("u[1]@nloc");

template <int Ranks> class EqualBands : public JobSuite<EqualBands<Ranks>> {
public:
    // 48 rows split evenly over 1, 2 and 4 ranks.
    static bool start(JobRig& rig) { return rig.launch(Ranks, 48); }

protected:
    using JobSuite<EqualBands<Ranks>>::rig;

    // Every check of one job, each against the files.
    void checkAll() {
        const int rows = 48 / Ranks;
        const std::vector<double> all = rig->allValues();
        ASSERT_EQ(all.size(), std::size_t(48 * 64));

        // Information: the process dimension comes first in C form.
        QVariantMap info = rig->request(Operation::ArrayInfo, kBand);
        ASSERT_EQ(info.value("result").toString(), QStringLiteral("done"))
            << info.value("msg").toString().toStdString();
        if (Ranks > 1) {
            EXPECT_EQ(info.value("DimCount").toInt(), 3);
            EXPECT_EQ(info.value("ArrayBounds").toStringList(),
                      QStringList({QStringLiteral("0:%1").arg(Ranks - 1),
                                   QStringLiteral("0:%1").arg(rows - 1), QStringLiteral("0:63")}));
        } else {
            // A set of one rank is that rank's own array.
            EXPECT_EQ(info.value("DimCount").toInt(), 2);
        }

        // Statistics over all ranks: exact quartiles over every element.
        expectStatistics(rig->request(Operation::Statistics, kBand), all);

        // Plot values in rank order, and one rank by fixing the process
        // dimension.
        EXPECT_EQ(plotValues(rig->request(Operation::Plot, kBand)), all);
        const int last = Ranks - 1;
        const Band lastBand = readBand(rig->prefix, last);
        if (Ranks > 1) {
            QVariantMap one =
                rig->request(Operation::Plot, kBand, QStringLiteral("[%1][:][:]").arg(last));
            EXPECT_EQ(plotValues(one), lastBand.values);
            expectStatistics(
                rig->request(Operation::Statistics, kBand, QStringLiteral("[%1][:][:]").arg(last)),
                lastBand.values);
        }
        // The same rank chosen as the process set.
        expectStatistics(rig->request(Operation::Statistics, kBand, {}, {}, {last}),
                         lastBand.values);

        // A filter over all ranks.
        qulonglong hot = 0;
        for (double v : all)
            hot += v > 50 ? 1 : 0;
        QVariantMap filtered =
            rig->request(Operation::Statistics, kBand, {}, QStringLiteral("$value > 50"));
        EXPECT_EQ(filtered.value("Count").toULongLong(), hot);

        // The table's default plane is rank 0's own band.
        QVariantMap table = rig->request(Operation::Table, kBand);
        ASSERT_EQ(table.value("result").toString(), QStringLiteral("done"))
            << table.value("msg").toString().toStdString();
        EXPECT_EQ(table.value("RowCount").toInt(), rows);
        EXPECT_EQ(table.value("ColCount").toInt(), 64);
        const Band first = readBand(rig->prefix, 0);
        const QVariantList cells = table.value("TableDataList").toList();
        ASSERT_EQ(cells.size(), rows * 64);
        for (const QVariant& c : cells) {
            const QVariantMap cell = c.toMap();
            const int row = cell.value("row").toInt(), col = cell.value("col").toInt();
            EXPECT_EQ(cell.value("value").toString().toDouble(),
                      first.values[std::size_t(row * 64 + col)])
                << row << "," << col;
        }
        if (Ranks > 1) {
            EXPECT_TRUE(table.value("Slice").toString().startsWith(QLatin1String("[0:0:1]")))
                << table.value("Slice").toString().toStdString();
        }
    }
};

using OneRank = EqualBands<1>;
using TwoRanks = EqualBands<2>;
using FourRanks = EqualBands<4>;

} // namespace

TEST_F(OneRank, FourOperationsAgreeWithTheBand) {
    checkAll();
}

// ctest runs every test in a process of its own, and each process starts
// its own job: the checks of one job are one test.
TEST_F(TwoRanks, FourOperationsOverTheProcessDimensionAndAFailureNamingTheRank) {
    checkAll();
    QVariantMap f = rig->request(Operation::Statistics, QStringLiteral("nosuchvar"));
    EXPECT_EQ(f.value("result").toString(), QStringLiteral("error"));
    EXPECT_TRUE(f.value("msg").toString().startsWith(QLatin1String("Rank 0: No symbol")))
        << f.value("msg").toString().toStdString();
}

TEST_F(FourRanks, FourOperationsOverTheProcessDimensionARankAndASubset) {
    checkAll();

    // The table of rank 2 by its slice.
    QVariantMap table = rig->request(Operation::Table, kBand, QStringLiteral("[2][:][:]"));
    ASSERT_EQ(table.value("result").toString(), QStringLiteral("done"))
        << table.value("msg").toString().toStdString();
    const Band two = readBand(rig->prefix, 2);
    const QVariantList cells = table.value("TableDataList").toList();
    ASSERT_EQ(cells.size(), 12 * 64);
    for (const QVariant& c : cells) {
        const QVariantMap cell = c.toMap();
        EXPECT_EQ(
            cell.value("value").toString().toDouble(),
            two.values[std::size_t(cell.value("row").toInt() * 64 + cell.value("col").toInt())]);
    }

    // Ranks 1 and 3: process index 1 is rank 3.
    QVariantMap f = rig->request(Operation::Plot, kBand, QStringLiteral("[1][:][:]"), {}, {1, 3});
    EXPECT_EQ(plotValues(f), readBand(rig->prefix, 3).values);
    QVariantMap info = rig->request(Operation::ArrayInfo, kBand, {}, {}, {1, 3});
    EXPECT_EQ(info.value("ArrayBounds").toStringList().value(0), QStringLiteral("0:1"));
}

namespace {

// 50 rows over 4 ranks: bands of 13, 13, 12 and 12 rows.
class UnequalBands : public JobSuite<UnequalBands> {
public:
    static bool start(JobRig& rig) { return rig.launch(4, 50); }
};

} // namespace

TEST_F(UnequalBands, StatisticsAndPlotCoverAllRanksWhileInformationAndTableNameThem) {
    const std::vector<double> all = rig->allValues();
    ASSERT_EQ(all.size(), std::size_t(50 * 64));
    expectStatistics(rig->request(Operation::Statistics, kBand), all);
    EXPECT_EQ(plotValues(rig->request(Operation::Plot, kBand)), all);

    for (Operation op : {Operation::ArrayInfo, Operation::Table}) {
        QVariantMap f = rig->request(op, kBand);
        EXPECT_EQ(f.value("result").toString(), QStringLiteral("error"));
        const QString msg = f.value("msg").toString();
        EXPECT_TRUE(msg.contains(QLatin1String("ranks 0 and 1 hold [13][64]")))
            << msg.toStdString();
        EXPECT_TRUE(msg.contains(QLatin1String("ranks 2 and 3 hold [12][64]")))
            << msg.toStdString();
        EXPECT_TRUE(msg.contains(QLatin1String("Choose one rank"))) << msg.toStdString();
    }
    // One rank chosen: its own band.
    QVariantMap one = rig->request(Operation::ArrayInfo, kBand, {}, {}, {2});
    EXPECT_EQ(one.value("ArrayBounds").toStringList(),
              QStringList({QStringLiteral("0:11"), QStringLiteral("0:63")}));
    // Ranks of one shape stack again.
    QVariantMap pair = rig->request(Operation::ArrayInfo, kBand, {}, {}, {2, 3});
    EXPECT_EQ(pair.value("DimCount").toInt(), 3);
}
