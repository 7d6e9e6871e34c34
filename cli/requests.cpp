#include "requests.h"

namespace arraylens::cli {

gdb::RequestSnapshot requestSnapshot(const Options& o) {
    gdb::RequestSnapshot r;
    switch (o.command) {
    case Command::Info:
        r.operation = gdb::Operation::ArrayInfo;
        r.id = QStringLiteral("ArrayInfoRequest");
        break;
    case Command::Stats:
        r.operation = gdb::Operation::Statistics;
        r.id = QStringLiteral("ArrayStatisticsRequest");
        break;
    case Command::Table:
        r.operation = gdb::Operation::Table;
        r.id = QStringLiteral("ArrayData2DTableRequest");
        break;
    case Command::Plot:
        r.operation = gdb::Operation::Plot;
        r.id = QStringLiteral("VisEvaluateExpressionRequest");
        break;
    case Command::Trace:
    case Command::Export:
        // Refused with --mpi when the options are read.
        break;
    }
    setSelection(r, o);
    r.rowDim = o.rowDim;
    r.colDim = o.colDim;
    r.dataFormat = o.format;
    r.usingViewPort = o.command == Command::Table;
    r.startRow = o.startRow;
    r.endRow = o.endRow;
    r.startCol = o.startCol;
    r.endCol = o.endCol;
    return r;
}

} // namespace arraylens::cli
