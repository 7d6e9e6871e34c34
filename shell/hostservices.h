#pragma once
// The stand-alone host's services: real widgets behind every interface the
// plug-in uses. Commands become QActions that their handlers' contexts
// enable; contribution factories fill real toolbars and popup menus; views
// become tabs.

#include "host/hostids.h"
#include "host/hvdebugger.h"
#include "host/nqcore.h"

#include <QAction>
#include <QHash>
#include <QMap>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QTabWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVariantMap>
#include <functional>
#include <memory>

namespace shell {

class ContextManager : public NQ::IContextManager {
    Q_OBJECT
public:
    void registerContext(const QString& id) override;
    bool isContextRegistered(const QString& id) const override;
    void activateContext(const QString& id) override;
    void deactivateContext(const QString& id) override;
    bool hasContext(const QString& id) const override;

private:
    QSet<QString> registered_;
    QSet<QString> active_;
};

class CommandEvent : public NQ::ICmdExecutionEvent, public NQ::ICommandContext {
public:
    CommandEvent(NQ::ISelection* selection, QAction* action)
        : selection_(selection), action_(action) {}
    NQ::ICommandContext* getCommandContext() const override {
        return const_cast<CommandEvent*>(this);
    }
    QAction* getAction() const override { return action_; }
    NQ::ISelection* getSelection() const override { return selection_; }

private:
    NQ::ISelection* selection_;
    QAction* action_;
};

// A command: its handlers, its parameters, and (for the host's own commands)
// what the host itself does when it runs.
class Command : public NQ::ICommand {
public:
    explicit Command(QString id) : id_(std::move(id)) {}
    QString id() const override { return id_; }
    void execute() override { run(nullptr, nullptr); }
    void run(NQ::ISelection* selection, QAction* action);
    // Available when the host runs it itself, or when a handler's contexts
    // are all active (a handler that claims none is always available).
    bool isAvailable(const ContextManager& contexts) const;
    bool hasHandlers() const { return handler || !added.isEmpty(); }

    NQ::ICommandHandler* handler = nullptr;
    QList<NQ::ICommandHandler*> added;
    QVariantMap parameters;
    std::function<void(const QVariantMap&)> hostAction;

private:
    QString id_;
};

class ContributionItem : public NQ::IContributionItem {
public:
    enum Kind { Separator, Action, Menu };
    QString getId() const override { return id; }
    Kind kind = Separator;
    QString id;
    QString commandId;
    QString description;
    QPointer<QAction> action;
    QPointer<QToolButton> button; // a drop-down's own widget
};

class CommandManager;

// A drop-down button of a toolbar, contributed at a location.
class MenuContribution : public NQ::IContributionManager {
public:
    MenuContribution(const QString& label, const QString& location);
    ~MenuContribution() override;
    void add(NQ::IContributionItem* item) override;
    void setText(const QString& text) override;
    NQ::IContributionItem* getContributionItem() override { return &self_; }
    QToolButton* button() const { return button_; }
    QString text() const;

private:
    QPointer<QToolButton> button_;
    QMenu* menu_;
    ContributionItem self_;
};

class CommandManager : public QObject, public NQ::ICommandManager {
    Q_OBJECT
public:
    explicit CommandManager(ContextManager& contexts);
    ~CommandManager() override;

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
                                                    const QString& description, bool visible,
                                                    bool dynamic) override;
    NQ::IContributionItem* createSeparator(const QString& id) override;
    NQ::IContributionManager* getContributionManager(const QString& location) override;
    NQ::ICommand* getCommand(const QString& id) override { return command(id); }

    // The host's side.
    Command* command(const QString& id);
    bool isRegistered(const QString& id) const { return registered_.contains(id); }
    // A command the host runs itself, e.g. the message overlay.
    void defineHostCommand(const QString& id, std::function<void(const QVariantMap&)> action);
    // Runs a command as its action would.
    void runCommand(const QString& id, NQ::ISelection* selection = nullptr,
                    QAction* action = nullptr);
    bool isAvailable(const QString& id) const;
    QList<NQ::IContributionFactory*> factoriesAt(const QString& location) const;
    // Fills a toolbar from the factories of a location; each factory is
    // asked once per toolbar.
    void buildToolBar(QToolBar* toolBar, const QString& location);
    // Adds the contributed entries of a popup to a menu the host made, each
    // after the host's own entry its placement names (matched by the
    // action's objectName), with `selection` as the command's selection.
    void populatePopup(QMenu* menu, const QString& location, NQ::ISelection* selection);

signals:
    void commandsChanged();

private:
    void bindAction(QAction* action, const QString& commandId);
    void updateAvailability();

    ContextManager& contexts_;
    QSet<QString> registered_;
    QHash<QString, Command*> commands_;
    QList<NQ::IContributionFactory*> factories_;
    QHash<QString, MenuContribution*> menus_;
    QList<ContributionItem*> items_;
    QList<QPair<QPointer<QAction>, QString>> boundActions_;
    NQ::ISelection* popupSelection_ = nullptr;
};

