#pragma once
// A recording stand-in for every host service, for the plug-in's tests. Each
// service appends what was done to it to one shared call log, so a test can
// check both what happened and in which order.

#include "host/hostids.h"
#include "host/hvdebugger.h"
#include "host/nqcore.h"

#include <QAction>
#include <QFutureInterface>
#include <QHash>
#include <QList>
#include <QMap>
#include <QPointer>
#include <QSet>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <memory>

namespace fake {

class CallLog {
public:
    void add(const QString& entry) { entries.append(entry); }
    QStringList entries;
};

// ---- expressions and frames ---------------------------------------------------

class Frame : public IHVFrame {
    Q_OBJECT
public:
    QString threadId = QStringLiteral("1");
    QString address = QStringLiteral("0x401000");
    QString function = QStringLiteral("main");
    QString fileName = QStringLiteral("main.c");
    int line = 10;
    quint64 fp = 0x7ffe0000;

    QString getThreadID() const override { return threadId; }
    QString getAddress() const override { return address; }
    QString getFunction() const override { return function; }
    QString getFileName() const override { return fileName; }
    int getLine() const override { return line; }
    quint64 getFP() const override { return fp; }
};

class Thread : public IHVThread {
    Q_OBJECT
};

class Process : public IHVProcess {
    Q_OBJECT
};

class Debugger;

// Every field of an expression, settable by a test. evaluate() asks the
// debugger's evaluator (if any) to fill the fields, then finishes its future
// from the event loop, as the real service does.
class Expression : public IHVExpression {
    Q_OBJECT
public:
    explicit Expression(const QString& text = QString(), Debugger* owner = nullptr);

    QString text;
    QString errorMessage;
    QString type;
    QString actualType;
    QString scopedExpression;
    QString scopePath = QStringLiteral("main");
    QString scopeId = QStringLiteral("main");
    QStringList operationArgs;
    QStringList operationQualifiedArgs;
    QVariantList operationKinds;
    bool fortran = false;
    bool cLanguage = true;
    bool array = true;
    bool resolved = true;
    bool error = false;
    unsigned int recursionDepth = 0;
    QString blockLine;
    QString alternate;
    QString focus = QStringLiteral("1");
    int frameLevel = 0;
    QString language = QStringLiteral("c");
    QSharedPointer<IHVFrame> frame;
    QList<QPair<QString, bool>> setTypeCalls;
    int evaluateCount = 0;
    QPointer<Debugger> owner;

    void copyFrom(const Expression& other);

    QString getExpression() const override { return text; }
    QString getErrorMessage() const override { return errorMessage; }
    QString getType() const override { return type; }
    void setType(const QString& t, bool reinterpret) override;
    QFuture<IHVExpression*> evaluate(QSharedPointer<IHVFrame> frame) override;
    QString getScopedExpression() const override { return scopedExpression; }
    bool isResolved() const override { return resolved; }
    void setResolved(bool r) override { resolved = r; }
    QSharedPointer<IHVFrame> getFrame() const override { return frame; }
    QString getScopePath() const override { return scopePath; }
    QString getScopeID() const override { return scopeId; }
    QStringList getOperationArgs() const override { return operationArgs; }
    QStringList getOperationQualifiedArgs() const override { return operationQualifiedArgs; }
    QVariantList getOperationKinds() const override { return operationKinds; }
    bool isFortranExpression() const override { return fortran; }
    bool isCLanguageExpression() const override { return cLanguage; }
    bool isArray() const override { return array; }
    QString getActualType() const override { return actualType; }
    void setActualType(const QString& t) override { actualType = t; }
    unsigned int getFrameRecursionDepth() const override { return recursionDepth; }
    QString getBlockLine() const override { return blockLine; }
    bool hasAlternateExpression() const override { return !alternate.isEmpty(); }
    QString getAlternateExpression() const override { return alternate; }
    QString getFocus() const override { return focus; }
    void setFocus(const QString& f) override { focus = f; }
    int getFrameLevel() const override { return frameLevel; }
    QString getLanguage() const override { return language; }
    bool hasError() const override { return error; }
};

// ---- the debugger -------------------------------------------------------------

// Answers requests from a table that the test scripts. An answer is a map of
// properties put into a fresh bag; the future finishes from the event loop.
// A request with no scripted answer, or one scripted as held, stays open
// until the test completes it with answerHeld().
class Debugger : public IHVDebugger {
    Q_OBJECT
public:
    using Responder = std::function<QVariantMap(const QObject& request)>;
    using Evaluator = std::function<void(Expression& expression, IHVFrame* frame)>;

    struct Sent {
        QSharedPointer<QObject> bag; // the request's own bag, as sent
        QVariantMap properties;      // a snapshot of its properties
        QString id;
    };

