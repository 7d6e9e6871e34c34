// The configuration window's frame: its form, opening and placing, filling
// from the current expression, the data format list and the four buttons.
#include "dialogtesthelpers.h"

#include <QDialogButtonBox>
#include <QHeaderView>
#include <QVBoxLayout>

using namespace dialogtest;

namespace {

class DialogFrame : public DialogTest {
protected:
    // A two-dimensional C array shown in statistics.
    fake::Expression* openOnCArray(int displayMode = 1) {
        fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
        makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), displayMode);
        openBySettingsAction();
        return e;
    }
};

} // namespace

// ---- the form -----------------------------------------------------------------

TEST_F(DialogFrame, WindowHasItsNameTitleAndInitialSize) {
    EXPECT_EQ(dlg->dialog->objectName(), "ArrayLensConfigDialog");
    EXPECT_EQ(dlg->dialog->windowTitle(), "Configuration Options");
    EXPECT_EQ(dlg->dialog->size(), QSize(421, 548));
    EXPECT_EQ(dlg->dialog->parent(), nullptr);
    EXPECT_FALSE(dlg->isVisible()) << "the base widget itself is never shown";
    auto* outer = qobject_cast<QVBoxLayout*>(dlg->dialog->layout());
    ASSERT_NE(outer, nullptr);
    EXPECT_EQ(outer->spacing(), 14);
    EXPECT_EQ(outer->contentsMargins(), QMargins(16, 12, 16, 12));
}

TEST_F(DialogFrame, FormWidgetsCarryTheirTextsAndStyleProperties) {
    struct Expect {
        const char* name;
        const char* text;
        const char* style;
    };
    const Expect labels[] = {
        {"dialogTitleLabel", "Array Lens Options", "h1"},
        {"dialogInstructionLabel", "Analyze a specific subset of the array.", "h2"},
        {"exprLabel", "Expression:", "h3"},
        {"expressionString", "No Expression", nullptr},
        {"typeLabel", "Type:", "h3"},
        {"typeInstructionLabel", "Cast your array to a different type.", "p"},
        {"actualTypeLabel", "Actual Type:", "h3"},
        {"sliceLabel", "Slice:", "h3"},
        {"sliceInstructionLabel", SLICE_STATS_PLOTS_HELP, "p"},
        {"filterLabel", "Filter:", "h3"},
        {"filterInstructionLabel", "Use filters to reduce array data.", "p"},
        {"dataFormatLabel", "Data Format:", "h3"},
        {"dataFormatInstructionLabel", "Select a format for displaying data.", "p"},
    };
    for (const Expect& e : labels) {
        QLabel* label = find<QLabel>(e.name);
        ASSERT_NE(label, nullptr) << e.name;
        EXPECT_EQ(label->text(), QString::fromUtf8(e.text)) << e.name;
        EXPECT_EQ(label->property("style").toString(), QString::fromUtf8(e.style ? e.style : ""))
            << e.name;
    }
    EXPECT_EQ(find<QLabel>("expressionString")->property("fontstyle").toString(), "LargerFont");
    EXPECT_EQ(find<QLineEdit>("typeLineEdit")->text(), "Expression Type");
    EXPECT_EQ(find<QLineEdit>("typeLineEdit")->property("fontstyle").toString(), "LargerFont");
    EXPECT_EQ(find<QFrame>("line")->property("style").toString(), "line");
    EXPECT_EQ(find<QFrame>("line")->frameShape(), QFrame::HLine);
    EXPECT_EQ(find<QFrame>("line")->frameShadow(), QFrame::Sunken);
    // Hidden for good, and the actual type row until it is needed.
    EXPECT_TRUE(find<QLabel>("dialogInstructionLabel")->isHidden());
    EXPECT_TRUE(find<QLabel>("actualTypeLabel")->isHidden());
    EXPECT_TRUE(find<QLabel>("actualType")->isHidden());
    EXPECT_EQ(find<QComboBox>("dataFormatComboBox")->minimumWidth(), 165);
    EXPECT_EQ(find<QStackedWidget>("sliceStackedWidget")->frameShape(), QFrame::NoFrame);
}

