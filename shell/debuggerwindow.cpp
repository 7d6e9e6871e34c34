#include "shell/debuggerwindow.h"

#include "gdbdebugger.h"
#include "gdbexpression.h"
#include "gdbsession.h"
#include "mpidebugger.h"
#include "mpijob.h"
#include "runcontrol.h"
#include "shell/exportactions.h"
#include "shell/locate.h"
#include "shell/mireplies.h"
#include "shell/tracepanel.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFutureWatcher>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QTextBlock>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace shell {

using arraylens::gdb::GdbDebugger;
using arraylens::gdb::GdbFrame;
using arraylens::gdb::GdbSession;
using arraylens::gdb::MiReply;

namespace {

const char kDataViewId[] = "com.northquay.dataview";
const char kLocalsViewId[] = "com.northquay.localvariable";
const char kArrayLensViewId[] = "com.northquay.arraylensview";
// The host's own popup entries that contributed entries are placed after.
const char kDataViewDive[] = "com.northquay.dataview.popup.redive";
const char kLocalsDive[] = "com.northquay.localvariable.popup.dive_in_new";

QString quoted(const QString& text) {
    return QString::fromStdString(arraylens::mi::quoteCString(text.toStdString()));
}

enum Role { FrameRole = Qt::UserRole + 1, ThreadRole, KindRole };

QTreeWidget* makeTree(const QString& objectName, const QStringList& headers) {
    auto* tree = new QTreeWidget;
    tree->setObjectName(objectName);
    tree->setHeaderLabels(headers);
    tree->setRootIsDecorated(false);
    tree->setUniformRowHeights(true);
    tree->setAlternatingRowColors(true);
    tree->header()->setStretchLastSection(true);
    return tree;
}

} // namespace

DebuggerWindow::DebuggerWindow(const Options& options, QWidget* parent)
    : QMainWindow(parent), options_(options) {
    setObjectName(QStringLiteral("ArrayLensMainWindow"));
    setWindowTitle(QStringLiteral("Array Lens"));
    buildWidgets();
    core_ = new HostCore(this, viewTabs_);
    core_->theme.setTheme(options_.theme);
    defineHostCommands();
    buildRunControls();
    connect(&core_->commands, &CommandManager::commandsChanged, this,
            &DebuggerWindow::updateUpdateAction);
    connect(viewTabs_, &QTabWidget::currentChanged, this, &DebuggerWindow::updateUpdateAction);
    connect(&core_->contexts, &NQ::IContextManager::contextChanged, this,
            &DebuggerWindow::applyContexts);
    resize(1400, 900);
}

DebuggerWindow::~DebuggerWindow() {
    // The plug-in's view goes first: it holds the debugger service, which
    // needs the session, which goes last.
    for (NQ::IView* view : core_->views.views())
        delete view;
    delete viewTabs_;
    viewTabs_ = nullptr;
    if (popup_)
        delete popup_.data();
    if (corePlugin_)
        delete corePlugin_;
    debugger_.reset();
    backend_.reset();
    if (job_) {
        // Launched ranks, their gdbs and mpirun end here; an attached job's
        // ranks are let go and run on. The window, half gone, hears nothing
        // of it.
        job_->disconnect(this);
        for (int r = 0; r < job_->size(); ++r)
            if (GdbSession* s = job_->session(r))
                s->disconnect(this);
        job_->end();
        job_.reset();
    } else if (session_) {
        session_->kill();
        delete session_;
    }
    delete core_;
}

// ---- widgets ----------------------------------------------------------------

