// The Data Table page of the configuration window: the row and column
// dimension choosers, the start/end/stride table, the index spin boxes of the
// other dimensions, the check before applying, and the slice text written.
#include "dialogtesthelpers.h"

#include <QHeaderView>
#include <QScrollArea>

using namespace dialogtest;

namespace {

constexpr int ROW = ArrayLensConfigDialog::ROW_ROW;
constexpr int COL = ArrayLensConfigDialog::COLUMN_ROW;
constexpr int START = ArrayLensConfigDialog::START_COL;
constexpr int END = ArrayLensConfigDialog::END_COL;
constexpr int STRIDE = ArrayLensConfigDialog::STRIDE_COL;

const char SAME_DIMS[] = "Error: Table Row and Column dimensions are the same.\n"
                         "Select different array dimensions for rows and columns.";
const char OUT_OF_BOUNDS[] = "Error: Slice Start and End values must be within the array bounds.";
const char NOT_POSITIVE[] = "Error: Slice start and end values must be positive.";

class SliceEditor : public DialogTest {
protected:
    void SetUp() override {
        DialogTest::SetUp();
        QObject::connect(dlg, &ArrayLensConfigDialog::configError,
                         [this](const QString& text) { errors << text; });
    }

    // Opens the window on the table page of an array whose table answer
    // left `config` behind.
    fake::Expression* openOn(const QString& type, const QString& language,
                             const QStringList& bounds, Config2DTable* config) {
        fake::Expression* e = makeExpression("arr", type, language);
        makeCurrent(e, bounds, config, 3);
        openBySettingsAction();
        EXPECT_TRUE(dlg->is2DSliceVisible());
        return e;
    }

    // A C array int [4][5][6], shown with rows on 1, columns on 2, i at 2.
    void openCube() {
        openOn("int [4][5][6]", "c", {"0:3", "0:4", "0:5"},
               new Config2DTable(1, 2, "[2:2][0:4:1][0:5:1]", al_pres_default, al_type_integer,
                                 {2, 0, 0}));
    }

    // The configuration that the last OK or Apply handed over.
    Config2DTable* applied() const { return ui->currentConfig; }

    QStringList errors;
};

} // namespace

// ---- the page ------------------------------------------------------------------

