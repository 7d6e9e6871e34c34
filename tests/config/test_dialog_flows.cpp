// Whole journeys through the configuration window against the fake host:
// an array is entered, the Data Table answers, the settings action opens the
// window, the user edits the 2D slice and applies, the table asks for that
// slice and the window shows it back after the answer.
#include "dialogtesthelpers.h"

#include <QRegularExpression>

using namespace dialogtest;

namespace {

constexpr int ROW = ArrayLensConfigDialog::ROW_ROW;
constexpr int COL = ArrayLensConfigDialog::COLUMN_ROW;
constexpr int START = ArrayLensConfigDialog::START_COL;
constexpr int END = ArrayLensConfigDialog::END_COL;
constexpr int STRIDE = ArrayLensConfigDialog::STRIDE_COL;

// The back end of the Data Table for a three-dimensional array: echoes the
// slice it was asked for, or, for a request without one, picks the default
// plane and spells its slice in the array's style.
class TableBackEnd {
public:
    TableBackEnd(bool cStyle, QStringList bounds) : cStyle(cStyle), bounds(std::move(bounds)) {}

    QVariantMap info() const {
        QStringList whole;
        for (int i = 0; i < bounds.size(); ++i)
            whole << QStringLiteral(":");
        const QString empty = cStyle ? "[" + whole.join("][") + "]" : "(" + whole.join(",") + ")";
        return {
            {"result", "done"},          {"ArrayName", "cube"},         {"EmptySlice", empty},
            {"DimCount", bounds.size()}, {"DataType", al_type_integer}, {"ActualType", actualType},
            {"ArrayBounds", bounds}};
    }

    QVariantMap table(const QObject& request) {
        ++requests;
        int rowDim = request.property("RowDim").toInt();
        int colDim = request.property("ColDim").toInt();
        QString slice = request.property("Slice").toString();
        if (rowDim < 0 || colDim < 0) {
            rowDim = cStyle ? bounds.size() - 2 : 0;
            colDim = cStyle ? bounds.size() - 1 : 1;
        }
        if (!slice.contains(QRegularExpression("\\d"))) {
            QStringList pieces;
            for (int i = 0; i < bounds.size(); ++i) {
                const QStringList b = bounds[i].split(':');
                pieces << ((i == rowDim || i == colDim) ? b[0] + ":" + b[1] + ":1"
                                                        : b[0] + ":" + b[0]);
            }
            slice = cStyle ? "[" + pieces.join("][") + "]" : "(" + pieces.join(",") + ")";
        }
        lastSlice = slice;
        return {
            {"result", "done"},
            {"ArrayName", "cube"},
            {"Slice", slice},
            {"DimCount", bounds.size()},
            {"RowDim", rowDim},
            {"ColDim", colDim},
            {"DataFormat", request.property("DataFormat").toInt()},
            {"DataType", al_type_integer},
            {"ActualType", actualType},
            {"Filter", request.property("Filter").toString()},
            {"RowCount", 2},
            {"ColCount", 2},
            {"RowStride", 1},
            {"ColStride", 1},
            {"UsingViewPort", true},
            {"TableStartRow", 0},
            {"TableEndRow", 1},
            {"TableStartCol", 0},
            {"TableEndCol", 1},
            {"TableDataList", QVariantList{QVariantMap{{"row", 0}, {"col", 0}, {"value", "1"}},
                                           QVariantMap{{"row", 0}, {"col", 1}, {"value", "2"}},
                                           QVariantMap{{"row", 1}, {"col", 0}, {"value", "3"}},
                                           QVariantMap{{"row", 1}, {"col", 1}, {"value", "4"}}}}};
    }

    bool cStyle;
    QStringList bounds;
    QString actualType;
    QString lastSlice;
    int requests = 0;
};

class DialogFlow : public DialogTest {
protected:
    // Enters the array as the user does from the view and waits for the
    // Data Table's first answer.
    void enterArray(const QString& type, const QString& language, const QStringList& bounds) {
        backEnd.reset(new TableBackEnd(SliceModel_isC(language), bounds));
        backEnd->actualType = type;
        core.makeCurrentFrame();
        TableBackEnd* b = backEnd.get();
        core.debugger().respond("ArrayInfoRequest", b->info());
        core.debugger().respond("ArrayData2DTableRequest",
                                [b](const QObject& request) { return b->table(request); });
        core.debugger().respond("ArrayStatisticsRequest", QVariantMap{{"result", "done"}});
        view->show2DTable();
        expr = makeExpression("cube", type, language);
        view->setExpression(expr, true);
        ASSERT_TRUE(fake::waitFor([this] {
            return ui->currentConfig && !ui->currentConfig->slice.isEmpty() &&
                   backEnd->requests > 0;
        })) << "the Data Table did not answer";
    }

