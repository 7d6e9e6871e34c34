#include "plugin/arraylensview.h"

#include "config/arrayLensConfigui.h"
#include "config/slicemodel.h"
#include "controller/arraylensui.h"
#include "host/hvexpression.h"
#include "plugin/arraylenscommandhandler.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/halvanehelp.h"

#include <QAction>
#include <QDebug>
#include <QLineEdit>
#include <QTextEdit>

using namespace HVUI::Constants;

ArrayLensView::ArrayLensView() : NQ::IView(QString()) {
    init();
    // The view's help topic replaces the general one that init() set.
    HalvaneHelp::setHelpReference(ui, "ArrayStatistics");
}

ArrayLensView::~ArrayLensView() {
    delete ui;
    delete configDialog;
}

QString ArrayLensView::name() const {
    return QString::fromLatin1(ARRAYLENS_VIEW_ID);
}
int ArrayLensView::position() const {
    return 8;
}
bool ArrayLensView::wantsManualUpdate() const {
    return true;
}
QWidget* ArrayLensView::widget() {
    return ui;
}
QString ArrayLensView::tabRelativeToView() const {
    return QString::fromLatin1(DATAVIEW_ID);
}

void ArrayLensView::reset() {
    qDebug() << "Reset View";
    ui->clearExpressions();
}

void ArrayLensView::init() {
    if (ui)
        return;
    NQ::ICore* core = NQ::ICore::instance();

    toolBarFactory = new ArrayLensToolBarContributionFactory(
        QString::fromLatin1(ARRAYLENS_TOOLBAR_LOCATION), this);
    toolBarFactory->setObjectName(QString::fromLatin1(ARRAYLENS_TOOLBAR_OBJECT_NAME));
    core->commandManager()->addContributionFactory(toolBarFactory);

    ui = new ArrayLensUI(this);
    ui->setWindowTitle(tr("Array Lens"));
    HalvaneHelp::setHelpReference(ui, "DocumentationRoot");

    configDialog = new ArrayLensConfigDialog(this);
    connect(configDialog, SIGNAL(configError(QString)), ui, SLOT(handleConfigError(QString)));

    core->contextManager()->registerContext(QString::fromLatin1(ARRAYLENS_FILTER_CONTEXT));
    core->commandManager()->registerCommand(QString::fromLatin1(ARRAYLENS_FILTER_COMMAND));
    core->commandManager()->addCommandHandler(QString::fromLatin1(ARRAYLENS_FILTER_COMMAND),
                                              new ArrayLensFilterCommandHandler(this));
}

void ArrayLensView::showStats() {
    ui->showStats();
}
void ArrayLensView::show2DTable() {
    ui->showData2DTable();
}
void ArrayLensView::showLinePlot() {
    ui->showLinePlot();
}
void ArrayLensView::showHistPlot() {
    ui->showHistPlot();
}
void ArrayLensView::showSurfacePlot() {
    ui->showSurfacePlot();
}
void ArrayLensView::updateView() {
    ui->updateUI();
}

void ArrayLensView::setExpression(IHVExpression* expr, bool refresh) {
    ui->setExpression(expr, QString(), QString(), refresh);
}

void ArrayLensView::updateUIFromConfig(QString slice, QString filter, Config2DTable* config,
                                       bool use2DSlice) {
    ui->updateUIFromConfig(slice, filter, config, use2DSlice);
}

void ArrayLensView::enableOrDisableFilter(bool enable) {
    ui->filterDisabled = !enable;
    updateView();
}

void ArrayLensView::openConfigDialog() {
    if (!ui->currentExpression) {
        ui->handleError(QStringLiteral("No Array Data Available"));
        return;
    }
    // The window shows first and fills afterwards.
    configDialog->launchDialog();
    updateConfigOptions(ui->currentExpression);
}

void ArrayLensView::closeConfigDialog() {
    if (configDialog)
        configDialog->closeDialog();
}

void ArrayLensView::handleConfigError() {
    if (configDialog)
        configDialog->handleError();
}

QString ArrayLensView::getConfigType() const {
    if (!configDialog || !configDialog->typeLineEdit)
        return QString();
    return configDialog->typeLineEdit->text();
}

void ArrayLensView::updateConfigOptions(IHVExpression* expression) {
    if (!expression || !configDialog)
        return;
    static const QStringList cComparisons{"==", "!=", "<", "<=", ">", ">="};
    static const QStringList fortranComparisons{".eq.", ".ne.", ".lt.", ".le.", ".gt.", ".ge."};
    static const QStringList cConnectives{"&&", "||"};
    static const QStringList fortranConnectives{".and.", ".or."};

    configDialog->setExpressionFields(expression->getExpression(), expression->getType(),
                                      expression->getActualType(), expression->getLanguage());
    configDialog->setSlice(ui->currentSlice);
    configDialog->setFilter(ui->currentFilter);
    configDialog->setUse2DTableSlice(ui->use2DSlice);
    configDialog->setConfig2DTable(ui->currentConfig);

    if (toolBarFactory && toolBarFactory->filterAction) {
        const QString filter = configDialog->filterTextEdit->toPlainText();
        QString tip;
        if (filter.isEmpty())
            tip = QStringLiteral("Enable/disable filtering for array Statistics.");
        else if (toolBarFactory->filterAction->isChecked())
            tip = QStringLiteral("Disable filtering for array Statistics.\nFilter: ") + filter;
        else
            tip = QStringLiteral("Enable filtering for array Statistics.\nFilter: ") + filter;
        toolBarFactory->filterAction->setToolTip(tip);
    }

    if (expression->isFortranExpression())
        configDialog->setComparisonItems(fortranComparisons, fortranConnectives);
    else
        configDialog->setComparisonItems(cComparisons, cConnectives);
    configDialog->setCurrent2DSliceTab(ui->displayMode == 3);
}

int ArrayLensView::getSliceDimCount(QString text) const {
    return SliceModel::getSliceDimCount(text);
}

QString ArrayLensView::getDefaultSlice(QString type, bool cStyle) const {
    return SliceModel::getDefaultSlice(ui ? ui->currentEmptySlice : QString(), type, cStyle);
}