TEST_F(SliceEditor, TableHasItsHeadersStylesAndDimensionChoosers) {
    openCube();
    QTableWidget* t = table();
    ASSERT_NE(t, nullptr);
    EXPECT_NE(qobject_cast<SliceTableWidget*>(t), nullptr);
    EXPECT_EQ(t->property("style").toString(), "Slice2DTable");
    EXPECT_EQ(t->horizontalHeader()->property("style").toString(), "Slice2DTable");
    EXPECT_EQ(t->rowCount(), 2);
    EXPECT_EQ(t->columnCount(), 4);
    EXPECT_EQ(t->horizontalHeaderItem(0)->text(), "Dimension");
    EXPECT_EQ(t->horizontalHeaderItem(1)->text(), "Start");
    EXPECT_EQ(t->horizontalHeaderItem(2)->text(), "End");
    EXPECT_EQ(t->horizontalHeaderItem(3)->text(), "Stride");
    EXPECT_EQ(t->verticalHeaderItem(0)->text(), "Row");
    EXPECT_EQ(t->verticalHeaderItem(1)->text(), "Column");
    EXPECT_EQ(t->horizontalHeader()->sectionResizeMode(0), QHeaderView::Fixed);
    EXPECT_EQ(t->horizontalHeader()->sectionResizeMode(2), QHeaderView::Stretch);
    EXPECT_EQ(t->selectionMode(), QAbstractItemView::SingleSelection);
    EXPECT_EQ(t->horizontalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    EXPECT_FALSE(t->wordWrap());
    ASSERT_NE(rowComboBox(), nullptr);
    ASSERT_NE(colComboBox(), nullptr);
    EXPECT_EQ(rowComboBox()->property("style").toString(), "TableCombo");
    EXPECT_EQ(dlg->rowCombo->toolTip(),
              "Select 2 different array dimensions for rows and columns in the Data Table.");
    EXPECT_EQ(t->cellWidget(ROW, 0), dlg->rowCombo);
    EXPECT_EQ(t->cellWidget(COL, 0), dlg->colCombo);
    EXPECT_EQ(rowComboBox()->itemText(0), "  [ i ]");
    EXPECT_EQ(rowComboBox()->itemText(2), "  [ k ]");
    EXPECT_EQ(dlg->otherDimsLabel->text(), "Other Slice Dimensions:");
    EXPECT_EQ(dlg->otherDimsLabel->toolTip(), SLICE_DATA_TABLE_SPINBOX_TOOTIP);
    EXPECT_EQ(dlg->otherDimsLabel->property("style").toString(), "h3");
    EXPECT_EQ(dlg->otherDimsHelpLabel->text(), "Select an array index.");
    EXPECT_EQ(dlg->otherDimsHelpLabel->property("style").toString(), "p");
}

TEST_F(SliceEditor, TableIsExactlyAsHighAsItsRows) {
    openCube();
    auto* t = qobject_cast<SliceTableWidget*>(table());
    ASSERT_NE(t, nullptr);
    const int height = 2 * t->rowHeight(0) + t->horizontalHeader()->height();
    EXPECT_EQ(t->sizeHint().height(), height);
    EXPECT_EQ(t->minimumSizeHint().height(), height);
    SliceTableWidget plain(2, 4, nullptr, false);
    EXPECT_EQ(plain.sizeHint(), plain.QTableWidget::sizeHint());
}

TEST_F(SliceEditor, SpinBoxesAreNamedAfterTheirDimensionAndLimitedToItsBounds) {
    openCube();
    ASSERT_EQ(dlg->spinBoxes->size(), 3);
    QSpinBox* i = spin("[i]SpinBox");
    QSpinBox* j = spin("[j]SpinBox");
    QSpinBox* k = spin("[k]SpinBox");
    ASSERT_TRUE(i && j && k);
    EXPECT_EQ(dlg->spinBoxes->at(0)->label()->text(), "[i]:");
    EXPECT_EQ(i->minimum(), 0);
    EXPECT_EQ(i->maximum(), 3);
    EXPECT_EQ(k->maximum(), 5);
    EXPECT_EQ(i->toolTip(), SLICE_DATA_TABLE_SPINBOX_TOOTIP);
    EXPECT_EQ(i->stepType(), QAbstractSpinBox::AdaptiveDecimalStepType);
    EXPECT_EQ(i->value(), 2) << "the index the table answer used";
    EXPECT_TRUE(i->isEnabled());
    EXPECT_FALSE(j->isEnabled()) << "the row dimension's spin box is off";
    EXPECT_FALSE(k->isEnabled()) << "the column dimension's spin box is off";
    EXPECT_FALSE(dlg->otherDimsFrame->isHidden());
}

TEST_F(SliceEditor, FortranSpinBoxesUseParenthesesAndStartAtOne) {
    openOn(
        "integer(4,5,6)", "fortran", {"1:4", "1:5", "1:6"},
        new Config2DTable(0, 1, "(1:4:1,1:5:1,3:3)", al_pres_default, al_type_integer, {1, 1, 3}));
    QSpinBox* k = spin("(k)SpinBox");
    ASSERT_NE(k, nullptr);
    EXPECT_EQ(dlg->spinBoxes->at(2)->label()->text(), "(k):");
    EXPECT_EQ(k->value(), 3);
    EXPECT_EQ(spin("(i)SpinBox")->value(), 1);
    EXPECT_EQ(rowComboBox()->itemText(0), "   ( i )");
    EXPECT_EQ(cell(ROW, START), "1");
    EXPECT_EQ(cell(ROW, END), "4");
    EXPECT_EQ(cell(COL, END), "5");
}

TEST_F(SliceEditor, TableAnswerFillsBothLines) {
    openOn(
        "int [4][5][6]", "c", {"0:3", "0:4", "0:5"},
        new Config2DTable(1, 2, "[2:2][1:4:2][0:5]", al_pres_default, al_type_integer, {2, 0, 0}));
    EXPECT_EQ(dlg->rowCombo->currentIndex(), 1);
    EXPECT_EQ(dlg->colCombo->currentIndex(), 2);
    EXPECT_EQ(cell(ROW, START), "1");
    EXPECT_EQ(cell(ROW, END), "4");
    EXPECT_EQ(cell(ROW, STRIDE), "2");
    EXPECT_EQ(cell(COL, START), "0");
    EXPECT_EQ(cell(COL, END), "5");
    EXPECT_EQ(cell(COL, STRIDE), "1") << "an omitted stride reads as 1";
    EXPECT_TRUE(dlg->useTableCheckBox->isEnabled());
    EXPECT_FALSE(dlg->tableSliceLabel->isHidden());
    EXPECT_EQ(dlg->tableSliceLabel->text(), "[2:2][1:4:2][0:5]");
}

// ---- edge cases ----------------------------------------------------------------

TEST_F(SliceEditor, OneDimensionalArrayLeavesCombosUnselectedTableOffAndApplyAccepted) {
    openOn("int [8]", "c", {"0:7"},
           new Config2DTable(-1, -1, "[0:7:1]", al_pres_default, al_type_integer, {}));
    EXPECT_EQ(dlg->rowCombo->currentIndex(), -1);
    EXPECT_EQ(dlg->colCombo->currentIndex(), -1);
    EXPECT_FALSE(table()->isEnabled());
    EXPECT_EQ(dlg->get2DSlice(), "");
    QString error;
    EXPECT_TRUE(dlg->check2DSlice(&error));
    click("ApplyButton");
    EXPECT_TRUE(errors.isEmpty());
    ASSERT_NE(applied(), nullptr);
    EXPECT_EQ(applied()->slice, "");
    EXPECT_EQ(applied()->rowDim, -1);
    EXPECT_EQ(applied()->colDim, -1);
}

TEST_F(SliceEditor, TwoDimensionalCArrayHasNoSpinBoxesAndWritesTwoGroups) {
    openOn("int [3][4]", "c", {"0:2", "0:3"},
           new Config2DTable(0, 1, "[0:2:1][1:3:2]", al_pres_default, al_type_integer, {0, 0}));
    EXPECT_TRUE(dlg->spinBoxes->isEmpty());
    EXPECT_TRUE(dlg->otherDimsFrame->isHidden());
    EXPECT_TRUE(dlg->otherDimsLabel->isHidden());
    EXPECT_TRUE(dlg->otherDimsHelpLabel->isHidden());
    EXPECT_TRUE(table()->isEnabled());
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(applied()->slice, "[0:2:1][1:3:2]");
}

TEST_F(SliceEditor, TwoDimensionalFortranArrayWritesOneParenthesisedGroup) {
    openOn("integer(3,4)", "fortran", {"1:3", "1:4"},
           new Config2DTable(0, 1, "(1:3:1,2:4:2)", al_pres_default, al_type_integer, {1, 1}));
    EXPECT_TRUE(dlg->spinBoxes->isEmpty());
    EXPECT_TRUE(dlg->otherDimsFrame->isHidden());
    EXPECT_TRUE(dlg->otherDimsLabel->isHidden());
    EXPECT_TRUE(dlg->otherDimsHelpLabel->isHidden());
    typeIntoCell(COL, START, "1");
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(applied()->slice, "(1:3:1,1:4:2)");
}

TEST_F(SliceEditor, ThreeDimensionalCArrayWritesFixedIndexThenRowAndColumnLines) {
    openOn("int [4][5][6]", "c", {"0:3", "0:4", "0:5"},
           new Config2DTable(1, 2, "[0:0][0:4:1][0:5:1]", al_pres_default, al_type_integer,
                             {0, 0, 0}));
    typeIntoSpin(spin("[i]SpinBox"), 2);
    typeIntoCell(ROW, START, "1");
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(applied()->slice, "[2:2][1:4:1][0:5:1]");
    EXPECT_EQ(applied()->rowDim, 1);
    EXPECT_EQ(applied()->colDim, 2);
    EXPECT_EQ(applied()->otherDimIndexList, (QList<int>{2, 0, 0}));
}

TEST_F(SliceEditor, SameDimensionForRowAndColumnFillsBothLinesFromOneRecordAndIsRefused) {
    openOn("int [4][5][6]", "c", {"0:3", "0:4", "0:5"},
           new Config2DTable(1, 2, "[2:2][1:3:1][0:5:1]", al_pres_default, al_type_integer,
                             {2, 0, 0}));
    Config2DTable* before = applied();
    choose(colComboBox(), 1);
    ASSERT_EQ(dlg->colCombo->currentIndex(), 1);
    EXPECT_EQ(cell(ROW, START), "1");
    EXPECT_EQ(cell(ROW, END), "3");
    EXPECT_EQ(cell(COL, START), "1");
    EXPECT_EQ(cell(COL, END), "3");
    EXPECT_EQ(cell(COL, STRIDE), "1");
    // Only the row line is written for the dimension.
    EXPECT_EQ(dlg->get2DSlice(), "[2:2][1:3:1][0:0]");
    click("ApplyButton");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), SAME_DIMS);
    EXPECT_EQ(shownMessage(), SAME_DIMS);
    EXPECT_EQ(applied(), before) << "nothing is applied";
    EXPECT_TRUE(dlg->dialog->isVisible());
}

