#include "host/hvdebugger.h"
#include "host/hvexpression.h"
#include "host/nqcore.h"

namespace NQ {

namespace {
ICore* g_core = nullptr;
}

ICore* ICore::instance() {
    return g_core;
}
void ICore::setInstance(ICore* core) {
    g_core = core;
}
ICore::~ICore() = default;

IPlugin::IPlugin(QObject* parent) : QObject(parent) {}
IPlugin::~IPlugin() = default;
void IPlugin::addExtension(const QString& id) {
    extensions_.append(id);
}
QStringList IPlugin::extensions() const {
    return extensions_;
}

IPluginManager::~IPluginManager() = default;

IPart::IPart(const QString& partName, QWidget* parent) : QWidget(parent), partName_(partName) {}
IPart::~IPart() = default;

IView::IView(const QString& partName, QWidget* parent) : IPart(partName, parent) {}
IView::~IView() = default;
void IView::copyToClipboard() {}
void IView::pasteFromClipboard() {}
QWidget* IView::topWidget() {
    return nullptr;
}
QWidget* IView::bottomWidget() {
    return nullptr;
}
void IView::shown() {}
bool IView::visibleAtStartup() const {
    return true;
}
QString IView::split() const {
    return QStringLiteral("None");
}
QString IView::splitRelativeToView() const {
    return QStringLiteral("None");
}
void IView::restoreSettings() {}
void IView::saveSettings() {}
QString IView::toolTipText() const {
    return QString();
}
bool IView::isSearchBarVisible() const {
    return false;
}
bool IView::supportsDuplicate() const {
    return false;
}
IView* IView::duplicate(QString) {
    return nullptr;
}
int IView::defaultDrawerPercentOpen() const {
    return 0;
}
void IView::notifyVisibilityChanged(bool) {}
void IView::searchBarOnTextCommitted(const QString&) {}

IViewManager::~IViewManager() = default;

ISelection::~ISelection() = default;
QSharedObjectSelection::QSharedObjectSelection(QList<QSharedPointer<QObject>> objects)
    : objects_(std::move(objects)) {}
QList<QSharedPointer<QObject>> QSharedObjectSelection::getSelected() const {
    return objects_;
}
QObjectSelection::QObjectSelection(QList<QObject*> objects) : objects_(std::move(objects)) {}
QList<QObject*> QObjectSelection::getSelected() const {
    return objects_;
}
ISelectionListener::~ISelectionListener() = default;
ISelectionManager::~ISelectionManager() = default;

ICommandContext::~ICommandContext() = default;
ICmdExecutionEvent::~ICmdExecutionEvent() = default;

ICommandHandler::~ICommandHandler() = default;
bool ICommandHandler::hasContext() const {
    return false;
}
QStringList ICommandHandler::getContext() const {
    return QStringList();
}
bool ICommandHandler::hasSelection() const {
    return false;
}
QString ICommandHandler::getSelectionType() const {
    return QStringLiteral("None");
}
bool ICommandHandler::hasPartName() const {
    return false;
}
QString ICommandHandler::getPartName() const {
    return QStringLiteral("None");
}

ICommand::~ICommand() = default;
IContributionItem::~IContributionItem() = default;
IContributionManager::~IContributionManager() = default;
IContributionFactory::~IContributionFactory() = default;
IContributionFactory* IContributionFactory::duplicate(const QString&) {
    return nullptr;
}
ICommandManager::~ICommandManager() = default;

IContextManager::IContextManager(QObject* parent) : QObject(parent) {}
IContextManager::~IContextManager() = default;
IHelpManager::~IHelpManager() = default;
IThemeManager::~IThemeManager() = default;

void* findExtension(IPluginManager* manager, const QString& id) {
    if (!manager)
        return nullptr;
    IPlugin* plugin = manager->getPlugin(id);
    if (!plugin || !plugin->extensions().contains(id, Qt::CaseSensitive))
        return nullptr;
    return plugin->qt_metacast(id.toLatin1().constData());
}

} // namespace NQ

IHVExpression::~IHVExpression() = default;
IHVFrame::~IHVFrame() = default;
IHVThread::~IHVThread() = default;
IHVProcess::~IHVProcess() = default;

IHVDebugger::IHVDebugger(QObject* parent) : QObject(parent) {}
IHVDebugger::~IHVDebugger() = default;
IHVCore::~IHVCore() = default;
IHalvane::~IHalvane() = default;
