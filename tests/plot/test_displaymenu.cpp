// The display menu's plot entries, from the host's command to the chart on
// the view's plot page: each draws the expression on show.
#include "controller/rig.h"
#include "plot/dataqobject.h"
#include "plot/visualizer.h"
#include "plothelpers.h"

#include <QJsonArray>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace plottest;

namespace {

struct MenuRig : rig::Rig {
    MenuRig() {
        connectDebugger();
        // A 2 by 3 array of doubles, whatever the plot.
        debugger().respond(rig::PLOT_REQUEST, [](const QObject&) {
            QVariantMap answer = plotAnswer({1, 2, 3, 4, 5, 6}, 2, 2, 3, QStringLiteral("[:][:]"));
            answer.insert(QStringLiteral("ActualType"), QStringLiteral("double [2][3]"));
            return answer;
        });
        bringIn(makeExpression(QStringLiteral("grid"), QStringLiteral("double [2][3]")));
        ui->resize(800, 600);
        ui->show();
    }

    Visualizer* viz() const { return ui->visualizer; }

    // Runs a display menu entry and waits for its chart on screen.
    ::testing::AssertionResult choose(const char* command, const QString& page) {
        const int before = sentCount(rig::PLOT_REQUEST);
        core.commands.trigger(QString::fromLatin1(command),
                              QSharedPointer<fake::CmdEvent>::create());
        if (!fake::waitFor([&] { return sentCount(rig::PLOT_REQUEST) > before; }, 20000))
            return ::testing::AssertionFailure() << "no plot request";
        if (!fake::waitFor(
                [&] {
                    return viz()->url().toString() == page && viz()->plotData == nullptr &&
                           drawCount(viz()->page()) > 0;
                },
                20000))
            return ::testing::AssertionFailure()
                   << "no chart drawn on " << viz()->url().toString().toStdString();
        return ::testing::AssertionSuccess();
    }
};

QVariantList traceNumbers(Visualizer* viz, const QString& key) {
    return evalJs(viz->page(),
                  QStringLiteral("Array.from(document.getElementById('pf_dataviz').data[0].%1)")
                      .arg(key),
                  20000)
        .toList();
}

} // namespace

TEST(PlotDisplayMenu, LineEntryDrawsTheCurrentExpression) {
    MenuRig r;
    ASSERT_TRUE(r.choose(HVUI::Constants::ARRAYLINEPLOT_COMMAND,
                         QStringLiteral("qrc:/arraylens/charts/plotly_line.html")));
    EXPECT_EQ(r.lastSent(rig::PLOT_REQUEST).value("Expression").toString(), QStringLiteral("grid"));
    EXPECT_EQ(r.page(), 2);
    EXPECT_EQ(r.ui->plotKind, 2);
    EXPECT_EQ(r.viz()->lineData->getDisplayName(), QStringLiteral("grid"));
    EXPECT_EQ(traceNumbers(r.viz(), QStringLiteral("y")), (QVariantList{1., 2., 3., 4., 5., 6.}));
}

TEST(PlotDisplayMenu, HistogramEntryDrawsTheCurrentExpression) {
    MenuRig r;
    ASSERT_TRUE(r.choose(HVUI::Constants::ARRAYHISTPLOT_COMMAND,
                         QStringLiteral("qrc:/arraylens/charts/plotly_hist.html")));
    EXPECT_EQ(r.lastSent(rig::PLOT_REQUEST).value("Expression").toString(), QStringLiteral("grid"));
    EXPECT_EQ(r.page(), 2);
    EXPECT_EQ(r.ui->plotKind, 1);
    EXPECT_EQ(r.viz()->histData->getDisplayName(), QStringLiteral("grid"));
    EXPECT_EQ(traceNumbers(r.viz(), QStringLiteral("x")), (QVariantList{1., 2., 3., 4., 5., 6.}));
}

TEST(PlotDisplayMenu, SurfaceEntryDrawsTheCurrentExpression) {
    MenuRig r;
    ASSERT_TRUE(r.choose(HVUI::Constants::ARRAYSURFPLOT_COMMAND,
                         QStringLiteral("qrc:/arraylens/charts/plotly_3d.html")));
    EXPECT_EQ(r.lastSent(rig::PLOT_REQUEST).value("Expression").toString(), QStringLiteral("grid"));
    EXPECT_EQ(r.page(), 2);
    EXPECT_EQ(r.ui->plotKind, 3);
    EXPECT_EQ(r.viz()->surfData->getDisplayName(), QStringLiteral("grid"));
    const QJsonObject doc = r.viz()->surfData->dataJson.object();
    EXPECT_EQ(doc.value("z").toArray(),
              (QJsonArray{QJsonArray{1., 2., 3.}, QJsonArray{4., 5., 6.}}));
    EXPECT_EQ(
        evalJs(r.viz()->page(),
               QStringLiteral("JSON.stringify(document.getElementById('pf_dataviz').data[0].z)"),
               20000)
            .toString(),
        QStringLiteral("[[1,2,3],[4,5,6]]"));
}