TEST_F(DialogFrame, ButtonsComeInOrderWithRolesStylesTipsAndNames) {
    QDialogButtonBox* box = find<QDialogButtonBox>("configButtonBox");
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->orientation(), Qt::Horizontal);
    EXPECT_EQ(box->styleSheet(), "* { button-layout: 2 }");
    const QList<QAbstractButton*> buttons = box->buttons();
    ASSERT_EQ(buttons.size(), 4);
    struct Expect {
        const char* text;
        QDialogButtonBox::ButtonRole role;
        const char* style;
        const char* tip;
        const char* name;
    };
    const Expect expected[] = {
        {"OK", QDialogButtonBox::AcceptRole, "nqf-key-button",
         "Apply the settings to the current array and close the dialog box", "OKButton"},
        {"Reset", QDialogButtonBox::ResetRole, "nqf-button", "Clear any settings", "ResetButton"},
        {"Apply", QDialogButtonBox::ApplyRole, "nqf-button",
         "Apply settings to the current array and update the view. Keep the dialog open.",
         "ApplyButton"},
        {"Cancel", QDialogButtonBox::RejectRole, "nqf-button", "Close the Configuration Dialog box",
         "CancelButton"},
    };
    for (const Expect& e : expected) {
        QPushButton* b = button(e.name);
        ASSERT_NE(b, nullptr) << e.name;
        EXPECT_EQ(b->text(), e.text);
        EXPECT_EQ(box->buttonRole(b), e.role) << e.name;
        EXPECT_EQ(b->property("style").toString(), e.style) << e.name;
        EXPECT_EQ(b->toolTip(), e.tip) << e.name;
    }
    EXPECT_TRUE(button("OKButton")->isDefault());
    // Added in this order.
    EXPECT_EQ(buttons.indexOf(button("OKButton")) < buttons.indexOf(button("ResetButton")), true);
}

TEST_F(DialogFrame, StatsPageHoldsSliceLineAndDataTableSliceLink) {
    EXPECT_EQ(dlg->sliceStack->count(), 1) << "only one slice page is in the stack";
    EXPECT_EQ(dlg->sliceStack->currentWidget(), dlg->statsPage);
    EXPECT_EQ(dlg->statsPage->objectName(), "statsPlotsSlicePage");
    EXPECT_EQ(dlg->tablePage->objectName(), "dataTable2DPage");
    QLineEdit* slice = find<QLineEdit>("SliceLineEdit");
    ASSERT_EQ(slice, dlg->sliceLineEdit);
    EXPECT_EQ(slice->placeholderText(), "Enter an array slice");
    EXPECT_EQ(slice->property("fontstyle").toString(), "LargerFont");
    EXPECT_EQ(dlg->useTableCheckBox->text(), "Use Data Table slice:");
    EXPECT_EQ(dlg->useTableCheckBox->toolTip(), "Use the Data Table slice for Stats and Plots.");
    EXPECT_FALSE(dlg->useTableCheckBox->isEnabled());
    EXPECT_TRUE(dlg->tableSliceLabel->isHidden());
    EXPECT_EQ(dlg->tableSliceLabel->property("style").toString(), "HighlightBackground");
    EXPECT_TRUE(dlg->tableSliceLabel->wordWrap());
    EXPECT_EQ(dlg->filterTextEdit->maximumHeight(), 60);
    auto* pageLayout = qobject_cast<QVBoxLayout*>(dlg->statsPage->layout());
    ASSERT_NE(pageLayout, nullptr);
    EXPECT_EQ(pageLayout->spacing(), 6);
    EXPECT_EQ(pageLayout->contentsMargins(), QMargins(0, 0, 0, 0));
}

TEST_F(DialogFrame, FixedTextsAreKeptAsWritten) {
    EXPECT_STREQ(SLICE_CHECKBOX_TOOLTIP, "Use the Data Table slice for Stats and Plots.");
    EXPECT_STREQ(SLICE_DATA_TABLE_HELP,
                 "Define a 2D slice through the array to examine data in a table.");
    EXPECT_STREQ(SLICE_STATS_PLOTS_HELP,
                 "Define a slice to operate on a smaller portion of array data.");
    EXPECT_STREQ(SLICE_DATA_TABLE_SPINBOX_TOOTIP,
                 "Select an array index for other non row/column dimension(s).");
    EXPECT_STREQ(SLICE_DATA_TABLE_SPINBOX_HELP, "Select an array index.");
    EXPECT_STREQ(SLICE_EDIT_HELP,
                 "Data Table Hint: To examine layers of data, create a slice forming a plane "
                 "through a multidimensional array by fixing one dimension and slicing along "
                 "the other two.");
    EXPECT_STREQ(SLICE_EDIT_C_EXAMPLE, "Example: Array intArray3d[10,10,10] with Slice "
                                       "[2:2:1][0:9:1][0:9:1] creates a 10x10 table for i=2");
}

