#include "arrayoperations.h"

#include "arrayexport.h"
#include "gdbmemoryreader.h"

#include "arraylens/arraylens.h"

#include <QBitArray>
#include <QFile>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <climits>
#include <memory>

namespace arraylens::gdb {

namespace {

QString qs(const std::string& s) {
    return QString::fromStdString(s);
}

QVariant countVariant(std::uint64_t n) {
    if (n <= std::uint64_t(INT_MAX))
        return QVariant(int(n));
    return QVariant(qulonglong(n));
}

// An extent, bound or index: an int as the plug-in reads it while it fits,
// the exact 64-bit value beyond.
QVariant indexVariant(qint64 n) {
    if (n >= qint64(INT_MIN) && n <= qint64(INT_MAX))
        return QVariant(int(n));
    return QVariant(qlonglong(n));
}

QVariant numberVariant(const arraylens::Number& n) {
    if (const auto* i = std::get_if<std::int64_t>(&n))
        return QVariant(qlonglong(*i));
    if (const auto* u = std::get_if<std::uint64_t>(&n))
        return QVariant(qulonglong(*u));
    return QVariant(std::get<double>(n));
}

QString engineCode(arraylens::ErrorCode code) {
    switch (code) {
    case arraylens::ErrorCode::BadSlice:
        return QStringLiteral("slice");
    case arraylens::ErrorCode::BadFilter:
        return QStringLiteral("filter");
    case arraylens::ErrorCode::BadRequest:
        return QStringLiteral("request");
    case arraylens::ErrorCode::UnsupportedType:
        return QStringLiteral("type");
    case arraylens::ErrorCode::Unreadable:
        return QStringLiteral("memory");
    case arraylens::ErrorCode::TooLarge:
        return QStringLiteral("toolarge");
    case arraylens::ErrorCode::Cancelled:
        return QStringLiteral("cancelled");
    }
    return QStringLiteral("error");
}

// The table echoes its settings on every answer: the display takes them
// over before it looks at the result.
void addTableEcho(Fields& f, const RequestSnapshot& r, int dataType) {
    if (r.operation != Operation::Table)
        return;
    f.append({"Slice", r.slice});
    f.append({"RowDim", indexVariant(r.rowDim)});
    f.append({"ColDim", indexVariant(r.colDim)});
    f.append({"DataFormat", r.dataFormat});
    f.append({"DataType", dataType});
}

} // namespace

Fields errorFields(const RequestSnapshot& r, const QString& msg, const QString& code,
                   int dataType) {
    Fields f;
    addTableEcho(f, r, dataType);
    f.append({"result", QStringLiteral("error")});
    f.append({"msg", msg});
    f.append({"code", code});
    return f;
}

namespace {

QString boundsText(const DimBounds& d) {
    return QStringLiteral("%1:%2").arg(d.lower).arg(d.upper);
}

// Array information from what gdb said, for arrays whose elements the
// engine cannot read (strings, structures): shape without data.
Fields infoFromFacts(const RequestSnapshot& r, const ArrayFacts& facts) {
    QStringList bounds;
    for (const DimBounds& d : facts.dims)
        bounds << boundsText(d);
    QString empty;
    if (facts.fortran) {
        empty = QLatin1Char('(') + bounds.join(QLatin1Char(',')) + QLatin1Char(')');
    } else {
        for (const QString& b : bounds)
            empty += QLatin1Char('[') + b + QLatin1Char(']');
    }
    Fields f;
    f.append({"ArrayName", r.expression});
    f.append({"Focus", r.focus});
    f.append({"Expression", r.expression});
    f.append({"EmptySlice", empty});
    f.append({"DimCount", int(facts.dims.size())});
    f.append({"DataType", 3});
    f.append({"ActualType", facts.typeText});
    f.append({"ArrayBounds", bounds});
    f.append({"result", QStringLiteral("done")});
    return f;
}

Fields infoFields(const RequestSnapshot& r, const ArrayFacts& facts,
                  const arraylens::ArrayDescriptor& array) {
    auto info = arraylens::arrayInfo(array);
    if (!info)
        return errorFields(r, qs(info.message()), engineCode(info.error().code));
    QStringList bounds;
    for (const std::string& b : info->arrayBounds)
        bounds << qs(b);
    Fields f;
    f.append({"ArrayName", r.expression});
    f.append({"Focus", r.focus});
    f.append({"Expression", r.expression});
    f.append({"EmptySlice", qs(info->emptySlice)});
    f.append({"DimCount", info->dimCount});
    f.append({"DataType", int(info->dataType)});
    f.append({"ActualType", facts.typeText});
    f.append({"ArrayBounds", bounds});
    f.append({"result", QStringLiteral("done")});
    return f;
}

Fields statisticsFields(const RequestSnapshot& r, const ArrayFacts& facts, std::size_t tileBytes,
                        const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                        const std::atomic<bool>* cancel, int threads) {
    arraylens::StatisticsOptions options;
    options.cancel = cancel;
    options.threads = threads;
    options.tileBytes = tileBytes;
    auto stats = arraylens::computeStatistics(array, reader, r.slice.toStdString(),
                                              r.filter.toStdString(), options);
    if (!stats)
        return errorFields(r, qs(stats.message()), engineCode(stats.error().code));
    const arraylens::Statistics& s = *stats;
    QBitArray valid(16);
    for (int bit = 0; bit < 16; ++bit)
        valid.setBit(bit, (s.statValid >> bit) & 1u);
    Fields f;
    f.append({"Checksum", qlonglong(s.checksum)});
    f.append({"Count", countVariant(s.count)});
    f.append({"ZeroCount", countVariant(s.zeroCount)});
    f.append({"Sum", numberVariant(s.sum)});
    f.append({"Min", numberVariant(s.min)});
    f.append({"Max", numberVariant(s.max)});
    f.append({"Median", s.median});
    f.append({"Mean", s.mean});
    f.append({"StdDev", s.stdDev});
    f.append({"FirstQuartile", s.firstQuartile});
    f.append({"ThirdQuartile", s.thirdQuartile});
    f.append({"LowerAdjValue", numberVariant(s.lowerAdjValue)});
    f.append({"UpperAdjValue", numberVariant(s.upperAdjValue)});
    f.append({"NanCount", countVariant(s.nanCount)});
    f.append({"InfCount", countVariant(s.infCount)});
    f.append({"DenormCount", countVariant(s.denormCount)});
    // Where the passing elements begin and end; the plug-in does not read them.
    f.append({"FirstMatch", qs(s.firstMatchText)});
    f.append({"LastMatch", qs(s.lastMatchText)});
    f.append({"StatValid", valid});
    f.append({"IsStale", false});
    f.append({"Array", r.expression});
    f.append({"EmptySlice", qs(s.emptySlice)});
    f.append({"ActualType", facts.typeText});
    f.append({"Filter", qs(s.filter)});
    f.append({"result", QStringLiteral("done")});
    return f;
}

Fields tableFields(const RequestSnapshot& r, const ArrayFacts& facts, std::size_t tileBytes,
                   const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                   const std::atomic<bool>* cancel) {
    arraylens::TableOptions options;
    options.cancel = cancel;
    options.tileBytes = tileBytes;
    options.rowDim = r.rowDim;
    options.colDim = r.colDim;
    options.format = static_cast<arraylens::DataFormat>(r.dataFormat);
    options.usingViewPort = r.usingViewPort;
    options.viewport = {r.startRow, r.endRow, r.startCol, r.endCol};
    const int dataType = int(arraylens::kindInfo(array.kind).dataType);
    auto table = arraylens::tableCells(array, reader, r.slice.toStdString(), r.filter.toStdString(),
                                       options);
    if (!table)
        return errorFields(r, qs(table.message()), engineCode(table.error().code), dataType);
    return tableAnswer(r, facts.typeText, *table);
}

Fields plotFields(const RequestSnapshot& r, const ArrayFacts& facts, std::size_t tileBytes,
                  const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                  const std::atomic<bool>* cancel) {
    arraylens::PlotOptions options;
    options.cancel = cancel;
    options.tileBytes = tileBytes;
    options.maxValues = kMaxPlotValues;
    auto plot = arraylens::plotValues(array, reader, r.slice.toStdString(), r.filter.toStdString(),
                                      options);
    if (!plot)
        return errorFields(r, qs(plot.message()), engineCode(plot.error().code));
    const arraylens::PlotValues& p = *plot;
    const QByteArray block(reinterpret_cast<const char*>(p.values.data()),
                           int(p.values.size() * sizeof(double)));
    Fields f;
    f.append({"AllEvaluations", block});
    f.append({"Rank", p.rank});
    f.append({"Rows", indexVariant(p.rows)});
    f.append({"Cols", indexVariant(p.cols)});
    f.append({"ActualType", facts.typeText});
    f.append({"EmptySlice", qs(p.emptySlice)});
    f.append({"Filter", qs(p.filter)});
    f.append({"IsStale", false});
    f.append({"result", QStringLiteral("done")});
    return f;
}

} // namespace

Fields tableAnswer(const RequestSnapshot& r, const QString& typeText, const arraylens::Table& t) {
    QVariantList cells;
    cells.reserve(int(t.cells.size()));
    for (std::int64_t row = 0; row < t.visibleRowCount; ++row) {
        for (std::int64_t col = 0; col < t.visibleColCount; ++col) {
            QVariantMap cell;
            cell.insert(QStringLiteral("row"), indexVariant(t.rowOffset + row));
            cell.insert(QStringLiteral("col"), indexVariant(t.colOffset + col));
            cell.insert(QStringLiteral("value"),
                        qs(t.cells[std::size_t(row * t.visibleColCount + col)]));
            cells.append(cell);
        }
    }
    Fields f;
    f.append({"Slice", qs(t.slice)});
    f.append({"RowDim", t.rowDim});
    f.append({"ColDim", t.colDim});
    f.append({"DataFormat", r.dataFormat});
    f.append({"DataType", int(t.dataType)});
    f.append({"ArrayName", r.expression});
    f.append({"Focus", r.focus});
    f.append({"Expression", r.expression});
    f.append({"DimCount", t.dimCount});
    f.append({"RowCount", indexVariant(t.rowCount)});
    f.append({"ColCount", indexVariant(t.colCount)});
    f.append({"TableDataList", cells});
    f.append({"ActualType", typeText});
    f.append({"Filter", qs(t.filter)});
    f.append({"IsStale", false});
    f.append({"UsingViewPort", t.usingViewPort});
    f.append({"TableStartRow", indexVariant(t.tableStartRow)});
    f.append({"TableEndRow", indexVariant(t.tableEndRow)});
    f.append({"TableStartCol", indexVariant(t.tableStartCol)});
    f.append({"TableEndCol", indexVariant(t.tableEndCol)});
    f.append({"RowOffset", indexVariant(t.rowOffset)});
    f.append({"VisibleRowCount", indexVariant(t.visibleRowCount)});
    f.append({"ColOffset", indexVariant(t.colOffset)});
    f.append({"VisibleColCount", indexVariant(t.visibleColCount)});
    f.append({"DataStartRow", indexVariant(t.dataStartRow)});
    f.append({"DataEndRow", indexVariant(t.dataEndRow)});
    f.append({"DataStartCol", indexVariant(t.dataStartCol)});
    f.append({"DataEndCol", indexVariant(t.dataEndCol)});
    f.append({"RowStride", indexVariant(t.rowStride)});
    f.append({"RowLowerBound", indexVariant(t.rowLowerBound)});
    f.append({"RowUpperBound", indexVariant(t.rowUpperBound)});
    f.append({"ColStride", indexVariant(t.colStride)});
    f.append({"ColLowerBound", indexVariant(t.colLowerBound)});
    f.append({"ColUpperBound", indexVariant(t.colUpperBound)});
    f.append({"EmptySlice", qs(t.emptySlice)});
    f.append({"result", QStringLiteral("done")});
    return f;
}

RequestSnapshot RequestSnapshot::fromBag(const QObject* bag) {
    RequestSnapshot r;
    if (!bag)
        return r;
    r.id = bag->property("id").toString();
    if (r.id == QLatin1String("ArrayStatisticsRequest"))
        r.operation = Operation::Statistics;
    else if (r.id == QLatin1String("ArrayInfoRequest"))
        r.operation = Operation::ArrayInfo;
    else if (r.id == QLatin1String("ArrayData2DTableRequest"))
        r.operation = Operation::Table;
    else if (r.id == QLatin1String("VisEvaluateExpressionRequest"))
        r.operation = Operation::Plot;
    else if (r.id == QLatin1String(kExportRequestId))
        r.operation = Operation::Export;
    r.expression = bag->property("Expression").toString();
    r.focus = bag->property("Focus").toString();
    r.scopeId = bag->property("ScopeID").toString();
    r.depth = bag->property("FrameRecursionDepth").toUInt();
    r.slice = bag->property("Slice").toString();
    r.filter = bag->property("Filter").toString();
    const QVariant rowDim = bag->property("RowDim"), colDim = bag->property("ColDim");
    r.rowDim = rowDim.isValid() ? rowDim.toLongLong() : -1;
    r.colDim = colDim.isValid() ? colDim.toLongLong() : -1;
    const QVariant format = bag->property("DataFormat");
    r.dataFormat = format.isValid() ? format.toInt() : 8;
    r.usingViewPort = bag->property("UsingViewPort").toBool();
    auto indexOr = [bag](const char* name) {
        const QVariant v = bag->property(name);
        return v.isValid() ? qint64(v.toLongLong()) : qint64(-1);
    };
    r.startRow = indexOr("TableStartRow");
    r.endRow = indexOr("TableEndRow");
    r.startCol = indexOr("TableStartCol");
    r.endCol = indexOr("TableEndCol");
    r.outFile = bag->property("OutFile").toString();
    return r;
}

Fields stoppedFields(const RequestSnapshot& request) {
    return errorFields(request, QString::fromLatin1(kDebuggerStoppedMessage),
                       QStringLiteral("stopped"));
}

Fields exitFields(const RequestSnapshot& request) {
    Fields f;
    addTableEcho(f, request, 3);
    f.append({"result", QStringLiteral("exit")});
    return f;
}

Fields staleFields(const RequestSnapshot& request) {
    Fields f;
    addTableEcho(f, request, 3);
    f.append({"IsStale", true});
    f.append({"result", QStringLiteral("done")});
    return f;
}

Fields failureFields(const RequestSnapshot& request, const Failure& failure) {
    switch (failure.kind) {
    case Failure::Kind::Lost:
        return stoppedFields(request);
    case Failure::Kind::Running:
        return staleFields(request);
    case Failure::Kind::Exited:
        return exitFields(request);
    default:
        return errorFields(request, failure.message, failure.code());
    }
}

MemoryAccess::MemoryAccess(GdbSession& session) {
    if (session.readsMemoryDirectly()) {
        direct_ = std::make_unique<arraylens::ProcessReader>(pid_t(session.pid()));
        return;
    }
    viaGdb_ = std::make_unique<GdbMemoryReader>(session);
    const QString core = session.coreFile();
    if (core.isEmpty())
        return;
    // A core gdb could open but this parser refuses is still read
    // right, if slowly, through gdb.
    auto opened =
        arraylens::CoreFileReader::open(QFile::encodeName(core).toStdString(), viaGdb_.get());
    if (opened)
        direct_ = std::move(opened).value();
}

MemoryAccess::~MemoryAccess() {
    // The core reader falls back on the gdb reader: it goes first.
    direct_.reset();
}

arraylens::Reader& MemoryAccess::reader() {
    return direct_ ? *direct_ : *viaGdb_;
}

std::size_t MemoryAccess::tileBytes() const {
    // Through gdb every read is one MI command: fewer, larger ones.
    return direct_ ? arraylens::kDefaultTileBytes : GdbMemoryReader::kChunkBytes;
}

Fields performRequest(GdbSession& session, const RequestSnapshot& request,
                      const std::atomic<bool>* cancel) {
    if (request.operation == Operation::Unknown)
        return errorFields(request, QStringLiteral("Unknown request '%1'.").arg(request.id),
                           QStringLiteral("request"));
    ArrayResolver resolver(session);
    Failure failure;
    FrameInfo frame;
    ArrayFacts facts;
    bool described = false;
    {
        const auto transaction = session.beginTransaction();
        if (!resolver.locate(request.focus, request.scopeId, request.depth, frame, failure))
            return failureFields(request, failure);
        described = resolver.describe(frame, request.expression, true, facts, failure);
    }
    // Information reads no element: an array whose elements the engine
    // cannot take still has a shape to show.
    const bool layout = request.operation != Operation::ArrayInfo;
    if (!described) {
        if (layout || failure.kind != Failure::Kind::Type || !facts.isArray ||
            !facts.problem.isEmpty())
            return failureFields(request, failure);
    }
    arraylens::ArrayDescriptor array;
    if (!ArrayResolver::toDescriptor(facts, array, failure)) {
        if (!layout && failure.kind == Failure::Kind::Type)
            return infoFromFacts(request, facts);
        return failureFields(request, failure);
    }
    if (request.operation == Operation::ArrayInfo)
        return infoFields(request, facts, array);

    MemoryAccess memory(session);
    return computeFields(request, facts, array, memory.reader(), memory.tileBytes(), cancel);
}

Fields computeFields(const RequestSnapshot& request, const ArrayFacts& facts,
                     const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                     std::size_t tileBytes, const std::atomic<bool>* cancel, int threads) {
    switch (request.operation) {
    case Operation::ArrayInfo:
        return infoFields(request, facts, array);
    case Operation::Statistics:
        return statisticsFields(request, facts, tileBytes, array, reader, cancel, threads);
    case Operation::Table:
        return tableFields(request, facts, tileBytes, array, reader, cancel);
    case Operation::Plot:
        return plotFields(request, facts, tileBytes, array, reader, cancel);
    case Operation::Export:
        return exportFields(request, facts, tileBytes, array, reader, cancel);
    default:
        break;
    }
    return errorFields(request, QStringLiteral("Unknown request."), QStringLiteral("request"));
}

} // namespace arraylens::gdb
