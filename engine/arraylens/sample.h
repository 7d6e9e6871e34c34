// A stratified sample of the selected elements: the result positions split
// into equal strata, one element from each at an offset that depends only on
// the stratum. Nearby elements of smooth data are alike, so one element per
// stratum says more about the whole than the same number drawn at random,
// and the same array always gives the same sample.
#pragma once

#include "reader.h"
#include "result.h"
#include "slice.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace arraylens {

// `count` increasing positions out of `total` (all of them when count >=
// total).
std::vector<std::uint64_t> stratifiedPositions(std::uint64_t total, std::size_t count);

// Address of the element at a result position.
std::uint64_t addressAt(const Layout& layout, std::uint64_t position);

// Reads the elements at the positions, elementSize bytes each, into out, on
// `threads` threads with gathered reads.
Status readPositions(const Layout& layout, Reader& reader,
                     const std::vector<std::uint64_t>& positions, int threads,
                     std::vector<unsigned char>& out);

} // namespace arraylens
