#pragma once
// The index chooser of one dimension that is neither row nor column of the
// Data Table: a caption such as "[k]:" and a spin box limited to the bounds.

#include <QWidget>

class QFont;
class QLabel;
class QSpinBox;

class DimSliceSpinbox : public QWidget {
    Q_OBJECT
public:
    // Blanks are removed from `label`; the spin box is named after the rest
    // followed by "SpinBox".
    DimSliceSpinbox(const QString& label, int minimum, int maximum, QWidget* parent = nullptr);

    int getValue() const;
    void setValue(int value);
    void setEnabled(bool enabled);
    bool isEnabled() const;
    void setFont(const QFont& font);

    QLabel* label() const { return label_; }
    QSpinBox* spinBox() const { return spinBox_; }

private:
    QLabel* label_ = nullptr;
    QSpinBox* spinBox_ = nullptr;
};
