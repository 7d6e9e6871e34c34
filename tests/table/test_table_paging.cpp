// The Data Table's paging: which cells a request names, how scrolls and
// resizes turn into requests, how answers that arrive late are dealt with,
// and the progress dialog of large answers.
#include "statistics/objecttracker.h"
#include "tablehelpers.h"

#include <QAbstractItemModel>
#include <QElapsedTimer>
#include <algorithm>
#include <gtest/gtest.h>

using tabletest::cell;
using tabletest::DialogWatch;
using tabletest::TableRig;

// ---- timers --------------------------------------------------------------------

TEST(TablePaging, AGrowingWindowRequestsTheEnlargedViewport150MsAfterTheResize) {
    TableRig t(1000, 1000, QSize(300, 200));
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    // The first request guessed the columns; one from where the view
    // stands counts those really on screen, as the one after the resize will.
    t.table.updateViewportData();
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    const tabletest::Asked before = t.array.asked.last();

    QElapsedTimer clock;
    clock.start();
    t.table.resize(700, 500);
    QTest::qWait(60);
    EXPECT_EQ(t.table.viewportTimer->interval(), 150);
    // The timer cannot have run yet, unless this machine stalled.
    if (clock.elapsed() < 130) {
        EXPECT_EQ(t.tableRequests(), 2);
    }
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 3; }));
    EXPECT_GE(clock.elapsed(), 135); // a coarse timer may run 5 % early
    const tabletest::Asked after = t.array.asked.last();
    EXPECT_EQ(after.startRow, 0);
    EXPECT_EQ(after.startCol, 0);
    EXPECT_GT(after.endRow, before.endRow);
    EXPECT_GT(after.endCol, before.endCol);
    EXPECT_EQ(after.endRow, t.visibleRows() + 16);
}

TEST(TablePaging, AShrinkingWindowAlsoRequestsItsViewport) {
    TableRig t(1000, 1000, QSize(700, 500));
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    // The first request guessed the columns; one from where the view
    // stands counts those really on screen, as the one after the resize will.
    t.table.updateViewportData();
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    const tabletest::Asked before = t.array.asked.last();

    QElapsedTimer clock;
    clock.start();
    t.table.resize(300, 200);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 3; }));
    EXPECT_GE(clock.elapsed(), 135);
    const tabletest::Asked after = t.array.asked.last();
    EXPECT_LT(after.endRow, before.endRow);
    EXPECT_LT(after.endCol, before.endCol);
    ASSERT_TRUE(t.idle());
    EXPECT_EQ(t.tableRequests(), 3);
}

TEST(TablePaging, AScrollRequestsItsViewport100MsAfterTheLastChange) {
    TableRig t(1000, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());

    QElapsedTimer clock;
    qint64 longestGap = 0;
    qint64 sentAfter = -1;
    for (int row : {100, 200, 300}) {
        if (clock.isValid())
            longestGap = std::max(longestGap, clock.elapsed());
        clock.start();
        t.vbar()->setValue(row);
        EXPECT_TRUE(t.table.viewportTimer->isActive());
        EXPECT_EQ(t.table.viewportTimer->interval(), 100);
        QTest::qWait(20);
    }
    ASSERT_TRUE(fake::waitFor([&] {
        if (sentAfter < 0 && t.tableRequests() > 1)
            sentAfter = clock.elapsed();
        return t.array.asked.size() > 1 && t.array.asked.last().startRow == 300 - 8;
    }));
    EXPECT_GE(sentAfter, 90); // a coarse timer may run 5 % early
    ASSERT_TRUE(t.idle());
    // One request for the burst, for where the view ended, unless the
    // machine stalled between two scrolls for longer than the delay.
    if (longestGap < 90) {
        EXPECT_EQ(t.tableRequests(), 2);
    }
    EXPECT_EQ(t.array.asked.last().startRow, 300 - 8);
    EXPECT_EQ(t.array.asked.last().endRow, 300 + t.visibleRows() + 8);
}

// ---- late answers ----------------------------------------------------------------

