#pragma once
// The form of the configuration window. Widgets are found by object name,
// so the names here are what the dialog class and the theme rely on; the
// dynamic properties "style" and "fontstyle" select the theme's rules.

#include <QComboBox>
#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTextEdit>
#include <QVBoxLayout>
#include <QVariant>
#include <QWidget>

class Ui_ArrayLensConfigDialog {
public:
    QVBoxLayout* verticalLayout = nullptr;
    QVBoxLayout* titleLayout = nullptr;
    QLabel* dialogTitleLabel = nullptr;
    QLabel* dialogInstructionLabel = nullptr;
    QFrame* line = nullptr;
    QVBoxLayout* exprLayout = nullptr;
    QLabel* exprLabel = nullptr;
    QLabel* expressionString = nullptr;
    QVBoxLayout* typeLayout = nullptr;
    QLabel* typeLabel = nullptr;
    QLabel* typeInstructionLabel = nullptr;
    QLineEdit* typeLineEdit = nullptr;
    QLabel* actualTypeLabel = nullptr;
    QLabel* actualType = nullptr;
    QVBoxLayout* sliceLayout = nullptr;
    QLabel* sliceLabel = nullptr;
    QLabel* sliceInstructionLabel = nullptr;
    QStackedWidget* sliceStackedWidget = nullptr;
    QWidget* statsPlotsSlicePage = nullptr;
    QWidget* dataTable2DPage = nullptr;
    QVBoxLayout* filterLayout = nullptr;
    QLabel* filterLabel = nullptr;
    QLabel* filterInstructionLabel = nullptr;
    QHBoxLayout* filterRowLayout = nullptr;
    QComboBox* comparisonComboBox = nullptr;
    QComboBox* valueComboBox = nullptr;
    QComboBox* andOrComboBox = nullptr;
    QPushButton* addFilterButton = nullptr;
    QTextEdit* filterTextEdit = nullptr;
    QVBoxLayout* dataFormatLayout = nullptr;
    QLabel* dataFormatLabel = nullptr;
    QLabel* dataFormatInstructionLabel = nullptr;
    QComboBox* dataFormatComboBox = nullptr;
    QDialogButtonBox* configButtonBox = nullptr;

