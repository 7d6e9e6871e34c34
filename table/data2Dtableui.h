#pragma once
// The Data Table display: a two-dimensional plane of an array expression in
// a table whose row and column counts span the whole plane, but whose cells
// are fetched lazily, only around what is on screen.

#include "config/slicerecords.h"
#include "host/hvdebugger.h"

#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QWidget>

class ArrayData2DTableRequest;
class ArrayData2DTableResponse;
class ArrayLensView;
class IHVExpression;
class QEvent;
class QProgressDialog;
class QTableWidget;
class QTimer;

// The form class generated from data2DTableForm.ui.
namespace Ui {
class data2DTableForm;
} // namespace Ui

class Data2DTableUI : public QWidget {
    Q_OBJECT
public:
    // A response with more elements than this is laid out under a progress
    // dialog.
    static constexpr int PROGRESS_THRESHOLD = 2000;
    static const char MULTI_DIM_ERROR_MSG[];

    Data2DTableUI(ArrayLensView* view, QWidget* parent = nullptr);
    ~Data2DTableUI() override;

    bool eventFilter(QObject* watched, QEvent* event) override;

    // Set-up (array information, bounds, header labels).
    void showData2DTable(IHVExpression* expr, Config2DTable* config, QString slice, QString filter);
    void requestArrayInfo(IHVExpression* expr, bool forceSetup, bool boundsOnly);
    void resetParameters();
    void parseBounds(QString text, int* lower, int* upper, int* stride);
    int adjustCountForStride(int count, int stride);
    void setupDefaultTable();
    void setTableHeaderLabels(int rowDim, int rowStride, int rowLowerBound, int rowUpperBound,
                              int rowCount, int colDim, int colStride, int colLowerBound,
                              int colUpperBound, int colCount, bool usingViewPort,
                              int tableStartRow, int tableEndRow, int tableStartCol,
                              int tableEndCol);

    // Paging.
    void getCurrentViewport(int& startRow, int& endRow, int& startCol, int& endCol, bool forceSetup,
                            bool addMargin);
    void setRequestViewport(ArrayData2DTableRequest& request, bool forceSetup);
    void requestTableData(bool forceSetup);
    void updateViewportData();
    void validateResponseViewport(int startRow, int endRow, int startCol, int endCol, bool refetch);
    // False when the user canceled the fill.
    bool updateTable(ArrayData2DTableResponse response);
    void dumpTable();
    // How many elements pass between two updates of the progress dialog
    // while a response of `count` elements is laid in.
    static int progressStep(int count);

signals:
    void data2DTableError(const QString& error);
    void data2DTableStaleData();
    void data2DTableSuccess(const QString& expr, const QString& slice, const QString& actualType,
                            const QString& filter, Config2DTable* dataTableConfig,
                            bool updateCanceled = false);

public slots:
    void handle2DTableFinished();
    void handleArrayInfoFinished();
    QList<int> parseOtherDimIndexList(QString slice);
    void handleHorizontalScrollBarValueChanged(int value);
    void handleVerticalScrollBarValueChanged(int value);
    void handleContextChange();

public:
    Ui::data2DTableForm* ui = nullptr;
    QTableWidget* table = nullptr;
    QSharedPointer<IHVDebugger> debugger;
    ArrayLensView* view = nullptr;
    IHVExpression* expression = nullptr;
    QString fallbackSlice;
    QString currentSlice;
    QString responseSlice;
    al_data_pres_e dataFormat = al_pres_default;
    al_data_type_e dataType = al_type_other;
    QString filter;
    int rowDim = -1;
    int colDim = -1;
    bool useBrackets = true;
    QString productName;
    QProgressDialog* progressDialog = nullptr;
    bool resizeColumns = true;
    bool requestPending = false;
    bool updatePending = false;
    bool pinnedRight = false;
    bool debuggerReady = false;
    QTimer* viewportTimer = nullptr;
};