TEST(TablePaging, NoRequestIsSentWhileOneIsOpenAndTheScrollSetsUpdatePending) {
    TableRig t(1000, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    t.r.debugger().hold(rig::TABLE_REQUEST);
    t.vbar()->setValue(100);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.table.requestPending);
    ASSERT_FALSE(t.table.updatePending);

    // The horizontal bar does not even start the timer while a request is
    // open; the vertical one does, and its timer ends in updatePending.
    t.hbar()->setValue(30);
    EXPECT_FALSE(t.table.viewportTimer->isActive());
    EXPECT_FALSE(t.table.updatePending);
    t.vbar()->setValue(500);
    EXPECT_TRUE(t.table.viewportTimer->isActive());
    // Long enough for every timer to have run out.
    t.settle(400);
    EXPECT_EQ(t.tableRequests(), 2);
    EXPECT_TRUE(t.table.updatePending);
    EXPECT_TRUE(t.table.requestPending);
}

TEST(TablePaging, AScrollOutsideTheOpenRequestLaysTheAnswerInThenRequestsTheNewPlace) {
    TableRig t(1000, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    t.r.debugger().hold(rig::TABLE_REQUEST);
    t.vbar()->setValue(100);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    t.vbar()->setValue(600);
    ASSERT_TRUE(fake::waitFor([&] { return t.table.updatePending; }));

    t.r.debugger().hold(rig::TABLE_REQUEST, false);
    t.r.debugger().answerHeldWithResponder();
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 3; }));
    ASSERT_TRUE(t.idle());
    t.settle(300);
    EXPECT_EQ(t.tableRequests(), 3);
    // The late answer's cells were laid in all the same.
    EXPECT_EQ(cell(t.widget(), 100, 0), "100.0");
    EXPECT_EQ(cell(t.widget(), 92, 3), "92.3");
    EXPECT_EQ(t.array.asked[2].startRow, 600 - 8);
    EXPECT_EQ(cell(t.widget(), 600, 0), "600.0");
    EXPECT_FALSE(t.table.updatePending);
}

