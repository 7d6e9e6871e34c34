// The four array responses: what their readers give for present, missing
// and oddly typed properties, and the summaries of the ones that have their
// own.

#include "wire/arrayrecords.h"

#include "qtprinters.h"

#include <QBitArray>
#include <QVariantMap>
#include <gtest/gtest.h>

#include <cstring>

namespace {

QSharedPointer<QObject> bagWith(std::initializer_list<std::pair<const char*, QVariant>> fields) {
    QSharedPointer<QObject> bag = HVDWPPacket::makeBag();
    for (const auto& f : fields)
        bag->setProperty(f.first, f.second);
    return bag;
}

QVariant wrapped(const QVariant& inner) {
    return QVariant(QMetaType::QVariant, &inner);
}

QVariantMap cell(int row, int col, const QString& value) {
    return QVariantMap{{"row", row}, {"col", col}, {"value", value}};
}

QByteArray packedDoubles(std::initializer_list<double> values) {
    QByteArray bytes;
    for (double v : values) {
        char raw[sizeof(double)];
        std::memcpy(raw, &v, sizeof raw);
        bytes.append(raw, sizeof raw);
    }
    return bytes;
}

} // namespace

// ---------------------------------------------------------------- statistics

TEST(ArrayStatisticsResponse, MissingCountReadsAsZero) {
    ArrayStatisticsResponse response(bagWith({{"result", QString("done")}}));
    EXPECT_EQ(response.getCount(), 0);
    EXPECT_FALSE(response.isErrorResult());
}

TEST(ArrayStatisticsResponse, ExitAnswerReadsAsSuccessWithDefaults) {
    ArrayStatisticsResponse response(HVDWPPacket::makeBag());
    response.setExitResult();
    EXPECT_FALSE(response.isErrorResult());
    EXPECT_EQ(response.getCount(), 0);
    EXPECT_TRUE(response.getStatValid().isEmpty());
    EXPECT_FALSE(response.getSum().isValid());
}

TEST(ArrayStatisticsResponse, ReadersOfFixedTypes) {
    QBitArray valid(16);
    valid.setBit(1);
    valid.setBit(15);
    ArrayStatisticsResponse response(bagWith({{"Checksum", QVariant(qlonglong(9000000000LL))},
                                              {"Count", 100},
                                              {"ZeroCount", 3},
                                              {"Median", 2.5},
                                              {"Mean", 3.25},
                                              {"StdDev", 0.5},
                                              {"FirstQuartile", 1.0},
                                              {"ThirdQuartile", 4.0},
                                              {"NanCount", 4},
                                              {"InfCount", 5},
                                              {"DenormCount", 6},
                                              {"StatValid", valid},
                                              {"IsStale", true},
                                              {"Array", QString("arr")},
                                              {"EmptySlice", QString("[0:99]")},
                                              {"ActualType", QString("int[100]")},
                                              {"Filter", QString("$value > 1")}}));
    EXPECT_EQ(response.getChecksum(), 9000000000LL);
    EXPECT_EQ(response.getCount(), 100);
    EXPECT_EQ(response.getZeroCount(), 3);
    EXPECT_DOUBLE_EQ(response.getMedian(), 2.5);
    EXPECT_DOUBLE_EQ(response.getMean(), 3.25);
    EXPECT_DOUBLE_EQ(response.getStdDev(), 0.5);
    EXPECT_DOUBLE_EQ(response.getFirstQuartile(), 1.0);
    EXPECT_DOUBLE_EQ(response.getThirdQuartile(), 4.0);
    EXPECT_EQ(response.getNanCount(), 4);
    EXPECT_EQ(response.getInfCount(), 5);
    EXPECT_EQ(response.getDenormCount(), 6);
    EXPECT_EQ(response.getStatValid(), valid);
    EXPECT_TRUE(response.isStale());
    EXPECT_EQ(response.getArray(), QString("arr"));
    EXPECT_EQ(response.getEmptySlice(), QString("[0:99]"));
    EXPECT_EQ(response.getActualType(), QString("int[100]"));
    EXPECT_EQ(response.getFilter(), QString("$value > 1"));
}