TEST_F(SliceEditor, ChoosingAFixedDimensionAsRowOpensItAndPreviousRowKeepsItsSpinValue) {
    openOn("int [6][5][6]", "c", {"0:5", "0:4", "0:5"},
           new Config2DTable(1, 2, "[4:4][1:3:1][0:5:1]", al_pres_default, al_type_integer,
                             {4, 0, 0}));
    ASSERT_EQ(spin("[i]SpinBox")->value(), 4);
    choose(rowComboBox(), 0);
    ASSERT_EQ(dlg->rowCombo->currentIndex(), 0);
    // Full bounds and stride 1; the 4 is forgotten.
    EXPECT_EQ(cell(ROW, START), "0");
    EXPECT_EQ(cell(ROW, END), "5");
    EXPECT_EQ(cell(ROW, STRIDE), "1");
    EXPECT_FALSE(spin("[i]SpinBox")->isEnabled());
    // The former row dimension gets its spin box back with its old value,
    // not the range 1:3 that was saved for it.
    EXPECT_TRUE(spin("[j]SpinBox")->isEnabled());
    EXPECT_EQ(spin("[j]SpinBox")->value(), 0);
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(applied()->slice, "[0:5:1][0:0][0:5:1]");
}

TEST_F(SliceEditor, SavedRangeComesBackWhenADimensionReturnsToALine) {
    openCube();
    typeIntoCell(ROW, START, "1");
    typeIntoCell(ROW, END, "3");
    choose(rowComboBox(), 0);
    choose(rowComboBox(), 1);
    EXPECT_EQ(cell(ROW, START), "1");
    EXPECT_EQ(cell(ROW, END), "3");
}

