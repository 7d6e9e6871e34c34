// The statistics table: column layout by width, where each statistic
// stands, how values are rendered, and the debounced re-layout on resize.
#include "statshelpers.h"

#include <QElapsedTimer>
#include <QHeaderView>
#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <gtest/gtest.h>

using statstest::cell;
using statstest::goodAnswer;
using statstest::itemCount;

namespace {

constexpr char STATS_REQUEST[] = "ArrayStatisticsRequest";

struct TableRig {
    TableRig() : expression(QStringLiteral("a")), signals_(ui) {}

    QTableWidget* table() { return ui.statisticsTable_; }
    // Fetches one answer with the table at this width; the page is not
    // shown, so no resize event interferes.
    void fill(const QVariantMap& answer, int width) {
        table()->resize(width, 400);
        core.debugger().respond(STATS_REQUEST, answer);
        const int before = signals_.answers();
        ui.showStatistics(&expression, QString(), QString());
        ASSERT_TRUE(fake::waitFor([&] { return signals_.answers() > before; }, 3000));
    }

    fake::Core core;
    fake::Expression expression;
    StatisticsUI ui;
    statstest::Signals signals_;
};

int columnsAtWidth(TableRig& r, int width) {
    r.table()->resize(width, 300);
    r.ui.adjustTableColumnsToWidth(false);
    return r.table()->columnCount();
}

} // namespace

TEST(StatisticsTable, Width479GivesTwoColumns480GivesFiveAndVeryWideStillFive) {
    TableRig r;
    EXPECT_EQ(columnsAtWidth(r, 479), 2);
    EXPECT_EQ(columnsAtWidth(r, 480), 5);
    EXPECT_EQ(columnsAtWidth(r, 5000), 5);
    EXPECT_EQ(columnsAtWidth(r, 479), 2);
    // Headers of the wide layout; the divider has an empty one and is fixed
    // at one pixel.
    columnsAtWidth(r, 600);
    QTableWidget* t = r.table();
    EXPECT_EQ(t->horizontalHeaderItem(0)->text(), "Statistic");
    EXPECT_EQ(t->horizontalHeaderItem(1)->text(), "Value");
    EXPECT_EQ(t->horizontalHeaderItem(2)->text(), "");
    EXPECT_EQ(t->horizontalHeaderItem(3)->text(), "Statistic");
    EXPECT_EQ(t->horizontalHeaderItem(4)->text(), "Value");
    EXPECT_EQ(t->columnWidth(2), 1);
    EXPECT_EQ(t->horizontalHeader()->sectionResizeMode(2), QHeaderView::Fixed);
    EXPECT_EQ(t->horizontalHeader()->sectionResizeMode(3), QHeaderView::Stretch);
}

TEST(StatisticsTable, FiveColumnFillingHasEightRowsWithStandardDeviationAtRow0Column3) {
    TableRig r;
    r.fill(goodAnswer(), 600);
    QTableWidget* t = r.table();
    ASSERT_EQ(t->columnCount(), 5);
    EXPECT_EQ(t->rowCount(), 8);
    EXPECT_EQ(cell(t, 0, 3), "Standard Deviation");
    EXPECT_EQ(cell(t, 0, 4), "2.75");
    // Statistics 0 to 7 in the first pair, 8 to 15 in the second; the
    // divider holds nothing.
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(cell(t, i, 0), r.ui.statLabels_.at(i));
        EXPECT_EQ(cell(t, i, 2), "<none>");
        EXPECT_EQ(cell(t, i, 3), r.ui.statLabels_.at(i + 8));
    }
    EXPECT_EQ(cell(t, 7, 3), "Denormalzized Count");
    EXPECT_EQ(cell(t, 7, 4), "4");
}

TEST(StatisticsTable, WithFiveColumnsAClearedBit2LeavesRow2BlankAndSumStaysInRow3) {
    TableRig r;
    QVariantMap answer = goodAnswer();
    QBitArray valid(16, true);
    valid.clearBit(2);
    answer["StatValid"] = valid;
    r.fill(answer, 600);
    QTableWidget* t = r.table();
    ASSERT_EQ(t->columnCount(), 5);
    EXPECT_EQ(cell(t, 2, 0), "<none>");
    EXPECT_EQ(cell(t, 2, 1), "<none>");
    EXPECT_EQ(cell(t, 3, 0), "Sum");
    EXPECT_EQ(cell(t, 3, 1), "45.5");
    EXPECT_EQ(cell(t, 1, 0), "Count");
}

TEST(StatisticsTable, CountZeroWithValidOtherValuesShowsOnlyTheCountLine) {
    TableRig r;
    QVariantMap answer = goodAnswer();
    answer["Count"] = 0;
    r.fill(answer, 300);
    QTableWidget* t = r.table();
    EXPECT_EQ(itemCount(t), 2);
    EXPECT_EQ(cell(t, 0, 0), "Count");
    EXPECT_EQ(cell(t, 0, 1), "0");
    ASSERT_EQ(r.signals_.successes.size(), 1);
}

TEST(StatisticsTable, ChecksumOfMinusOneShowsMinusOne) {
    TableRig r;
    QVariantMap answer = goodAnswer();
    answer["Checksum"] = QVariant::fromValue<qlonglong>(-1);
    r.fill(answer, 300);
    EXPECT_EQ(cell(r.table(), 0, 0), "Checksum");
    EXPECT_EQ(cell(r.table(), 0, 1), "-1");
}

TEST(StatisticsTable, SumHeldAsVariantInsideVariantShowsTheInnerValue) {
    TableRig r;
    QVariantMap answer = goodAnswer();
    const QVariant inner(qlonglong(123456789012));
    answer["Sum"] = QVariant(qMetaTypeId<QVariant>(), &inner);
    ASSERT_EQ(answer["Sum"].userType(), int(QMetaType::QVariant));
    r.fill(answer, 300);
    EXPECT_EQ(cell(r.table(), 3, 0), "Sum");
    EXPECT_EQ(cell(r.table(), 3, 1), "123456789012");
}