TEST(ArrayStatisticsResponse, FixedTypesConvertOrFallBackToZero) {
    ArrayStatisticsResponse response(bagWith({{"Count", QString("12")},
                                              {"ZeroCount", QString("many")},
                                              {"Mean", QString("1.5")},
                                              {"Checksum", 77}}));
    EXPECT_EQ(response.getCount(), 12);
    EXPECT_EQ(response.getZeroCount(), 0);
    EXPECT_DOUBLE_EQ(response.getMean(), 1.5);
    EXPECT_EQ(response.getChecksum(), 77);
}

TEST(ArrayStatisticsResponse, WrappedSumIsTakenOutOfItsWrapper) {
    const QVariant inner(qlonglong(123456789012LL));
    ArrayStatisticsResponse response(bagWith({{"Sum", wrapped(inner)}}));
    // The bag really holds a QVariant inside a QVariant.
    ASSERT_EQ(response.propertyBag->property("Sum").userType(), int(QMetaType::QVariant));
    const QVariant sum = response.getSum();
    EXPECT_EQ(sum.userType(), int(QMetaType::LongLong));
    EXPECT_EQ(sum.toLongLong(), 123456789012LL);
}

TEST(ArrayStatisticsResponse, AllFiveValuesOfAnyTypeAreUnwrapped) {
    ArrayStatisticsResponse response(bagWith({{"Sum", wrapped(QVariant(1.5))},
                                              {"Min", wrapped(QVariant(-3))},
                                              {"Max", wrapped(QVariant(uint(7)))},
                                              {"LowerAdjValue", wrapped(QVariant(float(0.25f)))},
                                              {"UpperAdjValue", wrapped(QVariant(QString("x")))}}));
    EXPECT_EQ(response.getSum(), QVariant(1.5));
    EXPECT_EQ(response.getMin(), QVariant(-3));
    EXPECT_EQ(response.getMax().userType(), int(QMetaType::UInt));
    EXPECT_EQ(response.getLowerAdjValue().userType(), int(QMetaType::Float));
    EXPECT_EQ(response.getUpperAdjValue(), QVariant(QString("x")));
}

TEST(ArrayStatisticsResponse, UnwrappedValuesPassAsTheyStand) {
    ArrayStatisticsResponse response(bagWith(
        {{"Min", QVariant(float(-1.5f))}, {"Max", QVariant(qulonglong(18000000000000000000ULL))}}));
    EXPECT_EQ(response.getMin().userType(), int(QMetaType::Float));
    EXPECT_EQ(response.getMax().userType(), int(QMetaType::ULongLong));
    EXPECT_EQ(response.getMax().toULongLong(), 18000000000000000000ULL);
    EXPECT_FALSE(response.getUpperAdjValue().isValid());
}

TEST(ArrayStatisticsResponse, UsesTheBaseSummary) {
    ArrayStatisticsResponse response(HVDWPPacket::makeBag());
    response.setErrorResult("failed", "3");
    EXPECT_EQ(response.summary(), QString(" () - result = error, msg = failed, code = 3"));
}

// --------------------------------------------------------- array information

TEST(ArrayInfoResponse, Readers) {
    ArrayInfoResponse response(bagWith({{"ArrayName", QString("arr")},
                                        {"Focus", QString("F")},
                                        {"Expression", QString("arr")},
                                        {"EmptySlice", QString("[0:9][0:4]")},
                                        {"DimCount", 2},
                                        {"DataType", QString("1")},
                                        {"ActualType", QString("int[10][5]")},
                                        {"ArrayBounds", QStringList{"0:9", "0:4"}},
                                        {"IsStale", false}}));
    EXPECT_EQ(response.getArrayName(), QString("arr"));
    EXPECT_EQ(response.getFocus(), QString("F"));
    EXPECT_EQ(response.getExpression(), QString("arr"));
    EXPECT_EQ(response.getEmptySlice(), QString("[0:9][0:4]"));
    EXPECT_EQ(response.getDimCount(), 2);
    EXPECT_EQ(response.getDataType(), 1);
    EXPECT_EQ(response.getActualType(), QString("int[10][5]"));
    EXPECT_EQ(response.getArrayBounds(), (QStringList{"0:9", "0:4"}));
    EXPECT_FALSE(response.isStale());
}

