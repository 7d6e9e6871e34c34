#include "table/data2Dtableui.h"

#include "controller/arraylensui.h"
#include "host/hostids.h"
#include "host/nqcore.h"
#include "plugin/arraylensview.h"
#include "wire/arrayrecords.h"
#include "wire/watchers.h"

#include "ui_data2DTableForm.h"

#include <QCoreApplication>
#include <QDebug>
#include <QEvent>
#include <QHeaderView>
#include <QProgressDialog>
#include <QScrollBar>
#include <QTableWidget>
#include <QTimer>

#include <algorithm>
#include <cstdlib>
#include <memory>

const char Data2DTableUI::MULTI_DIM_ERROR_MSG[] =
    "The Data Table requires a two or more dimensional array.";

namespace {

// Rows are estimated at this height, and columns at least this wide, when
// working out how many are on screen.
constexpr int ROW_HEIGHT_ESTIMATE = 20;
// Rows and columns fetched beyond the visible ones on each side, so that a
// small scroll finds its cells already there.
constexpr int VIEWPORT_MARGIN = 8;
// At the end of the table the margin is taken from the other side; the
// start is pulled back by the visible count and this.
constexpr int END_PULL_BACK = 7;
constexpr int SCROLL_DELAY_MS = 100;
constexpr int RESIZE_DELAY_MS = 150;
constexpr int PROGRESS_DIALOG_WIDTH = 400;
// Moving the horizontal bar off its maximum and back makes the table scroll
// to its true right end after column widths have changed.
constexpr int RIGHT_END_NUDGE = 5;
// Inside these factors of the default section size, the width of a sample
// column leaves the default width alone.
constexpr double NARROW_COLUMN_FACTOR = 0.25;
constexpr double WIDE_COLUMN_FACTOR = 1.25;
// How often the header loops update the progress dialog.
constexpr int HEADER_PROGRESS_EVERY = 5;

const char CANCEL_WORD[] = "cancel";
const char FAILED_PREFIX[] = "FAILED to access array data. \n";
const char SAME_DIMS_MSG[] = "Error: Table Row and Column dimensions are the same.\n"
                             "Select different array dimensions for rows and columns.";
const char CANCELED_MSG[] = "Array data display canceled.";

// The back end reports a cancellation as an error whose message has the
// lower-case word in it.
bool isCancelMessage(const QString& message) {
    return message.contains(QLatin1String(CANCEL_WORD), Qt::CaseSensitive);
}

QString errorText(const QString& message) {
    return isCancelMessage(message) ? message : QLatin1String(FAILED_PREFIX) + message;
}

// The letter of a dimension; dimensions past the last letter show their
// number instead, so a high-rank array still gets a readable header.
QString dimensionLabel(int dim) {
    const int letters = int(qstrlen(DIMENSION_LABELS));
    if (dim >= 0 && dim < letters)
        return QString(QLatin1Char(DIMENSION_LABELS[dim]));
    return QString::number(dim);
}

// Array index of table row or column 0.
int firstIndex(int lowerBound, int upperBound, int stride) {
    if (stride > 0)
        return lowerBound;
    if (stride == 0)
        return upperBound - 1;
    return upperBound < lowerBound ? lowerBound : upperBound - 1;
}

// The header texts of table positions [from, to]: array indices, stepping
// by the stride.
QStringList headerTexts(int from, int to, int first, int lowerBound, int stride) {
    QStringList texts;
    if (from > to)
        return texts;
    int value;
    if (from == 1)
        value = first + stride;
    else if (stride > 0)
        value = lowerBound + from * stride;
    else
        value = lowerBound - std::abs(from * stride);
    for (int position = from; position <= to; ++position, value += stride)
        texts.append(QString::number(value));
    return texts;
}

} // namespace

int Data2DTableUI::progressStep(int count) {
    if (count <= 100)
        return 1;
    if (count <= 4000)
        return count / 10;
    return count / 100;
}

// ------------------------------------------------------------- construction

