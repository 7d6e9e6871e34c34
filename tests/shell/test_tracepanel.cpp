// The Trace panel and the data view's "Save as" entries over a real gdb on
// the blowup example: the trace runs to the first NaN, the chart has one
// point per stop, the window ends at that stop, and the array saved there
// is the program's own, as numpy reads it.
#include "shell/exportactions.h"
#include "shell/tracepanel.h"
#include "shellrig.h"

#include <QAction>
#include <QElapsedTimer>
#include <QProcess>
#include <QTabWidget>
#include <QTreeWidget>

using shelltest::ShellRig;
using shelltest::waitFor;

namespace {

const QString kPlate = QStringLiteral("*(double(*)[40][60])u");

QTreeWidgetItem* findItem(QTreeWidget* tree, const QString& text) {
    for (QTreeWidgetItemIterator it(tree); *it; ++it)
        if ((*it)->text(0) == text)
            return *it;
    return nullptr;
}

TEST(TracePanel, RunsToTheConditionAndLeavesTheWindowThere) {
    ShellRig rig;
    shell::Options o;
    o.program = shelltest::exampleProgram("example_blowup");
    // Every fifth step, to step 700: the first NaN appears at a reported step.
    o.programArgs = QStringList{rig.referencePath, "700", "40", "60", "5"};
    o.breaks = QStringList{shelltest::breakLocation("blowup.blowup")};
    ASSERT_TRUE(rig.start(o));
    shell::TracePanel* panel = rig.window->tracePanel();
    ASSERT_NE(panel, nullptr);
    panel->setExpression(kPlate);
    panel->setFilter("$value == $nan");
    panel->setUntil("NanCount > 0");
    panel->setFollowed({"NanCount", "Max"});
    // As a user would, with the panel on show.
    rig.window->findChild<QTabWidget*>("ToolTabs")->setCurrentWidget(panel);
    bool held = false, finished = false;
    QObject::connect(panel, &shell::TracePanel::traceFinished, [&](bool h) {
        held = h;
        finished = true;
    });
    panel->startTrace();
    ASSERT_TRUE(waitFor([&] { return finished; }, 110000)) << panel->statusText().toStdString();
    EXPECT_TRUE(held) << panel->statusText().toStdString();
    rig.loadReference();
    const int nanStep = rig.ref.value("nan_step").toInt();
    ASSERT_GT(nanStep, 0);
    const int stops = (nanStep + 4) / 5;
    ASSERT_EQ(panel->points().size(), stops);
    EXPECT_EQ(panel->points().last().value("NanCount").toInt(), rig.ref.value("u.nans").toInt());
    for (int k = 0; k + 1 < stops; ++k)
        EXPECT_EQ(panel->points()[k].value("NanCount").toInt(), 0) << k;
    // The chart shows one point per stop.
    int drawn = -1;
    EXPECT_TRUE(waitFor([&] {
        panel->chartPointCount([&](int n) { drawn = n; });
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        return drawn == stops;
    })) << drawn;
    // The window is at that stop: the program's own step counter says so.
    ASSERT_TRUE(
        waitFor([&] { return rig.window->stopCount() == stops && rig.window->listsCurrent(); }));
    rig.window->watch("step");
    auto* data = rig.window->findChild<QTreeWidget*>("DataView");
    EXPECT_TRUE(waitFor([&] {
        QTreeWidgetItem* item = findItem(data, "step");
        return item && item->text(1) == QString::number(stops * 5);
    }));

    // Save the plate from the data view's popup, where the trace left it.
    rig.window->watch(kPlate);
    ASSERT_TRUE(waitFor([&] {
        QTreeWidgetItem* item = findItem(data, kPlate);
        return item && item->text(2) == "double [40][60]";
    }));
    const QString file = rig.dir.filePath("plate.npy");
    shell::savePathChooser() = [&](const QString& suggested, const QString& filter) {
        EXPECT_EQ(suggested, QStringLiteral("u.npy"));
        EXPECT_TRUE(filter.contains("*.npy"));
        return file;
    };
    QMenu* popup = nullptr;
    rig.window->buildPopup("com.northquay.dataview", kPlate, [&](QMenu* menu) { popup = menu; });
    ASSERT_TRUE(waitFor([&] { return popup != nullptr; }));
    QAction* save = nullptr;
    QStringList labels;
    for (QAction* a : popup->actions()) {
        labels << a->text();
        if (a->text() == QString::fromUtf8("Save as .npy…"))
            save = a;
    }
    EXPECT_TRUE(labels.contains(QString::fromUtf8("Save as CSV…")));
    ASSERT_NE(save, nullptr) << labels.join(", ").toStdString();
    save->trigger();
    EXPECT_TRUE(waitFor([&] { return rig.window->statusText().startsWith("Saved 2400 elements"); }))
        << rig.window->statusText().toStdString();
    shell::savePathChooser() = nullptr;
    // The program wrote every value of u at this stop.
    QProcess python;
    python.start(
        "/usr/bin/python3",
        {"-c",
         "import sys, numpy as np\n"
         "vals = [l.split('=', 1)[1] for l in open(sys.argv[1]) if l.startswith('u.values=')]\n"
         "want = np.array([float(t) for t in vals[-1].split(',')]).reshape(40, 60)\n"
         "got = np.load(sys.argv[2])\n"
         "nan = np.isnan(want)\n"
         "assert got.shape == (40, 60) and (np.isnan(got) == nan).all()\n"
         "assert got[~nan].tobytes() == want[~nan].tobytes()\n"
         "print('ok', int(nan.sum()))\n",
         rig.referencePath, file});
    ASSERT_TRUE(python.waitForFinished(60000));
    EXPECT_EQ(python.readAllStandardOutput().trimmed(),
              QByteArray("ok ") + rig.ref.value("u.nans").toUtf8())
        << python.readAllStandardError().toStdString();
}

TEST(TracePanel, StopEndsTheTraceAtOnce) {
    ShellRig rig;
    shell::Options o;
    o.program = shelltest::exampleProgram("example_blowup");
    o.programArgs = QStringList{rig.referencePath, "5000", "40", "60", "1"};
    o.breaks = QStringList{shelltest::breakLocation("blowup.blowup")};
    ASSERT_TRUE(rig.start(o));
    shell::TracePanel* panel = rig.window->tracePanel();
    panel->setExpression(kPlate);
    panel->setFollowed({"Mean"});
    bool finished = false, held = true;
    QObject::connect(panel, &shell::TracePanel::traceFinished, [&](bool h) {
        finished = true;
        held = h;
    });
    panel->startTrace();
    ASSERT_TRUE(waitFor([&] { return panel->points().size() >= 3; }, 60000));
    panel->stopTrace();
    EXPECT_TRUE(finished);
    EXPECT_FALSE(held);
    EXPECT_FALSE(panel->isTracing());
    const int count = panel->points().size();
    // No more stops are traced, and the program ends up stopped.
    ASSERT_TRUE(waitFor([&] {
        return rig.window->session()->targetState() ==
               arraylens::gdb::GdbSession::TargetState::Stopped;
    }));
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    EXPECT_EQ(panel->points().size(), count);
    EXPECT_EQ(panel->statusText(), QStringLiteral("The trace was stopped."));
}

} // namespace
