#include "config/slicerecords.h"

#include <QDebug>

const char DIMENSION_LABELS[] = "ijklmnopqrstuvwxyz";

ArrayDimensionDetails::ArrayDimensionDetails(int dimension, int lowerBound, int upperBound,
                                             int startIndex, int endIndex, int stride)
    : dimension(dimension), lowerBound(lowerBound), upperBound(upperBound), startIndex(startIndex),
      endIndex(endIndex), stride(stride) {}

ArrayDimensionDetails::ArrayDimensionDetails(int dimension, int startIndex, int endIndex,
                                             int stride)
    : ArrayDimensionDetails(dimension, -1, -1, startIndex, endIndex, stride) {}

ArrayDimensionDetails::~ArrayDimensionDetails() = default;

void ArrayDimensionDetails::dump() const {
    qDebug().noquote() << "ArrayDimensionDetails:";
    qDebug().noquote() << QStringLiteral("  Dimension:    %1").arg(dimension);
    qDebug().noquote()
        << QStringLiteral("    lowerBound: %1 upperBound: %2").arg(lowerBound).arg(upperBound);
    qDebug().noquote() << QStringLiteral("    startIndex: %1 endIndex:   %2 stride: %3")
                              .arg(startIndex)
                              .arg(endIndex)
                              .arg(stride);
    qDebug().noquote() << "";
}

Config2DTable::Config2DTable() = default;

Config2DTable::Config2DTable(int rowDim, int colDim, const QString& slice, al_data_pres_e dataPres,
                             al_data_type_e dataType, const QList<int>& otherDimIndexList)
    : rowDim(rowDim), colDim(colDim), dataPres(dataPres), dataType(dataType),
      otherDimIndexList(otherDimIndexList), slice(slice) {}

void Config2DTable::clear2DSlice() {
    slice.clear();
    rowDim = -1;
    colDim = -1;
    otherDimIndexList.clear();
}

void Config2DTable::resetDataFormat() {
    dataPres = al_pres_default;
    dataType = al_type_other;
}

void Config2DTable::dumpConfig() const {}

bool Config2DTable::operator==(const Config2DTable& o) const {
    return rowDim == o.rowDim && colDim == o.colDim && dataPres == o.dataPres &&
           dataType == o.dataType && otherDimIndexList == o.otherDimIndexList && slice == o.slice;
}