Data2DTableUI::Data2DTableUI(ArrayLensView* view, QWidget* parent)
    : QWidget(parent), ui(new Ui::data2DTableForm), view(view) {
    ui->setupUi(this);
    table = ui->data2DTableWidget;

    table->setSortingEnabled(false);
    table->setWordWrap(false);
    table->clearContents();
    for (QHeaderView* header : {table->horizontalHeader(), table->verticalHeader()}) {
        header->setProperty("style", QStringLiteral("DataTable"));
        header->setDefaultAlignment(Qt::AlignCenter);
    }

    // A drag reports its value once, when it ends.
    table->horizontalScrollBar()->setTracking(false);
    table->verticalScrollBar()->setTracking(false);
    connect(table->horizontalScrollBar(), SIGNAL(valueChanged(int)), this,
            SLOT(handleHorizontalScrollBarValueChanged(int)));
    connect(table->verticalScrollBar(), SIGNAL(valueChanged(int)), this,
            SLOT(handleVerticalScrollBarValueChanged(int)));

    NQ::ICore* core = NQ::ICore::instance();
    NQ::IContextManager* contexts = core ? core->contextManager() : nullptr;
    if (contexts)
        connect(contexts, SIGNAL(contextChanged()), this, SLOT(handleContextChange()));

    table->installEventFilter(this);

    viewportTimer = new QTimer(this);
    viewportTimer->setSingleShot(true);
    connect(viewportTimer, &QTimer::timeout, this, &Data2DTableUI::updateViewportData);

    table->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);

    IHVCore* hvCore = nullptr;
    if (core) {
        hvCore = static_cast<IHVCore*>(NQ::findExtension(
            core->pluginManager(), QString::fromLatin1(NQ::Ids::IHVCORE_EXTENSION)));
    }
    if (hvCore)
        debugger = hvCore->getDebugger().toStrongRef();

    const bool connected =
        contexts && contexts->hasContext(QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_CONNECTED));
    productName = (hvCore && hvCore->isRemoteClient() && !connected)
                      ? QStringLiteral("Halvane Remote Client")
                      : QStringLiteral("Halvane");

    resetParameters();
}

Data2DTableUI::~Data2DTableUI() {
    delete expression;
    delete ui;
}

void Data2DTableUI::resetParameters() {
    rowDim = 0;
    colDim = 1;
    dataFormat = al_pres_default;
    dataType = al_type_other;
    useBrackets = true;
    responseSlice.clear();
    updatePending = false;
    delete expression;
    expression = nullptr;
}

// ------------------------------------------------------ array information

void Data2DTableUI::showData2DTable(IHVExpression* expr, Config2DTable* config, QString slice,
                                    QString filter) {
    if (!expr)
        return;
    const bool sameExpression = expression &&
                                expr->getExpression() == expression->getExpression() &&
                                expr->getType() == expression->getType();
    if (!sameExpression)
        resizeColumns = true;

    // A missing configuration means the defaults; that object is ours alone.
    std::unique_ptr<Config2DTable> defaultConfig;
    if (!config) {
        defaultConfig.reset(new Config2DTable);
        config = defaultConfig.get();
    }

    bool forceSetup = true;
    if (sameExpression && config->slice == currentSlice && config->dataPres == dataFormat) {
        forceSetup = false;
        resizeColumns = false;
    }

    config->dumpConfig();
    resetParameters();

    if (!debugger) {
        emit data2DTableError(QLatin1String(FAILED_PREFIX) +
                              QStringLiteral("The debugger service is not available."));
        return;
    }
    expression = debugger->cloneExpression(expr);
    currentSlice = config->slice;
    fallbackSlice = slice;
    this->filter = filter;
    responseSlice.clear();
    rowDim = config->rowDim;
    colDim = config->colDim;
    dataFormat = config->dataPres;
    useBrackets = expr->isCLanguageExpression();

    requestArrayInfo(expression, forceSetup, false);
}

