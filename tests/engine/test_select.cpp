// Exact quantiles by radix selection on larger arrays with heavy ties and a
// small memory budget, against a sort.
#include "arraylens/statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace arraylens;

namespace {

#ifdef ARRAYLENS_TEST_SANITIZED
constexpr std::size_t kN = 60'000;
#else
constexpr std::size_t kN = 400'000;
#endif

double sortedQuantile(const std::vector<double>& s, double p) {
    const double virt = static_cast<double>(s.size() - 1) * p;
    const std::size_t i = static_cast<std::size_t>(virt);
    const double t = virt - static_cast<double>(i);
    const double a = s[i], b = s[std::min(i + 1, s.size() - 1)];
    return t >= 0.5 ? b - (b - a) * (1 - t) : a + (b - a) * t;
}

TEST(QuantilePoint, RanksAndFractions) {
    const QuantilePoint q = quantilePoint(10, 0.25);
    EXPECT_EQ(q.lower, 2u);
    EXPECT_EQ(q.upper, 3u);
    EXPECT_DOUBLE_EQ(q.fraction, 0.25);
    const QuantilePoint m = quantilePoint(9, 0.5);
    EXPECT_EQ(m.lower, 4u);
    EXPECT_EQ(m.fraction, 0.0);
    EXPECT_EQ(quantilePoint(1, 0.75).lower, 0u);
    EXPECT_EQ(interpolate(1, 3, 0.5), 2);
    EXPECT_EQ(interpolate(1, 3, 0), 1);
}

template <class T, ElementKind K> void checkAgainstSort(const std::vector<T>& v) {
    ArrayDescriptor a = ArrayDescriptor::cArray(K, reinterpret_cast<std::uintptr_t>(v.data()),
                                                {static_cast<std::int64_t>(v.size())});
    BufferReader r(v.data(), v.size() * sizeof(T));
    std::vector<double> s(v.begin(), v.end());
    std::sort(s.begin(), s.end());
    for (std::size_t budget : {std::size_t(64), std::size_t(1) << 12, std::size_t(24) << 20}) {
        SCOPED_TRACE(budget);
        StatisticsOptions o = StatisticsOptions::Defaults();
        o.selectionBytes = budget;
        o.threads = 2;
        o.tileBytes = 4096;
        Result<Statistics> st = computeStatistics(a, r, "", "", o);
        ASSERT_TRUE(st.ok()) << st.message();
        EXPECT_EQ(st->firstQuartile, sortedQuantile(s, 0.25));
        EXPECT_EQ(st->median, sortedQuantile(s, 0.5));
        EXPECT_EQ(st->thirdQuartile, sortedQuantile(s, 0.75));
    }
}

TEST(RadixSelection, DoublesWithFewDistinctValues) {
    std::mt19937_64 rng(7);
    std::uniform_int_distribution<int> d(0, 20);
    std::vector<double> v(kN);
    for (double& x : v)
        x = d(rng) * 0.25 - 2;
    checkAgainstSort<double, ElementKind::Double>(v);
}

TEST(RadixSelection, DoublesCloseTogether) {
    // Values that share their upper key bits: the first histograms do not
    // separate them.
    std::mt19937_64 rng(8);
    std::uniform_real_distribution<double> d(1.0, 1.0 + 1e-9);
    std::vector<double> v(kN);
    for (double& x : v)
        x = d(rng);
    checkAgainstSort<double, ElementKind::Double>(v);
}

TEST(RadixSelection, Int64AcrossTheWholeRange) {
    std::mt19937_64 rng(9);
    std::vector<std::int64_t> v(kN);
    for (auto& x : v)
        x = static_cast<std::int64_t>(rng() >> (rng() % 64));
    for (std::size_t i = 0; i < v.size(); i += 3)
        v[i] = -v[i];
    checkAgainstSort<std::int64_t, ElementKind::Int64>(v);
}

TEST(RadixSelection, Floats) {
    std::mt19937_64 rng(10);
    std::normal_distribution<float> d(0.0f, 1.0f);
    std::vector<float> v(kN);
    for (float& x : v)
        x = d(rng);
    checkAgainstSort<float, ElementKind::Float>(v);
}

} // namespace
