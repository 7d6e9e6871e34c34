#pragma once
// Shared pieces of the Data Table tests: a back end that serves one big
// two-dimensional array lazily, cell by cell as asked, and a rig with a
// Data Table of a known size on screen.

#include "controller/rig.h"
#include "table/data2Dtableui.h"
#include "wire/watchers.h"

#include <QCoreApplication>
#include <QHeaderView>
#include <QProgressDialog>
#include <QScrollBar>
#include <QTableWidget>
#include <QTest>

namespace tabletest {

// One request as the back end saw it.
struct Asked {
    QString expression;
    QString slice;
    int rowDim = 0;
    int colDim = 0;
    int dataFormat = 0;
    bool usingViewPort = false;
    int startRow = 0;
    int endRow = 0;
    int startCol = 0;
    int endCol = 0;
    int cells() const { return (endRow - startRow + 1) * (endCol - startCol + 1); }
};

// A rows x cols array of the back end. Element (r, c) reads "r.c", padded
// on the left to `width` characters. The answer to a table request holds
// exactly the cells of its viewport, row by row, unless `forcedCount` asks
// for a given number of elements (row by row from the top left corner).
struct LazyArray {
    LazyArray(int rows, int cols) : rows(rows), cols(cols) {}

    int rows;
    int cols;
    int width = 0;
    int forcedCount = -1;
    int dimCount = 2;
    QList<Asked> asked;

    QString defaultSlice() const {
        return QStringLiteral("[0:%1:1][0:%2:1]").arg(rows - 1).arg(cols - 1);
    }
    static QString value(int row, int col, int width) {
        return QStringLiteral("%1.%2").arg(row).arg(col).rightJustified(width, QLatin1Char('x'));
    }

    QVariantMap info(const QObject& request) const {
        QStringList bounds{QStringLiteral("0:%1").arg(rows - 1)};
        if (dimCount > 1)
            bounds << QStringLiteral("0:%1").arg(cols - 1);
        return QVariantMap{{"result", "done"},
                           {"ArrayName", request.property("Expression")},
                           {"ActualType", QStringLiteral("int[%1][%2]").arg(rows).arg(cols)},
                           {"DimCount", dimCount},
                           {"DataType", 0},
                           {"EmptySlice", dimCount > 1 ? "[:][:]" : "[:]"},
                           {"ArrayBounds", bounds}};
    }

    QVariantMap table(const QObject& request) {
        Asked a;
        a.expression = request.property("Expression").toString();
        a.slice = request.property("Slice").toString();
        a.rowDim = request.property("RowDim").toInt();
        a.colDim = request.property("ColDim").toInt();
        a.dataFormat = request.property("DataFormat").toInt();
        a.usingViewPort = request.property("UsingViewPort").toBool();
        a.startRow = request.property("TableStartRow").toInt();
        a.endRow = request.property("TableEndRow").toInt();
        a.startCol = request.property("TableStartCol").toInt();
        a.endCol = request.property("TableEndCol").toInt();
        asked.append(a);

        QVariantList elements;
        if (forcedCount >= 0) {
            for (int i = 0; i < forcedCount; ++i) {
                const int row = i / cols;
                const int col = i % cols;
                elements.append(
                    QVariantMap{{"value", value(row, col, width)}, {"row", row}, {"col", col}});
            }
        } else {
            for (int row = a.startRow; row <= a.endRow; ++row)
                for (int col = a.startCol; col <= a.endCol; ++col)
                    elements.append(
                        QVariantMap{{"value", value(row, col, width)}, {"row", row}, {"col", col}});
        }
        // The back end picks the last two dimensions when none are given.
        const int rowDim = a.rowDim < 0 ? 0 : a.rowDim;
        const int colDim = a.colDim < 0 ? 1 : a.colDim;
        return QVariantMap{{"result", "done"},
                           {"ArrayName", a.expression},
                           {"ActualType", QStringLiteral("int[%1][%2]").arg(rows).arg(cols)},
                           {"Slice", a.slice.isEmpty() ? defaultSlice() : a.slice},
                           {"Filter", request.property("Filter")},
                           {"RowDim", rowDim},
                           {"ColDim", colDim},
                           {"DataFormat", a.dataFormat == 8 ? 3 : a.dataFormat},
                           {"DataType", 0},
                           {"RowCount", rows},
                           {"ColCount", cols},
                           {"RowStride", 1},
                           {"RowLowerBound", 0},
                           {"RowUpperBound", rows - 1},
                           {"ColStride", 1},
                           {"ColLowerBound", 0},
                           {"ColUpperBound", cols - 1},
                           {"UsingViewPort", a.usingViewPort},
                           {"TableStartRow", a.startRow},
                           {"TableEndRow", a.endRow},
                           {"TableStartCol", a.startCol},
                           {"TableEndCol", a.endCol},
                           {"TableDataList", elements}};
    }

