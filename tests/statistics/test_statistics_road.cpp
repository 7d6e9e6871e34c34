// From Return in the toolbar's combo box to a filled statistics table,
// through the controller, against the fake debugger.
#include "controller/rig.h"
#include "statshelpers.h"

#include <QTest>
#include <gtest/gtest.h>

using rig::Rig;
using statstest::cell;

TEST(StatisticsRoad, ReturnOnAnExpressionShowsItsStatisticsAndTheComboHoldsIt) {
    Rig r;
    r.connectDebugger();
    r.debugger().setEvaluator([](fake::Expression& e, IHVFrame*) { e.type = "double[10]"; });
    r.debugger().respond(rig::INFO_REQUEST, [](const QObject& request) {
        return QVariantMap{{"result", "done"},
                           {"ArrayName", request.property("Expression")},
                           {"DimCount", 1},
                           {"EmptySlice", "[:]"},
                           {"ArrayBounds", QStringList{"0:9"}}};
    });
    QString askedFor;
    r.debugger().respond(rig::STATS_REQUEST, [&](const QObject& request) {
        askedFor = request.property("Expression").toString();
        QVariantMap answer = statstest::goodAnswer();
        answer["Array"] = request.property("Expression");
        return answer;
    });

    QLineEdit* edit = r.combo()->lineEdit();
    edit->clear();
    QTest::keyClicks(r.combo(), "samples");
    QTest::keyClick(r.combo(), Qt::Key_Return);

    ASSERT_TRUE(fake::waitFor([&] { return r.combo()->count() == 1; }, 3000));
    EXPECT_EQ(askedFor, "samples");
    EXPECT_EQ(r.combo()->itemText(0), "samples");
    EXPECT_EQ(r.page(), 1);
    StatisticsUI* page = r.ui->statisticsUI;
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(r.ui->stack->currentWidget(), page);

    QTableWidget* t = page->statisticsTable_;
    ASSERT_NE(t, nullptr);
    // The page is not on screen, so the table is narrow: one pair of
    // columns, all sixteen statistics under each other.
    ASSERT_EQ(t->columnCount(), 2);
    ASSERT_EQ(t->rowCount(), 16);
    const QStringList labels{"Checksum",
                             "Count",
                             "Zero Count",
                             "Sum",
                             "Minimum",
                             "Maximum",
                             "Median",
                             "Mean",
                             "Standard Deviation",
                             "First Quartile",
                             "Third Quartile",
                             "Lower Adjacent Value",
                             "Upper Adjacent Value",
                             "Nan Count",
                             "Infinity Count",
                             "Denormalzized Count"};
    const QStringList values{"987654321012", "10",   "1",    "45.5", "0",    "9.5", "4.5", "4.55",
                             "2.75",         "2.25", "6.75", "0.5",  "9.25", "2",   "3",   "4"};
    for (int row = 0; row < 16; ++row) {
        EXPECT_EQ(cell(t, row, 0), labels.at(row)) << row;
        EXPECT_EQ(cell(t, row, 1), values.at(row)) << row;
    }
}
