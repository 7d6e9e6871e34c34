#pragma once
// A view with its controller, displays, dialog and built toolbar, against the
// fake host and fake debugger. The debugger answers array information and
// statistics by default, as a healthy back end would; a test changes that
// where it needs to.

#include "config/arrayLensConfigui.h"
#include "controller/arraylensui.h"
#include "plot/visualizer.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/arraylensview.h"
#include "plugin/noadjustcombobox.h"
#include "statistics/statisticsui.h"
#include "support/fakehost.h"
#include "table/data2Dtableui.h"

#include <QAction>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>

namespace rig {

constexpr char CONNECTED[] = "HVDebugger.CONNECTED";
constexpr char READY[] = "HVDebugger.READY";
constexpr char UPDATE_CONTEXT[] = "com.northquay.arraylensview.update";
constexpr char FILTER_CONTEXT[] = "com.northquay.arraylensview.filter";
constexpr char STATS_REQUEST[] = "ArrayStatisticsRequest";
constexpr char INFO_REQUEST[] = "ArrayInfoRequest";
constexpr char TABLE_REQUEST[] = "ArrayData2DTableRequest";
constexpr char PLOT_REQUEST[] = "VisEvaluateExpressionRequest";

struct Rig {
    explicit Rig(bool withHalvane = true) : core(withHalvane) {
        frame = core.makeCurrentFrame();
        core.debugger().respond(INFO_REQUEST, [](const QObject& request) {
            return QVariantMap{{"result", "done"},
                               {"ArrayName", request.property("Expression")},
                               {"DimCount", 2},
                               {"EmptySlice", "[:][:]"},
                               {"ArrayBounds", QStringList{"0:9", "0:4"}}};
        });
        // The statistics answer names the array as asked and echoes the
        // filter, as the back end does.
        core.debugger().respond(STATS_REQUEST, [](const QObject& request) {
            return QVariantMap{{"result", "done"},
                               {"Array", request.property("Expression")},
                               {"EmptySlice", "[0:9:1][0:4:1]"},
                               {"Filter", request.property("Filter")},
                               {"StatValid", 0}};
        });
        view = new ArrayLensView;
        ui = view->ui;
        bar = view->toolBarFactory;
        items = bar->createItems();
    }

    ~Rig() {
        delete view;
        // The factory owns the toolbar's actions and, through them, its widgets.
        delete bar;
    }

    void connectDebugger() {
        core.contexts.activateContext(READY);
        core.contexts.activateContext(CONNECTED);
    }
    void disconnectDebugger() { core.contexts.deactivateContext(CONNECTED); }

    fake::Debugger& debugger() { return core.debugger(); }
    NoAdjustComboBox* combo() const { return bar->comboBox; }
    QString page0Text() const { return ui->messageLabel->text(); }
    int page() const { return ui->stack->currentIndex(); }
    bool updateContextActive() const { return core.contexts.hasContext(UPDATE_CONTEXT); }

    // An expression as the debugger service would hand it over after an
    // evaluation in the current frame.
    fake::Expression* makeExpression(const QString& text, const QString& type = "int[10][5]",
                                     QSharedPointer<fake::Frame> in = {}) {
        auto* e = static_cast<fake::Expression*>(debugger().createExpression(text));
        e->type = type;
        e->frame = in ? in : frame;
        return e;
    }

    int sentCount(const QString& id) const {
        int n = 0;
        for (const auto& s : core.corePlugin.debugger->sent)
            if (s.id == id)
                ++n;
        return n;
    }
    QStringList sentIds() const {
        QStringList ids;
        for (const auto& s : core.corePlugin.debugger->sent)
            ids << s.id;
        return ids;
    }
    QVariantMap lastSent(const QString& id) const {
        const auto& sent = core.corePlugin.debugger->sent;
        for (int i = sent.size() - 1; i >= 0; --i)
            if (sent[i].id == id)
                return sent[i].properties;
        return {};
    }

    // Lets queued answers and deferred deletions run.
    void settle(int ms = 50) {
        fake::waitFor([] { return false; }, ms);
    }

    // Takes an expression through to its first successful display, the way
    // the popup command does: setExpression, array information, statistics,
    // success. Returns the controller's own copy.
    IHVExpression* bringIn(fake::Expression* e, const QString& slice = QString(),
                           const QString& filter = QString()) {
        ui->setExpression(e, slice, filter, true);
        IHVExpression* held = ui->currentExpression;
        fake::waitFor([&] { return !ui->newExpressionPending && ui->expressions.contains(held); },
                      2000);
        settle(10);
        return held;
    }
    IHVExpression* bringIn(const QString& text, const QString& type = "int[10][5]") {
        return bringIn(makeExpression(text, type));
    }

    fake::Core core;
    QSharedPointer<fake::Frame> frame;
    ArrayLensView* view = nullptr;
    ArrayLensUI* ui = nullptr;
    ArrayLensToolBarContributionFactory* bar = nullptr;
    QList<NQ::IContributionItem*> items;
};

} // namespace rig
