// The Data Table's set-up: from showData2DTable through the array
// information to the first table request, the bounds texts, the default
// size and the header labels.
#include "statistics/objecttracker.h"
#include "tablehelpers.h"

#include <QFile>
#include <QGridLayout>
#include <gtest/gtest.h>

using tabletest::cell;
using tabletest::TableRig;

namespace {

// The flags of the one array information request that is open.
Data2DTableWatcher* openInfoWatcher(tracking::ObjectTracker& tracker) {
    const auto watchers = tracker.liveOf<Data2DTableWatcher>();
    return watchers.size() == 1 ? watchers.first() : nullptr;
}

} // namespace

TEST(TableSetup, FormIsBuiltInCodeWithItsNamesAndProperties) {
    TableRig t(50, 40);
    EXPECT_EQ(t.table.objectName(), "data2DTableForm");
    QWidget* form = t.table.findChild<QWidget*>("data2DTableWidget");
    ASSERT_EQ(form, t.widget());
    EXPECT_NE(t.table.findChild<QGridLayout*>("gridLayout"), nullptr);
    EXPECT_FALSE(t.widget()->wordWrap());
    EXPECT_EQ(t.widget()->property("style").toString(), "DataTable");
    EXPECT_EQ(t.widget()->horizontalHeader()->property("style").toString(), "DataTable");
    EXPECT_EQ(t.widget()->verticalHeader()->defaultAlignment(), Qt::AlignCenter);
    EXPECT_FALSE(t.vbar()->hasTracking());
    EXPECT_FALSE(t.hbar()->hasTracking());
    EXPECT_EQ(t.widget()->sizeAdjustPolicy(), QAbstractScrollArea::AdjustToContents);
    EXPECT_EQ(t.table.productName, "Halvane");
    EXPECT_EQ(t.table.rowDim, 0);
    EXPECT_EQ(t.table.colDim, 1);
    EXPECT_EQ(t.table.dataFormat, al_pres_default);
    EXPECT_EQ(t.table.dataType, al_type_other);
    EXPECT_TRUE(t.table.debuggerReady);
    // The form's source travels with the other forms among the resources.
    EXPECT_TRUE(QFile::exists(":/arraylens/ui/data2DTableForm.ui"));
    EXPECT_TRUE(QFile::exists(":/arraylens/ui/statistics.ui"));
}

TEST(TableSetup, NothingIsRequestedBeforeTheDebuggerIsReady) {
    rig::Rig r;
    Data2DTableUI table(r.view, nullptr);
    fake::Expression* e = r.makeExpression("a");
    table.showData2DTable(e, nullptr, QString(), QString());
    EXPECT_TRUE(r.debugger().sent.isEmpty());
    EXPECT_FALSE(table.requestPending);
}

TEST(TableSetup, SameExpressionTypeSliceAndFormatKeepTheTableForceNoSetupAndKeepTheColumnWidth) {
    TableRig t(1000, 50);
    ASSERT_TRUE(t.showFirst());
    ASSERT_FALSE(t.reported.configs.isEmpty());
    const Config2DTable same = *t.reported.configs.last();
    ASSERT_EQ(same.slice, t.table.currentSlice);
    ASSERT_EQ(same.dataPres, t.table.dataFormat);

    // The user has moved on and set a column width of his own.
    t.vbar()->setValue(400);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    t.widget()->horizontalHeader()->setDefaultSectionSize(77);
    QTableWidgetItem* kept = t.widget()->item(400, 0);
    ASSERT_NE(kept, nullptr);

    // Values far wider than that would change the default if the columns
    // were to be fitted again.
    t.array.width = 40;
    tracking::ObjectTracker tracker;
    t.r.debugger().hold(rig::INFO_REQUEST);
    Config2DTable copy(same);
    t.table.showData2DTable(t.expression, &copy, QString(), QString());
    Data2DTableWatcher* watcher = openInfoWatcher(tracker);
    ASSERT_NE(watcher, nullptr);
    EXPECT_FALSE(watcher->forceSetup);
    EXPECT_FALSE(watcher->boundsOnly);
    EXPECT_FALSE(t.table.resizeColumns);
    t.r.debugger().hold(rig::INFO_REQUEST, false);
    t.r.debugger().answerHeldWithResponder();
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 3; }));
    ASSERT_TRUE(t.idle());

    // Not forced: the request is for where the view stands, not the top.
    EXPECT_EQ(t.array.asked.last().startRow, 400 - 8);
    EXPECT_EQ(t.widget()->item(400, 0)->text(), tabletest::LazyArray::value(400, 0, 40));
    EXPECT_EQ(t.widget()->rowCount(), 1000);
    EXPECT_EQ(t.widget()->horizontalHeader()->defaultSectionSize(), 77);
}