    void setupUi(QDialog* ArrayLensConfigDialog) {
        if (ArrayLensConfigDialog->objectName().isEmpty())
            ArrayLensConfigDialog->setObjectName(QString::fromUtf8("ArrayLensConfigDialog"));
        ArrayLensConfigDialog->resize(421, 548);

        verticalLayout = new QVBoxLayout(ArrayLensConfigDialog);
        verticalLayout->setObjectName(QString::fromUtf8("verticalLayout"));
        verticalLayout->setSpacing(14);
        verticalLayout->setContentsMargins(16, 12, 16, 12);

        // Title.
        titleLayout = group("titleLayout");
        dialogTitleLabel = label(ArrayLensConfigDialog, "dialogTitleLabel", "h1");
        titleLayout->addWidget(dialogTitleLabel);
        dialogInstructionLabel = label(ArrayLensConfigDialog, "dialogInstructionLabel", "h2");
        titleLayout->addWidget(dialogInstructionLabel);
        verticalLayout->addLayout(titleLayout);

        line = new QFrame(ArrayLensConfigDialog);
        line->setObjectName(QString::fromUtf8("line"));
        line->setProperty("style", QVariant(QString::fromUtf8("line")));
        line->setLineWidth(1);
        line->setFrameShape(QFrame::HLine);
        line->setFrameShadow(QFrame::Sunken);
        verticalLayout->addWidget(line);

        // Expression.
        exprLayout = group("exprLayout");
        exprLabel = label(ArrayLensConfigDialog, "exprLabel", "h3");
        exprLayout->addWidget(exprLabel);
        expressionString = label(ArrayLensConfigDialog, "expressionString", nullptr);
        exprLayout->addWidget(expressionString);
        verticalLayout->addLayout(exprLayout);

        // Type and cast.
        typeLayout = group("typeLayout");
        typeLabel = label(ArrayLensConfigDialog, "typeLabel", "h3");
        typeLayout->addWidget(typeLabel);
        typeInstructionLabel = label(ArrayLensConfigDialog, "typeInstructionLabel", "p");
        typeLayout->addWidget(typeInstructionLabel);
        typeLineEdit = new QLineEdit(ArrayLensConfigDialog);
        typeLineEdit->setObjectName(QString::fromUtf8("typeLineEdit"));
        typeLayout->addWidget(typeLineEdit);
        actualTypeLabel = label(ArrayLensConfigDialog, "actualTypeLabel", "h3");
        typeLayout->addWidget(actualTypeLabel);
        actualType = label(ArrayLensConfigDialog, "actualType", nullptr);
        typeLayout->addWidget(actualType);
        verticalLayout->addLayout(typeLayout);

        // Slice: one page per kind of display.
        sliceLayout = group("sliceLayout");
        sliceLabel = label(ArrayLensConfigDialog, "sliceLabel", "h3");
        sliceLayout->addWidget(sliceLabel);
        sliceInstructionLabel = label(ArrayLensConfigDialog, "sliceInstructionLabel", "p");
        sliceLayout->addWidget(sliceInstructionLabel);
        sliceStackedWidget = new QStackedWidget(ArrayLensConfigDialog);
        sliceStackedWidget->setObjectName(QString::fromUtf8("sliceStackedWidget"));
        sliceStackedWidget->setFrameShape(QFrame::NoFrame);
        statsPlotsSlicePage = new QWidget();
        statsPlotsSlicePage->setObjectName(QString::fromUtf8("statsPlotsSlicePage"));
        sliceStackedWidget->addWidget(statsPlotsSlicePage);
        dataTable2DPage = new QWidget();
        dataTable2DPage->setObjectName(QString::fromUtf8("dataTable2DPage"));
        sliceStackedWidget->addWidget(dataTable2DPage);
        sliceLayout->addWidget(sliceStackedWidget);
        verticalLayout->addLayout(sliceLayout);

        // Filter.
        filterLayout = group("filterLayout");
        filterLabel = label(ArrayLensConfigDialog, "filterLabel", "h3");
        filterLayout->addWidget(filterLabel);
        filterInstructionLabel = label(ArrayLensConfigDialog, "filterInstructionLabel", "p");
        filterLayout->addWidget(filterInstructionLabel);
        filterRowLayout = new QHBoxLayout();
        filterRowLayout->setObjectName(QString::fromUtf8("filterRowLayout"));
        comparisonComboBox = new QComboBox(ArrayLensConfigDialog);
        comparisonComboBox->setObjectName(QString::fromUtf8("comparisonComboBox"));
        comparisonComboBox->setEditable(true);
        comparisonComboBox->setMinimumWidth(50);
        comparisonComboBox->setMaxVisibleItems(17);
        comparisonComboBox->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        for (const char* item : {"==", "!=", "<", ">", "<=", ">="})
            comparisonComboBox->addItem(QString::fromUtf8(item));
        filterRowLayout->addWidget(comparisonComboBox);
        valueComboBox = new QComboBox(ArrayLensConfigDialog);
        valueComboBox->setObjectName(QString::fromUtf8("valueComboBox"));
        valueComboBox->setEditable(true);
        valueComboBox->setMinimumWidth(62);
        valueComboBox->setMaxVisibleItems(17);
        valueComboBox->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        filterRowLayout->addWidget(valueComboBox);
        andOrComboBox = new QComboBox(ArrayLensConfigDialog);
        andOrComboBox->setObjectName(QString::fromUtf8("andOrComboBox"));
        andOrComboBox->setEditable(false);
        andOrComboBox->setMinimumWidth(50);
        for (const char* item : {"&&", "||"})
            andOrComboBox->addItem(QString::fromUtf8(item));
        filterRowLayout->addWidget(andOrComboBox);
        addFilterButton = new QPushButton(ArrayLensConfigDialog);
        addFilterButton->setObjectName(QString::fromUtf8("addFilterButton"));
        addFilterButton->setProperty("style", QVariant(QString::fromUtf8("nqf-button")));
        addFilterButton->setAutoDefault(false);
        filterRowLayout->addWidget(addFilterButton);
        filterLayout->addLayout(filterRowLayout);
        filterTextEdit = new QTextEdit(ArrayLensConfigDialog);
        filterTextEdit->setObjectName(QString::fromUtf8("filterTextEdit"));
        filterTextEdit->setMaximumHeight(40);
        filterLayout->addWidget(filterTextEdit);
        verticalLayout->addLayout(filterLayout);

        // Data format.
        dataFormatLayout = group("dataFormatLayout");
        dataFormatLabel = label(ArrayLensConfigDialog, "dataFormatLabel", "h3");
        dataFormatLayout->addWidget(dataFormatLabel);
        dataFormatInstructionLabel =
            label(ArrayLensConfigDialog, "dataFormatInstructionLabel", "p");
        dataFormatLayout->addWidget(dataFormatInstructionLabel);
        dataFormatComboBox = new QComboBox(ArrayLensConfigDialog);
        dataFormatComboBox->setObjectName(QString::fromUtf8("dataFormatComboBox"));
        dataFormatComboBox->setMinimumWidth(165);
        dataFormatComboBox->addItem(QString());
        dataFormatLayout->addWidget(dataFormatComboBox);
        verticalLayout->addLayout(dataFormatLayout);

        configButtonBox = new QDialogButtonBox(ArrayLensConfigDialog);
        configButtonBox->setObjectName(QString::fromUtf8("configButtonBox"));
        configButtonBox->setOrientation(Qt::Horizontal);
        configButtonBox->setStandardButtons(QDialogButtonBox::NoButton);
        verticalLayout->addWidget(configButtonBox);

        retranslateUi(ArrayLensConfigDialog);

        QObject::connect(configButtonBox, SIGNAL(accepted()), ArrayLensConfigDialog,
                         SLOT(accept()));
        QObject::connect(configButtonBox, SIGNAL(rejected()), ArrayLensConfigDialog,
                         SLOT(reject()));
        sliceStackedWidget->setCurrentIndex(0);
    }

