// From the Data Table menu entry to a filled table, through the controller,
// for an array far larger than any request may be, served lazily by the fake
// debugger.
#include "tablehelpers.h"

#include "plugin/arraylensconstants.h"

#include <gtest/gtest.h>

using tabletest::cell;
using tabletest::LazyArray;

namespace {

// A table widget keeps one item pointer per cell in a single vector, so the
// array must fit that: 100,000 rows by 100 columns.
constexpr int ROWS = 100000;
constexpr int COLS = 100;

struct Road {
    Road() : array(ROWS, COLS) {
        array.serve(r.debugger());
        // Statistics report the whole array's slice as the empty slice.
        r.debugger().respond(rig::STATS_REQUEST, [this](const QObject& request) {
            return QVariantMap{{"result", "done"},
                               {"Array", request.property("Expression")},
                               {"EmptySlice", array.defaultSlice()},
                               {"Count", 0}};
        });
        r.ui->resize(500, 400);
        r.ui->show();
        exposed = QTest::qWaitForWindowExposed(r.ui);
        r.connectDebugger();
    }
    Data2DTableUI* table() { return r.ui->data2DTableUI; }
    QTableWidget* widget() { return table()->table; }
    int requests() const { return r.sentCount(rig::TABLE_REQUEST); }
    bool idle() {
        return fake::waitFor(
            [&] { return !table()->requestPending && !table()->viewportTimer->isActive(); });
    }
    // The most cells one request may name: the rows and columns that the
    // table's size allows, with the margins on both sides and the pull-back.
    int largestViewport() {
        const QRect contents = widget()->contentsRect();
        return (contents.height() / 20 + 17) * (contents.width() / 20 + 17);
    }
    void pickDataTableFromTheMenu() {
        r.core.commands.trigger(QString::fromLatin1(HVUI::Constants::ARRAY2DTABLE_COMMAND),
                                QSharedPointer<NQ::ICmdExecutionEvent>(new fake::CmdEvent));
    }

    rig::Rig r;
    LazyArray array;
    bool exposed = false;
};

} // namespace

TEST(TableRoad, TheDataTableMenuEntryShowsTheFirstViewportOfAHugeArray) {
    Road road;
    ASSERT_TRUE(road.exposed);
    IHVExpression* held = road.r.bringIn(
        road.r.makeExpression("big", QStringLiteral("int[%1][%2]").arg(ROWS).arg(COLS)));
    ASSERT_NE(held, nullptr);
    ASSERT_EQ(road.r.combo()->count(), 1);

    road.pickDataTableFromTheMenu();
    ASSERT_TRUE(fake::waitFor([&] { return road.requests() >= 1; }));
    ASSERT_TRUE(road.idle());
    EXPECT_EQ(road.r.page(), 3);
    EXPECT_EQ(road.r.ui->displayMode, 3);

    QTableWidget* w = road.widget();
    EXPECT_EQ(w->rowCount(), ROWS);
    EXPECT_EQ(w->columnCount(), COLS);
    // Raising the page resizes the table, which may ask once more for the
    // same place; the first request is the one of showData2DTable.
    ASSERT_GE(road.array.asked.size(), 1);
    ASSERT_LE(road.array.asked.size(), 2);
    for (const tabletest::Asked& a : road.array.asked)
        EXPECT_LE(a.cells(), road.largestViewport());
    const tabletest::Asked first = road.array.asked.first();
    EXPECT_EQ(first.expression, "big");
    EXPECT_EQ(first.startRow, 0);
    EXPECT_EQ(first.startCol, 0);
    EXPECT_LE(first.cells(), road.largestViewport());
    EXPECT_EQ(cell(w, 0, 0), "0.0");
    EXPECT_EQ(cell(w, first.endRow, first.endCol), LazyArray::value(first.endRow, first.endCol, 0));
    EXPECT_EQ(cell(w, first.endRow + 1, 0), "<none>");
    EXPECT_EQ(w->verticalHeaderItem(0)->text(), "[ i ]:0");
    EXPECT_EQ(w->horizontalHeaderItem(0)->text(), "[ j ]:0");
    EXPECT_EQ(w->verticalHeaderItem(5)->text(), "5");
    // The controller took the success: the table's configuration is held.
    ASSERT_NE(road.r.ui->currentConfig, nullptr);
    EXPECT_EQ(road.r.ui->currentConfig->slice, road.array.defaultSlice());
}