TEST(TableSetup, SameExpressionWithAnotherSliceForcesSetupButLeavesResizeColumnsAsItWas) {
    TableRig t(100, 50);
    ASSERT_TRUE(t.showFirst());
    Config2DTable other = *t.reported.configs.last();
    other.slice = "[0:49:1][0:49:1]";

    for (bool resizeBefore : {false, true}) {
        t.table.resizeColumns = resizeBefore;
        tracking::ObjectTracker tracker;
        t.r.debugger().hold(rig::INFO_REQUEST);
        Config2DTable copy(other);
        t.table.showData2DTable(t.expression, &copy, QString(), QString());
        Data2DTableWatcher* watcher = openInfoWatcher(tracker);
        ASSERT_NE(watcher, nullptr);
        EXPECT_TRUE(watcher->forceSetup);
        EXPECT_EQ(t.table.resizeColumns, resizeBefore);
        EXPECT_EQ(t.table.currentSlice, other.slice);
        t.r.debugger().hold(rig::INFO_REQUEST, false);
        t.r.debugger().answerHeldWithResponder();
        ASSERT_TRUE(t.idle());
        EXPECT_EQ(t.array.asked.last().slice, other.slice);
        other.slice = "[0:9:1][0:49:1]";
    }
}

TEST(TableSetup, NullConfigUsesDefaultDimensionsThatSetupDefaultTableReplaces) {
    TableRig t(1, 1);
    // A three-dimensional array: C order shows its last two dimensions.
    t.r.debugger().respond(rig::INFO_REQUEST, [](const QObject& request) {
        return QVariantMap{{"result", "done"},
                           {"ArrayName", request.property("Expression")},
                           {"DimCount", 3},
                           {"ArrayBounds", QStringList{"0:3", "0:9", "0:19"}}};
    });
    t.r.debugger().hold(rig::TABLE_REQUEST);
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 1; }));
    EXPECT_EQ(t.table.rowDim, -1);
    EXPECT_EQ(t.table.colDim, -1);
    const QVariantMap sent = t.r.lastSent(rig::TABLE_REQUEST);
    EXPECT_EQ(sent.value("RowDim").toInt(), -1);
    EXPECT_EQ(sent.value("ColDim").toInt(), -1);
    // Sized by dimensions 1 and 2 while the answer is awaited.
    EXPECT_EQ(t.widget()->rowCount(), 10);
    EXPECT_EQ(t.widget()->columnCount(), 20);
    EXPECT_EQ(sent.value("TableEndRow").toInt(), 9);
    EXPECT_EQ(sent.value("TableEndCol").toInt(), 19);

    // Fortran order takes the first two instead.
    t.table.useBrackets = false;
    t.table.setupDefaultTable();
    EXPECT_EQ(t.widget()->rowCount(), 4);
    EXPECT_EQ(t.widget()->columnCount(), 10);
}

TEST(TableSetup, ParseBoundsOfColonAloneAndOfAFullTriple) {
    TableRig t(1, 1);
    int lower = -9, upper = -9, stride = -9;
    t.table.parseBounds(":", &lower, &upper, &stride);
    EXPECT_EQ(lower, 0);
    EXPECT_EQ(upper, 0);
    EXPECT_EQ(stride, 1);
    t.table.parseBounds("1:10:2", &lower, &upper, &stride);
    EXPECT_EQ(lower, 1);
    EXPECT_EQ(upper, 10);
    EXPECT_EQ(stride, 2);
    // Without a colon the text is the upper bound.
    t.table.parseBounds("5", &lower, &upper, &stride);
    EXPECT_EQ(lower, 0);
    EXPECT_EQ(upper, 5);
    EXPECT_EQ(stride, 1);
    t.table.parseBounds("-3:4", &lower, &upper, &stride);
    EXPECT_EQ(lower, -3);
    EXPECT_EQ(upper, 4);
    EXPECT_EQ(stride, 1);
}

TEST(TableSetup, AdjustCountForStrideRoundsAwayFromZeroAndIgnoresAZeroStride) {
    TableRig t(1, 1);
    EXPECT_EQ(t.table.adjustCountForStride(10, 3), 4);
    EXPECT_EQ(t.table.adjustCountForStride(10, -3), 4);
    EXPECT_EQ(t.table.adjustCountForStride(9, -3), 3);
    EXPECT_EQ(t.table.adjustCountForStride(7, 0), 7);
}

TEST(TableSetup, OneDimensionalArrayGivesTheMultiDimErrorWithNameAndTypeAndNoTableRequest) {
    TableRig t(10, 1);
    t.array.dimCount = 1;
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return !t.reported.errors.isEmpty(); }));
    t.settle(50);
    EXPECT_EQ(t.reported.errors.first(),
              "The Data Table requires a two or more dimensional array.\nArray: big Type: "
              "int[10][1]");
    EXPECT_EQ(t.tableRequests(), 0);
    EXPECT_FALSE(t.table.requestPending);
    EXPECT_EQ(t.r.ui->currentDimCount, 1);
}

