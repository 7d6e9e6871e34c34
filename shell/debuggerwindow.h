#pragma once
// The application's main window: a small debugger around the plug-ins.
//
// One gdb session drives everything: run controls, a source pane at the
// current line, stack and thread lists (their clicks are frame and process
// selections), locals, a data view of watched expressions, a gdb console and
// a status line. On an MPI job (a gdb per rank) a list of the ranks beside
// the threads chooses the process set Array Lens shows; the other lists and
// the console follow the focus rank (the first of the set), and the run
// controls act on every rank. The host services of hostservices.h stand behind the
// plug-ins; the window owns them and the debugger service they hand out.

#include "shell/hostservices.h"
#include "shell/observeddebugger.h"
#include "shell/options.h"

#include <QMainWindow>
#include <QPointer>
#include <QSharedPointer>
#include <QVariantMap>
#include <QVector>

#include <functional>
#include <memory>

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QPlainTextEdit;
class QSplitter;
class QTabWidget;
class QTreeWidget;
class QTreeWidgetItem;

namespace arraylens::gdb {
class GdbSession;
class GdbDebugger;
class MpiDebugger;
class MpiJob;
} // namespace arraylens::gdb
namespace arraylens::mi {
struct Record;
}

namespace shell {

// A process of the debuggee as a selectable object.
class ShellProcess : public IHVProcess {
    Q_OBJECT
public:
    explicit ShellProcess(qint64 pid) : pid_(pid) {}
    qint64 pid() const { return pid_; }

private:
    qint64 pid_;
};

class ShellThread : public IHVThread {
    Q_OBJECT
public:
    explicit ShellThread(QString id) : id_(std::move(id)) {}
    QString id() const { return id_; }

private:
    QString id_;
};

class TracePanel;

class DebuggerWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit DebuggerWindow(const Options& options, QWidget* parent = nullptr);
    ~DebuggerWindow() override;

    // Loads the plug-in and starts gdb on the target of the options. False
    // with `error` filled when either cannot start; the window then shows why.
    bool start(QString* error);

    HostCore& core() { return *core_; }
    arraylens::gdb::GdbSession* session() const { return session_; }
    ObservedDebugger* debugger() const { return debugger_.data(); }
    CorePlugin* corePlugin() const { return corePlugin_; }
    QTabWidget* viewTabs() const { return viewTabs_; }
    // The Trace panel, beside the stack and threads; null before start().
    TracePanel* tracePanel() const { return trace_; }
    QString statusText() const;
    // Sent when the target stopped and the window has asked for its stack,
    // threads and locals; `stops` counts the stops so far.
    int stopCount() const { return stops_; }
    // True once the stack, thread and locals lists show the latest stop.
    bool listsCurrent() const { return pendingLists_ == 0 && stops_ > 0; }

    // Adds an expression to the data view and shows its value.
    void watch(const QString& expression);
    // Types `text` into the plug-in's expression field and presses Return,
    // as a user would.
    bool typeIntoArrayLens(const QString& text);
    // Runs the host's Update command for the current view.
    void runUpdate();
    // Sends a console command, as typed into the console.
    void consoleCommand(const QString& text);
    // Builds the popup menu of the data view or the locals view for the
    // named expression (evaluated in the focus frame); `ready` gets the menu
    // once it is filled. The menu is owned by the window.
    void buildPopup(const QString& viewId, const QString& expression,
                    std::function<void(QMenu*)> ready);

    // Runs one debugger command of the run controls: "run", "continue",
    // "next", "step", "finish", "interrupt", "kill".
    void runControl(const QString& which);