TEST(ArrayInfoResponse, BoundsSentAsVariantListOfTextsReadAsStringList) {
    ArrayInfoResponse response(bagWith({{"ArrayBounds", QVariantList{"1:10", "1:3"}}}));
    EXPECT_EQ(response.getArrayBounds(), (QStringList{"1:10", "1:3"}));
}

TEST(ArrayInfoResponse, SummaryText) {
    ArrayInfoResponse response(bagWith({{"ArrayName", QString("arr")},
                                        {"Focus", QString("F")},
                                        {"Expression", QString("arr")},
                                        {"EmptySlice", QString("[0:9][0:4]")},
                                        {"DimCount", 2},
                                        {"DataType", 1},
                                        {"ArrayBounds", QStringList{"0:9", "0:4"}}}));
    EXPECT_EQ(response.summary(),
              QString("ArrayInfoResponse - Array Name: arr Focus: F, Expression: arr  EmptySlice: "
                      "[0:9][0:4]  Dim Count: 2  AL Type: 1 Array Bounds: 0:9 0:4 Err Msg: "));
}

TEST(ArrayInfoResponse, SummaryWithoutArrayBoundsPrintsNothingAfterArrayBounds) {
    ArrayInfoResponse response(bagWith({{"ArrayName", QString("arr")},
                                        {"Focus", QString("F")},
                                        {"Expression", QString("arr")},
                                        {"EmptySlice", QString("[0:9]")},
                                        {"DimCount", 1},
                                        {"DataType", 0}}));
    response.setErrorResult("gone", "1");
    EXPECT_EQ(response.summary(),
              QString("ArrayInfoResponse - Array Name: arr Focus: F, Expression: arr  EmptySlice: "
                      "[0:9]  Dim Count: 1  AL Type: 0 Array Bounds:  Err Msg: gone"));
}

// ---------------------------------------------------------------- data table

namespace {

QSharedPointer<QObject> tableAnswer() {
    return bagWith(
        {{"ArrayName", QString("arr")},
         {"Focus", QString("F")},
         {"Expression", QString("a[0]")},
         {"Slice", QString("[0:3][0:3]")},
         {"DimCount", 2},
         {"RowDim", 0},
         {"ColDim", 1},
         {"RowCount", 4},
         {"ColCount", 4},
         {"TableDataList", QVariantList{cell(0, 0, "1"), cell(0, 1, "2"), cell(1, 0, "3")}},
         {"DataFormat", 3},
         {"DataType", 1},
         {"ActualType", QString("int[4][4]")},
         {"Filter", QString("")},
         {"IsStale", false},
         {"UsingViewPort", true},
         {"TableStartRow", 0},
         {"TableEndRow", 40},
         {"TableStartCol", 2},
         {"TableEndCol", 30},
         {"RowOffset", 3},
         {"VisibleRowCount", 25},
         {"ColOffset", 4},
         {"VisibleColCount", 12},
         {"DataStartRow", 0},
         {"DataEndRow", 40},
         {"DataStartCol", 2},
         {"DataEndCol", 30},
         {"RowStride", 1},
         {"RowLowerBound", 0},
         {"RowUpperBound", 3},
         {"ColStride", 2},
         {"ColLowerBound", 1},
         {"ColUpperBound", 7}});
}

} // namespace

TEST(ArrayData2DTableResponse, MissingUsingViewPortReadsFalseAndViewportZero) {
    ArrayData2DTableResponse response(bagWith({{"result", QString("done")}}));
    EXPECT_FALSE(response.getUsingViewPort());
    EXPECT_EQ(response.getTableStartRow(), 0);
    EXPECT_EQ(response.getTableEndRow(), 0);
    EXPECT_EQ(response.getTableStartCol(), 0);
    EXPECT_EQ(response.getTableEndCol(), 0);
}

TEST(ArrayData2DTableResponse, ViewportAccessors) {
    ArrayData2DTableResponse response(tableAnswer());
    EXPECT_TRUE(response.getUsingViewPort());
    EXPECT_EQ(response.getTableStartRow(), 0);
    EXPECT_EQ(response.getTableEndRow(), 40);
    EXPECT_EQ(response.getTableStartCol(), 2);
    EXPECT_EQ(response.getTableEndCol(), 30);
}