// ---- opening ------------------------------------------------------------------

TEST_F(DialogFrame, SettingsActionWithoutExpressionPostsNoDataAndDoesNotOpen) {
    openBySettingsAction();
    EXPECT_FALSE(dlg->dialog->isVisible());
    EXPECT_EQ(shownMessage(), "No Array Data Available");
}

TEST_F(DialogFrame, SettingsActionOpensWindowModalOnCurrentExpression) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    e->actualType = "int [3][4]";
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    ui->currentSlice = "[1:2][:]";
    ui->currentFilter = "$value > 3";
    openBySettingsAction();
    ASSERT_TRUE(dlg->dialog->isVisible());
    EXPECT_EQ(dlg->dialog->windowModality(), Qt::WindowModal);
    EXPECT_EQ(find<QLabel>("expressionString")->text(), "matrix");
    EXPECT_EQ(find<QLineEdit>("typeLineEdit")->text(), "int [3][4]");
    EXPECT_EQ(dlg->originalType, "int [3][4]");
    EXPECT_EQ(dlg->sliceLineEdit->text(), "[1:2][:]");
    EXPECT_EQ(dlg->filterTextEdit->toPlainText(), "$value > 3");
    // The same actual type as the declared one shows no extra row.
    EXPECT_TRUE(find<QLabel>("actualType")->isHidden());
    EXPECT_EQ(view->getConfigType(), "int [3][4]");
}

TEST_F(DialogFrame, DifferentActualTypeShowsTheActualTypeRow) {
    fake::Expression* e = makeExpression("p", "int *", "c");
    e->actualType = "int [8]";
    makeCurrent(e, {"0:7"}, new Config2DTable(), 1);
    openBySettingsAction();
    EXPECT_FALSE(find<QLabel>("actualType")->isHidden());
    EXPECT_FALSE(find<QLabel>("actualTypeLabel")->isHidden());
    EXPECT_EQ(find<QLabel>("actualType")->text(), "int [8]");
}

TEST_F(DialogFrame, ActualTypeRowStaysWhenTheActualTypeMatchesTheType) {
    fake::Expression* e = makeExpression("p", "int *", "c");
    e->actualType = "int [8]";
    makeCurrent(e, {"0:7"}, new Config2DTable(), 1);
    openBySettingsAction();
    ASSERT_FALSE(find<QLabel>("actualType")->isHidden());
    // The next refresh reports the same text for both: the row is left as
    // it stands, with the earlier text.
    e->actualType = "int *";
    view->updateConfigOptions(e);
    EXPECT_FALSE(find<QLabel>("actualType")->isHidden());
    EXPECT_FALSE(find<QLabel>("actualTypeLabel")->isHidden());
    EXPECT_EQ(find<QLabel>("actualType")->text(), "int [8]");
    // An empty actual type hides it.
    e->actualType = "";
    view->updateConfigOptions(e);
    EXPECT_TRUE(find<QLabel>("actualType")->isHidden());
    EXPECT_TRUE(find<QLabel>("actualTypeLabel")->isHidden());
}

TEST_F(DialogFrame, RefreshWritesTheFilterActionTip) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    openBySettingsAction();
    QAction* action = view->toolBarFactory->filterAction;
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->toolTip(), "Enable/disable filtering for array Statistics.");

    ui->currentFilter = "$value > 1";
    action->setChecked(true);
    view->updateConfigOptions(e);
    EXPECT_EQ(action->toolTip(), "Disable filtering for array Statistics.\nFilter: $value > 1");

    action->setChecked(false);
    view->updateConfigOptions(e);
    EXPECT_EQ(action->toolTip(), "Enable filtering for array Statistics.\nFilter: $value > 1");
}