void Data2DTableUI::requestArrayInfo(IHVExpression* expr, bool forceSetup, bool boundsOnly) {
    if (requestPending) {
        updatePending = true;
        return;
    }
    if (!debuggerReady || !debugger)
        return;

    ArrayInfoRequest request;
    request.setFields(expr);

    auto* watcher = new Data2DTableWatcher;
    watcher->expression = expr;
    watcher->forceSetup = forceSetup;
    watcher->boundsOnly = boundsOnly;
    connect(watcher, SIGNAL(finished()), this, SLOT(handleArrayInfoFinished()));
    watcher->setFuture(debugger->sendRequest(request));

    requestPending = true;
    updatePending = false;
}

void Data2DTableUI::handleArrayInfoFinished() {
    auto* watcher = dynamic_cast<Data2DTableWatcher*>(sender());
    if (!watcher) {
        requestPending = false;
        updatePending = false;
        return;
    }
    const bool forceSetup = watcher->forceSetup;
    const bool boundsOnly = watcher->boundsOnly;
    QSharedPointer<QObject> bag;
    if (watcher->future().resultCount() > 0)
        bag = watcher->future().result();
    ArrayInfoResponse response(bag);

    dataType = al_data_type_e(response.getDataType());
    const QString arrayName = response.getArrayName();
    const QString actualType = response.getActualType();

    auto finish = [&]() {
        delete watcher;
        requestPending = false;
        updatePending = false;
    };

    if (response.isErrorResult()) {
        emit data2DTableError(errorText(response.getErrorMessage()));
        finish();
        if (boundsOnly && view)
            view->updateView();
        return;
    }

    if (view && view->ui) {
        view->ui->currentDimCount = response.getDimCount();
        view->ui->currentEmptySlice = response.getEmptySlice();
        view->ui->setCurrentArrayBounds(response.getArrayBounds());
    }

    if (boundsOnly) {
        finish();
        if (view)
            view->updateView();
        return;
    }
    if (response.isStale()) {
        emit data2DTableStaleData();
        finish();
        return;
    }
    if (response.getDimCount() <= 1) {
        QString type = actualType;
        if (type.isEmpty() && expression)
            type = expression->getType();
        emit data2DTableError(QLatin1String(MULTI_DIM_ERROR_MSG) + QStringLiteral("\nArray: ") +
                              arrayName + QStringLiteral(" Type: ") + type);
        finish();
        return;
    }
    finish();
    requestTableData(forceSetup);
}

// ------------------------------------------------------------ bounds texts

void Data2DTableUI::parseBounds(QString text, int* lower, int* upper, int* stride) {
    *lower = 0;
    *upper = 0;
    *stride = 1;
    const int p = text.indexOf(QLatin1Char(':'));
    const int q = text.indexOf(QLatin1Char(':'), p + 1);
    if (p > 0 && !text.left(p).isEmpty())
        *lower = text.left(p).toInt();
    if (q > 0) {
        const QString upperText = text.mid(p + 1, q - p - 1);
        const QString strideText = text.mid(q + 1);
        if (!upperText.isEmpty())
            *upper = upperText.toInt();
        if (!strideText.isEmpty())
            *stride = strideText.toInt();
    } else {
        const QString upperText = text.mid(p + 1);
        if (!upperText.isEmpty())
            *upper = upperText.toInt();
        *stride = 1;
    }
}

int Data2DTableUI::adjustCountForStride(int count, int stride) {
    if (stride == 0)
        return count;
    const int steps = std::abs(stride);
    const int total = std::abs(count);
    return total / steps + (total % steps ? 1 : 0);
}

QList<int> Data2DTableUI::parseOtherDimIndexList(QString slice) {
    const bool cStyle = slice.contains(QLatin1Char('['));
    const QString delimiter = cStyle ? QStringLiteral("][") : QStringLiteral(",");
    const QStringList parts = slice.split(delimiter, Qt::KeepEmptyParts);
    QList<int> indexes;
    for (QString part : parts) {
        if (cStyle)
            part.remove(QLatin1Char('[')).remove(QLatin1Char(']'));
        else
            part.remove(QLatin1Char('(')).remove(QLatin1Char(')'));
        const int colon = part.indexOf(QLatin1Char(':'));
        indexes.append((colon >= 0 ? part.left(colon) : part).toInt());
    }
    return indexes;
}

