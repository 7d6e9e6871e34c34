#include "plugin/arraylenscommandhandler.h"

#include "host/hvexpression.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylensview.h"

ArrayLensCommandHandler::ArrayLensCommandHandler(ArrayLensView* view)
    : QObject(nullptr), view(view) {}

QStringList ArrayLensCommandHandler::getContext() const {
    static const QStringList contexts{QString::fromLatin1(NQ::Ids::CONTEXT_SHOW_STATS)};
    return contexts;
}

void ArrayLensCommandHandler::execute(QSharedPointer<NQ::ICmdExecutionEvent> event) {
    if (!event || !event->getCommandContext())
        return;
    auto* selection =
        dynamic_cast<NQ::IQObjectSelection*>(event->getCommandContext()->getSelection());
    if (!selection)
        return;
    for (QObject* object : selection->getSelected()) {
        if (!object || !object->qt_metacast(NQ::Ids::IHVEXPRESSION_IID))
            continue;
        auto* expression = qobject_cast<IHVExpression*>(object);
        if (!expression)
            continue;
        // Only the first expression of a selection is taken, as it stands:
        // no evaluation, no slice, no filter.
        view->setExpression(expression, true);
        NQ::ICore::instance()->viewManager()->showView(
            QString::fromLatin1(HVUI::Constants::ARRAYLENS_VIEW_ID), true);
        return;
    }
}

QStringList ArrayLensFilterCommandHandler::getContext() const {
    static const QStringList contexts{
        QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_READY),
        QString::fromLatin1(HVUI::Constants::ARRAYLENS_FILTER_CONTEXT)};
    return contexts;
}

void ArrayLensFilterCommandHandler::execute(QSharedPointer<NQ::ICmdExecutionEvent> event) {
    if (!event || !event->getAction())
        return;
    view->enableOrDisableFilter(event->getAction()->isChecked());
}

QStringList ArrayLensUpdateCommandHandler::getContext() const {
    static const QStringList contexts{
        QString::fromLatin1(HVUI::Constants::ARRAYLENS_UPDATE_CONTEXT)};
    return contexts;
}

void ArrayLensUpdateCommandHandler::execute(QSharedPointer<NQ::ICmdExecutionEvent>) {
    view->updateView();
}

void ArrayLensConfigCommandHandler::execute(QSharedPointer<NQ::ICmdExecutionEvent>) {
    view->openConfigDialog();
}

void ArrayLensDisplayCommandHandler::execute(QSharedPointer<NQ::ICmdExecutionEvent>) {
    (view->*show_)();
    NQ::IContributionManager* menu =
        NQ::ICore::instance()->commandManager()->getContributionManager(
            QString::fromLatin1(HVUI::Constants::ARRAYLENS_TOOLBAR_MENU));
    if (menu)
        menu->setText(QString::fromLatin1(label_));
}

ArrayLensStatCommandHandler::ArrayLensStatCommandHandler(ArrayLensView* view)
    : ArrayLensDisplayCommandHandler(view, &ArrayLensView::showStats, "Statistics") {}

ArrayLens2DTableCommandHandler::ArrayLens2DTableCommandHandler(ArrayLensView* view)
    : ArrayLensDisplayCommandHandler(view, &ArrayLensView::show2DTable, "Data Table") {}

ArrayLensLinePlotCommandHandler::ArrayLensLinePlotCommandHandler(ArrayLensView* view)
    : ArrayLensDisplayCommandHandler(view, &ArrayLensView::showLinePlot, "Line") {}

ArrayLensHistPlotCommandHandler::ArrayLensHistPlotCommandHandler(ArrayLensView* view)
    : ArrayLensDisplayCommandHandler(view, &ArrayLensView::showHistPlot, "Histogram") {}

ArrayLensSurfacePlotCommandHandler::ArrayLensSurfacePlotCommandHandler(ArrayLensView* view)
    : ArrayLensDisplayCommandHandler(view, &ArrayLensView::showSurfacePlot, "Surface") {}
