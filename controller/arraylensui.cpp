#include "controller/arraylensui.h"

#include "plugin/arraylensconstants.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/arraylensview.h"
#include "plugin/noadjustcombobox.h"

#if __has_include("statistics/statisticsui.h")
#include "statistics/statisticsui.h"
#define AL_HAVE_STATISTICS 1
#endif
#if __has_include("table/data2Dtableui.h")
#include "table/data2Dtableui.h"
#define AL_HAVE_TABLE 1
#endif
#if __has_include("plot/visualizer.h")
#include "plot/visualizer.h"
#define AL_HAVE_PLOT 1
#endif

#include <QDebug>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QResizeEvent>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {

const char NO_DATA_MSG[] = "No Array Data Available";

// The host's extension lookup. A missing core extension is a broken
// installation and ends the process.
void* lookupExtension(const char* id, bool required) {
    void* extension =
        NQ::findExtension(NQ::ICore::instance()->pluginManager(), QString::fromLatin1(id));
    if (!extension && required)
        qFatal("Array Lens: required host extension %s is missing", id);
    return extension;
}

#if !defined(AL_HAVE_STATISTICS) || !defined(AL_HAVE_TABLE) || !defined(AL_HAVE_PLOT)
// A page that stands in for a display this build was made without.
QWidget* placeholderPage(const QString& what) {
    auto* label = new QLabel(what);
    label->setAlignment(Qt::AlignCenter);
    return label;
}
#endif

} // namespace

ArrayLensUI::ArrayLensUI(ArrayLensView* view) : QWidget(nullptr), view(view) {
    currentExpression = nullptr;
    filterDisabled = false;
    pendingIndex = 0;
    init();
}

ArrayLensUI::~ArrayLensUI() {
    if (NQ::ICore* core = NQ::ICore::instance())
        core->selectionManager()->removeSelectionListener(this);
    // The expressions and table settings are not ours to free.
    expressions.clear();
    sliceMap.clear();
    filterMap.clear();
    typeMap.clear();
    configMap.clear();
    use2DSliceMap.clear();
    origBoundsMap.clear();
    slice2dTableMap.clear();
}

void ArrayLensUI::init() {
    ready = false;
    connected = false;
    newExpressionPending = false;
    use2DSlice = false;
    currentDimCount = 0;
    currentEmptySlice.clear();
    currentBounds.clear();

    stack = new QStackedWidget(this);

    messageLabel = new QLabel();
    messageLabel->setObjectName(QStringLiteral("ArrayLensMessageLabel"));
    messageLabel->setProperty("class", QStringLiteral("message-area-label"));
    messageLabel->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    messageLabel->setWordWrap(true);
    stack->insertWidget(0, messageLabel);

#ifdef AL_HAVE_STATISTICS
    statisticsUI = new StatisticsUI(nullptr);
    connect(statisticsUI, SIGNAL(statStaleData()), this, SLOT(handleStaleData()));
    connect(statisticsUI, SIGNAL(statError(QString)), this, SLOT(handleError(QString)));
    connect(statisticsUI, SIGNAL(statSuccess(QString, QString, QString, QString)), this,
            SLOT(handleSuccess(QString, QString, QString, QString)));
    stack->insertWidget(1, statisticsUI);
#else
    stack->insertWidget(1, placeholderPage(QStringLiteral("Statistics")));
#endif

    currentConfig = nullptr;
#ifdef AL_HAVE_TABLE
    data2DTableUI = new Data2DTableUI(view, nullptr);
    connect(data2DTableUI, SIGNAL(data2DTableStaleData()), this, SLOT(handleStaleData()));
    connect(data2DTableUI, SIGNAL(data2DTableError(QString)), this, SLOT(handleError(QString)));
    connect(data2DTableUI,
            SIGNAL(data2DTableSuccess(QString, QString, QString, QString, Config2DTable*, bool)),
            this,
            SLOT(handle2DTableSuccess(QString, QString, QString, QString, Config2DTable*, bool)));
    stack->insertWidget(3, data2DTableUI);
#else
    stack->insertWidget(3, placeholderPage(QStringLiteral("Data Table")));
#endif

    QWidget* plotPage = nullptr;
#ifdef AL_HAVE_PLOT
    visualizer = new Visualizer(nullptr);
    connect(visualizer, SIGNAL(visualizeError(QString)), this, SLOT(handleError(QString)));
    connect(visualizer, SIGNAL(visSuccess(QString, QString, QString, QString)), this,
            SLOT(handleSuccess(QString, QString, QString, QString)));
    plotPage = visualizer;
#else
    plotPage = placeholderPage(QStringLiteral("Plot"));
#endif

    connect(NQ::ICore::instance()->contextManager(), SIGNAL(contextChanged()), this,
            SLOT(handleContextChange()));
    connect(&resizeTimer, SIGNAL(timeout()), this, SLOT(handleTimeout()));

    // The table went in after statistics; the plot page slides in before
    // it, which leaves the table at 3.
    stack->insertWidget(2, plotPage);
    stack->setCurrentIndex(2);

    auto* layout = new QVBoxLayout();
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(stack);
    setLayout(layout);

    auto* core = static_cast<IHVCore*>(lookupExtension(NQ::Ids::IHVCORE_EXTENSION, true));
    if (core)
        debugger = core->getDebugger().toStrongRef();
    if (debugger)
        connect(debugger.data(), SIGNAL(debuggerEvent(AsyncRecord)), this,
                SLOT(handleDebuggerEvent(AsyncRecord)));

    halvane = static_cast<IHalvane*>(lookupExtension(NQ::Ids::IHALVANE_EXTENSION, false));

    NQ::ISelectionManager* selections = NQ::ICore::instance()->selectionManager();
    selections->addSelectionListener(this, QStringLiteral("HVFrame"));
    selections->addSelectionListener(this, QStringLiteral("HVProcess"));
    postMessage(QString::fromLatin1(NO_DATA_MSG));
}

