// Exact quantiles by radix selection on larger arrays with heavy ties and a
// small memory budget, against a sort.
#include "arraylens/select.h"
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

// The two neighbouring ranks a window's keys are asked for, against a sort:
// ranks at the edges of the histogram's bins, ranks whose neighbour lies
// several empty bins further on, heavy ties, and ranges of every width.
TEST(KeysAtRank, AgainstASort) {
    std::mt19937_64 rng(11);
    struct Case {
        std::uint64_t lo, width; // keys in [lo, lo + width]
        std::size_t n, distinct; // distinct: 0 for any key of the range
    };
    const Case cases[] = {{1000, 5000, 200'000, 0},
                          {std::uint64_t(1) << 63, (std::uint64_t(1) << 40) + 123, 100'000, 0},
                          {0, ~std::uint64_t(0), 70'000, 0},
                          {42, std::uint64_t(1) << 50, 90'000, 7},
                          {5, 100, 10'000, 0}};
    for (const Case& c : cases) {
        std::vector<std::uint64_t> values(c.distinct);
        for (std::uint64_t& v : values)
            v = c.lo + rng() % (c.width == ~std::uint64_t(0) ? c.width : c.width + 1);
        std::vector<std::uint64_t> keys(c.n);
        for (std::uint64_t& k : keys)
            k = c.distinct ? values[rng() % c.distinct]
                           : c.lo + (c.width == ~std::uint64_t(0) ? rng() : rng() % (c.width + 1));
        std::vector<std::uint64_t> sorted = keys;
        std::sort(sorted.begin(), sorted.end());
        // The ends, and ranks whose key differs from the next one's: there
        // rank + 1 may lie in a later bin.
        std::vector<std::uint64_t> ranks = {0, 1, c.n / 4, c.n / 2, c.n - 2, c.n - 1};
        for (std::size_t s = 0; s < 20; ++s) {
            std::size_t r = s * c.n / 20;
            while (r + 1 < c.n && sorted[r] == sorted[r + 1])
                ++r;
            if (r + 1 < c.n)
                ranks.push_back(r);
        }
        for (std::uint64_t rank : ranks) {
            std::vector<std::uint64_t> work = keys;
            std::uint64_t at = 0, next = 0;
            keysAtRank(work.data(), work.size(), c.lo, c.lo + std::min(c.width, ~c.lo), rank, at,
                       next);
            EXPECT_EQ(at, sorted[rank]) << "rank " << rank << " of " << c.n;
            EXPECT_EQ(next, rank + 1 < c.n ? sorted[rank + 1] : sorted[rank])
                << "rank " << rank << " of " << c.n;
        }
    }
}
