#include "statvalues.h"

namespace arraylens {

const std::vector<std::string>& statisticNames() {
    static const std::vector<std::string> names = {
        "Checksum",      "Count",    "ZeroCount", "Sum",           "Min",           "Max",
        "Median",        "Mean",     "StdDev",    "FirstQuartile", "ThirdQuartile", "LowerAdjValue",
        "UpperAdjValue", "NanCount", "InfCount",  "DenormCount"};
    return names;
}

namespace {

long double exact(const Number& n) {
    return std::visit([](auto v) { return static_cast<long double>(v); }, n);
}

} // namespace

std::vector<std::optional<long double>> statisticValues(const Statistics& s) {
    const long double all[kStatCount] = {
        static_cast<long double>(s.checksum),
        static_cast<long double>(s.count),
        static_cast<long double>(s.zeroCount),
        exact(s.sum),
        exact(s.min),
        exact(s.max),
        s.median,
        s.mean,
        s.stdDev,
        s.firstQuartile,
        s.thirdQuartile,
        exact(s.lowerAdjValue),
        exact(s.upperAdjValue),
        static_cast<long double>(s.nanCount),
        static_cast<long double>(s.infCount),
        static_cast<long double>(s.denormCount),
    };
    std::vector<std::optional<long double>> out(kStatCount);
    for (unsigned i = 0; i < kStatCount; ++i)
        if (s.valid(static_cast<Stat>(i)))
            out[i] = all[i];
    return out;
}

} // namespace arraylens