QSize ArrayLensUI::sizeHint() const {
    return QSize(-1, -1);
}

QComboBox* ArrayLensUI::comboBox() const {
    if (!view || !view->toolBarFactory)
        return nullptr;
    return view->toolBarFactory->comboBox;
}

// ---- expressions ------------------------------------------------------------

void ArrayLensUI::loadCurrentFromMaps() {
    currentSlice = sliceMap[currentExpression];
    currentFilter = filterMap[currentExpression];
    currentConfig = configMap[currentExpression];
    currentSlice2dTable = slice2dTableMap[currentExpression];
    use2DSlice = use2DSliceMap[currentExpression];
}

void ArrayLensUI::resetArrayDetails() {
    currentDimCount = 0;
    currentEmptySlice.clear();
    currentBounds.clear();
}

void ArrayLensUI::refreshToolbarText() {
    if (displayMode == 3 || use2DSlice)
        updateToolbarText(currentSlice2dTable);
    else
        updateToolbarText(currentSlice);
}

void ArrayLensUI::setExpression(IHVExpression* expr, QString slice, QString filter, bool refresh) {
    if (!expr)
        return;
    const int index = findDuplicate(expr->getExpression(), expr);
    if (index == -1) {
        currentExpression = debugger ? debugger->cloneExpression(expr) : nullptr;
        if (!currentExpression)
            return;
        // A slice that does not fit the type's rank is not used, but the map
        // keeps it until the first answer brings the real one.
        if (view->getSliceDimCount(currentExpression->getType()) == view->getSliceDimCount(slice))
            currentSlice = slice;
        else
            currentSlice.clear();
        sliceMap[currentExpression] = slice;
        currentFilter = filter;
        filterMap[currentExpression] = filter;
        currentConfig = new Config2DTable();
        configMap[currentExpression] = currentConfig;
        currentSlice2dTable = currentConfig->slice;
        slice2dTableMap[currentExpression] = currentSlice2dTable;
        use2DSlice = false;
        use2DSliceMap[currentExpression] = false;
        newExpressionPending = true;
#ifdef AL_HAVE_TABLE
        data2DTableUI->requestArrayInfo(currentExpression, false, true);
#endif
        return;
    }

    IHVExpression* held = expressions[index];
    bool heldChanged = false;
    if (!held->isResolved()) {
        held->setFocus(expr->getFocus());
        held->setResolved(true);
        heldChanged = true;
    }
    currentExpression = held;
    loadCurrentFromMaps();
    resetArrayDetails();
    if (QComboBox* combo = comboBox()) {
        const bool wasBlocked = combo->blockSignals(true);
        combo->setCurrentIndex(index);
        combo->blockSignals(wasBlocked);
    }
    refreshToolbarText();
    if (refresh) {
#ifdef AL_HAVE_TABLE
        data2DTableUI->requestArrayInfo(currentExpression, false, true);
#endif
    } else if (heldChanged) {
        setUpdateContext(true);
    }
}

