// The table: one plane of an array, its cells formatted by the engine.
#pragma once

#include "descriptor.h"
#include "format.h"
#include "options.h"
#include "reader.h"
#include "result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens {

// Cells a table answer may hold; a viewport larger than this is refused.
constexpr std::uint64_t kMaxTableCells = 4'000'000;

// Rows and columns of the table, from 0, inclusive. -1 stands for the first
// row or column at a start and for the last one at an end.
struct Viewport {
    std::int64_t startRow = -1, endRow = -1;
    std::int64_t startCol = -1, endCol = -1;
};

struct TableOptions : PassOptions {
    // Array dimensions (from 0, declaration order) down the rows and across
    // the columns; negative: of the dimensions the slice keeps, the last two
    // for a C-form slice, the first two for a Fortran-form one. A
    // one-dimensional array gives one column. Any 64-bit value is answered:
    // one beyond the array's dimensions is refused in words.
    std::int64_t rowDim = -1, colDim = -1;
    DataFormat format = DataFormat::Default;
    // Only the cells of the viewport are read and formatted; without it
    // the whole table.
    bool usingViewPort = false;
    Viewport viewport;
    std::uint64_t maxCells = kMaxTableCells;
    static TableOptions Defaults() { return TableOptions{}; }
};

struct Table {
    std::string arrayName;  // the expression text
    std::string actualType; // the type text the debugger reported
    std::string filter;     // as applied
    std::string emptySlice; // the whole array in the expression's form
    // The slice applied, in normal form with every number written, in the
    // expression's form: `[0:0:1][0:9:1][0:19:2]`.
    std::string slice;
    int dimCount = 0;
    int rowDim = -1, colDim = -1; // as used; colDim -1 for one dimension
    std::int64_t rowCount = 0, colCount = 0;
    // First index, last index and stride along the rows and the columns, in
    // slice order: a reversed dimension has its lower bound above its upper.
    std::int64_t rowLowerBound = 0, rowUpperBound = 0, rowStride = 1;
    std::int64_t colLowerBound = 0, colUpperBound = 0, colStride = 1;

    // The viewport clamped to the table. When it lies outside the table an
    // end is below its start and there are no cells.
    bool usingViewPort = false;
    std::int64_t tableStartRow = 0, tableEndRow = -1;
    std::int64_t tableStartCol = 0, tableEndCol = -1;
    // Position and size of the cells within the table.
    std::int64_t rowOffset = 0, visibleRowCount = 0;
    std::int64_t colOffset = 0, visibleColCount = 0;
    // Array indices of the first and last row and column of the cells.
    std::int64_t dataStartRow = 0, dataEndRow = -1;
    std::int64_t dataStartCol = 0, dataEndCol = -1;

    // visibleRowCount * visibleColCount texts, row-major; the empty text for
    // an element that fails the filter.
    std::vector<std::string> cells;
    // The cell at a table row and column inside the viewport.
    const std::string& cell(std::int64_t row, std::int64_t col) const {
        return cells[static_cast<std::size_t>((row - rowOffset) * visibleColCount +
                                              (col - colOffset))];
    }

    DataFormat dataFormat = DataFormat::Default; // as requested
    DataType dataType = DataType::Other;
};

// On an error the answer still names the slice, the dimensions, the format
// and the element class: the request's own slice, rowDim, colDim and format,
// and dataTypeOf(array.kind).
Result<Table> tableCells(const ArrayDescriptor& array, Reader& reader, std::string_view slice,
                         std::string_view filter,
                         const TableOptions& options = TableOptions::Defaults());

} // namespace arraylens
