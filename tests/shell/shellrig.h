// The application's window on one of the example programs under a real gdb,
// with the reference values the program wrote for its current stop, and
// helpers that act as a user would (type, click, pick from menus) and read
// what the window shows.
#pragma once

#include "eventwait.h"
#include "gdbsession.h"
#include "shell/debuggerwindow.h"
#include "support/examples.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFile>
#include <QMap>
#include <QMenu>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTextStream>
#include <QToolBar>
#include <QToolButton>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace shelltest {

constexpr int kWaitMs = 30000;

template <class Pred> bool waitFor(Pred done, int timeoutMs = kWaitMs) {
    return arraylens::gdb::waitWithEventLoop(done, timeoutMs);
}

inline QString breakLocation(const QString& key) {
    return examples::breakLocation(key);
}

inline QString exampleProgram(const QString& name) {
    return examples::program(name);
}

// Numbers as the table shows them and as the program wrote them agree to
// the last few bits of a double.
inline bool near(double a, double b) {
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) && std::isnan(b);
    return std::fabs(a - b) <= 1e-9 * std::max(1.0, std::max(std::fabs(a), std::fabs(b)));
}

class ShellRig {
public:
    ShellRig() {
        referencePath = dir.filePath(QStringLiteral("reference.txt"));
        // As the application's main() does: software GL for the surface's
        // WebGL, set before the first web view starts the engine.
        if (qEnvironmentVariableIsEmpty("QTWEBENGINE_CHROMIUM_FLAGS"))
            qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--ignore-gpu-blocklist");
    }
    ~ShellRig() {
        window.reset();
        QCoreApplication::processEvents();
    }

    // The bundled example, as the application opens it without arguments.
    bool startBundled() {
        shell::Options o;
        o.bundledExample = true;
        o.programArgs = QStringList{referencePath};
        return start(o);
    }
    // `program` stopped at `stopKey` of break-locations.txt, nothing typed.
    bool startAt(const QString& program, const QString& stopKey) {
        shell::Options o;
        o.program = exampleProgram(program);
        o.programArgs = QStringList{referencePath};
        o.breaks = QStringList{breakLocation(stopKey)};
        return start(o);
    }
    bool start(shell::Options options) {
        options.pluginPath = QStringLiteral(ARRAYLENS_MODULE_PATH);
        window = std::make_unique<shell::DebuggerWindow>(options);
        QObject::connect(window.get(), &shell::DebuggerWindow::displayAnswered,
                         [this](const QString& id) { answers << id; });
        window->resize(1400, 900);
        window->show();
        QString error;
        if (!window->start(&error)) {
            ADD_FAILURE() << qPrintable(error);
            return false;
        }
        return waitForStops(1);
    }

    bool waitForStops(int count) {
        const bool ok =
            waitFor([&] { return window->stopCount() >= count && window->listsCurrent(); });
        loadReference();
        return ok;
    }

    // Waits for one more answer to a display's request of that kind, and
    // for the answers to every other request on the way: a display may ask
    // twice, and an answer still to come would change what is on show (a
    // request that straddles a later Continue is answered stale and empties
    // the statistics).
    bool waitForAnswer(const QString& requestId, int already) {
        return waitFor([&] {
            return answers.count(requestId) > already && window->debugger()->openRequests() == 0;
        });
    }
    int answerCount(const QString& requestId) const { return answers.count(requestId); }

    void loadReference() {
        ref.clear();
        QFile f(referencePath);
        if (!f.open(QIODevice::ReadOnly))
            return;
        QTextStream in(&f);
        while (!in.atEnd()) {
            const QString line = in.readLine();
            if (line.startsWith(QLatin1Char('#')))
                continue;
            const int eq = line.indexOf(QLatin1Char('='));
            if (eq > 0)
                ref.insert(line.left(eq), line.mid(eq + 1));
        }
    }
    double refNumber(const QString& key) const {
        EXPECT_TRUE(ref.contains(key)) << qPrintable(key);
        return ref.value(key).toDouble();
    }

