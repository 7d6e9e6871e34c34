// The application's window over a real gdb on the example programs: what a
// user does, and what the programs themselves wrote about their arrays.
#include "shellrig.h"

#include <QAction>
#include <QElapsedTimer>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QScrollBar>
#include <QStatusBar>
#include <QTextBlock>
#include <QTreeWidget>

using shelltest::near;
using shelltest::ShellRig;
using shelltest::waitFor;

namespace {

const QString kStats = QStringLiteral("ArrayStatisticsRequest");
const QString kTable = QStringLiteral("ArrayData2DTableRequest");
const QString kPlot = QStringLiteral("VisEvaluateExpressionRequest");
const QString kPopupEntry = QStringLiteral("Add to Array Lens - Statistics, Visualize");

QTreeWidgetItem* findItem(QTreeWidget* tree, int column, const QString& text) {
    for (QTreeWidgetItemIterator it(tree); *it; ++it)
        if ((*it)->text(column) == text)
            return *it;
    return nullptr;
}

// Pixels of a plot: saturated ones (lines, bars, colour scales; not text,
// grid or background) and how many hue ranges they cover.
struct Colours {
    int saturated = 0;
    int hues = 0;
};
Colours colours(const QImage& image) {
    Colours c;
    QSet<int> hueBuckets;
    for (int y = 0; y < image.height(); y += 2)
        for (int x = 0; x < image.width(); x += 2) {
            const QColor colour = image.pixelColor(x, y);
            if (colour.hsvSaturation() > 100 && colour.value() > 60) {
                ++c.saturated;
                hueBuckets.insert(colour.hsvHue() / 20);
            }
        }
    c.hues = hueBuckets.size();
    return c;
}

QWidget* webView(QWidget* view) {
    for (QWidget* w : view->findChildren<QWidget*>())
        if (w->inherits("QWebEngineView") && w->isVisible())
            return w;
    return nullptr;
}

TEST(EndToEnd, BundledExampleOpensStoppedWithAnArrayInStatistics) {
    ShellRig rig;
    ASSERT_TRUE(rig.startBundled());
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    EXPECT_EQ(rig.ref.value("stop"), "1");
    rig.expectStatisticsOf("plate");
    // The toolbar tells what is on show.
    auto* combo = rig.viewToolBar()->findChild<QComboBox*>("ArrayLensComboBox");
    ASSERT_NE(combo, nullptr);
    EXPECT_EQ(combo->currentText(), "plate");
    // Around it: the source at the stop, the stack, the locals, the status.
    const QString location = shelltest::breakLocation("heat.heat");
    const int line = location.section(':', -1).toInt();
    auto* source = rig.window->findChild<QPlainTextEdit*>("SourcePane");
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->property("currentLine").toInt(), line);
    EXPECT_TRUE(rig.window->statusText().contains(QStringLiteral("heat.c:%1,").arg(line)));
    // Context help of the view on show.
    rig.window->findChild<QAction*>("HelpAction")->trigger();
    EXPECT_EQ(rig.window->statusBar()->currentMessage(), "Help: halvane, topic ArrayStatistics");
    EXPECT_TRUE(source->textCursor().block().text().contains("arraylens-break: heat"))
        << qPrintable(source->textCursor().block().text());
    auto* stack = rig.window->findChild<QTreeWidget*>("StackList");
    ASSERT_NE(stack, nullptr);
    ASSERT_GE(stack->topLevelItemCount(), 1);
    EXPECT_EQ(stack->topLevelItem(0)->text(1), "main");
    auto* locals = rig.window->findChild<QTreeWidget*>("LocalsView");
    ASSERT_NE(findItem(locals, 0, "plate"), nullptr);
    EXPECT_EQ(findItem(locals, 0, "plate")->text(2), "double [48][64]");
    EXPECT_TRUE(rig.window->statusText().startsWith("Stopped in main at "))
        << qPrintable(rig.window->statusText());
}

