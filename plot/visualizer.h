#pragma once
// The plot display: a web view that shows one of the three chart pages and
// feeds it the values of one plot request through a web channel.

#include <QList>
#include <QSharedPointer>
#include <QSize>
#include <QString>
#include <QWebEngineView>

class DataQObject;
class LineDataQObject;
class HistDataQObject;
class SurfDataQObject;
class IHVExpression;
class QWebChannel;

// The most values a line plot takes, as the message writes it and as a
// number. Both change together.
extern const char* const MAX_PLOT_ARRAY_SIZE_STR;
constexpr int MAX_PLOT_ARRAY_SIZE = 500000;

class Visualizer : public QWebEngineView {
    Q_OBJECT
public:
    explicit Visualizer(QWidget* parent);
    ~Visualizer() override;

    QSize sizeHint() const override;

    // The controller's entries.
    void showLinePlot(IHVExpression* expr, QString slice, QString filter);
    void showHistPlot(IHVExpression* expr, QString slice);
    void showSurfacePlot(IHVExpression* expr, QString slice);

    // The common request.
    void showPlot(IHVExpression* expr, QString slice, QString filter);
    // Keeps the values until the page has loaded and starts loading it.
    void set_data(QByteArray data, QList<int> dims, const QString& title);
    void plotIt();

    DataQObject* currentData = nullptr; // one of the three below
    LineDataQObject* lineData = nullptr;
    HistDataQObject* histData = nullptr;
    SurfDataQObject* surfData = nullptr;
    void* plotData = nullptr; // malloc'ed
    int plotDataCount = 0;
    QString title;
    QString pageUrl;
    int plotType = 0; // 0 histogram, 1 line, 2 surface
    QWebChannel* channel = nullptr;

signals:
    void visualizeError(const QString& err);
    void visSuccess(const QString& expr, const QString& slice, const QString& actualType,
                    const QString& filter);

public slots:
    void finishLoading(bool);
    void handleVisualDataFinished();
    void refresh();

private:
    void handOverWhenPageReady(int load, int attempt);
    void handOver();

    // Counts the loads begun, so that a check for one page's readiness
    // cannot hand values to the next; false once this view is going away,
    // for checks that answer late.
    int loadCount = 0;
    QSharedPointer<bool> alive = QSharedPointer<bool>::create(true);
};
