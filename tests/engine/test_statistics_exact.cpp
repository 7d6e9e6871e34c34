// Sum, Mean and StdDev of integers exact up to their final rounding, on
// both roads to the quartiles; long double statistics in long double; and
// integer arrays on the sampled one-pass road agreeing with radix selection.
#include "arraylens/arraylens.h"
#include "arraylens/exactmoments.h"
#include "arraylens/kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

using namespace arraylens;

namespace {

#ifdef ARRAYLENS_TEST_SANITIZED
constexpr std::size_t kLarge = std::size_t(1) << 13;
#else
constexpr std::size_t kLarge = std::size_t(1) << 16;
#endif

// Radix selection only, or the sampled one-pass road wherever it applies.
StatisticsOptions radixOptions(int threads) {
    StatisticsOptions o = StatisticsOptions::Defaults();
    o.sampleSize = 0;
    o.threads = threads;
    o.tileBytes = 4096;
    return o;
}

StatisticsOptions sampledOptions(int threads) {
    StatisticsOptions o = radixOptions(threads);
    o.sampleFrom = 0;
    o.sampleSize = 1024;
    return o;
}

template <class S>
Statistics statisticsOf(ElementKind kind, const std::vector<S>& v, const StatisticsOptions& o,
                        const std::string& slice = "", const std::string& filter = "") {
    const ArrayDescriptor a = ArrayDescriptor::cArray(
        kind, reinterpret_cast<std::uintptr_t>(v.data()), {static_cast<std::int64_t>(v.size())});
    BufferReader reader(v.data(), v.size() * sizeof(S));
    Result<Statistics> r = computeStatistics(a, reader, slice, filter, o);
    EXPECT_TRUE(r.ok()) << r.message();
    return r.ok() ? r.value() : Statistics();
}

// The issue's own case: 2^62 + i, i = 0..999, whose doubles are 1024 apart.
TEST(ExactIntegerStatistics, LargeValuesCloseTogether) {
    std::vector<long long> big(1000);
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = (1LL << 62) + static_cast<long long>(i);
    // n * sum(i^2) - sum(i)^2 = 1000 * 332833500 - 499500^2.
    const double sd = static_cast<double>(std::sqrt(83333250000.0L) / 1000);
    EXPECT_NEAR(sd, 288.67499025720952, 1e-12);
    for (const StatisticsOptions& o : {radixOptions(1), sampledOptions(2)}) {
        const Statistics s = statisticsOf(ElementKind::Int64, big, o);
        EXPECT_EQ(s.sampled, o.sampleSize > 0);
        EXPECT_EQ(s.stdDev, sd);
        // The sum needs 73 bits: the double nearest 1000 * 2^62 + 499500.
        ASSERT_TRUE(std::holds_alternative<double>(s.sum));
        const __int128 sum =
            static_cast<__int128>(1000) * (static_cast<__int128>(1) << 62) + 499500;
        EXPECT_EQ(std::get<double>(s.sum), static_cast<double>(sum));
        // 2^62 + 499.5: the nearest double is 2^62 itself.
        EXPECT_EQ(s.mean, 4611686018427387904.0);
        EXPECT_EQ(std::get<std::int64_t>(s.min), 1LL << 62);
        EXPECT_EQ(std::get<std::int64_t>(s.max), (1LL << 62) + 999);
    }
}

TEST(ExactIntegerStatistics, ExtremesOfSixtyFourBits) {
    const std::int64_t lo = std::numeric_limits<std::int64_t>::min();
    const std::int64_t hi = std::numeric_limits<std::int64_t>::max();
    std::vector<std::int64_t> alternate(1000);
    for (std::size_t i = 0; i < alternate.size(); ++i)
        alternate[i] = i % 2 ? hi : lo;
    std::vector<std::uint64_t> top(1000, std::numeric_limits<std::uint64_t>::max());
    top[0] = 0;
    for (const StatisticsOptions& o : {radixOptions(1), sampledOptions(2)}) {
        const Statistics s = statisticsOf(ElementKind::Int64, alternate, o);
        // 500 * (2^63 - 1) - 500 * 2^63 = -500; mean -0.5; deviation
        // (2^64 - 1) / 2, whose nearest double is 2^63.
        EXPECT_EQ(std::get<std::int64_t>(s.sum), -500);
        EXPECT_EQ(s.mean, -0.5);
        EXPECT_EQ(s.stdDev, 9223372036854775808.0);
        // Halfway from -2^63 to 2^63, as doubles.
        EXPECT_EQ(s.median, 0.0);

        const Statistics u = statisticsOf(ElementKind::UInt64, top, o);
        const __int128 sum = static_cast<__int128>(999) * std::numeric_limits<std::uint64_t>::max();
        ASSERT_TRUE(std::holds_alternative<double>(u.sum));
        EXPECT_EQ(std::get<double>(u.sum), static_cast<double>(sum));
        // The exact mean is 999 * (2^64 - 1) / 1000, at most 1 from the
        // integer quotient and far from a midpoint between doubles, 2048 apart.
        EXPECT_EQ(u.mean, static_cast<double>(sum / 1000));
        // One 0 among 999 of 2^64 - 1: sqrt(999) / 1000 * (2^64 - 1).
        const double sd = static_cast<double>(
            std::sqrt(999.0L) / 1000 *
            static_cast<long double>(std::numeric_limits<std::uint64_t>::max()));
        EXPECT_NEAR(u.stdDev, sd, 1e-15 * sd);
        EXPECT_EQ(std::get<std::uint64_t>(u.min), 0u);
        EXPECT_EQ(std::get<std::uint64_t>(u.max), std::numeric_limits<std::uint64_t>::max());
    }
}

TEST(ExactIntegerStatistics, RatiosRoundOnce) {
    using detail::ratioToDouble;
    const __int128 two64 = static_cast<__int128>(1) << 64;
    // 2^64 + 2^11 + 1/2: just above the midpoint between 2^64 and the next
    // double, 2^64 + 2^12. Rounded to 64 bits first it would fall on the
    // midpoint and then to even, 2^64.
    EXPECT_EQ(ratioToDouble(2 * two64 + 4096 + 1, 2), 18446744073709555712.0);
    // Exactly the midpoint: to even.
    EXPECT_EQ(ratioToDouble(two64 + 2048, 1), 18446744073709551616.0);
    EXPECT_EQ(ratioToDouble(two64 + 6144, 1), 18446744073709559808.0);
    EXPECT_EQ(ratioToDouble(-(two64 + 2049), 1), -18446744073709555712.0);
    EXPECT_EQ(ratioToDouble(1, 3), 1.0 / 3);
    EXPECT_EQ(ratioToDouble(-2, 3), -2.0 / 3);
    EXPECT_EQ(ratioToDouble(0, 7), 0.0);
    EXPECT_EQ(ratioToDouble(1, ~std::uint64_t(0)), 1.0 / 18446744073709551615.0);
}

// The integer loops of every build this processor runs against plain ones:
// keys, extremes, zeros and exact sums of blocks whose keys lie within 2^32
// or 2^48 of each other (summed as distances from the smallest) and of
// blocks whose keys do not; then the scan of those keys against windows.
TEST(KernelBuilds, IntegerSumsAndKeyScansAgreeWithPlainLoops) {
    kernels::Build builds[3];
    const int nb = kernels::builds(builds);
    std::mt19937_64 rng(17);
    const std::uint64_t bias = std::uint64_t(1) << 63;
    for (std::size_t n :
         {std::size_t(1), std::size_t(7), std::size_t(64), std::size_t(1000), kernels::kBlock}) {
        for (unsigned bits : {32u, 48u, 64u}) {
            const bool close = bits < 64;
            std::vector<std::int64_t> v(n);
            for (std::int64_t& x : v)
                x = close
                        ? (std::int64_t(1) << 62) + static_cast<std::int64_t>(rng() >> (65 - bits))
                        : static_cast<std::int64_t>(rng());
            v[0] = close ? v[0] : std::numeric_limits<std::int64_t>::min();
            // The widest distance each way of summing takes.
            if (n > 3)
                v[3] = close ? (std::int64_t(1) << 62) +
                                   static_cast<std::int64_t>((std::uint64_t(1) << bits) - 1)
                             : 0;
            if (n > 4 && close)
                v[4] = std::int64_t(1) << 62;
            std::vector<std::uint64_t> want(n);
            unsigned __int128 sum = 0, low = 0;
            std::uint64_t high = 0, zero = 0;
            for (std::size_t i = 0; i < n; ++i) {
                want[i] = static_cast<std::uint64_t>(v[i]) ^ bias;
                const unsigned __int128 sq = static_cast<unsigned __int128>(want[i]) * want[i];
                sum += want[i];
                low += sq;
                high += low < sq ? 1 : 0;
                zero += v[i] == 0;
            }
            std::vector<std::uint64_t> sorted = want;
            std::sort(sorted.begin(), sorted.end());
            kernels::ScanWindows w;
            const std::pair<double, double> ranges[] = {
                {0.1, 0.3}, {0.5, 0.5}, {0.2, 0.9}, {0.0, 1.0}, {0.95, 1.0}};
            for (auto r : ranges) {
                const std::uint64_t lo = sorted[static_cast<std::size_t>(r.first * (n - 1))];
                const std::uint64_t hi = sorted[static_cast<std::size_t>(r.second * (n - 1))];
                w.lo[w.count] = lo;
                w.span[w.count++] = hi - lo;
            }
            for (int b = 0; b < nb; ++b) {
                SCOPED_TRACE(std::string(builds[b].name) + " n=" + std::to_string(n) +
                             " within 2^" + std::to_string(bits));
                const kernels::Ops& ops = *builds[b].ops;
                std::vector<std::uint64_t> keys(n);
                kernels::IntegerBlock got;
                ops.integers(v.data(), 8, true, n, bias, keys.data(), got);
                EXPECT_EQ(keys, want);
                EXPECT_EQ(got.minKey, sorted.front());
                EXPECT_EQ(got.maxKey, sorted.back());
                EXPECT_EQ(got.zero, zero);
                EXPECT_TRUE(got.keySum == sum);
                EXPECT_TRUE(got.squaresLow == low);
                EXPECT_EQ(got.squaresHigh, high);

                kernels::WindowTally tally;
                std::vector<std::vector<std::uint64_t>> outs(w.count,
                                                             std::vector<std::uint64_t>(n + 1));
                std::uint64_t* ptrs[kernels::kMaxWindows];
                for (unsigned j = 0; j < w.count; ++j)
                    ptrs[j] = outs[j].data();
                std::size_t counts[kernels::kMaxWindows];
                ops.scanKeys(keys.data(), n, w, tally, ptrs, counts);
                for (unsigned j = 0; j < w.count; ++j) {
                    std::uint64_t under = 0;
                    std::vector<std::uint64_t> in;
                    for (std::uint64_t k : want) {
                        under += k < w.lo[j];
                        if (k - w.lo[j] <= w.span[j])
                            in.push_back(k);
                    }
                    EXPECT_EQ(tally.under[j], under) << "window " << j;
                    ASSERT_EQ(counts[j], in.size()) << "window " << j;
                    EXPECT_TRUE(std::equal(in.begin(), in.end(), outs[j].begin()))
                        << "window " << j;
                }
            }
        }
    }
}

// Random values of every integer kind near its extremes and near 2^53,
// against sums taken here: exact ones for the sum, a long double two-pass
// deviation for the rest.
template <class S> std::vector<S> nearEdges(std::size_t n, unsigned seed) {
    using L = std::numeric_limits<S>;
    std::mt19937_64 rng(seed);
    std::uniform_int_distribution<int> pick(0, 3), small(0, 200);
    std::vector<S> v(n);
    for (S& x : v) {
        const int k = pick(rng);
        const auto d = static_cast<S>(small(rng));
        if (k == 0)
            x = static_cast<S>(L::min() + d);
        else if (k == 1)
            x = static_cast<S>(L::max() - d);
        else if (sizeof(S) == 8)
            x = static_cast<S>((std::uint64_t(1) << 53) + static_cast<std::uint64_t>(d) - 100);
        else
            x = static_cast<S>(static_cast<std::uint64_t>(rng()));
    }
    return v;
}

template <class S> void expectExactMoments(ElementKind kind, const std::vector<S>& v) {
    __int128 sum = 0;
    for (S x : v)
        sum += static_cast<__int128>(x);
    const long double n = static_cast<long double>(v.size());
    const long double mean = static_cast<long double>(sum) / n;
    long double m2 = 0;
    for (S x : v) {
        const long double d = static_cast<long double>(x) - mean;
        m2 += d * d;
    }
    const double sd = static_cast<double>(std::sqrt(m2 / n));
    for (const StatisticsOptions& o : {radixOptions(2), sampledOptions(4)}) {
        const Statistics s = statisticsOf(kind, v, o);
        const bool fits = std::is_unsigned<S>::value && sizeof(S) == 8
                              ? sum >= 0 && sum <= static_cast<__int128>(~std::uint64_t(0))
                              : sum >= INT64_MIN && sum <= INT64_MAX;
        if (!fits)
            EXPECT_EQ(std::get<double>(s.sum), static_cast<double>(sum));
        else if (kind == ElementKind::UInt64)
            EXPECT_EQ(std::get<std::uint64_t>(s.sum), static_cast<std::uint64_t>(sum));
        else
            EXPECT_EQ(std::get<std::int64_t>(s.sum), static_cast<std::int64_t>(sum));
        EXPECT_EQ(s.mean, static_cast<double>(mean));
        EXPECT_NEAR(s.stdDev, sd, 4e-16 * sd);
    }
}

TEST(ExactIntegerStatistics, EveryKindNearItsExtremes) {
    expectExactMoments(ElementKind::Int8, nearEdges<std::int8_t>(kLarge, 1));
    expectExactMoments(ElementKind::UInt8, nearEdges<std::uint8_t>(kLarge, 2));
    expectExactMoments(ElementKind::Int16, nearEdges<std::int16_t>(kLarge, 3));
    expectExactMoments(ElementKind::UInt16, nearEdges<std::uint16_t>(kLarge, 4));
    expectExactMoments(ElementKind::Int32, nearEdges<std::int32_t>(kLarge, 5));
    expectExactMoments(ElementKind::UInt32, nearEdges<std::uint32_t>(kLarge, 6));
    expectExactMoments(ElementKind::Int64, nearEdges<std::int64_t>(kLarge, 7));
    expectExactMoments(ElementKind::UInt64, nearEdges<std::uint64_t>(kLarge, 8));
}

// The sampled road against radix selection alone: every statistic the
// same, on one, two and four threads, with and without filters that let
// no NaN through (integers have none).
template <class S>
void expectRoadsAgree(ElementKind kind, const std::vector<S>& v, const char* what) {
    const char* filters[] = {"", "$value > 0", "$value != 17 .and. $value < 9007199254740999"};
    for (const char* filter : filters) {
        const Statistics radix = statisticsOf(kind, v, radixOptions(1), "", filter);
        EXPECT_FALSE(radix.sampled);
        for (int threads : {1, 2, 4}) {
            SCOPED_TRACE(std::string(what) + ", filter '" + filter + "', " +
                         std::to_string(threads) + " threads");
            const Statistics s = statisticsOf(kind, v, sampledOptions(threads), "", filter);
            if (radix.count >= 64) {
                EXPECT_TRUE(s.sampled);
            }
            EXPECT_EQ(s.count, radix.count);
            EXPECT_EQ(s.checksum, radix.checksum);
            EXPECT_EQ(s.zeroCount, radix.zeroCount);
            EXPECT_EQ(s.statValid, radix.statValid);
            EXPECT_EQ(s.sum, radix.sum);
            EXPECT_EQ(s.min, radix.min);
            EXPECT_EQ(s.max, radix.max);
            EXPECT_EQ(s.mean, radix.mean);
            EXPECT_EQ(s.stdDev, radix.stdDev);
            EXPECT_EQ(s.firstQuartile, radix.firstQuartile);
            EXPECT_EQ(s.median, radix.median);
            EXPECT_EQ(s.thirdQuartile, radix.thirdQuartile);
            EXPECT_EQ(s.lowerAdjValue, radix.lowerAdjValue);
            EXPECT_EQ(s.upperAdjValue, radix.upperAdjValue);
        }
    }
}

TEST(IntegersInOnePass, AgreeWithRadixSelectionAroundTwoToThe53) {
    // Doubles cannot tell these apart: 2^53 + 1 is 2^53 as a double.
    std::mt19937_64 rng(11);
    std::uniform_int_distribution<int> d(-40, 40);
    std::vector<std::int64_t> s(kLarge);
    std::vector<std::uint64_t> u(kLarge);
    for (std::size_t i = 0; i < s.size(); ++i) {
        s[i] = (std::int64_t(1) << 53) + d(rng);
        u[i] = (std::uint64_t(1) << 53) + static_cast<std::uint64_t>(d(rng) + 40);
    }
    // A few far ones, so that the fences fall inside the data.
    s[7] = -(std::int64_t(1) << 60);
    u[9] = std::uint64_t(1) << 63;
    expectRoadsAgree(ElementKind::Int64, s, "int64 near 2^53");
    expectRoadsAgree(ElementKind::UInt64, u, "uint64 near 2^53");

    // And against a sorted copy: the quartiles of the exact ranks, each
    // taken as a double and interpolated as numpy does.
    const Statistics st = statisticsOf(ElementKind::Int64, s, sampledOptions(2));
    EXPECT_TRUE(st.windowsHeld);
    std::vector<std::int64_t> sorted = s;
    std::sort(sorted.begin(), sorted.end());
    for (double p : {0.25, 0.5, 0.75}) {
        const QuantilePoint q = quantilePoint(sorted.size(), p);
        const double want = interpolate(static_cast<double>(sorted[q.lower]),
                                        static_cast<double>(sorted[q.upper]), q.fraction);
        const double got = p == 0.25 ? st.firstQuartile : p == 0.5 ? st.median : st.thirdQuartile;
        EXPECT_EQ(got, want) << p;
    }
    const double iqr = st.thirdQuartile - st.firstQuartile;
    const double lowFence = st.firstQuartile - 1.5 * iqr;
    // The smallest element not below the fence, compared exactly.
    const auto adj = std::find_if(sorted.begin(), sorted.end(), [&](std::int64_t x) {
        return static_cast<long double>(x) >= static_cast<long double>(lowFence);
    });
    EXPECT_EQ(std::get<std::int64_t>(st.lowerAdjValue), *adj);
    EXPECT_NE(std::get<std::int64_t>(st.lowerAdjValue), sorted.front());
}

TEST(IntegersInOnePass, AgreeWithRadixSelectionAtTheExtremesOfEveryKind) {
    expectRoadsAgree(ElementKind::Int8, nearEdges<std::int8_t>(kLarge, 21), "int8");
    expectRoadsAgree(ElementKind::UInt8, nearEdges<std::uint8_t>(kLarge, 22), "uint8");
    expectRoadsAgree(ElementKind::Int16, nearEdges<std::int16_t>(kLarge, 23), "int16");
    expectRoadsAgree(ElementKind::UInt16, nearEdges<std::uint16_t>(kLarge, 24), "uint16");
    expectRoadsAgree(ElementKind::Int32, nearEdges<std::int32_t>(kLarge, 25), "int32");
    expectRoadsAgree(ElementKind::UInt32, nearEdges<std::uint32_t>(kLarge, 26), "uint32");
    expectRoadsAgree(ElementKind::Int64, nearEdges<std::int64_t>(kLarge, 27), "int64");
    expectRoadsAgree(ElementKind::UInt64, nearEdges<std::uint64_t>(kLarge, 28), "uint64");
}

TEST(IntegersInOnePass, LogicalsKeepToRadixSelection) {
    std::vector<std::uint8_t> v(kLarge);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = static_cast<std::uint8_t>(i % 3 == 0 ? 0 : 5);
    const Statistics s = statisticsOf(ElementKind::Bool, v, sampledOptions(2));
    EXPECT_FALSE(s.sampled);
    EXPECT_EQ(std::get<std::int64_t>(s.max), 1);
}

// long double: statistics in long double; what a double cannot carry comes
// out as an infinity, never as NaN.
TEST(LongDoubleStatistics, ValuesBeyondDoubleComeOutInfiniteNotNan) {
    std::vector<long double> v(10);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = static_cast<long double>(i);
    v[6] = LDBL_MAX;
    const Statistics all = statisticsOf(ElementKind::LongDouble, v, radixOptions(2));
    EXPECT_EQ(all.nanCount, 0u);
    EXPECT_EQ(all.statValid, 0xffff);
    EXPECT_EQ(std::get<double>(all.sum), HUGE_VAL);
    EXPECT_EQ(all.mean, HUGE_VAL);
    EXPECT_EQ(all.stdDev, HUGE_VAL);
    EXPECT_EQ(std::get<double>(all.max), HUGE_VAL);
    EXPECT_EQ(std::get<double>(all.min), 0.0);
    EXPECT_EQ(all.median, 4.5);
    EXPECT_EQ(all.firstQuartile, 2.25);
    // Sorted: 0 to 5, 7, 8, 9, LDBL_MAX: Q3 three quarters from 7 to 8.
    EXPECT_EQ(all.thirdQuartile, 7.75);
    // [5:7] is 5, LDBL_MAX, 7: Q1 = 6, the median 7, Q3 halfway from 7 to
    // LDBL_MAX, beyond any double.
    const Statistics part = statisticsOf(ElementKind::LongDouble, v, radixOptions(1), "[5:7]");
    EXPECT_EQ(part.count, 3u);
    EXPECT_EQ(part.firstQuartile, 6.0);
    EXPECT_EQ(part.median, 7.0);
    EXPECT_EQ(part.thirdQuartile, HUGE_VAL);
    EXPECT_EQ(std::get<double>(part.lowerAdjValue), 5.0);
    EXPECT_EQ(std::get<double>(part.upperAdjValue), HUGE_VAL);
    EXPECT_EQ(part.mean, HUGE_VAL);
    EXPECT_EQ(part.stdDev, HUGE_VAL);
}

TEST(LongDoubleStatistics, HugeValuesOfBothSignsAndAlike) {
    // -LDBL_MAX and LDBL_MAX: the sum is 0 and so is the median, though
    // their difference overflows; the deviation is LDBL_MAX.
    const std::vector<long double> both = {-LDBL_MAX, LDBL_MAX};
    const Statistics s = statisticsOf(ElementKind::LongDouble, both, radixOptions(1));
    EXPECT_EQ(std::get<double>(s.sum), 0.0);
    EXPECT_EQ(s.mean, 0.0);
    EXPECT_EQ(s.median, 0.0);
    EXPECT_EQ(s.stdDev, HUGE_VAL);
    EXPECT_EQ(std::get<double>(s.min), -HUGE_VAL);
    // Four times LDBL_MAX: their sum overflows even long double, but they
    // are alike: the deviation is 0.
    const std::vector<long double> alike(4, LDBL_MAX);
    const Statistics a = statisticsOf(ElementKind::LongDouble, alike, radixOptions(1));
    EXPECT_EQ(std::get<double>(a.sum), HUGE_VAL);
    EXPECT_EQ(a.mean, HUGE_VAL);
    EXPECT_EQ(a.stdDev, 0.0);
    EXPECT_EQ(a.median, HUGE_VAL);
    // Within long double's range but beyond double's: the mean is back in.
    const std::vector<long double> large = {1e308L, 1.5e308L, 1e308L};
    const Statistics l = statisticsOf(ElementKind::LongDouble, large, radixOptions(1));
    EXPECT_EQ(std::get<double>(l.sum), HUGE_VAL);
    const double mean = static_cast<double>(3.5e308L / 3);
    EXPECT_LT(mean, 1.2e308);
    EXPECT_NEAR(l.mean, mean, 1e-15 * mean);
    // Deviations of -1/6, 1/3 and -1/6 of 1e308: the root of 1/18 of 1e616.
    const double sd = 1e308 / std::sqrt(18.0);
    EXPECT_NEAR(l.stdDev, sd, 1e-15 * sd);
}

TEST(LongDoubleStatistics, DifferencesBelowDoublePrecisionCount) {
    // 1 + k * 2^-60: one double, 1, for all four; in long double the
    // deviation is sqrt(1.25) * 2^-60 and the mean just above 1.
    std::vector<long double> v;
    for (int k = 0; k < 4; ++k)
        v.push_back(1 + std::ldexp(static_cast<long double>(k), -60));
    const Statistics s = statisticsOf(ElementKind::LongDouble, v, radixOptions(1));
    EXPECT_EQ(s.stdDev, static_cast<double>(std::sqrt(1.25L) * std::ldexp(1.0L, -60)));
    EXPECT_EQ(s.mean, 1.0);
}

// Doubles whose squares, or whose sum, lie beyond double's range: the
// deviation and the mean are still within it and must come out as numbers,
// on both roads and however the blocks fall to the threads.
TEST(HugeDoubleStatistics, DeviationOfHugeValuesIsFinite) {
    // 1e200, 2e200, 3e200: mean 2e200, deviation sqrt(2/3) * 1e200.
    const std::vector<double> three = {1e200, 2e200, 3e200};
    const double sd = static_cast<double>(std::sqrt(2.0L / 3.0L) * 1e200L);
    for (const StatisticsOptions& o : {radixOptions(1), sampledOptions(2)}) {
        const Statistics s = statisticsOf(ElementKind::Double, three, o);
        EXPECT_EQ(s.statValid, 0xffff);
        EXPECT_NEAR(s.stdDev, sd, 1e-15 * sd);
        EXPECT_NEAR(s.mean, 2e200, 1e-15 * 2e200);
        EXPECT_NEAR(std::get<double>(s.sum), 6e200, 1e-15 * 6e200);
    }
}

TEST(HugeDoubleStatistics, ExtremesOfBothSignsAndSumsBeyondRange) {
    // -DBL_MAX and DBL_MAX: the sum and mean are 0, the deviation DBL_MAX.
    const std::vector<double> both = {-DBL_MAX, DBL_MAX};
    for (const StatisticsOptions& o : {radixOptions(1), sampledOptions(1)}) {
        const Statistics s = statisticsOf(ElementKind::Double, both, o);
        EXPECT_EQ(std::get<double>(s.sum), 0.0);
        EXPECT_EQ(s.mean, 0.0);
        EXPECT_EQ(s.stdDev, DBL_MAX);
    }
    // Four times DBL_MAX: the sum is beyond double (an infinity, as the
    // nearest double), but the mean is DBL_MAX and the deviation 0.
    const std::vector<double> alike(4, DBL_MAX);
    for (const StatisticsOptions& o : {radixOptions(1), sampledOptions(1)}) {
        const Statistics s = statisticsOf(ElementKind::Double, alike, o);
        EXPECT_EQ(std::get<double>(s.sum), HUGE_VAL);
        EXPECT_EQ(s.mean, DBL_MAX);
        EXPECT_EQ(s.stdDev, 0.0);
    }
}

TEST(HugeDoubleStatistics, ManyBlocksAcrossThreadsAgreeWithLongDouble) {
    // Enough values for many blocks and tiles: ordinary values with a few
    // near 1e300 among them, so that one block overflows and the others do
    // not, and the merge of the blocks overflows too.
    std::mt19937_64 gen(7);
    std::uniform_real_distribution<double> u(-1, 1);
    std::vector<double> v(kLarge);
    for (double& x : v)
        x = u(gen);
    for (std::size_t i = 0; i < v.size(); i += v.size() / 8)
        v[i] = 1e300 * (1 + u(gen));
    long double sum = 0;
    for (double x : v)
        sum += x;
    const long double mean = sum / v.size();
    long double m2 = 0;
    for (double x : v)
        m2 += (x - mean) * (x - mean);
    const double sd = static_cast<double>(std::sqrt(m2 / v.size()));
    ASSERT_TRUE(std::isfinite(sd));
    for (const StatisticsOptions& o : {radixOptions(1), radixOptions(3), sampledOptions(2)}) {
        const Statistics s = statisticsOf(ElementKind::Double, v, o);
        EXPECT_NEAR(s.stdDev, sd, 1e-13 * sd) << o.threads;
        EXPECT_NEAR(s.mean, static_cast<double>(mean),
                    1e-13 * std::fabs(static_cast<double>(mean)));
        EXPECT_NEAR(std::get<double>(s.sum), static_cast<double>(sum),
                    1e-13 * std::fabs(static_cast<double>(sum)));
    }
}

} // namespace
