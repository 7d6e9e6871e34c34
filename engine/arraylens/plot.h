// Plot values: the passing elements of a slice as doubles, in result order.
#pragma once

#include "descriptor.h"
#include "options.h"
#include "reader.h"
#include "result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens {

// The most values one plot answer may carry. It comes from measuring what
// the chart pages can draw (bench/plot): 2 million values drew as a
// histogram in 1.9 s from the answer's arrival on these two-core machines,
// the largest within 3 s was about 2.9 million on a quiet machine and 1.5
// million on a heavily loaded one. Revise it with those measurements.
constexpr std::uint64_t kMaxPlotValues = 2'000'000;

struct PlotOptions : PassOptions {
    std::uint64_t maxValues = kMaxPlotValues;
    static PlotOptions Defaults() { return PlotOptions{}; }
};

struct PlotValues {
    std::string arrayName;  // the expression text
    std::string actualType; // the type text the debugger reported
    std::string filter;     // as applied
    std::string emptySlice; // the whole array in the expression's form
    std::vector<double> values;
    // Kept dimensions of the slice; 1 when a filter is applied, since the
    // passing elements form no grid, and 1 for a single element.
    int rank = 1;
    // Extents of the two kept dimensions when the rank is 2, else 0.
    std::int64_t rows = 0, cols = 0;
};

Result<PlotValues> plotValues(const ArrayDescriptor& array, Reader& reader, std::string_view slice,
                              std::string_view filter,
                              const PlotOptions& options = PlotOptions::Defaults());

} // namespace arraylens
