#pragma once
// The statistics page: fetches the 16 statistics of an array expression from
// the debugger back end and shows them in a table whose layout follows its
// width (one label/value pair of columns, or two pairs with a divider).

#include <QSize>
#include <QString>
#include <QStringList>
#include <QStyledItemDelegate>
#include <QVariant>
#include <QWidget>

class ArrayStatisticsResponse;
class IHVExpression;
class QEvent;
class QPainter;
class QTableWidget;
class QTimer;

// Paints the one-pixel divider column between the two column pairs of the
// wide layout, also in rows that hold no item.
class SpacerColumnDelegate : public QStyledItemDelegate {
public:
    explicit SpacerColumnDelegate(QObject* parent);
    ~SpacerColumnDelegate() override;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

    int spacerColumn;
};

// How insertVariantValue renders a value.
enum stat_type_e {
    STAT_DOUBLE = 0, // "%.*g" at precision 15
    STAT_INT = 1,    // "%d"
    STAT_UINT = 2,   // "%d" as well: values above INT_MAX print negative
};

class StatisticsUI : public QWidget {
    Q_OBJECT
public:
    // The parent is ignored: the page is parented when the controller puts
    // it into its stack.
    explicit StatisticsUI(QWidget* parent = nullptr);
    ~StatisticsUI() override;

    bool eventFilter(QObject* watched, QEvent* event) override;
    // Invalid, so that the layout goes by the form alone.
    QSize sizeHint() const override;

    // Starts a fetch and returns at once; `expression` must not be null.
    void showStatistics(IHVExpression* expression, QString slice, QString filter);
    void markDataStale();
    // Part of the display's public face; a statistics page has nothing to
    // refresh on its own.
    void markDataNeedsUpdate();
    void dumpExpression(IHVExpression* expression);

    // The table.
    void addStatsToTable();
    void updateTable();
    QVariant getPropertyValue(int index);
    void insertStatItem(int row, int column, const QString& text);
    void insertVariantValue(QVariant value, int row, int column, stat_type_e type);
    void adjustTableColumnsToWidth(bool repopulate);

signals:
    void statStaleData();
    void statError(const QString& error);
    void statSuccess(const QString& expr, const QString& slice, const QString& actualType,
                     const QString& filter);

public slots:
    void handleResizeTimeout();
    void handleStatisticsFinished();

public:
    // Found in the loaded form and owned by it; null when the form has none.
    QTableWidget* statisticsTable_ = nullptr;
    QTimer* resizeTimer_ = nullptr;
    QStringList statLabels_;
    // The last answer, owned here; null until the first one.
    ArrayStatisticsResponse* responseRef_ = nullptr;

private:
    void init();
};
