// How the configuration window is laid out: the order of the form from top
// to bottom, the spacing and margins of its groups, the row under the free
// text slice, and the table page with its scrolling row of spin boxes.
#include "config/ui_arrayLensConfigDialog.h"
#include "dialogtesthelpers.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QScrollArea>
#include <QScrollBar>
#include <QSpacerItem>
#include <QVBoxLayout>

using namespace dialogtest;

namespace {

// Object names of the widgets of a layout, depth first, in layout order;
// nested layouts are walked where they stand.
void collect(QLayout* layout, QStringList* names) {
    for (int i = 0; i < layout->count(); ++i) {
        QLayoutItem* item = layout->itemAt(i);
        if (QWidget* w = item->widget())
            *names << w->objectName();
        else if (QLayout* inner = item->layout())
            collect(inner, names);
    }
}

class DialogLayout : public DialogTest {
protected:
    // A C array of three dimensions shown in the Data Table.
    void openCube() {
        fake::Expression* e = makeExpression("cube", "int [4][5][6]", "c");
        makeCurrent(e, {"0:3", "0:4", "0:5"},
                    new Config2DTable(1, 2, "[2:2][0:4:1][0:5:1]", al_pres_default, al_type_integer,
                                      {2, 0, 0}),
                    3);
        openBySettingsAction();
        ASSERT_TRUE(dlg->is2DSliceVisible());
    }
};

} // namespace

TEST_F(DialogLayout, FormStandsFromTitleToButtonsInItsOrder) {
    QStringList names;
    collect(dlg->dialog->layout(), &names);
    EXPECT_EQ(names, (QStringList{"dialogTitleLabel",
                                  "dialogInstructionLabel",
                                  "line",
                                  "exprLabel",
                                  "expressionString",
                                  "typeLabel",
                                  "typeInstructionLabel",
                                  "typeLineEdit",
                                  "actualTypeLabel",
                                  "actualType",
                                  "sliceLabel",
                                  "sliceInstructionLabel",
                                  "sliceStackedWidget",
                                  "filterLabel",
                                  "filterInstructionLabel",
                                  "comparisonComboBox",
                                  "valueComboBox",
                                  "andOrComboBox",
                                  "addFilterButton",
                                  "filterTextEdit",
                                  "dataFormatLabel",
                                  "dataFormatInstructionLabel",
                                  "dataFormatComboBox",
                                  "configButtonBox"}));
}

TEST_F(DialogLayout, InnerGroupsSpaceTheirWidgetsByFour) {
    Ui_ArrayLensConfigDialog* form = dlg->form;
    const std::initializer_list<QBoxLayout*> groups{form->titleLayout,  form->exprLayout,
                                                    form->typeLayout,   form->sliceLayout,
                                                    form->filterLayout, form->dataFormatLayout};
    for (QBoxLayout* group : groups) {
        ASSERT_NE(group, nullptr);
        EXPECT_EQ(group->direction(), QBoxLayout::TopToBottom) << qPrintable(group->objectName());
        EXPECT_EQ(group->spacing(), 4) << qPrintable(group->objectName());
    }
    // The filter row is one horizontal line.
    EXPECT_EQ(form->filterRowLayout->direction(), QBoxLayout::LeftToRight);
    EXPECT_EQ(form->filterTextEdit->toolTip(), "Array filter expression");
}

