#pragma once
// The records of a slice: one dimension of the slice editor, and the Data
// Table's settings of one expression, with the two enumerations they carry.

#include <QList>
#include <QString>

// Element class of an array, as the back end reports it in "DataType".
enum al_data_type_e {
    al_type_integer = 0,
    al_type_float = 1,
    al_type_char = 2,
    al_type_other = 3,
};

// Display format of the table's values, sent as "DataFormat".
enum al_data_pres_e {
    al_pres_automatic = 0,
    al_pres_hex_dec = 1,
    al_pres_dec_hex = 2,
    al_pres_decimal = 3,
    al_pres_hex = 4,
    al_pres_octal = 5,
    al_pres_char = 6,
    al_pres_scientific = 7,
    al_pres_default = 8,
};

// Letter of dimension n is the character at n. Only 18 letters exist and
// nothing guards a larger dimension number.
extern const char DIMENSION_LABELS[];

class ArrayDimensionDetails {
public:
    ArrayDimensionDetails(int dimension, int lowerBound, int upperBound, int startIndex,
                          int endIndex, int stride);
    // Bounds unknown: both -1.
    ArrayDimensionDetails(int dimension, int startIndex, int endIndex, int stride);
    virtual ~ArrayDimensionDetails();

    void dump() const;

    int dimension;
    int lowerBound;
    int upperBound;
    int startIndex;
    int endIndex;
    int stride;
};

class Config2DTable {
public:
    Config2DTable();
    // Note the argument order differs from the field order.
    Config2DTable(int rowDim, int colDim, const QString& slice, al_data_pres_e dataPres,
                  al_data_type_e dataType, const QList<int>& otherDimIndexList);

    void clear2DSlice();
    void resetDataFormat();
    // Called first by the dialog whenever it takes a configuration over; a
    // place to hook diagnostics, silent by default.
    void dumpConfig() const;

    bool operator==(const Config2DTable& other) const;
    bool operator!=(const Config2DTable& other) const { return !(*this == other); }

    int rowDim = -1;
    int colDim = -1;
    al_data_pres_e dataPres = al_pres_default;
    al_data_type_e dataType = al_type_other;
    QList<int> otherDimIndexList;
    QString slice;
};