// -------------------------------------------------------- table and header

void Data2DTableUI::setupDefaultTable() {
    if (!expression)
        return;
    const int dims = (view && view->ui) ? view->ui->currentDimCount : 0;
    const QStringList bounds = (view && view->ui) ? view->ui->currentBounds : QStringList();

    int workRow = rowDim;
    int workCol = colDim;
    if (!(rowDim >= 0 && rowDim < dims && colDim >= 0 && colDim < dims && rowDim != colDim)) {
        if (useBrackets) {
            workRow = dims - 2;
            workCol = dims - 1;
        } else {
            workRow = 0;
            workCol = 1;
        }
    }

    int rows = 0;
    int cols = 0;
    for (int i = 0; i < dims; ++i) {
        if (i != workRow && i != workCol)
            continue;
        int lower, upper, stride;
        parseBounds(bounds.value(i), &lower, &upper, &stride);
        const int count = adjustCountForStride(std::abs(upper - lower + 1), stride);
        if (i == workRow)
            rows = count;
        if (i == workCol)
            cols = count;
    }
    if (dims <= 0 || rows <= 0 || cols <= 0 || workRow == workCol) {
        rows = 30;
        cols = 30;
    }

    if (table->rowCount() == rows && table->columnCount() == cols)
        return;
    table->clearContents();
    table->setRowCount(1);
    table->setColumnCount(1);
    table->setRowCount(rows);
    table->setColumnCount(cols);
    table->verticalHeader()->setDefaultSectionSize(ROW_HEIGHT_ESTIMATE);
    pinnedRight = false;
}

void Data2DTableUI::setTableHeaderLabels(int rowDim, int rowStride, int rowLowerBound,
                                         int rowUpperBound, int rowCount, int colDim, int colStride,
                                         int colLowerBound, int colUpperBound, int colCount,
                                         bool usingViewPort, int tableStartRow, int tableEndRow,
                                         int tableStartCol, int tableEndCol) {
    if (table->rowCount() != rowCount || table->columnCount() != colCount) {
        table->setRowCount(1);
        table->setColumnCount(1);
        table->setRowCount(rowCount);
        table->setColumnCount(colCount);
    }
    const QString longLabel =
        useBrackets ? QStringLiteral("[ %1 ]:%2") : QStringLiteral("( %1 ):%2");

    // Rows.
    const int firstRowIndex = firstIndex(rowLowerBound, rowUpperBound, rowStride);
    table->setVerticalHeaderItem(
        0, new QTableWidgetItem(longLabel.arg(dimensionLabel(rowDim)).arg(firstRowIndex)));
    int fromRow = 1;
    int toRow = rowCount;
    if (usingViewPort) {
        fromRow = tableStartRow <= 1 ? 1 : tableStartRow;
        toRow = tableEndRow;
    }
    const QStringList rowTexts =
        headerTexts(fromRow, toRow, firstRowIndex, rowLowerBound, rowStride);

    if (progressDialog) {
        progressDialog->setLabelText(
            QStringLiteral("Setting up %1 rows in the Data Table.   ").arg(rowCount));
        progressDialog->setRange(0, rowTexts.size());
        progressDialog->show();
        QCoreApplication::processEvents();
    }
    for (int k = 0; k < rowTexts.size(); ++k) {
        // Positions past the table's end take no label.
        if (fromRow + k < table->rowCount())
            table->setVerticalHeaderItem(fromRow + k, new QTableWidgetItem(rowTexts.at(k)));
        if (progressDialog) {
            if (progressDialog->wasCanceled())
                return;
            if (k % HEADER_PROGRESS_EVERY == 0)
                progressDialog->setValue(k);
        }
    }

    if (progressDialog) {
        if (progressDialog->wasCanceled())
            return;
        progressDialog->setLabelText(
            QStringLiteral("Setting up %1 columns in the Data Table.").arg(colCount));
        progressDialog->show();
        progressDialog->setValue(0);
        QCoreApplication::processEvents();
    }

    // Columns.
    const int firstColIndex = firstIndex(colLowerBound, colUpperBound, colStride);
    table->setHorizontalHeaderItem(
        0, new QTableWidgetItem(longLabel.arg(dimensionLabel(colDim)).arg(firstColIndex)));
    int fromCol = 1;
    int toCol = colCount;
    if (usingViewPort) {
        fromCol = tableStartCol <= 1 ? 1 : tableStartCol;
        toCol = tableEndCol;
    }
    const QStringList colTexts =
        headerTexts(fromCol, toCol, firstColIndex, colLowerBound, colStride);
    if (progressDialog) {
        progressDialog->setRange(0, colTexts.size());
        progressDialog->setValue(0);
    }
    for (int k = 0; k < colTexts.size(); ++k) {
        if (fromCol + k < table->columnCount())
            table->setHorizontalHeaderItem(fromCol + k, new QTableWidgetItem(colTexts.at(k)));
        if (progressDialog) {
            if (progressDialog->wasCanceled())
                break;
            if (k % HEADER_PROGRESS_EVERY == 0)
                progressDialog->setValue(k);
        }
    }
}