TEST_F(DialogFrame, LanguageNamesCppCAndUpcInAnyCaseGiveCStyle) {
    for (const char* language : {"C++", "c++", "C", "c", "UPC", "uPc"}) {
        fake::Expression* e = makeExpression("a", "int [2][2]", language);
        makeCurrent(e, {"0:1", "0:1"}, new Config2DTable(), 1);
        openBySettingsAction();
        EXPECT_TRUE(dlg->cStyle) << language;
        EXPECT_EQ(dlg->sliceLineEdit->text(), "[:][:]") << language;
        dlg->dialog->done(0);
    }
}

TEST_F(DialogFrame, LanguageNamesFortranF90AndEmptyGiveFortranStyle) {
    for (const char* language : {"fortran", "f90", ""}) {
        fake::Expression* e = makeExpression("a", "integer(2,2)", language);
        makeCurrent(e, {"1:2", "1:2"}, new Config2DTable(), 1);
        openBySettingsAction();
        EXPECT_FALSE(dlg->cStyle) << language;
        EXPECT_EQ(dlg->sliceLineEdit->text(), "(:,:)") << language;
        dlg->dialog->done(0);
    }
}

TEST_F(DialogFrame, SetSliceWithEmptyTextAndEmptyTypeLeavesSliceLineEmpty) {
    fake::Expression* e = makeExpression("a", "", "c");
    makeCurrent(e, {}, new Config2DTable(), 1);
    openBySettingsAction();
    EXPECT_EQ(dlg->sliceLineEdit->text(), "");
    dlg->sliceLineEdit->setText("[1:1]");
    dlg->setSlice(QString());
    EXPECT_EQ(dlg->sliceLineEdit->text(), "");
}

TEST_F(DialogFrame, SetSliceWithEmptyTextPrefersBackEndEmptySlice) {
    fake::Expression* e = makeExpression("a", "int [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"}, new Config2DTable(), 1);
    ui->currentEmptySlice = "[0:1][0:1]";
    openBySettingsAction();
    EXPECT_EQ(dlg->sliceLineEdit->text(), "[0:1][0:1]");
}

TEST_F(DialogFrame, FirstLaunchCentresWindowOverMainWindowAtItsTop) {
    core.mainWindow.setGeometry(100, 50, 1000, 800);
    openOnCArray();
    const QRect frame = dlg->dialog->frameGeometry();
    EXPECT_EQ(frame.x(), 100 + (1000 - frame.width()) / 2);
    EXPECT_EQ(frame.y(), 50);
    EXPECT_FALSE(dlg->firstLaunch);
}

TEST_F(DialogFrame, FirstLaunchLeftOfScreenIsRaisedToZero) {
    core.mainWindow.setGeometry(-500, -30, 200, 300);
    openOnCArray();
    EXPECT_EQ(dlg->dialog->frameGeometry().x(), 0);
    EXPECT_EQ(dlg->dialog->frameGeometry().y(), 0);
}

TEST_F(DialogFrame, SecondLaunchRestoresGeometrySavedAtApply) {
    openOnCArray();
    dlg->dialog->setGeometry(30, 40, 700, 800);
    click("ApplyButton");
    EXPECT_EQ(dlg->savedGeometry, QRect(30, 40, 700, 800));
    dlg->dialog->setGeometry(300, 300, 720, 820);
    dlg->dialog->done(0);
    openBySettingsAction();
    EXPECT_EQ(dlg->dialog->geometry(), QRect(30, 40, 700, 800));
}

TEST_F(DialogFrame, SecondLaunchRestoresGeometrySavedAtOk) {
    openOnCArray();
    dlg->dialog->setGeometry(31, 41, 701, 801);
    click("OKButton");
    EXPECT_FALSE(dlg->dialog->isVisible());
    dlg->dialog->setGeometry(300, 300, 720, 820);
    openBySettingsAction();
    EXPECT_EQ(dlg->dialog->geometry(), QRect(31, 41, 701, 801));
}

TEST_F(DialogFrame, SecondLaunchRestoresGeometrySavedAtCancel) {
    openOnCArray();
    dlg->dialog->setGeometry(32, 42, 702, 802);
    click("CancelButton");
    EXPECT_FALSE(dlg->dialog->isVisible());
    dlg->dialog->setGeometry(300, 300, 720, 820);
    openBySettingsAction();
    EXPECT_EQ(dlg->dialog->geometry(), QRect(32, 42, 702, 802));
}

