#include "statistics/statisticsui.h"

#include "host/hostids.h"
#include "host/hvdebugger.h"
#include "host/hvexpression.h"
#include "host/nqcore.h"
#include "wire/arrayrecords.h"
#include "wire/watchers.h"

#include <QBitArray>
#include <QBrush>
#include <QColor>
#include <QDebug>
#include <QEvent>
#include <QFile>
#include <QHeaderView>
#include <QPainter>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <QtUiTools/QUiLoader>

#include <cstdio>
#include <iostream>

namespace {

// The number of statistics the back end computes; fixed, whatever the labels.
constexpr int STAT_COUNT = 16;
// Below this width of the table one label/value pair of columns is shown,
// from it on two pairs with a divider between them.
constexpr int WIDE_LAYOUT_WIDTH = 480;
constexpr int NARROW_COLUMNS = 2;
constexpr int WIDE_COLUMNS = 5;
constexpr int DIVIDER_COLUMN = 2;
// Dragging the view's edge ends in one re-layout, this long after the last
// resize event.
constexpr int RESIZE_DELAY_MS = 100;

const char STATISTICS_FORM[] = ":/arraylens/ui/statistics.ui";

// The debugger service, looked up anew on every request so that a service
// that went away is noticed. Null when the host does not offer it.
QSharedPointer<IHVDebugger> lookUpDebugger() {
    NQ::ICore* core = NQ::ICore::instance();
    if (!core)
        return {};
    void* extension =
        NQ::findExtension(core->pluginManager(), QString::fromLatin1(NQ::Ids::IHVCORE_EXTENSION));
    if (!extension)
        return {};
    return static_cast<IHVCore*>(extension)->getDebugger().toStrongRef();
}

} // namespace

// ---------------------------------------------------------------- delegate

SpacerColumnDelegate::SpacerColumnDelegate(QObject* parent)
    : QStyledItemDelegate(parent), spacerColumn(DIVIDER_COLUMN) {}

SpacerColumnDelegate::~SpacerColumnDelegate() = default;

void SpacerColumnDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const {
    if (index.column() != spacerColumn) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    QStyleOptionViewItem divider(option);
    initStyleOption(&divider, index);
    painter->fillRect(divider.rect, QBrush(QColor(QStringLiteral("#d1d2d7"))));
    QStyledItemDelegate::paint(painter, divider, index);
}

// ------------------------------------------------------------- construction

StatisticsUI::StatisticsUI(QWidget* /*parent*/) : QWidget(nullptr) {
    statLabels_ << QStringLiteral("Checksum") << QStringLiteral("Count")
                << QStringLiteral("Zero Count") << QStringLiteral("Sum")
                << QStringLiteral("Minimum") << QStringLiteral("Maximum")
                << QStringLiteral("Median") << QStringLiteral("Mean")
                << QStringLiteral("Standard Deviation") << QStringLiteral("First Quartile")
                << QStringLiteral("Third Quartile") << QStringLiteral("Lower Adjacent Value")
                << QStringLiteral("Upper Adjacent Value") << QStringLiteral("Nan Count")
                << QStringLiteral("Infinity Count") << QStringLiteral("Denormalzized Count");
    init();
}

// The last response stays where it is: its bag may still be shared with the
// service, and the page is only destroyed with the whole view.
StatisticsUI::~StatisticsUI() = default;

void StatisticsUI::init() {
    QUiLoader loader;
    QFile file(QString::fromLatin1(STATISTICS_FORM));
    file.open(QFile::ReadOnly);
    QWidget* form = loader.load(&file, nullptr);
    file.close();

    statisticsTable_ = form ? form->findChild<QTableWidget*>(QStringLiteral("statisticsTable"),
                                                             Qt::FindChildrenRecursively)
                            : nullptr;
    if (!statisticsTable_) {
        qDebug() << "Failed to find statistics widget in .ui file";
        delete form;
        return;
    }

    QTableWidget* table = statisticsTable_;
    table->setSortingEnabled(false);
    table->setShowGrid(false);
    table->setRowCount(STAT_COUNT);
    table->setColumnCount(NARROW_COLUMNS);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table->setSelectionBehavior(QAbstractItemView::SelectItems);
    table->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    table->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    table->horizontalHeader()->setMinimumSectionSize(1);
    // The theme's style sheets match on this.
    table->setProperty("style", QStringLiteral("StatisticsTable"));

    table->setItemDelegateForColumn(DIVIDER_COLUMN, new SpacerColumnDelegate(table));
    table->installEventFilter(this);

    resizeTimer_ = new QTimer(this);
    resizeTimer_->setSingleShot(true);
    connect(resizeTimer_, SIGNAL(timeout()), this, SLOT(handleResizeTimeout()));

    auto* layout = new QVBoxLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(form);
    setLayout(layout);

    responseRef_ = nullptr;
}

