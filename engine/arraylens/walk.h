// Reading the selected elements in result order, a tile at a time.
//
// A tile is a run of consecutive result positions whose bytes can be fetched
// with few, large reads: the dimension with the smallest byte stride (the
// fastest in memory) is read in runs of up to `block` elements, one run per
// combination of the dimensions after it in result order. For a C array or a
// 1-D array that is one contiguous read per tile; for a Fortran plane shown
// row by row it is a set of short column runs, gathered in one call. Tiles
// are independent, so threads can take them in any order.
#pragma once

#include "options.h"
#include "reader.h"
#include "slice.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace arraylens {

// A run of elements inside a tile buffer, consecutive in result order: the
// k-th lies at first + k * step.
struct ElementRun {
    const unsigned char* first;
    std::ptrdiff_t step;
    std::size_t count;
};

// A tile after reading: its runs in result order.
struct TileView {
    std::uint64_t firstIndex = 0; // result position of its first element
    std::uint64_t count = 0;
    std::vector<ElementRun> runs;
};

// Buffers one thread reuses from tile to tile.
struct TileBuffer {
    std::vector<unsigned char> bytes;
    std::vector<Segment> segments;
    TileView view;
};

class TilePlan {
public:
    TilePlan(const Layout& layout, std::size_t tileBytes = kDefaultTileBytes);

    std::uint64_t tileCount() const { return tiles_; }
    std::uint64_t elementCount() const { return total_; }
    std::size_t elementSize() const { return esize_; }
    // Reads tile t into buf; buf.view then describes it.
    Status read(Reader& reader, std::uint64_t t, TileBuffer& buf) const;

private:
    Layout layout_;
    std::size_t esize_ = 0;
    std::uint64_t total_ = 0;
    std::uint64_t tiles_ = 0;
    std::size_t m_ = 0;       // the dimension read in runs
    std::int64_t block_ = 1;  // elements per run
    std::int64_t blocks_ = 0; // runs along m per outer combination
    std::uint64_t post_ = 1;  // combinations of the dimensions after m
    bool dense_ = true;       // a run is one read of its whole span
};

} // namespace arraylens
