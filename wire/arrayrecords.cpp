#include "wire/arrayrecords.h"

namespace {

// The five statistics of any type may arrive wrapped in a QVariant of their
// own; the reader passes on what is inside.
QVariant unwrapped(const QVariant& value) {
    if (value.userType() == QMetaType::QVariant)
        return *static_cast<const QVariant*>(value.constData());
    return value;
}

// Booleans print as 1 or 0 in the diagnostics.
int bit(bool value) {
    return value ? 1 : 0;
}

} // namespace

// ---------------------------------------------------------------- statistics

ArrayStatisticsRequest::ArrayStatisticsRequest() : HVDWPRequest("ArrayStatisticsRequest", 0) {}

ArrayStatisticsRequest::~ArrayStatisticsRequest() = default;

void ArrayStatisticsRequest::setSlice(const QString& slice) {
    setValue("Slice", slice);
}

void ArrayStatisticsRequest::setFilter(const QString& filter) {
    setValue("Filter", filter);
}

ArrayStatisticsResponse::ArrayStatisticsResponse(QSharedPointer<QObject> bag)
    : HVDWPResponse(std::move(bag)) {}

ArrayStatisticsResponse::~ArrayStatisticsResponse() = default;

qlonglong ArrayStatisticsResponse::getChecksum() const {
    return value("Checksum").value<qlonglong>();
}
int ArrayStatisticsResponse::getCount() const {
    return value("Count").value<int>();
}
int ArrayStatisticsResponse::getZeroCount() const {
    return value("ZeroCount").value<int>();
}
QVariant ArrayStatisticsResponse::getSum() const {
    return unwrapped(value("Sum"));
}
QVariant ArrayStatisticsResponse::getMin() const {
    return unwrapped(value("Min"));
}
QVariant ArrayStatisticsResponse::getMax() const {
    return unwrapped(value("Max"));
}
double ArrayStatisticsResponse::getMedian() const {
    return value("Median").value<double>();
}
double ArrayStatisticsResponse::getMean() const {
    return value("Mean").value<double>();
}
double ArrayStatisticsResponse::getStdDev() const {
    return value("StdDev").value<double>();
}
double ArrayStatisticsResponse::getFirstQuartile() const {
    return value("FirstQuartile").value<double>();
}
double ArrayStatisticsResponse::getThirdQuartile() const {
    return value("ThirdQuartile").value<double>();
}
QVariant ArrayStatisticsResponse::getLowerAdjValue() const {
    return unwrapped(value("LowerAdjValue"));
}
QVariant ArrayStatisticsResponse::getUpperAdjValue() const {
    return unwrapped(value("UpperAdjValue"));
}
int ArrayStatisticsResponse::getNanCount() const {
    return value("NanCount").value<int>();
}
int ArrayStatisticsResponse::getInfCount() const {
    return value("InfCount").value<int>();
}
int ArrayStatisticsResponse::getDenormCount() const {
    return value("DenormCount").value<int>();
}
QBitArray ArrayStatisticsResponse::getStatValid() const {
    return value("StatValid").value<QBitArray>();
}
bool ArrayStatisticsResponse::isStale() const {
    return value("IsStale").value<bool>();
}
QString ArrayStatisticsResponse::getArray() const {
    return value("Array").value<QString>();
}
QString ArrayStatisticsResponse::getEmptySlice() const {
    return value("EmptySlice").value<QString>();
}
QString ArrayStatisticsResponse::getActualType() const {
    return value("ActualType").value<QString>();
}
QString ArrayStatisticsResponse::getFilter() const {
    return value("Filter").value<QString>();
}

// --------------------------------------------------------- array information

ArrayInfoRequest::ArrayInfoRequest() : HVDWPRequest("ArrayInfoRequest", 0) {}

ArrayInfoRequest::~ArrayInfoRequest() = default;

QString ArrayInfoRequest::summary() const {
    return QString("ArrayInfoRequest - Focus: %1, ScopeID: %2 Expression: %3 ")
        .arg(value("Focus").value<QString>())
        .arg(value("ScopeID").value<QString>())
        .arg(value("Expression").value<QString>());
}

ArrayInfoResponse::ArrayInfoResponse(QSharedPointer<QObject> bag) : HVDWPResponse(std::move(bag)) {}

ArrayInfoResponse::~ArrayInfoResponse() = default;

QString ArrayInfoResponse::summary() const {
    return QString("ArrayInfoResponse - Array Name: %1 Focus: %2, Expression: %3  EmptySlice: %4  "
                   "Dim Count: %5  AL Type: %6 Array Bounds: %7 Err Msg: %8")
        .arg(getArrayName())
        .arg(getFocus())
        .arg(getExpression())
        .arg(getEmptySlice())
        .arg(getDimCount())
        .arg(getDataType())
        .arg(getArrayBounds().join(" "))
        .arg(getErrorMessage());
}