TEST_F(DialogFrame, ClosingByTheFrameDoesNotSaveTheGeometry) {
    openOnCArray();
    dlg->dialog->setGeometry(33, 43, 703, 803);
    click("ApplyButton");
    dlg->dialog->setGeometry(200, 210, 720, 820);
    dlg->dialog->close();
    EXPECT_FALSE(dlg->dialog->isVisible());
    EXPECT_EQ(dlg->savedGeometry, QRect(33, 43, 703, 803));
    openBySettingsAction();
    EXPECT_EQ(dlg->dialog->geometry(), QRect(33, 43, 703, 803));
}

TEST_F(DialogFrame, DefaultSavedGeometryIsNotApplied) {
    EXPECT_EQ(dlg->savedGeometry, QRect(QPoint(0, 0), QPoint(-1, -1)));
    EXPECT_FALSE(dlg->savedGeometry.isValid());
    core.mainWindow.setGeometry(100, 50, 1000, 800);
    openOnCArray();
    // Still where the first launch put it: the default rectangle would
    // have moved it to 0, 0 and shrunk it.
    EXPECT_EQ(dlg->dialog->frameGeometry().y(), 50);
    EXPECT_GT(dlg->dialog->frameGeometry().x(), 100);
    EXPECT_GT(dlg->dialog->width(), 0);
    dlg->dialog->done(0);
    openBySettingsAction();
    EXPECT_EQ(dlg->dialog->frameGeometry().y(), 50);
}

TEST_F(DialogFrame, CloseDialogEndsTheWindow) {
    openOnCArray();
    ASSERT_TRUE(dlg->dialog->isVisible());
    view->closeConfigDialog();
    EXPECT_FALSE(dlg->dialog->isVisible());
    EXPECT_EQ(dlg->dialog->result(), 0);
}

// ---- type and slice widgets -----------------------------------------------------

TEST_F(DialogFrame, EditingTheTypeGreysSliceAndFormatUntilItReturns) {
    openOnCArray();
    QLineEdit* type = find<QLineEdit>("typeLineEdit");
    EXPECT_TRUE(dlg->sliceStack->isEnabled());
    QTest::keyClicks(type, "x");
    EXPECT_FALSE(dlg->sliceStack->isEnabled());
    EXPECT_FALSE(dlg->dataFormatCombo->isEnabled());
    QTest::keyClick(type, Qt::Key_Backspace);
    EXPECT_TRUE(dlg->sliceStack->isEnabled());
    EXPECT_TRUE(dlg->dataFormatCombo->isEnabled());
}

TEST_F(DialogFrame, TableDisplayShowsTheTablePageAndNarrowsTheFilter) {
    openOnCArray(3);
    EXPECT_TRUE(dlg->is2DSliceVisible());
    EXPECT_EQ(dlg->sliceStack->count(), 1);
    EXPECT_EQ(find<QLabel>("sliceInstructionLabel")->text(), SLICE_DATA_TABLE_HELP);
    EXPECT_EQ(dlg->filterTextEdit->maximumHeight(), 45);
    // Back to statistics at the next refresh.
    ui->displayMode = 1;
    view->updateConfigOptions(ui->currentExpression);
    EXPECT_FALSE(dlg->is2DSliceVisible());
    EXPECT_EQ(dlg->sliceStack->count(), 1);
    EXPECT_EQ(find<QLabel>("sliceInstructionLabel")->text(), SLICE_STATS_PLOTS_HELP);
    EXPECT_EQ(dlg->filterTextEdit->maximumHeight(), 60);
}

// ---- the data format list -------------------------------------------------------

namespace {
QStringList items(QComboBox* combo) {
    QStringList out;
    for (int i = 0; i < combo->count(); ++i)
        out << combo->itemText(i);
    return out;
}
} // namespace

