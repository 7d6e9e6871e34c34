// The chart pages in a real web view: the values of a plot answer travel
// over the web channel, the page draws them, and the pixels of the grabbed
// widget show the chart where the page's plot area is.
//
// Under Xvfb (DISPLAY set) the web engine renders WebGL with Mesa; without a
// display it has no GL at all, and the shaded surface cannot be checked.
#include "plot/dataqobject.h"
#include "plot/visualizer.h"
#include "plothelpers.h"
#include "support/fakehost.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonObject>
#include <QRect>
#include <QSet>
#include <QSignalSpy>
#include <QTest>
#include <QWebEngineSettings>
#include <QtMath>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

using namespace plottest;

namespace {

const char VIS[] = "VisEvaluateExpressionRequest";
const int LONG_WAIT_MS = 20000;

bool haveDisplay() {
    return !qEnvironmentVariableIsEmpty("DISPLAY");
}

// Plotly's first trace colour, #1f77b4, also blended into white at the edges
// of an antialiased line.
bool isTraceBlue(QRgb p) {
    const int r = qRed(p), g = qGreen(p), b = qBlue(p);
    return b - r > 60 && b > g && b > 140;
}

// A pixel with a clear hue, as the surface's colour scale paints it (the
// axes, grid and text of a chart are grey).
bool isColoured(QRgb p) {
    const int hi = qMax(qRed(p), qMax(qGreen(p), qBlue(p)));
    const int lo = qMin(qRed(p), qMin(qGreen(p), qBlue(p)));
    return hi - lo > 40;
}

bool isDark(QRgb p) {
    return qRed(p) < 100 && qGreen(p) < 100 && qBlue(p) < 100;
}

int countIn(const QImage& img, const QRect& area, bool (*pred)(QRgb)) {
    int n = 0;
    const QRect r = area.intersected(img.rect());
    for (int y = r.top(); y <= r.bottom(); ++y)
        for (int x = r.left(); x <= r.right(); ++x)
            if (pred(img.pixel(x, y)))
                ++n;
    return n;
}

// The topmost and bottommost matching row in the columns [x0, x1]; -1 if none.
std::pair<int, int> rowSpan(const QImage& img, int x0, int x1, const QRect& area,
                            bool (*pred)(QRgb)) {
    int top = -1, bottom = -1;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = x0; x <= x1; ++x)
            if (pred(img.pixel(x, y))) {
                if (top < 0)
                    top = y;
                bottom = y;
                break;
            }
    return {top, bottom};
}

struct PageRig {
    fake::Core core;
    Visualizer viz{nullptr};
    fake::Expression expr{QStringLiteral("arr")};
    QSignalSpy errors{&viz, SIGNAL(visualizeError(QString))};
    QSignalSpy successes{&viz, SIGNAL(visSuccess(QString, QString, QString, QString))};

    PageRig() {
        viz.resize(800, 600);
        viz.show();
    }

    QVariant js(const QString& script) { return evalJs(viz.page(), script, LONG_WAIT_MS); }
    int draws() { return drawCount(viz.page()); }

    // Asks for a plot and waits until the page has drawn it on screen.
    ::testing::AssertionResult plot(int plotType, const QVariantMap& answer) {
        core.debugger().respond(VIS, answer);
        const int answered = errors.count() + successes.count();
        if (plotType == 1)
            viz.showLinePlot(&expr, QStringLiteral("[0:9]"), QString());
        else if (plotType == 0)
            viz.showHistPlot(&expr, QStringLiteral("[0:9]"));
        else
            viz.showSurfacePlot(&expr, QStringLiteral("[0:9][0:9]"));
        if (!fake::waitFor([&] { return errors.count() + successes.count() > answered; },
                           LONG_WAIT_MS))
            return ::testing::AssertionFailure() << "no answer to the plot request";
        if (errors.count() > 0)
            return ::testing::AssertionFailure() << errors.last().at(0).toString().toStdString();
        // The values go to the data object once the new page has loaded; the
        // page counts its draws from 0 again.
        if (!fake::waitFor([&] { return viz.plotData == nullptr; }, LONG_WAIT_MS))
            return ::testing::AssertionFailure() << "the page did not load";
        if (!waitForDraw(viz.page(), 0, LONG_WAIT_MS))
            return ::testing::AssertionFailure() << "the page drew nothing";
        return ::testing::AssertionSuccess();
    }

