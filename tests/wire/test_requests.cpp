// The four array requests: ids, the order and value types of their
// properties, the focus fields taken from an expression, and the summaries.

#include "wire/arrayrecords.h"

#include "fakeexpression.h"
#include "qtprinters.h"

#include <QList>
#include <QStringList>
#include <gtest/gtest.h>

#include <vector>

namespace {

QList<QByteArray> namesOf(const HVDWPPacket& packet) {
    return packet.propertyBag->dynamicPropertyNames();
}

std::vector<int> typesOf(const HVDWPPacket& packet) {
    std::vector<int> types;
    for (const QByteArray& name : namesOf(packet))
        types.push_back(packet.propertyBag->property(name.constData()).userType());
    return types;
}

QVariant field(const HVDWPPacket& packet, const char* name) {
    return packet.propertyBag->property(name);
}

void fill(FakeExpression& expression) {
    expression.expression = "matrix";
    expression.focus = "p1.t1.f0";
    expression.scopeId = "scope#12";
    expression.frameRecursionDepth = 2;
    expression.operationArgs = QStringList{"arg0", "arg1"};
    expression.operationKinds = QVariantList{1, 2};
    expression.operationQualifiedArgs = QStringList{"q::arg0", "q::arg1"};
}

const QList<QByteArray> STATISTICS_ORDER{"id",
                                         "token",
                                         "Expression",
                                         "Focus",
                                         "ScopeID",
                                         "FrameRecursionDepth",
                                         "Slice",
                                         "Filter",
                                         "OperationArgs",
                                         "OperationKinds",
                                         "OperationQualifiedArgs"};

const std::vector<int> STATISTICS_TYPES{
    QMetaType::QString,     QMetaType::Int,          QMetaType::QString,    QMetaType::QString,
    QMetaType::QString,     QMetaType::UInt,         QMetaType::QString,    QMetaType::QString,
    QMetaType::QStringList, QMetaType::QVariantList, QMetaType::QStringList};

} // namespace

// ------------------------------------------------------------- focus fields

TEST(FocusFields, ExpressionIsTheAlternateWhenThereIsOne) {
    FakeExpression expression;
    expression.expression = "a";
    expression.hasAlternate = true;
    expression.alternateExpression = "(*a)@10";
    ArrayInfoRequest request;
    request.setFocusFields(&expression);
    EXPECT_EQ(field(request, "Expression").toString(), QString("(*a)@10"));
}

TEST(FocusFields, ExpressionIsThePlainOneWithoutAlternate) {
    FakeExpression expression;
    expression.expression = "a";
    expression.alternateExpression = "ignored";
    ArrayInfoRequest request;
    request.setFocusFields(&expression);
    EXPECT_EQ(field(request, "Expression").toString(), QString("a"));
}

TEST(FocusFields, FocusAndScopeIdAreCopied) {
    FakeExpression expression;
    fill(expression);
    ArrayStatisticsRequest request;
    request.setFocusFields(&expression);
    EXPECT_EQ(field(request, "Focus").toString(), QString("p1.t1.f0"));
    EXPECT_EQ(field(request, "ScopeID").toString(), QString("scope#12"));
}

TEST(FocusFields, FrameRecursionDepthIsAnUnsignedInt) {
    FakeExpression expression;
    expression.frameRecursionDepth = 3000000000u;
    VisEvaluateExpressionRequest request;
    request.setFocusFields(&expression);
    const QVariant depth = field(request, "FrameRecursionDepth");
    EXPECT_EQ(depth.userType(), int(QMetaType::UInt));
    EXPECT_EQ(depth.toUInt(), 3000000000u);
}

