#include "plot/visualizer.h"

#include "host/hostids.h"
#include "host/hvdebugger.h"
#include "host/hvexpression.h"
#include "host/nqcore.h"
#include "plot/chartfeed.h"
#include "plot/dataqobject.h"
#include "wire/arrayrecords.h"
#include "wire/watchers.h"

#include <QDebug>
#include <QTimer>
#include <QUrl>
#include <QWebChannel>
#include <QWebEngineHistory>
#include <QWebEnginePage>
#include <QWebEngineSettings>
#include <cstdlib>
#include <cstring>

const char* const MAX_PLOT_ARRAY_SIZE_STR = "500,000";

namespace {
const char LINE_PAGE[] = "qrc:/arraylens/charts/plotly_line.html";
const char HIST_PAGE[] = "qrc:/arraylens/charts/plotly_hist.html";
const char SURFACE_PAGE[] = "qrc:/arraylens/charts/plotly_3d.html";
const char FAILED_PREFIX[] = "Request to get visualize array data FAILED \nError:";
} // namespace

Visualizer::Visualizer(QWidget* parent) : QWebEngineView(parent) {
    setContextMenuPolicy(Qt::NoContextMenu);
    settings()->setAttribute(QWebEngineSettings::WebGLEnabled, true);
    connect(this, SIGNAL(loadFinished(bool)), this, SLOT(finishLoading(bool)));
    histData = new HistDataQObject();
    lineData = new LineDataQObject();
    surfData = new SurfDataQObject();
}

Visualizer::~Visualizer() {
    *alive = false;
    delete channel;
    delete histData;
    delete lineData;
    delete surfData;
    std::free(plotData);
}

QSize Visualizer::sizeHint() const {
    return QSize(-1, -1);
}

void Visualizer::showLinePlot(IHVExpression* expr, QString slice, QString filter) {
    currentData = lineData;
    pageUrl = QString::fromLatin1(LINE_PAGE);
    plotType = 1;
    showPlot(expr, slice, filter);
}

void Visualizer::showHistPlot(IHVExpression* expr, QString slice) {
    currentData = histData;
    pageUrl = QString::fromLatin1(HIST_PAGE);
    plotType = 0;
    showPlot(expr, slice, QString());
}

void Visualizer::showSurfacePlot(IHVExpression* expr, QString slice) {
    currentData = surfData;
    pageUrl = QString::fromLatin1(SURFACE_PAGE);
    plotType = 2;
    showPlot(expr, slice, QString());
}

void Visualizer::showPlot(IHVExpression* expr, QString slice, QString filter) {
    if (!channel) {
        // The pages find their data under these names. What is registered is
        // each data object's channel twin, which carries the same document
        // in packed form (see ChartFeed for why).
        channel = new QWebChannel(this);
        channel->registerObject(QStringLiteral("lineDataModel"), lineData->channelObject());
        channel->registerObject(QStringLiteral("histDataModel"), histData->channelObject());
        channel->registerObject(QStringLiteral("surfDataModel"), surfData->channelObject());
        page()->setWebChannel(channel);
    }
    history()->clear();

    VisEvaluateExpressionRequest request;
    request.setFields(expr, slice, filter);

    auto* watcher = new VisualDataWatcher();
    watcher->expression = expr;
    watcher->slice = slice;
    watcher->filter = filter;
    connect(watcher, SIGNAL(finished()), this, SLOT(handleVisualDataFinished()));

    auto* core = static_cast<IHVCore*>(
        NQ::findExtension(NQ::ICore::instance()->pluginManager(), NQ::Ids::IHVCORE_EXTENSION));
    QSharedPointer<IHVDebugger> debugger;
    if (core)
        debugger = core->getDebugger().toStrongRef();
    if (!debugger) {
        // Without the debugger service no answer will come; say so rather
        // than wait for ever.
        qDebug() << "Visualizer: no debugger service for the plot request";
        delete watcher;
        emit visualizeError(QString::fromLatin1(FAILED_PREFIX) +
                            QStringLiteral(" no debugger service"));
        return;
    }
    watcher->setFuture(debugger->sendRequest(request));
}