TEST(TablePaging, AScrollInsideTheOpenRequestLaysTheAnswerInAndRequestsNothingMore) {
    TableRig t(1000, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    t.r.debugger().hold(rig::TABLE_REQUEST);
    t.vbar()->setValue(100);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    // Still within the rows 92 to 100 + visible + 8 of the open request.
    t.vbar()->setValue(104);
    ASSERT_TRUE(fake::waitFor([&] { return t.table.updatePending; }));

    t.r.debugger().hold(rig::TABLE_REQUEST, false);
    t.r.debugger().answerHeldWithResponder();
    ASSERT_TRUE(fake::waitFor([&] { return !t.table.requestPending; }));
    ASSERT_TRUE(t.idle());
    t.settle(300);
    EXPECT_EQ(t.tableRequests(), 2);
    EXPECT_FALSE(t.table.updatePending);
    EXPECT_EQ(cell(t.widget(), 104, 0), "104.0");
}

TEST(TablePaging, AtTheRightEndTheBarIsSetBackToItsMaximumAfterColumnsWiden) {
    TableRig t(40, 300);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    // Narrow columns by default; the values at the right end are wide.
    t.widget()->horizontalHeader()->setDefaultSectionSize(40);
    t.array.width = 24;
    QCoreApplication::processEvents();
    QScrollBar* bar = t.hbar();
    const int oldMaximum = bar->maximum();
    bar->setValue(oldMaximum);
    EXPECT_TRUE(t.table.pinnedRight);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    EXPECT_EQ(t.array.asked.last().endCol, 299);
    // The last columns are wider now, fewer of them fit: the end moved out.
    EXPECT_GT(bar->maximum(), oldMaximum);
    EXPECT_EQ(bar->value(), bar->maximum());
    EXPECT_TRUE(t.table.pinnedRight);
    // The last column stands wholly in view.
    QTableWidget* w = t.widget();
    EXPECT_GE(w->columnViewportPosition(299), 0);
    EXPECT_LE(w->columnViewportPosition(299) + w->columnWidth(299), w->viewport()->width());
}

// ---- progress dialog ---------------------------------------------------------------

TEST(TablePaging, ExactlyTwoThousandElementsGetNoDialogAndTwoThousandAndOneDo) {
    {
        TableRig t(100, 200);
        t.array.forcedCount = 2000;
        DialogWatch dialogs;
        ASSERT_TRUE(t.showFirst());
        EXPECT_EQ(dialogs.shown, 0);
        EXPECT_EQ(tabletest::itemCount(t.widget(), 100, 200), 2000);
    }
    {
        TableRig t(100, 200);
        t.array.forcedCount = 2001;
        DialogWatch dialogs;
        ASSERT_TRUE(t.showFirst());
        ASSERT_GE(dialogs.shown, 1);
        EXPECT_EQ(dialogs.labels.first(), "Setting up 100 rows in the Data Table.   ");
        EXPECT_EQ(dialogs.titles.first(), "Halvane");
        EXPECT_TRUE(dialogs.modal);
        EXPECT_EQ(dialogs.minimumWidth, 400);
        EXPECT_EQ(tabletest::itemCount(t.widget(), 100, 200), 2001);
        EXPECT_EQ(t.table.progressDialog, nullptr);
        EXPECT_EQ(t.reported.cancels.last(), false);
    }
}

TEST(TablePaging, ProgressStepIsOneUpTo100ThenATenthUpTo4000ThenAHundredth) {
    EXPECT_EQ(Data2DTableUI::progressStep(100), 1);
    EXPECT_EQ(Data2DTableUI::progressStep(101), 10);
    EXPECT_EQ(Data2DTableUI::progressStep(4000), 400);
    EXPECT_EQ(Data2DTableUI::progressStep(4001), 40);
}

TEST(TablePaging, CancelingTheFillShowsCanceledAndKeepsTheCellsStoredSoFar) {
    TableRig t(100, 200);
    t.array.forcedCount = 3000;
    const QString sliceBefore = t.table.currentSlice;
    // The user presses Cancel when 500 cells are in.
    int stored = 0;
    QString labelWhileFilling;
    int maximumWhileFilling = -1;
    QObject::connect(t.widget()->model(), &QAbstractItemModel::dataChanged, [&] {
        if (++stored == 500 && t.table.progressDialog) {
            labelWhileFilling = t.table.progressDialog->labelText();
            maximumWhileFilling = t.table.progressDialog->maximum();
            t.table.progressDialog->cancel();
        }
    });
    QString labelWhileColumns;
    QObject::connect(t.widget()->model(), &QAbstractItemModel::headerDataChanged,
                     [&](Qt::Orientation orientation, int first) {
                         if (orientation == Qt::Horizontal && first == 1 && t.table.progressDialog)
                             labelWhileColumns = t.table.progressDialog->labelText();
                     });
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return !t.reported.successes.isEmpty(); }));
    EXPECT_EQ(t.reported.order, (QStringList{"error", "success"}));
    EXPECT_EQ(t.reported.errors.first(), "Array data display canceled.");
    EXPECT_TRUE(t.reported.cancels.first());
    EXPECT_EQ(tabletest::itemCount(t.widget(), 100, 200), 500);
    EXPECT_EQ(cell(t.widget(), 2, 99), "2.99");
    EXPECT_EQ(cell(t.widget(), 2, 100), "<none>");
    EXPECT_EQ(t.table.currentSlice, sliceBefore);
    EXPECT_FALSE(t.table.requestPending);
    EXPECT_FALSE(t.table.updatePending);
    EXPECT_EQ(t.table.progressDialog, nullptr);
    EXPECT_EQ(labelWhileColumns, "Setting up 200 columns in the Data Table.");
    EXPECT_EQ(labelWhileFilling, "Formatting 3000 array elements for the Data Table.");
    EXPECT_EQ(maximumWhileFilling, 3000);
}

