#include "config/slicetablewidget.h"

#include <QHeaderView>

SliceTableWidget::SliceTableWidget(int rows, int columns, QWidget* parent, bool sizeToContents)
    : QTableWidget(rows, columns, parent), sizeToContents_(sizeToContents) {
    setWordWrap(false);
}

QSize SliceTableWidget::maximumSize() const {
    return QWidget::maximumSize();
}

QSize SliceTableWidget::contentsHint(const QSize& base) const {
    const int height = rowCount() * rowHeight(0) + horizontalHeader()->height();
    return QSize(base.width(), height);
}

QSize SliceTableWidget::sizeHint() const {
    if (!sizeToContents_)
        return QTableWidget::sizeHint();
    return contentsHint(QTableWidget::sizeHint());
}

QSize SliceTableWidget::minimumSizeHint() const {
    if (!sizeToContents_)
        return QTableWidget::minimumSizeHint();
    return contentsHint(QTableWidget::minimumSizeHint());
}
