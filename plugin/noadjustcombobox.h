#pragma once
// The toolbar's expression field. Its width does not follow its items, so a
// long expression never pushes the rest of the toolbar away.

#include <QComboBox>

class NoAdjustComboBox : public QComboBox {
    Q_OBJECT
public:
    explicit NoAdjustComboBox(QWidget* parent = nullptr) : QComboBox(parent) {}

    QSize minimumSizeHint() const override;
    QSize sizeHint() const override;
};