int ArrayLensUI::findDuplicate(QString name, IHVExpression* expr) {
    QComboBox* combo = comboBox();
    if (!combo)
        return -1;
    for (int index = 0; index < combo->count(); ++index) {
        if (combo->itemText(index) != name)
            continue;
        if (!expr) {
            newExpressionPending = true;
            return index;
        }
        if (index >= expressions.size())
            continue;
        IHVExpression* held = expressions[index];
        const QSharedPointer<IHVFrame> heldFrame = held->getFrame();
        const QSharedPointer<IHVFrame> exprFrame = expr->getFrame();
        if (!heldFrame || !exprFrame)
            continue;
        if (heldFrame->getThreadID() == exprFrame->getThreadID() &&
            held->getType() == expr->getType() && held->getScopePath() == expr->getScopePath() &&
            held->getFrameLevel() == expr->getFrameLevel() &&
            held->getFrameRecursionDepth() == expr->getFrameRecursionDepth() &&
            heldFrame->getFunction() == exprFrame->getFunction())
            return index;
    }
    return -1;
}

void ArrayLensUI::handleComboIndexChanged(int index) {
    // An index equal to the size passes this test; the lists are parallel,
    // so the combo box never offers it.
    if (index < 0 || index > expressions.size() || newExpressionPending)
        return;
    if (index >= expressions.size())
        return;
    currentExpression = expressions[index];
    currentSlice.clear();
    currentFilter.clear();
    pendingIndex = 0;
    pendingList.clear();
    loadCurrentFromMaps();
    resetArrayDetails();
    if (currentExpression->isResolved())
        updateUI();
    else
        updateCurrentExpression(true);
}

void ArrayLensUI::clearExpressions() {
    expressions.clear();
    sliceMap.clear();
    filterMap.clear();
    typeMap.clear();
    configMap.clear();
    use2DSliceMap.clear();
    slice2dTableMap.clear();
    origBoundsMap.clear();
    currentExpression = nullptr;
    if (QComboBox* combo = comboBox()) {
        combo->clear();
        combo->setCurrentIndex(-1);
    }
    if (view && view->toolBarFactory) {
        ArrayLensToolBarContributionFactory* bar = view->toolBarFactory;
        if (bar->threadButton)
            bar->threadButton->setText(QString());
        if (bar->sliceButton)
            bar->sliceButton->setText(QString());
        if (bar->typeButton)
            bar->typeButton->setText(QString());
    }
    updateUI();
}

QStringList ArrayLensUI::getOrigArrayBounds() {
    if (!currentExpression)
        return QStringList();
    return origBoundsMap.value(currentExpression);
}

void ArrayLensUI::setCurrentArrayBounds(QStringList bounds) {
    // The first bounds reported stay as the original ones.
    if (currentExpression && !origBoundsMap.contains(currentExpression))
        origBoundsMap.insert(currentExpression, bounds);
    currentBounds = bounds;
}

void ArrayLensUI::updateUIFromConfig(QString slice, QString filter, Config2DTable* config,
                                     bool use2D) {
    use2DSlice = use2D;
    if (!currentExpression)
        return;
    use2DSliceMap[currentExpression] = use2DSlice;

    const QString configType = view->getConfigType();
    if (configType != currentExpression->getType()) {
        // The user cast the array.
        const QString oldType = currentExpression->getType();
        currentExpression->setType(configType, true);
        if (config)
            config->resetDataFormat();
        if (!slice.isEmpty() && oldType != configType) {
            slice.clear();
            if (config)
                config->clear2DSlice();
            use2DSlice = false;
        }
    }

    if (slice != currentSlice || filter != currentFilter) {
        if (!use2DSlice) {
            sliceMap[currentExpression] = slice;
            currentSlice = slice;
        }
        filterMap[currentExpression] = filter;
        currentFilter = filter;
    }
    currentConfig = config;
    updateUI();
}