TEST_F(SliceEditor, NegativeStrideWithStartBelowEndIsSwappedAtApply) {
    openCube();
    typeIntoCell(ROW, START, "0");
    typeIntoCell(ROW, END, "4");
    typeIntoCell(ROW, STRIDE, "-1");
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(cell(ROW, START), "4");
    EXPECT_EQ(cell(ROW, END), "0");
    EXPECT_EQ(cell(ROW, STRIDE), "-1");
    EXPECT_EQ(applied()->slice, "[2:2][4:0:-1][0:5:1]");
}

TEST_F(SliceEditor, BothLinesWronglyOrderedSwapRowAtThisApplyAndColumnAtTheNext) {
    openCube();
    typeIntoCell(ROW, START, "0");
    typeIntoCell(ROW, END, "4");
    typeIntoCell(ROW, STRIDE, "-1");
    typeIntoCell(COL, START, "5");
    typeIntoCell(COL, END, "0");
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(cell(ROW, START), "4");
    EXPECT_EQ(cell(ROW, END), "0");
    EXPECT_EQ(cell(COL, START), "5") << "the column waits for the next pass";
    EXPECT_EQ(cell(COL, END), "0");
    EXPECT_EQ(applied()->slice, "[2:2][4:0:-1][5:0:1]");
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(cell(COL, START), "0");
    EXPECT_EQ(cell(COL, END), "5");
    EXPECT_EQ(applied()->slice, "[2:2][4:0:-1][0:5:1]");
}