    // The plot area (inside the axes) in pixels of the grabbed image.
    QRect plotArea(qreal dpr) {
        const QVariantList v =
            js(QStringLiteral("(function () { var gd = document.getElementById('pf_dataviz');"
                              " var s = gd._fullLayout._size; var b = gd.getBoundingClientRect();"
                              " return [b.left + s.l, b.top + s.t, s.w, s.h]; })()"))
                .toList();
        if (v.size() != 4)
            return QRect();
        return QRect(qRound(v[0].toDouble() * dpr), qRound(v[1].toDouble() * dpr),
                     qRound(v[2].toDouble() * dpr), qRound(v[3].toDouble() * dpr));
    }

    QImage grab() { return viz.grab().toImage().convertToFormat(QImage::Format_RGB32); }

    // Grabs until `ok` holds for the image (the compositor may hand the
    // frame over a little after the page has drawn it).
    QImage grabUntil(const std::function<bool(const QImage&)>& ok) {
        QImage img;
        fake::waitFor(
            [&] {
                img = grab();
                return ok(img);
            },
            LONG_WAIT_MS);
        return img;
    }

    void setBins(int n) {
        js(QStringLiteral("(function () { var e = document.getElementById('nBin');"
                          " e.value = '%1'; e.dispatchEvent(new Event('input')); })()")
               .arg(n));
    }
};

// k + 0.5 occurs 10 * (k + 1) times for k = 0..9: ten bins of rising height.
std::vector<double> risingHistogram() {
    std::vector<double> v;
    for (int k = 0; k < 10; ++k)
        for (int i = 0; i < 10 * (k + 1); ++i)
            v.push_back(k + 0.5);
    return v;
}

} // namespace

TEST(ChartPages, LinePageDrawsTheRisingLineInsideThePlotArea) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(1, plotAnswer(ramp(1000))));

    QImage img;
    QRect area;
    img = rig.grabUntil([&](const QImage& i) {
        area = rig.plotArea(i.devicePixelRatio());
        return area.isValid() && countIn(i, area, isTraceBlue) > area.width() / 2;
    });
    ASSERT_TRUE(area.isValid());
    ASSERT_GT(area.width(), 600);
    ASSERT_GT(area.height(), 400);
    EXPECT_GT(countIn(img, area, isTraceBlue), area.width() / 2);

    // Values 0 to 999 at positions 0 to 999: low on the left, high on the right.
    const int strip = area.width() / 10;
    const auto left = rowSpan(img, area.left(), area.left() + strip, area, isTraceBlue);
    const auto right = rowSpan(img, area.right() - strip, area.right(), area, isTraceBlue);
    ASSERT_GE(left.first, 0);
    ASSERT_GE(right.first, 0);
    EXPECT_GT(left.first, area.top() + area.height() * 3 / 4);
    EXPECT_LT(right.second, area.top() + area.height() / 4);

    // Nothing of the trace's colour outside the plot area.
    QImage outside = img;
    const QRect margin = area.adjusted(-4, -4, 4, 4);
    for (int y = margin.top(); y <= margin.bottom(); ++y)
        for (int x = margin.left(); x <= margin.right(); ++x)
            if (outside.rect().contains(x, y))
                outside.setPixel(x, y, qRgb(255, 255, 255));
    EXPECT_EQ(countIn(outside, outside.rect(), isTraceBlue), 0);
}

TEST(ChartPages, HistogramPageDrawsBarsStandingOnTheAxis) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(0, plotAnswer(risingHistogram())));

    QRect area;
    const QImage img = rig.grabUntil([&](const QImage& i) {
        area = rig.plotArea(i.devicePixelRatio());
        return area.isValid() && countIn(i, area, isTraceBlue) > area.width() * area.height() / 5;
    });
    ASSERT_TRUE(area.isValid());
    // Ten bars of heights 10 to 100 fill a little over half of the area.
    const int blue = countIn(img, area, isTraceBlue);
    EXPECT_GT(blue, area.width() * area.height() * 3 / 10);
    EXPECT_LT(blue, area.width() * area.height() * 8 / 10);

    // The bars rise from left to right and all stand on the bottom of the area.
    const int x1 = area.left() + area.width() * 15 / 100;
    const int x9 = area.left() + area.width() * 85 / 100;
    const auto low = rowSpan(img, x1, x1, area, isTraceBlue);
    const auto high = rowSpan(img, x9, x9, area, isTraceBlue);
    ASSERT_GE(low.first, 0);
    ASSERT_GE(high.first, 0);
    EXPECT_LT(high.first, low.first - area.height() / 3);
    EXPECT_GE(low.second, area.bottom() - 3);
    EXPECT_GE(high.second, area.bottom() - 3);
    EXPECT_EQ(
        rig.js(QStringLiteral("document.getElementById('pf_dataviz').data[0].nbinsx")).toInt(), 10);
}