TEST(TablePaging, CancelingDuringTheRowLabelsStoresNoItemKeepsTheLabelsAndTheSlice) {
    TableRig t(100, 200);
    t.array.forcedCount = 2500;
    const QString sliceBefore = t.table.currentSlice;
    int labelled = 0;
    QObject::connect(t.widget()->model(), &QAbstractItemModel::headerDataChanged,
                     [&](Qt::Orientation orientation) {
                         if (orientation == Qt::Vertical && ++labelled == 4 &&
                             t.table.progressDialog)
                             t.table.progressDialog->cancel();
                     });
    t.table.showData2DTable(t.expression, nullptr, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return !t.reported.successes.isEmpty(); }));
    EXPECT_EQ(t.reported.errors.first(), "Array data display canceled.");
    EXPECT_TRUE(t.reported.cancels.first());
    EXPECT_EQ(tabletest::itemCount(t.widget(), 100, 200), 0);
    QTableWidget* w = t.widget();
    EXPECT_EQ(w->verticalHeaderItem(0)->text(), "[ i ]:0");
    EXPECT_EQ(w->verticalHeaderItem(3)->text(), "3");
    EXPECT_EQ(w->verticalHeaderItem(4), nullptr);
    EXPECT_EQ(t.table.currentSlice, sliceBefore);
    EXPECT_NE(t.table.responseSlice, sliceBefore);
    EXPECT_EQ(t.table.progressDialog, nullptr);
    EXPECT_FALSE(t.table.requestPending);
}

// ---- viewport --------------------------------------------------------------------

TEST(TablePaging, ATableSmallerThanTheViewportIsRequestedWhole) {
    TableRig t(5, 4);
    ASSERT_TRUE(t.showFirst());
    ASSERT_EQ(t.array.asked.size(), 1);
    const tabletest::Asked a = t.array.asked.first();
    EXPECT_TRUE(a.usingViewPort);
    EXPECT_EQ(a.startRow, 0);
    EXPECT_EQ(a.endRow, 4);
    EXPECT_EQ(a.startCol, 0);
    EXPECT_EQ(a.endCol, 3);
    EXPECT_EQ(tabletest::itemCount(t.widget(), 5, 4), 20);

    // The same from a scrolled position: the pull-back past the start is
    // clamped to 0.
    int startRow, endRow, startCol, endCol;
    t.table.getCurrentViewport(startRow, endRow, startCol, endCol, false, true);
    EXPECT_EQ(startRow, 0);
    EXPECT_EQ(endRow, 4);
    EXPECT_EQ(startCol, 0);
    EXPECT_EQ(endCol, 3);
}

TEST(TablePaging, TheViewportOfAFreshTableIsTheVisibleCountPlusTheMargins) {
    TableRig t(1000, 1000);
    ASSERT_TRUE(t.showFirst());
    const tabletest::Asked a = t.array.asked.first();
    EXPECT_EQ(a.startRow, 0);
    EXPECT_EQ(a.endRow, t.visibleRows() + 16);
    EXPECT_EQ(a.startCol, 0);
    EXPECT_EQ(a.endCol, t.visibleCols() + 16);
    EXPECT_EQ(t.widget()->rowCount(), 1000);
    // Rows are set to the estimated height, or to the least the style
    // allows if that is more.
    QHeaderView* rows = t.widget()->verticalHeader();
    EXPECT_EQ(rows->defaultSectionSize(), std::max(20, rows->minimumSectionSize()));
}

TEST(TablePaging, AtTheBottomTheMarginIsTakenFromTheTop) {
    TableRig t(1000, 10);
    ASSERT_TRUE(t.showFirst());
    t.vbar()->setValue(t.vbar()->maximum());
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    const tabletest::Asked a = t.array.asked.last();
    EXPECT_EQ(a.endRow, 999);
    EXPECT_EQ(a.startRow, std::min(t.widget()->rowAt(0) - 8, 999 - t.visibleRows() - 7));
}

// ---- a new expression while a request is open ----------------------------------------