void DebuggerWindow::buildWidgets() {
    auto* sourceBox = new QWidget;
    auto* sourceLayout = new QVBoxLayout(sourceBox);
    sourceLayout->setContentsMargins(0, 0, 0, 0);
    sourceTitle_ = new QLabel(QStringLiteral("No source"));
    sourceTitle_->setObjectName(QStringLiteral("SourceTitle"));
    source_ = new QPlainTextEdit;
    source_->setObjectName(QStringLiteral("SourcePane"));
    source_->setReadOnly(true);
    source_->setLineWrapMode(QPlainTextEdit::NoWrap);
    source_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    sourceLayout->addWidget(sourceTitle_);
    sourceLayout->addWidget(source_, 1);

    viewTabs_ = new QTabWidget;
    viewTabs_->setObjectName(QStringLiteral("ViewTabs"));
    viewTabs_->setDocumentMode(true);

    // The data view: watched expressions.
    auto* dataBox = new QWidget;
    auto* dataLayout = new QVBoxLayout(dataBox);
    dataLayout->setContentsMargins(2, 2, 2, 2);
    watchEntry_ = new QLineEdit;
    watchEntry_->setObjectName(QStringLiteral("WatchEntry"));
    watchEntry_->setPlaceholderText(QStringLiteral("Add an expression to watch"));
    dataView_ =
        makeTree(QStringLiteral("DataView"),
                 {QStringLiteral("Expression"), QStringLiteral("Value"), QStringLiteral("Type")});
    dataView_->setContextMenuPolicy(Qt::CustomContextMenu);
    dataLayout->addWidget(watchEntry_);
    dataLayout->addWidget(dataView_, 1);
    connect(watchEntry_, &QLineEdit::returnPressed, this, [this] {
        const QString text = watchEntry_->text().trimmed();
        if (!text.isEmpty())
            watch(text);
        watchEntry_->clear();
    });
    connect(dataView_, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
        showPopupAt(dataView_->itemAt(pos), QString::fromLatin1(kDataViewId),
                    dataView_->viewport()->mapToGlobal(pos), dataView_);
    });
    dataBox->setWindowTitle(QStringLiteral("Data View"));

    auto* top = new QSplitter(Qt::Horizontal);
    top->setObjectName(QStringLiteral("TopSplitter"));
    top->addWidget(sourceBox);
    top->addWidget(viewTabs_);
    top->setStretchFactor(0, 2);
    top->setStretchFactor(1, 3);
    top->setSizes({520, 880});

    stack_ = makeTree(QStringLiteral("StackList"),
                      {QStringLiteral("#"), QStringLiteral("Function"), QStringLiteral("Where")});
    threads_ =
        makeTree(QStringLiteral("ThreadList"), {QStringLiteral("Thread"), QStringLiteral("Frame")});
    threads_->setRootIsDecorated(true);
    locals_ = makeTree(QStringLiteral("LocalsView"),
                       {QStringLiteral("Name"), QStringLiteral("Value"), QStringLiteral("Type")});
    locals_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(stack_, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item) { selectFrame(item); });
    connect(threads_, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item) { selectThread(item); });
    connect(locals_, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
        showPopupAt(locals_->itemAt(pos), QString::fromLatin1(kLocalsViewId),
                    locals_->viewport()->mapToGlobal(pos), locals_);
    });

    sideTabs_ = new QTabWidget;
    sideTabs_->setObjectName(QStringLiteral("ToolTabs"));
    sideTabs_->addTab(stack_, QStringLiteral("Stack"));
    sideTabs_->addTab(threads_, QStringLiteral("Threads"));

    auto* consoleBox = new QWidget;
    auto* consoleLayout = new QVBoxLayout(consoleBox);
    consoleLayout->setContentsMargins(0, 0, 0, 0);
    console_ = new QPlainTextEdit;
    console_->setObjectName(QStringLiteral("GdbConsoleOutput"));
    console_->setReadOnly(true);
    console_->setMaximumBlockCount(5000);
    console_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    consoleEntry_ = new QLineEdit;
    consoleEntry_->setObjectName(QStringLiteral("GdbConsoleEntry"));
    consoleEntry_->setPlaceholderText(QStringLiteral("gdb command"));
    consoleLayout->addWidget(console_, 1);
    consoleLayout->addWidget(consoleEntry_);
    connect(consoleEntry_, &QLineEdit::returnPressed, this, [this] {
        const QString text = consoleEntry_->text();
        consoleEntry_->clear();
        if (!text.trimmed().isEmpty())
            consoleCommand(text);
    });

    auto* bottom = new QSplitter(Qt::Horizontal);
    bottom->setObjectName(QStringLiteral("BottomSplitter"));
    bottom->addWidget(sideTabs_);
    bottom->addWidget(locals_);
    bottom->addWidget(consoleBox);
    bottom->setSizes({380, 460, 560});

    auto* main = new QSplitter(Qt::Vertical);
    main->setObjectName(QStringLiteral("MainSplitter"));
    main->addWidget(top);
    main->addWidget(bottom);
    main->setStretchFactor(0, 3);
    main->setStretchFactor(1, 1);
    main->setSizes({620, 260});
    setCentralWidget(main);

    status_ = new QLabel(QStringLiteral("Not started"));
    status_->setObjectName(QStringLiteral("StatusLine"));
    statusBar()->addWidget(status_, 1);

    // Registered as a host view once the services exist (see start()).
    dataBox->setObjectName(QStringLiteral("DataViewPage"));
    dataBox->setProperty("pendingViewName", QString::fromLatin1(kDataViewId));
    viewTabs_->addTab(dataBox, QStringLiteral("Data View"));
    dataBox->setProperty("viewName", QString::fromLatin1(kDataViewId));
}

void DebuggerWindow::buildRunControls() {
    auto* bar = addToolBar(QStringLiteral("Run"));
    bar->setObjectName(QStringLiteral("RunControls"));
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    struct Control {
        const char* name;
        const char* label;
        const char* shortcut;
        const char* tip;
    };
    static const Control controls[] = {
        {"run", "Run", "F5", "Start the program from the beginning"},
        {"continue", "Continue", "F8", "Run on to the next stop"},
        {"next", "Next", "F10", "Step over one line"},
        {"step", "Step", "F11", "Step into the line"},
        {"finish", "Finish", "Shift+F11", "Run to the end of this function"},
        {"interrupt", "Interrupt", "Ctrl+Break", "Stop the running program"},
        {"kill", "Kill", "Shift+F5", "End the program"},
    };
    for (const Control& c : controls) {
        auto* action = bar->addAction(QString::fromLatin1(c.label));
        action->setObjectName(QString::fromLatin1(c.name) + QStringLiteral("Action"));
        action->setShortcut(QKeySequence(QString::fromLatin1(c.shortcut)));
        action->setToolTip(QString::fromLatin1(c.tip));
        action->setEnabled(false);
        const QString which = QString::fromLatin1(c.name);
        connect(action, &QAction::triggered, this, [this, which] { runControl(which); });
        runActions_.insert(which, action);
    }
    bar->addSeparator();
    updateAction_ = bar->addAction(QStringLiteral("Update"));
    updateAction_->setObjectName(QStringLiteral("UpdateAction"));
    updateAction_->setToolTip(QStringLiteral("Fetch the view's data anew"));
    updateAction_->setShortcut(QKeySequence(QStringLiteral("Ctrl+U")));
    updateAction_->setEnabled(false);
    connect(updateAction_, &QAction::triggered, this, &DebuggerWindow::runUpdate);

    // Context help: the topic bound to the widget with the focus, or to the
    // nearest of its parents that has one.
    auto* help = new QAction(QStringLiteral("Help"), this);
    help->setObjectName(QStringLiteral("HelpAction"));
    help->setShortcut(QKeySequence::HelpContents);
    connect(help, &QAction::triggered, this, [this] {
        QWidget* focus = QApplication::focusWidget();
        NQ::HelpReference reference;
        if (focus && isAncestorOf(focus))
            reference = core_->help.referenceFor(focus);
        // Else (or in a view's toolbar) the view on show.
        NQ::IView* view = core_->views.view(core_->views.currentViewName());
        if (reference.first.isEmpty() && view && view->widget())
            reference = core_->help.referenceFor(view->widget());
        statusBar()->showMessage(
            reference.first.isEmpty()
                ? QStringLiteral("No help for this place.")
                : QStringLiteral("Help: %1, topic %2").arg(reference.first, reference.second),
            6000);
    });
    addAction(help);

    bar->addSeparator();
    auto* theme = bar->addAction(QStringLiteral("Dark"));
    theme->setObjectName(QStringLiteral("ThemeAction"));
    theme->setCheckable(true);
    theme->setChecked(options_.theme == QLatin1String("dark"));
    connect(theme, &QAction::toggled, this, [this](bool dark) {
        core_->theme.setTheme(dark ? QStringLiteral("dark") : QStringLiteral("light"));
    });
}

