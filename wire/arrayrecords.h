#pragma once
// The records of the four array operations: statistics, array information,
// a two-dimensional table of elements, and an evaluation for plotting.
//
// Request side: the properties are this system's wire format, and the back
// end may depend on the order in which they were first set (the bag keeps
// it, and the base summary prints it). Each request class documents the one
// order in which a builder calls its setters; the setters only set, so
// calling them in another order reorders the bag.
//
// Response side: every reader tolerates a missing property and gives 0,
// false or an empty value, so a missing field is never an error.

#include "wire/hvdwppacket.h"
#include "wire/wire_export.h"

// Only virtual calls are made on the expression, from inline code below, so
// this library needs nothing of the host library at link time.
#include "host/hvexpression.h"

#include <QBitArray>
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>

// The description of what to evaluate, taken from the expression at the
// moment of the request. Shared by all four requests. A null expression
// still sets every property, with empty values, so the layout of the bag
// does not depend on it.
namespace FocusFields {

// "Expression" (the alternate expression when there is one), "Focus",
// "ScopeID" and "FrameRecursionDepth", the last as an unsigned int.
inline void setExpressionFields(QObject* bag, IHVExpression* expr) {
    QString text;
    QString focus;
    QString scopeId;
    uint depth = 0;
    if (expr) {
        text =
            expr->hasAlternateExpression() ? expr->getAlternateExpression() : expr->getExpression();
        focus = expr->getFocus();
        scopeId = expr->getScopeID();
        depth = expr->getFrameRecursionDepth();
    }
    bag->setProperty("Expression", text);
    bag->setProperty("Focus", focus);
    bag->setProperty("ScopeID", scopeId);
    bag->setProperty("FrameRecursionDepth", QVariant::fromValue<uint>(depth));
}

// "OperationArgs", "OperationKinds", "OperationQualifiedArgs", handed on
// untouched: only the back end knows what is in them.
inline void setOperationFields(QObject* bag, IHVExpression* expr) {
    bag->setProperty("OperationArgs", expr ? expr->getOperationArgs() : QStringList());
    bag->setProperty("OperationKinds", expr ? expr->getOperationKinds() : QVariantList());
    bag->setProperty("OperationQualifiedArgs",
                     expr ? expr->getOperationQualifiedArgs() : QStringList());
}

} // namespace FocusFields

// ---------------------------------------------------------------- statistics

// Builder order: setFocusFields, setSlice, setFilter, setOperationFields;
// or setFields, which makes the four calls in that order.
class ARRAYLENS_WIRE_EXPORT ArrayStatisticsRequest : public HVDWPRequest {
public:
    ArrayStatisticsRequest();
    ~ArrayStatisticsRequest() override;

    void setFocusFields(IHVExpression* expr) {
        FocusFields::setExpressionFields(propertyBag.data(), expr);
    }
    // May be empty: the back end then takes the whole array.
    void setSlice(const QString& slice);
    // Empty when filtering is off.
    void setFilter(const QString& filter);
    void setOperationFields(IHVExpression* expr) {
        FocusFields::setOperationFields(propertyBag.data(), expr);
    }
    void setFields(IHVExpression* expr, const QString& slice, const QString& filter) {
        setFocusFields(expr);
        setSlice(slice);
        setFilter(filter);
        setOperationFields(expr);
    }
};

class ARRAYLENS_WIRE_EXPORT ArrayStatisticsResponse : public HVDWPResponse {
public:
    ArrayStatisticsResponse(QSharedPointer<QObject> bag);
    ~ArrayStatisticsResponse() override;

    // The statistics, numbered 0 to 15 as the bits of "StatValid".
    qlonglong getChecksum() const;
    int getCount() const;
    int getZeroCount() const;
    // Sum, Min, Max and the adjacent values keep the element type that the
    // back end chose; a value wrapped in a QVariant is taken out of it.
    QVariant getSum() const;
    QVariant getMin() const;
    QVariant getMax() const;
    double getMedian() const;
    double getMean() const;
    double getStdDev() const;
    double getFirstQuartile() const;
    double getThirdQuartile() const;
    QVariant getLowerAdjValue() const;
    QVariant getUpperAdjValue() const;
    int getNanCount() const;
    int getInfCount() const;
    int getDenormCount() const;

    // One bit per statistic; a set bit means the statistic is to be shown.
    QBitArray getStatValid() const;
    bool isStale() const;
    QString getArray() const;
    QString getEmptySlice() const;
    QString getActualType() const;
    QString getFilter() const;
};

// --------------------------------------------------------- array information

// Builder order: setFocusFields, setOperationFields; or setFields. This
// request has no "Slice" and no "Filter" at all.
class ARRAYLENS_WIRE_EXPORT ArrayInfoRequest : public HVDWPRequest {
public:
    ArrayInfoRequest();
    ~ArrayInfoRequest() override;

    // "ArrayInfoRequest - Focus: .., ScopeID: .. Expression: .. "
    QString summary() const override;

    void setFocusFields(IHVExpression* expr) {
        FocusFields::setExpressionFields(propertyBag.data(), expr);
    }
    void setOperationFields(IHVExpression* expr) {
        FocusFields::setOperationFields(propertyBag.data(), expr);
    }
    void setFields(IHVExpression* expr) {
        setFocusFields(expr);
        setOperationFields(expr);
    }
};