TEST_F(DialogFrame, IntegerArraysListSixFormatsInFormatNumberOrder) {
    fake::Expression* e = makeExpression("a", "int [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"},
                new Config2DTable(-1, -1, QString(), al_pres_octal, al_type_integer, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(items(dlg->dataFormatCombo),
              (QStringList{"Automatic", "Hexadecimal (Decimal)", "Decimal (Hexadecimal)", "Decimal",
                           "Hexadecimal", "Octal"}));
    EXPECT_EQ(dlg->dataFormatCombo->currentIndex(), 5);
    EXPECT_EQ(dlg->getDataFormat(), al_pres_octal);
}

TEST_F(DialogFrame, CharacterArraysAddCharacterFormat) {
    fake::Expression* e = makeExpression("s", "char [2][8]", "c");
    makeCurrent(e, {"0:1", "0:7"},
                new Config2DTable(-1, -1, QString(), al_pres_char, al_type_char, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(dlg->dataFormatCombo->count(), 7);
    EXPECT_EQ(dlg->dataFormatCombo->itemText(6), "Character");
    EXPECT_EQ(dlg->getDataFormat(), al_pres_char);
}

TEST_F(DialogFrame, FloatArraysListAutomaticDecimalScientific) {
    fake::Expression* e = makeExpression("d", "double [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"},
                new Config2DTable(-1, -1, QString(), al_pres_scientific, al_type_float, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(items(dlg->dataFormatCombo), (QStringList{"Automatic", "Decimal", "Scientific"}));
    EXPECT_EQ(dlg->dataFormatCombo->currentIndex(), 2);
    EXPECT_EQ(dlg->getDataFormat(), al_pres_scientific);
    choose(dlg->dataFormatCombo, 1);
    EXPECT_EQ(dlg->getDataFormat(), al_pres_decimal);
}

TEST_F(DialogFrame, FloatListWithHexadecimalPresKeepsFirstItemAndReadsAutomatic) {
    fake::Expression* e = makeExpression("d", "double [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"},
                new Config2DTable(-1, -1, QString(), al_pres_hex, al_type_float, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(dlg->dataFormatCombo->currentIndex(), 0);
    EXPECT_EQ(dlg->dataFormatCombo->currentText(), "Automatic");
    EXPECT_EQ(dlg->getDataFormat(), 0);
}

TEST_F(DialogFrame, IntegerListWithScientificPresHasNoCurrentItem) {
    fake::Expression* e = makeExpression("a", "int [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"},
                new Config2DTable(-1, -1, QString(), al_pres_scientific, al_type_integer, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(dlg->dataFormatCombo->currentIndex(), -1);
    EXPECT_EQ(static_cast<int>(dlg->getDataFormat()), -1);
}

TEST_F(DialogFrame, IntegerListWithCharacterPresHasNoCurrentItem) {
    fake::Expression* e = makeExpression("a", "int [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"},
                new Config2DTable(-1, -1, QString(), al_pres_char, al_type_integer, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(dlg->dataFormatCombo->currentIndex(), -1);
    EXPECT_EQ(static_cast<int>(dlg->getDataFormat()), -1);
}

TEST_F(DialogFrame, OtherElementTypesListOnlyAutomatic) {
    fake::Expression* e = makeExpression("a", "struct s [2][2]", "c");
    makeCurrent(e, {"0:1", "0:1"},
                new Config2DTable(-1, -1, QString(), al_pres_default, al_type_other, {}), 3);
    openBySettingsAction();
    EXPECT_EQ(items(dlg->dataFormatCombo), QStringList{"Automatic"});
    EXPECT_EQ(dlg->getDataFormat(), 0);
}

TEST_F(DialogFrame, ChosenFormatTravelsInTheAppliedConfiguration) {
    fake::Expression* e = makeExpression("a", "int [2][3]", "c");
    makeCurrent(
        e, {"0:1", "0:2"},
        new Config2DTable(0, 1, "[0:1:1][0:2:1]", al_pres_automatic, al_type_integer, {0, 0}), 3);
    openBySettingsAction();
    choose(dlg->dataFormatCombo, 4);
    click("ApplyButton");
    ASSERT_NE(ui->currentConfig, nullptr);
    EXPECT_EQ(ui->currentConfig->dataPres, al_pres_hex);
    EXPECT_EQ(ui->currentConfig->dataType, al_type_integer);
}

// ---- OK and Apply ---------------------------------------------------------------

TEST_F(DialogFrame, ApplyHandsSliceFilterAndConfigurationToTheController) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    Config2DTable* before = new Config2DTable();
    makeCurrent(e, {"0:2", "0:3"}, before, 1);
    openBySettingsAction();
    typeInto(dlg->sliceLineEdit, "[1:2][0:3:2]");
    click("ApplyButton");
    EXPECT_EQ(ui->currentSlice, "[1:2][0:3:2]");
    EXPECT_NE(ui->currentConfig, before) << "a new configuration is handed over";
    EXPECT_FALSE(ui->use2DSlice);
    EXPECT_TRUE(dlg->dialog->isVisible()) << "Apply keeps the window open";
    EXPECT_EQ(overlay()->executed, 1);
    EXPECT_EQ(overlay()->parametersAtExecution.last().value("Message").toString(), "Applied");
}

TEST_F(DialogFrame, OkAppliesAndClosesTheWindow) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    openBySettingsAction();
    typeInto(dlg->sliceLineEdit, "[2:2][:]");
    click("OKButton");
    EXPECT_EQ(ui->currentSlice, "[2:2][:]");
    EXPECT_FALSE(dlg->dialog->isVisible());
    EXPECT_EQ(dlg->dialog->result(), QDialog::Accepted);
    EXPECT_EQ(overlay()->executed, 1);
}

TEST_F(DialogFrame, ApplyWithDigitlessSliceNoFilterAndNoCastShowsNoOverlay) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    Config2DTable* before = new Config2DTable();
    makeCurrent(e, {"0:2", "0:3"}, before, 1);
    openBySettingsAction();
    ASSERT_EQ(dlg->sliceLineEdit->text(), "[:][:]");
    click("ApplyButton");
    EXPECT_NE(ui->currentConfig, before) << "the update is sent all the same";
    EXPECT_EQ(overlay()->executed, 0);
}

TEST_F(DialogFrame, ApplyWithFilterAndFilterActionUncheckedReadsAppliedFilteringOff) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    // The user switched filtering off on the toolbar.
    ui->filterDisabled = true;
    openBySettingsAction();
    ASSERT_NE(view->toolBarFactory->filterAction, nullptr);
    ASSERT_FALSE(view->toolBarFactory->filterAction->isChecked());
    QTest::keyClicks(dlg->filterTextEdit, "$value > 1");
    click("ApplyButton");
    ASSERT_EQ(overlay()->executed, 1);
    EXPECT_EQ(overlay()->parametersAtExecution.last().value("Message").toString(),
              "Applied\nFiltering Off");
}

TEST_F(DialogFrame, ApplyWithFilterWhileFilteringIsOnReadsApplied) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    openBySettingsAction();
    QTest::keyClicks(dlg->filterTextEdit, "$value > 1");
    click("ApplyButton");
    EXPECT_EQ(ui->currentFilter, "$value > 1");
    ASSERT_EQ(overlay()->executed, 1);
    EXPECT_EQ(overlay()->parametersAtExecution.last().value("Message").toString(), "Applied");
}

TEST_F(DialogFrame, ApplyWithChangedTypeCastsAndShowsOverlay) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    openBySettingsAction();
    typeInto(find<QLineEdit>("typeLineEdit"), "short [3][4]");
    click("ApplyButton");
    ASSERT_FALSE(e->setTypeCalls.isEmpty());
    EXPECT_EQ(e->setTypeCalls.last().first, "short [3][4]");
    EXPECT_EQ(overlay()->executed, 1);
}

TEST_F(DialogFrame, ChangingTheTypeAndApplyingSkipsTheTableCheck) {
    fake::Expression* e = makeExpression("cube", "int [4][5][6]", "c");
    makeCurrent(
        e, {"0:3", "0:4", "0:5"},
        new Config2DTable(1, 2, "[0:0][0:4:1][0:5:1]", al_pres_default, al_type_integer, {0, 0, 0}),
        3);
    openBySettingsAction();
    ASSERT_TRUE(dlg->is2DSliceVisible());
    typeIntoCell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::END_COL, "99");
    QString error;
    QObject::connect(dlg, &ArrayLensConfigDialog::configError,
                     [&error](const QString& text) { error = text; });
    typeInto(find<QLineEdit>("typeLineEdit"), "short [4][5][6]");
    click("ApplyButton");
    EXPECT_TRUE(error.isEmpty()) << qPrintable(error);
    ASSERT_FALSE(e->setTypeCalls.isEmpty());
    EXPECT_EQ(e->setTypeCalls.last().first, "short [4][5][6]");
}