TEST_F(DialogLayout, RowUnderTheSliceLineHoldsCheckBoxLabelAndStretchingSpacer) {
    auto* page = qobject_cast<QVBoxLayout*>(dlg->statsPage->layout());
    ASSERT_NE(page, nullptr);
    ASSERT_EQ(page->count(), 3);
    EXPECT_EQ(page->itemAt(0)->widget(), dlg->sliceLineEdit);
    auto* rowFrame = qobject_cast<QFrame*>(page->itemAt(1)->widget());
    ASSERT_NE(rowFrame, nullptr);
    EXPECT_NE(page->itemAt(2)->spacerItem(), nullptr) << "a stretch closes the page";
    EXPECT_EQ(rowFrame->frameShape(), QFrame::NoFrame);

    auto* grid = qobject_cast<QGridLayout*>(rowFrame->layout());
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(grid->contentsMargins(), QMargins(0, 4, 0, 8));
    EXPECT_EQ(grid->horizontalSpacing(), 2);
    ASSERT_NE(grid->itemAtPosition(0, 0), nullptr);
    EXPECT_EQ(grid->itemAtPosition(0, 0)->widget(), dlg->useTableCheckBox);
    ASSERT_NE(grid->itemAtPosition(0, 1), nullptr);
    EXPECT_EQ(grid->itemAtPosition(0, 1)->widget(), dlg->tableSliceLabel);
    ASSERT_NE(grid->itemAtPosition(0, 2), nullptr);
    EXPECT_NE(grid->itemAtPosition(0, 2)->spacerItem(), nullptr);
    EXPECT_EQ(grid->columnStretch(2), 2);

    EXPECT_EQ(int(dlg->tableSliceLabel->alignment() & Qt::AlignHorizontal_Mask),
              int(Qt::AlignLeft));
    EXPECT_EQ(dlg->tableSliceLabel->frameShape(), QFrame::NoFrame);
}

TEST_F(DialogLayout, TablePageStacksTableLabelsAndSpinBoxesWithItsMargins) {
    openCube();
    auto* page = qobject_cast<QVBoxLayout*>(dlg->tablePage->layout());
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(page->spacing(), 4);
    EXPECT_EQ(page->contentsMargins(), QMargins(0, 1, 0, 0));
    ASSERT_EQ(page->count(), 4);
    EXPECT_EQ(page->itemAt(0)->widget(), dlg->sliceTable);
    auto* labels = qobject_cast<QVBoxLayout*>(page->itemAt(1)->layout());
    ASSERT_NE(labels, nullptr);
    EXPECT_EQ(page->itemAt(2)->widget(), dlg->otherDimsFrame);
    EXPECT_NE(page->itemAt(3)->spacerItem(), nullptr) << "a stretch closes the page";

    EXPECT_EQ(labels->spacing(), 4);
    EXPECT_EQ(labels->contentsMargins(), QMargins(0, 8, 0, 0));
    ASSERT_EQ(labels->count(), 2);
    EXPECT_EQ(labels->itemAt(0)->widget(), dlg->otherDimsLabel);
    EXPECT_EQ(labels->itemAt(1)->widget(), dlg->otherDimsHelpLabel);
}