TEST(ChartPages, SurfacePageDrawsAShadedSurfaceInThePlotArea) {
    if (!haveDisplay())
        GTEST_SKIP() << "WebGL needs an X display (run under xvfb-run)";
    PageRig rig;
    const int rows = 30, cols = 40;
    std::vector<double> z;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            z.push_back(std::sin(r / 5.0) * std::cos(c / 7.0) + r * 0.05);
    ASSERT_TRUE(rig.plot(2, plotAnswer(z, 2, rows, cols)));
    EXPECT_FALSE(
        rig.js(QStringLiteral("document.getElementById('openGLError') !== null")).toBool());

    QRect area;
    const QImage img = rig.grabUntil([&](const QImage& i) {
        area = rig.plotArea(i.devicePixelRatio());
        return area.isValid() && countIn(i, area, isColoured) > area.width() * area.height() / 20;
    });
    ASSERT_TRUE(area.isValid());
    EXPECT_GT(countIn(img, area, isColoured), area.width() * area.height() / 20);

    // The middle of the area shows the surface, in many shades.
    const QRect middle(area.center().x() - area.width() / 4, area.center().y() - area.height() / 4,
                       area.width() / 2, area.height() / 2);
    EXPECT_GT(countIn(img, middle, isColoured), middle.width() * middle.height() / 10);
    QSet<QRgb> shades;
    for (int y = middle.top(); y <= middle.bottom(); y += 2)
        for (int x = middle.left(); x <= middle.right(); x += 2) {
            const QRgb p = img.pixel(x, y);
            if (isColoured(p))
                shades.insert(qRgb(qRed(p) & 0xf0, qGreen(p) & 0xf0, qBlue(p) & 0xf0));
        }
    EXPECT_GT(shades.size(), 20);
}

TEST(ChartPages, SurfacePageWithoutWebGLShowsTheOpenGLParagraph) {
    PageRig rig;
    rig.viz.settings()->setAttribute(QWebEngineSettings::WebGLEnabled, false);
    rig.core.debugger().respond(VIS, plotAnswer({1, 2, 3, 4, 5, 6}, 2, 2, 3));
    rig.viz.showSurfacePlot(&rig.expr, QStringLiteral("[0:1][0:2]"));
    ASSERT_TRUE(fake::waitFor(
        [&] {
            return rig.js(QStringLiteral("document.getElementById('openGLError') !== null"))
                .toBool();
        },
        LONG_WAIT_MS));
    EXPECT_EQ(rig.errors.count(), 0);
    EXPECT_EQ(rig.js(QStringLiteral("document.getElementById('openGLError').innerText")).toString(),
              QStringLiteral("Array Lens is unable to render the surface plot because OpenGL is "
                             "not available.\nYou may need to enable OpenGL 2.1 or higher in your "
                             "environment. Please consult the Halvane release notes and "
                             "documentation for more information."));
    EXPECT_EQ(
        rig.js(QStringLiteral("document.querySelector('#openGLError b').innerText")).toString(),
        QStringLiteral("Array Lens is unable to render the surface plot because OpenGL is not "
                       "available."));
    EXPECT_EQ(rig.js(QStringLiteral("getComputedStyle(document.getElementById('openGLError'))"
                                    ".fontSize"))
                  .toString(),
              QStringLiteral("14px"));
    EXPECT_FALSE(rig.js(QStringLiteral("document.getElementById('pf_dataviz').innerHTML"
                                       ".indexOf('WebGL is not supported by your browser') >= 0"))
                     .toBool());

    // The paragraph is what the user sees: dark text at the top left, no chart.
    const QImage img = rig.grabUntil(
        [&](const QImage& i) { return countIn(i, QRect(0, 0, 700, 60), isDark) > 200; });
    EXPECT_GT(countIn(img, QRect(0, 0, 700, 60), isDark), 200);
    EXPECT_EQ(countIn(img, img.rect(), isColoured), 0);
}