void DebuggerWindow::defineHostCommands() {
    // The message overlay: a transient text over the window's status line.
    core_->commands.defineHostCommand(
        QString::fromLatin1(NQ::Ids::SHOW_MESSAGE_OVERLAY_COMMAND), [this](const QVariantMap& p) {
            const QString text =
                p.value(QString::fromLatin1(NQ::Ids::SHOW_MESSAGE_OVERLAY_PARAMETER)).toString();
            statusBar()->showMessage(text, 6000);
            appendConsole(QStringLiteral("[message] ") + text + QLatin1Char('\n'));
        });
    // Update: the current view's own update command.
    core_->commands.defineHostCommand(QString::fromLatin1(NQ::Ids::UPDATE_COMMAND),
                                      [this](const QVariantMap&) { runUpdate(); });
}

void DebuggerWindow::updateUpdateAction() {
    if (!updateAction_ || !viewTabs_)
        return;
    QString view = core_->views.currentViewName();
    if (!core_->views.view(view))
        view = QString::fromLatin1(kArrayLensViewId);
    updateAction_->setEnabled(core_->commands.isAvailable(
        QString::fromLatin1(NQ::Ids::UPDATE_COMMAND) + QLatin1Char('.') + view));
}

void DebuggerWindow::runUpdate() {
    QString view = core_->views.currentViewName();
    if (!core_->views.view(view))
        view = QString::fromLatin1(kArrayLensViewId);
    core_->commands.runCommand(QString::fromLatin1(NQ::Ids::UPDATE_COMMAND) + QLatin1Char('.') +
                               view);
}

void DebuggerWindow::applyContexts() {
    // The popup entry of the plug-in is offered while the debuggee can be
    // asked about its variables.
    const QString ready = QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_READY);
    const QString stats = QString::fromLatin1(NQ::Ids::CONTEXT_SHOW_STATS);
    if (core_->contexts.hasContext(ready) != core_->contexts.hasContext(stats)) {
        if (core_->contexts.hasContext(ready))
            core_->contexts.activateContext(stats);
        else
            core_->contexts.deactivateContext(stats);
    }
    updateUpdateAction();
}

void DebuggerWindow::setStatus(const QString& text) {
    status_->setText(text);
}

QString DebuggerWindow::statusText() const {
    return status_->text();
}

void DebuggerWindow::appendConsole(const QString& text) {
    console_->moveCursor(QTextCursor::End);
    console_->insertPlainText(text);
    console_->verticalScrollBar()->setValue(console_->verticalScrollBar()->maximum());
}

// ---- start ------------------------------------------------------------------

bool DebuggerWindow::start(QString* error) {
    // The data view becomes a tab the views manager knows by name, so that
    // views can place themselves beside it.
    QWidget* dataPage = viewTabs_->widget(0);
    viewTabs_->removeTab(0);
    core_->views.addHostTab(QString::fromLatin1(kDataViewId), QStringLiteral("Data View"),
                            dataPage);

    if (options_.isMpi())
        return startMpi(error);

    GdbSession::Options gdbOptions;
    gdbOptions.gdbPath = options_.gdbPath;
    auto* gdbDebugger = new GdbDebugger(new GdbSession(gdbOptions));
    gdbDebugger_ = gdbDebugger;
    gdbDebugger_->setContextManager(&core_->contexts);
    installDebugger(QSharedPointer<IHVDebugger>(gdbDebugger));

    trace_ = new TracePanel(gdbDebugger_.data());
    sideTabs_->addTab(trace_, QStringLiteral("Trace"));

    connectSession(gdbDebugger_->session());

    if (!loadPlugin(error)) {
        setStatus(*error);
        return false;
    }
    core_->theme.setTheme(core_->theme.getThemeName());
    if (!startDebugger(error)) {
        setStatus(*error);
        return false;
    }
    return true;
}

void DebuggerWindow::installDebugger(QSharedPointer<IHVDebugger> backend) {
    backend_ = std::move(backend);
    debugger_ = QSharedPointer<ObservedDebugger>(new ObservedDebugger(backend_));
    connect(debugger_.data(), &ObservedDebugger::answered, this,
            &DebuggerWindow::handleDisplayAnswered);
    connect(debugger_.data(), &ObservedDebugger::eventArriving, this,
            &DebuggerWindow::takeFocusOfStop);
    corePlugin_ = new CorePlugin(debugger_);
    core_->plugins.registerPlugin(corePlugin_);
}

void DebuggerWindow::connectSession(GdbSession* session) {
    // Only the focus's own connections go: on a job the window also follows
    // every rank's state.
    for (const QMetaObject::Connection& c : sessionConnections_)
        disconnect(c);
    session_ = session;
    sessionConnections_ = {
        connect(session_, &GdbSession::asyncRecord, this, &DebuggerWindow::handleAsyncRecord),
        connect(session_, &GdbSession::targetStateChanged, this,
                &DebuggerWindow::handleTargetState),
        // The service's own MI traffic stays out of the console: it shows
        // what the user typed, gdb's answers to it, and the program's output.
        connect(session_, &GdbSession::inferiorOutput, this,
                [this](const QByteArray& bytes) { appendConsole(QString::fromLocal8Bit(bytes)); }),
        connect(session_, &GdbSession::died, this,
                [this] {
                    // On a job the rank's own connection says which gdb.
                    if (!job_)
                        setStatus(QStringLiteral("The debugger has stopped."));
                    handleTargetState();
                }),
    };
}