// ------------------------------------------------------------------ paging

void Data2DTableUI::getCurrentViewport(int& startRow, int& endRow, int& startCol, int& endCol,
                                       bool forceSetup, bool addMargin) {
    int rows = table->rowCount();
    int cols = table->columnCount();
    startRow = endRow = startCol = endCol = -1;

    const QRect contents = table->contentsRect();
    const int visibleRows = contents.height() / ROW_HEIGHT_ESTIMATE;
    // Columns are estimated with the row height too: the narrowest column
    // gives the most cells, which is the safe side.
    const int visibleCols = contents.width() / ROW_HEIGHT_ESTIMATE;

    if (rows <= 0 || cols <= 0 || forceSetup) {
        setupDefaultTable();
        rows = table->rowCount();
        cols = table->columnCount();
        startRow = 0;
        endRow = visibleRows < rows ? visibleRows : rows - 1;
        startCol = 0;
        endCol = visibleCols < cols ? visibleCols : cols - 1;
    } else {
        startRow = table->rowAt(0);
        startCol = table->columnAt(0);
        endRow = startRow + visibleRows;
        if (endRow >= rows)
            endRow = rows - 1;
        endCol = table->columnAt(contents.width());
    }
    if (endRow < 0)
        endRow = rows - 1;
    if (endCol < 0)
        endCol = cols - 1;

    if (addMargin) {
        auto widen = [](int& start, int& end, int count, int visible) {
            if (start > VIEWPORT_MARGIN) {
                start -= VIEWPORT_MARGIN;
            } else {
                end += VIEWPORT_MARGIN - start;
                start = 0;
            }
            if (end + VIEWPORT_MARGIN < count) {
                end += VIEWPORT_MARGIN;
            } else {
                end = count - 1;
                start = std::min(start, count - 1 - visible - END_PULL_BACK);
            }
        };
        widen(startRow, endRow, rows, visibleRows);
        widen(startCol, endCol, cols, visibleCols);
    }

    if (startRow < 0)
        startRow = 0;
    if (startCol < 0)
        startCol = 0;
    if (endRow >= rows)
        endRow = rows - 1;
    if (endCol >= cols)
        endCol = cols - 1;
}

void Data2DTableUI::setRequestViewport(ArrayData2DTableRequest& request, bool forceSetup) {
    int startRow, endRow, startCol, endCol;
    getCurrentViewport(startRow, endRow, startCol, endCol, forceSetup, true);
    request.setRequestViewport(true, startRow, endRow, startCol, endCol);
}