TEST(TablePaging, ShowingWhileATableRequestIsOpenReplacesTheSettingsAndAsksNoArrayInformation) {
    TableRig t(1000, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    t.r.debugger().hold(rig::TABLE_REQUEST);
    t.vbar()->setValue(3);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    const int infos = t.infoRequests();

    fake::Expression* other = t.r.makeExpression("other", "int[1000][100]");
    Config2DTable config(1, 0, "[0:9:1][0:99:1]", al_pres_hex, al_type_integer, {});
    t.table.showData2DTable(other, &config, QString(), QString());
    EXPECT_EQ(t.infoRequests(), infos);
    EXPECT_TRUE(t.table.updatePending);
    ASSERT_NE(t.table.expression, nullptr);
    EXPECT_EQ(t.table.expression->getExpression(), "other");
    EXPECT_EQ(t.table.rowDim, 1);
    EXPECT_EQ(t.table.colDim, 0);
    EXPECT_EQ(t.table.dataFormat, al_pres_hex);
    EXPECT_EQ(t.table.currentSlice, "[0:9:1][0:99:1]");

    // The open answer, for the old expression, is laid in with its own
    // settings; the view has not left it, so nothing further is asked.
    t.r.debugger().hold(rig::TABLE_REQUEST, false);
    t.r.debugger().answerHeldWithResponder();
    ASSERT_TRUE(fake::waitFor([&] { return !t.table.requestPending; }));
    ASSERT_TRUE(t.idle());
    t.settle(300);
    EXPECT_EQ(t.tableRequests(), 2);
    EXPECT_EQ(t.infoRequests(), infos);
    EXPECT_EQ(t.table.rowDim, 0);
    EXPECT_EQ(t.table.colDim, 1);
    EXPECT_EQ(t.table.dataFormat, al_data_pres_e(3));
    EXPECT_EQ(t.table.currentSlice, t.array.defaultSlice());
    EXPECT_EQ(t.reported.successes.last().first(), "big");

    // Once the view moves on, the request is for the new expression.
    t.vbar()->setValue(500);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 3; }));
    EXPECT_EQ(t.array.asked.last().expression, "other");
}

TEST(TablePaging, ANewSliceWithForcedSetupWhileScrolledDownAsksTopLeftThenWhereTheBarsStand) {
    TableRig t(1000, 50);
    ASSERT_TRUE(t.showFirst());
    t.vbar()->setValue(600);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    const int before = t.tableRequests();

    Config2DTable config = *t.reported.configs.last();
    config.slice = "[:][0:49:1]"; // the same size, another text
    t.table.showData2DTable(t.expression, &config, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == before + 2; }));
    ASSERT_TRUE(t.idle());
    t.settle(300);
    EXPECT_EQ(t.tableRequests(), before + 2);
    const tabletest::Asked forced = t.array.asked[before];
    EXPECT_EQ(forced.slice, config.slice);
    EXPECT_EQ(forced.startRow, 0);
    EXPECT_EQ(forced.startCol, 0);
    const tabletest::Asked second = t.array.asked[before + 1];
    EXPECT_EQ(second.startRow, 600 - 8);
    EXPECT_EQ(t.vbar()->value(), 600);
}

// ---- answers that are no data ----------------------------------------------------------