bool DebuggerWindow::loadPlugin(QString* error) {
    const QString path = options_.pluginPath.isEmpty() ? locatePlugin() : options_.pluginPath;
    if (path.isEmpty()) {
        *error = QStringLiteral("Cannot find the Array Lens plug-in (libArrayLens.so); name it "
                                "with --plugin or ARRAYLENS_PLUGIN.");
        return false;
    }
    arrayLens_ = core_->plugins.load(path, {}, error);
    return arrayLens_ != nullptr;
}

bool DebuggerWindow::startDebugger(QString* error) {
    QString program = options_.program;
    QStringList breaks = options_.breaks;
    if (options_.bundledExample) {
        program = locateExample();
        if (program.isEmpty()) {
            *error = QStringLiteral("Cannot find the bundled example (example_heat).");
            return false;
        }
        if (breaks.isEmpty())
            breaks << exampleBreakLocation();
        if (options_.evals.isEmpty())
            options_.evals << QStringLiteral("plate");
    }
    pendingEvals_ = options_.evals;
    if (!session_->start(program, options_.programArgs, error))
        return false;
    // gdb goes on without a program it cannot load: say so, rather than
    // what the commands that need it answer.
    if (!program.isEmpty())
        session_->send(QStringLiteral("-list-thread-groups"), [this, program](const MiReply& r) {
            const QString missing = arraylens::gdb::programNotFoundText(
                program, r.record().results["groups"], session_->startupText());
            if (missing.isEmpty())
                return;
            programMissing_ = true;
            setStatus(missing);
            appendConsole(missing + QLatin1Char('\n'));
        });
    // The bundled example writes its own numbers for the tests to standard
    // output unless told of a file; the demo has no use for them.
    if (options_.bundledExample && options_.programArgs.isEmpty())
        session_->send(QStringLiteral("-interpreter-exec console ") +
                       quoted(QStringLiteral("set environment ARRAYLENS_REFERENCE /dev/null")));
    // An installed example keeps its source beside it.
    if (options_.bundledExample)
        session_->send(QStringLiteral("-environment-directory ") +
                       quoted(QFileInfo(program).absolutePath()));
    setWindowTitle(
        QStringLiteral("Array Lens - %1")
            .arg(program.isEmpty() ? QStringLiteral("gdb") : QFileInfo(program).fileName()));
    for (const QString& location : breaks) {
        // The options have refused a breakpoint without location or with an
        // empty condition.
        arraylens::gdb::BreakSpec spec;
        arraylens::gdb::parseBreakSpec(location, spec, nullptr);
        session_->send(
            arraylens::gdb::breakInsertCommand(spec, options_.ignore),
            [this, location](const MiReply& r) {
                if (r.isError() && !programMissing_)
                    appendConsole(
                        QStringLiteral("Breakpoint at %1: %2\n").arg(location, r.errorMessage()));
            });
    }
    auto reportFailure = [this](const MiReply& r) {
        if (r.isError() && !programMissing_)
            setStatus(r.errorMessage());
    };
    // A core file, or a gdbserver that has just started its program, is
    // stopped without a stop record: the answer to the connection names the
    // frame.
    auto stoppedOnConnect = [this](const MiReply& r) {
        const QVariantMap fields = resultsOf(r);
        session_->markStopped();
        QVariantMap stop;
        stop.insert(QStringLiteral("reason"), QStringLiteral("connected"));
        stop.insert(QStringLiteral("frame"), fields.value(QStringLiteral("frame")));
        stop.insert(QStringLiteral("thread-id"), QStringLiteral("1"));
        handleStopped(stop);
    };
    if (options_.attachPid > 0) {
        // The process goes on living when the window closes.
        session_->setKillDebuggeeWithGdb(false);
        session_->send(QStringLiteral("-target-attach %1").arg(options_.attachPid), reportFailure);
        setStatus(QStringLiteral("Attaching to %1").arg(options_.attachPid));
    } else if (!options_.coreFile.isEmpty()) {
        // -target-select takes its arguments as plain words.
        if (options_.coreFile.contains(QRegularExpression(QStringLiteral("[\\s\"'\\\\]")))) {
            *error = QStringLiteral("The core file's path must not contain blanks or quotes.");
            return false;
        }
        session_->setCoreFile(options_.coreFile);
        session_->send(QStringLiteral("-target-select core ") + options_.coreFile,
                       [reportFailure, stoppedOnConnect](const MiReply& r) {
                           reportFailure(r);
                           if (!r.isError())
                               stoppedOnConnect(r);
                       });
        setStatus(QStringLiteral("Core file %1").arg(options_.coreFile));
    } else if (!options_.remote.isEmpty()) {
        session_->setTargetIsLocalProcess(false);
        const bool runToBreak = !breaks.isEmpty();
        session_->send(QStringLiteral("-target-select remote ") + options_.remote,
                       [this, reportFailure, stoppedOnConnect, runToBreak](const MiReply& r) {
                           reportFailure(r);
                           if (r.isError())
                               return;
                           stoppedOnConnect(r);
                           // As a local run does: on to the first breakpoint.
                           if (runToBreak)
                               runControl(QStringLiteral("continue"));
                       });
        setStatus(QStringLiteral("Connecting to %1").arg(options_.remote));
    } else if (!program.isEmpty()) {
        session_->send(QStringLiteral("-exec-run"), reportFailure);
        setStatus(QStringLiteral("Running"));
    } else {
        setStatus(QStringLiteral("No program"));
    }
    handleTargetState();
    return true;
}

// ---- debugger events ----------------------------------------------------------

