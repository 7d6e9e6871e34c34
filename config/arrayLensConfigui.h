#pragma once
// The configuration window of the current expression: a type cast, a slice
// (free text for Statistics and Plots, a structured 2D editor for the Data
// Table), a filter built one condition at a time, and the table's value
// format. It evaluates nothing itself; OK and Apply hand the fields to the
// view, which passes them to the controller.

#include "config/slicerecords.h"

#include <QList>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QWidget>

class ArrayLensView;
class Ui_ArrayLensConfigDialog;
class DimensionComboBox;
class DimSliceSpinbox;
class SliceTableWidget;

class QAbstractButton;
class QCheckBox;
class QComboBox;
class QDialog;
class QDialogButtonBox;
class QFrame;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QScrollArea;
class QStackedWidget;
class QTableWidget;
class QTextEdit;

// Fixed texts of the dialog.
constexpr char SLICE_CHECKBOX_TOOLTIP[] = "Use the Data Table slice for Stats and Plots.";
constexpr char SLICE_DATA_TABLE_HELP[] =
    "Define a 2D slice through the array to examine data in a table.";
constexpr char SLICE_STATS_PLOTS_HELP[] =
    "Define a slice to operate on a smaller portion of array data.";
constexpr char SLICE_DATA_TABLE_SPINBOX_TOOTIP[] =
    "Select an array index for other non row/column dimension(s).";
constexpr char SLICE_DATA_TABLE_SPINBOX_HELP[] = "Select an array index.";
constexpr char SLICE_EDIT_HELP[] =
    "Data Table Hint: To examine layers of data, create a slice forming a plane through a "
    "multidimensional array by fixing one dimension and slicing along the other two.";
constexpr char SLICE_EDIT_C_EXAMPLE[] = "Example: Array intArray3d[10,10,10] with Slice "
                                        "[2:2:1][0:9:1][0:9:1] creates a 10x10 table for i=2";

class ArrayLensConfigDialog : public QWidget {
    Q_OBJECT
public:
    // Lines and columns of the slice table.
    static constexpr int ROW_ROW = 0;
    static constexpr int COLUMN_ROW = 1;
    static constexpr int DIMENSION_COL = 0;
    static constexpr int START_COL = 1;
    static constexpr int END_COL = 2;
    static constexpr int STRIDE_COL = 3;

    explicit ArrayLensConfigDialog(ArrayLensView* view);
    ~ArrayLensConfigDialog() override;

    // The window.
    void init();
    void launchDialog();
    void closeDialog();
    void handleError();

    // Filling the fields from an expression.
    void setExpressionFields(QString expression, QString type, QString actualType,
                             QString language);
    void setActualType(QString text);
    void setSlice(QString text);
    void setFilter(QString text);
    void setUse2DTableSlice(bool on);
    void setConfig2DTable(Config2DTable* config);
    void setComparisonItems(QStringList comparisons, QStringList andOr);
    void setCurrent2DSliceTab(bool table);
    bool is2DSliceVisible();
    void setupDataFormatList(al_data_type_e type, al_data_pres_e pres);
    al_data_pres_e getDataFormat();
    void setAllSliceWidgetsEnabled(bool enabled);

    // Slice texts.
    QStringList getBoundsFromType(QString type);
    QString getDimensionString(int dimensions);
    QString getStatsPlotsSlice();
    bool adjustSliceDetailsForNegativeStride(ArrayDimensionDetails* details);
    bool valid2DIndexes(ArrayDimensionDetails* details);

    // The two slice pages.
    void setupEditSliceTabWidgets();
    void setup2DSliceTabWidgets();
    void reset2DTableSettings(QString text, QStringList bounds);
    void resetDimSpinBoxes(QStringList bounds);
    void set2DSlice(Config2DTable* config);
    void create2DSliceDetails(QStringList bounds);
    void reset2DSliceFromDetails();
    void clear2DSliceTable();
    void setSliceTableRow(int tableRow, ArrayDimensionDetails* details);
    void saveSelectedDimSliceDetails(int rowDim, int colDim);
    void saveOtherDimSliceDetails(int rowDim, int colDim);
    void saveRCSliceDetails();
    bool check2DSlice(QString* error);
    QString get2DSlice();
    QString getDimSlice(QTableWidget* table, int tableRow);
    QString getOtherDimSlice(int index);
    QList<int> getOtherDimIndexList();
    Config2DTable* getCurrentConfig2DTable();
    int getRowDimIndex();
    int getColDimIndex();
    void setTableSliceLabelEnabled(bool on);

signals:
    void configError(QString error);

public slots:
    void handleButtonClick(QAbstractButton* button);
    void handleAddFilter();
    void handleValueIndexChanged(int index);
    void dimComboBoxChanged(int index);
    void useDataTableSliceChangedState(int state);
    void typeTextChanged(QString text);
    void slice2DTableValueChanged(int row, int column);

public:
    ArrayLensView* view = nullptr;
    Ui_ArrayLensConfigDialog* form = nullptr;
    QDialog* dialog = nullptr;
    QLineEdit* typeLineEdit = nullptr;
    QString originalType;
    QLabel* expressionLabel = nullptr;
    QDialogButtonBox* buttonBox = nullptr;
    QString language;
    bool cStyle = false;
    QRect savedGeometry;
    QLabel* titleLabel = nullptr;
    QLabel* instructionLabel = nullptr;
    QLabel* actualTypeValue = nullptr;
    QLabel* actualTypeCaption = nullptr;
    QTextEdit* filterTextEdit = nullptr;
    QComboBox* comparisonCombo = nullptr;
    QComboBox* andOrCombo = nullptr;
    QComboBox* valueCombo = nullptr;
    QPushButton* addFilterButton = nullptr;
    QString filterText;
    QStackedWidget* sliceStack = nullptr;
    QWidget* tablePage = nullptr;
    QWidget* statsPage = nullptr;
    QCheckBox* useTableCheckBox = nullptr;
    QLineEdit* sliceLineEdit = nullptr;
    QLabel* sliceInstruction = nullptr;
    QLabel* tableSliceLabel = nullptr;
    QComboBox* dataFormatCombo = nullptr;
    al_data_type_e dataType = al_type_other;
    bool firstLaunch = true;

    // The 2D slice editor.
    QLabel* otherDimsLabel = nullptr;
    QLabel* otherDimsHelpLabel = nullptr;
    QString tableSlice;
    DimensionComboBox* rowCombo = nullptr;
    DimensionComboBox* colCombo = nullptr;
    QList<DimSliceSpinbox*>* spinBoxes = nullptr;
    QList<ArrayDimensionDetails*>* dimDetails = nullptr;
    QScrollArea* spinScrollArea = nullptr;
    QHBoxLayout* spinLayout = nullptr;
    QFrame* otherDimsFrame = nullptr;
    QFrame* spinFrame = nullptr;
    QStringList dimLabels;
    SliceTableWidget* sliceTable = nullptr;
    int prevRowDim = -1;
    int prevColDim = -1;

private:
    // Frees the records of dimDetails and the list itself.
    void deleteDimDetails();
};