TEST_F(DialogLayout, SpinBoxesScrollSidewaysInAFramelessArea) {
    openCube();
    EXPECT_EQ(dlg->otherDimsFrame->frameShape(), QFrame::NoFrame);
    auto* frameGrid = qobject_cast<QGridLayout*>(dlg->otherDimsFrame->layout());
    ASSERT_NE(frameGrid, nullptr);
    EXPECT_EQ(frameGrid->contentsMargins(), QMargins(0, 0, 0, 0));
    ASSERT_NE(frameGrid->itemAtPosition(0, 0), nullptr);
    EXPECT_EQ(frameGrid->itemAtPosition(0, 0)->widget(), dlg->spinScrollArea);

    QScrollArea* area = dlg->spinScrollArea;
    EXPECT_EQ(area->frameShape(), QFrame::NoFrame);
    EXPECT_EQ(area->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    EXPECT_EQ(area->sizeAdjustPolicy(), QAbstractScrollArea::AdjustToContents);
    EXPECT_EQ(area->widget(), dlg->spinFrame);
    // One line of spin boxes and room for a scroll bar under it.
    EXPECT_GT(area->maximumHeight(), 14);
    EXPECT_LT(area->maximumHeight(), QWIDGETSIZE_MAX);

    EXPECT_EQ(dlg->spinFrame->layout(), dlg->spinLayout);
    EXPECT_EQ(dlg->spinLayout->spacing(), 8);
    EXPECT_EQ(dlg->spinLayout->contentsMargins(), QMargins(0, 0, 0, 0));
    EXPECT_EQ(dlg->spinLayout->sizeConstraint(), QLayout::SetMinAndMaxSize);
    ASSERT_EQ(dlg->spinLayout->count(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(dlg->spinLayout->itemAt(i)->widget(), dlg->spinBoxes->at(i)) << i;
}

TEST_F(DialogLayout, SpinBoxWidgetPutsItsRightAlignedCaptionBeforeTheBox) {
    DimSliceSpinbox box(QStringLiteral("  [ k ]"), -3, 7);
    auto* row = qobject_cast<QHBoxLayout*>(box.layout());
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->contentsMargins(), QMargins(4, 2, 4, 2));
    EXPECT_EQ(row->spacing(), 4);
    ASSERT_EQ(row->count(), 2);
    EXPECT_EQ(row->itemAt(0)->widget(), box.label());
    EXPECT_EQ(row->itemAt(1)->widget(), box.spinBox());
    EXPECT_EQ(box.label()->text(), "[k]:");
    EXPECT_EQ(int(box.label()->alignment()), int(Qt::AlignRight | Qt::AlignVCenter));
    EXPECT_EQ(box.spinBox()->objectName(), "[k]SpinBox");
    EXPECT_EQ(box.spinBox()->minimum(), -3);
    EXPECT_EQ(box.spinBox()->maximum(), 7);
    // The value is kept within the bounds.
    box.setValue(20);
    EXPECT_EQ(box.getValue(), 7);
    box.setEnabled(false);
    EXPECT_FALSE(box.isEnabled());
    EXPECT_FALSE(box.spinBox()->isEnabled());
    EXPECT_TRUE(box.label()->isEnabled()) << "only the spin box goes grey";
}

TEST_F(DialogLayout, DimensionChooserWrapsItsComboWithoutMargins) {
    DimensionComboBox chooser(QStringLiteral("someDimComboBox"));
    auto* grid = qobject_cast<QGridLayout*>(chooser.layout());
    ASSERT_NE(grid, nullptr);
    EXPECT_EQ(grid->contentsMargins(), QMargins(0, 0, 0, 0));
    EXPECT_EQ(chooser.comboBox()->objectName(), "someDimComboBox");
    chooser.addItems({"  [ i ]", "  [ j ]"});
    chooser.addItems({"  [ k ]"});
    EXPECT_EQ(chooser.count(), 3) << "items are appended";
    QList<int> seen;
    QObject::connect(&chooser, &DimensionComboBox::currentIndexChanged,
                     [&seen](int index) { seen << index; });
    chooser.setCurrentIndex(2);
    EXPECT_EQ(chooser.currentIndex(), 2);
    EXPECT_EQ(seen, QList<int>{2});
    chooser.setEnabled(false);
    EXPECT_FALSE(chooser.comboBox()->isEnabled());
    EXPECT_TRUE(chooser.QWidget::isEnabled()) << "the wrapper itself stays enabled";
    chooser.clear();
    EXPECT_EQ(chooser.count(), 0);
}

TEST_F(DialogLayout, SliceTableRowsFitTheirContentsAndNeverScroll) {
    openCube();
    QTableWidget* t = table();
    EXPECT_EQ(t->verticalHeader()->sectionResizeMode(0), QHeaderView::ResizeToContents);
    EXPECT_EQ(t->verticalHeader()->sectionResizeMode(1), QHeaderView::ResizeToContents);
    EXPECT_EQ(t->horizontalHeader()->sectionResizeMode(1), QHeaderView::Stretch);
    EXPECT_EQ(t->horizontalHeader()->sectionResizeMode(3), QHeaderView::Stretch);
    EXPECT_EQ(t->verticalScrollBarPolicy(), Qt::ScrollBarAlwaysOff);
    auto* st = qobject_cast<SliceTableWidget*>(t);
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(st->maximumSize(), st->QWidget::maximumSize());
}