void DebuggerWindow::runControl(const QString& which) {
    if (!session_)
        return;
    if (job_) {
        // Every rank takes the command; there is no new run of a job.
        static const QHash<QString, QString> together{
            {QStringLiteral("continue"), QStringLiteral("-exec-continue")},
            {QStringLiteral("next"), QStringLiteral("-exec-next")},
            {QStringLiteral("step"), QStringLiteral("-exec-step")},
            {QStringLiteral("finish"), QStringLiteral("-exec-finish")},
        };
        if (which == QLatin1String("interrupt"))
            mpiDebugger()->interruptAll();
        else if (together.contains(which))
            runMpi(together.value(which));
        return;
    }
    static const QHash<QString, QString> commands{
        {QStringLiteral("run"), QStringLiteral("-exec-run")},
        {QStringLiteral("continue"), QStringLiteral("-exec-continue")},
        {QStringLiteral("next"), QStringLiteral("-exec-next")},
        {QStringLiteral("step"), QStringLiteral("-exec-step")},
        {QStringLiteral("finish"), QStringLiteral("-exec-finish")},
        {QStringLiteral("interrupt"), QStringLiteral("-exec-interrupt --all")},
        {QStringLiteral("kill"), QStringLiteral("-interpreter-exec console \"kill\"")},
    };
    const QString command = commands.value(which);
    if (command.isEmpty())
        return;
    session_->send(command, [this, which](const MiReply& r) {
        if (r.isError())
            setStatus(QStringLiteral("%1: %2").arg(which, r.errorMessage()));
        else if (which == QLatin1String("kill"))
            setStatus(QStringLiteral("Killed"));
    });
}

void DebuggerWindow::handleTargetState() {
    if (job_) {
        handleMpiTargetState();
        return;
    }
    const bool alive = session_ && session_->isAlive();
    const auto state = session_ ? session_->targetState() : GdbSession::TargetState::None;
    const bool stopped = alive && state == GdbSession::TargetState::Stopped;
    const bool running = alive && state == GdbSession::TargetState::Running;
    const bool startable = alive && (state == GdbSession::TargetState::None ||
                                     state == GdbSession::TargetState::Exited || stopped);
    runActions_.value(QStringLiteral("run"))->setEnabled(startable);
    for (const char* name : {"continue", "next", "step", "finish"})
        runActions_.value(QString::fromLatin1(name))->setEnabled(stopped);
    runActions_.value(QStringLiteral("interrupt"))->setEnabled(running);
    runActions_.value(QStringLiteral("kill"))->setEnabled(stopped || running);
    if (running) {
        setStatus(QStringLiteral("Running"));
        stack_->setEnabled(false);
        locals_->setEnabled(false);
    } else {
        stack_->setEnabled(true);
        locals_->setEnabled(true);
    }
}

void DebuggerWindow::handleAsyncRecord(const arraylens::mi::Record& record) {
    const QVariantMap fields = arraylens::gdb::toVariant(record.results).toMap();
    if (record.klass == "stopped" && job_ && job_->resuming()) {
        // Taken up once every rank has stopped.
        heldStop_ = fields;
    } else if (record.klass == "stopped") {
        handleStopped(fields);
    } else if (record.klass == "thread-group-started") {
        const qint64 pid = fields.value(QStringLiteral("pid")).toLongLong();
        process_ = QSharedPointer<ShellProcess>(new ShellProcess(pid), &QObject::deleteLater);
        // A new process: every expression is bound anew.
        NQ::QSharedObjectSelection selection({process_});
        core_->selections.select(QString::fromLatin1(NQ::Ids::SELECTION_PROCESS), nullptr,
                                 &selection);
    } else if (record.klass == "thread-group-exited") {
        const QString code = fields.value(QStringLiteral("exit-code")).toString();
        const QString who = job_ ? QStringLiteral("Rank %1").arg(mpiDebugger()->focusRank())
                                 : QStringLiteral("The program");
        setStatus(code.isEmpty() ? QStringLiteral("%1 has exited.").arg(who)
                                 : QStringLiteral("%1 has exited with code %2.")
                                       .arg(who)
                                       .arg(code.toInt(nullptr, 8)));
        corePlugin_->currentFrame.reset();
        corePlugin_->currentThread.reset();
        stack_->clear();
        threads_->clear();
        locals_->clear();
    }
}

void DebuggerWindow::takeFocusOfStop(const AsyncRecord& record) {
    // The service tells its listeners of a stop before the window hears of
    // it from the session: the focus must be the stop's by then, also on the
    // first stop of a new run, after the exit of the last one cleared it.
    if (!corePlugin_ || record.getID() != QLatin1String(NQ::Ids::STOPPED_RECORD))
        return;
    const QString thread = record.propertyBag->property("thread-id").toString();
    if (thread.isEmpty())
        return;
    corePlugin_->currentThread =
        QSharedPointer<IHVThread>(new ShellThread(thread), &QObject::deleteLater);
    if (QSharedPointer<IHVFrame> frame = gdbDebugger_->currentFrame())
        corePlugin_->currentFrame = frame;
}

void DebuggerWindow::handleStopped(const QVariantMap& fields) {
    lastStop_ = fields;
    const QString reason = fields.value(QStringLiteral("reason")).toString();
    if (reason.startsWith(QLatin1String("exited"))) {
        handleTargetState();
        return;
    }
    ++stops_;
    const QVariantMap frame = fields.value(QStringLiteral("frame")).toMap();
    const QString thread = fields.value(QStringLiteral("thread-id")).toString();
    corePlugin_->currentFrame = gdbDebugger_->currentFrame();
    if (!corePlugin_->currentFrame && !frame.isEmpty())
        corePlugin_->currentFrame =
            QSharedPointer<IHVFrame>(new GdbFrame(frameInfo(frame, thread)), &QObject::deleteLater);
    corePlugin_->currentThread =
        QSharedPointer<IHVThread>(new ShellThread(thread), &QObject::deleteLater);
    stopFunction_ = frame.value(QStringLiteral("func")).toString();
    const int line = frame.value(QStringLiteral("line")).toInt();
    const QString file = frame.value(QStringLiteral("file")).toString();
    QString where = file.isEmpty() ? frame.value(QStringLiteral("addr")).toString()
                                   : QStringLiteral("%1:%2").arg(file).arg(line);
    QString why = reason;
    const QString signal = fields.value(QStringLiteral("signal-name")).toString();
    if (!signal.isEmpty())
        why += QLatin1Char(' ') + signal;
    setStatus(QStringLiteral("Stopped in %1 at %2, thread %3%4")
                  .arg(stopFunction_, where, thread,
                       why.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(why)));
    showSource(frame.value(QStringLiteral("fullname")).toString(), file, line);
    handleTargetState();
    refreshLists();
    emit stopped();
    evalNextPending();
    // Nothing to show in the view: the picture is of the stop itself.
    if (!options_.screenshot.isEmpty() && !screenshotTaken_ && options_.evals.isEmpty()) {
        screenshotTaken_ = true;
        QTimer::singleShot(1000, this, &DebuggerWindow::takeScreenshot);
    }
}

