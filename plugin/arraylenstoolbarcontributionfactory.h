#pragma once
// The view's toolbar: the expression field, the thread, type and slice
// labels, the display menu, the settings action and the filter switch. The
// controller reaches the widgets through the members below, which exist
// only once the host has asked for the items.

#include "host/nqcore.h"

#include <QObject>

class ArrayLensView;
class NoAdjustComboBox;
class QAction;
class QPushButton;

class ArrayLensToolBarContributionFactory : public QObject, public NQ::IContributionFactory {
    Q_OBJECT
public:
    ArrayLensToolBarContributionFactory(const QString& location, ArrayLensView* view);

    QList<NQ::IContributionItem*> createItems() override;
    QString getLocation() const override;

    ArrayLensView* view;
    QString location;
    NoAdjustComboBox* comboBox = nullptr;
    QPushButton* threadButton = nullptr;
    QPushButton* sliceButton = nullptr;
    QPushButton* typeButton = nullptr;
    QAction* filterAction = nullptr;

private:
    QPushButton* makeLabelButton(const QString& text, const QString& objectName);
    NQ::IContributionItem* separator(int number);
};