TEST(TableRoad, AScrollToTheBottomRightAsksOnlyForTheCellsAroundTheNewViewport) {
    Road road;
    ASSERT_TRUE(road.exposed);
    road.r.bringIn(road.r.makeExpression("big", QStringLiteral("int[%1][%2]").arg(ROWS).arg(COLS)));
    road.pickDataTableFromTheMenu();
    ASSERT_TRUE(fake::waitFor([&] { return road.requests() >= 1; }));
    ASSERT_TRUE(road.idle());
    QTableWidget* w = road.widget();

    w->verticalScrollBar()->setValue(w->verticalScrollBar()->maximum());
    w->horizontalScrollBar()->setValue(w->horizontalScrollBar()->maximum());
    ASSERT_TRUE(fake::waitFor([&] { return road.requests() >= 2; }));
    ASSERT_TRUE(road.idle());
    fake::waitFor([] { return false; }, 300);
    ASSERT_TRUE(road.idle());

    const tabletest::Asked corner = road.array.asked.last();
    EXPECT_EQ(corner.endRow, ROWS - 1);
    EXPECT_EQ(corner.endCol, COLS - 1);
    EXPECT_GT(corner.startRow, ROWS - 100);
    EXPECT_EQ(cell(w, ROWS - 1, COLS - 1), LazyArray::value(ROWS - 1, COLS - 1, 0));
    EXPECT_EQ(w->verticalHeaderItem(ROWS - 1)->text(), QString::number(ROWS - 1));
    // Nothing between the two corners was ever asked for.
    EXPECT_EQ(cell(w, ROWS / 2, 0), "<none>");
    int total = 0;
    for (const tabletest::Asked& a : road.array.asked) {
        EXPECT_TRUE(a.usingViewPort);
        EXPECT_LE(a.cells(), road.largestViewport())
            << a.startRow << ".." << a.endRow << " x " << a.startCol << ".." << a.endCol;
        total += a.cells();
    }
    EXPECT_LE(total, int(road.array.asked.size()) * road.largestViewport());
    EXPECT_LE(road.array.asked.size(), 3);
}

TEST(TableRoad, ALateAnswerAfterAFurtherScrollIsLaidInAndFollowedByExactlyOneRequest) {
    Road road;
    ASSERT_TRUE(road.exposed);
    road.r.bringIn(road.r.makeExpression("big", QStringLiteral("int[%1][%2]").arg(ROWS).arg(COLS)));
    road.pickDataTableFromTheMenu();
    ASSERT_TRUE(fake::waitFor([&] { return road.requests() >= 1; }));
    ASSERT_TRUE(road.idle());
    QTableWidget* w = road.widget();
    QScrollBar* vbar = w->verticalScrollBar();

    road.r.debugger().hold(rig::TABLE_REQUEST);
    vbar->setValue(vbar->maximum());
    w->horizontalScrollBar()->setValue(w->horizontalScrollBar()->maximum());
    ASSERT_TRUE(fake::waitFor([&] { return road.requests() == 2; }));
    // The user scrolls on before the answer is in.
    vbar->setValue(ROWS / 2);
    ASSERT_TRUE(fake::waitFor([&] { return road.table()->updatePending; }));
    fake::waitFor([] { return false; }, 250);
    EXPECT_EQ(road.requests(), 2);

    road.r.debugger().hold(rig::TABLE_REQUEST, false);
    road.r.debugger().answerHeldWithResponder();
    ASSERT_TRUE(fake::waitFor([&] { return road.requests() == 3; }));
    ASSERT_TRUE(road.idle());
    fake::waitFor([] { return false; }, 400);
    EXPECT_EQ(road.requests(), 3);
    // The late answer's corner is in the table ...
    EXPECT_EQ(cell(w, ROWS - 1, COLS - 1), LazyArray::value(ROWS - 1, COLS - 1, 0));
    // ... and the one new request was for where the view now stands.
    const tabletest::Asked next = road.array.asked.last();
    EXPECT_EQ(next.startRow, ROWS / 2 - 8);
    EXPECT_LE(next.cells(), road.largestViewport());
    EXPECT_EQ(cell(w, ROWS / 2, next.endCol), LazyArray::value(ROWS / 2, next.endCol, 0));
}