void DebuggerWindow::listDone() {
    if (pendingLists_ > 0 && --pendingLists_ == 0)
        emit listsRefreshed();
}

void DebuggerWindow::refreshLists() {
    pendingLists_ += 4;
    refreshStack();
    refreshThreads();
    refreshLocals();
    refreshWatches();
}

QString DebuggerWindow::focusThread() const {
    if (auto* f = qobject_cast<GdbFrame*>(corePlugin_->currentFrame.data()))
        return f->getThreadID();
    return session_ ? session_->stoppedThread() : QString();
}

int DebuggerWindow::focusLevel() const {
    if (auto* f = qobject_cast<GdbFrame*>(corePlugin_->currentFrame.data()))
        return f->level();
    return 0;
}

void DebuggerWindow::refreshStack() {
    const QString thread = focusThread();
    const QString command = thread.isEmpty()
                                ? QStringLiteral("-stack-list-frames")
                                : QStringLiteral("-stack-list-frames --thread ") + thread;
    session_->send(command, [this, thread](const MiReply& r) {
        stack_->clear();
        if (!r.isError()) {
            const QVariantList frames = resultsOf(r).value(QStringLiteral("stack")).toList();
            for (const QVariant& entry : frames) {
                const QVariantMap f = entry.toMap().value(QStringLiteral("frame")).toMap();
                auto* item = new QTreeWidgetItem(stack_);
                item->setText(0, f.value(QStringLiteral("level")).toString());
                item->setText(1, f.value(QStringLiteral("func")).toString());
                const QString file = f.value(QStringLiteral("file")).toString();
                item->setText(2, file.isEmpty()
                                     ? f.value(QStringLiteral("addr")).toString()
                                     : QStringLiteral("%1:%2").arg(
                                           file, f.value(QStringLiteral("line")).toString()));
                item->setData(0, FrameRole, f);
                item->setData(0, ThreadRole, thread);
                if (f.value(QStringLiteral("level")).toInt() == focusLevel())
                    stack_->setCurrentItem(item);
            }
        }
        listDone();
    });
}

void DebuggerWindow::refreshThreads() {
    session_->send(QStringLiteral("-thread-info"), [this](const MiReply& r) {
        threads_->clear();
        if (!r.isError()) {
            auto* root = new QTreeWidgetItem(threads_);
            const qint64 pid = session_->pid();
            root->setText(0, pid > 0 ? QStringLiteral("Process %1").arg(pid)
                                     : QStringLiteral("Process"));
            // (The answer may come while the window closes, its service gone.)
            if (const arraylens::gdb::MpiDebugger* mpi = mpiDebugger())
                root->setText(1, QStringLiteral("rank %1").arg(mpi->focusRank()));
            root->setData(0, KindRole, QStringLiteral("process"));
            const QVariantMap results = resultsOf(r);
            const QString current = results.value(QStringLiteral("current-thread-id")).toString();
            for (const QVariant& entry : results.value(QStringLiteral("threads")).toList()) {
                const QVariantMap t = entry.toMap();
                const QVariantMap f = t.value(QStringLiteral("frame")).toMap();
                auto* item = new QTreeWidgetItem(root);
                const QString id = t.value(QStringLiteral("id")).toString();
                item->setText(0, QStringLiteral("%1 %2").arg(
                                     id, t.value(QStringLiteral("target-id")).toString()));
                item->setText(1, QStringLiteral("%1 %2:%3")
                                     .arg(f.value(QStringLiteral("func")).toString(),
                                          f.value(QStringLiteral("file")).toString(),
                                          f.value(QStringLiteral("line")).toString()));
                item->setData(0, KindRole, QStringLiteral("thread"));
                item->setData(0, FrameRole, f);
                item->setData(0, ThreadRole, id);
                if (id == current)
                    threads_->setCurrentItem(item);
            }
            threads_->expandAll();
        }
        listDone();
    });
}

void DebuggerWindow::refreshLocals() {
    const QString thread = focusThread();
    QString command = QStringLiteral("-stack-list-variables");
    if (!thread.isEmpty())
        command += QStringLiteral(" --thread %1 --frame %2").arg(thread).arg(focusLevel());
    command += QStringLiteral(" --simple-values");
    session_->send(command, [this](const MiReply& r) {
        locals_->clear();
        if (!r.isError()) {
            for (const QVariant& entry : resultsOf(r).value(QStringLiteral("variables")).toList()) {
                const QVariantMap v = entry.toMap();
                auto* item = new QTreeWidgetItem(locals_);
                item->setText(0, v.value(QStringLiteral("name")).toString());
                // Arrays and structures have no simple value.
                const QString value = v.contains(QStringLiteral("value"))
                                          ? v.value(QStringLiteral("value")).toString()
                                          : QStringLiteral("{...}");
                item->setText(1, value.left(200));
                item->setText(2, v.value(QStringLiteral("type")).toString());
            }
            locals_->resizeColumnToContents(0);
        }
        listDone();
    });
}