void ArrayLensUI::updateToolbarText(QString slice) {
    if (!currentExpression)
        return;
    view->updateConfigOptions(currentExpression);
    if (!view->toolBarFactory)
        return;
    ArrayLensToolBarContributionFactory* bar = view->toolBarFactory;
    if (bar->threadButton)
        bar->threadButton->setText(QStringLiteral("Thread: ") + currentExpression->getFocus());
    if (bar->sliceButton) {
        bar->sliceButton->setText(slice);
        bar->sliceButton->setToolTip(QStringLiteral("Slice: ") + slice);
    }
    if (bar->typeButton) {
        const QString type = currentExpression->getType();
        bar->typeButton->setText(type);
        bar->typeButton->setToolTip(QStringLiteral("Type: ") + type);
    }
}

void ArrayLensUI::dumpExpression(IHVExpression* expr) {
    if (!expr)
        return;
    qDebug() << "ArrayLensUI::dumpExpression:";
    qDebug() << "  Expression:" << expr->getExpression();
    qDebug() << "  Scoped Expression:" << expr->getScopedExpression();
    qDebug() << "  Type:" << expr->getType();
    qDebug() << "  Actual Type:" << expr->getActualType();
    qDebug() << "  Scope Path:" << expr->getScopePath();
    qDebug() << "  Scope ID:" << expr->getScopeID();
    qDebug() << "  Block line:" << expr->getBlockLine();
    const QSharedPointer<IHVFrame> frame = expr->getFrame();
    if (frame) {
        qDebug() << "  Thread ID:" << frame->getThreadID();
        qDebug() << "  Frame FP:" << QString::number(frame->getFP(), 16);
        qDebug() << "  Frame Function:" << frame->getFunction();
        qDebug() << "  Frame Address:" << frame->getAddress();
        qDebug() << "  Frame Line:" << frame->getLine();
        qDebug() << "  Frame Index:" << expr->getFrameLevel();
        qDebug() << "  Frame Recursion Depth:" << expr->getFrameRecursionDepth();
    }
}

// ---- entry and evaluation -----------------------------------------------------

void ArrayLensUI::handleReturnPressed() {
    QComboBox* combo = comboBox();
    if (!combo)
        return;
    const QString text = combo->currentText();

    if (text.isEmpty()) {
        // The user cleared the field: nothing is on show, but every held
        // expression keeps its settings for the next pick.
        postMessage(QString::fromLatin1(NO_DATA_MSG));
        currentExpression = nullptr;
        currentSlice.clear();
        currentFilter.clear();
        pendingIndex = 0;
        pendingList.clear();
        combo->setCurrentIndex(-1);
        if (view->toolBarFactory->sliceButton)
            view->toolBarFactory->sliceButton->setText(QString());
        if (view->toolBarFactory->typeButton)
            view->toolBarFactory->typeButton->setText(QString());
        view->closeConfigDialog();
        currentConfig = nullptr;
        currentSlice2dTable.clear();
        resetArrayDetails();
        return;
    }

    if (currentExpression && currentExpression->getExpression() == text) {
        setExpression(currentExpression, currentSlice, currentFilter, false);
        return;
    }

    if (!halvane || !halvane->getCurrentFrame()) {
        handleError(QString::fromLatin1(NO_DATA_MSG));
        return;
    }
    if (!debugger)
        return;

    IHVExpression* expression = debugger->createExpression(text);
    if (!expression)
        return;
    auto* watcher = new ExpressionWatcher(expression, currentSlice, currentFilter, true);
    connect(watcher, SIGNAL(finished()), this, SLOT(handleExprEvalFinished()));
    connect(watcher, SIGNAL(canceled()), this, SLOT(handleExpressionCancelled()));
    watcher->setFuture(expression->evaluate(halvane->getCurrentFrame()));
}