TEST(FocusFields, OperationListsArePassedThroughUntouched) {
    FakeExpression expression;
    fill(expression);
    expression.operationKinds = QVariantList{QString("kind"), 7, QVariant()};
    ArrayData2DTableRequest request;
    request.setOperationFields(&expression);
    EXPECT_EQ(field(request, "OperationArgs").toStringList(), expression.operationArgs);
    EXPECT_EQ(field(request, "OperationKinds").toList(), expression.operationKinds);
    EXPECT_EQ(field(request, "OperationQualifiedArgs").toStringList(),
              expression.operationQualifiedArgs);
}

TEST(FocusFields, NullExpressionSetsTheSameFieldsEmpty) {
    ArrayInfoRequest request;
    request.setFields(nullptr);
    EXPECT_EQ(namesOf(request), (QList<QByteArray>{"id", "token", "Expression", "Focus", "ScopeID",
                                                   "FrameRecursionDepth", "OperationArgs",
                                                   "OperationKinds", "OperationQualifiedArgs"}));
    EXPECT_EQ(field(request, "Expression").toString(), QString());
    EXPECT_EQ(field(request, "FrameRecursionDepth").userType(), int(QMetaType::UInt));
    EXPECT_TRUE(field(request, "OperationKinds").toList().isEmpty());
}

// ---------------------------------------------------------------- statistics

TEST(ArrayStatisticsRequest, FreshRequestHasOnlyIdAndTokenZero) {
    ArrayStatisticsRequest request;
    EXPECT_EQ(namesOf(request), (QList<QByteArray>{"id", "token"}));
    EXPECT_EQ(request.getID(), QString("ArrayStatisticsRequest"));
    EXPECT_EQ(field(request, "token"), QVariant(0));
    EXPECT_EQ(field(request, "token").userType(), int(QMetaType::Int));
}

TEST(ArrayStatisticsRequest, BuilderOrderGivesPropertiesInWireOrder) {
    FakeExpression expression;
    fill(expression);
    ArrayStatisticsRequest request;
    request.setFocusFields(&expression);
    request.setSlice("[0:9]");
    request.setFilter("$value > 0");
    request.setOperationFields(&expression);
    EXPECT_EQ(namesOf(request), STATISTICS_ORDER);
    EXPECT_EQ(typesOf(request), STATISTICS_TYPES);
    EXPECT_EQ(field(request, "Slice").toString(), QString("[0:9]"));
    EXPECT_EQ(field(request, "Filter").toString(), QString("$value > 0"));
}

TEST(ArrayStatisticsRequest, SetFieldsGivesTheSameOrderAndTypes) {
    FakeExpression expression;
    fill(expression);
    ArrayStatisticsRequest request;
    request.setFields(&expression, QString(), QString());
    EXPECT_EQ(namesOf(request), STATISTICS_ORDER);
    EXPECT_EQ(typesOf(request), STATISTICS_TYPES);
    // Empty slice and filter are sent as empty texts, not left out.
    EXPECT_TRUE(field(request, "Slice").isValid());
    EXPECT_TRUE(field(request, "Filter").isValid());
}

TEST(ArrayStatisticsRequest, UsesTheBaseSummaryInSettingOrder) {
    FakeExpression expression;
    fill(expression);
    ArrayStatisticsRequest request;
    request.setFields(&expression, "[1:2]", QString());
    EXPECT_EQ(request.summary(),
              QString("ArrayStatisticsRequest (0) - id = ArrayStatisticsRequest, token = 0, "
                      "Expression = matrix, Focus = p1.t1.f0, ScopeID = scope#12, "
                      "FrameRecursionDepth = 2, Slice = [1:2], Filter = , OperationArgs = , "
                      "OperationKinds = , OperationQualifiedArgs = "));
}

// ----------------------------------------------------------------- plot data

TEST(VisEvaluateExpressionRequest, HasTheStatisticsFieldsUnderItsOwnId) {
    FakeExpression expression;
    fill(expression);
    VisEvaluateExpressionRequest request;
    request.setFocusFields(&expression);
    request.setSlice("(1:10)");
    request.setFilter(QString());
    request.setOperationFields(&expression);
    EXPECT_EQ(request.getID(), QString("VisEvaluateExpressionRequest"));
    EXPECT_EQ(request.getToken(), 0);
    EXPECT_EQ(namesOf(request), STATISTICS_ORDER);
    EXPECT_EQ(typesOf(request), STATISTICS_TYPES);
}

