// A stratified sample of the selected elements: the result positions split
// into equal strata, a short run of neighbouring elements from each at an
// offset that depends only on the stratum. Nearby elements of smooth data
// are alike, so one run per stratum says more about the whole than the same
// number drawn at random, and the same array always gives the same sample.
// A run costs a debuggee read no more than one element does; how much its
// elements add beyond the first depends on the data, and the caller
// measures that from the runs themselves.
#pragma once

#include "reader.h"
#include "result.h"
#include "slice.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace arraylens {

// Elements in each run of a sample: eight doubles fill one cache line.
constexpr std::size_t kSampleRun = 8;

// `count` runs of `run` consecutive positions out of `total`, increasing:
// run k is positions [k * run, (k + 1) * run) of the result. All positions,
// in runs of `run`, when count * run >= total.
std::vector<std::uint64_t> stratifiedPositions(std::uint64_t total, std::size_t count,
                                               std::size_t run = 1);

// Sorts keys in place, digit by digit: a sample of a few hundred thousand
// keys in a fraction of the time a comparison sort takes.
void sortKeys(std::vector<std::uint64_t>& keys);

// Address of the element at a result position.
std::uint64_t addressAt(const Layout& layout, std::uint64_t position);

// Reads the elements at the positions, elementSize bytes each, into out, on
// `threads` threads with gathered reads; neighbours in memory are read as
// one piece.
Status readPositions(const Layout& layout, Reader& reader,
                     const std::vector<std::uint64_t>& positions, int threads,
                     std::vector<unsigned char>& out);

} // namespace arraylens