void Data2DTableUI::requestTableData(bool forceSetup) {
    if (requestPending) {
        updatePending = true;
        return;
    }
    if (!debuggerReady || !debugger || !expression)
        return;

    const int dims = (view && view->ui) ? view->ui->currentDimCount : 0;
    const QString defaultSlice =
        view ? view->getDefaultSlice(expression->getType(), useBrackets) : QString();
    if (currentSlice.isEmpty() && !fallbackSlice.isEmpty() && fallbackSlice != defaultSlice &&
        view && view->getSliceDimCount(fallbackSlice) == dims)
        currentSlice = fallbackSlice;

    if (dims == 1) {
        emit data2DTableError(QLatin1String(MULTI_DIM_ERROR_MSG) + QStringLiteral("\nArray: ") +
                              expression->getExpression() + QStringLiteral(" Type: ") +
                              expression->getType());
        return;
    }
    if (rowDim >= 0 && colDim >= 0 && rowDim == colDim && dims > 1) {
        emit data2DTableError(QLatin1String(SAME_DIMS_MSG));
        return;
    }

    ArrayData2DTableRequest request;
    request.setFocusFields(expression);
    request.setSlice(currentSlice);
    request.setOperationFields(expression);
    request.setRowDim(rowDim);
    request.setColDim(colDim);
    request.setDataFormat(dataFormat);
    request.setFilter(filter);
    setRequestViewport(request, forceSetup);

    auto* watcher = new Data2DTableWatcher;
    watcher->expression = expression;
    watcher->slice = currentSlice;
    connect(watcher, SIGNAL(finished()), this, SLOT(handle2DTableFinished()));
    watcher->setFuture(debugger->sendRequest(request));

    requestPending = true;
    updatePending = false;
}

void Data2DTableUI::updateViewportData() {
    requestTableData(false);
}

void Data2DTableUI::validateResponseViewport(int startRow, int endRow, int startCol, int endCol,
                                             bool refetch) {
    int viewStartRow, viewEndRow, viewStartCol, viewEndCol;
    getCurrentViewport(viewStartRow, viewEndRow, viewStartCol, viewEndCol, false, false);
    if (viewStartRow >= startRow && viewEndRow <= endRow && viewStartCol >= startCol &&
        viewEndCol <= endCol)
        return;
    if (refetch)
        updateViewportData();
}