TEST(ChartPages, HistogramPageOffersABinInputStartingAtTen) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(0, plotAnswer(risingHistogram())));
    EXPECT_EQ(
        rig.js(QStringLiteral("document.querySelector('label[for=nBin]').innerText")).toString(),
        QStringLiteral("# bins"));
    const QVariantList attrs =
        rig.js(QStringLiteral("(function () { var e = document.getElementById('nBin');"
                              " return [e.type, e.min, e.max, e.step, e.value, e.size]; })()"))
            .toList();
    ASSERT_EQ(attrs.size(), 6);
    EXPECT_EQ(attrs[0].toString(), QStringLiteral("number"));
    EXPECT_EQ(attrs[1].toString(), QStringLiteral("1"));
    EXPECT_EQ(attrs[2].toString(), QStringLiteral("100"));
    EXPECT_EQ(attrs[3].toString(), QStringLiteral("10"));
    EXPECT_EQ(attrs[4].toString(), QStringLiteral("10"));
    EXPECT_EQ(attrs[5].toInt(), 5);
}

TEST(ChartPages, NewDataSetOnHistogramPageResetsBinsToTenWhileInputShowsAnother) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(0, plotAnswer(risingHistogram())));
    const QString nbins = QStringLiteral("document.getElementById('pf_dataviz').data[0].nbinsx");

    int before = rig.draws();
    rig.setBins(40);
    ASSERT_TRUE(waitForDraw(rig.viz.page(), before, LONG_WAIT_MS));
    ASSERT_EQ(rig.js(nbins).toInt(), 40);

    // A new data set, as the display hands over after a plot request.
    before = rig.draws();
    std::vector<double> values = ramp(200);
    rig.viz.histData->setData(values.data(), int(values.size()), rig.viz.width(), rig.viz.height(),
                              QStringLiteral("arr"));
    ASSERT_TRUE(waitForDraw(rig.viz.page(), before, LONG_WAIT_MS));
    EXPECT_EQ(rig.js(nbins).toInt(), 10);
    EXPECT_EQ(rig.js(QStringLiteral("document.getElementById('nBin').value")).toString(),
              QStringLiteral("40"));
    EXPECT_EQ(
        rig.js(QStringLiteral("document.getElementById('pf_dataviz').data[0].x.length")).toInt(),
        200);
}

TEST(ChartPages, EnteringABinCountRedrawsAtOnceWithoutReachingThePlugin) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(0, plotAnswer(ramp(1000))));
    const QString bars = QStringLiteral("document.getElementById('pf_dataviz').calcdata[0].length");
    const int barsAtTen = rig.js(bars).toInt();
    EXPECT_GE(barsAtTen, 5);
    EXPECT_LE(barsAtTen, 10);

    const int requests = rig.core.debugger().sent.size();
    const int answers = rig.errors.count() + rig.successes.count();
    QSignalSpy dataSignals(rig.viz.histData, &DataQObject::dataAvailable);
    const int before = rig.draws();
    rig.setBins(50);
    ASSERT_TRUE(waitForDraw(rig.viz.page(), before, LONG_WAIT_MS));

    EXPECT_EQ(
        rig.js(QStringLiteral("document.getElementById('pf_dataviz').data[0].nbinsx")).toInt(), 50);
    EXPECT_GT(rig.js(bars).toInt(), 2 * barsAtTen);
    EXPECT_EQ(rig.core.debugger().sent.size(), requests);
    EXPECT_EQ(rig.errors.count() + rig.successes.count(), answers);
    EXPECT_EQ(dataSignals.count(), 0);
}

TEST(ChartPages, ResizeOfTheViewDoesNotRedrawTheChart) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(1, plotAnswer(ramp(100))));
    const QString chartWidth =
        QStringLiteral("document.getElementById('pf_dataviz')._fullLayout.width");
    const int drawsBefore = rig.draws();
    const int widthBefore = rig.js(chartWidth).toInt();
    EXPECT_EQ(widthBefore, 800 - 30 - 30);

    rig.viz.resize(500, 400);
    ASSERT_TRUE(fake::waitFor(
        [&] { return rig.js(QStringLiteral("window.innerWidth")).toInt() == 500; }, LONG_WAIT_MS));
    // Give a redraw every chance to happen.
    QTest::qWait(1000);
    EXPECT_EQ(rig.draws(), drawsBefore);
    EXPECT_EQ(rig.js(chartWidth).toInt(), widthBefore);
}