void DebuggerWindow::refreshWatches() {
    const int count = dataView_->topLevelItemCount();
    if (count == 0) {
        listDone();
        return;
    }
    auto remaining = QSharedPointer<int>::create(count);
    const QString thread = focusThread();
    const int level = focusLevel();
    for (int i = 0; i < count; ++i) {
        QPointer<QTreeWidget> view(dataView_);
        QTreeWidgetItem* item = dataView_->topLevelItem(i);
        const QString text = item->text(0);
        QString prefix = QStringLiteral("-data-evaluate-expression");
        if (!thread.isEmpty())
            prefix += QStringLiteral(" --thread %1 --frame %2").arg(thread).arg(level);
        session_->send(prefix + QLatin1Char(' ') + quoted(text), [this, view, text,
                                                                  remaining](const MiReply& r) {
            for (int j = 0; view && j < view->topLevelItemCount(); ++j) {
                QTreeWidgetItem* it = view->topLevelItem(j);
                if (it->text(0) != text)
                    continue;
                it->setText(1,
                            r.isError()
                                ? r.errorMessage()
                                : resultsOf(r).value(QStringLiteral("value")).toString().left(200));
            }
            if (--*remaining == 0)
                listDone();
        });
        session_->send(
            QStringLiteral("-interpreter-exec console ") + quoted(QStringLiteral("whatis ") + text),
            [view, text](const MiReply& r) {
                QString type = r.console().trimmed();
                if (type.startsWith(QLatin1String("type = ")))
                    type = type.mid(7);
                for (int j = 0; view && j < view->topLevelItemCount(); ++j)
                    if (view->topLevelItem(j)->text(0) == text)
                        view->topLevelItem(j)->setText(2, r.isError() ? QString() : type);
            });
    }
}

void DebuggerWindow::watch(const QString& expression) {
    for (int i = 0; i < dataView_->topLevelItemCount(); ++i)
        if (dataView_->topLevelItem(i)->text(0) == expression)
            return;
    auto* item = new QTreeWidgetItem(dataView_);
    item->setText(0, expression);
    if (session_ && session_->targetState() == GdbSession::TargetState::Stopped) {
        pendingLists_ += 1;
        refreshWatches();
    }
}

void DebuggerWindow::showSource(const QString& fullname, const QString& file, int line) {
    const QString path = fullname.isEmpty() ? file : fullname;
    if (path != sourceFile_) {
        sourceFile_ = path;
        QFile f(path);
        if (!path.isEmpty() && f.open(QIODevice::ReadOnly)) {
            source_->setPlainText(QString::fromUtf8(f.readAll()));
            sourceTitle_->setText(path);
        } else {
            source_->setPlainText(path.isEmpty()
                                      ? QStringLiteral("No source for this place.")
                                      : QStringLiteral("Source not available: %1").arg(path));
            sourceTitle_->setText(file.isEmpty() ? QStringLiteral("No source") : file);
        }
    }
    QList<QTextEdit::ExtraSelection> marks;
    const QTextBlock block = source_->document()->findBlockByNumber(line - 1);
    if (line > 0 && block.isValid()) {
        QTextEdit::ExtraSelection mark;
        mark.format.setBackground(QColor(242, 140, 40, 90));
        mark.format.setProperty(QTextFormat::FullWidthSelection, true);
        mark.cursor = QTextCursor(block);
        marks << mark;
        QTextCursor cursor(block);
        source_->setTextCursor(cursor);
        source_->centerCursor();
    }
    source_->setExtraSelections(marks);
    source_->setProperty("currentLine", line);
}

void DebuggerWindow::selectFrame(QTreeWidgetItem* item) {
    if (!item)
        return;
    const QVariantMap f = item->data(0, FrameRole).toMap();
    const QString thread = item->data(0, ThreadRole).toString();
    const arraylens::gdb::FrameInfo info = frameInfo(f, thread);
    auto frame = QSharedPointer<IHVFrame>(new GdbFrame(info), &QObject::deleteLater);
    corePlugin_->currentFrame = frame;
    showSource(info.fullname, info.file, info.line);
    setStatus(QStringLiteral("Frame %1: %2 at %3:%4, thread %5")
                  .arg(info.level)
                  .arg(info.function, info.file)
                  .arg(info.line)
                  .arg(thread));
    pendingLists_ += 2;
    refreshLocals();
    refreshWatches();
    NQ::QSharedObjectSelection selection({frame});
    core_->selections.select(QString::fromLatin1(NQ::Ids::SELECTION_FRAME), nullptr, &selection);
}

void DebuggerWindow::selectThread(QTreeWidgetItem* item) {
    if (!item)
        return;
    const QString kind = item->data(0, KindRole).toString();
    if (kind == QLatin1String("process")) {
        if (!process_)
            process_ = QSharedPointer<ShellProcess>(new ShellProcess(session_->pid()),
                                                    &QObject::deleteLater);
        NQ::QSharedObjectSelection selection({process_});
        core_->selections.select(QString::fromLatin1(NQ::Ids::SELECTION_PROCESS), nullptr,
                                 &selection);
        return;
    }
    const QString thread = item->data(0, ThreadRole).toString();
    corePlugin_->currentThread =
        QSharedPointer<IHVThread>(new ShellThread(thread), &QObject::deleteLater);
    QVariantMap f = item->data(0, FrameRole).toMap();
    f.insert(QStringLiteral("level"), 0);
    const arraylens::gdb::FrameInfo info = frameInfo(f, thread);
    auto frame = QSharedPointer<IHVFrame>(new GdbFrame(info), &QObject::deleteLater);
    corePlugin_->currentFrame = frame;
    showSource(info.fullname, info.file, info.line);
    pendingLists_ += 3;
    refreshStack();
    refreshLocals();
    refreshWatches();
    NQ::QSharedObjectSelection selection({frame});
    core_->selections.select(QString::fromLatin1(NQ::Ids::SELECTION_FRAME), nullptr, &selection);
}

// ---- popups -------------------------------------------------------------------