TEST(EndToEnd, TypedExpressionShowsTheProgramsOwnStatistics) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    ASSERT_TRUE(rig.window->typeIntoArrayLens("centre_row"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("centre_row");
    // A typed text that is no array is refused with a message, and the
    // statistics of the array before stay what they were.
    ASSERT_TRUE(rig.window->typeIntoArrayLens("step"));
    auto* message = rig.viewWidget()->findChild<QLabel*>("ArrayLensMessageLabel");
    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(waitFor([&] { return message->isVisible(); }, 10000));
}

TEST(EndToEnd, DataTableScrollsToTheFarEnd) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    ASSERT_TRUE(rig.window->typeIntoArrayLens("plate"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    const int before = rig.answerCount(kTable);
    ASSERT_TRUE(rig.chooseDisplay("Data Table"));
    ASSERT_TRUE(rig.waitForAnswer(kTable, before));
    auto* table = rig.viewWidget()->findChild<QTableWidget*>("data2DTableWidget");
    ASSERT_NE(table, nullptr);
    ASSERT_TRUE(waitFor([&] { return table->isVisible() && table->rowCount() == 48; }));
    EXPECT_EQ(table->columnCount(), 64);
    table->verticalScrollBar()->setValue(table->verticalScrollBar()->maximum());
    table->horizontalScrollBar()->setValue(table->horizontalScrollBar()->maximum());
    // The cells of the far corner arrive with the next viewport.
    auto filled = [&](int r, int c) {
        return table->item(r, c) && !table->item(r, c)->text().isEmpty();
    };
    ASSERT_TRUE(waitFor([&] { return filled(47, 63) && filled(40, 50); }))
        << "the far end of the table was not filled";
    for (const auto& cell : {QPair<int, int>{47, 63}, {40, 50}, {46, 62}, {35, 58}}) {
        const double shown = table->item(cell.first, cell.second)->text().toDouble();
        const double want =
            rig.gdbValue(QStringLiteral("plate[%1][%2]").arg(cell.first).arg(cell.second));
        EXPECT_TRUE(near(shown, want))
            << cell.first << "," << cell.second << ": " << shown << " vs " << want;
    }
    EXPECT_TRUE(near(table->item(47, 63)->text().toDouble(), rig.refNumber("plate.elem[47][63]")));
}

TEST(EndToEnd, LineHistogramAndSurfacePlotsAreDrawn) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    ASSERT_TRUE(rig.window->typeIntoArrayLens("plate"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    for (const QString& display : {QStringLiteral("Line Plot"), QStringLiteral("Histogram Plot"),
                                   QStringLiteral("Surface Plot")}) {
        SCOPED_TRACE(qPrintable(display));
        const int before = rig.answerCount(kPlot);
        ASSERT_TRUE(rig.chooseDisplay(display));
        ASSERT_TRUE(rig.waitForAnswer(kPlot, before));
        QWidget* web = nullptr;
        ASSERT_TRUE(waitFor([&] { return (web = webView(rig.viewWidget())) != nullptr; }));
        // Drawn: the plot's colours fill a good part of it.
        Colours seen;
        // The surface's colour scale runs from blue through grey to red.
        const bool surface = display == QLatin1String("Surface Plot");
        const int wantHues = surface ? 3 : 1;
        const int wantSaturated = surface ? 2000 : 400;
        // Grabbing a web view makes it render; grab seldom, so that the page
        // has time to draw between grabs.
        QElapsedTimer sinceGrab;
        sinceGrab.start();
        const bool drawn = waitFor(
            [&] {
                if (sinceGrab.elapsed() < 500)
                    return false;
                sinceGrab.restart();
                // Through the window, as it is on screen (the surface's WebGL
                // canvas included).
                const QRect area(web->mapTo(rig.window.get(), QPoint(0, 0)), web->size());
                seen = colours(rig.window->grab(area).toImage());
                return seen.saturated > wantSaturated && seen.hues >= wantHues;
            },
            40000);
        EXPECT_TRUE(drawn) << "saturated pixels " << seen.saturated << ", hues " << seen.hues;
    }
}

TEST(EndToEnd, LocalsPopupAddsTheArray) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    auto* locals = rig.window->findChild<QTreeWidget*>("LocalsView");
    ASSERT_NE(findItem(locals, 0, "centre_row"), nullptr);
    QMenu* popup = nullptr;
    rig.window->buildPopup("com.northquay.localvariable", "centre_row",
                           [&](QMenu* menu) { popup = menu; });
    ASSERT_TRUE(waitFor([&] { return popup != nullptr; }));
    QAction* entry = nullptr;
    const QList<QAction*> actions = popup->actions();
    for (int i = 0; i < actions.size(); ++i)
        if (actions[i]->text() == kPopupEntry) {
            entry = actions[i];
            // After the host's own entry and a separator.
            ASSERT_GE(i, 2);
            EXPECT_EQ(actions[i - 2]->objectName(),
                      "com.northquay.localvariable.popup.dive_in_new");
            EXPECT_TRUE(actions[i - 1]->isSeparator());
        }
    ASSERT_NE(entry, nullptr);
    ASSERT_TRUE(entry->isEnabled());
    entry->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("centre_row");
}

TEST(EndToEnd, DataViewPopupAddsAWatchedExpression) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    rig.window->watch("*average_history@step");
    auto* data = rig.window->findChild<QTreeWidget*>("DataView");
    ASSERT_TRUE(waitFor([&] {
        QTreeWidgetItem* item = findItem(data, 0, "*average_history@step");
        return item && item->text(2) == "double [20]";
    }));
    QMenu* popup = nullptr;
    rig.window->buildPopup("com.northquay.dataview", "*average_history@step",
                           [&](QMenu* menu) { popup = menu; });
    ASSERT_TRUE(waitFor([&] { return popup != nullptr; }));
    QAction* entry = nullptr;
    for (QAction* a : popup->actions())
        if (a->text() == kPopupEntry)
            entry = a;
    ASSERT_NE(entry, nullptr);
    entry->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("average_history");
}

TEST(EndToEnd, ContinueThenUpdateShowsTheNewValues) {
    ShellRig rig;
    ASSERT_TRUE(rig.startBundled());
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("plate");
    const QString firstSum = rig.statistics().value("Sum");
    auto* update = rig.window->findChild<QAction*>("UpdateAction");
    ASSERT_NE(update, nullptr);
    EXPECT_FALSE(update->isEnabled());

    rig.window->findChild<QAction*>("continueAction")->trigger();
    ASSERT_TRUE(rig.waitForStops(2));
    EXPECT_EQ(rig.ref.value("stop"), "2");
    // A stop does not refresh the view by itself; it offers Update.
    EXPECT_EQ(rig.statistics().value("Sum"), firstSum);
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 10000));
    const int before = rig.answerCount(kStats);
    update->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    rig.expectStatisticsOf("plate");
    EXPECT_NE(rig.statistics().value("Sum"), firstSum);
    EXPECT_FALSE(update->isEnabled());
}

