#include "config/dimensioncombobox.h"

#include <QComboBox>
#include <QGridLayout>

DimensionComboBox::DimensionComboBox(const QString& name, QWidget* parent) : QWidget(parent) {
    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    combo = new QComboBox(this);
    combo->setObjectName(name);
    combo->setProperty("style", QStringLiteral("TableCombo"));
    layout->addWidget(combo, 0, 0);
    setToolTip(tr("Select 2 different array dimensions for rows and columns in the Data Table."));
    connect(combo, SIGNAL(currentIndexChanged(int)), this, SIGNAL(currentIndexChanged(int)));
}

void DimensionComboBox::setCurrentIndex(int index) {
    combo->setCurrentIndex(index);
}
int DimensionComboBox::currentIndex() const {
    return combo->currentIndex();
}
int DimensionComboBox::count() const {
    return combo->count();
}
void DimensionComboBox::clear() {
    combo->clear();
}
void DimensionComboBox::addItems(const QStringList& items) {
    combo->addItems(items);
}
void DimensionComboBox::setEnabled(bool enabled) {
    combo->setEnabled(enabled);
}