void ArrayLensUI::updateCurrentExpression(bool refresh) {
    if (!currentExpression || !debugger)
        return;
    IHVExpression* copy = debugger->cloneExpression(currentExpression);
    if (!copy)
        return;
    auto* watcher = new ExpressionWatcher(copy, currentSlice, currentFilter, refresh);
    connect(watcher, SIGNAL(finished()), this, SLOT(handleExprEvalFinished()));
    connect(watcher, SIGNAL(canceled()), this, SLOT(handleExpressionCancelled()));
    QSharedPointer<IHVFrame> frame = copy->getFrame();
    if (!frame && halvane)
        frame = halvane->getCurrentFrame();
    watcher->setFuture(copy->evaluate(frame));
}

void ArrayLensUI::handleExprEvalFinished() {
    auto* watcher = dynamic_cast<ExpressionWatcher*>(sender());
    if (!watcher)
        return;
    IHVExpression* expression = watcher->expression;
    // Restored before any check, so a refused expression leaves the values
    // of the moment the evaluation was asked for.
    currentSlice = watcher->slice;
    currentFilter = watcher->filter;
    const bool refresh = watcher->refresh;
    watcher->disconnect();
    watcher->deleteLater();

    if (!expression) {
        handleError(QStringLiteral("Error: undefined expression"));
        return;
    }
    if (expression->hasError()) {
        handleError(expression->getErrorMessage());
        if (view->toolBarFactory) {
            if (view->toolBarFactory->sliceButton)
                view->toolBarFactory->sliceButton->setText(QString());
            if (view->toolBarFactory->typeButton) {
                view->toolBarFactory->typeButton->setText(QString());
                view->toolBarFactory->typeButton->setToolTip(QString());
            }
        }
        return;
    }
    if (expression->isArray()) {
        setExpression(expression, currentSlice, currentFilter, refresh);
        // setExpression holds a copy or an earlier equal expression.
        expression->deleteLater();
        return;
    }
    handleError(
        expression->getExpression() +
        QStringLiteral(" is not an array. Please pre-process allocated arrays in the Data View"));
}

void ArrayLensUI::handleExpressionCancelled() {
    auto* watcher = dynamic_cast<ExpressionWatcher*>(sender());
    if (!watcher)
        return;
    watcher->disconnect();
    watcher->deleteLater();
}

void ArrayLensUI::selectionChanged(NQ::IPart*, NQ::ISelection* selection) {
    if (!view || !currentExpression || !selection)
        return;
    auto* shared = dynamic_cast<NQ::IQSharedObjectSelection*>(selection);
    if (!shared)
        return;
    for (const QSharedPointer<QObject>& object : shared->getSelected()) {
        if (!object)
            continue;
        if (object->qt_metacast(NQ::Ids::IHVFRAME_IID)) {
            if (currentExpression->isResolved()) {
                setUpdateContext(true);
                return;
            }
            updateCurrentExpression(false);
        }
        if (object->qt_metacast(NQ::Ids::IHVPROCESS_IID)) {
            const QList<IHVExpression*> all = expressions;
            for (IHVExpression* expression : all)
                expression->setResolved(false);
        }
    }
}

// ---- displays -------------------------------------------------------------------

void ArrayLensUI::showDisplay(int mode, int kind) {
    // The choice is remembered even with nothing on show, for the next
    // expression.
    displayMode = mode;
    plotKind = kind;
    if (!currentExpression)
        return;
    if (!halvane || !halvane->getCurrentThread())
        postMessage(QStringLiteral("No Current Thread"));
    else
        updateUI();
}

void ArrayLensUI::showStats() {
    showDisplay(1, 0);
}

void ArrayLensUI::showData2DTable() {
    showDisplay(3, 0);
}

void ArrayLensUI::showLinePlot() {
    showDisplay(2, 2);
}

void ArrayLensUI::showHistPlot() {
    showDisplay(2, 1);
}

void ArrayLensUI::showSurfacePlot() {
    showDisplay(2, 3);
}

void ArrayLensUI::postMessage(QString text) {
    messageLabel->setText(text);
    stack->setCurrentIndex(0);
}

void ArrayLensUI::filterOff() {
    filterDisabled = false;
    NQ::ICore::instance()->contextManager()->deactivateContext(
        QString::fromLatin1(HVUI::Constants::ARRAYLENS_FILTER_CONTEXT));
    if (view->toolBarFactory && view->toolBarFactory->filterAction)
        view->toolBarFactory->filterAction->setChecked(false);
}