    void retranslateUi(QDialog* ArrayLensConfigDialog) {
        ArrayLensConfigDialog->setWindowTitle(tr("Configuration Options"));
        dialogTitleLabel->setText(tr("Array Lens Options"));
        dialogInstructionLabel->setText(tr("Analyze a specific subset of the array."));
        exprLabel->setText(tr("Expression:"));
        expressionString->setText(tr("expr"));
        typeLabel->setText(tr("Type:"));
        typeInstructionLabel->setText(tr("Cast your array to a different type."));
        actualTypeLabel->setText(tr("Actual Type:"));
        actualType->setText(tr("act type"));
        sliceLabel->setText(tr("Slice:"));
        sliceInstructionLabel->setText(
            tr("Create a slice to operate on a smaller portion of array data. "));
        filterLabel->setText(tr("Filter:"));
        filterInstructionLabel->setText(tr("Use filters to reduce array data."));
        addFilterButton->setText(tr("Add"));
        addFilterButton->setToolTip(tr("Add new filter to the filter expression below"));
        filterTextEdit->setToolTip(tr("Array filter expression"));
        dataFormatLabel->setText(tr("Data Format:"));
        dataFormatInstructionLabel->setText(tr("Select a format for displaying data."));
        dataFormatComboBox->setItemText(0, tr("Hexidecimal (Decmial)"));
    }

private:
    static QString tr(const char* text) {
        return QCoreApplication::translate("ArrayLensConfigDialog", text);
    }

    QVBoxLayout* group(const char* name) {
        auto* layout = new QVBoxLayout();
        layout->setObjectName(QString::fromUtf8(name));
        layout->setSpacing(4);
        return layout;
    }

    QLabel* label(QWidget* parent, const char* name, const char* style) {
        auto* widget = new QLabel(parent);
        widget->setObjectName(QString::fromUtf8(name));
        if (style)
            widget->setProperty("style", QVariant(QString::fromUtf8(style)));
        return widget;
    }
};

namespace Ui {
class ArrayLensConfigDialog : public Ui_ArrayLensConfigDialog {};
} // namespace Ui
