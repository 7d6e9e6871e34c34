#pragma once
// The entry "Add to Array Lens - Statistics, Visualize" in the popups of the
// host's data view and local variable view. The entry is bound to the
// plug-in's command, whose handler reads the selection; the factories only
// make the items.

#include "host/nqcore.h"

#include <QObject>

class ArrayLensPopupFactory : public QObject, public NQ::IContributionFactory {
    Q_OBJECT
public:
    QList<NQ::IContributionItem*> createItems() override;
    QString getLocation() const override;

    QString location;  // with the placement query
    QString popupName; // part of the location before ":", else "menu"

protected:
    ArrayLensPopupFactory(const QString& location, const char* placementQuery, const char* viewId);

private:
    const char* viewId_;
};

class UpdateDataViewPopupFactory : public ArrayLensPopupFactory {
    Q_OBJECT
public:
    explicit UpdateDataViewPopupFactory(const QString& location);
    NQ::IContributionFactory* duplicate(const QString& location) override;
};

class UpdateLocalVarPopupFactory : public ArrayLensPopupFactory {
    Q_OBJECT
public:
    explicit UpdateLocalVarPopupFactory(const QString& location);
    NQ::IContributionFactory* duplicate(const QString& location) override;
};