    static bool SliceModel_isC(const QString& language) {
        const QString l = language.toLower();
        return l == "c" || l == "c++" || l == "upc";
    }

    // The slice of the newest table request.
    QString lastRequestedSlice() {
        for (int i = core.debugger().sent.size() - 1; i >= 0; --i)
            if (core.debugger().sent[i].id == "ArrayData2DTableRequest")
                return core.debugger().sent[i].properties.value("Slice").toString();
        return QString();
    }

    QVariantMap lastTableRequest() {
        for (int i = core.debugger().sent.size() - 1; i >= 0; --i)
            if (core.debugger().sent[i].id == "ArrayData2DTableRequest")
                return core.debugger().sent[i].properties;
        return {};
    }

    std::unique_ptr<TableBackEnd> backEnd;
    fake::Expression* expr = nullptr;
};

} // namespace

TEST_F(DialogFlow, CArrayOfThreeDimensionsSlicedOnTheTablePage) {
    enterArray("int [4][5][6]", "c", {"0:3", "0:4", "0:5"});
    openBySettingsAction();
    ASSERT_TRUE(dlg->dialog->isVisible());
    ASSERT_TRUE(dlg->is2DSliceVisible());
    // The first answer's plane: rows on j, columns on k, i fixed at 0.
    EXPECT_EQ(dlg->rowCombo->currentIndex(), 1);
    EXPECT_EQ(dlg->colCombo->currentIndex(), 2);
    EXPECT_EQ(dlg->tableSliceLabel->text(), "[0:0][0:4:1][0:5:1]");

    // Columns on i, which opens from its fixed index to its full bounds.
    choose(colComboBox(), 0);
    ASSERT_EQ(dlg->colCombo->currentIndex(), 0);
    EXPECT_EQ(cell(COL, START), "0");
    EXPECT_EQ(cell(COL, END), "3");
    EXPECT_EQ(cell(COL, STRIDE), "1");
    // Rows on k, which keeps the range it had as the column.
    choose(rowComboBox(), 2);
    ASSERT_EQ(dlg->rowCombo->currentIndex(), 2);
    EXPECT_EQ(cell(ROW, START), "0");
    EXPECT_EQ(cell(ROW, END), "5");

    // Rows 1 to 5 by 2, columns 1 to 3, j fixed at 3.
    typeIntoCell(ROW, START, "1");
    typeIntoCell(ROW, END, "5");
    typeIntoCell(ROW, STRIDE, "2");
    typeIntoCell(COL, START, "1");
    typeIntoCell(COL, END, "3");
    typeIntoCell(COL, STRIDE, "1");
    ASSERT_NE(spin("[j]SpinBox"), nullptr);
    ASSERT_TRUE(spin("[j]SpinBox")->isEnabled());
    EXPECT_FALSE(spin("[i]SpinBox")->isEnabled());
    EXPECT_FALSE(spin("[k]SpinBox")->isEnabled());
    typeIntoSpin(spin("[j]SpinBox"), 3);
    ASSERT_TRUE(dlg->dialog->isVisible());

    const int before = backEnd->requests;
    click("ApplyButton");
    // Dimension order of the array: i is the column line, j the fixed
    // index, k the row line.
    const QString expected = "[1:3:1][3:3][1:5:2]";
    ASSERT_NE(ui->currentConfig, nullptr);
    EXPECT_EQ(ui->currentConfig->slice, expected);
    EXPECT_EQ(ui->currentConfig->rowDim, 2);
    EXPECT_EQ(ui->currentConfig->colDim, 0);
    EXPECT_EQ(ui->currentConfig->otherDimIndexList.size(), 3);
    EXPECT_EQ(ui->currentConfig->otherDimIndexList.value(1), 3);
    EXPECT_EQ(ui->currentConfig->dataPres, al_pres_automatic);
    EXPECT_EQ(ui->currentConfig->dataType, al_type_integer);
    // The overlay judges the free text slice of Statistics and Plots, which
    // still takes the whole array; with no filter and no cast the table's
    // new slice applies silently.
    EXPECT_EQ(dlg->sliceLineEdit->text(), "[:][:][:]");
    EXPECT_EQ(overlay()->executed, 0);

    // The table asks for exactly that slice, and the window shows it back.
    ASSERT_TRUE(fake::waitFor([&] {
        return backEnd->requests > before && lastRequestedSlice() == expected;
    })) << qPrintable(lastRequestedSlice());
    EXPECT_EQ(lastTableRequest().value("RowDim").toInt(), 2);
    EXPECT_EQ(lastTableRequest().value("ColDim").toInt(), 0);
    ASSERT_TRUE(fake::waitFor([&] { return dlg->tableSliceLabel->text() == expected; }))
        << qPrintable(dlg->tableSliceLabel->text());
    EXPECT_EQ(dlg->tableSlice, expected);
    EXPECT_EQ(dlg->rowCombo->currentIndex(), 2);
    EXPECT_EQ(dlg->colCombo->currentIndex(), 0);
    EXPECT_EQ(cell(ROW, START), "1");
    EXPECT_EQ(cell(ROW, END), "5");
    EXPECT_EQ(cell(ROW, STRIDE), "2");
    EXPECT_EQ(cell(COL, START), "1");
    EXPECT_EQ(cell(COL, END), "3");
    EXPECT_EQ(cell(COL, STRIDE), "1");
    EXPECT_EQ(spin("[j]SpinBox")->value(), 3);
    EXPECT_TRUE(spin("[j]SpinBox")->isEnabled());
    EXPECT_TRUE(dlg->dialog->isVisible());
}

