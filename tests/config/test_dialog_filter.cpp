// The filter row of the configuration window: comparison, value, connective
// and the Add button, building the filter text one condition at a time.
#include "dialogtesthelpers.h"

using namespace dialogtest;

namespace {

class DialogFilter : public DialogTest {
protected:
    void SetUp() override {
        DialogTest::SetUp();
        expr = makeExpression("v", "double [100]", fortran ? "fortran" : "c");
        makeCurrent(expr, {fortran ? "1:100" : "0:99"}, new Config2DTable(), 1);
        openBySettingsAction();
        ASSERT_TRUE(dlg->dialog->isVisible());
    }

    QComboBox* comparison() const { return find<QComboBox>("comparisonComboBox"); }
    QComboBox* value() const { return find<QComboBox>("valueComboBox"); }
    QComboBox* andOr() const { return find<QComboBox>("andOrComboBox"); }
    QTextEdit* filter() const { return find<QTextEdit>("filterTextEdit"); }

    void chooseText(QComboBox* combo, const QString& text) {
        const int index = combo->findText(text);
        ASSERT_GE(index, 0) << qPrintable(text);
        choose(combo, index);
    }

    // Types a value into the editable value combo.
    void typeValue(const QString& text) { typeInto(value()->lineEdit(), text); }

    // Picks a drop-down entry of the value combo by its value name.
    void chooseValue(const QString& name) {
        for (int i = 0; i < value()->count(); ++i)
            if (value()->itemText(i).startsWith(name + QLatin1Char('\t'))) {
                choose(value(), i);
                return;
            }
        FAIL() << "no drop-down item " << qPrintable(name);
    }

    void add() { QTest::mouseClick(find<QPushButton>("addFilterButton"), Qt::LeftButton); }

    void typeFilter(const QString& text) {
        filter()->clear();
        QTest::keyClicks(filter(), text);
    }

    bool fortran = false;
    fake::Expression* expr = nullptr;
};

class DialogFortranFilter : public DialogFilter {
protected:
    void SetUp() override {
        fortran = true;
        DialogFilter::SetUp();
    }
};

} // namespace

TEST_F(DialogFilter, RowWidgetsAreSetUpByName) {
    EXPECT_TRUE(comparison()->isEditable());
    EXPECT_EQ(comparison()->minimumWidth(), 50);
    EXPECT_EQ(comparison()->maxVisibleItems(), 17);
    EXPECT_EQ(comparison()->sizeAdjustPolicy(), QComboBox::AdjustToMinimumContentsLengthWithIcon);
    EXPECT_TRUE(value()->isEditable());
    EXPECT_EQ(value()->minimumWidth(), 62);
    EXPECT_EQ(value()->maxVisibleItems(), 17);
    EXPECT_EQ(value()->lineEdit()->placeholderText(),
              "Add a value or choose an IEEE floating point value from dropdown");
    EXPECT_FALSE(andOr()->isEditable());
    EXPECT_EQ(andOr()->minimumWidth(), 50);
    QPushButton* addButton = find<QPushButton>("addFilterButton");
    EXPECT_EQ(addButton->text(), "Add");
    EXPECT_EQ(addButton->toolTip(), "Add new filter to the filter expression below");
    EXPECT_EQ(addButton->property("style").toString(), "nqf-button");
    EXPECT_EQ(filter()->toolTip(), "Array filter expression");
    EXPECT_EQ(filter()->placeholderText(), "Enter a valid filter expression or create one above "
                                           "and add it using '+'\nExample: $value < 100");
}

TEST_F(DialogFilter, ValueDropDownListsTheIeeeClassesInOrder) {
    const QStringList expected{
        "",
        "$nan\tNaN (Not a number) either quiet or signalling",
        "$qnan\tQuiet NaN",
        "$snan\tSignaling NaN",
        "$inf\tInfinity, either positive or negative",
        "$pinf\tPositive infinity",
        "$ninf\tNegative infinity",
        "$denorm\tDenormalized number, either positive or negative",
        "$pdenorm\tPositive denormalized number",
        "$ndenorm\tNegative denormalized number",
    };
    QStringList actual;
    for (int i = 0; i < value()->count(); ++i)
        actual << value()->itemText(i);
    EXPECT_EQ(actual, expected);
}

TEST_F(DialogFilter, CComparisonsAndConnectivesAfterRefresh) {
    QStringList items;
    for (int i = 0; i < comparison()->count(); ++i)
        items << comparison()->itemText(i);
    EXPECT_EQ(items, (QStringList{"==", "!=", "<", "<=", ">", ">="}));
    EXPECT_EQ(andOr()->itemText(0), "&&");
    EXPECT_EQ(andOr()->itemText(1), "||");
}

TEST_F(DialogFortranFilter, FortranComparisonsAndConnectivesAfterRefresh) {
    QStringList items;
    for (int i = 0; i < comparison()->count(); ++i)
        items << comparison()->itemText(i);
    EXPECT_EQ(items, (QStringList{".eq.", ".ne.", ".lt.", ".le.", ".gt.", ".ge."}));
    EXPECT_EQ(andOr()->count(), 2);
    EXPECT_EQ(andOr()->itemText(0), ".and.");
    EXPECT_EQ(andOr()->itemText(1), ".or.");
}