TEST_F(SliceEditor, FortranSliceInCStyleTurnsTheCheckBoxOff) {
    openOn("int [3][4]", "c", {"0:2", "0:3"},
           new Config2DTable(0, 1, "(1:3,2:2)", al_pres_default, al_type_integer, {0, 0}));
    EXPECT_FALSE(dlg->useTableCheckBox->isEnabled());
    EXPECT_FALSE(dlg->useTableCheckBox->isChecked());
    EXPECT_TRUE(dlg->tableSliceLabel->isHidden());
    EXPECT_EQ(dlg->tableSliceLabel->text(), "");
}

TEST_F(SliceEditor, EmptyStrideCellWritesStartEndAndReadsBackWithStrideOne) {
    fake::Expression* e = nullptr;
    openCube();
    e = static_cast<fake::Expression*>(ui->currentExpression);
    typeIntoCell(ROW, STRIDE, "");
    EXPECT_EQ(cell(ROW, STRIDE), "");
    click("ApplyButton");
    ASSERT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(applied()->slice, "[2:2][0:4][0:5:1]");
    // The refresh after the answer reads the slice back.
    view->updateConfigOptions(e);
    EXPECT_EQ(cell(ROW, START), "0");
    EXPECT_EQ(cell(ROW, END), "4");
    EXPECT_EQ(cell(ROW, STRIDE), "1");
}

TEST_F(SliceEditor, CArrayWithBoundsFromOneAndStartZeroGivesTheBoundsMessage) {
    openOn("int [3][4]", "c", {"1:3", "1:4"},
           new Config2DTable(0, 1, "[1:3:1][1:4:1]", al_pres_default, al_type_integer, {1, 1}));
    typeIntoCell(ROW, START, "0");
    click("ApplyButton");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), OUT_OF_BOUNDS);
    EXPECT_EQ(shownMessage(), OUT_OF_BOUNDS);
}

TEST_F(SliceEditor, CArrayWithNegativeBoundsAndNegativeStartGivesThePositiveMessage) {
    openOn("int [6][5]", "c", {"-2:3", "0:4"},
           new Config2DTable(0, 1, "[0:3:1][0:4:1]", al_pres_default, al_type_integer, {0, 0}));
    typeIntoCell(ROW, START, "-2");
    click("ApplyButton");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), NOT_POSITIVE);
    EXPECT_EQ(shownMessage(), NOT_POSITIVE);
}

