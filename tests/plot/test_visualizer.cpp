// The plot display's requests and its decisions on the answers.
#include "plot/dataqobject.h"
#include "plot/visualizer.h"
#include "plothelpers.h"
#include "support/fakehost.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSignalSpy>
#include <QWebChannel>
#include <QWebEngineSettings>
#include <gtest/gtest.h>

using namespace plottest;

namespace {

const char VIS[] = "VisEvaluateExpressionRequest";

struct PlotRig {
    fake::Core core;
    Visualizer viz{nullptr};
    fake::Expression expr{QStringLiteral("arr")};
    QSignalSpy errors{&viz, SIGNAL(visualizeError(QString))};
    QSignalSpy successes{&viz, SIGNAL(visSuccess(QString, QString, QString, QString))};

    PlotRig() { viz.resize(800, 600); }

    bool waitForAnswer(int answers = 1) {
        return fake::waitFor([&] { return errors.count() + successes.count() >= answers; });
    }
    // The values reach the data object once the page has loaded.
    bool waitForData() {
        return fake::waitFor([&] { return viz.plotData == nullptr; }, 20000);
    }
};

} // namespace

TEST(Visualizer, LineOf500000ValuesIsShown) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(500000)));
    rig.viz.showLinePlot(&rig.expr, QStringLiteral("[0:499999]"), QString());
    ASSERT_TRUE(rig.waitForAnswer());
    EXPECT_EQ(rig.errors.count(), 0);
    ASSERT_EQ(rig.successes.count(), 1);
    EXPECT_EQ(rig.viz.plotDataCount, 500000);
    // The web engine takes the address of a load at once but reports it as
    // url() only once the navigation has started in the event loop.
    EXPECT_EQ(rig.viz.page()->requestedUrl().toString(),
              QStringLiteral("qrc:/arraylens/charts/plotly_line.html"));
    ASSERT_TRUE(rig.waitForData());
    EXPECT_EQ(rig.viz.url().toString(), QStringLiteral("qrc:/arraylens/charts/plotly_line.html"));
    const QJsonObject doc = rig.viz.lineData->dataJson.object();
    EXPECT_EQ(doc.value("y").toArray().size(), 500000);
    EXPECT_EQ(doc.value("y").toArray().last().toDouble(), 499999.0);
    // And the page draws all of them.
    ASSERT_TRUE(waitForDraw(rig.viz.page()));
    const QVariantList drawn =
        evalJs(rig.viz.page(),
               QStringLiteral("(function () { var t = document.getElementById('pf_dataviz')"
                              ".data[0]; return [t.x.length, t.y.length, t.y[499999]]; })()"))
            .toList();
    EXPECT_EQ(drawn, (QVariantList{500000, 500000, 499999}));
}

TEST(Visualizer, LineOf500001ValuesIsRefusedWithTheLimitMessage) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(500001)));
    rig.viz.showLinePlot(&rig.expr, QStringLiteral("[0:500000]"), QString());
    ASSERT_TRUE(rig.waitForAnswer());
    ASSERT_EQ(rig.errors.count(), 1);
    EXPECT_EQ(rig.successes.count(), 0);
    EXPECT_EQ(rig.errors.at(0).at(0).toString(),
              QStringLiteral("The line plot contains more than 500,000 items and will not "
                             "display. \n Consider adding a stride value or slicing the array. "
                             "\n\n See the histogram plot for all values."));
    EXPECT_EQ(rig.viz.plotData, nullptr);
    EXPECT_TRUE(rig.viz.page()->requestedUrl().isEmpty());
}

TEST(Visualizer, HistogramOf500001ValuesIsShown) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(500001)));
    rig.viz.showHistPlot(&rig.expr, QStringLiteral("[0:500000]"));
    ASSERT_TRUE(rig.waitForAnswer());
    EXPECT_EQ(rig.errors.count(), 0);
    ASSERT_EQ(rig.successes.count(), 1);
    ASSERT_TRUE(rig.waitForData());
    EXPECT_EQ(rig.viz.histData->dataJson.object().value("x").toArray().size(), 500001);
    ASSERT_TRUE(waitForDraw(rig.viz.page()));
    EXPECT_EQ(evalJs(rig.viz.page(),
                     QStringLiteral("document.getElementById('pf_dataviz').data[0].x.length"))
                  .toInt(),
              500001);
}

TEST(Visualizer, OneDimensionalSurfaceShowsMessageAndStillReportsSuccess) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(6), 1));
    rig.viz.showSurfacePlot(&rig.expr, QStringLiteral("[0:5]"));
    ASSERT_TRUE(rig.waitForAnswer(2));
    ASSERT_EQ(rig.errors.count(), 1);
    EXPECT_EQ(rig.errors.at(0).at(0).toString(),
              QStringLiteral("A surface plot requires a two dimensional array."));
    ASSERT_EQ(rig.successes.count(), 1);
    EXPECT_EQ(rig.successes.at(0).at(0).toString(), QStringLiteral("arr"));
    EXPECT_EQ(rig.successes.at(0).at(1).toString(), QStringLiteral("[0:5]"));
    EXPECT_EQ(rig.successes.at(0).at(2).toString(), QStringLiteral("double [6]"));
    // Nothing loaded.
    EXPECT_EQ(rig.viz.plotData, nullptr);
    EXPECT_TRUE(rig.viz.page()->requestedUrl().isEmpty());
    EXPECT_TRUE(rig.viz.surfData->dataJson.isNull());
}