TEST_F(DialogFilter, ChoosingADropDownValueShowsOnlyItsName) {
    chooseValue("$pinf");
    EXPECT_EQ(value()->currentText(), "$pinf");
}

TEST_F(DialogFilter, TwoConditionsComposeWithTheConnectiveInC) {
    chooseText(comparison(), "<");
    typeValue("100");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value < 100");
    chooseText(andOr(), "&&");
    chooseText(comparison(), ">=");
    typeValue("7");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value < 100 && $value >= 7");
}

TEST_F(DialogFortranFilter, TwoConditionsComposeWithTheConnectiveInFortran) {
    chooseText(comparison(), ".lt.");
    typeValue("100");
    add();
    chooseText(andOr(), ".and.");
    chooseText(comparison(), ".ge.");
    typeValue("7");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value .lt. 100 .and. $value .ge. 7");
}

TEST_F(DialogFilter, AddWithEmptyValueChangesNothing) {
    typeFilter("$value > 2");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value > 2");
    chooseText(comparison(), "!=");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value > 2");
    EXPECT_EQ(comparison()->currentText(), "!=");
}

TEST_F(DialogFilter, FilterStartingWithValueInOtherCaseGetsASecondValuePrefix) {
    typeFilter("$VALUE > 2");
    chooseText(andOr(), "||");
    chooseText(comparison(), "==");
    typeValue("0");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value $VALUE > 2 || $value == 0");
}

TEST_F(DialogFilter, HandTypedTailBecomesAProperCondition) {
    typeFilter("< 100");
    chooseText(andOr(), "&&");
    chooseText(comparison(), ">");
    typeValue("3");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value < 100 && $value > 3");
}

TEST_F(DialogFilter, AfterAddValueComboIsEmptyAndChoosingIndexZeroDoesNothing) {
    chooseText(comparison(), "<=");
    chooseValue("$pinf");
    add();
    EXPECT_EQ(value()->currentIndex(), 0);
    EXPECT_EQ(value()->currentText(), "");
    const QString before = filter()->toPlainText();
    // Choosing the empty item by hand, from another item.
    choose(value(), 2);
    choose(value(), 0);
    EXPECT_EQ(value()->currentText(), "");
    EXPECT_EQ(filter()->toPlainText(), before);
    // The comparison and connective keep their choice.
    EXPECT_EQ(comparison()->currentText(), "<=");
}

TEST_F(DialogFilter, InfConditionClearsAFilterOfSeveralConditions) {
    typeFilter("$value > 1 && $value < 9 || $value == 20");
    chooseText(comparison(), "==");
    chooseValue("$inf");
    add();
    EXPECT_EQ(filter()->toPlainText(), "== $inf");
}

TEST_F(DialogFilter, AddingAfterAValueClassRepairsTheHead) {
    chooseText(comparison(), "==");
    chooseValue("$inf");
    add();
    chooseText(andOr(), "||");
    chooseText(comparison(), "==");
    typeValue("0");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value == $inf || $value == 0");
}

TEST_F(DialogFilter, TypedSpecialNameBehavesLikeTheDropDownItem) {
    typeFilter("$value > 1");
    chooseText(comparison(), "==");
    typeValue("$ninf");
    add();
    const QString typed = filter()->toPlainText();
    typeFilter("$value > 1");
    chooseText(comparison(), "==");
    chooseValue("$ninf");
    add();
    EXPECT_EQ(typed, "== $ninf");
    EXPECT_EQ(filter()->toPlainText(), typed);
}

TEST_F(DialogFilter, TypedNanqReplacesTheFilter) {
    typeFilter("$value > 1");
    chooseText(comparison(), "==");
    typeValue("$nanq");
    add();
    EXPECT_EQ(filter()->toPlainText(), "== $nanq");
}

TEST_F(DialogFilter, DropDownQnanAppendsToTheFilter) {
    typeFilter("$value > 1");
    chooseText(andOr(), "&&");
    chooseText(comparison(), "==");
    chooseValue("$qnan");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value > 1 && $value == $qnan");
}

TEST_F(DialogFilter, DropDownQnanOnEmptyFilterIsAPlainCondition) {
    chooseText(comparison(), "==");
    chooseValue("$qnan");
    add();
    EXPECT_EQ(filter()->toPlainText(), "$value == $qnan");
}

TEST_F(DialogFilter, FilterTypedWithLineBreaksArrivesOnOneLineAfterApply) {
    filter()->clear();
    QTest::keyClicks(filter(), "$value > 1");
    QTest::keyClick(filter(), Qt::Key_Return);
    QTest::keyClicks(filter(), "  &&   $value < 9");
    QTest::keyClick(filter(), Qt::Key_Return);
    ASSERT_TRUE(filter()->toPlainText().contains('\n'));
    core.debugger().sent.clear();
    click("ApplyButton");
    EXPECT_EQ(filter()->toPlainText(), "$value > 1 && $value < 9");
    EXPECT_EQ(ui->currentFilter, "$value > 1 && $value < 9");
    // What goes to the back end: the statistics request of the refresh.
    ASSERT_TRUE(fake::waitFor([&] { return !core.debugger().sent.isEmpty(); }));
    EXPECT_EQ(core.debugger().sent.last().id, "ArrayStatisticsRequest");
    EXPECT_EQ(core.debugger().sent.last().properties.value("Filter").toString(),
              "$value > 1 && $value < 9");
}
