#pragma once
// Shared pieces of the statistics page tests: a full answer of the back end
// and a reader of the table's cells.

#include "statistics/statisticsui.h"
#include "support/fakehost.h"

#include <QBitArray>
#include <QTableWidget>
#include <QVariantMap>

namespace statstest {

// An answer for ten elements with every statistic valid.
inline QVariantMap goodAnswer() {
    QVariantMap a;
    a["result"] = "done";
    a["Checksum"] = QVariant::fromValue<qlonglong>(987654321012LL);
    a["Count"] = 10;
    a["ZeroCount"] = 1;
    a["Sum"] = 45.5;
    a["Min"] = 0.0;
    a["Max"] = 9.5;
    a["Median"] = 4.5;
    a["Mean"] = 4.55;
    a["StdDev"] = 2.75;
    a["FirstQuartile"] = 2.25;
    a["ThirdQuartile"] = 6.75;
    a["LowerAdjValue"] = 0.5;
    a["UpperAdjValue"] = 9.25;
    a["NanCount"] = 2;
    a["InfCount"] = 3;
    a["DenormCount"] = 4;
    a["StatValid"] = QBitArray(16, true);
    a["Array"] = "a";
    a["EmptySlice"] = "[0:9:1]";
    a["ActualType"] = "double [10]";
    a["Filter"] = "";
    return a;
}

// The text of a cell, or "<none>" when it holds no item.
inline QString cell(QTableWidget* table, int row, int column) {
    QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QStringLiteral("<none>");
}

inline int itemCount(QTableWidget* table) {
    int n = 0;
    for (int r = 0; r < table->rowCount(); ++r)
        for (int c = 0; c < table->columnCount(); ++c)
            if (table->item(r, c))
                ++n;
    return n;
}

// Runs the event loop until the page has had `n` answers in all.
struct Signals {
    explicit Signals(StatisticsUI& ui) {
        QObject::connect(&ui, &StatisticsUI::statStaleData,
                         [this] { order.append(QStringLiteral("stale")); });
        QObject::connect(&ui, &StatisticsUI::statError, [this](const QString& e) {
            order.append(QStringLiteral("error"));
            errors.append(e);
        });
        QObject::connect(&ui, &StatisticsUI::statSuccess,
                         [this](const QString& expr, const QString& slice,
                                const QString& actualType, const QString& filter) {
                             order.append(QStringLiteral("success"));
                             successes.append(QStringList{expr, slice, actualType, filter});
                         });
    }
    int answers() const { return errors.size() + successes.size(); }
    QStringList order;
    QStringList errors;
    QList<QStringList> successes;
};

} // namespace statstest
