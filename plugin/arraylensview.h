#pragma once
// What the host sees of the plug-in: a view part with a name, a place among
// the tabs and a widget. It owns the controller and the configuration
// dialog, and stands between them and the command handlers.

#include "config/slicerecords.h"
#include "host/nqcore.h"

class ArrayLensUI;
class ArrayLensConfigDialog;
class ArrayLensToolBarContributionFactory;
class IHVExpression;

class ArrayLensView : public NQ::IView {
    Q_OBJECT
public:
    ArrayLensView();
    ~ArrayLensView() override;

    QString name() const override;
    int position() const override;
    bool wantsManualUpdate() const override;
    QWidget* widget() override;
    QString tabRelativeToView() const override;
    void reset() override;

    // Builds the toolbar factory, controller and dialog once.
    void init();

    // Forwarders to the controller.
    void showStats();
    void show2DTable();
    void showLinePlot();
    void showHistPlot();
    void showSurfacePlot();
    void updateView();
    void setExpression(IHVExpression* expr, bool refresh);
    void updateUIFromConfig(QString slice, QString filter, Config2DTable* config, bool use2DSlice);
    void enableOrDisableFilter(bool enable);

    // The configuration dialog.
    void openConfigDialog();
    void closeConfigDialog();
    void handleConfigError();
    QString getConfigType() const;
    void updateConfigOptions(IHVExpression* expression);

    // Slice texts.
    int getSliceDimCount(QString text) const;
    QString getDefaultSlice(QString type, bool cStyle) const;

    ArrayLensUI* ui = nullptr;
    bool updatePending = false;
    ArrayLensToolBarContributionFactory* toolBarFactory = nullptr;
    ArrayLensConfigDialog* configDialog = nullptr;
};