TEST_F(DialogFlow, FortranArrayOfThreeDimensionsSlicedOnTheTablePage) {
    enterArray("integer(4,5,6)", "fortran", {"1:4", "1:5", "1:6"});
    expr->fortran = true;
    openBySettingsAction();
    ASSERT_TRUE(dlg->is2DSliceVisible());
    // Fortran's first plane: rows on i, columns on j, k fixed at 1.
    EXPECT_EQ(dlg->rowCombo->currentIndex(), 0);
    EXPECT_EQ(dlg->colCombo->currentIndex(), 1);
    EXPECT_EQ(dlg->tableSliceLabel->text(), "(1:4:1,1:5:1,1:1)");

    // Rows on k, opened from its fixed index to its full bounds.
    choose(rowComboBox(), 2);
    ASSERT_EQ(dlg->rowCombo->currentIndex(), 2);
    EXPECT_EQ(cell(ROW, START), "1");
    EXPECT_EQ(cell(ROW, END), "6");
    EXPECT_EQ(cell(ROW, STRIDE), "1");
    // Columns on i, which keeps the range it had as the row.
    choose(colComboBox(), 0);
    ASSERT_EQ(dlg->colCombo->currentIndex(), 0);
    EXPECT_EQ(cell(COL, START), "1");
    EXPECT_EQ(cell(COL, END), "4");

    // Rows 2 to 6 by 2, columns from 4 down to 1, j fixed at 3.
    typeIntoCell(ROW, START, "2");
    typeIntoCell(ROW, END, "6");
    typeIntoCell(ROW, STRIDE, "2");
    typeIntoCell(COL, START, "4");
    typeIntoCell(COL, END, "1");
    typeIntoCell(COL, STRIDE, "-1");
    ASSERT_NE(spin("(j)SpinBox"), nullptr);
    ASSERT_TRUE(spin("(j)SpinBox")->isEnabled());
    typeIntoSpin(spin("(j)SpinBox"), 3);

    const int before = backEnd->requests;
    click("ApplyButton");
    const QString expected = "(4:1:-1,3:3,2:6:2)";
    ASSERT_NE(ui->currentConfig, nullptr);
    EXPECT_EQ(ui->currentConfig->slice, expected);
    EXPECT_EQ(ui->currentConfig->rowDim, 2);
    EXPECT_EQ(ui->currentConfig->colDim, 0);
    EXPECT_EQ(ui->currentConfig->otherDimIndexList.size(), 3);
    EXPECT_EQ(ui->currentConfig->otherDimIndexList.value(1), 3);
    EXPECT_EQ(ui->currentConfig->dataType, al_type_integer);

    ASSERT_TRUE(fake::waitFor([&] {
        return backEnd->requests > before && lastRequestedSlice() == expected;
    })) << qPrintable(lastRequestedSlice());
    EXPECT_EQ(lastTableRequest().value("RowDim").toInt(), 2);
    EXPECT_EQ(lastTableRequest().value("ColDim").toInt(), 0);
    ASSERT_TRUE(fake::waitFor([&] { return dlg->tableSliceLabel->text() == expected; }))
        << qPrintable(dlg->tableSliceLabel->text());
    EXPECT_EQ(dlg->rowCombo->currentIndex(), 2);
    EXPECT_EQ(dlg->colCombo->currentIndex(), 0);
    EXPECT_EQ(cell(ROW, START), "2");
    EXPECT_EQ(cell(ROW, END), "6");
    EXPECT_EQ(cell(ROW, STRIDE), "2");
    EXPECT_EQ(cell(COL, START), "4");
    EXPECT_EQ(cell(COL, END), "1");
    EXPECT_EQ(cell(COL, STRIDE), "-1");
    EXPECT_EQ(spin("(j)SpinBox")->value(), 3);
}