QString ArrayInfoResponse::getArrayName() const {
    return value("ArrayName").value<QString>();
}
QString ArrayInfoResponse::getFocus() const {
    return value("Focus").value<QString>();
}
QString ArrayInfoResponse::getExpression() const {
    return value("Expression").value<QString>();
}
QString ArrayInfoResponse::getEmptySlice() const {
    return value("EmptySlice").value<QString>();
}
int ArrayInfoResponse::getDimCount() const {
    return value("DimCount").value<int>();
}
int ArrayInfoResponse::getDataType() const {
    return value("DataType").toInt();
}
QString ArrayInfoResponse::getActualType() const {
    return value("ActualType").value<QString>();
}
QStringList ArrayInfoResponse::getArrayBounds() const {
    return value("ArrayBounds").value<QStringList>();
}
bool ArrayInfoResponse::isStale() const {
    return value("IsStale").value<bool>();
}

// ---------------------------------------------------------------- data table

ArrayData2DTableRequest::ArrayData2DTableRequest() : HVDWPRequest("ArrayData2DTableRequest", 0) {}

ArrayData2DTableRequest::~ArrayData2DTableRequest() = default;

QString ArrayData2DTableRequest::summary() const {
    return QString("ArrayData2DTableRequest - Focus: %1, ScopeID: %2 Expression: %3 Slice: %4  "
                   "Row Dim: %5  Col Dim: %6 AL Format: %7")
        .arg(value("Focus").value<QString>())
        .arg(value("ScopeID").value<QString>())
        .arg(value("Expression").value<QString>())
        .arg(value("Slice").value<QString>())
        .arg(value("RowDim").value<int>())
        .arg(value("ColDim").value<int>())
        .arg(value("DataFormat").value<int>());
}

QString ArrayData2DTableRequest::viewport_summary() const {
    return QString("ArrayData2DTableRequest Viewport - UsingViewPort: %1 TableStartRow: %2, "
                   "TableEndRow: %3 TableStartCol: %4 TableEndCol: %5  ")
        .arg(bit(value("UsingViewPort").value<bool>()))
        .arg(value("TableStartRow").value<int>())
        .arg(value("TableEndRow").value<int>())
        .arg(value("TableStartCol").value<int>())
        .arg(value("TableEndCol").value<int>());
}

void ArrayData2DTableRequest::setSlice(const QString& slice) {
    setValue("Slice", slice);
}
void ArrayData2DTableRequest::setRowDim(int rowDim) {
    setValue("RowDim", rowDim);
}
void ArrayData2DTableRequest::setColDim(int colDim) {
    setValue("ColDim", colDim);
}
void ArrayData2DTableRequest::setDataFormat(int dataFormat) {
    setValue("DataFormat", dataFormat);
}
void ArrayData2DTableRequest::setFilter(const QString& filter) {
    setValue("Filter", filter);
}

void ArrayData2DTableRequest::setRequestViewport(bool usingViewPort, int startRow, int endRow,
                                                 int startCol, int endCol) {
    setValue("UsingViewPort", usingViewPort);
    setValue("TableStartRow", startRow);
    setValue("TableEndRow", endRow);
    setValue("TableStartCol", startCol);
    setValue("TableEndCol", endCol);
}

ArrayData2DTableResponse::ArrayData2DTableResponse(QSharedPointer<QObject> bag)
    : HVDWPResponse(std::move(bag)) {}

ArrayData2DTableResponse::~ArrayData2DTableResponse() = default;

QString ArrayData2DTableResponse::summary() const {
    return QString("ArrayData2DTableResponse - Array Name: %1 Focus: %2, Expression: %3 Slice: %4 "
                   " Dim Count: %5 Row Dim: %6  Col Dim: %7  Row Count: %8 Col Count: %9  Item "
                   "Count: %10  AL Format: %11  AL Type: %12 Err Msg: %13")
        .arg(getArrayName())
        .arg(getFocus())
        .arg(getExpression())
        .arg(getSlice())
        .arg(getDimCount())
        .arg(getRowDim())
        .arg(getColDim())
        .arg(getRowCount())
        .arg(getColCount())
        .arg(getTableDataList().size())
        .arg(getDataFormat())
        .arg(getDataType())
        .arg(getErrorMessage());
}

QString ArrayData2DTableResponse::viewport_summary() const {
    const QString viewport =
        QString("ArrayData2DTableResponse Viewport - Using ViewPort: %1 TableStartRow: %2, "
                "TableEndRow: %3 RowOffset: %4 VisibleRowCount: %5 TableStartCol: %6 "
                "TableEndCol: %7  ColOffset: %8 VisibleColCount: %9 ")
            .arg(bit(getUsingViewPort()))
            .arg(getTableStartRow())
            .arg(getTableEndRow())
            .arg(getRowOffset())
            .arg(getVisibleRowCount())
            .arg(getTableStartCol())
            .arg(getTableEndCol())
            .arg(getColOffset())
            .arg(getVisibleColCount());
    const QString data = QString("DataStartRow: %1, DataEndRow: %2 DataStartCol: %3 DataEndCol: %4")
                             .arg(getDataStartRow())
                             .arg(getDataEndRow())
                             .arg(getDataStartCol())
                             .arg(getDataEndCol());
    return viewport + data;
}

