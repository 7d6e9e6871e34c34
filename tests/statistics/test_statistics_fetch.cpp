// The statistics page's fetch: what each kind of answer makes the page
// signal, which slice it reports, and when its request watcher goes.
#include "objecttracker.h"
#include "statshelpers.h"

#include "wire/arrayrecords.h"
#include "wire/watchers.h"

#include <QApplication>
#include <QHeaderView>
#include <QPointer>
#include <gtest/gtest.h>

using statstest::cell;
using statstest::goodAnswer;
using statstest::itemCount;

namespace {

constexpr char STATS_REQUEST[] = "ArrayStatisticsRequest";
const QString FAILED = QStringLiteral("Request to get statistics FAILED \nError:");

struct StatsRig {
    StatsRig() : expression(QStringLiteral("a")), signals_(ui) {}

    fake::Debugger& debugger() { return core.debugger(); }
    void answerWith(const QVariantMap& answer) { debugger().respond(STATS_REQUEST, answer); }
    bool waitForAnswers(int n) {
        return fake::waitFor([&] { return signals_.answers() >= n; }, 3000);
    }
    // Lays the page out wide enough for two column pairs without showing it.
    void makeWide() { ui.statisticsTable_->resize(600, 400); }

    fake::Core core;
    fake::Expression expression;
    StatisticsUI ui;
    statstest::Signals signals_;
};

} // namespace

TEST(StatisticsFetch, EmptyRequestSliceReportsTheAnswersEmptySlice) {
    StatsRig r;
    r.answerWith(goodAnswer()); // "EmptySlice" is "[0:9:1]"
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(r.waitForAnswers(1));
    ASSERT_EQ(r.signals_.successes.size(), 1);
    EXPECT_EQ(r.signals_.successes[0], (QStringList{"a", "[0:9:1]", "double [10]", QString()}));
    // The request carried the empty slice as it was given.
    ASSERT_EQ(r.debugger().sent.size(), 1);
    EXPECT_EQ(r.debugger().sent[0].properties.value("Slice").toString(), QString());
}

TEST(StatisticsFetch, NonEmptyRequestSliceWinsOverTheAnswersEmptySlice) {
    StatsRig r;
    QVariantMap answer = goodAnswer();
    answer["EmptySlice"] = "[0:99:1]";
    answer["Slice"] = "[5:6:1]"; // whatever the answer says of slices
    r.answerWith(answer);
    r.ui.showStatistics(&r.expression, "[2:4:1]", QString());
    ASSERT_TRUE(r.waitForAnswers(1));
    ASSERT_EQ(r.signals_.successes.size(), 1);
    EXPECT_EQ(r.signals_.successes[0][1], "[2:4:1]");
}

TEST(StatisticsFetch, ErrorAnswerEmitsStatErrorOnly) {
    StatsRig r;
    r.answerWith({{"result", "error"}, {"msg", "no such array"}});
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(r.waitForAnswers(1));
    // Nothing else follows later either.
    fake::waitFor([] { return false; }, 50);
    EXPECT_EQ(r.signals_.order, QStringList{"error"});
    ASSERT_EQ(r.signals_.errors.size(), 1);
    // The back end's text follows the page's words without a blank.
    EXPECT_EQ(r.signals_.errors[0], FAILED + "no such array");
}

TEST(StatisticsFetch, StaleAnswerEmitsStaleThenSuccessAndLeavesNoItems) {
    StatsRig r;
    r.answerWith(goodAnswer());
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(r.waitForAnswers(1));
    ASSERT_GT(itemCount(r.ui.statisticsTable_), 0);

    QVariantMap stale = goodAnswer();
    stale["IsStale"] = true;
    r.answerWith(stale);
    r.signals_.order.clear();
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(r.waitForAnswers(2));
    EXPECT_EQ(r.signals_.order, (QStringList{"stale", "success"}));
    EXPECT_EQ(itemCount(r.ui.statisticsTable_), 0);
}

TEST(StatisticsFetch, FailedAnswerAfterGoodKeepsTheNumbersButAResizeNoLongerRefreshesThem) {
    StatsRig r;
    r.makeWide();
    r.answerWith(goodAnswer());
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(r.waitForAnswers(1));
    QTableWidget* table = r.ui.statisticsTable_;
    ASSERT_EQ(table->columnCount(), 5);
    ASSERT_EQ(cell(table, 0, 3), "Standard Deviation");

    r.answerWith({{"result", "error"}, {"msg", "gone"}});
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(r.waitForAnswers(2));
    // The good numbers are still on screen.
    EXPECT_EQ(cell(table, 0, 0), "Checksum");
    EXPECT_EQ(cell(table, 0, 1), "987654321012");
    EXPECT_EQ(cell(table, 0, 3), "Standard Deviation");
    EXPECT_EQ(cell(table, 0, 4), "2.75");

    // A narrower table: the columns follow, but the statistics of the
    // dropped pair are not put back, as the kept answer is the failed one.
    table->resize(300, 400);
    r.ui.handleResizeTimeout();
    EXPECT_EQ(table->columnCount(), 2);
    EXPECT_EQ(table->rowCount(), 8);
    EXPECT_EQ(cell(table, 0, 0), "Checksum");
    for (int row = 0; row < table->rowCount(); ++row)
        EXPECT_NE(cell(table, row, 0), "Standard Deviation") << row;
}

