#pragma once
// The host framework's services as the plug-in sees them. The host owns every
// service object; a plug-in never deletes one.

#include "host/host_export.h"

#include <QAction>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QWidget>

namespace NQ {

class IPlugin;
class IView;
class IPart;
class ICommandHandler;
class IContributionFactory;
class IContributionItem;
class IContributionManager;

// ---- plug-ins -------------------------------------------------------------

class ARRAYLENS_HOST_EXPORT IPlugin : public QObject {
    Q_OBJECT
public:
    explicit IPlugin(QObject* parent = nullptr);
    ~IPlugin() override;

    void addExtension(const QString& id);
    QStringList extensions() const;

    virtual bool init(QString* errorString, const QStringList& arguments) = 0;
    virtual bool configure() = 0;
    virtual void shuttingDown() = 0;

private:
    QStringList extensions_;
};

class ARRAYLENS_HOST_EXPORT IPluginManager {
public:
    virtual ~IPluginManager();
    // The plug-in that offers the extension `id`, or null.
    virtual IPlugin* getPlugin(const QString& id) = 0;
    virtual void registerPlugin(IPlugin* plugin) = 0;
};

// ---- views ----------------------------------------------------------------

// A part is a widget that the host places and selections come from. Its own
// data is a name and a flag, which start empty and true.
class ARRAYLENS_HOST_EXPORT IPart : public QWidget {
    Q_OBJECT
public:
    explicit IPart(const QString& partName = QString(), QWidget* parent = nullptr);
    ~IPart() override;

    QString partName() const { return partName_; }
    bool partEnabled() const { return partEnabled_; }

private:
    QString partName_;
    bool partEnabled_ = true;
};

class ARRAYLENS_HOST_EXPORT IView : public IPart {
    Q_OBJECT
public:
    explicit IView(const QString& partName = QString(), QWidget* parent = nullptr);
    ~IView() override;

