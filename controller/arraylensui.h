#pragma once
// The controller of the plug-in and the widget the view shows: the list of
// expressions the user has looked at, each one's settings, the current one,
// and the stack of displays it drives.

#include "config/slicerecords.h"
#include "host/hvdebugger.h"
#include "host/hvexpression.h"
#include "host/nqcore.h"
#include "wire/hvdwppacket.h"

#include <QFutureWatcher>
#include <QList>
#include <QMap>
#include <QSharedPointer>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>

class ArrayLensView;
class QLabel;
class QResizeEvent;
class QStackedWidget;
class Visualizer;
class StatisticsUI;
class Data2DTableUI;

// Holds, while an expression is being evaluated, what is needed once the
// evaluation ends.
class ExpressionWatcher : public QFutureWatcher<IHVExpression*> {
public:
    ExpressionWatcher(IHVExpression* expression, QString slice, QString filter, bool refresh)
        : QFutureWatcher<IHVExpression*>(nullptr), expression(expression), slice(std::move(slice)),
          filter(std::move(filter)), refresh(refresh) {}

    IHVExpression* expression;
    QString slice;
    QString filter;
    bool refresh;
};

class ArrayLensUI : public QWidget, public NQ::ISelectionListener {
    Q_OBJECT
public:
    explicit ArrayLensUI(ArrayLensView* view);
    ~ArrayLensUI() override;

    QSize sizeHint() const override;
    void selectionChanged(NQ::IPart* part, NQ::ISelection* selection) override;

    // Expressions and their settings.
    void setExpression(IHVExpression* expr, QString slice, QString filter, bool refresh);
    void updateCurrentExpression(bool refresh);
    void clearExpressions();
    int findDuplicate(QString name, IHVExpression* expr);
    QStringList getOrigArrayBounds();
    void setCurrentArrayBounds(QStringList bounds);
    void updateUIFromConfig(QString slice, QString filter, Config2DTable* config, bool use2DSlice);
    void updateToolbarText(QString slice);
    void dumpExpression(IHVExpression* expr);

    // Display switching.
    void showStats();
    void showData2DTable();
    void showLinePlot();
    void showHistPlot();
    void showSurfacePlot();
    void postMessage(QString text);
    void setUpdateContext(bool on);

public slots:
    void handleStaleData();
    void handleError(QString error);
    void handleConfigError(QString error);
    void handleContextChange();
    void handleComboIndexChanged(int index);
    void handleExprEvalFinished();
    void handleExpressionCancelled();
    void handleSuccess(QString expr_name, QString slice, QString actualType, QString filter);
    void handle2DTableSuccess(QString expr_name, QString slice2dTable, QString actualType,
                              QString filter, Config2DTable* dataTableConfig, bool updateCanceled);
    void handleReturnPressed();
    void handleDebuggerEvent(AsyncRecord record);
    void updateUI();
    void handleTimeout();

protected:
    void resizeEvent(QResizeEvent* event) override;

public:
    ArrayLensView* view;
    QStackedWidget* stack = nullptr;
    QLabel* messageLabel = nullptr;
    Visualizer* visualizer = nullptr;
    StatisticsUI* statisticsUI = nullptr;
    Data2DTableUI* data2DTableUI = nullptr;
    int displayMode = 0;
    IHVExpression* currentExpression = nullptr;
    QSharedPointer<IHVDebugger> debugger;
    IHalvane* halvane = nullptr;
    QList<IHVExpression*> expressions;
    QMap<IHVExpression*, QString> sliceMap;
    QMap<IHVExpression*, QString> filterMap;
    QMap<IHVExpression*, QString> typeMap;
    QMap<IHVExpression*, Config2DTable*> configMap;
    QMap<IHVExpression*, bool> use2DSliceMap;
    QMap<IHVExpression*, QStringList> origBoundsMap;
    bool use2DSlice = false;
    Config2DTable* currentConfig = nullptr;
    QString currentSlice2dTable;
    QMap<IHVExpression*, QString> slice2dTableMap;
    QTimer resizeTimer;
    bool ready = false;
    bool connected = false;
    bool newExpressionPending = false;
    QString currentSlice;
    QString currentFilter;
    bool filterDisabled = false;
    int pendingIndex = 0;
    QStringList pendingList;
    int plotKind = 0;
    int currentDimCount = 0;
    QString currentEmptySlice;
    QStringList currentBounds;

private:
    void init();
    // Loads the settings of currentExpression from the maps; a missing entry
    // is inserted with its default.
    void loadCurrentFromMaps();
    void resetArrayDetails();
    void filterOff();
    void showDisplay(int mode, int kind);
    void refreshToolbarText();
    class QComboBox* comboBox() const;
};