TEST(Visualizer, EmptySliceIsReportedAsTheResponsesEmptySlice) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(4), 1, 0, 0, QStringLiteral("[0:3]")));
    rig.viz.showLinePlot(&rig.expr, QString(), QStringLiteral("$value > 1"));
    ASSERT_TRUE(rig.waitForAnswer());
    ASSERT_EQ(rig.successes.count(), 1);
    EXPECT_EQ(rig.successes.at(0).at(1).toString(), QStringLiteral("[0:3]"));
    EXPECT_EQ(rig.successes.at(0).at(3).toString(), QStringLiteral("$value > 1"));
}

TEST(Visualizer, LinePlotAfterSurfacePlotReusesTheOneChannel) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(4), 2, 2, 2));
    rig.viz.showSurfacePlot(&rig.expr, QStringLiteral("[0:1][0:1]"));
    QWebChannel* first = rig.viz.channel;
    ASSERT_NE(first, nullptr);
    ASSERT_TRUE(rig.waitForAnswer());
    rig.viz.showLinePlot(&rig.expr, QStringLiteral("[0:1][0:1]"), QString());
    ASSERT_TRUE(rig.waitForAnswer(2));
    EXPECT_EQ(rig.viz.channel, first);
    EXPECT_EQ(rig.viz.page()->webChannel(), first);
    EXPECT_EQ(rig.viz.findChildren<QWebChannel*>().size(), 1);
    const QHash<QString, QObject*> objects = first->registeredObjects();
    EXPECT_EQ(objects.size(), 3);
    EXPECT_EQ(objects.value("lineDataModel"), (QObject*)rig.viz.lineData->channelObject());
    EXPECT_EQ(objects.value("histDataModel"), (QObject*)rig.viz.histData->channelObject());
    EXPECT_EQ(objects.value("surfDataModel"), (QObject*)rig.viz.surfData->channelObject());
}

TEST(Visualizer, FortranThenCSurfaceKeepsOneBasedAxes) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer({1, 2, 3, 4, 5, 6}, 2, 2, 3));
    rig.expr.fortran = true;
    rig.viz.showSurfacePlot(&rig.expr, QStringLiteral("(1:2,1:3)"));
    ASSERT_TRUE(rig.waitForAnswer());
    ASSERT_TRUE(rig.waitForData());
    EXPECT_TRUE(rig.viz.surfData->isFortran());

    fake::Expression cExpr(QStringLiteral("carr"));
    cExpr.fortran = false;
    rig.viz.showSurfacePlot(&cExpr, QStringLiteral("[0:1][0:2]"));
    ASSERT_TRUE(rig.waitForAnswer(2));
    ASSERT_TRUE(rig.waitForData());
    EXPECT_EQ(rig.errors.count(), 0);
    EXPECT_TRUE(rig.viz.surfData->isFortran());
    const QJsonObject doc = rig.viz.surfData->dataJson.object();
    EXPECT_EQ(doc.value("x").toArray(), (QJsonArray{QJsonArray{1, 2, 3}, QJsonArray{1, 2, 3}}));
    EXPECT_EQ(doc.value("y").toArray(), (QJsonArray{QJsonArray{1, 1, 1}, QJsonArray{2, 2, 2}}));
    EXPECT_EQ(rig.successes.at(1).at(0).toString(), QStringLiteral("carr"));
}

// ---- the rest of the answer handling ---------------------------------------------

TEST(Visualizer, RequestCarriesExpressionSliceAndFilterOfALinePlot) {
    PlotRig rig;
    rig.core.debugger().hold(VIS);
    rig.expr.alternate = QStringLiteral("(double*)arr");
    rig.expr.scopeId = QStringLiteral("scope7");
    rig.expr.recursionDepth = 3;
    rig.viz.showLinePlot(&rig.expr, QStringLiteral("[1:9:2]"), QStringLiteral("$value > 0"));
    ASSERT_EQ(rig.core.debugger().sent.size(), 1);
    const QVariantMap p = rig.core.debugger().sent.at(0).properties;
    EXPECT_EQ(p.value("id").toString(), QString::fromLatin1(VIS));
    EXPECT_EQ(p.value("token").toInt(), 0);
    EXPECT_EQ(p.value("Expression").toString(), QStringLiteral("(double*)arr"));
    EXPECT_EQ(p.value("ScopeID").toString(), QStringLiteral("scope7"));
    EXPECT_EQ(p.value("FrameRecursionDepth").toUInt(), 3u);
    EXPECT_EQ(p.value("Slice").toString(), QStringLiteral("[1:9:2]"));
    EXPECT_EQ(p.value("Filter").toString(), QStringLiteral("$value > 0"));
}