void DebuggerWindow::buildPopup(const QString& viewId, const QString& expression,
                                std::function<void(QMenu*)> ready) {
    if (popup_)
        popup_->deleteLater();
    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("popup:") + viewId);
    popup_ = menu;
    const bool dataView = viewId == QLatin1String(kDataViewId);
    // The host's own entries first; contributed entries go after the one
    // their placement names.
    auto* dive =
        menu->addAction(dataView ? QStringLiteral("Dive") : QStringLiteral("Dive in New Window"));
    dive->setObjectName(QString::fromLatin1(dataView ? kDataViewDive : kLocalsDive));
    connect(dive, &QAction::triggered, this, [this, expression] { watch(expression); });
    if (dataView) {
        auto* remove = menu->addAction(QStringLiteral("Remove"));
        remove->setObjectName(QStringLiteral("com.northquay.dataview.popup.remove"));
        connect(remove, &QAction::triggered, this, [this, expression] {
            for (int i = 0; i < dataView_->topLevelItemCount(); ++i)
                if (dataView_->topLevelItem(i)->text(0) == expression)
                    delete dataView_->takeTopLevelItem(i);
        });
    } else {
        auto* add = menu->addAction(QStringLiteral("Add to Data View"));
        add->setObjectName(QStringLiteral("com.northquay.localvariable.popup.watch"));
        connect(add, &QAction::triggered, this, [this, expression] { watch(expression); });
    }

    // The selection of the popup is the variable, evaluated in the focus
    // frame; the menu is filled once the evaluation is done.
    IHVExpression* e = debugger_->createExpression(expression);
    e->setParent(menu);
    auto* selection = new NQ::QObjectSelection({e});
    connect(menu, &QObject::destroyed, [selection] { delete selection; });
    auto* watcher = new QFutureWatcher<IHVExpression*>(menu);
    QPointer<QMenu> guard(menu);
    connect(watcher, &QFutureWatcherBase::finished, this,
            [this, guard, viewId, selection, ready, e] {
                if (!guard)
                    return;
                core_->commands.populatePopup(guard, QStringLiteral("popup:") + viewId, selection);
                // An export writes one process's array.
                if (viewId == QLatin1String(kDataViewId) && !job_)
                    addExportActions(guard, e, gdbDebugger_.data(), this,
                                     [this](const QString& words) { setStatus(words); });
                ready(guard);
            });
    watcher->setFuture(e->evaluate(corePlugin_->getCurrentFrame()));
}

void DebuggerWindow::showPopupAt(QTreeWidgetItem* item, const QString& viewId,
                                 const QPoint& globalPos, QWidget* from) {
    if (!item)
        return;
    QPointer<QWidget> guard(from);
    buildPopup(viewId, item->text(0), [guard, globalPos](QMenu* menu) {
        if (guard)
            menu->popup(globalPos);
    });
}

void DebuggerWindow::consoleCommand(const QString& text) {
    appendConsole(QStringLiteral("(gdb) ") + text + QLatin1Char('\n'));
    session_->send(QStringLiteral("-interpreter-exec console ") + quoted(text),
                   [this](const MiReply& r) {
                       if (!r.console().isEmpty())
                           appendConsole(r.console());
                       if (r.isError())
                           appendConsole(r.errorMessage() + QLatin1Char('\n'));
                       // The command may have moved the focus (frame, up, ...).
                       if (session_->targetState() == GdbSession::TargetState::Stopped)
                           refreshLists();
                   });
}

// ---- the plug-in's displays -------------------------------------------------

bool DebuggerWindow::typeIntoArrayLens(const QString& text) {
    NQ::IView* view = core_->views.view(QString::fromLatin1(kArrayLensViewId));
    if (!view)
        return false;
    auto* combo = view->findChild<QComboBox*>(QStringLiteral("ArrayLensComboBox"));
    if (!combo) {
        QToolBar* bar = core_->views.toolBarOf(QString::fromLatin1(kArrayLensViewId));
        combo = bar ? bar->findChild<QComboBox*>(QStringLiteral("ArrayLensComboBox")) : nullptr;
    }
    if (!combo || !combo->lineEdit())
        return false;
    core_->views.showView(QString::fromLatin1(kArrayLensViewId), false);
    QLineEdit* edit = combo->lineEdit();
    edit->setFocus();
    edit->setText(text);
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
    QKeyEvent release(QEvent::KeyRelease, Qt::Key_Return, Qt::NoModifier);
    QApplication::sendEvent(edit, &press);
    QApplication::sendEvent(edit, &release);
    return true;
}

void DebuggerWindow::evalNextPending() {
    if (evalInFlight_ || pendingEvals_.isEmpty())
        return;
    const QString next = pendingEvals_.takeFirst();
    evalInFlight_ = typeIntoArrayLens(next);
    if (!evalInFlight_)
        appendConsole(
            QStringLiteral("Cannot give '%1' to Array Lens: its view is missing.\n").arg(next));
}

void DebuggerWindow::handleDisplayAnswered(const QString& requestId,
                                           const QSharedPointer<QObject>& bag) {
    // Array information alone is not a display; the display's own request
    // follows it.
    if (requestId == QLatin1String("ArrayInfoRequest"))
        return;
    const QString result = bag ? bag->property("result").toString() : QString();
    emit displayAnswered(requestId);
    if (evalInFlight_) {
        evalInFlight_ = false;
        if (!pendingEvals_.isEmpty()) {
            QTimer::singleShot(0, this, &DebuggerWindow::evalNextPending);
            return;
        }
    }
    if (!options_.screenshot.isEmpty() && !screenshotTaken_ && pendingEvals_.isEmpty()) {
        screenshotTaken_ = true;
        // Let the display lay itself out and paint once.
        QTimer::singleShot(400, this, &DebuggerWindow::takeScreenshot);
    }
    Q_UNUSED(result)
}

void DebuggerWindow::takeScreenshot() {
    const QPixmap shot = grab();
    const bool ok = shot.save(options_.screenshot, "PNG");
    emit screenshotSaved(options_.screenshot, ok);
}

} // namespace shell