    NQ::IView* view() const {
        return window->core().views.view(QStringLiteral("com.northquay.arraylensview"));
    }
    // The view's own widget, which the host placed in its tab.
    QWidget* viewWidget() const { return view()->widget(); }
    QToolBar* viewToolBar() const {
        return window->core().views.toolBarOf(QStringLiteral("com.northquay.arraylensview"));
    }

    // Picks a display from the view's drop-down, as a click would.
    bool chooseDisplay(const QString& text) {
        auto* button = viewToolBar()->findChild<QToolButton*>(
            QStringLiteral("toolbar:com.northquay.arraylensview.menu"));
        if (!button || !button->menu())
            return false;
        for (QAction* a : button->menu()->actions())
            if (a->text() == text) {
                a->trigger();
                return true;
            }
        return false;
    }

    // The statistics page as label -> shown text.
    QMap<QString, QString> statistics() const {
        QMap<QString, QString> out;
        auto* table = viewWidget()->findChild<QTableWidget*>(QStringLiteral("statisticsTable"));
        if (!table)
            return out;
        // One or two label/value column pairs (with a divider between them,
        // depending on the width): a label's value stands right of it.
        static const QStringList labels = {"Checksum",
                                           "Count",
                                           "Zero Count",
                                           "Sum",
                                           "Minimum",
                                           "Maximum",
                                           "Median",
                                           "Mean",
                                           "Standard Deviation",
                                           "First Quartile",
                                           "Third Quartile",
                                           "Lower Adjacent Value",
                                           "Upper Adjacent Value",
                                           "Nan Count",
                                           "Infinity Count",
                                           "Denormalzized Count"};
        for (int r = 0; r < table->rowCount(); ++r)
            for (int c = 0; c + 1 < table->columnCount(); ++c) {
                QTableWidgetItem* label = table->item(r, c);
                QTableWidgetItem* value = table->item(r, c + 1);
                if (label && value && labels.contains(label->text()))
                    out.insert(label->text(), value->text());
            }
        return out;
    }

    // Compares the statistics on show with what the program wrote for `name`.
    void expectStatisticsOf(const QString& name) {
        const QMap<QString, QString> shown = statistics();
        ASSERT_FALSE(shown.isEmpty()) << "no statistics on show";
        EXPECT_EQ(shown.value(QStringLiteral("Count")).toLongLong(),
                  ref.value(name + QStringLiteral(".count")).toLongLong());
        const QList<QPair<QString, QString>> pairs = {
            {"Sum", "sum"},
            {"Minimum", "min"},
            {"Maximum", "max"},
            {"Mean", "mean"},
            {"Median", "median"},
            {"First Quartile", "q1"},
            {"Third Quartile", "q3"},
            {"Standard Deviation", "stddev"},
            {"Lower Adjacent Value", "lower_adjacent"},
            {"Upper Adjacent Value", "upper_adjacent"},
            {"Zero Count", "zeros"},
        };
        for (const auto& p : pairs) {
            ASSERT_TRUE(shown.contains(p.first)) << qPrintable(p.first);
            const double want = refNumber(name + QLatin1Char('.') + p.second);
            const double got = shown.value(p.first).toDouble();
            EXPECT_TRUE(near(got, want))
                << qPrintable(name) << " " << qPrintable(p.first) << ": shown "
                << qPrintable(shown.value(p.first)) << ", the program wrote " << want;
        }
    }

    // A gdb answer for `expression` in the focus frame, as a number.
    double gdbValue(const QString& expression) {
        auto reply = window->session()->send(
            QStringLiteral("-data-evaluate-expression ") +
            QString::fromStdString(arraylens::mi::quoteCString(expression.toStdString())));
        if (!reply->waitProcessingEvents(kWaitMs) || reply->isError())
            return std::nan("");
        return QString::fromStdString(reply->record().results["value"].asString()).toDouble();
    }

    // The configuration dialog's window once it is on show.
    QDialog* configDialog() const {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* d = qobject_cast<QDialog*>(w))
                if (d->isVisible() && d->findChild<QWidget*>(QStringLiteral("typeLineEdit")))
                    return d;
        return nullptr;
    }

    QTemporaryDir dir;
    QString referencePath;
    QMap<QString, QString> ref;
    QStringList answers;
    std::unique_ptr<shell::DebuggerWindow> window;
};

} // namespace shelltest
