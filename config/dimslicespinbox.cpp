#include "config/dimslicespinbox.h"

#include "config/arrayLensConfigui.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSpinBox>

DimSliceSpinbox::DimSliceSpinbox(const QString& label, int minimum, int maximum, QWidget* parent)
    : QWidget(parent) {
    QString name = label;
    name.remove(QLatin1Char(' '));

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->setSpacing(4);

    label_ = new QLabel(name + QLatin1Char(':'), this);
    label_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    spinBox_ = new QSpinBox(this);
    spinBox_->setObjectName(name + QStringLiteral("SpinBox"));
    spinBox_->setRange(minimum, maximum);
    spinBox_->setToolTip(QString::fromLatin1(SLICE_DATA_TABLE_SPINBOX_TOOTIP));
    spinBox_->setStepType(QAbstractSpinBox::AdaptiveDecimalStepType);

    layout->addWidget(label_);
    layout->addWidget(spinBox_);
}

int DimSliceSpinbox::getValue() const {
    return spinBox_->value();
}
void DimSliceSpinbox::setValue(int value) {
    spinBox_->setValue(value);
}
void DimSliceSpinbox::setEnabled(bool enabled) {
    spinBox_->setEnabled(enabled);
}
bool DimSliceSpinbox::isEnabled() const {
    return spinBox_->isEnabled();
}
void DimSliceSpinbox::setFont(const QFont& font) {
    label_->setFont(font);
}