TEST(VisEvaluateExpressionRequest, SetFieldsGivesTheSameOrder) {
    FakeExpression expression;
    VisEvaluateExpressionRequest request;
    request.setFields(&expression, "[0:4]", "f");
    EXPECT_EQ(namesOf(request), STATISTICS_ORDER);
}

// --------------------------------------------------------- array information

TEST(ArrayInfoRequest, BuilderOrderGivesPropertiesInWireOrder) {
    FakeExpression expression;
    fill(expression);
    ArrayInfoRequest request;
    request.setFocusFields(&expression);
    request.setOperationFields(&expression);
    EXPECT_EQ(request.getID(), QString("ArrayInfoRequest"));
    EXPECT_EQ(namesOf(request), (QList<QByteArray>{"id", "token", "Expression", "Focus", "ScopeID",
                                                   "FrameRecursionDepth", "OperationArgs",
                                                   "OperationKinds", "OperationQualifiedArgs"}));
    EXPECT_EQ(typesOf(request),
              (std::vector<int>{QMetaType::QString, QMetaType::Int, QMetaType::QString,
                                QMetaType::QString, QMetaType::QString, QMetaType::UInt,
                                QMetaType::QStringList, QMetaType::QVariantList,
                                QMetaType::QStringList}));
}

TEST(ArrayInfoRequest, HasNoSliceOrFilterPropertyAtAll) {
    FakeExpression expression;
    fill(expression);
    ArrayInfoRequest request;
    request.setFields(&expression);
    EXPECT_FALSE(field(request, "Slice").isValid());
    EXPECT_FALSE(field(request, "Filter").isValid());
    const QString baseSummary = request.HVDWPPacket::summary();
    EXPECT_FALSE(baseSummary.contains("Slice"));
    EXPECT_FALSE(baseSummary.contains("Filter"));
    EXPECT_TRUE(baseSummary.contains("ScopeID = scope#12"));
}

TEST(ArrayInfoRequest, SummaryText) {
    FakeExpression expression;
    fill(expression);
    ArrayInfoRequest request;
    request.setFields(&expression);
    EXPECT_EQ(request.summary(),
              QString("ArrayInfoRequest - Focus: p1.t1.f0, ScopeID: scope#12 Expression: matrix "));
}

TEST(ArrayInfoRequest, SummaryOfFreshRequestHasEmptyPlaces) {
    ArrayInfoRequest request;
    EXPECT_EQ(request.summary(), QString("ArrayInfoRequest - Focus: , ScopeID:  Expression:  "));
}

TEST(ArrayInfoRequest, SummaryPlaceMarkerInsideValueIsFilledByNextArgument) {
    FakeExpression expression;
    expression.focus = "f%2";
    expression.scopeId = "S";
    expression.expression = "E";
    ArrayInfoRequest request;
    request.setFields(&expression);
    EXPECT_EQ(request.summary(),
              QString("ArrayInfoRequest - Focus: fS, ScopeID: S Expression: E "));
}

// ---------------------------------------------------------------- data table

namespace {

ArrayData2DTableRequest builtTableRequest(FakeExpression& expression) {
    ArrayData2DTableRequest request;
    request.setFocusFields(&expression);
    request.setSlice("[0:9][0:4]");
    request.setOperationFields(&expression);
    request.setRowDim(-1);
    request.setColDim(1);
    request.setDataFormat(3);
    request.setFilter("$value != 0");
    request.setRequestViewport(true, 0, 40, 2, 30);
    return request;
}

} // namespace

