#include "plugin/arraylens.h"

#include "plugin/arraylenscommandhandler.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylensview.h"
#include "plugin/popupfactories.h"

ArrayLens::ArrayLens() : NQ::IPlugin(nullptr) {}

ArrayLens::~ArrayLens() = default;

bool ArrayLens::init(QString* /*errorString*/, const QStringList& /*arguments*/) {
    using namespace HVUI::Constants;
    NQ::ICore* core = NQ::ICore::instance();
    core->pluginManager()->registerPlugin(this);
    addExtension(QString::fromLatin1(ARRAYLENS_IID));

    // The view's constructor builds the controller, which looks up the
    // debugger extensions right away: the host's core plug-in must be loaded.
    view = new ArrayLensView();
    core->viewManager()->addView(view);

    NQ::ICommandManager* commands = core->commandManager();
    commands->registerCommand(QString::fromLatin1(ARRAYLENS_COMMAND));
    commands->addCommandHandler(
        QString::fromLatin1(ARRAYLENS_COMMAND),
        static_cast<NQ::ICommandHandler*>(new ArrayLensCommandHandler(view)));
    commands->addContributionFactory(new UpdateDataViewPopupFactory(
        QString::fromLatin1(POPUP_PREFIX) + QString::fromLatin1(DATAVIEW_ID)));
    commands->addContributionFactory(new UpdateLocalVarPopupFactory(
        QString::fromLatin1(POPUP_PREFIX) + QString::fromLatin1(LOCALVARIABLEVIEW_ID)));
    return true;
}

bool ArrayLens::configure() {
    return true;
}

void ArrayLens::shuttingDown() {}
