#include "plugin/popupfactories.h"

#include "plugin/arraylensconstants.h"

ArrayLensPopupFactory::ArrayLensPopupFactory(const QString& loc, const char* placementQuery,
                                             const char* viewId)
    : QObject(nullptr), location(loc), popupName(QStringLiteral("menu")), viewId_(viewId) {
    const QStringList parts = location.split(QLatin1Char(':'));
    if (parts.size() == 2)
        popupName = parts.first();
    // Places the entry after the host's own entry in that popup.
    location += QString::fromLatin1(placementQuery);
}

QList<NQ::IContributionItem*> ArrayLensPopupFactory::createItems() {
    NQ::ICommandManager* commands = NQ::ICore::instance()->commandManager();
    QList<NQ::IContributionItem*> items;
    items << commands->createSeparator(location + QStringLiteral(".separtor.arraylens"));
    items << commands->createCommandContribution(
        QStringLiteral("Add to Array Lens - Statistics, Visualize"),
        QString::fromLatin1(HVUI::Constants::ARRAYLENS_COMMAND),
        QString::fromLatin1(viewId_) + QLatin1Char('.') + popupName + QStringLiteral(".arraylens"),
        QStringLiteral("None"));
    return items;
}

QString ArrayLensPopupFactory::getLocation() const {
    return location;
}

UpdateDataViewPopupFactory::UpdateDataViewPopupFactory(const QString& location)
    : ArrayLensPopupFactory(location, "?after=com.northquay.dataview.popup.redive",
                            HVUI::Constants::DATAVIEW_ID) {}

NQ::IContributionFactory* UpdateDataViewPopupFactory::duplicate(const QString& location) {
    return new UpdateDataViewPopupFactory(location);
}

UpdateLocalVarPopupFactory::UpdateLocalVarPopupFactory(const QString& location)
    : ArrayLensPopupFactory(location, "?after=com.northquay.localvariable.popup.dive_in_new",
                            HVUI::Constants::LOCALVARIABLEVIEW_ID) {}

NQ::IContributionFactory* UpdateLocalVarPopupFactory::duplicate(const QString& location) {
    return new UpdateLocalVarPopupFactory(location);
}
