#include "config/arrayLensConfigui.h"

#include "config/dimensioncombobox.h"
#include "config/dimslicespinbox.h"
#include "config/slicemodel.h"
#include "config/slicetablewidget.h"
#include "config/ui_arrayLensConfigDialog.h"
#include "controller/arraylensui.h"
#include "host/hostids.h"
#include "host/hvexpression.h"
#include "host/nqcore.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/arraylensview.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDebug>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSpacerItem>
#include <QStackedWidget>
#include <QStyle>
#include <QTableWidgetItem>
#include <QTextEdit>
#include <QVBoxLayout>

namespace {

// Values of the IEEE classes that stand alone in a filter. The quiet and
// signalling NaN are spelled "$nanq" and "$nans" here while the drop-down
// offers "$qnan" and "$snan"; the drop-down items therefore append like
// ordinary values, and only the typed spellings replace the filter.
const QStringList& specialFilterValues() {
    static const QStringList values{
        QStringLiteral("$nan"),    QStringLiteral("$nanq"),    QStringLiteral("$nans"),
        QStringLiteral("$inf"),    QStringLiteral("$pinf"),    QStringLiteral("$ninf"),
        QStringLiteral("$denorm"), QStringLiteral("$pdenorm"), QStringLiteral("$ndenorm")};
    return values;
}

// Items 1 to 9 of the value drop-down: value name, tab, description.
const char* const VALUE_ITEMS[] = {
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

QString cellText(QTableWidget* table, int row, int column) {
    QTableWidgetItem* item = table->item(row, column);
    return item ? item->text() : QString();
}

void setCellText(QTableWidget* table, int row, int column, const QString& text) {
    QTableWidgetItem* item = table->item(row, column);
    if (!item) {
        item = new QTableWidgetItem();
        table->setItem(row, column, item);
    }
    item->setText(text);
}

// Lower bound of a bound text "lower:upper"; unreadable text reads as 0.
int lowerOfBound(const QString& bound) {
    return bound.split(QLatin1Char(':')).value(0).toInt();
}

} // namespace

ArrayLensConfigDialog::ArrayLensConfigDialog(ArrayLensView* view) : QWidget(nullptr), view(view) {
    init();
}

ArrayLensConfigDialog::~ArrayLensConfigDialog() {
    deleteDimDetails();
    delete spinBoxes;
    spinBoxes = nullptr;
    // The page out of the stack still has the stack as parent and goes with
    // the window.
    delete dialog;
    delete form;
}

void ArrayLensConfigDialog::deleteDimDetails() {
    if (!dimDetails)
        return;
    qDeleteAll(*dimDetails);
    delete dimDetails;
    dimDetails = nullptr;
}

// ---- the window -----------------------------------------------------------

void ArrayLensConfigDialog::init() {
    dialog = new QDialog(nullptr);
    form = new Ui_ArrayLensConfigDialog();
    form->setupUi(dialog);
    firstLaunch = true;

    titleLabel = dialog->findChild<QLabel*>(QStringLiteral("dialogTitleLabel"));
    instructionLabel = dialog->findChild<QLabel*>(QStringLiteral("dialogInstructionLabel"));
    instructionLabel->hide();

    typeLineEdit = dialog->findChild<QLineEdit*>(QStringLiteral("typeLineEdit"));
    typeLineEdit->setText(tr("Expression Type"));
    typeLineEdit->setProperty("fontstyle", QStringLiteral("LargerFont"));
    connect(typeLineEdit, SIGNAL(textChanged(QString)), this, SLOT(typeTextChanged(QString)));
    originalType.clear();

    expressionLabel = dialog->findChild<QLabel*>(QStringLiteral("expressionString"));
    expressionLabel->setText(tr("No Expression"));
    expressionLabel->setProperty("fontstyle", QStringLiteral("LargerFont"));
    sliceInstruction = dialog->findChild<QLabel*>(QStringLiteral("sliceInstructionLabel"));
    sliceStack = dialog->findChild<QStackedWidget*>(QStringLiteral("sliceStackedWidget"));

    setupEditSliceTabWidgets();
    setup2DSliceTabWidgets();

    buttonBox = dialog->findChild<QDialogButtonBox*>(QStringLiteral("configButtonBox"));
    buttonBox->setStyleSheet(QStringLiteral("* { button-layout: 2 }"));
    struct ButtonSpec {
        const char* text;
        QDialogButtonBox::ButtonRole role;
        const char* style;
        const char* toolTip;
        const char* name;
    };
    const ButtonSpec buttons[] = {
        {"OK", QDialogButtonBox::AcceptRole, "nqf-key-button",
         "Apply the settings to the current array and close the dialog box", "OKButton"},
        {"Reset", QDialogButtonBox::ResetRole, "nqf-button", "Clear any settings", "ResetButton"},
        {"Apply", QDialogButtonBox::ApplyRole, "nqf-button",
         "Apply settings to the current array and update the view. Keep the dialog open.",
         "ApplyButton"},
        {"Cancel", QDialogButtonBox::RejectRole, "nqf-button", "Close the Configuration Dialog box",
         "CancelButton"},
    };
    for (const ButtonSpec& spec : buttons) {
        QPushButton* button = buttonBox->addButton(tr(spec.text), spec.role);
        button->setProperty("style", QString::fromLatin1(spec.style));
        button->setToolTip(tr(spec.toolTip));
        button->setObjectName(QString::fromLatin1(spec.name));
        if (spec.role == QDialogButtonBox::AcceptRole)
            button->setDefault(true);
    }
    connect(buttonBox, SIGNAL(clicked(QAbstractButton*)), this,
            SLOT(handleButtonClick(QAbstractButton*)));

    // The captions must read the same whatever the translation of the form.
    form->typeLabel->setText(QStringLiteral("Type:"));
    form->sliceLabel->setText(QStringLiteral("Slice:"));
    form->exprLabel->setText(QStringLiteral("Expression:"));
    form->actualTypeLabel->setText(QStringLiteral("Actual Type:"));
    form->filterLabel->setText(QStringLiteral("Filter:"));

    actualTypeValue = dialog->findChild<QLabel*>(QStringLiteral("actualType"));
    actualTypeCaption = dialog->findChild<QLabel*>(QStringLiteral("actualTypeLabel"));
    actualTypeValue->hide();
    actualTypeCaption->hide();

    filterTextEdit = dialog->findChild<QTextEdit*>(QStringLiteral("filterTextEdit"));
    comparisonCombo = dialog->findChild<QComboBox*>(QStringLiteral("comparisonComboBox"));
    valueCombo = dialog->findChild<QComboBox*>(QStringLiteral("valueComboBox"));
    andOrCombo = dialog->findChild<QComboBox*>(QStringLiteral("andOrComboBox"));
    addFilterButton = dialog->findChild<QPushButton*>(QStringLiteral("addFilterButton"));
    filterTextEdit->setPlaceholderText(
        tr("Enter a valid filter expression or create one above and add it using '+'\n"
           "Example: $value < 100"));
    valueCombo->lineEdit()->setPlaceholderText(
        tr("Add a value or choose an IEEE floating point value from dropdown"));
    valueCombo->addItem(QString());
    for (const char* item : VALUE_ITEMS)
        valueCombo->addItem(QString::fromLatin1(item));
    valueCombo->setCurrentIndex(0);
    connect(valueCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(handleValueIndexChanged(int)));
    connect(addFilterButton, SIGNAL(clicked()), this, SLOT(handleAddFilter()));

    sliceInstruction->setText(QString::fromLatin1(SLICE_STATS_PLOTS_HELP));
    sliceStack->setCurrentIndex(0);
    filterTextEdit->setMaximumHeight(60);
    // Only one slice page is in the stack at a time; the other is kept here.
    sliceStack->removeWidget(tablePage);
}

void ArrayLensConfigDialog::launchDialog() {
    if (firstLaunch) {
        NQ::ICore* core = NQ::ICore::instance();
        QWidget* mainWindow = core ? core->getMainWindow() : nullptr;
        if (mainWindow) {
            // The layout may still grow the window to its minimum size, and
            // the frame's margins are only known once the native window
            // exists: centre the frame the window will really have.
            if (dialog->layout())
                dialog->layout()->activate();
            dialog->winId();
            const QRect frame = dialog->frameGeometry();
            const int x = qMax(0, mainWindow->x() + (mainWindow->width() - frame.width()) / 2);
            const int y = qMax(0, mainWindow->y());
            dialog->move(x, y);
        }
        firstLaunch = false;
    }
    if (savedGeometry.isValid())
        dialog->setGeometry(savedGeometry);
    // Window-modal and returning at once, so the debugger's events keep
    // coming while the window is up.
    dialog->open();
    dialog->raise();
}

void ArrayLensConfigDialog::closeDialog() {
    dialog->done(0);
}

void ArrayLensConfigDialog::handleError() {}

// ---- filling the fields ---------------------------------------------------

void ArrayLensConfigDialog::setExpressionFields(QString expression, QString type,
                                                QString actualType, QString language) {
    this->language = language;
    cStyle = SliceModel::isCStyleLanguage(language);
    // The change signal compares with the previous type; the enabling
    // below puts the widgets right again.
    typeLineEdit->setText(type);
    originalType = type;
    setAllSliceWidgetsEnabled(true);
    if (actualType.isEmpty())
        setActualType(QString());
    else if (actualType != type)
        setActualType(actualType);
    expressionLabel->setText(expression);
}

void ArrayLensConfigDialog::setActualType(QString text) {
    actualTypeValue->setText(text);
    actualTypeValue->setVisible(!text.isEmpty());
    actualTypeCaption->setVisible(!text.isEmpty());
}

void ArrayLensConfigDialog::setSlice(QString text) {
    if (!text.isEmpty()) {
        sliceLineEdit->setText(text);
        return;
    }
    // Show the whole-array slice rather than a blank field.
    sliceLineEdit->setText(
        view ? view->getDefaultSlice(typeLineEdit->text(), cStyle)
             : SliceModel::getDefaultSlice(QString(), typeLineEdit->text(), cStyle));
}

void ArrayLensConfigDialog::setFilter(QString text) {
    filterTextEdit->setPlainText(text);
}

void ArrayLensConfigDialog::setUse2DTableSlice(bool on) {
    useTableCheckBox->setChecked(on);
}

void ArrayLensConfigDialog::setComparisonItems(QStringList comparisons, QStringList andOr) {
    comparisonCombo->clear();
    comparisonCombo->insertItems(0, comparisons);
    andOrCombo->clear();
    andOrCombo->insertItems(0, andOr);
}

void ArrayLensConfigDialog::setCurrent2DSliceTab(bool table) {
    if (table) {
        if (sliceStack->currentWidget() != tablePage) {
            sliceStack->removeWidget(statsPage);
            sliceStack->addWidget(tablePage);
            sliceStack->setCurrentWidget(tablePage);
            sliceInstruction->setText(QString::fromLatin1(SLICE_DATA_TABLE_HELP));
            // Room for the table.
            filterTextEdit->setMaximumHeight(45);
        }
    } else if (sliceStack->currentWidget() != statsPage) {
        sliceStack->removeWidget(tablePage);
        sliceStack->addWidget(statsPage);
        sliceStack->setCurrentWidget(statsPage);
        sliceInstruction->setText(QString::fromLatin1(SLICE_STATS_PLOTS_HELP));
        filterTextEdit->setMaximumHeight(60);
    }
}

bool ArrayLensConfigDialog::is2DSliceVisible() {
    return sliceStack->currentWidget() == tablePage;
}

void ArrayLensConfigDialog::setupDataFormatList(al_data_type_e /*type*/, al_data_pres_e pres) {
    // Filled by the stored element class; every caller passes that same
    // value as the first argument.
    dataFormatCombo->clear();
    switch (dataType) {
    case al_type_integer:
    case al_type_char: {
        QStringList items{tr("Automatic"), tr("Hexadecimal (Decimal)"), tr("Decimal (Hexadecimal)"),
                          tr("Decimal"),   tr("Hexadecimal"),           tr("Octal")};
        if (dataType == al_type_char)
            items << tr("Character");
        dataFormatCombo->addItems(items);
        // List index and format number are the same by design.
        dataFormatCombo->setCurrentIndex(pres == al_pres_default ? 0 : int(pres));
        break;
    }
    case al_type_float:
        dataFormatCombo->addItems({tr("Automatic"), tr("Decimal"), tr("Scientific")});
        if (pres == al_pres_automatic || pres == al_pres_default)
            dataFormatCombo->setCurrentIndex(0);
        else if (pres == al_pres_decimal)
            dataFormatCombo->setCurrentIndex(1);
        else if (pres == al_pres_scientific)
            dataFormatCombo->setCurrentIndex(2);
        break;
    default:
        dataFormatCombo->addItem(tr("Automatic"));
        dataFormatCombo->setCurrentIndex(0);
        break;
    }
}

al_data_pres_e ArrayLensConfigDialog::getDataFormat() {
    if (dataFormatCombo->count() == 0)
        return al_pres_automatic;
    const int index = dataFormatCombo->currentIndex();
    if (dataType == al_type_float) {
        if (index == 1)
            return al_pres_decimal;
        if (index == 2)
            return al_pres_scientific;
        return al_pres_automatic;
    }
    return static_cast<al_data_pres_e>(index);
}

void ArrayLensConfigDialog::setAllSliceWidgetsEnabled(bool enabled) {
    sliceStack->setEnabled(enabled);
    dataFormatCombo->setEnabled(enabled);
}

void ArrayLensConfigDialog::typeTextChanged(QString text) {
    // The slice and format of another type cannot be prepared here.
    setAllSliceWidgetsEnabled(text == originalType);
}

// ---- slice texts ----------------------------------------------------------

QStringList ArrayLensConfigDialog::getBoundsFromType(QString type) {
    const QStringList current = (view && view->ui) ? view->ui->currentBounds : QStringList();
    return SliceModel::getBoundsFromType(current, type, cStyle);
}

QString ArrayLensConfigDialog::getDimensionString(int dimensions) {
    return SliceModel::getDimensionString(dimensions, cStyle);
}

QString ArrayLensConfigDialog::getStatsPlotsSlice() {
    return sliceLineEdit->text();
}

bool ArrayLensConfigDialog::adjustSliceDetailsForNegativeStride(ArrayDimensionDetails* details) {
    return SliceModel::adjustSliceDetailsForNegativeStride(details);
}

bool ArrayLensConfigDialog::valid2DIndexes(ArrayDimensionDetails* details) {
    return SliceModel::valid2DIndexes(details);
}

// ---- the buttons ----------------------------------------------------------

void ArrayLensConfigDialog::handleButtonClick(QAbstractButton* button) {
    const QString text = button->text();
    ArrayLensUI* ui = view ? view->ui : nullptr;

    if (text == tr("Cancel")) {
        savedGeometry = dialog->geometry();
        // Only the filter is put back; type and slice are refilled at the
        // next refresh.
        setFilter(filterText);
        valueCombo->setCurrentIndex(0);
        reset2DTableSettings(QString(), QStringList());
        return;
    }

    if (text == tr("Reset")) {
        const QString type = ui ? ui->typeMap.value(ui->currentExpression) : QString();
        typeLineEdit->setText(type);
        originalType = type;
        tableSlice.clear();
        filterTextEdit->clear();
        filterText.clear();
        if (sliceLineEdit->isVisible()) {
            useTableCheckBox->setChecked(false);
            sliceLineEdit->setText(view->getDefaultSlice(type, cStyle));
        }
        useTableCheckBox->setChecked(false);
        setTableSliceLabelEnabled(false);
        const QStringList bounds = ui ? ui->getOrigArrayBounds() : QStringList();
        reset2DTableSettings(type, bounds);
        create2DSliceDetails(bounds);
        reset2DSliceFromDetails();
        setupDataFormatList(dataType, al_pres_automatic);
        sliceLineEdit->setText(view->getDefaultSlice(type, cStyle));
        return;
    }

    // OK and Apply. The button box closes the window after OK once this
    // handler has returned, also after a refused table slice.
    savedGeometry = dialog->geometry();
    QString slice = getStatsPlotsSlice();
    const QString declaredType =
        (ui && ui->currentExpression) ? ui->currentExpression->getType() : QString();
    const bool sameType = typeLineEdit->text() == declaredType;

    filterText = filterTextEdit->toPlainText().simplified();
    filterTextEdit->setPlainText(filterText);

    create2DSliceDetails(ui ? ui->currentBounds : QStringList());
    if (is2DSliceVisible() && sameType) {
        QString error;
        if (!check2DSlice(&error)) {
            setAllSliceWidgetsEnabled(true);
            emit configError(error);
            return;
        }
    }

    Config2DTable* config = getCurrentConfig2DTable();
    bool use2DSlice = false;
    if (useTableCheckBox->isChecked() && !config->slice.isEmpty()) {
        slice = config->slice;
        sliceLineEdit->setText(slice);
        use2DSlice = true;
    }
    if (view)
        view->updateUIFromConfig(slice, filterText, config, use2DSlice);
    else
        delete config;

    QAction* filterAction =
        (view && view->toolBarFactory) ? view->toolBarFactory->filterAction : nullptr;
    const bool filteringOn = filterAction && filterAction->isChecked();
    const QString note =
        (!filterText.isEmpty() && !filteringOn) ? QStringLiteral("\nFiltering Off") : QString();

    // The overlay is how the user learns that something took effect; a
    // whole-array slice without filter or cast applies silently.
    static const QRegularExpression digits(QStringLiteral("\\d+"));
    if (slice.contains(digits) || !filterText.isEmpty() || !sameType) {
        NQ::ICore* core = NQ::ICore::instance();
        NQ::ICommandManager* commands = core ? core->commandManager() : nullptr;
        if (commands) {
            const QString id = QString::fromLatin1(NQ::Ids::SHOW_MESSAGE_OVERLAY_COMMAND);
            commands->setCommandParameter(
                id, QString::fromLatin1(NQ::Ids::SHOW_MESSAGE_OVERLAY_PARAMETER),
                QString(QStringLiteral("Applied") + note));
            if (NQ::ICommand* command = commands->getCommand(id))
                command->execute();
        }
    }
}

// ---- the filter row -------------------------------------------------------

void ArrayLensConfigDialog::handleValueIndexChanged(int index) {
    const QString text = valueCombo->itemText(index);
    if (text.isEmpty())
        return;
    // The line shows the value name, not its description.
    valueCombo->setEditText(text.split(QLatin1Char('\t')).first());
}

void ArrayLensConfigDialog::handleAddFilter() {
    const QString value = valueCombo->currentText();
    if (value.isEmpty())
        return;
    QString filter = filterTextEdit->toPlainText();
    const QString head = QStringLiteral("$value ");
    // A hand-typed tail such as "< 100" becomes a proper condition.
    if (!filter.isEmpty() && !filter.startsWith(QStringLiteral("$value")))
        filter.prepend(head);
    QString prefix = filter.isEmpty()
                         ? head
                         : QLatin1Char(' ') + andOrCombo->currentText() + QLatin1Char(' ') + head;
    if (specialFilterValues().contains(value)) {
        // A value class stands alone and replaces the filter.
        prefix.clear();
        filterTextEdit->clear();
        filter.clear();
    }
    const QString condition = prefix + comparisonCombo->currentText() + QLatin1Char(' ') + value;
    setFilter(filter + condition);
    valueCombo->setCurrentIndex(0);
}

// ---- the stats page -------------------------------------------------------

void ArrayLensConfigDialog::setupEditSliceTabWidgets() {
    statsPage = dialog->findChild<QWidget*>(QStringLiteral("statsPlotsSlicePage"));
    auto* layout = new QVBoxLayout(statsPage);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    sliceLineEdit = new QLineEdit(statsPage);
    sliceLineEdit->setObjectName(QStringLiteral("SliceLineEdit"));
    sliceLineEdit->setPlaceholderText(tr("Enter an array slice"));
    sliceLineEdit->setProperty("fontstyle", QStringLiteral("LargerFont"));
    layout->addWidget(sliceLineEdit);

    auto* rowFrame = new QFrame(statsPage);
    rowFrame->setObjectName(QStringLiteral("useDataTableSliceFrame"));
    rowFrame->setFrameShape(QFrame::NoFrame);
    auto* grid = new QGridLayout(rowFrame);
    grid->setContentsMargins(0, 4, 0, 8);
    grid->setHorizontalSpacing(2);

    useTableCheckBox = new QCheckBox(tr("Use Data Table slice:"), rowFrame);
    useTableCheckBox->setObjectName(QStringLiteral("useDataTableSliceCheckBox"));
    useTableCheckBox->setToolTip(QString::fromLatin1(SLICE_CHECKBOX_TOOLTIP));
    useTableCheckBox->setEnabled(false);
    grid->addWidget(useTableCheckBox, 0, 0);

    tableSliceLabel = new QLabel(rowFrame);
    tableSliceLabel->setObjectName(QStringLiteral("tableSliceLabel"));
    tableSliceLabel->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    tableSliceLabel->setWordWrap(true);
    tableSliceLabel->setFrameShape(QFrame::NoFrame);
    tableSliceLabel->setProperty("style", QStringLiteral("HighlightBackground"));
    tableSliceLabel->hide();
    grid->addWidget(tableSliceLabel, 0, 1);

    grid->addItem(new QSpacerItem(0, 0, QSizePolicy::Expanding, QSizePolicy::Minimum), 0, 2);
    grid->setColumnStretch(2, 2);
    layout->addWidget(rowFrame);
    layout->addStretch();

    connect(useTableCheckBox, SIGNAL(stateChanged(int)), this,
            SLOT(useDataTableSliceChangedState(int)));
}

void ArrayLensConfigDialog::useDataTableSliceChangedState(int state) {
    if (state == Qt::Checked) {
        sliceLineEdit->setEnabled(false);
        setTableSliceLabelEnabled(true);
    } else {
        sliceLineEdit->setEnabled(true);
        setTableSliceLabelEnabled(false);
    }
}

void ArrayLensConfigDialog::setTableSliceLabelEnabled(bool on) {
    tableSliceLabel->setProperty("style", on ? QStringLiteral("HighlightBackgroundEnable")
                                             : QStringLiteral("HighlightBackground"));
    // The theme matches the property; polish again so it applies at once.
    tableSliceLabel->style()->unpolish(tableSliceLabel);
    tableSliceLabel->style()->polish(tableSliceLabel);
}

// ---- the table page -------------------------------------------------------

void ArrayLensConfigDialog::setup2DSliceTabWidgets() {
    tableSlice.clear();
    useTableCheckBox->setEnabled(false);
    dataFormatCombo = dialog->findChild<QComboBox*>(QStringLiteral("dataFormatComboBox"));
    setupDataFormatList(al_type_other, al_pres_default);

    tablePage = dialog->findChild<QWidget*>(QStringLiteral("dataTable2DPage"));
    sliceTable = new SliceTableWidget(2, 4, tablePage, true);
    sliceTable->setObjectName(QStringLiteral("slice2DTable"));
    sliceTable->setProperty("style", QStringLiteral("Slice2DTable"));

    sliceTable->setHorizontalHeaderLabels({tr("Dimension"), tr("Start"), tr("End"), tr("Stride")});
    sliceTable->setVerticalHeaderLabels({tr("Row"), tr("Column")});
    sliceTable->horizontalHeader()->setProperty("style", QStringLiteral("Slice2DTable"));
    sliceTable->horizontalHeader()->setSectionResizeMode(DIMENSION_COL, QHeaderView::Fixed);
    for (int column = START_COL; column <= STRIDE_COL; ++column)
        sliceTable->horizontalHeader()->setSectionResizeMode(column, QHeaderView::Stretch);
    sliceTable->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    sliceTable->setSelectionMode(QAbstractItemView::SingleSelection);
    sliceTable->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    sliceTable->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    rowCombo = new DimensionComboBox(QStringLiteral("rowDimComboBox"));
    colCombo = new DimensionComboBox(QStringLiteral("colDimComboBox"));
    sliceTable->setCellWidget(ROW_ROW, DIMENSION_COL, rowCombo);
    sliceTable->setCellWidget(COLUMN_ROW, DIMENSION_COL, colCombo);
    connect(rowCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(dimComboBoxChanged(int)));
    connect(colCombo, SIGNAL(currentIndexChanged(int)), this, SLOT(dimComboBoxChanged(int)));

    for (int row = ROW_ROW; row <= COLUMN_ROW; ++row)
        for (int column = START_COL; column <= STRIDE_COL; ++column)
            sliceTable->setItem(row, column, new QTableWidgetItem());
    connect(sliceTable, SIGNAL(cellChanged(int, int)), this,
            SLOT(slice2DTableValueChanged(int, int)));

    otherDimsLabel = new QLabel(tr("Other Slice Dimensions:"), tablePage);
    otherDimsLabel->setObjectName(QStringLiteral("otherDimsLabel"));
    otherDimsLabel->setToolTip(QString::fromLatin1(SLICE_DATA_TABLE_SPINBOX_TOOTIP));
    otherDimsLabel->setProperty("style", QStringLiteral("h3"));
    otherDimsHelpLabel = new QLabel(QString::fromLatin1(SLICE_DATA_TABLE_SPINBOX_HELP), tablePage);
    otherDimsHelpLabel->setObjectName(QStringLiteral("otherDimsHelpLabel"));
    otherDimsHelpLabel->setProperty("style", QStringLiteral("p"));
    auto* labelLayout = new QVBoxLayout();
    labelLayout->setSpacing(4);
    labelLayout->setContentsMargins(0, 8, 0, 0);
    labelLayout->addWidget(otherDimsLabel);
    labelLayout->addWidget(otherDimsHelpLabel);

    otherDimsFrame = new QFrame(tablePage);
    otherDimsFrame->setObjectName(QStringLiteral("otherDimsFrame"));
    otherDimsFrame->setFrameShape(QFrame::NoFrame);
    auto* frameLayout = new QGridLayout(otherDimsFrame);
    frameLayout->setContentsMargins(0, 0, 0, 0);
    spinScrollArea = new QScrollArea(otherDimsFrame);
    spinScrollArea->setObjectName(QStringLiteral("spinScrollArea"));
    spinScrollArea->setFrameShape(QFrame::NoFrame);
    spinScrollArea->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    spinScrollArea->setSizeAdjustPolicy(QAbstractScrollArea::AdjustToContents);
    spinFrame = new QFrame();
    spinFrame->setObjectName(QStringLiteral("spinFrame"));
    spinLayout = new QHBoxLayout(spinFrame);
    spinLayout->setSpacing(8);
    spinLayout->setContentsMargins(0, 0, 0, 0);
    spinLayout->setSizeConstraint(QLayout::SetMinAndMaxSize);
    spinScrollArea->setWidget(spinFrame);
    // Room for a horizontal scroll bar under one line of spin boxes.
    spinScrollArea->setMaximumHeight(spinScrollArea->height() + 14);
    frameLayout->addWidget(spinScrollArea, 0, 0);

    auto* pageLayout = new QVBoxLayout(tablePage);
    pageLayout->setSpacing(4);
    pageLayout->setContentsMargins(0, 1, 0, 0);
    pageLayout->addWidget(sliceTable);
    pageLayout->addLayout(labelLayout);
    pageLayout->addWidget(otherDimsFrame);
    pageLayout->addStretch();

    spinBoxes = new QList<DimSliceSpinbox*>();
    dimDetails = new QList<ArrayDimensionDetails*>();
}

void ArrayLensConfigDialog::setConfig2DTable(Config2DTable* config) {
    if (!config)
        return;
    config->dumpConfig();
    const QStringList bounds = (view && view->ui) ? view->ui->currentBounds : QStringList();
    reset2DTableSettings(config->slice, bounds);
    set2DSlice(config);
    dataType = config->dataType;
    setupDataFormatList(config->dataType, config->dataPres);

    const int rowDim = getRowDimIndex();
    const int colDim = getColDimIndex();
    for (int i = 0; i < spinBoxes->size(); ++i) {
        DimSliceSpinbox* spin = spinBoxes->at(i);
        if (i != rowDim && i != colDim) {
            if (i < config->otherDimIndexList.size())
                spin->setValue(config->otherDimIndexList.at(i));
            spin->setEnabled(true);
        } else {
            if (i < bounds.size())
                spin->setValue(lowerOfBound(bounds.at(i)));
            spin->setEnabled(false);
        }
    }
    create2DSliceDetails(bounds);
}

void ArrayLensConfigDialog::reset2DTableSettings(QString text, QStringList bounds) {
    const int n = bounds.size();
    {
        const QSignalBlocker blockRow(rowCombo);
        const QSignalBlocker blockCol(colCombo);
        tableSlice.clear();
        useTableCheckBox->setEnabled(false);
        clear2DSliceTable();
        rowCombo->clear();
        colCombo->clear();

        // A two-dimensional array has nothing to fix.
        const bool editable = !text.isEmpty() && n >= 2;
        sliceTable->setEnabled(editable);
        const bool others = editable && n > 2;
        otherDimsFrame->setVisible(others);
        otherDimsLabel->setVisible(others);
        otherDimsHelpLabel->setVisible(others);

        dimLabels.clear();
        const QString pattern = cStyle ? QStringLiteral("  [ %1 ]") : QStringLiteral("   ( %1 )");
        const QString letters = QString::fromLatin1(DIMENSION_LABELS);
        for (int i = 0; i < n; ++i)
            dimLabels << pattern.arg(letters.mid(i, 1));
        rowCombo->addItems(dimLabels);
        colCombo->addItems(dimLabels);

        if (!editable) {
            rowCombo->setCurrentIndex(-1);
            colCombo->setCurrentIndex(-1);
        } else if (cStyle) {
            // The fastest-running dimensions of each language lie along the
            // table by default.
            rowCombo->setCurrentIndex(n - 2);
            colCombo->setCurrentIndex(n - 1);
        } else {
            rowCombo->setCurrentIndex(0);
            colCombo->setCurrentIndex(1);
        }
        prevRowDim = rowCombo->currentIndex();
        prevColDim = colCombo->currentIndex();
    }
    resetDimSpinBoxes(bounds);
}

void ArrayLensConfigDialog::resetDimSpinBoxes(QStringList bounds) {
    const int n = bounds.size();
    otherDimsFrame->setVisible(n >= 3);
    while (!spinBoxes->isEmpty()) {
        DimSliceSpinbox* spin = spinBoxes->takeLast();
        spinLayout->removeWidget(spin);
        delete spin;
    }
    if (n < 3)
        return;
    const int rowDim = rowCombo->currentIndex();
    const int colDim = colCombo->currentIndex();
    for (int i = 0; i < n; ++i) {
        const QStringList parts = bounds.at(i).split(QLatin1Char(':'));
        const int minimum = parts.value(0).toInt();
        const int maximum = parts.value(1).toInt();
        auto* spin = new DimSliceSpinbox(dimLabels.value(i), minimum, maximum, spinFrame);
        spinLayout->addWidget(spin);
        spinBoxes->append(spin);
        spin->setValue(cStyle ? 0 : 1);
        if (i == rowDim || i == colDim)
            spin->setEnabled(false);
    }
    spinFrame->adjustSize();
}

void ArrayLensConfigDialog::set2DSlice(Config2DTable* config) {
    const QSignalBlocker blockRow(rowCombo);
    const QSignalBlocker blockCol(colCombo);
    const QSignalBlocker blockTable(sliceTable);

    tableSlice = config->slice;
    auto refuse = [this]() {
        useTableCheckBox->setEnabled(false);
        useTableCheckBox->setChecked(false);
        tableSliceLabel->clear();
        tableSliceLabel->hide();
    };
    if (tableSlice.isEmpty()) {
        refuse();
        return;
    }
    useTableCheckBox->setEnabled(true);
    tableSliceLabel->setText(tableSlice);
    tableSliceLabel->show();

    if (config->rowDim < 0 && config->colDim < 0)
        return;
    if (config->rowDim >= 0)
        rowCombo->setCurrentIndex(config->rowDim);
    if (config->colDim >= 0)
        colCombo->setCurrentIndex(config->colDim);
    prevRowDim = rowCombo->currentIndex();
    prevColDim = colCombo->currentIndex();

    const int dims = SliceModel::getSliceDimCount(tableSlice);
    const QStringList pieces = SliceModel::splitSlice(tableSlice, cStyle);
    if (dims != pieces.size()) {
        // A slice written in the other style.
        refuse();
        return;
    }
    auto fill = [&](int dim, int tableRow) {
        if (dim < 0 || dim >= dims || !pieces.at(dim).contains(QLatin1Char(':')))
            return;
        const QStringList parts = pieces.at(dim).split(QLatin1Char(':'), Qt::KeepEmptyParts);
        setCellText(sliceTable, tableRow, START_COL, parts.value(0));
        setCellText(sliceTable, tableRow, END_COL, parts.value(1));
        setCellText(sliceTable, tableRow, STRIDE_COL,
                    parts.size() == 3 ? parts.at(2) : QStringLiteral("1"));
    };
    fill(config->rowDim, ROW_ROW);
    fill(config->colDim, COLUMN_ROW);
}

void ArrayLensConfigDialog::create2DSliceDetails(QStringList bounds) {
    deleteDimDetails();
    dimDetails = new QList<ArrayDimensionDetails*>();

    const QStringList pieces =
        tableSlice.isEmpty() ? bounds : SliceModel::splitSlice(tableSlice, cStyle);
    for (int i = 0; i < bounds.size(); ++i) {
        const QString& bound = bounds.at(i);
        const int colon = bound.indexOf(QLatin1Char(':'));
        int lower = -1;
        int upper = -1;
        if (colon > 0) {
            lower = bound.left(colon).toInt();
            upper = bound.mid(colon + 1).toInt();
        }
        const SliceModel::SlicePiece piece = SliceModel::readSlicePiece(pieces.value(i), true);
        if (piece.hasRange) {
            dimDetails->append(
                new ArrayDimensionDetails(i, lower, upper, piece.start, piece.end, piece.stride));
        } else {
            // A whole or unset dimension: a placeholder without bounds.
            dimDetails->append(cStyle ? new ArrayDimensionDetails(i, 0, 0, 1)
                                      : new ArrayDimensionDetails(i, 1, 1, 1));
        }
    }
}

void ArrayLensConfigDialog::reset2DSliceFromDetails() {
    const int rowDim = getRowDimIndex();
    const int colDim = getColDimIndex();
    const int count = dimDetails->size();
    if (rowDim >= 0 && colDim >= 0 && rowDim < count && colDim < count) {
        setSliceTableRow(ROW_ROW, dimDetails->at(rowDim));
        setSliceTableRow(COLUMN_ROW, dimDetails->at(colDim));
    }
    for (int i = 0; i < count; ++i) {
        if (i >= spinBoxes->size())
            break;
        DimSliceSpinbox* spin = spinBoxes->at(i);
        spin->setValue(dimDetails->at(i)->startIndex);
        spin->setEnabled(i != rowDim && i != colDim);
    }
}

void ArrayLensConfigDialog::clear2DSliceTable() {
    const QSignalBlocker block(sliceTable);
    sliceTable->clearSelection();
    for (int row = 0; row < sliceTable->rowCount(); ++row)
        for (int column = START_COL; column < sliceTable->columnCount(); ++column)
            if (QTableWidgetItem* item = sliceTable->item(row, column))
                item->setText(QString());
}

void ArrayLensConfigDialog::setSliceTableRow(int tableRow, ArrayDimensionDetails* details) {
    const QSignalBlocker block(sliceTable);
    setCellText(sliceTable, tableRow, START_COL, QString::number(details->startIndex));
    setCellText(sliceTable, tableRow, END_COL, QString::number(details->endIndex));
    setCellText(sliceTable, tableRow, STRIDE_COL, QString::number(details->stride));
}

void ArrayLensConfigDialog::dimComboBoxChanged(int /*index*/) {
    const int rowDim = getRowDimIndex();
    const int colDim = getColDimIndex();
    if (rowDim < 0 || colDim < 0)
        return;
    {
        const QSignalBlocker blockRow(rowCombo);
        const QSignalBlocker blockCol(colCombo);
        const QSignalBlocker blockTable(sliceTable);

        // Keep what the lines said for the dimensions they stood for.
        saveSelectedDimSliceDetails(prevRowDim, prevColDim);

        const int count = dimDetails->size();
        for (int dim : {rowDim, colDim}) {
            if (dim >= count)
                continue;
            ArrayDimensionDetails* details = dimDetails->at(dim);
            // A row or column of one element is useless: open it up.
            if (details->startIndex == details->endIndex) {
                details->startIndex = details->lowerBound;
                details->endIndex = details->upperBound;
                details->stride = 1;
            }
        }
        if (rowDim < count && colDim < count) {
            setSliceTableRow(ROW_ROW, dimDetails->at(rowDim));
            setSliceTableRow(COLUMN_ROW, dimDetails->at(colDim));
        }
        // A dimension that stops being row or column keeps its spin value.
        for (int i = 0; i < spinBoxes->size(); ++i)
            spinBoxes->at(i)->setEnabled(i != rowDim && i != colDim);
    }
    prevRowDim = rowDim;
    prevColDim = colDim;
}

void ArrayLensConfigDialog::slice2DTableValueChanged(int /*row*/, int /*column*/) {
    saveRCSliceDetails();
}

void ArrayLensConfigDialog::saveRCSliceDetails() {
    saveSelectedDimSliceDetails(getRowDimIndex(), getColDimIndex());
    saveOtherDimSliceDetails(getRowDimIndex(), getColDimIndex());
}

void ArrayLensConfigDialog::saveSelectedDimSliceDetails(int rowDim, int colDim) {
    const int count = dimDetails ? dimDetails->size() : 0;
    if (count == 0 || rowDim < 0 || colDim < 0 || rowDim >= count || colDim >= count)
        return;
    ArrayDimensionDetails* row = dimDetails->at(rowDim);
    row->startIndex = cellText(sliceTable, ROW_ROW, START_COL).toInt();
    row->endIndex = cellText(sliceTable, ROW_ROW, END_COL).toInt();
    row->stride = cellText(sliceTable, ROW_ROW, STRIDE_COL).toInt();
    ArrayDimensionDetails* col = dimDetails->at(colDim);
    col->startIndex = cellText(sliceTable, COLUMN_ROW, START_COL).toInt();
    col->endIndex = cellText(sliceTable, COLUMN_ROW, END_COL).toInt();
    col->stride = cellText(sliceTable, COLUMN_ROW, STRIDE_COL).toInt();
}

void ArrayLensConfigDialog::saveOtherDimSliceDetails(int rowDim, int colDim) {
    for (int i = 0; i < spinBoxes->size() && i < dimDetails->size(); ++i) {
        if (i == rowDim || i == colDim)
            continue;
        const int value = spinBoxes->at(i)->getValue();
        dimDetails->at(i)->startIndex = value;
        dimDetails->at(i)->endIndex = value;
    }
}

bool ArrayLensConfigDialog::check2DSlice(QString* error) {
    saveRCSliceDetails();
    const int rowDim = getRowDimIndex();
    const int colDim = getColDimIndex();
    if (rowDim < 0 || colDim < 0 || qMax(rowDim, colDim) >= dimDetails->size())
        return true;
    ArrayDimensionDetails* row = dimDetails->at(rowDim);
    ArrayDimensionDetails* col = dimDetails->at(colDim);
    if (!row || !col)
        return true;

    // The column record is only looked at when the row record needed no
    // swap; a wrongly ordered column waits for the next pass.
    const bool swapped =
        adjustSliceDetailsForNegativeStride(row) || adjustSliceDetailsForNegativeStride(col);
    if (swapped) {
        setSliceTableRow(ROW_ROW, row);
        setSliceTableRow(COLUMN_ROW, col);
        saveRCSliceDetails();
    }

    QString message;
    if (rowDim == colDim) {
        message = tr("Error: Table Row and Column dimensions are the same.\n"
                     "Select different array dimensions for rows and columns.");
    } else if (!valid2DIndexes(row) || !valid2DIndexes(col)) {
        message = tr("Error: Slice Start and End values must be within the array bounds.");
    } else if (!cStyle) {
        return true;
    } else if (row->startIndex < 0 || row->endIndex < 0 || col->startIndex < 0 ||
               col->endIndex < 0) {
        message = tr("Error: Slice start and end values must be positive.");
    } else {
        return true;
    }
    if (error)
        *error = message;
    return false;
}

QString ArrayLensConfigDialog::get2DSlice() {
    const int rowDim = getRowDimIndex();
    const int colDim = getColDimIndex();
    if (rowDim == -1 || colDim == -1)
        return QString();
    const int n = rowCombo->count();
    const QString rowSlice = getDimSlice(sliceTable, ROW_ROW);
    const QString colSlice = getDimSlice(sliceTable, COLUMN_ROW);
    const QList<int> indexes = getOtherDimIndexList();

    QString slice;
    for (int i = 0; i < n; ++i) {
        if (i == rowDim)
            slice += rowSlice;
        else if (i == colDim)
            slice += colSlice;
        else if (i < indexes.size())
            slice += getOtherDimSlice(indexes.at(i));
        else
            slice += cStyle ? QStringLiteral("[:]") : QStringLiteral(":");
        if (!cStyle && i < n - 1)
            slice += QLatin1Char(',');
    }
    if (!cStyle)
        slice = QLatin1Char('(') + slice + QLatin1Char(')');
    return slice;
}

QString ArrayLensConfigDialog::getDimSlice(QTableWidget* table, int tableRow) {
    // The cells are written as they stand.
    QString slice = cStyle ? QStringLiteral("[") : QString();
    slice += cellText(table, tableRow, START_COL) + QLatin1Char(':') +
             cellText(table, tableRow, END_COL);
    const QString stride = cellText(table, tableRow, STRIDE_COL);
    if (!stride.isEmpty())
        slice += QLatin1Char(':') + stride;
    if (cStyle)
        slice += QLatin1Char(']');
    return slice;
}

QString ArrayLensConfigDialog::getOtherDimSlice(int index) {
    return (cStyle ? QStringLiteral("[%1:%1]") : QStringLiteral("%1:%1")).arg(index);
}

QList<int> ArrayLensConfigDialog::getOtherDimIndexList() {
    QList<int> indexes;
    for (DimSliceSpinbox* spin : *spinBoxes)
        indexes << spin->getValue();
    return indexes;
}

Config2DTable* ArrayLensConfigDialog::getCurrentConfig2DTable() {
    return new Config2DTable(getRowDimIndex(), getColDimIndex(), get2DSlice(), getDataFormat(),
                             dataType, getOtherDimIndexList());
}

int ArrayLensConfigDialog::getRowDimIndex() {
    return rowCombo->count() == 0 ? -1 : rowCombo->currentIndex();
}

int ArrayLensConfigDialog::getColDimIndex() {
    return colCombo->count() == 0 ? -1 : colCombo->currentIndex();
}
