// Where the first and last element that passes a filter lies: result
// positions, and the same as an index text in the slice's form.
#pragma once

#include "filter.h"
#include "result.h"
#include "slice.h"
#include "walk.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace arraylens {

// First and last passing result positions; -1 when none passes.
struct MatchSpan {
    std::int64_t first = -1, last = -1;
};

// From a filter's verdicts, a bit per result position (bit p of word p/64),
// as the statistics' first pass leaves them.
MatchSpan matchSpanOfVerdicts(const std::atomic<std::uint64_t>* words, std::uint64_t positions);

// By reading: tiles from the front until a passing element, then from the
// back. For passes that keep no verdicts (arrays beyond a billion
// elements); an array whose first and last elements pass costs two tiles.
Status findMatchSpan(const TilePlan& plan, Reader& reader, const Filter& filter, Repr repr,
                     const std::atomic<bool>* cancel, MatchSpan& span);

// The array index of result position p of the slice, every dimension
// written (a fixed one at its index) in the given form: `[12][40]` or
// `(3,-1)`.
std::string positionText(const Slice& slice, std::uint64_t position, Language form);

} // namespace arraylens