TEST_F(SliceEditor, FortranArrayAcceptsNegativeIndexesWithinItsBounds) {
    openOn("integer(-2:3,5)", "fortran", {"-2:3", "1:5"},
           new Config2DTable(0, 1, "(0:3:1,1:5:1)", al_pres_default, al_type_integer, {0, 1}));
    typeIntoCell(ROW, START, "-2");
    click("ApplyButton");
    EXPECT_TRUE(errors.isEmpty()) << qPrintable(errors.join("|"));
    EXPECT_EQ(applied()->slice, "(-2:3:1,1:5:1)");
}

TEST_F(SliceEditor, WholeDimensionAsRowFailsTheBoundsCheck) {
    openOn("int [3][4]", "c", {"0:2", "0:3"},
           new Config2DTable(0, 1, "[:][0:3:1]", al_pres_default, al_type_integer, {0, 0}));
    click("ApplyButton");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), OUT_OF_BOUNDS);
}

TEST_F(SliceEditor, OkAfterARefusedCheckClosesTheWindowAndAppliesNothing) {
    openCube();
    Config2DTable* before = applied();
    typeIntoCell(COL, END, "60");
    click("OKButton");
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), OUT_OF_BOUNDS);
    EXPECT_EQ(shownMessage(), OUT_OF_BOUNDS);
    EXPECT_FALSE(dlg->dialog->isVisible()) << "OK closes the window all the same";
    EXPECT_EQ(applied(), before);
    EXPECT_EQ(overlay()->executed, 0);
}

TEST_F(SliceEditor, RefusalReEnablesTheSliceWidgets) {
    openCube();
    typeIntoCell(COL, END, "60");
    dlg->setAllSliceWidgetsEnabled(false);
    click("ApplyButton");
    EXPECT_TRUE(dlg->sliceStack->isEnabled());
    EXPECT_TRUE(dlg->dataFormatCombo->isEnabled());
}

// ---- the "Use Data Table slice:" link ------------------------------------------

TEST_F(SliceEditor, UsingTheTableSliceForStatsAppliesItAndSetsTheFlag) {
    fake::Expression* e = makeExpression("arr", "int [4][5][6]", "c");
    makeCurrent(
        e, {"0:3", "0:4", "0:5"},
        new Config2DTable(1, 2, "[2:2][0:4:1][0:5:1]", al_pres_default, al_type_integer, {2, 0, 0}),
        1);
    ui->currentSlice2dTable = "[2:2][0:4:1][0:5:1]";
    openBySettingsAction();
    ASSERT_FALSE(dlg->is2DSliceVisible());
    ASSERT_TRUE(dlg->useTableCheckBox->isEnabled());
    EXPECT_EQ(dlg->tableSliceLabel->text(), "[2:2][0:4:1][0:5:1]");
    QTest::mouseClick(dlg->useTableCheckBox, Qt::LeftButton);
    ASSERT_TRUE(dlg->useTableCheckBox->isChecked());
    EXPECT_FALSE(dlg->sliceLineEdit->isEnabled());
    EXPECT_EQ(dlg->tableSliceLabel->property("style").toString(), "HighlightBackgroundEnable");
    click("ApplyButton");
    EXPECT_TRUE(ui->use2DSlice);
    EXPECT_EQ(applied()->slice, "[2:2][0:4:1][0:5:1]");
    EXPECT_EQ(overlay()->executed, 1) << "the table slice holds digits";
    QTest::mouseClick(dlg->useTableCheckBox, Qt::LeftButton);
    EXPECT_TRUE(dlg->sliceLineEdit->isEnabled());
    EXPECT_EQ(dlg->tableSliceLabel->property("style").toString(), "HighlightBackground");
}

TEST_F(SliceEditor, NoTableSliceLeavesTheLinkOff) {
    fake::Expression* e = makeExpression("arr", "int [4][5]", "c");
    makeCurrent(e, {"0:3", "0:4"}, new Config2DTable(), 1);
    openBySettingsAction();
    EXPECT_FALSE(dlg->useTableCheckBox->isEnabled());
    EXPECT_TRUE(dlg->tableSliceLabel->isHidden());
}