TEST(EndToEnd, ConditionalStopsAndTheFirstStopOfANewRun) {
    ShellRig rig;
    const QString at = shelltest::breakLocation("heat.heat");
    // The heat example passes its breakpoint at steps 20, 40, 60, ...: the
    // condition lets 40 and 60 through, the ignore count passes 40.
    shell::Options o;
    o.program = shelltest::exampleProgram("example_heat");
    o.programArgs = QStringList{rig.referencePath};
    o.breaks = QStringList{at + " if step > 30"};
    o.ignore = 1;
    ASSERT_TRUE(rig.start(o));
    EXPECT_EQ(rig.ref.value("step"), "60");
    ASSERT_TRUE(rig.window->typeIntoArrayLens("plate"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("plate");
    auto* update = rig.window->findChild<QAction*>("UpdateAction");
    ASSERT_NE(update, nullptr);
    EXPECT_FALSE(update->isEnabled());

    // A conditional breakpoint typed into the console stops the program, and
    // Array Lens follows as at any stop.
    rig.window->consoleCommand("delete");
    rig.window->consoleCommand("break " + at + " if step == 160");
    rig.window->runControl("continue");
    ASSERT_TRUE(rig.waitForStops(2));
    EXPECT_EQ(rig.ref.value("step"), "160");
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 10000));
    int before = rig.answerCount(kStats);
    update->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    rig.expectStatisticsOf("plate");
    const QString sumAt160 = rig.statistics().value("Sum");
    EXPECT_FALSE(update->isEnabled());

    // On to the end, and Run again: the first stop of the new run offers
    // Update, which shows that run's numbers in place of the last run's.
    rig.window->consoleCommand("delete");
    rig.window->runControl("continue");
    ASSERT_TRUE(waitFor([&] {
        return rig.window->session()->targetState() ==
               arraylens::gdb::GdbSession::TargetState::Exited;
    }));
    EXPECT_FALSE(update->isEnabled());
    rig.window->consoleCommand("break " + at);
    rig.window->runControl("run");
    ASSERT_TRUE(rig.waitForStops(3));
    EXPECT_EQ(rig.ref.value("step"), "20");
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 10000))
        << "the first stop of the new run offers no Update";
    EXPECT_EQ(rig.statistics().value("Sum"), sumAt160);
    before = rig.answerCount(kStats);
    update->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    rig.expectStatisticsOf("plate");
    EXPECT_NE(rig.statistics().value("Sum"), sumAt160);
}

