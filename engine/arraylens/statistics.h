// Statistics over the elements of a slice that pass a filter.
#pragma once

#include "descriptor.h"
#include "options.h"
#include "reader.h"
#include "result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace arraylens {

// A value that keeps the element's type: integers as int64 (uint64 for
// unsigned 64-bit elements, and a sum too large for int64), floating point
// and integer sums beyond 64 bits as double.
using Number = std::variant<std::int64_t, std::uint64_t, double>;

double toDouble(const Number& n);

// Statistic numbers; bit n of Statistics::statValid belongs to statistic n.
enum Stat : unsigned {
    StatChecksum = 0,
    StatCount = 1,
    StatZeroCount = 2,
    StatSum = 3,
    StatMin = 4,
    StatMax = 5,
    StatMedian = 6,
    StatMean = 7,
    StatStdDev = 8,
    StatFirstQuartile = 9,
    StatThirdQuartile = 10,
    StatLowerAdjValue = 11,
    StatUpperAdjValue = 12,
    StatNanCount = 13,
    StatInfCount = 14,
    StatDenormCount = 15,
};
constexpr unsigned kStatCount = 16;

struct Statistics {
    // Echoes for the answer.
    std::string array;      // the expression text
    std::string actualType; // the type text the debugger reported
    std::string filter;     // the filter as applied, without surrounding blanks
    std::string emptySlice; // the whole-array slice in the array's form

    std::int64_t checksum = 0; // XXH3-64 of the passing elements' value bytes, result order
    std::uint64_t count = 0;   // elements that pass
    std::uint64_t zeroCount = 0;
    std::uint64_t nanCount = 0, infCount = 0, denormCount = 0; // floating point only
    // Over the finite passing elements. Sum, Min, Max and the adjacent
    // values keep the element's type.
    Number sum = std::int64_t(0), min = std::int64_t(0), max = std::int64_t(0);
    double mean = 0, stdDev = 0; // population standard deviation
    double median = 0, firstQuartile = 0, thirdQuartile = 0;
    Number lowerAdjValue = std::int64_t(0), upperAdjValue = std::int64_t(0);

    // Result positions of the first and last passing element, and the same
    // as array indices in the expression's form (`[12][40]`, `(3,-1)`); -1
    // and the empty text when no element passes.
    std::int64_t firstMatch = -1, lastMatch = -1;
    std::string firstMatchText, lastMatchText;

    // Bit n set: statistic n is to be shown.
    std::uint16_t statValid = 0;
    bool valid(Stat s) const { return (statValid >> s) & 1u; }

    unsigned passes = 0; // passes over the data it took; diagnostics
    // Diagnostics of the guess from a sample: it was made, and the windows
    // it chose held every rank and fence wanted, so one pass did.
    bool sampled = false;
    bool windowsHeld = false;
};

struct StatisticsOptions : PassOptions {
    // Memory for the keys gathered in the exact quantile search (8 bytes a
    // key); more passes over the data when it is small.
    std::size_t selectionBytes = 24u << 20;
    // Float, double and integer arrays (not logicals) of at least
    // `sampleFrom` elements, read where scattered reads are cheap, get a
    // sample of short runs of neighbouring elements read first: at least
    // `sampleSize` runs (none when it is 0),
    // more as the array grows. The key windows they suggest around the
    // quartiles and fences are gathered (at most `windowBytes` of keys) in
    // the one pass that computes the rest. When a window misses, radix
    // selection takes over. Below a hundred thousand elements or so both
    // roads take a millisecond or two.
    std::size_t sampleFrom = std::size_t(1) << 17;
    std::size_t sampleSize = 256;
    std::size_t windowBytes = 128u << 20;
    static StatisticsOptions Defaults() { return StatisticsOptions{}; }
};

// The 16 statistics of the slice's elements that pass the filter. An empty
// slice text means the whole array, an empty filter every element.
Result<Statistics>
computeStatistics(const ArrayDescriptor& array, Reader& reader, std::string_view slice,
                  std::string_view filter,
                  const StatisticsOptions& options = StatisticsOptions::Defaults());

// Quantile p of n sorted values by linear interpolation between the closest
// ranks: the ranks it needs and how it combines their values.
struct QuantilePoint {
    std::uint64_t lower, upper;
    double fraction;
};
QuantilePoint quantilePoint(std::uint64_t n, double p);
double interpolate(double a, double b, double fraction);
// The same in long double, where huge values of both signs may not be
// subtracted without overflow.
long double interpolateExtended(long double a, long double b, double fraction);

} // namespace arraylens