TEST(Visualizer, HistogramAndSurfaceRequestsSendNoFilter) {
    PlotRig rig;
    rig.core.debugger().hold(VIS);
    rig.viz.showHistPlot(&rig.expr, QStringLiteral("[0:9]"));
    rig.viz.showSurfacePlot(&rig.expr, QStringLiteral("[0:9][0:9]"));
    ASSERT_EQ(rig.core.debugger().sent.size(), 2);
    EXPECT_TRUE(rig.core.debugger().sent.at(0).properties.value("Filter").toString().isEmpty());
    EXPECT_TRUE(rig.core.debugger().sent.at(1).properties.value("Filter").toString().isEmpty());
    EXPECT_EQ(rig.viz.plotType, 2);
    EXPECT_EQ(rig.viz.pageUrl, QStringLiteral("qrc:/arraylens/charts/plotly_3d.html"));
}

TEST(Visualizer, ErrorAnswerReportsTheBackEndsMessage) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, QVariantMap{{"result", "error"}, {"msg", "no memory"}});
    rig.viz.showHistPlot(&rig.expr, QString());
    ASSERT_TRUE(rig.waitForAnswer());
    ASSERT_EQ(rig.errors.count(), 1);
    EXPECT_EQ(rig.errors.at(0).at(0).toString(),
              QStringLiteral("Request to get visualize array data FAILED \nError:no memory"));
    EXPECT_EQ(rig.successes.count(), 0);
}

TEST(Visualizer, MissingExpressionIsReportedAsUndefined) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(3)));
    rig.viz.showHistPlot(nullptr, QStringLiteral("[0:2]"));
    ASSERT_TRUE(rig.waitForAnswer());
    ASSERT_EQ(rig.errors.count(), 1);
    EXPECT_EQ(rig.errors.at(0).at(0).toString(),
              QStringLiteral("Request to get visualize array data FAILED \nError: undefined "
                             "expression"));
}

TEST(Visualizer, NoValuesIsReportedAsEmptyArray) {
    PlotRig rig;
    QVariantMap answer = plotAnswer({});
    answer.insert("AllEvaluations", QByteArray("1234567")); // less than one double
    rig.core.debugger().respond(VIS, answer);
    rig.viz.showLinePlot(&rig.expr, QStringLiteral("[0:0]"), QString());
    ASSERT_TRUE(rig.waitForAnswer());
    ASSERT_EQ(rig.errors.count(), 1);
    EXPECT_EQ(rig.errors.at(0).at(0).toString(),
              QStringLiteral("Request to get visualize array data returned empty array"));
}

TEST(Visualizer, TwoDimensionalAnswerSetsTheDataObjectsDimensions) {
    PlotRig rig;
    rig.core.debugger().respond(VIS, plotAnswer(ramp(12), 2, 3, 4));
    rig.viz.showHistPlot(&rig.expr, QStringLiteral("[0:2][0:3]"));
    ASSERT_TRUE(rig.waitForAnswer());
    EXPECT_EQ(rig.viz.histData->rank, 2);
    EXPECT_EQ(rig.viz.histData->xDimension, 3);
    EXPECT_EQ(rig.viz.histData->yDimension, 4);
    ASSERT_TRUE(rig.waitForData());
    // A histogram sees the values as one flat series.
    EXPECT_EQ(rig.viz.histData->dataJson.object().value("x").toArray().size(), 12);
    EXPECT_EQ(rig.viz.histData->displayName, QStringLiteral("arr"));
    EXPECT_EQ(rig.viz.histData->width, rig.viz.width());
}

TEST(Visualizer, ConstructorTurnsOnWebGLAndOffersNoContextMenu) {
    fake::Core core;
    Visualizer viz(nullptr);
    EXPECT_TRUE(viz.settings()->testAttribute(QWebEngineSettings::WebGLEnabled));
    EXPECT_EQ(viz.contextMenuPolicy(), Qt::NoContextMenu);
    EXPECT_EQ(viz.sizeHint(), QSize(-1, -1));
    EXPECT_EQ(viz.channel, nullptr);
    EXPECT_NE(viz.lineData, nullptr);
    EXPECT_NE(viz.histData, nullptr);
    EXPECT_NE(viz.surfData, nullptr);
}

TEST(Visualizer, RefreshSignalsTheCurrentDataObject) {
    PlotRig rig;
    rig.viz.refresh(); // nothing asked for yet: nothing happens
    rig.core.debugger().hold(VIS);
    rig.viz.showLinePlot(&rig.expr, QString(), QString());
    QSignalSpy available(rig.viz.lineData, &DataQObject::dataAvailable);
    EXPECT_TRUE(QMetaObject::invokeMethod(&rig.viz, "refresh"));
    EXPECT_EQ(available.count(), 1);
}
