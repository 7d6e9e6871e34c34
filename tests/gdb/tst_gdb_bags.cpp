// Request and response bags of tables past 2^31 rows, read and written
// without a debugger: every extent, bound and index arrives whole.
#include "arrayoperations.h"

#include <QObject>

#include <gtest/gtest.h>

using namespace arraylens::gdb;

namespace {

QVariant fieldOf(const Fields& f, const char* name) {
    for (const auto& kv : f)
        if (kv.first == name)
            return kv.second;
    return {};
}

TEST(Bags, WideViewportAndDimensionsReachTheEngineWhole) {
    QObject bag;
    bag.setProperty("id", QStringLiteral("ArrayData2DTableRequest"));
    bag.setProperty("RowDim", QVariant(qlonglong(1) << 40));
    bag.setProperty("ColDim", 0);
    bag.setProperty("UsingViewPort", true);
    bag.setProperty("TableStartRow", QVariant(qlonglong(2999999990LL)));
    bag.setProperty("TableEndRow", QVariant(qlonglong(2999999999LL)));
    bag.setProperty("TableStartCol", 0);
    bag.setProperty("TableEndCol", 3);
    const RequestSnapshot r = RequestSnapshot::fromBag(&bag);
    EXPECT_EQ(r.operation, Operation::Table);
    EXPECT_EQ(r.rowDim, qint64(1) << 40);
    EXPECT_EQ(r.colDim, 0);
    EXPECT_EQ(r.startRow, 2999999990LL);
    EXPECT_EQ(r.endRow, 2999999999LL);
    EXPECT_EQ(r.endCol, 3);
    // The settings echoed on a refusal keep their width too.
    const Fields refused = stoppedFields(r);
    EXPECT_EQ(fieldOf(refused, "RowDim"), QVariant(qlonglong(1) << 40));
    EXPECT_EQ(fieldOf(refused, "ColDim").userType(), int(QMetaType::Int));
}

TEST(Bags, TableAnswerPastTwoToTheThirtyOne) {
    arraylens::Table t;
    t.dimCount = 1;
    t.rowDim = 0;
    t.colDim = -1;
    t.rowCount = 3000000000LL;
    t.colCount = 1;
    t.rowLowerBound = 0;
    t.rowUpperBound = 2999999999LL;
    t.usingViewPort = true;
    t.tableStartRow = t.rowOffset = t.dataStartRow = 2999999998LL;
    t.tableEndRow = t.dataEndRow = 2999999999LL;
    t.tableStartCol = t.tableEndCol = 0;
    t.visibleRowCount = 2;
    t.visibleColCount = 1;
    t.cells = {"97 'a'", "98 'b'"};
    const Fields f = tableAnswer(RequestSnapshot{}, QStringLiteral("char [3000000000]"), t);
    EXPECT_EQ(fieldOf(f, "RowCount"), QVariant(qlonglong(3000000000LL)));
    EXPECT_EQ(fieldOf(f, "RowUpperBound"), QVariant(qlonglong(2999999999LL)));
    EXPECT_EQ(fieldOf(f, "TableStartRow"), QVariant(qlonglong(2999999998LL)));
    EXPECT_EQ(fieldOf(f, "DataEndRow"), QVariant(qlonglong(2999999999LL)));
    // What fits stays an int, as the plug-in reads it.
    EXPECT_EQ(fieldOf(f, "ColCount"), QVariant(1));
    EXPECT_EQ(fieldOf(f, "ColCount").userType(), int(QMetaType::Int));
    EXPECT_EQ(fieldOf(f, "VisibleRowCount").userType(), int(QMetaType::Int));
    const QVariantList cells = fieldOf(f, "TableDataList").toList();
    ASSERT_EQ(cells.size(), 2);
    EXPECT_EQ(cells[1].toMap().value("row"), QVariant(qlonglong(2999999999LL)));
    EXPECT_EQ(cells[1].toMap().value("col"), QVariant(0));
    EXPECT_EQ(cells[1].toMap().value("value").toString(), QStringLiteral("98 'b'"));
}

} // namespace