    // Scripts the answer to every request with this "id".
    void respond(const QString& requestId, Responder responder);
    void respond(const QString& requestId, const QVariantMap& answer);
    // Requests with this id stay open until answerHeld().
    void hold(const QString& requestId, bool held = true);
    int heldCount() const { return held_.size(); }
    // Completes the oldest (or given) open request with an answer.
    void answerHeld(const QVariantMap& answer, int index = 0);
    void answerHeldWithResponder(int index = 0);

    void setEvaluator(Evaluator evaluator) { evaluator_ = std::move(evaluator); }
    const Evaluator& evaluator() const { return evaluator_; }
    void setCloneReturnsNull(bool on) { cloneReturnsNull_ = on; }

    QList<Sent> sent;
    QList<Expression*> created;
    QList<Expression*> clones;

    QFuture<QSharedPointer<QObject>> sendRequest(HVDWPRequest request) override;
    IHVExpression* createExpression(const QString& text) override;
    IHVExpression* cloneExpression(IHVExpression* expression) override;

    // Sends an asynchronous record to the listeners.
    void emitEvent(const AsyncRecord& record) { emit debuggerEvent(record); }

private:
    struct Pending {
        QFutureInterface<QSharedPointer<QObject>> promise;
        Sent sent;
    };
    void finishLater(QFutureInterface<QSharedPointer<QObject>> promise, const QVariantMap& answer);

    QHash<QString, Responder> responders_;
    QSet<QString> heldIds_;
    QList<Pending> held_;
    Evaluator evaluator_;
    bool cloneReturnsNull_ = false;
};

// ---- services -----------------------------------------------------------------

class ContributionItem : public NQ::IContributionItem {
public:
    enum Kind { Separator, Command, Action, Menu };
    Kind kind = Separator;
    QString id;
    QString label;
    QString commandId;
    QString qualifier;
    QString description;
    QAction* action = nullptr;
    bool flagA = false;
    bool flagB = false;
    QString getId() const override { return id; }
};

class ContributionManager : public NQ::IContributionManager {
public:
    QString location;
    QString text;
    QList<NQ::IContributionItem*> items;
    ContributionItem self;
    void add(NQ::IContributionItem* item) override { items.append(item); }
    void setText(const QString& t) override { text = t; }
    NQ::IContributionItem* getContributionItem() override { return &self; }
};

class Command : public NQ::ICommand {
public:
    explicit Command(QString id) : id_(std::move(id)) {}
    QString id() const override { return id_; }
    void execute() override;
    int executed = 0;
    QList<QVariantMap> parametersAtExecution;
    QVariantMap parameters;

private:
    QString id_;
};

class CommandManager : public NQ::ICommandManager {
public:
    explicit CommandManager(CallLog& log) : log_(log) {}
    ~CommandManager() override;

    QStringList registered;
    QMap<QString, NQ::ICommandHandler*> setHandlers;
    QMap<QString, QList<NQ::ICommandHandler*>> addedHandlers;
    QList<NQ::IContributionFactory*> factories;
    QList<ContributionItem*> items;
    QMap<QString, ContributionManager*> menus;

    // Runs every handler of a command, set or added, with the event given.
    void trigger(const QString& id, QSharedPointer<NQ::ICmdExecutionEvent> event);
    NQ::IContributionFactory* factoryAt(const QString& location) const;
    Command* command(const QString& id);

    void registerCommand(const QString& id) override;
    void setCommandHandler(const QString& id, NQ::ICommandHandler* handler) override;
    void addCommandHandler(const QString& id, NQ::ICommandHandler* handler) override;
    void setCommandParameter(const QString& id, const QString& name,
                             const QVariant& value) override;
    void addContributionFactory(NQ::IContributionFactory* factory) override;
    NQ::IContributionManager* createMenuContribution(const QString& label,
                                                     const QString& location) override;
    NQ::IContributionItem* createCommandContribution(const QString& label, const QString& commandId,
                                                     const QString& itemId,
                                                     const QString& qualifier) override;
    NQ::IContributionItem* createActionContribution(QAction* action, const QString& commandId,
                                                    const QString& description, bool a,
                                                    bool b) override;
    NQ::IContributionItem* createSeparator(const QString& id) override;
    NQ::IContributionManager* getContributionManager(const QString& location) override;
    NQ::ICommand* getCommand(const QString& id) override;

private:
    CallLog& log_;
    QMap<QString, Command*> commands_;
};

class ContextManager : public NQ::IContextManager {
    Q_OBJECT
public:
    explicit ContextManager(CallLog& log) : log_(log) {}
    QStringList registeredOrder;
    QSet<QString> active;
    int changes = 0;