TEST(ChartPages, EachNewPlotReloadsItsPageAndDrawsTheNewValues) {
    PageRig rig;
    ASSERT_TRUE(rig.plot(1, plotAnswer(ramp(100))));
    ASSERT_TRUE(rig.plot(1, plotAnswer({5, 4, 3})));
    EXPECT_EQ(rig.js(QStringLiteral("Array.from(document.getElementById('pf_dataviz').data[0].y)"
                                    ".join(',')"))
                  .toString(),
              QStringLiteral("5,4,3"));
    ASSERT_TRUE(rig.plot(0, plotAnswer(risingHistogram())));
    EXPECT_EQ(
        rig.js(QStringLiteral("document.getElementById('pf_dataviz').data[0].x.length")).toInt(),
        550);
    EXPECT_EQ(rig.viz.url().toString(), QStringLiteral("qrc:/arraylens/charts/plotly_hist.html"));
}

TEST(ChartPages, PagesDrawExactlyTheValuesOfTheDataObjectsDocument) {
    PageRig rig;
    const std::vector<double> awkward = {0.1,     1.0 / 3.0, -2e300, 5e-324, 123456789.123456789,
                                         -1e-310, 1e308,     -7.25,  0.0,    4503599627370497.0};
    const std::vector<double> whole = {3, -2147483648.0, 2147483647, 0, -17, 65536};
    auto numbers = [](const QJsonArray& a) {
        QVariantList out;
        for (const QJsonValue& v : a)
            out.append(v.toDouble());
        return out;
    };
    const QString trace =
        QStringLiteral("Array.from(document.getElementById('pf_dataviz').data[0].%1)");

    ASSERT_TRUE(rig.plot(1, plotAnswer(awkward)));
    const QJsonObject line = rig.viz.lineData->dataJson.object();
    EXPECT_EQ(rig.js(trace.arg("y")).toList(), numbers(line.value("y").toArray()));
    EXPECT_EQ(rig.js(trace.arg("x")).toList(), numbers(line.value("x").toArray()));

    ASSERT_TRUE(rig.plot(0, plotAnswer(awkward)));
    EXPECT_EQ(rig.js(trace.arg("x")).toList(),
              numbers(rig.viz.histData->dataJson.object().value("x").toArray()));

    // Whole numbers travel in a shorter form and arrive just the same.
    ASSERT_TRUE(rig.plot(0, plotAnswer(whole)));
    EXPECT_EQ(rig.js(trace.arg("x")).toList(),
              numbers(rig.viz.histData->dataJson.object().value("x").toArray()));
    EXPECT_EQ(rig.js(trace.arg("x")).toList(),
              (QVariantList{3., -2147483648., 2147483647., 0., -17., 65536.}));

    ASSERT_TRUE(rig.plot(2, plotAnswer(awkward, 2, 2, 5)));
    const QJsonArray z = rig.viz.surfData->dataJson.object().value("z").toArray();
    ASSERT_EQ(z.size(), 2);
    for (int r = 0; r < 2; ++r)
        EXPECT_EQ(rig.js(QStringLiteral("Array.from(document.getElementById('pf_dataviz')"
                                        ".data[0].z[%1])")
                             .arg(r))
                      .toList(),
                  numbers(z.at(r).toArray()))
            << "row " << r;
}

TEST(ChartPages, PlotAskedForAgainWhileThePageIsLoadingIsStillDrawn) {
    PageRig rig;
    for (int round = 0; round < 3; ++round) {
        rig.core.debugger().respond(VIS, plotAnswer(ramp(50)));
        const int answered = rig.successes.count();
        rig.viz.showLinePlot(&rig.expr, QStringLiteral("[0:49]"), QString());
        // The answer is in and its page has begun to load.
        ASSERT_TRUE(fake::waitFor([&] { return rig.successes.count() > answered; }, LONG_WAIT_MS));
        ASSERT_TRUE(rig.plot(1, plotAnswer({7, 8, 9}))) << "round " << round;
        EXPECT_EQ(
            rig.js(QStringLiteral("Array.from(document.getElementById('pf_dataviz').data[0].y)"
                                  ".join(',')"))
                .toString(),
            QStringLiteral("7,8,9"))
            << "round " << round;
    }
}