TEST(TableSetup, DimensionBeyondTheLastLetterIsLabelledByItsNumber) {
    TableRig t(1, 1);
    t.table.setTableHeaderLabels(17, 1, 0, 2, 3, 18, 1, 0, 2, 3, false, 0, 0, 0, 0);
    EXPECT_EQ(t.widget()->verticalHeaderItem(0)->text(), "[ z ]:0");
    EXPECT_EQ(t.widget()->horizontalHeaderItem(0)->text(), "[ 18 ]:0");
    t.table.setTableHeaderLabels(40, 1, 0, 2, 3, 0, 1, 0, 2, 3, false, 0, 0, 0, 0);
    EXPECT_EQ(t.widget()->verticalHeaderItem(0)->text(), "[ 40 ]:0");
    EXPECT_EQ(t.widget()->horizontalHeaderItem(0)->text(), "[ i ]:0");
}

TEST(TableSetup, StrideTwoFromLowerBoundOneLabelsRowsI1Then3Then5) {
    TableRig t(1, 1);
    t.table.setTableHeaderLabels(0, 2, 1, 9, 5, 1, 1, 0, 3, 4, false, 0, 0, 0, 0);
    QTableWidget* w = t.widget();
    ASSERT_EQ(w->rowCount(), 5);
    ASSERT_EQ(w->columnCount(), 4);
    EXPECT_EQ(w->verticalHeaderItem(0)->text(), "[ i ]:1");
    EXPECT_EQ(w->verticalHeaderItem(1)->text(), "3");
    EXPECT_EQ(w->verticalHeaderItem(2)->text(), "5");
    EXPECT_EQ(w->verticalHeaderItem(4)->text(), "9");
    EXPECT_EQ(w->horizontalHeaderItem(0)->text(), "[ j ]:0");
    EXPECT_EQ(w->horizontalHeaderItem(3)->text(), "3");
    // Fortran labels use parentheses.
    t.table.useBrackets = false;
    t.table.setTableHeaderLabels(0, 2, 1, 9, 5, 1, 1, 0, 3, 4, false, 0, 0, 0, 0);
    EXPECT_EQ(w->verticalHeaderItem(0)->text(), "( i ):1");
}

TEST(TableSetup, ViewportLabelsStartAtTheViewportAndCountFromTheLowerBound) {
    TableRig t(1, 1);
    t.table.setTableHeaderLabels(0, 3, 10, 400, 100, 1, -1, 0, 50, 50, true, 20, 25, 0, 4);
    QTableWidget* w = t.widget();
    EXPECT_EQ(w->verticalHeaderItem(0)->text(), "[ i ]:10");
    EXPECT_EQ(w->verticalHeaderItem(20)->text(), "70");
    EXPECT_EQ(w->verticalHeaderItem(25)->text(), "85");
    EXPECT_EQ(w->verticalHeaderItem(26), nullptr);
    EXPECT_EQ(w->verticalHeaderItem(19), nullptr);
    // Negative stride with ascending bounds starts below the upper bound.
    EXPECT_EQ(w->horizontalHeaderItem(0)->text(), "[ j ]:49");
    EXPECT_EQ(w->horizontalHeaderItem(1)->text(), "48");
}

TEST(TableSetup, ParseOtherDimIndexListGivesTheFirstIndexOfEachDimension) {
    TableRig t(1, 1);
    EXPECT_EQ(t.table.parseOtherDimIndexList("[1:10][3][0:5:2]"), (QList<int>{1, 3, 0}));
    EXPECT_EQ(t.table.parseOtherDimIndexList("(2:10,4,:)"), (QList<int>{2, 4, 0}));
}

TEST(TableSetup, ArrayInformationErrorsKeepOrDropTheFailedPrefixByTheWordCancel) {
    TableRig t(10, 10);
    t.r.debugger().respond(rig::INFO_REQUEST,
                           QVariantMap{{"result", "error"}, {"msg", "bad expression"}});
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return t.reported.errors.size() == 1; }));
    EXPECT_EQ(t.reported.errors[0], "FAILED to access array data. \nbad expression");
    t.r.debugger().respond(rig::INFO_REQUEST,
                           QVariantMap{{"result", "error"}, {"msg", "request was cancelled"}});
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return t.reported.errors.size() == 2; }));
    EXPECT_EQ(t.reported.errors[1], "request was cancelled");
    // "Cancel" with a capital is no cancellation.
    t.r.debugger().respond(rig::INFO_REQUEST,
                           QVariantMap{{"result", "error"}, {"msg", "Canceled"}});
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return t.reported.errors.size() == 3; }));
    EXPECT_EQ(t.reported.errors[2], "FAILED to access array data. \nCanceled");
    EXPECT_FALSE(t.table.requestPending);
    EXPECT_EQ(t.tableRequests(), 0);
}

TEST(TableSetup, ARemoteClientNotYetConnectedNamesTheProgressDialogAfterTheRemoteClient) {
    rig::Rig r;
    r.core.corePlugin.remoteClient = true;
    Data2DTableUI remote(r.view, nullptr);
    EXPECT_EQ(remote.productName, "Halvane Remote Client");
    r.connectDebugger();
    Data2DTableUI connected(r.view, nullptr);
    EXPECT_EQ(connected.productName, "Halvane");
}