class SelectionManager : public NQ::ISelectionManager {
public:
    void addSelectionListener(NQ::ISelectionListener* listener, const QString& type) override;
    void removeSelectionListener(NQ::ISelectionListener* listener) override;
    // Tells every listener of the type; the host calls it on a click.
    void select(const QString& type, NQ::IPart* part, NQ::ISelection* selection);
    int listenerCount(const QString& type) const;

private:
    QList<QPair<NQ::ISelectionListener*, QString>> listeners_;
};

// Views as tabs of one tab widget, each with the toolbar contributed at
// "toolbar:<view name>" above its widget.
class ViewManager : public QObject, public NQ::IViewManager {
    Q_OBJECT
public:
    ViewManager(QTabWidget* tabs, CommandManager& commands);
    void addView(NQ::IView* view) override;
    void showView(const QString& name, bool raise) override;
    // A tab of the host's own, findable by name by the views placed beside it.
    void addHostTab(const QString& name, const QString& title, QWidget* widget);
    NQ::IView* view(const QString& name) const;
    QToolBar* toolBarOf(const QString& name) const { return toolBars_.value(name); }
    QString currentViewName() const;
    QList<NQ::IView*> views() const { return views_; }

private:
    int tabIndexOf(const QString& name) const;
    bool placeSplit(QWidget* page, const QString& title, const QString& split,
                    const QString& relativeTo);
    QPointer<QTabWidget> tabs_;
    QList<QPointer<QTabWidget>> splitTabs_;
    CommandManager& commands_;
    QList<NQ::IView*> views_;
    QHash<QString, QToolBar*> toolBars_;
};

class HelpManager : public NQ::IHelpManager {
public:
    void setHelpReference(QWidget* widget, const NQ::HelpReference& reference) override;
    // The reference of the widget or of its nearest ancestor that has one.
    NQ::HelpReference referenceFor(QWidget* widget) const;

private:
    QList<QPair<QPointer<QWidget>, NQ::HelpReference>> references_;
};

class ThemeManager : public QObject, public NQ::IThemeManager {
    Q_OBJECT
public:
    QString getThemeName() const override { return name_; }
    // "light" or "dark": the palette, and the style sheets of the host and
    // of the plug-in's theme tree.
    void setTheme(const QString& name);

signals:
    void themeChanged(const QString& name);

private:
    QString name_ = QStringLiteral("light");
};

class PluginManager : public NQ::IPluginManager {
public:
    NQ::IPlugin* getPlugin(const QString& id) override;
    void registerPlugin(NQ::IPlugin* plugin) override;
    // Loads a plug-in's shared object, then init() and configure().
    NQ::IPlugin* load(const QString& path, const QStringList& arguments, QString* error);
    QList<NQ::IPlugin*> plugins() const { return plugins_; }

private:
    QList<NQ::IPlugin*> plugins_;
};

// The focus of the debugger as the host sees it, offered to plug-ins as the
// "com.northquay.ihvcore" and "com.northquay.ihalvane" extensions.
class CorePlugin : public NQ::IPlugin, public IHVCore, public IHalvane {
    Q_OBJECT
    Q_INTERFACES(IHVCore IHalvane)
public:
    explicit CorePlugin(QSharedPointer<IHVDebugger> debugger);
    bool init(QString*, const QStringList&) override { return true; }
    bool configure() override { return true; }
    void shuttingDown() override {}

    QWeakPointer<IHVDebugger> getDebugger() override { return debugger_; }
    bool isRemoteClient() const override { return false; }
    QSharedPointer<IHVThread> getCurrentThread() override { return currentThread; }
    QSharedPointer<IHVFrame> getCurrentFrame() override { return currentFrame; }

    QSharedPointer<IHVThread> currentThread;
    QSharedPointer<IHVFrame> currentFrame;

private:
    QSharedPointer<IHVDebugger> debugger_;
};

// Every service, installed as NQ::ICore::instance() for its lifetime.
class HostCore : public NQ::ICore {
public:
    HostCore(QWidget* mainWindow, QTabWidget* tabs);
    ~HostCore() override;

    NQ::IViewManager* viewManager() override { return &views; }
    NQ::IPluginManager* pluginManager() override { return &plugins; }
    NQ::ISelectionManager* selectionManager() override { return &selections; }
    NQ::ICommandManager* commandManager() override { return &commands; }
    NQ::IContextManager* contextManager() override { return &contexts; }
    NQ::IThemeManager* themeManager() override { return &theme; }
    NQ::IHelpManager* helpManager() override { return &help; }
    QWidget* getMainWindow() override { return mainWindow_; }

    ContextManager contexts;
    CommandManager commands{contexts};
    SelectionManager selections;
    ViewManager views;
    HelpManager help;
    ThemeManager theme;
    PluginManager plugins;

private:
    QPointer<QWidget> mainWindow_;
    NQ::ICore* previous_;
};

} // namespace shell