TEST_F(DialogFrame, FilterIsSimplifiedAndWrittenBackAtApply) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    openBySettingsAction();
    QTest::keyClicks(dlg->filterTextEdit, "  $value   >  1  ");
    click("ApplyButton");
    EXPECT_EQ(dlg->filterText, "$value > 1");
    EXPECT_EQ(ui->currentFilter, "$value > 1");
}

// ---- Cancel and Reset -----------------------------------------------------------

TEST_F(DialogFrame, CancelPutsBackTheAppliedFilterAndEmptiesTheTablePage) {
    fake::Expression* e = makeExpression("cube", "int [4][5][6]", "c");
    makeCurrent(
        e, {"0:3", "0:4", "0:5"},
        new Config2DTable(1, 2, "[0:0][0:4:1][0:5:1]", al_pres_default, al_type_integer, {0, 0, 0}),
        3);
    openBySettingsAction();
    QTest::keyClicks(dlg->filterTextEdit, "$value < 5");
    click("ApplyButton");
    QTest::keyClicks(dlg->filterTextEdit, " && $value > 9");
    choose(dlg->valueCombo, 4);
    click("CancelButton");
    EXPECT_FALSE(dlg->dialog->isVisible());
    EXPECT_EQ(dlg->filterTextEdit->toPlainText(), "$value < 5");
    EXPECT_EQ(dlg->valueCombo->currentIndex(), 0);
    EXPECT_FALSE(dlg->sliceTable->isEnabled());
    EXPECT_EQ(dlg->rowCombo->count(), 0);
    EXPECT_TRUE(dlg->spinBoxes->isEmpty());
}