void Visualizer::handleVisualDataFinished() {
    auto* watcher = dynamic_cast<VisualDataWatcher*>(sender());
    if (!watcher)
        return;

    // A future cancelled by the host carries no answer; an empty bag then
    // reads as an answer without values.
    QSharedPointer<QObject> bag;
    if (watcher->future().resultCount() > 0)
        bag = watcher->future().resultAt(0);
    VisEvaluateExpressionResponse response(bag);
    if (response.isErrorResult()) {
        const QString msg = response.getErrorMessage();
        emit visualizeError(QString::fromLatin1(FAILED_PREFIX) + msg);
        delete watcher;
        return;
    }

    QString slice = watcher->slice;
    if (slice.isEmpty())
        slice = response.getEmptySlice();

    IHVExpression* expression = watcher->expression;
    if (!expression) {
        emit visualizeError(QString::fromLatin1(FAILED_PREFIX) +
                            QStringLiteral(" undefined expression"));
        delete watcher;
        return;
    }

    const QString exprText = expression->getExpression();
    QByteArray values = response.getAllEvaluations();
    const int rank = response.getRank();
    const int count = int(values.size() / 8);
    const QString actualType = response.getActualType();
    const QString filter = watcher->filter;

    if (count == 0) {
        emit visualizeError(
            QStringLiteral("Request to get visualize array data returned empty array"));
        delete watcher;
        return;
    }
    if (count > MAX_PLOT_ARRAY_SIZE && plotType == 1) {
        emit visualizeError(
            QStringLiteral("The line plot contains more than ") +
            QString::fromLatin1(MAX_PLOT_ARRAY_SIZE_STR) +
            QStringLiteral(" items and will not display. ") + QStringLiteral("\n") +
            QStringLiteral(" Consider adding a stride value or slicing the array. ") +
            QStringLiteral("\n\n") + QStringLiteral(" See the histogram plot for all values."));
        delete watcher;
        return;
    }
    if (rank != 2 && plotType == 2) {
        // Reported as a success as well, so that the expression is still
        // taken into the list with its slice.
        emit visualizeError(QStringLiteral("A surface plot requires a two dimensional array."));
        emit visSuccess(exprText, slice, actualType, filter);
        delete watcher;
        return;
    }

    set_data(values, QList<int>() << count, exprText);
    values.clear();

    int rows = 0;
    int cols = 0;
    if (rank == 2) {
        rows = response.getRows();
        cols = response.getCols();
    } else if (plotType == 2) {
        emit visualizeError(QStringLiteral("Unable to determine the x and y axes."));
        delete watcher;
        return;
    }

    if (currentData) {
        currentData->rank = rank;
        // Never set back: a data object that once drew a Fortran array keeps
        // its 1-based axes.
        if (expression->isFortranExpression())
            currentData->setFortran(true);
        currentData->xDimension = rows;
        currentData->yDimension = cols;
    }
    emit visSuccess(exprText, slice, actualType, filter);
    // Nothing needs the watcher any more.
    delete watcher;
}

void Visualizer::set_data(QByteArray data, QList<int> dims, const QString& title) {
    std::free(plotData);
    plotData = nullptr;
    plotDataCount = 0;
    void* buffer = std::malloc(size_t(data.size()));
    if (!buffer && data.size() > 0)
        return;
    if (data.size() > 0)
        std::memcpy(buffer, data.constData(), size_t(data.size()));
    data.clear();
    plotData = buffer;
    plotDataCount = dims.isEmpty() ? 0 : dims.first();
    this->title = title;
    plotIt();
}

void Visualizer::plotIt() {
    // The page about to load reads nothing until it is told: keep the old
    // plots out of the channel's first message to it.
    for (DataQObject* data :
         {static_cast<DataQObject*>(lineData), static_cast<DataQObject*>(histData),
          static_cast<DataQObject*>(surfData)})
        data->channelObject()->withhold();
    ++loadCount;
    load(QUrl(pageUrl));
    show();
    raise();
}

void Visualizer::finishLoading(bool) {
    if (plotData && currentData)
        handOverWhenPageReady(loadCount, 0);
}

// The page hears of its values only through dataAvailable, and the channel
// may pass a change to a page that has just loaded before the page has set up
// its end of the channel: its readiness for changes outlives the page that
// declared it. Such a page drops the change and would never draw. So the
// values are handed over once the page holds its data model, which it takes
// as it connects to the signal; usually that is so by the end of the load.
void Visualizer::handOverWhenPageReady(int load, int attempt) {
    const QSharedPointer<bool> living = alive;
    page()->runJavaScript(QStringLiteral("window.dataModel !== undefined"),
                          [this, living, load, attempt](const QVariant& ready) {
                              if (!*living || load != loadCount || !plotData)
                                  return;
                              // A page that failed to load never gets there;
                              // it is given the values all the same.
                              if (ready.toBool() || attempt >= 500) {
                                  handOver();
                                  return;
                              }
                              QTimer::singleShot(10, this, [this, load, attempt] {
                                  if (load == loadCount)
                                      handOverWhenPageReady(load, attempt + 1);
                              });
                          });
}

void Visualizer::handOver() {
    if (plotData && currentData) {
        currentData->setData(static_cast<double*>(plotData), plotDataCount, width(), height(),
                             title);
        std::free(plotData);
        plotData = nullptr;
    }
}

void Visualizer::refresh() {
    if (currentData)
        currentData->refresh();
}