TEST(StatisticsFetch, TwoQuickCallsGiveTwoAnswersAndTwoSuccessesEachWithItsOwnSlice) {
    StatsRig r;
    r.debugger().hold(STATS_REQUEST);
    r.ui.showStatistics(&r.expression, "[0:4:1]", QString());
    r.ui.showStatistics(&r.expression, "[5:9:1]", QString());
    ASSERT_EQ(r.debugger().heldCount(), 2);
    // The second request finishes first; the first one then decides.
    QVariantMap second = goodAnswer();
    second["Count"] = 5;
    r.debugger().answerHeld(second, 1);
    ASSERT_TRUE(r.waitForAnswers(1));
    r.debugger().answerHeld(goodAnswer(), 0);
    ASSERT_TRUE(r.waitForAnswers(2));
    ASSERT_EQ(r.signals_.successes.size(), 2);
    EXPECT_EQ(r.signals_.successes[0][1], "[5:9:1]");
    EXPECT_EQ(r.signals_.successes[1][1], "[0:4:1]");
    EXPECT_EQ(cell(r.ui.statisticsTable_, 1, 1), "10");
}

TEST(StatisticsFetch, WatcherIsGoneAtSuccessAndGoneWhenStatErrorReturns) {
    StatsRig r;
    tracking::ObjectTracker tracker;
    r.answerWith(goodAnswer());
    int liveAtSuccess = -1;
    QObject::connect(&r.ui, &StatisticsUI::statSuccess,
                     [&] { liveAtSuccess = tracker.liveOf<StatisticsWatcher>().size(); });
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_EQ(tracker.liveOf<StatisticsWatcher>().size(), 1);
    ASSERT_TRUE(r.waitForAnswers(1));
    EXPECT_EQ(liveAtSuccess, 0);

    // On an error the watcher still lives while the signal is delivered and
    // is deleted right after it: a call queued from the slot finds it gone.
    r.answerWith({{"result", "error"}, {"msg", "x"}});
    QList<StatisticsWatcher*> atError;
    bool aliveAfterReturn = true;
    bool checked = false;
    QObject::connect(&r.ui, &StatisticsUI::statError, [&] {
        atError = tracker.liveOf<StatisticsWatcher>();
        StatisticsWatcher* watcher = atError.value(0);
        QMetaObject::invokeMethod(
            qApp,
            [&, watcher] {
                aliveAfterReturn = tracker.isAlive(watcher);
                checked = true;
            },
            Qt::QueuedConnection);
    });
    r.ui.showStatistics(&r.expression, QString(), QString());
    ASSERT_TRUE(fake::waitFor([&] { return checked; }));
    EXPECT_EQ(atError.size(), 1);
    EXPECT_FALSE(aliveAfterReturn);
    EXPECT_TRUE(tracker.liveOf<StatisticsWatcher>().isEmpty());
}

TEST(StatisticsFetch, WithoutTheDebuggerServiceNothingIsSentAndTheUserIsTold) {
    StatsRig r;
    QSharedPointer<fake::Debugger> keep = r.core.corePlugin.debugger;
    r.core.corePlugin.debugger.reset();
    r.ui.showStatistics(&r.expression, QString(), QString());
    EXPECT_TRUE(keep->sent.isEmpty());
    ASSERT_EQ(r.signals_.errors.size(), 1);
    EXPECT_TRUE(r.signals_.errors[0].startsWith(FAILED));
    EXPECT_TRUE(r.signals_.successes.isEmpty());
    r.core.corePlugin.debugger = keep;
}

TEST(StatisticsFetch, FormIsLoadedAndTheTableSetUp) {
    StatsRig r;
    QTableWidget* table = r.ui.statisticsTable_;
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->objectName(), "statisticsTable");
    EXPECT_EQ(table->rowCount(), 16);
    EXPECT_EQ(table->columnCount(), 2);
    EXPECT_EQ(table->horizontalHeaderItem(0)->text(), "Statistic");
    EXPECT_EQ(table->horizontalHeaderItem(1)->text(), "Value");
    EXPECT_EQ(table->selectionBehavior(), QAbstractItemView::SelectItems);
    EXPECT_EQ(table->editTriggers(), QAbstractItemView::NoEditTriggers);
    EXPECT_TRUE(table->verticalHeader()->isHidden());
    EXPECT_EQ(table->property("style").toString(), "StatisticsTable");
    EXPECT_NE(dynamic_cast<SpacerColumnDelegate*>(table->itemDelegateForColumn(2)), nullptr);
    EXPECT_EQ(r.ui.sizeHint(), QSize(-1, -1));
    EXPECT_EQ(r.ui.responseRef_, nullptr);
    ASSERT_EQ(r.ui.statLabels_.size(), 16);
    EXPECT_EQ(r.ui.statLabels_.last(), "Denormalzized Count");
}