TEST(ArrayData2DTableResponse, RecordReaders) {
    ArrayData2DTableResponse response(tableAnswer());
    EXPECT_EQ(response.getArrayName(), QString("arr"));
    EXPECT_EQ(response.getSlice(), QString("[0:3][0:3]"));
    EXPECT_EQ(response.getDimCount(), 2);
    EXPECT_EQ(response.getRowDim(), 0);
    EXPECT_EQ(response.getColDim(), 1);
    EXPECT_EQ(response.getRowCount(), 4);
    EXPECT_EQ(response.getColCount(), 4);
    EXPECT_EQ(response.getDataFormat(), 3);
    EXPECT_EQ(response.getDataType(), 1);
    EXPECT_EQ(response.getActualType(), QString("int[4][4]"));
    EXPECT_FALSE(response.isStale());
    EXPECT_EQ(response.getRowStride(), 1);
    EXPECT_EQ(response.getRowUpperBound(), 3);
    EXPECT_EQ(response.getColStride(), 2);
    EXPECT_EQ(response.getColLowerBound(), 1);
    EXPECT_EQ(response.getColUpperBound(), 7);
    const QVariantList cells = response.getTableDataList();
    ASSERT_EQ(cells.size(), 3);
    const QVariantMap last = cells.at(2).toMap();
    EXPECT_EQ(last.value("row").toInt(), 1);
    EXPECT_EQ(last.value("col").toInt(), 0);
    EXPECT_EQ(last.value("value").toString(), QString("3"));
}

TEST(ArrayData2DTableResponse, EchoedSettingsReadableOnAnErrorAnswer) {
    QSharedPointer<QObject> bag = bagWith({{"Slice", QString("[0:1][0:1]")},
                                           {"RowDim", 1},
                                           {"ColDim", 0},
                                           {"DataFormat", 4},
                                           {"DataType", 0}});
    ArrayData2DTableResponse response(bag);
    response.setErrorResult("fetch cancelled", "5");
    EXPECT_TRUE(response.isErrorResult());
    EXPECT_EQ(response.getSlice(), QString("[0:1][0:1]"));
    EXPECT_EQ(response.getRowDim(), 1);
    EXPECT_EQ(response.getColDim(), 0);
    EXPECT_EQ(response.getDataFormat(), 4);
}

TEST(ArrayData2DTableResponse, SummaryText) {
    ArrayData2DTableResponse response(tableAnswer());
    EXPECT_EQ(response.summary(),
              QString("ArrayData2DTableResponse - Array Name: arr Focus: F, Expression: a[0] "
                      "Slice: [0:3][0:3]  Dim Count: 2 Row Dim: 0  Col Dim: 1  Row Count: 4 "
                      "Col Count: 4  Item Count: 3  AL Format: 3  AL Type: 1 Err Msg: "));
}

TEST(ArrayData2DTableResponse, SummaryOfEmptyErrorAnswer) {
    ArrayData2DTableResponse response(HVDWPPacket::makeBag());
    response.setErrorResult("no data", "2");
    EXPECT_EQ(response.summary(),
              QString("ArrayData2DTableResponse - Array Name:  Focus: , Expression:  Slice:   Dim "
                      "Count: 0 Row Dim: 0  Col Dim: 0  Row Count: 0 Col Count: 0  Item Count: 0  "
                      "AL Format: 0  AL Type: 0 Err Msg: no data"));
}

TEST(ArrayData2DTableResponse, SummaryPlaceMarkerInsideValueIsFilledByNextArgument) {
    QSharedPointer<QObject> bag = tableAnswer();
    bag->setProperty("ArrayName", QString("x%2y"));
    ArrayData2DTableResponse response(bag);
    EXPECT_EQ(response.summary(),
              QString("ArrayData2DTableResponse - Array Name: xFy Focus: F, Expression: a[0] "
                      "Slice: [0:3][0:3]  Dim Count: 2 Row Dim: 0  Col Dim: 1  Row Count: 4 "
                      "Col Count: 4  Item Count: 3  AL Format: 3  AL Type: 1 Err Msg: "));
}

