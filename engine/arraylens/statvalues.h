// The statistics by name, as conditions over them read them.
#pragma once

#include "statistics.h"

#include <optional>
#include <string>
#include <vector>

namespace arraylens {

// The sixteen statistic names in the order of their StatValid bits:
// Checksum, Count, ZeroCount, Sum, Min, Max, Median, Mean, StdDev,
// FirstQuartile, ThirdQuartile, LowerAdjValue, UpperAdjValue, NanCount,
// InfCount, DenormCount.
const std::vector<std::string>& statisticNames();

// Their values in the same order, exactly (every 64-bit integer and double
// fits a long double); nullopt where the statistic is not valid.
std::vector<std::optional<long double>> statisticValues(const Statistics& s);

} // namespace arraylens