TEST(TablePaging, ErrorAndStaleAnswersReportThenHandTheConfigurationOver) {
    TableRig t(100, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    const QString kept = cell(t.widget(), 0, 0);

    // The back end echoes the dimensions on every answer.
    const QVariantMap dims{{"RowDim", 0}, {"ColDim", 1}};
    auto answer = [&](QVariantMap a) {
        a.insert(dims);
        t.r.debugger().respond(rig::TABLE_REQUEST, a);
    };
    answer({{"result", "error"}, {"msg", "no memory"}});
    t.reported.order.clear();
    t.table.requestTableData(false);
    ASSERT_TRUE(fake::waitFor([&] { return t.reported.order.size() == 2; }));
    EXPECT_EQ(t.reported.order, (QStringList{"error", "success"}));
    EXPECT_EQ(t.reported.errors.last(), "FAILED to access array data. \nno memory");
    EXPECT_FALSE(t.reported.cancels.last());

    answer({{"result", "error"}, {"msg", "user cancel"}});
    t.reported.order.clear();
    t.table.requestTableData(false);
    ASSERT_TRUE(fake::waitFor([&] { return t.reported.order.size() == 2; }));
    EXPECT_EQ(t.reported.errors.last(), "user cancel");
    EXPECT_TRUE(t.reported.cancels.last());

    answer({{"result", "done"}, {"IsStale", true}});
    t.reported.order.clear();
    t.table.requestTableData(false);
    ASSERT_TRUE(fake::waitFor([&] { return t.reported.order.size() == 2; }));
    EXPECT_EQ(t.reported.order, (QStringList{"stale", "success"}));
    EXPECT_FALSE(t.reported.cancels.last());
    EXPECT_EQ(cell(t.widget(), 0, 0), kept);
    EXPECT_FALSE(t.table.requestPending);
}

TEST(TablePaging, SameRowAndColumnDimensionIsRefusedWithoutARequest) {
    TableRig t(10, 10);
    Config2DTable config(1, 1, QString(), al_pres_default, al_type_other, {});
    t.table.showData2DTable(t.expression, &config, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return !t.reported.errors.isEmpty(); }));
    EXPECT_EQ(t.reported.errors.first(),
              "Error: Table Row and Column dimensions are the same.\nSelect different array "
              "dimensions for rows and columns.");
    EXPECT_EQ(t.tableRequests(), 0);
}

TEST(TablePaging, AnEmptyElementListIsNoFailure) {
    TableRig t(10, 10);
    t.array.forcedCount = 0;
    ASSERT_TRUE(t.showFirst());
    EXPECT_EQ(t.reported.order, QStringList{"success"});
    EXPECT_EQ(t.widget()->rowCount(), 10);
    EXPECT_EQ(tabletest::itemCount(t.widget(), 10, 10), 0);
}

TEST(TablePaging, AtTheRightEndWithWidthsUnchangedTheBarIsNudgedByFiveAndSetBack) {
    TableRig t(40, 300);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    QScrollBar* bar = t.hbar();
    bar->setValue(bar->maximum());
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    ASSERT_TRUE(t.idle());
    ASSERT_TRUE(t.table.pinnedRight);
    // The same place once more: the answer leaves the widths as they are,
    // so the bar still stands at its maximum when the answer is in.
    const int maximum = bar->maximum();
    QList<int> values;
    QObject::connect(bar, &QScrollBar::valueChanged, [&](int v) { values << v; });
    t.table.updateViewportData();
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 3; }));
    ASSERT_TRUE(t.idle());
    ASSERT_EQ(bar->maximum(), maximum);
    EXPECT_EQ(values, (QList<int>{maximum - 5, maximum}));
    EXPECT_EQ(bar->value(), maximum);
    EXPECT_TRUE(t.table.pinnedRight);
    // The nudge came while the request was still open: no further request.
    t.settle(300);
    EXPECT_EQ(t.tableRequests(), 3);
}

TEST(TablePaging, EveryRequestWatcherIsDeletedByTheSlotThatHandlesIt) {
    TableRig t(1000, 100);
    ASSERT_TRUE(t.showFirst());
    ASSERT_TRUE(t.idle());
    // Made only now: the tracker must not see the web view's own threads
    // at work while the view is built.
    tracking::ObjectTracker tracker;
    t.r.debugger().hold(rig::TABLE_REQUEST);
    t.vbar()->setValue(500);
    ASSERT_TRUE(fake::waitFor([&] { return t.tableRequests() == 2; }));
    EXPECT_EQ(tracker.liveOf<Data2DTableWatcher>().size(), 1);
    t.r.debugger().hold(rig::TABLE_REQUEST, false);
    t.r.debugger().answerHeldWithResponder();
    ASSERT_TRUE(t.idle());
    EXPECT_TRUE(tracker.liveOf<Data2DTableWatcher>().isEmpty());
    // The answer was laid in: the watcher went only after its answer did.
    EXPECT_EQ(cell(t.widget(), 500, 0), "500.0");
}