TEST(ArrayData2DTableRequest, BuilderOrderGivesPropertiesInWireOrder) {
    FakeExpression expression;
    fill(expression);
    const ArrayData2DTableRequest request = builtTableRequest(expression);
    EXPECT_EQ(request.getID(), QString("ArrayData2DTableRequest"));
    EXPECT_EQ(
        namesOf(request),
        (QList<QByteArray>{"id", "token", "Expression", "Focus", "ScopeID", "FrameRecursionDepth",
                           "Slice", "OperationArgs", "OperationKinds", "OperationQualifiedArgs",
                           "RowDim", "ColDim", "DataFormat", "Filter", "UsingViewPort",
                           "TableStartRow", "TableEndRow", "TableStartCol", "TableEndCol"}));
    EXPECT_EQ(typesOf(request),
              (std::vector<int>{QMetaType::QString, QMetaType::Int, QMetaType::QString,
                                QMetaType::QString, QMetaType::QString, QMetaType::UInt,
                                QMetaType::QString, QMetaType::QStringList, QMetaType::QVariantList,
                                QMetaType::QStringList, QMetaType::Int, QMetaType::Int,
                                QMetaType::Int, QMetaType::QString, QMetaType::Bool, QMetaType::Int,
                                QMetaType::Int, QMetaType::Int, QMetaType::Int}));
}

TEST(ArrayData2DTableRequest, SetRequestViewportSetsAllFiveValues) {
    ArrayData2DTableRequest request;
    request.setRequestViewport(true, 5, 60, -1, -1);
    EXPECT_EQ(namesOf(request), (QList<QByteArray>{"id", "token", "UsingViewPort", "TableStartRow",
                                                   "TableEndRow", "TableStartCol", "TableEndCol"}));
    EXPECT_EQ(field(request, "UsingViewPort"), QVariant(true));
    EXPECT_EQ(field(request, "TableStartRow"), QVariant(5));
    EXPECT_EQ(field(request, "TableEndRow"), QVariant(60));
    EXPECT_EQ(field(request, "TableStartCol"), QVariant(-1));
    EXPECT_EQ(field(request, "TableEndCol"), QVariant(-1));
}

TEST(ArrayData2DTableRequest, SummaryText) {
    FakeExpression expression;
    fill(expression);
    const ArrayData2DTableRequest request = builtTableRequest(expression);
    EXPECT_EQ(request.summary(),
              QString("ArrayData2DTableRequest - Focus: p1.t1.f0, ScopeID: scope#12 Expression: "
                      "matrix Slice: [0:9][0:4]  Row Dim: -1  Col Dim: 1 AL Format: 3"));
}

TEST(ArrayData2DTableRequest, ViewportSummaryPrintsBoolAsOneAndEndsInTwoBlanks) {
    FakeExpression expression;
    const ArrayData2DTableRequest request = builtTableRequest(expression);
    EXPECT_EQ(request.viewport_summary(),
              QString("ArrayData2DTableRequest Viewport - UsingViewPort: 1 TableStartRow: 0, "
                      "TableEndRow: 40 TableStartCol: 2 TableEndCol: 30  "));
}

TEST(ArrayData2DTableRequest, ViewportSummaryWithoutViewportReadsZeros) {
    ArrayData2DTableRequest request;
    EXPECT_EQ(request.viewport_summary(),
              QString("ArrayData2DTableRequest Viewport - UsingViewPort: 0 TableStartRow: 0, "
                      "TableEndRow: 0 TableStartCol: 0 TableEndCol: 0  "));
}

TEST(ArrayData2DTableRequest, SummaryIsVirtualThroughThePacketBase) {
    ArrayData2DTableRequest request;
    request.setSlice("[1:1][2:2]");
    const HVDWPPacket& packet = request;
    EXPECT_EQ(packet.summary(),
              QString("ArrayData2DTableRequest - Focus: , ScopeID:  Expression:  Slice: "
                      "[1:1][2:2]  Row Dim: 0  Col Dim: 0 AL Format: 0"));
}