QSize StatisticsUI::sizeHint() const {
    return QSize(-1, -1);
}

// ----------------------------------------------------------------- fetching

void StatisticsUI::showStatistics(IHVExpression* expression, QString slice, QString filter) {
    ArrayStatisticsRequest request;
    request.setFields(expression, slice, filter);

    auto* watcher = new StatisticsWatcher;
    watcher->expression = expression;
    watcher->slice = slice;
    watcher->filter = filter;
    connect(watcher, SIGNAL(finished()), this, SLOT(handleStatisticsFinished()));

    QSharedPointer<IHVDebugger> debugger = lookUpDebugger();
    if (!debugger) {
        // Nothing can be asked; say so instead of leaving the page waiting.
        delete watcher;
        qDebug() << "StatisticsUI::showStatistics: no debugger service";
        emit statError(QStringLiteral("Request to get statistics FAILED \nError:") +
                       QStringLiteral("The debugger service is not available."));
        return;
    }
    watcher->setFuture(debugger->sendRequest(request));
}

void StatisticsUI::handleStatisticsFinished() {
    auto* watcher = dynamic_cast<StatisticsWatcher*>(sender());
    if (!watcher) {
        std::cout << "\nhandleStatisticsFinished NO Statistics WATCHER! \n" << std::flush;
        return;
    }

    delete responseRef_;
    // A future that finished without a result (a canceled one) reads as an
    // empty answer: every field then has its default.
    QSharedPointer<QObject> bag;
    if (watcher->future().resultCount() > 0)
        bag = watcher->future().result();
    responseRef_ = new ArrayStatisticsResponse(bag);

    if (responseRef_->isErrorResult()) {
        const QString text = QStringLiteral("Request to get statistics FAILED \nError:") +
                             responseRef_->getErrorMessage();
        emit statError(text);
        delete watcher;
        return;
    }

    adjustTableColumnsToWidth(false);
    updateTable();

    QString slice = watcher->slice;
    const QString array = responseRef_->getArray();
    delete watcher;
    if (slice.isEmpty())
        slice = responseRef_->getEmptySlice();
    const QString actualType = responseRef_->getActualType();
    const QString filter = responseRef_->getFilter();
    emit statSuccess(array, slice, actualType, filter);
}

void StatisticsUI::markDataStale() {
    emit statStaleData();
}

void StatisticsUI::markDataNeedsUpdate() {}

void StatisticsUI::dumpExpression(IHVExpression* expression) {
    if (!expression)
        return;
    qDebug() << "StatisticsUI::dumpExpression:";
    qDebug() << "  Expression:" << expression->getExpression();
    qDebug() << "  Type:" << expression->getType();
    qDebug() << "  Actual Type:" << expression->getActualType();
    QSharedPointer<IHVFrame> frame = expression->getFrame();
    if (!frame)
        return;
    if (!frame->getThreadID().isEmpty())
        qDebug() << "  Thread ID:" << frame->getThreadID();
    qDebug() << "  Frame FP:" << frame->getFP();
    qDebug() << "  Frame Function:" << frame->getFunction();
    qDebug() << "  Frame Address:" << frame->getAddress();
    qDebug() << "  Frame Line:" << frame->getLine();
    qDebug() << "  Frame Index:" << expression->getFrameLevel();
    qDebug() << "  Frame Recursion Depth:" << expression->getFrameRecursionDepth();
}

// -------------------------------------------------------------------- table

void StatisticsUI::updateTable() {
    if (!responseRef_) {
        qDebug() << "No responseRef_ to update table.";
        return;
    }
    if (!statisticsTable_)
        return;
    statisticsTable_->clearContents();

    if (responseRef_->isStale()) {
        markDataStale();
        return;
    }
    const int count = responseRef_->getCount();
    if (count != 0) {
        addStatsToTable();
        return;
    }
    // No elements: the count alone, as one line.
    statisticsTable_->setItem(0, 0, new QTableWidgetItem(tr("Count")));
    insertVariantValue(QVariant(count), 0, 1, STAT_UINT);
}