bool ArrayData2DTableResponse::getUsingViewPort() const {
    return value("UsingViewPort").value<bool>();
}
int ArrayData2DTableResponse::getTableStartRow() const {
    return value("TableStartRow").value<int>();
}
int ArrayData2DTableResponse::getTableEndRow() const {
    return value("TableEndRow").value<int>();
}
int ArrayData2DTableResponse::getTableStartCol() const {
    return value("TableStartCol").value<int>();
}
int ArrayData2DTableResponse::getTableEndCol() const {
    return value("TableEndCol").value<int>();
}

QString ArrayData2DTableResponse::getArrayName() const {
    return value("ArrayName").value<QString>();
}
QString ArrayData2DTableResponse::getFocus() const {
    return value("Focus").value<QString>();
}
QString ArrayData2DTableResponse::getExpression() const {
    return value("Expression").value<QString>();
}
QString ArrayData2DTableResponse::getSlice() const {
    return value("Slice").value<QString>();
}
int ArrayData2DTableResponse::getDimCount() const {
    return value("DimCount").value<int>();
}
int ArrayData2DTableResponse::getRowDim() const {
    return value("RowDim").value<int>();
}
int ArrayData2DTableResponse::getColDim() const {
    return value("ColDim").value<int>();
}
int ArrayData2DTableResponse::getRowCount() const {
    return value("RowCount").value<int>();
}
int ArrayData2DTableResponse::getColCount() const {
    return value("ColCount").value<int>();
}
QVariantList ArrayData2DTableResponse::getTableDataList() const {
    return value("TableDataList").value<QVariantList>();
}
int ArrayData2DTableResponse::getDataFormat() const {
    return value("DataFormat").toInt();
}
int ArrayData2DTableResponse::getDataType() const {
    return value("DataType").toInt();
}
QString ArrayData2DTableResponse::getActualType() const {
    return value("ActualType").value<QString>();
}
QString ArrayData2DTableResponse::getFilter() const {
    return value("Filter").value<QString>();
}
bool ArrayData2DTableResponse::isStale() const {
    return value("IsStale").value<bool>();
}
int ArrayData2DTableResponse::getRowOffset() const {
    return value("RowOffset").value<int>();
}
int ArrayData2DTableResponse::getVisibleRowCount() const {
    return value("VisibleRowCount").value<int>();
}
int ArrayData2DTableResponse::getColOffset() const {
    return value("ColOffset").value<int>();
}
int ArrayData2DTableResponse::getVisibleColCount() const {
    return value("VisibleColCount").value<int>();
}
int ArrayData2DTableResponse::getDataStartRow() const {
    return value("DataStartRow").value<int>();
}
int ArrayData2DTableResponse::getDataEndRow() const {
    return value("DataEndRow").value<int>();
}
int ArrayData2DTableResponse::getDataStartCol() const {
    return value("DataStartCol").value<int>();
}
int ArrayData2DTableResponse::getDataEndCol() const {
    return value("DataEndCol").value<int>();
}
int ArrayData2DTableResponse::getRowStride() const {
    return value("RowStride").value<int>();
}
int ArrayData2DTableResponse::getRowLowerBound() const {
    return value("RowLowerBound").value<int>();
}
int ArrayData2DTableResponse::getRowUpperBound() const {
    return value("RowUpperBound").value<int>();
}
int ArrayData2DTableResponse::getColStride() const {
    return value("ColStride").value<int>();
}
int ArrayData2DTableResponse::getColLowerBound() const {
    return value("ColLowerBound").value<int>();
}
int ArrayData2DTableResponse::getColUpperBound() const {
    return value("ColUpperBound").value<int>();
}

// ----------------------------------------------------------------- plot data

VisEvaluateExpressionRequest::VisEvaluateExpressionRequest()
    : HVDWPRequest("VisEvaluateExpressionRequest", 0) {}

VisEvaluateExpressionRequest::~VisEvaluateExpressionRequest() = default;

void VisEvaluateExpressionRequest::setSlice(const QString& slice) {
    setValue("Slice", slice);
}

void VisEvaluateExpressionRequest::setFilter(const QString& filter) {
    setValue("Filter", filter);
}

VisEvaluateExpressionResponse::VisEvaluateExpressionResponse(QSharedPointer<QObject> bag)
    : HVDWPResponse(std::move(bag)) {}

VisEvaluateExpressionResponse::~VisEvaluateExpressionResponse() = default;

QByteArray VisEvaluateExpressionResponse::getAllEvaluations() const {
    return value("AllEvaluations").value<QByteArray>();
}
int VisEvaluateExpressionResponse::getElementCount() const {
    return getAllEvaluations().size() / 8;
}
int VisEvaluateExpressionResponse::getRank() const {
    return value("Rank").value<int>();
}
int VisEvaluateExpressionResponse::getRows() const {
    return value("Rows").value<int>();
}
int VisEvaluateExpressionResponse::getCols() const {
    return value("Cols").value<int>();
}
QString VisEvaluateExpressionResponse::getActualType() const {
    return value("ActualType").value<QString>();
}
QString VisEvaluateExpressionResponse::getEmptySlice() const {
    return value("EmptySlice").value<QString>();
}