TEST(EndToEnd, AMissingProgramIsSaidToBeMissing) {
    ShellRig rig;
    shell::Options o;
    o.program = QStringLiteral("/no/such/dir/program");
    o.pluginPath = QStringLiteral(ARRAYLENS_MODULE_PATH);
    rig.window = std::make_unique<shell::DebuggerWindow>(o);
    rig.window->show();
    QString error;
    ASSERT_TRUE(rig.window->start(&error)) << qPrintable(error);
    const QString words = "The program /no/such/dir/program was not found (No such file or "
                          "directory).";
    EXPECT_TRUE(waitFor([&] { return rig.window->statusText() == words; }, 10000))
        << qPrintable(rig.window->statusText());
    // The run that gdb then refuses does not put its own words over it.
    waitFor([] { return false; }, 500);
    EXPECT_EQ(rig.window->statusText(), words);
}

TEST(EndToEnd, HeapPointerCastInTheConfigurationDialog) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    // Ten of the twenty values behind the heap pointer...
    ASSERT_TRUE(rig.window->typeIntoArrayLens("*average_history@10"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    EXPECT_EQ(rig.statistics().value("Count"), "10");
    // ... cast to all twenty in the dialog.
    QAction* settings = nullptr;
    for (QAction* a : rig.viewToolBar()->actions())
        if (a->text() == "Configure array type, slice and stride settings.")
            settings = a;
    ASSERT_NE(settings, nullptr);
    settings->trigger();
    QDialog* dialog = nullptr;
    ASSERT_TRUE(waitFor([&] { return (dialog = rig.configDialog()) != nullptr; }, 10000));
    auto* type = dialog->findChild<QLineEdit*>("typeLineEdit");
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->text(), "double [10]");
    type->setText("double [20]");
    auto* buttons = dialog->findChild<QDialogButtonBox*>("configButtonBox");
    ASSERT_NE(buttons, nullptr);
    QAbstractButton* ok = nullptr;
    for (QAbstractButton* b : buttons->buttons())
        if (buttons->buttonRole(b) == QDialogButtonBox::AcceptRole)
            ok = b;
    ASSERT_NE(ok, nullptr);
    const int before = rig.answerCount(kStats);
    ok->click();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    ASSERT_TRUE(waitFor([&] { return rig.statistics().value("Count") == "20"; }, 10000));
    rig.expectStatisticsOf("average_history");
}

