#include "support/fakehost.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QThread>
#include <QTimer>

namespace fake {

// ---- Expression -------------------------------------------------------------

Expression::Expression(const QString& t, Debugger* o) : text(t), owner(o) {}

void Expression::copyFrom(const Expression& o) {
    text = o.text;
    errorMessage = o.errorMessage;
    type = o.type;
    actualType = o.actualType;
    scopedExpression = o.scopedExpression;
    scopePath = o.scopePath;
    scopeId = o.scopeId;
    operationArgs = o.operationArgs;
    operationQualifiedArgs = o.operationQualifiedArgs;
    operationKinds = o.operationKinds;
    fortran = o.fortran;
    cLanguage = o.cLanguage;
    array = o.array;
    resolved = o.resolved;
    error = o.error;
    recursionDepth = o.recursionDepth;
    blockLine = o.blockLine;
    alternate = o.alternate;
    focus = o.focus;
    frameLevel = o.frameLevel;
    language = o.language;
    frame = o.frame;
    owner = o.owner;
}

void Expression::setType(const QString& t, bool reinterpret) {
    setTypeCalls.append({t, reinterpret});
    type = t;
}

QFuture<IHVExpression*> Expression::evaluate(QSharedPointer<IHVFrame> f) {
    ++evaluateCount;
    QFutureInterface<IHVExpression*> promise;
    promise.reportStarted();
    QPointer<Expression> self(this);
    QTimer::singleShot(0, this, [self, promise, f]() mutable {
        if (self) {
            self->frame = f;
            if (self->owner && self->owner->evaluator())
                self->owner->evaluator()(*self, f.data());
        }
        IHVExpression* result = self.data();
        promise.reportResult(result);
        promise.reportFinished();
    });
    return promise.future();
}

// ---- Debugger -----------------------------------------------------------------

void Debugger::respond(const QString& requestId, Responder responder) {
    responders_.insert(requestId, std::move(responder));
}

void Debugger::respond(const QString& requestId, const QVariantMap& answer) {
    respond(requestId, [answer](const QObject&) { return answer; });
}

void Debugger::hold(const QString& requestId, bool on) {
    if (on)
        heldIds_.insert(requestId);
    else
        heldIds_.remove(requestId);
}

void Debugger::finishLater(QFutureInterface<QSharedPointer<QObject>> promise,
                           const QVariantMap& answer) {
    QTimer::singleShot(0, this, [promise, answer]() mutable {
        QSharedPointer<QObject> bag(new QObject, &QObject::deleteLater);
        for (auto it = answer.constBegin(); it != answer.constEnd(); ++it)
            bag->setProperty(it.key().toLatin1().constData(), it.value());
        promise.reportResult(bag);
        promise.reportFinished();
    });
}

QFuture<QSharedPointer<QObject>> Debugger::sendRequest(HVDWPRequest request) {
    Sent s;
    s.bag = request.propertyBag;
    s.id = request.getID();
    for (const QByteArray& name : request.propertyBag->dynamicPropertyNames())
        s.properties.insert(QString::fromLatin1(name), request.propertyBag->property(name));
    sent.append(s);

    QFutureInterface<QSharedPointer<QObject>> promise;
    promise.reportStarted();
    if (heldIds_.contains(s.id) || !responders_.contains(s.id)) {
        held_.append(Pending{promise, s});
        return promise.future();
    }
    finishLater(promise, responders_.value(s.id)(*request.propertyBag));
    return promise.future();
}

void Debugger::answerHeld(const QVariantMap& answer, int index) {
    if (index < 0 || index >= held_.size())
        return;
    Pending p = held_.takeAt(index);
    finishLater(p.promise, answer);
}

void Debugger::answerHeldWithResponder(int index) {
    if (index < 0 || index >= held_.size())
        return;
    Pending p = held_.takeAt(index);
    QVariantMap answer;
    if (responders_.contains(p.sent.id))
        answer = responders_.value(p.sent.id)(*p.sent.bag);
    finishLater(p.promise, answer);
}

IHVExpression* Debugger::createExpression(const QString& text) {
    auto* e = new Expression(text, this);
    created.append(e);
    return e;
}

IHVExpression* Debugger::cloneExpression(IHVExpression* expression) {
    if (cloneReturnsNull_ || !expression)
        return nullptr;
    auto* copy = new Expression(QString(), this);
    if (auto* source = qobject_cast<Expression*>(expression))
        copy->copyFrom(*source);
    else
        copy->text = expression->getExpression();
    clones.append(copy);
    return copy;
}

// ---- CommandManager -------------------------------------------------------------

void Command::execute() {
    ++executed;
    parametersAtExecution.append(parameters);
}

CommandManager::~CommandManager() {
    qDeleteAll(items);
    qDeleteAll(menus);
    qDeleteAll(commands_);
}

void CommandManager::trigger(const QString& id, QSharedPointer<NQ::ICmdExecutionEvent> event) {
    if (NQ::ICommandHandler* h = setHandlers.value(id))
        h->execute(event);
    for (NQ::ICommandHandler* h : addedHandlers.value(id))
        h->execute(event);
}

NQ::IContributionFactory* CommandManager::factoryAt(const QString& location) const {
    for (NQ::IContributionFactory* f : factories)
        if (f->getLocation() == location)
            return f;
    return nullptr;
}

Command* CommandManager::command(const QString& id) {
    Command*& c = commands_[id];
    if (!c)
        c = new Command(id);
    return c;
}

void CommandManager::registerCommand(const QString& id) {
    registered.append(id);
    log_.add(QStringLiteral("registerCommand ") + id);
}

void CommandManager::setCommandHandler(const QString& id, NQ::ICommandHandler* handler) {
    setHandlers.insert(id, handler);
    log_.add(QStringLiteral("setCommandHandler ") + id);
}

void CommandManager::addCommandHandler(const QString& id, NQ::ICommandHandler* handler) {
    addedHandlers[id].append(handler);
    log_.add(QStringLiteral("addCommandHandler ") + id);
}

void CommandManager::setCommandParameter(const QString& id, const QString& name,
                                         const QVariant& value) {
    command(id)->parameters.insert(name, value);
    log_.add(QStringLiteral("setCommandParameter ") + id + QLatin1Char(' ') + name);
}

void CommandManager::addContributionFactory(NQ::IContributionFactory* factory) {
    factories.append(factory);
    log_.add(QStringLiteral("addContributionFactory ") + factory->getLocation());
}

NQ::IContributionManager* CommandManager::createMenuContribution(const QString& label,
                                                                 const QString& location) {
    auto* m = new ContributionManager;
    m->location = location;
    m->text = label;
    m->self.kind = ContributionItem::Menu;
    m->self.id = location;
    m->self.label = label;
    delete menus.value(location);
    menus.insert(location, m);
    return m;
}

NQ::IContributionItem* CommandManager::createCommandContribution(const QString& label,
                                                                 const QString& commandId,
                                                                 const QString& itemId,
                                                                 const QString& qualifier) {
    auto* item = new ContributionItem;
    item->kind = ContributionItem::Command;
    item->label = label;
    item->commandId = commandId;
    item->id = itemId;
    item->qualifier = qualifier;
    items.append(item);
    return item;
}

NQ::IContributionItem* CommandManager::createActionContribution(QAction* action,
                                                                const QString& commandId,
                                                                const QString& description, bool a,
                                                                bool b) {
    auto* item = new ContributionItem;
    item->kind = ContributionItem::Action;
    item->action = action;
    item->commandId = commandId;
    item->id = commandId;
    item->description = description;
    item->flagA = a;
    item->flagB = b;
    items.append(item);
    return item;
}

NQ::IContributionItem* CommandManager::createSeparator(const QString& id) {
    auto* item = new ContributionItem;
    item->kind = ContributionItem::Separator;
    item->id = id;
    items.append(item);
    return item;
}

NQ::IContributionManager* CommandManager::getContributionManager(const QString& location) {
    return menus.value(location);
}

NQ::ICommand* CommandManager::getCommand(const QString& id) {
    return command(id);
}

// ---- ContextManager -------------------------------------------------------------

void ContextManager::registerContext(const QString& id) {
    if (!registeredOrder.contains(id))
        registeredOrder.append(id);
    log_.add(QStringLiteral("registerContext ") + id);
    ++changes;
    emit contextChanged();
}

bool ContextManager::isContextRegistered(const QString& id) const {
    return registeredOrder.contains(id);
}

void ContextManager::activateContext(const QString& id) {
    active.insert(id);
    log_.add(QStringLiteral("activateContext ") + id);
    ++changes;
    emit contextChanged();
}

void ContextManager::deactivateContext(const QString& id) {
    active.remove(id);
    log_.add(QStringLiteral("deactivateContext ") + id);
    ++changes;
    emit contextChanged();
}

bool ContextManager::hasContext(const QString& id) const {
    return active.contains(id);
}

// ---- views, plug-ins, selections, help ---------------------------------------

void ViewManager::addView(NQ::IView* view) {
    views.append(view);
    log_.add(QStringLiteral("addView ") + (view ? view->name() : QString()));
}

void ViewManager::showView(const QString& name, bool raise) {
    shown.append({name, raise});
    log_.add(QStringLiteral("showView ") + name);
}

void PluginManager::registerPlugin(NQ::IPlugin* plugin) {
    registered.append(plugin);
    log_.add(QStringLiteral("registerPlugin ") +
             QString::fromLatin1(plugin ? plugin->metaObject()->className() : ""));
}

void SelectionManager::addSelectionListener(NQ::ISelectionListener* listener, const QString& type) {
    listeners.append({listener, type});
}

void SelectionManager::removeSelectionListener(NQ::ISelectionListener* listener) {
    ++removals;
    for (int i = listeners.size() - 1; i >= 0; --i)
        if (listeners[i].first == listener)
            listeners.removeAt(i);
}

void SelectionManager::select(const QString& type, NQ::IPart* part, NQ::ISelection* selection) {
    const auto copy = listeners;
    for (const auto& l : copy)
        if (l.second == type)
            l.first->selectionChanged(part, selection);
}

void HelpManager::setHelpReference(QWidget* widget, const NQ::HelpReference& reference) {
    references.append({widget, reference});
}

NQ::HelpReference HelpManager::referenceOf(QWidget* widget) const {
    for (int i = references.size() - 1; i >= 0; --i)
        if (references[i].first == widget)
            return references[i].second;
    return {};
}

// ---- CorePlugin and Core ----------------------------------------------------------

CorePlugin::CorePlugin() : debugger(new Debugger) {
    addExtension(QString::fromLatin1(NQ::Ids::IHVCORE_EXTENSION));
}

Core::Core(bool withHalvane) : previous_(NQ::ICore::instance()) {
    if (withHalvane)
        corePlugin.addExtension(QString::fromLatin1(NQ::Ids::IHALVANE_EXTENSION));
    plugins.byExtension.insert(QString::fromLatin1(NQ::Ids::IHVCORE_EXTENSION), &corePlugin);
    plugins.byExtension.insert(QString::fromLatin1(NQ::Ids::IHALVANE_EXTENSION), &corePlugin);
    NQ::ICore::setInstance(this);
}

Core::~Core() {
    NQ::ICore::setInstance(previous_);
}

QSharedPointer<Frame> Core::makeCurrentFrame() {
    QSharedPointer<Frame> f(new Frame);
    corePlugin.currentFrame = f;
    if (!corePlugin.currentThread)
        corePlugin.currentThread.reset(new Thread);
    return f;
}

bool waitFor(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QThread::msleep(1);
    }
    return true;
}

} // namespace fake