    // On an MPI job: the job, its debugger service, and the rank list
    // ("all ranks", "rank 0", ...); null otherwise.
    arraylens::gdb::MpiJob* mpiJob() const { return job_.get(); }
    arraylens::gdb::MpiDebugger* mpiDebugger() const;
    QTreeWidget* rankList() const { return rankList_; }
    // Makes these ranks the process selection, as a click in the rank list
    // does; false when they are no set of the job's ranks or the ranks run.
    bool chooseRanks(const QVector<int>& ranks);

signals:
    void stopped();
    void listsRefreshed();
    // A display of the plug-in has had its answer.
    void displayAnswered(const QString& requestId);
    void screenshotSaved(const QString& path, bool ok);

private:
    void buildWidgets();
    void connectSession(arraylens::gdb::GdbSession* session);
    bool startMpi(QString* error);
    void buildRankList();
    void runMpi(const QString& command);
    void focusOnRank(bool select);
    void handleMpiTargetState();
    void closeEvent(QCloseEvent* event) override;
    void buildRunControls();
    void defineHostCommands();
    bool loadPlugin(QString* error);
    void installDebugger(QSharedPointer<IHVDebugger> backend);
    bool startDebugger(QString* error);
    void applyContexts();
    void handleAsyncRecord(const arraylens::mi::Record& record);
    void handleTargetState();
    void handleStopped(const QVariantMap& fields);
    void takeFocusOfStop(const AsyncRecord& record);
    void refreshLists();
    void refreshStack();
    void refreshThreads();
    void refreshLocals();
    void refreshWatches();
    void showSource(const QString& fullname, const QString& file, int line);
    void selectFrame(QTreeWidgetItem* item);
    void selectThread(QTreeWidgetItem* item);
    void showPopupAt(QTreeWidgetItem* item, const QString& viewId, const QPoint& globalPos,
                     QWidget* from);
    void updateUpdateAction();
    void appendConsole(const QString& text);
    void handleDisplayAnswered(const QString& requestId, const QSharedPointer<QObject>& bag);
    void evalNextPending();
    void takeScreenshot();
    void setStatus(const QString& text);
    void listDone();
    QString focusThread() const;
    int focusLevel() const;

    Options options_;
    QTabWidget* viewTabs_ = nullptr;
    QTabWidget* sideTabs_ = nullptr;
    QPlainTextEdit* source_ = nullptr;
    QLabel* sourceTitle_ = nullptr;
    QTreeWidget* stack_ = nullptr;
    QTreeWidget* threads_ = nullptr;
    QTreeWidget* locals_ = nullptr;
    QTreeWidget* dataView_ = nullptr;
    QLineEdit* watchEntry_ = nullptr;
    QPlainTextEdit* console_ = nullptr;
    QLineEdit* consoleEntry_ = nullptr;
    QLabel* status_ = nullptr;
    QAction* updateAction_ = nullptr;
    QHash<QString, QAction*> runActions_;
    QPointer<QMenu> popup_;
    TracePanel* trace_ = nullptr;

    HostCore* core_ = nullptr;
    arraylens::gdb::GdbSession* session_ = nullptr;
    // The service the plug-in's requests go to: over the one session, or
    // over the ranks of an MPI job; gdbDebugger_ is the one session's, or
    // the focus rank's.
    QSharedPointer<IHVDebugger> backend_;
    QPointer<arraylens::gdb::GdbDebugger> gdbDebugger_;
    QVector<QMetaObject::Connection> sessionConnections_;
    std::unique_ptr<arraylens::gdb::MpiJob> job_;
    QTreeWidget* rankList_ = nullptr;
    // The focus rank's stop, taken up once every rank has stopped.
    QVariantMap heldStop_;
    bool closeAfterRun_ = false;
    QSharedPointer<ObservedDebugger> debugger_;
    CorePlugin* corePlugin_ = nullptr;
    NQ::IPlugin* arrayLens_ = nullptr;
    QSharedPointer<ShellProcess> process_;

    QString sourceFile_;
    QString stopFunction_;
    int stops_ = 0;
    int pendingLists_ = 0;
    QStringList pendingEvals_;
    bool evalInFlight_ = false;
    bool screenshotTaken_ = false;
    bool programMissing_ = false;
    QVariantMap lastStop_;
};

} // namespace shell
