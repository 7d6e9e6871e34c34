#pragma once
// The two-line table of the slice editor. Sized to its rows, it never needs
// to scroll.

#include <QTableWidget>

class SliceTableWidget : public QTableWidget {
    Q_OBJECT
public:
    SliceTableWidget(int rows, int columns, QWidget* parent, bool sizeToContents);

    QSize maximumSize() const;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

private:
    // The base class's width with the height of all rows and the header.
    QSize contentsHint(const QSize& base) const;

    bool sizeToContents_ = false;
};