TEST_F(DialogFrame, ResetRestoresDeclaredTypeDefaultSliceFullBoundsAndAutomatic) {
    fake::Expression* e = makeExpression("cube", "int [4][5][6]", "c");
    makeCurrent(
        e, {"0:3", "0:4", "0:5"},
        new Config2DTable(1, 2, "[2:2][1:3:1][0:5:2]", al_pres_hex, al_type_integer, {2, 0, 0}), 3);
    ui->currentFilter = "$value > 0";
    openBySettingsAction();
    ASSERT_EQ(cell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::START_COL), "1");
    click("ResetButton");
    EXPECT_TRUE(dlg->dialog->isVisible()) << "Reset keeps the window open";
    EXPECT_EQ(find<QLineEdit>("typeLineEdit")->text(), "int [4][5][6]");
    EXPECT_EQ(dlg->filterTextEdit->toPlainText(), "");
    EXPECT_EQ(dlg->filterText, "");
    EXPECT_EQ(dlg->tableSlice, "");
    EXPECT_FALSE(dlg->useTableCheckBox->isChecked());
    EXPECT_EQ(dlg->sliceLineEdit->text(), "[:][:][:]");
    EXPECT_EQ(dlg->rowCombo->currentIndex(), 1);
    EXPECT_EQ(dlg->colCombo->currentIndex(), 2);
    EXPECT_EQ(cell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::START_COL), "0");
    EXPECT_EQ(cell(ArrayLensConfigDialog::ROW_ROW, ArrayLensConfigDialog::END_COL), "4");
    EXPECT_EQ(cell(ArrayLensConfigDialog::COLUMN_ROW, ArrayLensConfigDialog::END_COL), "5");
    EXPECT_EQ(cell(ArrayLensConfigDialog::COLUMN_ROW, ArrayLensConfigDialog::STRIDE_COL), "1");
    EXPECT_EQ(dlg->dataFormatCombo->currentIndex(), 0);
    EXPECT_EQ(dlg->getDataFormat(), al_pres_automatic);
    EXPECT_EQ(overlay()->executed, 0) << "Reset sends nothing";
}

TEST_F(DialogFrame, ResetAfterACastGreysSliceAndFormat) {
    fake::Expression* e = makeExpression("matrix", "int [3][4]", "c");
    makeCurrent(e, {"0:2", "0:3"}, new Config2DTable(), 1);
    // The expression was cast earlier; typeMap keeps the first type.
    e->type = "short [3][4]";
    openBySettingsAction();
    ASSERT_TRUE(dlg->sliceStack->isEnabled());
    click("ResetButton");
    EXPECT_EQ(find<QLineEdit>("typeLineEdit")->text(), "int [3][4]");
    EXPECT_FALSE(dlg->sliceStack->isEnabled());
    EXPECT_FALSE(dlg->dataFormatCombo->isEnabled());
}