TEST(EndToEnd, FrameAndProcessClicksAreSelections) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_arrays_c", "arrays_c.recursion"));
    ASSERT_TRUE(rig.window->typeIntoArrayLens("trail"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("trail_depth0");
    auto* update = rig.window->findChild<QAction*>("UpdateAction");
    EXPECT_FALSE(update->isEnabled());

    auto* stack = rig.window->findChild<QTreeWidget*>("StackList");
    QTreeWidgetItem* level2 = findItem(stack, 0, "2");
    ASSERT_NE(level2, nullptr);
    EXPECT_EQ(level2->text(1), "recurse");
    // A frame click with the expression bound: the view hears it and offers
    // Update, and asks nothing yet.
    const int before = rig.answerCount(kStats);
    emit stack->itemClicked(level2, 0);
    EXPECT_TRUE(update->isEnabled());
    EXPECT_EQ(rig.answerCount(kStats), before);
    // The clicked frame is the focus: its locals are on show, and the trail
    // handed over from their popup is the one two levels up.
    ASSERT_TRUE(waitFor([&] { return rig.window->listsCurrent(); }));
    auto* locals = rig.window->findChild<QTreeWidget*>("LocalsView");
    ASSERT_NE(findItem(locals, 0, "trail"), nullptr);
    ASSERT_NE(findItem(locals, 0, "depth"), nullptr);
    EXPECT_EQ(findItem(locals, 0, "depth")->text(1).toInt(),
              rig.ref.value("trail_depth2.elem[5]").toInt() / 10);
    QMenu* popup = nullptr;
    rig.window->buildPopup("com.northquay.localvariable", "trail",
                           [&](QMenu* menu) { popup = menu; });
    ASSERT_TRUE(waitFor([&] { return popup != nullptr; }));
    for (QAction* a : popup->actions())
        if (a->text() == kPopupEntry)
            a->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, before));
    rig.expectStatisticsOf("trail_depth2");

    EXPECT_FALSE(update->isEnabled());

    // The process click unbinds the expressions; the next frame click then
    // has the one on show evaluated anew, bound again, and Update offered.
    auto* threads = rig.window->findChild<QTreeWidget*>("ThreadList");
    ASSERT_GE(threads->topLevelItemCount(), 1);
    QTreeWidgetItem* process = threads->topLevelItem(0);
    EXPECT_TRUE(process->text(0).startsWith("Process "));
    emit threads->itemClicked(process, 0);
    EXPECT_FALSE(update->isEnabled());
    emit stack->itemClicked(level2, 0);
    ASSERT_TRUE(waitFor([&] { return update->isEnabled(); }, 10000));
    const int again = rig.answerCount(kStats);
    update->trigger();
    ASSERT_TRUE(rig.waitForAnswer(kStats, again));
    rig.expectStatisticsOf("trail_depth2");
}

TEST(EndToEnd, ConsoleRunsTypedCommands) {
    ShellRig rig;
    ASSERT_TRUE(rig.startAt("example_heat", "heat.heat"));
    auto* entry = rig.window->findChild<QLineEdit*>("GdbConsoleEntry");
    auto* output = rig.window->findChild<QPlainTextEdit*>("GdbConsoleOutput");
    ASSERT_NE(entry, nullptr);
    entry->setText("print step * 2");
    emit entry->returnPressed();
    EXPECT_TRUE(waitFor([&] { return output->toPlainText().contains("= 40"); }, 10000))
        << qPrintable(output->toPlainText());
}

TEST(EndToEnd, CoreFileOpensStoppedAndShowsItsArrays) {
    ShellRig rig;
    // A core of the heat example at its first stop, written by gdb itself.
    const QString core = rig.dir.filePath("heat.core");
    QProcess gdb;
    gdb.start("gdb", {"-batch", "-nx", "-ex", "break " + shelltest::breakLocation("heat.heat"),
                      "-ex", "run", "-ex", "generate-core-file " + core, "--args",
                      shelltest::exampleProgram("example_heat"), rig.referencePath});
    ASSERT_TRUE(gdb.waitForFinished(60000));
    ASSERT_TRUE(QFile::exists(core));
    shell::Options o;
    o.program = shelltest::exampleProgram("example_heat");
    o.coreFile = core;
    ASSERT_TRUE(rig.start(o));
    EXPECT_TRUE(rig.window->statusText().contains("(connected)"));
    ASSERT_TRUE(rig.window->typeIntoArrayLens("plate"));
    ASSERT_TRUE(rig.waitForAnswer(kStats, 0));
    rig.expectStatisticsOf("plate");
}

TEST(EndToEnd, ScreenshotOfTheBundledExample) {
    QTemporaryDir dir;
    const QString file = dir.filePath("shot.png");
    QProcess app;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("ARRAYLENS_PLUGIN", ARRAYLENS_MODULE_PATH);
    app.setProcessEnvironment(env);
    app.start(ARRAYLENS_APP, {"--screenshot", file});
    ASSERT_TRUE(app.waitForFinished(90000)) << "the application did not finish";
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(app.exitCode(), 0) << app.readAllStandardError().constData();
    const QImage shot(file);
    ASSERT_FALSE(shot.isNull());
    EXPECT_GE(shot.width(), 800);
    EXPECT_GE(shot.height(), 600);
    // More than a blank window: the source's highlight and the texts.
    QSet<QRgb> distinct;
    for (int y = 0; y < shot.height(); y += 3)
        for (int x = 0; x < shot.width(); x += 3)
            distinct.insert(shot.pixel(x, y));
    EXPECT_GT(distinct.size(), 30);
}

} // namespace