void Data2DTableUI::handle2DTableFinished() {
    auto* watcher = dynamic_cast<Data2DTableWatcher*>(sender());
    if (!watcher) {
        qDebug() << "\nhandle2DTableFinished NO 2DTable WATCHER! \n\n";
        return;
    }
    QSharedPointer<QObject> bag;
    if (watcher->future().resultCount() > 0)
        bag = watcher->future().result();
    ArrayData2DTableResponse response(bag);

    const QVariantList elements = response.getTableDataList();
    if (elements.size() > PROGRESS_THRESHOLD && !progressDialog) {
        NQ::ICore* core = NQ::ICore::instance();
        progressDialog = new QProgressDialog(
            QStringLiteral("Preparing the Data Table for %1 array elements.").arg(elements.size()),
            QStringLiteral("Cancel"), 0, 0, core ? core->getMainWindow() : nullptr,
            Qt::WindowFlags());
        progressDialog->setWindowTitle(productName);
        progressDialog->setModal(true);
        progressDialog->setAutoReset(false);
        progressDialog->setMinimumWidth(PROGRESS_DIALOG_WIDTH);
    }

    // Taken over before the result is looked at: the back end echoes them on
    // an error as well.
    responseSlice = response.getSlice();
    rowDim = response.getRowDim();
    colDim = response.getColDim();
    dataFormat = al_data_pres_e(response.getDataFormat());
    dataType = al_data_type_e(response.getDataType());
    const QList<int> otherDimIndexes = parseOtherDimIndexList(responseSlice);
    const QString arrayName = response.getArrayName();
    const QString actualType = response.getActualType();
    const QString responseFilter = response.getFilter();

    auto makeConfig = [&]() {
        return new Config2DTable(rowDim, colDim, responseSlice, dataFormat, dataType,
                                 otherDimIndexes);
    };

    if (response.isErrorResult() || response.isStale()) {
        bool canceled = false;
        if (response.isErrorResult()) {
            const QString message = response.getErrorMessage();
            canceled = isCancelMessage(message);
            emit data2DTableError(errorText(message));
        } else {
            emit data2DTableStaleData();
        }
        delete watcher;
        // A dialog made for this answer has nothing to show.
        if (progressDialog) {
            progressDialog->close();
            progressDialog->deleteLater();
            progressDialog = nullptr;
        }
        // The success signal still follows: it hands the controller the
        // configuration and whether the update was canceled. The request
        // counts as open until that is done.
        Config2DTable* config = makeConfig();
        emit data2DTableSuccess(arrayName, responseSlice, actualType, responseFilter, config,
                                canceled);
        requestPending = false;
        updatePending = false;
        return;
    }

    if (!updateTable(response)) {
        emit data2DTableError(QLatin1String(CANCELED_MSG));
        delete watcher;
        Config2DTable* config = makeConfig();
        emit data2DTableSuccess(arrayName, responseSlice, actualType, responseFilter, config, true);
        requestPending = false;
        updatePending = false;
        return;
    }

    // Let the table lay itself out, so the scroll bars have their new ranges.
    QCoreApplication::processEvents();

    if (pinnedRight) {
        QScrollBar* bar = table->horizontalScrollBar();
        if (bar->value() == bar->maximum())
            bar->setValue(bar->maximum() - RIGHT_END_NUDGE);
        bar->setValue(bar->maximum());
    }

    delete watcher;
    currentSlice = responseSlice;
    Config2DTable* config = makeConfig();
    requestPending = false;

    if (response.getUsingViewPort()) {
        validateResponseViewport(response.getTableStartRow(), response.getTableEndRow(),
                                 response.getTableStartCol(), response.getTableEndCol(), true);
    }
    if (updatePending) {
        updatePending = false;
        if (response.getUsingViewPort()) {
            validateResponseViewport(response.getTableStartRow(), response.getTableEndRow(),
                                     response.getTableStartCol(), response.getTableEndCol(), true);
        }
    }
    emit data2DTableSuccess(arrayName, responseSlice, actualType, responseFilter, config, false);
}

bool Data2DTableUI::updateTable(ArrayData2DTableResponse response) {
    if (response.isStale())
        return false;

    const QVariantList elements = response.getTableDataList();
    const int count = elements.size();
    const int step = progressStep(count);

    setTableHeaderLabels(
        rowDim, response.getRowStride(), response.getRowLowerBound(), response.getRowUpperBound(),
        response.getRowCount(), colDim, response.getColStride(), response.getColLowerBound(),
        response.getColUpperBound(), response.getColCount(), response.getUsingViewPort(),
        response.getTableStartRow(), response.getTableEndRow(), response.getTableStartCol(),
        response.getTableEndCol());

    auto dropDialog = [this]() {
        progressDialog->close();
        progressDialog->deleteLater();
        progressDialog = nullptr;
    };

    if (progressDialog) {
        if (progressDialog->wasCanceled()) {
            dropDialog();
            return false;
        }
        progressDialog->setLabelText(
            QStringLiteral("Formatting %1 array elements for the Data Table.").arg(count));
        progressDialog->setRange(0, count);
        progressDialog->setValue(1);
    }

    int mark = 0;
    for (int i = 0; i < count; ++i) {
        const QVariantMap entry = elements.at(i).toMap();
        const int row = entry.value(QStringLiteral("row")).toInt();
        const int col = entry.value(QStringLiteral("col")).toInt();
        auto* item = new QTableWidgetItem(entry.value(QStringLiteral("value")).toString());
        item->setFlags(item->flags() & ~Qt::ItemIsEditable);
        item->setTextAlignment(Qt::AlignRight);
        table->setItem(row, col, item);
        if (progressDialog) {
            if (progressDialog->wasCanceled())
                break;
            if (mark < i) {
                progressDialog->setValue(i);
                mark += step;
            }
        }
    }

    if (progressDialog) {
        const bool canceled = progressDialog->wasCanceled();
        dropDialog();
        if (canceled)
            return false;
    }

    if (resizeColumns && table->columnCount() > 1) {
        // Column 1 is the sample of how wide the values are.
        table->resizeColumnToContents(1);
        const int width = table->columnWidth(1);
        const int defaultWidth = table->horizontalHeader()->defaultSectionSize();
        if (width < NARROW_COLUMN_FACTOR * defaultWidth ||
            width > WIDE_COLUMN_FACTOR * defaultWidth) {
            table->horizontalHeader()->setDefaultSectionSize(width);
            table->resizeColumnToContents(0);
        }
        resizeColumns = false;
    }

    // The columns this answer filled fit their new contents. The back end
    // sends its elements row by row, so the first and the last element
    // carry the answer's first and last column.
    if (count > 0) {
        const int firstCol = elements.first().toMap().value(QStringLiteral("col")).toInt();
        const int lastCol = elements.last().toMap().value(QStringLiteral("col")).toInt();
        for (int col = firstCol; col <= lastCol; ++col)
            table->resizeColumnToContents(col);
    }
    return true;
}

