#include "table.h"

#include "element.h"
#include "filter.h"
#include "parallel.h"
#include "prepare.h"
#include "slice.h"
#include "walk.h"

#include <algorithm>
#include <limits>

namespace arraylens {

namespace {

Error tableError(const std::string& message) {
    return Error{ErrorCode::BadRequest, message};
}

// The number, from 1, of a dimension given from 0; any 64-bit value.
std::string dimensionNumber(std::int64_t d) {
    return std::to_string(static_cast<std::uint64_t>(d) + 1);
}

std::string dimensionNumbers(std::size_t n) {
    return std::to_string(n) + (n == 1 ? " dimension" : " dimensions");
}

} // namespace

Result<Table> tableCells(const ArrayDescriptor& array, Reader& reader, std::string_view sliceText,
                         std::string_view filterText, const TableOptions& options) {
    Result<Selection> selection = prepareSelection(array, sliceText, filterText);
    if (!selection)
        return selection.error();
    const Slice& slice = selection->slice;
    const Filter& filter = selection->filter;
    const std::size_t n = array.dims.size();

    // The plane, when the request leaves it open, is made of the dimensions
    // the slice keeps: the last two for a C-form slice, the first two for a
    // Fortran-form one, so that `[:][:][2]` of a cube shows a whole square.
    // Where the slice keeps fewer than two, fixed dimensions make up the pair,
    // nearest to that end first. Rows run along the earlier of the two. A
    // request that names both dimensions gets exactly those.
    std::int64_t rowDim = options.rowDim, colDim = options.colDim;
    if (n == 1) {
        if (rowDim > 0)
            return tableError("Row dimension " + dimensionNumber(rowDim) +
                              " does not exist: the array has 1 dimension.");
        rowDim = 0;
        colDim = -1;
    } else {
        if (rowDim < 0 || colDim < 0) {
            const bool cForm = slice.form == Language::C;
            std::vector<std::size_t> preferred;
            for (bool kept : {true, false})
                for (std::size_t k = 0; k < n; ++k) {
                    const std::size_t d = cForm ? n - 1 - k : k;
                    if (!slice.dims[d].fixed == kept)
                        preferred.push_back(d);
                }
            const auto r0 = static_cast<std::int64_t>(std::min(preferred[0], preferred[1]));
            const auto c0 = static_cast<std::int64_t>(std::max(preferred[0], preferred[1]));
            if (rowDim < 0 && colDim < 0) {
                rowDim = r0;
                colDim = c0;
            } else if (rowDim < 0) {
                rowDim = r0 != colDim ? r0 : c0;
            } else {
                colDim = c0 != rowDim ? c0 : r0;
            }
        }
        if (static_cast<std::uint64_t>(rowDim) >= n)
            return tableError("Row dimension " + dimensionNumber(rowDim) +
                              " does not exist: the array has " + dimensionNumbers(n) + ".");
        if (static_cast<std::uint64_t>(colDim) >= n)
            return tableError("Column dimension " + dimensionNumber(colDim) +
                              " does not exist: the array has " + dimensionNumbers(n) + ".");
        if (rowDim == colDim)
            return tableError("Rows and columns cannot both run along dimension " +
                              dimensionNumber(rowDim) + ".");
    }

    Table t;
    t.arrayName = array.expression;
    t.actualType = array.typeName;
    t.filter = filter.text();
    t.emptySlice = wholeArraySliceText(array);
    t.dimCount = static_cast<int>(n);
    t.rowDim = static_cast<int>(rowDim);
    t.colDim = static_cast<int>(colDim);
    t.dataFormat = options.format;
    t.dataType = dataTypeOf(array.kind);

    // Every other dimension is fixed at the first index its slice gives,
    // which for the whole array is its lower bound.
    std::vector<SliceDim> dims = slice.dims;
    bool empty = false;
    for (std::size_t d = 0; d < n; ++d) {
        if (static_cast<std::int64_t>(d) == rowDim || static_cast<std::int64_t>(d) == colDim)
            continue;
        SliceDim& s = dims[d];
        if (s.count == 0) {
            empty = true;
            continue;
        }
        s.end = s.start;
        s.stride = 1;
        s.count = 1;
        s.fixed = true;
    }
    t.slice = normalFormText(dims, array.language);

    SliceDim row = dims[static_cast<std::size_t>(rowDim)];
    SliceDim col;
    col.count = 1;
    if (colDim >= 0)
        col = dims[static_cast<std::size_t>(colDim)];
    t.rowCount = empty ? 0 : row.count;
    t.colCount = empty ? 0 : col.count;
    t.rowLowerBound = row.start;
    t.rowUpperBound = row.count > 0 ? row.last() : row.end;
    t.rowStride = row.stride;
    t.colLowerBound = col.start;
    t.colUpperBound = col.count > 0 ? col.last() : col.end;
    t.colStride = col.stride;

    // Clamp the viewport to the table.
    t.usingViewPort = options.usingViewPort;
    std::int64_t sr = 0, er = t.rowCount - 1, sc = 0, ec = t.colCount - 1;
    if (options.usingViewPort) {
        const Viewport& vp = options.viewport;
        sr = vp.startRow < 0 ? 0 : vp.startRow;
        sc = vp.startCol < 0 ? 0 : vp.startCol;
        if (vp.endRow >= 0)
            er = std::min(er, vp.endRow);
        if (vp.endCol >= 0)
            ec = std::min(ec, vp.endCol);
    }
    const std::int64_t vr = std::max<std::int64_t>(0, er - sr + 1);
    const std::int64_t vc = std::max<std::int64_t>(0, ec - sc + 1);
    t.tableStartRow = sr;
    t.tableEndRow = er;
    t.tableStartCol = sc;
    t.tableEndCol = ec;
    t.rowOffset = sr;
    t.visibleRowCount = vr;
    t.colOffset = sc;
    t.visibleColCount = vc;
    // Array indices of the viewport's corners; a corner outside the table
    // takes the nearest row or column inside it.
    const auto indexNear = [](const SliceDim& d, std::int64_t k) {
        return d.index(std::clamp<std::int64_t>(k, 0, std::max<std::int64_t>(d.count - 1, 0)));
    };
    t.dataStartRow = indexNear(row, sr);
    t.dataEndRow = indexNear(row, er);
    t.dataStartCol = indexNear(col, sc);
    t.dataEndCol = indexNear(col, ec);
    // Both counts can pass 2^32: the product is taken in 128 bits.
    const unsigned __int128 cells =
        static_cast<unsigned __int128>(vr) * static_cast<std::uint64_t>(vc);
    const std::uint64_t cellCount = cells > std::numeric_limits<std::uint64_t>::max()
                                        ? std::numeric_limits<std::uint64_t>::max()
                                        : static_cast<std::uint64_t>(cells);
    if (cellCount > options.maxCells)
        return Error{ErrorCode::TooLarge, "The table view has " + std::to_string(cellCount) +
                                              " cells, more than the " +
                                              std::to_string(options.maxCells) +
                                              " one answer can carry; ask for a smaller viewport."};
    if (cellCount == 0)
        return t;

    // The viewport's elements, rows slowest, whatever the order of the two
    // dimensions in the declaration.
    Layout layout;
    layout.elementSize = array.elementSize;
    std::int64_t offset = 0;
    for (std::size_t d = 0; d < n; ++d) {
        std::int64_t first = dims[d].start;
        if (static_cast<std::int64_t>(d) == rowDim)
            first = row.index(sr);
        else if (static_cast<std::int64_t>(d) == colDim)
            first = col.index(sc);
        offset += (first - array.dims[d].lower) * array.dims[d].byteStride;
    }
    layout.base = array.address + static_cast<std::uint64_t>(offset);
    layout.extents = {vr, vc};
    layout.byteStrides = {
        row.byteStep(array.dims[static_cast<std::size_t>(rowDim)].byteStride),
        colDim >= 0 ? col.byteStep(array.dims[static_cast<std::size_t>(colDim)].byteStride)
                    : static_cast<std::int64_t>(array.elementSize)};
    const TilePlan plan(layout, options.tileBytes);
    t.cells.assign(static_cast<std::size_t>(cellCount), std::string());
    const ElementKind kind = array.kind;
    const DataFormat format = options.format;
    Status s = withRepr(kindInfo(kind).repr, [&](auto tag) {
        constexpr Repr R = decltype(tag)::repr;
        return forEachTile(
            plan, reader, threadsFor(options),
            [&](int, std::uint64_t, const TileView& view) -> Status {
                std::size_t at = static_cast<std::size_t>(view.firstIndex);
                for (const ElementRun& run : view.runs) {
                    const unsigned char* p = run.first;
                    for (std::size_t k = 0; k < run.count; ++k, p += run.step, ++at)
                        if (filter.matches<R>(p))
                            t.cells[at] = formatElement(kind, p, format);
                }
                return Status::Ok();
            },
            nullptr, options.cancel);
    });
    if (!s)
        return s.error();
    return t;
}

} // namespace arraylens