class ARRAYLENS_WIRE_EXPORT ArrayInfoResponse : public HVDWPResponse {
public:
    ArrayInfoResponse(QSharedPointer<QObject> bag);
    ~ArrayInfoResponse() override;

    QString summary() const override;

    QString getArrayName() const;
    QString getFocus() const;
    QString getExpression() const;
    QString getEmptySlice() const;
    int getDimCount() const;
    // A value of al_data_type_e.
    int getDataType() const;
    QString getActualType() const;
    // One "lower:upper" text per dimension.
    QStringList getArrayBounds() const;
    bool isStale() const;
};

// ---------------------------------------------------------------- data table

// Builder order: setFocusFields, setSlice, setOperationFields, setRowDim,
// setColDim, setDataFormat, setFilter, and setRequestViewport last of all.
class ARRAYLENS_WIRE_EXPORT ArrayData2DTableRequest : public HVDWPRequest {
public:
    ArrayData2DTableRequest();
    ~ArrayData2DTableRequest() override;

    QString summary() const override;
    virtual QString viewport_summary() const;

    void setFocusFields(IHVExpression* expr) {
        FocusFields::setExpressionFields(propertyBag.data(), expr);
    }
    void setSlice(const QString& slice);
    void setOperationFields(IHVExpression* expr) {
        FocusFields::setOperationFields(propertyBag.data(), expr);
    }
    // Negative when the display has not settled a dimension.
    void setRowDim(int rowDim);
    void setColDim(int colDim);
    // A value of al_data_pres_e.
    void setDataFormat(int dataFormat);
    void setFilter(const QString& filter);
    // "UsingViewPort" and the four inclusive table coordinates, together.
    void setRequestViewport(bool usingViewPort, int startRow, int endRow, int startCol, int endCol);
};

class ARRAYLENS_WIRE_EXPORT ArrayData2DTableResponse : public HVDWPResponse {
public:
    ArrayData2DTableResponse(QSharedPointer<QObject> bag);
    ~ArrayData2DTableResponse() override;

    QString summary() const override;
    virtual QString viewport_summary() const;

    bool getUsingViewPort() const;
    int getTableStartRow() const;
    int getTableEndRow() const;
    int getTableStartCol() const;
    int getTableEndCol() const;

    QString getArrayName() const;
    QString getFocus() const;
    QString getExpression() const;
    QString getSlice() const;
    int getDimCount() const;
    int getRowDim() const;
    int getColDim() const;
    int getRowCount() const;
    int getColCount() const;
    // Entries are QVariantMaps with "row", "col" and "value", in no order.
    QVariantList getTableDataList() const;
    int getDataFormat() const;
    int getDataType() const;
    QString getActualType() const;
    QString getFilter() const;
    bool isStale() const;
    int getRowOffset() const;
    int getVisibleRowCount() const;
    int getColOffset() const;
    int getVisibleColCount() const;
    int getDataStartRow() const;
    int getDataEndRow() const;
    int getDataStartCol() const;
    int getDataEndCol() const;
    int getRowStride() const;
    int getRowLowerBound() const;
    int getRowUpperBound() const;
    int getColStride() const;
    int getColLowerBound() const;
    int getColUpperBound() const;

private:
    // Never filled: the elements are always read from "TableDataList".
    QVariantList tableData;
};

// ----------------------------------------------------------------- plot data

// Same fields and order as ArrayStatisticsRequest. Builder order:
// setFocusFields, setSlice, setFilter, setOperationFields; or setFields.
class ARRAYLENS_WIRE_EXPORT VisEvaluateExpressionRequest : public HVDWPRequest {
public:
    VisEvaluateExpressionRequest();
    ~VisEvaluateExpressionRequest() override;

    void setFocusFields(IHVExpression* expr) {
        FocusFields::setExpressionFields(propertyBag.data(), expr);
    }
    void setSlice(const QString& slice);
    void setFilter(const QString& filter);
    void setOperationFields(IHVExpression* expr) {
        FocusFields::setOperationFields(propertyBag.data(), expr);
    }
    void setFields(IHVExpression* expr, const QString& slice, const QString& filter) {
        setFocusFields(expr);
        setSlice(slice);
        setFilter(filter);
        setOperationFields(expr);
    }
};

class ARRAYLENS_WIRE_EXPORT VisEvaluateExpressionResponse : public HVDWPResponse {
public:
    VisEvaluateExpressionResponse(QSharedPointer<QObject> bag);
    ~VisEvaluateExpressionResponse() override;

    // Packed 64-bit doubles in the host's byte order.
    QByteArray getAllEvaluations() const;
    // Bytes of "AllEvaluations" divided by 8; a remainder is ignored.
    int getElementCount() const;
    int getRank() const;
    // Meaningful only when the rank is 2.
    int getRows() const;
    int getCols() const;
    QString getActualType() const;
    QString getEmptySlice() const;

private:
    // Never filled: the values travel in "AllEvaluations" only.
    QString expressionText;
    QStringList evaluations;
};