TEST(ArrayData2DTableResponse, ViewportSummaryIsTwoTextsSideBySide) {
    ArrayData2DTableResponse response(tableAnswer());
    EXPECT_EQ(response.viewport_summary(),
              QString("ArrayData2DTableResponse Viewport - Using ViewPort: 1 TableStartRow: 0, "
                      "TableEndRow: 40 RowOffset: 3 VisibleRowCount: 25 TableStartCol: 2 "
                      "TableEndCol: 30  ColOffset: 4 VisibleColCount: 12 DataStartRow: 0, "
                      "DataEndRow: 40 DataStartCol: 2 DataEndCol: 30"));
}

TEST(ArrayData2DTableResponse, ViewportSummaryWithoutViewportPrintsZeros) {
    ArrayData2DTableResponse response(HVDWPPacket::makeBag());
    EXPECT_EQ(response.viewport_summary(),
              QString("ArrayData2DTableResponse Viewport - Using ViewPort: 0 TableStartRow: 0, "
                      "TableEndRow: 0 RowOffset: 0 VisibleRowCount: 0 TableStartCol: 0 "
                      "TableEndCol: 0  ColOffset: 0 VisibleColCount: 0 DataStartRow: 0, "
                      "DataEndRow: 0 DataStartCol: 0 DataEndCol: 0"));
}

TEST(ArrayData2DTableResponse, PositionReadersForViewportSummary) {
    ArrayData2DTableResponse response(tableAnswer());
    EXPECT_EQ(response.getRowOffset(), 3);
    EXPECT_EQ(response.getVisibleRowCount(), 25);
    EXPECT_EQ(response.getColOffset(), 4);
    EXPECT_EQ(response.getVisibleColCount(), 12);
    EXPECT_EQ(response.getDataStartRow(), 0);
    EXPECT_EQ(response.getDataEndRow(), 40);
    EXPECT_EQ(response.getDataStartCol(), 2);
    EXPECT_EQ(response.getDataEndCol(), 30);
}

// ----------------------------------------------------------------- plot data

TEST(VisEvaluateExpressionResponse, FifteenBytesCountAsOneElement) {
    VisEvaluateExpressionResponse response(bagWith({{"AllEvaluations", QByteArray(15, '\0')}}));
    EXPECT_EQ(response.getAllEvaluations().size(), 15);
    EXPECT_EQ(response.getElementCount(), 1);
}

TEST(VisEvaluateExpressionResponse, MissingEvaluationsCountZero) {
    VisEvaluateExpressionResponse response(bagWith({{"Rank", 1}}));
    EXPECT_TRUE(response.getAllEvaluations().isEmpty());
    EXPECT_EQ(response.getElementCount(), 0);
}

TEST(VisEvaluateExpressionResponse, ValuesArePackedDoubles) {
    const QByteArray block = packedDoubles({1.5, -2.25, 1e300});
    VisEvaluateExpressionResponse response(bagWith({{"AllEvaluations", block},
                                                    {"Rank", 2},
                                                    {"Rows", 1},
                                                    {"Cols", 3},
                                                    {"ActualType", QString("double[1][3]")},
                                                    {"EmptySlice", QString("[0:0][0:2]")}}));
    ASSERT_EQ(response.getElementCount(), 3);
    const QByteArray bytes = response.getAllEvaluations();
    double values[3];
    std::memcpy(values, bytes.constData(), sizeof values);
    EXPECT_DOUBLE_EQ(values[0], 1.5);
    EXPECT_DOUBLE_EQ(values[1], -2.25);
    EXPECT_DOUBLE_EQ(values[2], 1e300);
    EXPECT_EQ(response.getRank(), 2);
    EXPECT_EQ(response.getRows(), 1);
    EXPECT_EQ(response.getCols(), 3);
    EXPECT_EQ(response.getActualType(), QString("double[1][3]"));
    EXPECT_EQ(response.getEmptySlice(), QString("[0:0][0:2]"));
}

TEST(VisEvaluateExpressionResponse, NonIntegerRankReadsZero) {
    VisEvaluateExpressionResponse response(bagWith({{"Rank", QString("two")}}));
    EXPECT_EQ(response.getRank(), 0);
}