TEST(StatisticsTable, ResizeFromFiveToTwoColumnsMovesStatistics8To15IntoRows8To15) {
    TableRig r;
    r.ui.resize(600, 400);
    r.ui.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&r.ui));
    // Let the first re-layout of the shown page pass.
    QTest::qWait(250);
    r.core.debugger().respond(STATS_REQUEST, goodAnswer());
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return r.signals_.answers() == 1; }, 3000));
    QTableWidget* t = r.table();
    ASSERT_EQ(t->columnCount(), 5);
    ASSERT_EQ(t->rowCount(), 8);

    r.ui.resize(300, 400);
    ASSERT_TRUE(fake::waitFor([&] { return t->columnCount() == 2; }, 3000));
    EXPECT_EQ(t->rowCount(), 16);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(cell(t, i, 0), r.ui.statLabels_.at(i)) << i;
    }
    EXPECT_EQ(cell(t, 8, 1), "2.75");
    EXPECT_EQ(cell(t, 15, 1), "4");
    EXPECT_EQ(cell(t, 0, 1), "987654321012");
    EXPECT_EQ(cell(t, 7, 1), "4.55");
}

TEST(StatisticsTable, StaleResponseLeavesTheTableBlankWithThePreviousRowCount) {
    TableRig r;
    r.fill(goodAnswer(), 600);
    ASSERT_EQ(r.table()->rowCount(), 8);
    QVariantMap stale = goodAnswer();
    stale["IsStale"] = true;
    r.fill(stale, 600);
    EXPECT_EQ(itemCount(r.table()), 0);
    EXPECT_EQ(r.table()->rowCount(), 8);
    EXPECT_EQ(r.table()->columnCount(), 5);
    EXPECT_EQ(r.table()->horizontalHeaderItem(0)->text(), "Statistic");
    EXPECT_EQ(r.table()->horizontalHeaderItem(4)->text(), "Value");
}

TEST(StatisticsTable, InsertVariantValueOf4294967295AsUintShowsMinusOne) {
    TableRig r;
    r.ui.insertVariantValue(QVariant(4294967295u), 0, 1, STAT_UINT);
    EXPECT_EQ(cell(r.table(), 0, 1), "-1");
}

TEST(StatisticsTable, InsertVariantValueOfPointOneAsDoubleShowsPointOne) {
    TableRig r;
    r.ui.insertVariantValue(QVariant(0.1), 0, 1, STAT_DOUBLE);
    EXPECT_EQ(cell(r.table(), 0, 1), "0.1");
    r.ui.insertVariantValue(QVariant(-42), 1, 1, STAT_INT);
    EXPECT_EQ(cell(r.table(), 1, 1), "-42");
    // A type outside the enumeration leaves the cell alone.
    r.ui.insertVariantValue(QVariant(7), 2, 1, static_cast<stat_type_e>(9));
    EXPECT_EQ(cell(r.table(), 2, 1), "<none>");
}

TEST(StatisticsTable, ABurstOfResizesEndsInOneRelayoutAbout100MsAfterTheLast) {
    TableRig r;
    r.ui.resize(300, 400);
    r.ui.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&r.ui));
    QTest::qWait(250);
    ASSERT_EQ(r.table()->columnCount(), 2);

    QSignalSpy relayouts(r.ui.resizeTimer_, &QTimer::timeout);
    QElapsedTimer sinceLast;
    qint64 firedAfter = -1;
    QObject::connect(r.ui.resizeTimer_, &QTimer::timeout,
                     [&] { firedAfter = sinceLast.elapsed(); });
    qint64 longestGap = 0;
    for (int width : {500, 320, 640}) {
        if (sinceLast.isValid())
            longestGap = std::max(longestGap, sinceLast.elapsed());
        // The clock starts before the resize, so it never runs behind the
        // timer that the resize restarts.
        sinceLast.start();
        r.ui.resize(width, 400);
        QTest::qWait(20);
        EXPECT_EQ(r.ui.resizeTimer_->interval(), 100);
    }
    ASSERT_TRUE(fake::waitFor([&] { return relayouts.count() > 0; }, 3000));
    // A coarse timer may run up to 5 % early, and the clock counts whole
    // milliseconds.
    EXPECT_GE(firedAfter, 90);
    QTest::qWait(300);
    // Only a machine that stalled between two resizes for longer than the
    // delay can have seen more than one re-layout.
    if (longestGap < 90) {
        EXPECT_EQ(relayouts.count(), 1);
    }
    EXPECT_EQ(r.table()->columnCount(), 5);
}

TEST(StatisticsTable, DividerColumnIsPaintedWithItsColour) {
    TableRig r;
    r.fill(goodAnswer(), 600);
    r.ui.resize(600, 400);
    r.ui.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&r.ui));
    QTest::qWait(250);
    QTableWidget* t = r.table();
    ASSERT_EQ(t->columnCount(), 5);
    const QImage shot = t->viewport()->grab().toImage();
    const int x = t->columnViewportPosition(2);
    const int y = t->rowViewportPosition(1) + t->rowHeight(1) / 2;
    EXPECT_EQ(QColor(shot.pixel(x, y)), QColor("#d1d2d7"));
    // Also in a row that has no item at all.
    EXPECT_EQ(cell(t, 5, 2), "<none>");
    const int y5 = t->rowViewportPosition(5) + t->rowHeight(5) / 2;
    EXPECT_EQ(QColor(shot.pixel(x, y5)), QColor("#d1d2d7"));
}