void ArrayLensUI::updateUI() {
    if (!connected || !currentExpression || !view)
        return;
    const QString slice = use2DSlice ? currentSlice2dTable : currentSlice;
    const QString filter = filterDisabled ? QString() : currentFilter;
    switch (displayMode) {
    case 1:
        stack->setCurrentIndex(1);
#ifdef AL_HAVE_STATISTICS
        statisticsUI->showStatistics(currentExpression, slice, filter);
#endif
        if (currentFilter.isEmpty()) {
            filterOff();
        } else if (!filterDisabled) {
            NQ::ICore::instance()->contextManager()->activateContext(
                QString::fromLatin1(HVUI::Constants::ARRAYLENS_FILTER_CONTEXT));
            if (view->toolBarFactory && view->toolBarFactory->filterAction)
                view->toolBarFactory->filterAction->setChecked(true);
        }
        return;
    case 3:
        stack->setCurrentIndex(3);
#ifdef AL_HAVE_TABLE
        // The table always gets its own slice text, also under use2DSlice.
        data2DTableUI->showData2DTable(currentExpression, currentConfig, currentSlice, filter);
#endif
        break;
    case 2:
        stack->setCurrentIndex(2);
#ifdef AL_HAVE_PLOT
        // The line plot keeps its filter even while the filter is switched off.
        if (plotKind == 2)
            visualizer->showLinePlot(currentExpression, slice, currentFilter);
        else if (plotKind == 1)
            visualizer->showHistPlot(currentExpression, slice);
        else if (plotKind == 3)
            visualizer->showSurfacePlot(currentExpression, slice);
#endif
        break;
    default:
        break;
    }
    filterOff();
}

void ArrayLensUI::setUpdateContext(bool on) {
    NQ::IContextManager* contexts = NQ::ICore::instance()->contextManager();
    const QString id = QString::fromLatin1(HVUI::Constants::ARRAYLENS_UPDATE_CONTEXT);
    if (!contexts->isContextRegistered(id))
        return;
    if (on)
        contexts->activateContext(id);
    else
        contexts->deactivateContext(id);
}

void ArrayLensUI::handleSuccess(QString expr_name, QString slice, QString actualType,
                                QString filter) {
    if (!currentExpression)
        return;
    QComboBox* combo = comboBox();
    const int index = findDuplicate(expr_name, currentExpression);

    if (newExpressionPending && index == -1) {
        // First success of a new expression: it joins the list now.
        expressions.insert(0, currentExpression);
        typeMap[currentExpression] = currentExpression->getType();
        currentSlice = slice;
        currentFilter = filter;
        sliceMap[currentExpression] = slice;
        filterMap[currentExpression] = filter;
        use2DSlice = false;
        use2DSliceMap[currentExpression] = false;
        if (combo) {
            combo->insertItem(0,
                              expr_name.isEmpty() ? currentExpression->getExpression() : expr_name);
            combo->setCurrentIndex(0);
        }
    } else if (newExpressionPending && index != -1) {
        if (combo)
            combo->setCurrentIndex(index);
        currentExpression = expressions[index];
        currentSlice = sliceMap[currentExpression];
        currentFilter = filterMap[currentExpression];
        use2DSlice = use2DSliceMap[currentExpression];
    } else if (!newExpressionPending && index != -1) {
        if (combo) {
            const bool wasBlocked = combo->blockSignals(true);
            combo->setCurrentIndex(index);
            combo->blockSignals(wasBlocked);
        }
    }

    QString typePart =
        QStringLiteral("<br/>&nbsp;<b>Type:</b>&nbsp;") + currentExpression->getType();
    if (!actualType.isEmpty()) {
        currentExpression->setActualType(actualType);
        typePart += QStringLiteral("<br/>&nbsp;<b>Actual Type:</b>&nbsp;") +
                    currentExpression->getActualType();
    }
    const QSharedPointer<IHVFrame> frame = currentExpression->getFrame();
    QString tip = QStringLiteral("&nbsp;<b>Expr:</b>&nbsp;") + currentExpression->getExpression();
    tip += typePart;
    tip += QStringLiteral("<br/>&nbsp;<b>Thread ID:</b>&nbsp;") + currentExpression->getFocus();
    tip += QStringLiteral("<br/>&nbsp;<b>Frame Level:</b>&nbsp;") +
           QString::number(currentExpression->getFrameLevel());
    tip += QStringLiteral("<br/>&nbsp;<b>Recursion Depth:</b>&nbsp;") +
           QString::number(currentExpression->getFrameRecursionDepth());
    tip += QStringLiteral("<br/>&nbsp;<b>Function:</b>&nbsp;") +
           (frame ? frame->getFunction() : QString());
    tip += QStringLiteral("<br/>&nbsp;<b>File:</b>&nbsp;") +
           (frame ? frame->getFileName() : QString());
    tip += QStringLiteral("<br/>&nbsp;<b>Line:</b>&nbsp;") +
           QString::number(frame ? frame->getLine() : 0);
    if (combo) {
        combo->setToolTip(tip);
        // Always item 0, whichever item is current: the other items keep the
        // tip of their last turn at the front.
        combo->setItemData(0, tip, Qt::ToolTipRole);
    }

    if (!use2DSlice) {
        if (currentSlice.isEmpty()) {
            currentSlice = slice;
        } else if (currentSlice != slice) {
            sliceMap[currentExpression] = slice;
            currentSlice = slice;
        }
    }
    refreshToolbarText();
    newExpressionPending = false;
    setUpdateContext(false);
}