    virtual QString name() const = 0;
    virtual int position() const = 0;
    virtual bool wantsManualUpdate() const = 0;
    virtual void copyToClipboard();
    virtual void pasteFromClipboard();
    virtual QWidget* widget() = 0;
    virtual QWidget* topWidget();
    virtual QWidget* bottomWidget();
    virtual void shown();
    virtual bool visibleAtStartup() const;
    virtual QString split() const;
    virtual QString splitRelativeToView() const;
    virtual QString tabRelativeToView() const = 0;
    virtual void restoreSettings();
    virtual void saveSettings();
    virtual QString toolTipText() const;
    virtual bool isSearchBarVisible() const;
    virtual bool supportsDuplicate() const;
    virtual IView* duplicate(QString name);
    virtual int defaultDrawerPercentOpen() const;
    virtual void reset() = 0;
    virtual void notifyVisibilityChanged(bool visible);
    virtual void searchBarOnTextCommitted(const QString& text);
};

class ARRAYLENS_HOST_EXPORT IViewManager {
public:
    virtual ~IViewManager();
    virtual void addView(IView* view) = 0;
    virtual void showView(const QString& name, bool raise) = 0;
};

// ---- selections -----------------------------------------------------------

class ARRAYLENS_HOST_EXPORT ISelection {
public:
    virtual ~ISelection();
};

class ARRAYLENS_HOST_EXPORT IQSharedObjectSelection : public ISelection {
public:
    virtual QList<QSharedPointer<QObject>> getSelected() const = 0;
};

class ARRAYLENS_HOST_EXPORT IQObjectSelection : public ISelection {
public:
    virtual QList<QObject*> getSelected() const = 0;
};

// Plain holders of a selection, for hosts and tests that make one.
class ARRAYLENS_HOST_EXPORT QSharedObjectSelection : public IQSharedObjectSelection {
public:
    explicit QSharedObjectSelection(QList<QSharedPointer<QObject>> objects = {});
    QList<QSharedPointer<QObject>> getSelected() const override;

private:
    QList<QSharedPointer<QObject>> objects_;
};

class ARRAYLENS_HOST_EXPORT QObjectSelection : public IQObjectSelection {
public:
    explicit QObjectSelection(QList<QObject*> objects = {});
    QList<QObject*> getSelected() const override;

private:
    QList<QObject*> objects_;
};

class ARRAYLENS_HOST_EXPORT ISelectionListener {
public:
    virtual ~ISelectionListener();
    virtual void selectionChanged(IPart* part, ISelection* selection) = 0;
};

class ARRAYLENS_HOST_EXPORT ISelectionManager {
public:
    virtual ~ISelectionManager();
    virtual void addSelectionListener(ISelectionListener* listener, const QString& type) = 0;
    virtual void removeSelectionListener(ISelectionListener* listener) = 0;
};

// ---- commands and contributions ---------------------------------------------

class ARRAYLENS_HOST_EXPORT ICommandContext {
public:
    virtual ~ICommandContext();
    // The selection at the time of the command, or null.
    virtual ISelection* getSelection() const = 0;
};

class ARRAYLENS_HOST_EXPORT ICmdExecutionEvent {
public:
    virtual ~ICmdExecutionEvent();
    virtual ICommandContext* getCommandContext() const = 0;
    // The action that fired; its isChecked() is the check state.
    virtual QAction* getAction() const = 0;
};

class ARRAYLENS_HOST_EXPORT ICommandHandler {
public:
    virtual ~ICommandHandler();
    virtual void execute(QSharedPointer<ICmdExecutionEvent> event) = 0;
    virtual bool hasContext() const;
    virtual QStringList getContext() const;
    virtual bool hasSelection() const;
    virtual QString getSelectionType() const;
    virtual bool hasPartName() const;
    virtual QString getPartName() const;
};

class ARRAYLENS_HOST_EXPORT ICommand {
public:
    virtual ~ICommand();
    virtual QString id() const = 0;
    virtual void execute() = 0;
};

class ARRAYLENS_HOST_EXPORT IContributionItem {
public:
    virtual ~IContributionItem();
    virtual QString getId() const = 0;
};

// A drop-down contributed at a location: it collects items and shows a label.
class ARRAYLENS_HOST_EXPORT IContributionManager {
public:
    virtual ~IContributionManager();
    virtual void add(IContributionItem* item) = 0;
    virtual void setText(const QString& text) = 0;
    // The drop-down itself as an item of the toolbar it stands in.
    virtual IContributionItem* getContributionItem() = 0;
};

class ARRAYLENS_HOST_EXPORT IContributionFactory {
public:
    virtual ~IContributionFactory();
    virtual QList<IContributionItem*> createItems() = 0;
    virtual QString getLocation() const = 0;
    virtual IContributionFactory* duplicate(const QString& location);
};

class ARRAYLENS_HOST_EXPORT ICommandManager {
public:
    virtual ~ICommandManager();
    virtual void registerCommand(const QString& id) = 0;
    virtual void setCommandHandler(const QString& id, ICommandHandler* handler) = 0;
    virtual void addCommandHandler(const QString& id, ICommandHandler* handler) = 0;
    virtual void setCommandParameter(const QString& id, const QString& name,
                                     const QVariant& value) = 0;
    virtual void addContributionFactory(IContributionFactory* factory) = 0;
    virtual IContributionManager* createMenuContribution(const QString& label,
                                                         const QString& location) = 0;
    virtual IContributionItem* createCommandContribution(const QString& label,
                                                         const QString& commandId,
                                                         const QString& itemId,
                                                         const QString& qualifier) = 0;
    virtual IContributionItem* createActionContribution(QAction* action, const QString& commandId,
                                                        const QString& description, bool visible,
                                                        bool dynamic) = 0;
    virtual IContributionItem* createSeparator(const QString& id) = 0;
    virtual IContributionManager* getContributionManager(const QString& location) = 0;
    virtual ICommand* getCommand(const QString& id) = 0;
};

// ---- contexts, help, themes -----------------------------------------------

class ARRAYLENS_HOST_EXPORT IContextManager : public QObject {
    Q_OBJECT
public:
    explicit IContextManager(QObject* parent = nullptr);
    ~IContextManager() override;
    virtual void registerContext(const QString& id) = 0;
    virtual bool isContextRegistered(const QString& id) const = 0;
    virtual void activateContext(const QString& id) = 0;
    virtual void deactivateContext(const QString& id) = 0;
    virtual bool hasContext(const QString& id) const = 0;

signals:
    // Emitted whenever any context changes.
    void contextChanged();
};

// Book and topic of a piece of context help.
using HelpReference = QPair<QString, QString>;

class ARRAYLENS_HOST_EXPORT IHelpManager {
public:
    virtual ~IHelpManager();
    virtual void setHelpReference(QWidget* widget, const HelpReference& reference) = 0;
};

class ARRAYLENS_HOST_EXPORT IThemeManager {
public:
    virtual ~IThemeManager();
    virtual QString getThemeName() const = 0;
};

// ---- the root ---------------------------------------------------------------

class ARRAYLENS_HOST_EXPORT ICore {
public:
    virtual ~ICore();

    // The host's singleton. A host (or a test) installs its implementation
    // before any plug-in is loaded; one copy lives in this shared library so
    // the application and every plug-in it loads see the same object.
    static ICore* instance();
    static void setInstance(ICore* core);

    virtual IViewManager* viewManager() = 0;
    virtual IPluginManager* pluginManager() = 0;
    virtual ISelectionManager* selectionManager() = 0;
    virtual ICommandManager* commandManager() = 0;
    virtual IContextManager* contextManager() = 0;
    virtual IThemeManager* themeManager() = 0;
    virtual IHelpManager* helpManager() = 0;
    virtual QWidget* getMainWindow() = 0;
};

} // namespace NQ
