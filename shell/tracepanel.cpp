#include "shell/tracepanel.h"

#include "gdbdebugger.h"
#include "traceservice.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWebEngineView>

#include <cmath>

using arraylens::gdb::TraceService;

namespace shell {

namespace {

// The chart page (tracechart.html in the shell's resources) draws with the
// plotly script of the plug-in's chart resources, registered once the
// plug-in is loaded.
const char* kPage = "qrc:/arraylens-shell/tracechart.html";

} // namespace

TracePanel::TracePanel(arraylens::gdb::GdbDebugger* debugger, QWidget* parent)
    : QWidget(parent), debugger_(debugger) {
    setObjectName(QStringLiteral("TracePanel"));
    trace_ = new TraceService(debugger, this);

    expression_ = new QLineEdit;
    expression_->setObjectName(QStringLiteral("TraceExpression"));
    expression_->setPlaceholderText(QStringLiteral("array expression"));
    slice_ = new QLineEdit;
    slice_->setObjectName(QStringLiteral("TraceSlice"));
    slice_->setPlaceholderText(QStringLiteral("whole array"));
    filter_ = new QLineEdit;
    filter_->setObjectName(QStringLiteral("TraceFilter"));
    filter_->setPlaceholderText(QStringLiteral("every element"));
    until_ = new QLineEdit;
    until_->setObjectName(QStringLiteral("TraceUntil"));
    until_->setPlaceholderText(QStringLiteral("e.g. NanCount > 0"));
    stats_ = new QListWidget;
    stats_->setObjectName(QStringLiteral("TraceStatistics"));
    for (const QString& name : TraceService::statisticNames()) {
        auto* item = new QListWidgetItem(name, stats_);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(name == QLatin1String("Max") || name == QLatin1String("Mean")
                                ? Qt::Checked
                                : Qt::Unchecked);
    }
    stats_->setMaximumHeight(90);
    start_ = new QPushButton(QStringLiteral("Start"));
    start_->setObjectName(QStringLiteral("TraceStart"));
    stop_ = new QPushButton(QStringLiteral("Stop"));
    stop_->setObjectName(QStringLiteral("TraceStop"));
    stop_->setEnabled(false);
    status_ = new QLabel(QStringLiteral("Fill in an array and press Start."));
    status_->setObjectName(QStringLiteral("TraceStatus"));
    status_->setWordWrap(true);
    chart_ = new QWebEngineView;
    chart_->setObjectName(QStringLiteral("TraceChart"));
    chart_->setMinimumHeight(120);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Array"), expression_);
    form->addRow(QStringLiteral("Slice"), slice_);
    form->addRow(QStringLiteral("Filter"), filter_);
    form->addRow(QStringLiteral("Follow"), stats_);
    form->addRow(QStringLiteral("Until"), until_);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(start_);
    buttons->addWidget(stop_);
    buttons->addWidget(status_, 1);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    layout->addLayout(form);
    layout->addLayout(buttons);
    layout->addWidget(chart_, 1);

    connect(start_, &QPushButton::clicked, this, &TracePanel::startTrace);
    connect(stop_, &QPushButton::clicked, this, &TracePanel::stopTrace);
    connect(trace_, &TraceService::lineReady, this, &TracePanel::addLine);
    connect(trace_, &TraceService::finished, this,
            [this](TraceService::End end, const QString& why) {
                start_->setEnabled(true);
                stop_->setEnabled(false);
                status_->setText(why);
                emit traceFinished(end == TraceService::End::Until);
            });
    connect(chart_, &QWebEngineView::loadFinished, this, [this](bool ok) {
        pageLoaded_ = ok;
        redraw();
    });
}

TracePanel::~TracePanel() = default;

void TracePanel::setExpression(const QString& text) {
    expression_->setText(text);
}
void TracePanel::setSlice(const QString& text) {
    slice_->setText(text);
}
void TracePanel::setFilter(const QString& text) {
    filter_->setText(text);
}
void TracePanel::setUntil(const QString& text) {
    until_->setText(text);
}

void TracePanel::setFollowed(const QStringList& names) {
    for (int i = 0; i < stats_->count(); ++i)
        stats_->item(i)->setCheckState(names.contains(stats_->item(i)->text()) ? Qt::Checked
                                                                               : Qt::Unchecked);
}

QStringList TracePanel::followed() const {
    QStringList names;
    for (int i = 0; i < stats_->count(); ++i)
        if (stats_->item(i)->checkState() == Qt::Checked)
            names << stats_->item(i)->text();
    return names;
}

bool TracePanel::isTracing() const {
    return trace_->isActive();
}

QString TracePanel::statusText() const {
    return status_->text();
}

void TracePanel::startTrace() {
    if (trace_->isActive())
        return;
    arraylens::gdb::TraceSettings settings;
    settings.expression = expression_->text().trimmed();
    settings.slice = slice_->text().trimmed();
    settings.filter = filter_->text().trimmed();
    settings.until = until_->text().trimmed();
    settings.stats = followed();
    if (settings.expression.isEmpty()) {
        status_->setText(QStringLiteral("Name the array to follow."));
        return;
    }
    if (settings.stats.isEmpty()) {
        status_->setText(QStringLiteral("Choose at least one statistic to follow."));
        return;
    }
    QString error;
    if (!trace_->configure(settings, &error)) {
        status_->setText(error);
        return;
    }
    drawn_ = settings.stats;
    points_.clear();
    // The page is loaded with the first trace: its script comes from the
    // plug-in's resources, there only once the plug-in is loaded.
    if (chart_->url().isEmpty())
        chart_->load(QUrl(QString::fromLatin1(kPage)));
    redraw();
    start_->setEnabled(false);
    stop_->setEnabled(true);
    status_->setText(QStringLiteral("Tracing..."));
    trace_->start();
}

void TracePanel::stopTrace() {
    trace_->stop();
}

void TracePanel::addLine(const QSharedPointer<QObject>& line) {
    if (line->property("result").toString() == QLatin1String("exit"))
        return;
    QVariantMap point;
    point.insert(QStringLiteral("Stop"), line->property("Stop"));
    if (line->property("result").isValid()) {
        point.insert(QStringLiteral("msg"), line->property("msg"));
    } else {
        for (const QString& name : drawn_)
            point.insert(name, line->property(name.toLatin1().constData()));
    }
    points_.append(point);
    status_->setText(QStringLiteral("Stop %1").arg(point.value(QStringLiteral("Stop")).toInt()));
    redraw();
}

void TracePanel::redraw() {
    if (!pageLoaded_)
        return;
    // A stop without a value (unreadable, or the statistic not valid there)
    // is a gap in its line.
    QJsonArray series;
    for (const QString& name : drawn_) {
        QJsonArray xs, ys;
        for (const QVariantMap& p : points_) {
            xs.append(p.value(QStringLiteral("Stop")).toInt());
            const QVariant v = p.value(name);
            const double d = v.toDouble();
            const bool number = v.isValid() && v.userType() != QMetaType::Nullptr;
            ys.append(number && std::isfinite(d) ? QJsonValue(d) : QJsonValue());
        }
        series.append(QJsonObject{{"name", name}, {"x", xs}, {"y", ys}});
    }
    const QString call =
        QStringLiteral("draw(%1)")
            .arg(QString::fromUtf8(QJsonDocument(series).toJson(QJsonDocument::Compact)));
    QPointer<TracePanel> self(this);
    chart_->page()->runJavaScript(call, [self](const QVariant&) {
        if (self)
            emit self->chartDrawn();
    });
}

void TracePanel::chartPointCount(std::function<void(int)> done) {
    chart_->page()->runJavaScript(QStringLiteral("pointCount()"), [done](const QVariant& v) {
        done(v.isValid() ? v.toInt() : -1);
    });
}

} // namespace shell