TEST_F(DialogFlow, ThreeRefusalsOfTheTableCheckAppearOnTheMessagePage) {
    // Bounds below zero on i make the third refusal reachable in C.
    enterArray("int [6][5][6]", "c", {"-2:3", "0:4", "0:5"});
    openBySettingsAction();
    ASSERT_TRUE(dlg->is2DSliceVisible());
    ASSERT_EQ(dlg->rowCombo->currentIndex(), 1);
    ASSERT_EQ(dlg->colCombo->currentIndex(), 2);
    Config2DTable* shown = ui->currentConfig;
    const int requests = backEnd->requests;

    // Same dimension twice.
    choose(colComboBox(), 1);
    click("ApplyButton");
    EXPECT_EQ(ui->stack->currentIndex(), 0);
    EXPECT_EQ(shownMessage(), "Error: Table Row and Column dimensions are the same.\n"
                              "Select different array dimensions for rows and columns.");
    EXPECT_TRUE(dlg->dialog->isVisible());

    // Outside the bounds.
    choose(colComboBox(), 2);
    typeIntoCell(COL, END, "6");
    click("ApplyButton");
    EXPECT_EQ(ui->stack->currentIndex(), 0);
    EXPECT_EQ(shownMessage(), "Error: Slice Start and End values must be within the array bounds.");
    EXPECT_TRUE(dlg->dialog->isVisible());
    EXPECT_EQ(cell(COL, END), "6") << "the user's values stay";

    // Within the bounds but below zero: rows on i open to its bounds -2:3.
    typeIntoCell(COL, END, "5");
    choose(rowComboBox(), 0);
    ASSERT_EQ(cell(ROW, START), "-2");
    click("ApplyButton");
    EXPECT_EQ(ui->stack->currentIndex(), 0);
    EXPECT_EQ(shownMessage(), "Error: Slice start and end values must be positive.");
    EXPECT_TRUE(dlg->dialog->isVisible());

    // None of them sent anything.
    EXPECT_EQ(ui->currentConfig, shown);
    EXPECT_EQ(backEnd->requests, requests);
}

TEST_F(DialogFlow, NegativeStartOfACArrayWithNegativeBoundsIsRefusedOnTheMessagePage) {
    enterArray("int [6][5][6]", "c", {"-2:3", "0:4", "0:5"});
    openBySettingsAction();
    choose(rowComboBox(), 0);
    typeIntoCell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::START_COL, "-1");
    click("ApplyButton");
    EXPECT_EQ(ui->stack->currentIndex(), 0);
    EXPECT_EQ(shownMessage(), "Error: Slice start and end values must be positive.");
}

TEST_F(DialogFlow, EveryAnswerRefreshesTheOpenWindow) {
    enterArray("int [4][5][6]", "c", {"0:3", "0:4", "0:5"});
    openBySettingsAction();
    // The user changes a value without applying; the next answer (Update)
    // puts the window back in line with the display.
    typeIntoCell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::START_COL, "2");
    const int before = backEnd->requests;
    view->updateView();
    ASSERT_TRUE(fake::waitFor([&] { return backEnd->requests > before; }));
    ASSERT_TRUE(fake::waitFor([&] {
        return cell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::START_COL) == "0";
    }));
    EXPECT_EQ(dlg->tableSliceLabel->text(), "[0:0][0:4:1][0:5:1]");
}
