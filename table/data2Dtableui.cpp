#include "table/data2Dtableui.h"

#include "wire/arrayrecords.h"

#include "ui_data2DTableForm.h"

#include <QTableWidget>
#include <QTimer>

const char Data2DTableUI::MULTI_DIM_ERROR_MSG[] =
    "The Data Table requires a two or more dimensional array.";

Data2DTableUI::Data2DTableUI(ArrayLensView* view, QWidget* parent)
    : QWidget(parent), ui(new Ui::data2DTableForm), view(view) {
    ui->setupUi(this);
    table = ui->data2DTableWidget;
    viewportTimer = new QTimer(this);
    viewportTimer->setSingleShot(true);
}

Data2DTableUI::~Data2DTableUI() {
    delete expression;
    delete ui;
}

bool Data2DTableUI::eventFilter(QObject*, QEvent*) {
    return false;
}
void Data2DTableUI::showData2DTable(IHVExpression*, Config2DTable*, QString, QString) {}
void Data2DTableUI::requestArrayInfo(IHVExpression*, bool, bool) {}
void Data2DTableUI::resetParameters() {}
void Data2DTableUI::parseBounds(QString, int*, int*, int*) {}
int Data2DTableUI::adjustCountForStride(int count, int) {
    return count;
}
void Data2DTableUI::setupDefaultTable() {}
void Data2DTableUI::setTableHeaderLabels(int, int, int, int, int, int, int, int, int, int, bool,
                                         int, int, int, int) {}
void Data2DTableUI::getCurrentViewport(int&, int&, int&, int&, bool, bool) {}
void Data2DTableUI::setRequestViewport(ArrayData2DTableRequest&, bool) {}
void Data2DTableUI::requestTableData(bool) {}
void Data2DTableUI::updateViewportData() {}
void Data2DTableUI::validateResponseViewport(int, int, int, int, bool) {}
bool Data2DTableUI::updateTable(ArrayData2DTableResponse) {
    return true;
}
void Data2DTableUI::dumpTable() {}
void Data2DTableUI::handle2DTableFinished() {}
void Data2DTableUI::handleArrayInfoFinished() {}
QList<int> Data2DTableUI::parseOtherDimIndexList(QString) {
    return {};
}
void Data2DTableUI::handleHorizontalScrollBarValueChanged(int) {}
void Data2DTableUI::handleVerticalScrollBarValueChanged(int) {}
void Data2DTableUI::handleContextChange() {}
