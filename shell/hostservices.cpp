#include "shell/hostservices.h"

#include <QApplication>
#include <QFile>
#include <QPalette>
#include <QPluginLoader>
#include <QSplitter>
#include <QStyle>
#include <QStyleFactory>
#include <QVBoxLayout>
#include <QWidgetAction>

namespace shell {

namespace {
// A location as the factories give it may carry a placement query.
QString baseLocation(const QString& location) {
    return location.section(QLatin1Char('?'), 0, 0);
}

QString placementAfter(const QString& location) {
    const QString query = location.section(QLatin1Char('?'), 1);
    const QString key = QStringLiteral("after=");
    return query.startsWith(key) ? query.mid(key.size()) : QString();
}
} // namespace

// ---- contexts -----------------------------------------------------------------

void ContextManager::registerContext(const QString& id) {
    if (registered_.contains(id))
        return;
    registered_.insert(id);
    emit contextChanged();
}

bool ContextManager::isContextRegistered(const QString& id) const {
    return registered_.contains(id);
}

void ContextManager::activateContext(const QString& id) {
    registered_.insert(id);
    if (active_.contains(id))
        return;
    active_.insert(id);
    emit contextChanged();
}

void ContextManager::deactivateContext(const QString& id) {
    if (!active_.remove(id))
        return;
    emit contextChanged();
}

bool ContextManager::hasContext(const QString& id) const {
    return active_.contains(id);
}

// ---- commands -----------------------------------------------------------------

void Command::run(NQ::ISelection* selection, QAction* action) {
    if (hostAction)
        hostAction(parameters);
    auto event = QSharedPointer<NQ::ICmdExecutionEvent>(new CommandEvent(selection, action));
    if (handler)
        handler->execute(event);
    for (NQ::ICommandHandler* h : added)
        h->execute(event);
}

bool Command::isAvailable(const ContextManager& contexts) const {
    if (hostAction)
        return true;
    QList<NQ::ICommandHandler*> all = added;
    if (handler)
        all.prepend(handler);
    for (NQ::ICommandHandler* h : all) {
        if (!h->hasContext())
            return true;
        bool allActive = true;
        for (const QString& c : h->getContext())
            allActive = allActive && contexts.hasContext(c);
        if (allActive)
            return true;
    }
    return false;
}

MenuContribution::MenuContribution(const QString& label, const QString& location)
    : button_(new QToolButton), menu_(new QMenu(button_)) {
    button_->setText(label);
    button_->setObjectName(location);
    button_->setPopupMode(QToolButton::InstantPopup);
    button_->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button_->setMenu(menu_);
    self_.kind = ContributionItem::Menu;
    self_.id = location;
    self_.button = button_;
}

MenuContribution::~MenuContribution() {
    // Once placed, the toolbar owns the button.
    if (button_ && !button_->parent())
        delete button_.data();
}

void MenuContribution::add(NQ::IContributionItem* item) {
    auto* it = dynamic_cast<ContributionItem*>(item);
    if (!it)
        return;
    if (it->kind == ContributionItem::Separator)
        menu_->addSeparator();
    else if (it->action)
        menu_->addAction(it->action);
}

void MenuContribution::setText(const QString& text) {
    if (button_)
        button_->setText(text);
}

QString MenuContribution::text() const {
    return button_ ? button_->text() : QString();
}

CommandManager::CommandManager(ContextManager& contexts) : contexts_(contexts) {
    connect(&contexts_, &NQ::IContextManager::contextChanged, this,
            &CommandManager::updateAvailability);
}

CommandManager::~CommandManager() {
    qDeleteAll(commands_);
    qDeleteAll(menus_);
    qDeleteAll(items_);
}

Command* CommandManager::command(const QString& id) {
    Command*& c = commands_[id];
    if (!c)
        c = new Command(id);
    return c;
}

void CommandManager::registerCommand(const QString& id) {
    registered_.insert(id);
    command(id);
    emit commandsChanged();
}

void CommandManager::setCommandHandler(const QString& id, NQ::ICommandHandler* handler) {
    command(id)->handler = handler;
    updateAvailability();
}

void CommandManager::addCommandHandler(const QString& id, NQ::ICommandHandler* handler) {
    command(id)->added.append(handler);
    updateAvailability();
}

void CommandManager::setCommandParameter(const QString& id, const QString& name,
                                         const QVariant& value) {
    command(id)->parameters.insert(name, value);
}

void CommandManager::defineHostCommand(const QString& id,
                                       std::function<void(const QVariantMap&)> action) {
    registered_.insert(id);
    command(id)->hostAction = std::move(action);
    updateAvailability();
}

void CommandManager::runCommand(const QString& id, NQ::ISelection* selection, QAction* action) {
    Command* c = commands_.value(id);
    if (c && c->isAvailable(contexts_))
        c->run(selection, action);
}

bool CommandManager::isAvailable(const QString& id) const {
    Command* c = commands_.value(id);
    return c && c->isAvailable(contexts_);
}

void CommandManager::addContributionFactory(NQ::IContributionFactory* factory) {
    factories_.append(factory);
    emit commandsChanged();
}

QList<NQ::IContributionFactory*> CommandManager::factoriesAt(const QString& location) const {
    QList<NQ::IContributionFactory*> found;
    for (NQ::IContributionFactory* f : factories_)
        if (baseLocation(f->getLocation()) == baseLocation(location))
            found << f;
    return found;
}

NQ::IContributionManager* CommandManager::createMenuContribution(const QString& label,
                                                                 const QString& location) {
    auto* menu = new MenuContribution(label, location);
    delete menus_.value(location);
    menus_.insert(location, menu);
    return menu;
}

NQ::IContributionItem* CommandManager::createCommandContribution(const QString& label,
                                                                 const QString& commandId,
                                                                 const QString& itemId,
                                                                 const QString& /*qualifier*/) {
    auto* item = new ContributionItem;
    item->kind = ContributionItem::Action;
    item->id = itemId;
    item->commandId = commandId;
    item->action = new QAction(label, this);
    item->action->setObjectName(itemId);
    QAction* action = item->action;
    connect(action, &QAction::triggered, this,
            [this, commandId, action] { runCommand(commandId, popupSelection_, action); });
    bindAction(action, commandId);
    items_.append(item);
    return item;
}

NQ::IContributionItem* CommandManager::createActionContribution(QAction* action,
                                                                const QString& commandId,
                                                                const QString& description,
                                                                bool visible, bool /*dynamic*/) {
    auto* item = new ContributionItem;
    item->kind = ContributionItem::Action;
    item->id = description;
    item->commandId = commandId;
    item->description = description;
    item->action = action;
    if (action && !qobject_cast<QWidgetAction*>(action)) {
        action->setVisible(visible);
        connect(action, &QAction::triggered, this,
                [this, commandId, action] { runCommand(commandId, nullptr, action); });
        bindAction(action, commandId);
    }
    items_.append(item);
    return item;
}

NQ::IContributionItem* CommandManager::createSeparator(const QString& id) {
    auto* item = new ContributionItem;
    item->kind = ContributionItem::Separator;
    item->id = id;
    items_.append(item);
    return item;
}

NQ::IContributionManager* CommandManager::getContributionManager(const QString& location) {
    return menus_.value(location);
}

void CommandManager::bindAction(QAction* action, const QString& commandId) {
    boundActions_.append({action, commandId});
    Command* c = commands_.value(commandId);
    if (c && c->hasHandlers())
        action->setEnabled(c->isAvailable(contexts_));
}

void CommandManager::updateAvailability() {
    for (const auto& bound : boundActions_) {
        if (!bound.first)
            continue;
        Command* c = commands_.value(bound.second);
        // Actions of commands that nobody handles yet keep their own state.
        if (c && (c->hasHandlers() || c->hostAction))
            bound.first->setEnabled(c->isAvailable(contexts_));
    }
    emit commandsChanged();
}

void CommandManager::buildToolBar(QToolBar* toolBar, const QString& location) {
    for (NQ::IContributionFactory* factory : factoriesAt(location)) {
        for (NQ::IContributionItem* i : factory->createItems()) {
            auto* item = dynamic_cast<ContributionItem*>(i);
            if (!item)
                continue;
            switch (item->kind) {
            case ContributionItem::Separator:
                toolBar->addSeparator()->setObjectName(item->id);
                break;
            case ContributionItem::Action:
                if (item->action)
                    toolBar->addAction(item->action);
                break;
            case ContributionItem::Menu:
                if (item->button)
                    toolBar->addWidget(item->button);
                break;
            }
        }
    }
}

void CommandManager::populatePopup(QMenu* menu, const QString& location,
                                   NQ::ISelection* selection) {
    popupSelection_ = selection;
    for (NQ::IContributionFactory* factory : factoriesAt(location)) {
        // Entries go after the host's entry the placement names, in order.
        QAction* anchor = nullptr;
        const QString after = placementAfter(factory->getLocation());
        for (QAction* a : menu->actions())
            if (!after.isEmpty() && a->objectName() == after)
                anchor = a;
        for (NQ::IContributionItem* i : factory->createItems()) {
            auto* item = dynamic_cast<ContributionItem*>(i);
            if (!item)
                continue;
            QAction* toInsert = nullptr;
            if (item->kind == ContributionItem::Separator) {
                toInsert = new QAction(menu);
                toInsert->setSeparator(true);
                toInsert->setObjectName(item->id);
            } else if (item->action) {
                toInsert = item->action;
            }
            if (!toInsert)
                continue;
            const QList<QAction*> actions = menu->actions();
            const int at = anchor ? actions.indexOf(anchor) + 1 : actions.size();
            menu->insertAction(actions.value(at, nullptr), toInsert);
            anchor = toInsert;
        }
    }
}

// ---- selections, views, help, themes, plug-ins ---------------------------------

void SelectionManager::addSelectionListener(NQ::ISelectionListener* listener, const QString& type) {
    listeners_.append({listener, type});
}

void SelectionManager::removeSelectionListener(NQ::ISelectionListener* listener) {
    for (int i = listeners_.size() - 1; i >= 0; --i)
        if (listeners_[i].first == listener)
            listeners_.removeAt(i);
}

void SelectionManager::select(const QString& type, NQ::IPart* part, NQ::ISelection* selection) {
    const auto copy = listeners_;
    for (const auto& l : copy)
        if (l.second == type)
            l.first->selectionChanged(part, selection);
}

int SelectionManager::listenerCount(const QString& type) const {
    int n = 0;
    for (const auto& l : listeners_)
        n += l.second == type;
    return n;
}

ViewManager::ViewManager(QTabWidget* tabs, CommandManager& commands)
    : tabs_(tabs), commands_(commands) {}

int ViewManager::tabIndexOf(const QString& name) const {
    for (int i = 0; tabs_ && i < tabs_->count(); ++i)
        if (tabs_->widget(i)->property("viewName").toString() == name)
            return i;
    return -1;
}

void ViewManager::addHostTab(const QString& name, const QString& title, QWidget* widget) {
    widget->setProperty("viewName", name);
    tabs_->addTab(widget, title);
}

void ViewManager::addView(NQ::IView* view) {
    if (!view || !tabs_)
        return;
    views_.append(view);
    auto* page = new QWidget;
    page->setProperty("viewName", view->name());
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto* toolBar = new QToolBar(page);
    toolBar->setObjectName(QStringLiteral("toolbar:") + view->name());
    toolBar->setIconSize(QSize(16, 16));
    layout->addWidget(toolBar);
    toolBars_.insert(view->name(), toolBar);
    QWidget* content = view->widget() ? view->widget() : view;
    layout->addWidget(content, 1);
    const QString title = content->windowTitle().isEmpty() ? view->name() : content->windowTitle();
    page->setToolTip(view->toolTipText());
    page->setProperty("viewPosition", view->position());
    const QString split = view->split();
    const QString relative = view->splitRelativeToView();
    const bool splits = !split.isEmpty() && split != QLatin1String("None");
    if (splits && placeSplit(page, title, split, relative)) {
        // Placed in a pane of its own beside the tabs.
    } else {
        const int beside = tabIndexOf(view->tabRelativeToView());
        if (beside >= 0) {
            tabs_->insertTab(beside + 1, page, title);
        } else {
            // Without a neighbour the view's position orders the tabs.
            int at = tabs_->count();
            for (int i = 0; i < tabs_->count(); ++i) {
                const QVariant p = tabs_->widget(i)->property("viewPosition");
                if (p.isValid() && p.toInt() > view->position()) {
                    at = i;
                    break;
                }
            }
            tabs_->insertTab(at, page, title);
        }
    }
    // The host asks the view's toolbar factory for its items once the view
    // is in place.
    commands_.buildToolBar(toolBar, QStringLiteral("toolbar:") + view->name());
}

bool ViewManager::placeSplit(QWidget* page, const QString& title, const QString& split,
                             const QString& relativeTo) {
    // "Left", "Right", "Top" or "Bottom" of the tabs (or of the tab that
    // holds the view named): the tabs share a splitter with the new pane.
    const QString side = split.toLower();
    const bool horizontal = side == QLatin1String("left") || side == QLatin1String("right");
    const bool before = side == QLatin1String("left") || side == QLatin1String("top");
    if (!horizontal && side != QLatin1String("top") && side != QLatin1String("bottom"))
        return false;
    Q_UNUSED(relativeTo)
    QWidget* holder = tabs_->parentWidget();
    auto* outer = qobject_cast<QSplitter*>(holder);
    if (!outer)
        return false;
    const int index = outer->indexOf(tabs_);
    auto* pair = new QSplitter(horizontal ? Qt::Horizontal : Qt::Vertical);
    pair->setObjectName(QStringLiteral("split:") + page->property("viewName").toString());
    outer->insertWidget(index, pair);
    auto* own = new QTabWidget;
    own->setDocumentMode(true);
    own->addTab(page, title);
    if (before) {
        pair->addWidget(own);
        pair->addWidget(tabs_);
    } else {
        pair->addWidget(tabs_);
        pair->addWidget(own);
    }
    splitTabs_.append(own);
    return true;
}

void ViewManager::showView(const QString& name, bool raise) {
    for (QTabWidget* own : splitTabs_) {
        for (int i = 0; own && i < own->count(); ++i)
            if (own->widget(i)->property("viewName").toString() == name) {
                own->setCurrentIndex(i);
                return;
            }
    }
    const int i = tabIndexOf(name);
    if (i < 0 || !tabs_)
        return;
    tabs_->setCurrentIndex(i);
    if (raise) {
        tabs_->window()->raise();
        tabs_->window()->activateWindow();
    }
}

NQ::IView* ViewManager::view(const QString& name) const {
    for (NQ::IView* v : views_)
        if (v->name() == name)
            return v;
    return nullptr;
}

QString ViewManager::currentViewName() const {
    if (!tabs_ || !tabs_->currentWidget())
        return QString();
    return tabs_->currentWidget()->property("viewName").toString();
}

void HelpManager::setHelpReference(QWidget* widget, const NQ::HelpReference& reference) {
    references_.append({widget, reference});
}

NQ::HelpReference HelpManager::referenceFor(QWidget* widget) const {
    for (QWidget* w = widget; w; w = w->parentWidget())
        for (int i = references_.size() - 1; i >= 0; --i)
            if (references_[i].first == w)
                return references_[i].second;
    return {};
}

void ThemeManager::setTheme(const QString& name) {
    name_ = name == QLatin1String("dark") ? QStringLiteral("dark") : QStringLiteral("light");
    qApp->setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette p = qApp->style()->standardPalette();
    if (name_ == QLatin1String("dark")) {
        p.setColor(QPalette::Window, QColor(45, 45, 48));
        p.setColor(QPalette::WindowText, QColor(220, 220, 220));
        p.setColor(QPalette::Base, QColor(30, 30, 30));
        p.setColor(QPalette::AlternateBase, QColor(45, 45, 48));
        p.setColor(QPalette::Text, QColor(220, 220, 220));
        p.setColor(QPalette::Button, QColor(55, 55, 58));
        p.setColor(QPalette::ButtonText, QColor(220, 220, 220));
        p.setColor(QPalette::Highlight, QColor(230, 126, 34));
        p.setColor(QPalette::HighlightedText, Qt::black);
        p.setColor(QPalette::ToolTipBase, QColor(60, 60, 60));
        p.setColor(QPalette::ToolTipText, QColor(230, 230, 230));
        // What cannot be used must look so on the dark ground too.
        for (QPalette::ColorRole role :
             {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
            p.setColor(QPalette::Disabled, role, QColor(120, 120, 120));
    } else {
        p.setColor(QPalette::Highlight, QColor(230, 126, 34));
    }
    qApp->setPalette(p);
    QString sheet;
    for (const QString& path : {QStringLiteral(":/nqcore/themes/%1/host.css").arg(name_),
                                QStringLiteral(":/arraylens/themes/%1/theme.css").arg(name_)}) {
        QFile f(path);
        if (f.open(QIODevice::ReadOnly))
            sheet += QString::fromUtf8(f.readAll()) + QLatin1Char('\n');
    }
    qApp->setStyleSheet(sheet);
    emit themeChanged(name_);
}

NQ::IPlugin* PluginManager::getPlugin(const QString& id) {
    for (NQ::IPlugin* p : plugins_)
        if (p->extensions().contains(id))
            return p;
    return nullptr;
}

void PluginManager::registerPlugin(NQ::IPlugin* plugin) {
    if (plugin && !plugins_.contains(plugin))
        plugins_.append(plugin);
}

NQ::IPlugin* PluginManager::load(const QString& path, const QStringList& arguments,
                                 QString* error) {
    QPluginLoader loader(path);
    auto* plugin = qobject_cast<NQ::IPlugin*>(loader.instance());
    if (!plugin) {
        if (error)
            *error =
                QStringLiteral("Cannot load the plug-in %1: %2").arg(path, loader.errorString());
        return nullptr;
    }
    QString initError;
    if (!plugin->init(&initError, arguments)) {
        if (error)
            *error = QStringLiteral("The plug-in %1 did not start: %2").arg(path, initError);
        return nullptr;
    }
    plugin->configure();
    return plugin;
}

CorePlugin::CorePlugin(QSharedPointer<IHVDebugger> debugger) : debugger_(std::move(debugger)) {
    addExtension(QString::fromLatin1(NQ::Ids::IHVCORE_EXTENSION));
    addExtension(QString::fromLatin1(NQ::Ids::IHALVANE_EXTENSION));
}

HostCore::HostCore(QWidget* mainWindow, QTabWidget* tabs)
    : views(tabs, commands), mainWindow_(mainWindow), previous_(NQ::ICore::instance()) {
    NQ::ICore::setInstance(this);
}

HostCore::~HostCore() {
    NQ::ICore::setInstance(previous_);
}

} // namespace shell