// ------------------------------------------------------- events and slots

void Data2DTableUI::handleVerticalScrollBarValueChanged(int /*value*/) {
    viewportTimer->start(SCROLL_DELAY_MS);
}

void Data2DTableUI::handleHorizontalScrollBarValueChanged(int value) {
    QScrollBar* bar = table->horizontalScrollBar();
    if (value != bar->maximum()) {
        pinnedRight = false;
    } else {
        const int column = table->columnAt(table->contentsRect().width());
        pinnedRight = column == -1 || column == table->columnCount() - 1;
    }
    if (!requestPending)
        viewportTimer->start(SCROLL_DELAY_MS);
}

bool Data2DTableUI::eventFilter(QObject* watched, QEvent* event) {
    if (watched == table && event->type() == QEvent::Resize)
        viewportTimer->start(RESIZE_DELAY_MS);
    return false;
}

void Data2DTableUI::handleContextChange() {
    NQ::ICore* core = NQ::ICore::instance();
    NQ::IContextManager* contexts = core ? core->contextManager() : nullptr;
    debuggerReady =
        contexts && contexts->hasContext(QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_READY));
}

void Data2DTableUI::dumpTable() {
    const int rows = table->rowCount();
    const int cols = table->columnCount();
    qDebug() << "Data2DTableUI::dumpTable() Num_rows: " << rows << " Num_cols: " << cols;
    for (int col = 0; col < cols; ++col) {
        QTableWidgetItem* header = table->horizontalHeaderItem(col);
        if (!header) {
            qDebug() << "Col Header Item Null: " << col;
            continue;
        }
        qDebug().noquote() << QString::asprintf(
            "  [%s,%s]    %s \n", "", qPrintable(QString::number(col)), qPrintable(header->text()));
    }
    for (int row = 0; row < rows; ++row) {
        QTableWidgetItem* rowHeader = table->verticalHeaderItem(row);
        if (!rowHeader) {
            qDebug() << "Row Header Item Null: " << row;
            continue;
        }
        for (int col = 0; col < cols; ++col) {
            QTableWidgetItem* colHeader = table->horizontalHeaderItem(col);
            QTableWidgetItem* item = table->item(row, col);
            qDebug().noquote() << QString::asprintf(
                "  [%s,%s]      %s \n", qPrintable(rowHeader->text()),
                qPrintable(colHeader ? colHeader->text() : QString::number(col)),
                item ? qPrintable(item->text()) : "Item Null");
        }
    }
}