void ArrayLensUI::handle2DTableSuccess(QString expr_name, QString slice2dTable, QString actualType,
                                       QString filter, Config2DTable* dataTableConfig,
                                       bool updateCanceled) {
    // The signal hands over a fresh object each time; the one held before
    // is ours to free.
    if (Config2DTable* old = configMap.value(currentExpression))
        delete old;
    configMap[currentExpression] = dataTableConfig;
    currentConfig = dataTableConfig;
    slice2dTableMap[currentExpression] = slice2dTable;
    currentSlice2dTable = slice2dTable;
    handleSuccess(expr_name, currentSlice, actualType, filter);
    if (updateCanceled)
        setUpdateContext(true);
}

void ArrayLensUI::handleError(QString error) {
    postMessage(error);
    QComboBox* combo = comboBox();
    if (!combo)
        return;
    const QString text = combo->currentText();
    combo->setCurrentIndex(-1);
    if (text.isEmpty())
        return;
    // The user's text stays in the field.
    if (combo->lineEdit())
        combo->lineEdit()->setText(text);
    view->handleConfigError();
    view->updateConfigOptions(currentExpression);
    refreshToolbarText();
}

void ArrayLensUI::handleConfigError(QString error) {
    postMessage(error);
}

void ArrayLensUI::handleStaleData() {
    postMessage(QStringLiteral("Data is Stale"));
}

void ArrayLensUI::handleContextChange() {
    NQ::IContextManager* contexts = NQ::ICore::instance()->contextManager();
    const QString connectedId = QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_CONNECTED);
    if (contexts->hasContext(connectedId) && !connected) {
        // Never disconnected: a lost and regained connection leaves two of
        // each connection, and each slot then runs twice.
        if (QComboBox* combo = comboBox()) {
            connect(combo, SIGNAL(currentIndexChanged(int)), this,
                    SLOT(handleComboIndexChanged(int)));
            if (combo->lineEdit())
                connect(combo->lineEdit(), SIGNAL(returnPressed()), this,
                        SLOT(handleReturnPressed()));
        }
    }
    connected = contexts->hasContext(connectedId);
    if (!connected)
        view->closeConfigDialog();
    ready = contexts->hasContext(QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_READY));
}

void ArrayLensUI::handleDebuggerEvent(AsyncRecord record) {
    if (!connected)
        return;
    if (!halvane || !halvane->getCurrentThread()) {
        if (!currentExpression)
            postMessage(QString::fromLatin1(NO_DATA_MSG));
        return;
    }
    if (record.getID() == QString::fromLatin1(NQ::Ids::STOPPED_RECORD) && currentExpression)
        setUpdateContext(true);
}

void ArrayLensUI::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    resizeTimer.start(300);
}

void ArrayLensUI::handleTimeout() {
    resizeTimer.stop();
    // Only a plot must be redrawn to the new size.
    if (displayMode == 2)
        updateUI();
}