void StatisticsUI::addStatsToTable() {
    if (!responseRef_ || responseRef_->getCount() == 0 || responseRef_->isErrorResult()) {
        qDebug() << "No responseRef_ to add stats to table.";
        return;
    }
    if (!statisticsTable_)
        return;

    const int columns = statisticsTable_->columnCount();
    const int pairs = columns / 2;
    if (pairs <= 0)
        return;
    const int rows = (STAT_COUNT + pairs - 1) / pairs;
    statisticsTable_->setRowCount(rows);

    const QBitArray valid = responseRef_->getStatValid();
    int stat = 0;
    for (int column = 0; column < columns - 1; column += 2) {
        if (column == DIVIDER_COLUMN && columns == WIDE_COLUMNS)
            column = DIVIDER_COLUMN + 1;
        for (int row = 0; row < rows; ++row, ++stat) {
            // A clear bit keeps the statistic's place with both cells empty.
            // Bits the back end did not send count as clear.
            if (stat >= statLabels_.size() || stat >= valid.size() || !valid.testBit(stat))
                continue;
            insertStatItem(row, column, statLabels_.at(stat));
            const QVariant value = getPropertyValue(stat);
            if (value.isValid())
                insertStatItem(row, column + 1, value.toString());
        }
    }
}

QVariant StatisticsUI::getPropertyValue(int index) {
    if (!responseRef_)
        return QVariant();
    const ArrayStatisticsResponse& r = *responseRef_;
    switch (index) {
    case 0:
        return QVariant::fromValue<qlonglong>(r.getChecksum());
    case 1:
        return QVariant(r.getCount());
    case 2:
        return QVariant(r.getZeroCount());
    case 3:
        return r.getSum();
    case 4:
        return r.getMin();
    case 5:
        return r.getMax();
    case 6:
        return QVariant(r.getMedian());
    case 7:
        return QVariant(r.getMean());
    case 8:
        return QVariant(r.getStdDev());
    case 9:
        return QVariant(r.getFirstQuartile());
    case 10:
        return QVariant(r.getThirdQuartile());
    case 11:
        return r.getLowerAdjValue();
    case 12:
        return r.getUpperAdjValue();
    case 13:
        return QVariant(r.getNanCount());
    case 14:
        return QVariant(r.getInfCount());
    case 15:
        return QVariant(r.getDenormCount());
    default:
        return QVariant();
    }
}

void StatisticsUI::insertStatItem(int row, int column, const QString& text) {
    statisticsTable_->setItem(row, column, new QTableWidgetItem(text));
}

void StatisticsUI::insertVariantValue(QVariant value, int row, int column, stat_type_e type) {
    // Room for a "%.*g" at precision 15 (sign, 15 digits, point, exponent)
    // or a "%d", with plenty to spare.
    char text[64];
    switch (type) {
    case STAT_DOUBLE:
        std::snprintf(text, sizeof text, "%.*g", 15, value.toDouble());
        break;
    case STAT_INT:
        std::snprintf(text, sizeof text, "%d", value.toInt());
        break;
    case STAT_UINT:
        // Printed signed on purpose: the back end's unsigned counts above
        // INT_MAX have always shown as negative numbers.
        std::snprintf(text, sizeof text, "%d", static_cast<int>(value.toUInt()));
        break;
    default:
        return;
    }
    statisticsTable_->setItem(row, column, new QTableWidgetItem(QString::fromLatin1(text)));
}

void StatisticsUI::adjustTableColumnsToWidth(bool repopulate) {
    if (!statisticsTable_)
        return;
    QTableWidget* table = statisticsTable_;
    const int columns =
        table->contentsRect().width() < WIDE_LAYOUT_WIDTH ? NARROW_COLUMNS : WIDE_COLUMNS;
    table->setColumnCount(columns);

    for (int i = 0; i < columns; ++i) {
        auto* header = new QTableWidgetItem;
        if (i == 0 || i == 3)
            header->setData(Qt::DisplayRole, QStringLiteral("Statistic"));
        else if (i == 1 || i == 4)
            header->setData(Qt::DisplayRole, QStringLiteral("Value"));
        table->setHorizontalHeaderItem(i, header);
        if (i == DIVIDER_COLUMN && columns == WIDE_COLUMNS) {
            table->setColumnWidth(i, 1);
            table->horizontalHeader()->setSectionResizeMode(i, QHeaderView::Fixed);
        } else {
            table->horizontalHeader()->setSectionResizeMode(i, QHeaderView::Stretch);
        }
    }

    if (responseRef_ && repopulate)
        addStatsToTable();
}

void StatisticsUI::handleResizeTimeout() {
    adjustTableColumnsToWidth(true);
}

bool StatisticsUI::eventFilter(QObject* /*watched*/, QEvent* event) {
    if (event->type() == QEvent::Resize && resizeTimer_)
        resizeTimer_->start(RESIZE_DELAY_MS);
    return false;
}
