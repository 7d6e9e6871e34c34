#pragma once
// A dimension chooser for one line of the slice table: a themed combo box
// inside a widget, so that it can sit in a table cell.

#include <QStringList>
#include <QWidget>

class QComboBox;

class DimensionComboBox : public QWidget {
    Q_OBJECT
public:
    // The name goes to the inner combo box, where the theme and tests find it.
    explicit DimensionComboBox(const QString& name, QWidget* parent = nullptr);

    void setCurrentIndex(int index);
    int currentIndex() const;
    int count() const;
    void clear();
    void addItems(const QStringList& items);
    // Acts on the inner combo box only.
    void setEnabled(bool enabled);

    QComboBox* comboBox() const { return combo; }

signals:
    void currentIndexChanged(int index);

private:
    QComboBox* combo = nullptr;
};