    void registerContext(const QString& id) override;
    bool isContextRegistered(const QString& id) const override;
    void activateContext(const QString& id) override;
    void deactivateContext(const QString& id) override;
    bool hasContext(const QString& id) const override;

private:
    CallLog& log_;
};

class ViewManager : public NQ::IViewManager {
public:
    explicit ViewManager(CallLog& log) : log_(log) {}
    QList<NQ::IView*> views;
    QList<QPair<QString, bool>> shown;
    void addView(NQ::IView* view) override;
    void showView(const QString& name, bool raise) override;

private:
    CallLog& log_;
};

class PluginManager : public NQ::IPluginManager {
public:
    explicit PluginManager(CallLog& log) : log_(log) {}
    QList<NQ::IPlugin*> registered;
    QMap<QString, NQ::IPlugin*> byExtension;
    NQ::IPlugin* getPlugin(const QString& id) override { return byExtension.value(id); }
    void registerPlugin(NQ::IPlugin* plugin) override;

private:
    CallLog& log_;
};

class SelectionManager : public NQ::ISelectionManager {
public:
    QList<QPair<NQ::ISelectionListener*, QString>> listeners;
    int removals = 0;
    void addSelectionListener(NQ::ISelectionListener* listener, const QString& type) override;
    void removeSelectionListener(NQ::ISelectionListener* listener) override;
    // Delivers a selection to every listener of that type.
    void select(const QString& type, NQ::IPart* part, NQ::ISelection* selection);
};

class HelpManager : public NQ::IHelpManager {
public:
    QList<QPair<QPointer<QWidget>, NQ::HelpReference>> references;
    void setHelpReference(QWidget* widget, const NQ::HelpReference& reference) override;
    // The newest reference set for a widget.
    NQ::HelpReference referenceOf(QWidget* widget) const;
};

class ThemeManager : public NQ::IThemeManager {
public:
    QString name = QStringLiteral("light");
    QString getThemeName() const override { return name; }
};

// The host's core plug-in: offers the debugger and focus extensions.
class CorePlugin : public NQ::IPlugin, public IHVCore, public IHalvane {
    Q_OBJECT
    Q_INTERFACES(IHVCore IHalvane)
public:
    CorePlugin();
    bool init(QString*, const QStringList&) override { return true; }
    bool configure() override { return true; }
    void shuttingDown() override {}

    QWeakPointer<IHVDebugger> getDebugger() override { return debugger; }
    bool isRemoteClient() const override { return remoteClient; }
    QSharedPointer<IHVThread> getCurrentThread() override { return currentThread; }
    QSharedPointer<IHVFrame> getCurrentFrame() override { return currentFrame; }

    QSharedPointer<Debugger> debugger;
    bool remoteClient = false;
    QSharedPointer<IHVThread> currentThread;
    QSharedPointer<IHVFrame> currentFrame;
};

class CmdContext : public NQ::ICommandContext {
public:
    NQ::ISelection* selection = nullptr;
    NQ::ISelection* getSelection() const override { return selection; }
};

class CmdEvent : public NQ::ICmdExecutionEvent {
public:
    CmdContext context;
    QAction* action = nullptr;
    NQ::ICommandContext* getCommandContext() const override {
        return const_cast<CmdContext*>(&context);
    }
    QAction* getAction() const override { return action; }
};

// The whole host. Installs itself as NQ::ICore::instance() for its lifetime.
// With withHalvane false the focus extension is not offered.
class Core : public NQ::ICore {
public:
    explicit Core(bool withHalvane = true);
    ~Core() override;

    CallLog log;
    ViewManager views{log};
    PluginManager plugins{log};
    SelectionManager selections;
    CommandManager commands{log};
    ContextManager contexts{log};
    ThemeManager theme;
    HelpManager help;
    QWidget mainWindow;
    CorePlugin corePlugin;

    Debugger& debugger() { return *corePlugin.debugger; }
    // A frame that becomes the focus frame of the fake debugger.
    QSharedPointer<Frame> makeCurrentFrame();

    NQ::IViewManager* viewManager() override { return &views; }
    NQ::IPluginManager* pluginManager() override { return &plugins; }
    NQ::ISelectionManager* selectionManager() override { return &selections; }
    NQ::ICommandManager* commandManager() override { return &commands; }
    NQ::IContextManager* contextManager() override { return &contexts; }
    NQ::IThemeManager* themeManager() override { return &theme; }
    NQ::IHelpManager* helpManager() override { return &help; }
    QWidget* getMainWindow() override { return &mainWindow; }

private:
    NQ::ICore* previous_;
};

// Runs the event loop until `done` holds or the time runs out.
bool waitFor(const std::function<bool()>& done, int timeoutMs = 5000);

} // namespace fake