    // Makes the fake debugger answer from this array.
    void serve(fake::Debugger& debugger) {
        debugger.respond(rig::INFO_REQUEST, [this](const QObject& r) { return info(r); });
        debugger.respond(rig::TABLE_REQUEST, [this](const QObject& r) { return table(r); });
    }
};

// What the Data Table reported, in order.
struct TableSignals {
    explicit TableSignals(Data2DTableUI& t) {
        QObject::connect(&t, &Data2DTableUI::data2DTableError, [this](const QString& e) {
            order << QStringLiteral("error");
            errors << e;
        });
        QObject::connect(&t, &Data2DTableUI::data2DTableStaleData,
                         [this] { order << QStringLiteral("stale"); });
        QObject::connect(&t, &Data2DTableUI::data2DTableSuccess,
                         [this](const QString& expr, const QString& slice, const QString&,
                                const QString&, Config2DTable* config, bool canceled) {
                             order << QStringLiteral("success");
                             successes << QStringList{expr, slice};
                             cancels << canceled;
                             configs.append(QSharedPointer<Config2DTable>(config));
                         });
    }
    QStringList order;
    QStringList errors;
    QList<QStringList> successes;
    QList<bool> cancels;
    QList<QSharedPointer<Config2DTable>> configs;
};

// A Data Table of its own, on screen at a known size, next to a full view
// whose controller holds the array's dimensions and bounds.
struct TableRig {
    explicit TableRig(int rows, int cols, QSize size = QSize(400, 300))
        : array(rows, cols), table(r.view, nullptr), reported(table) {
        array.serve(r.debugger());
        table.resize(size);
        table.show();
        exposed = QTest::qWaitForWindowExposed(&table);
        // Showing the table resized it, which asks for data a little later;
        // with nothing on display yet, that comes to nothing. Let it pass.
        exposed = exposed && fake::waitFor([&] { return !table.viewportTimer->isActive(); });
        r.connectDebugger();
        expression = r.makeExpression(QStringLiteral("big"),
                                      QStringLiteral("int[%1][%2]").arg(rows).arg(cols));
    }

    QTableWidget* widget() { return table.table; }
    QScrollBar* vbar() { return table.table->verticalScrollBar(); }
    QScrollBar* hbar() { return table.table->horizontalScrollBar(); }
    int tableRequests() const { return r.sentCount(rig::TABLE_REQUEST); }
    int infoRequests() const { return r.sentCount(rig::INFO_REQUEST); }
    int successes() const { return reported.successes.size(); }

    // Shows the array and waits for the first filled viewport.
    bool showFirst(Config2DTable* config = nullptr) {
        if (!exposed)
            return false;
        const int before = successes();
        table.showData2DTable(expression, config, QString(), QString());
        return fake::waitFor([&] { return successes() > before && !table.requestPending; });
    }
    // Lets timers, answers and deferred deletions run.
    void settle(int ms) {
        fake::waitFor([] { return false; }, ms);
    }
    // Waits until the display is idle: nothing open, nothing queued.
    bool idle(int timeoutMs = 3000) {
        return fake::waitFor(
            [&] { return !table.requestPending && !table.viewportTimer->isActive(); }, timeoutMs);
    }

    int visibleRows() { return widget()->contentsRect().height() / 20; }
    int visibleCols() { return widget()->contentsRect().width() / 20; }

    rig::Rig r;
    LazyArray array;
    Data2DTableUI table;
    TableSignals reported;
    fake::Expression* expression = nullptr;
    bool exposed = false;
};

// The text of a cell, or "<none>" when it holds no item.
inline QString cell(QTableWidget* table, int row, int column) {
    QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QStringLiteral("<none>");
}

inline int itemCount(QTableWidget* table, int rows, int cols) {
    int n = 0;
    for (int r = 0; r < rows && r < table->rowCount(); ++r)
        for (int c = 0; c < cols && c < table->columnCount(); ++c)
            if (table->item(r, c))
                ++n;
    return n;
}

// Notes every progress dialog that is shown while it lives, with the label
// it had at that moment.
struct DialogWatch : QObject {
    DialogWatch() { qApp->installEventFilter(this); }
    ~DialogWatch() override { qApp->removeEventFilter(this); }
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Show)
            if (auto* dialog = qobject_cast<QProgressDialog*>(watched)) {
                ++shown;
                labels << dialog->labelText();
                titles << dialog->windowTitle();
                modal = dialog->isModal();
                minimumWidth = dialog->minimumWidth();
            }
        return false;
    }
    int shown = 0;
    QStringList labels;
    QStringList titles;
    bool modal = false;
    int minimumWidth = 0;
};

} // namespace tabletest
