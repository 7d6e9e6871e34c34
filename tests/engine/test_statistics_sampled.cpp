// The statistics pass's inner loops in every build this processor runs,
// against each other and plain loops written here; the stratified sample;
// and statistics settled in one pass by a sample's key windows, against a
// sorted copy, also when the windows miss and radix selection takes over.
#include "arraylens/arraylens.h"
#include "arraylens/element.h"
#include "arraylens/kernels.h"
#include "arraylens/onepass.h"
#include "arraylens/sample.h"
#include "arraylens/slice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <xxhash.h>

using namespace arraylens;

namespace {

using F64 = ReprTraits<Repr::F64>;
using F32 = ReprTraits<Repr::F32>;

std::vector<double> awkwardDoubles(std::size_t n, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::uniform_int_distribution<int> pick(0, 99);
    std::normal_distribution<double> normal(5.0, 300.0);
    using L = std::numeric_limits<double>;
    std::vector<double> v(n);
    for (double& x : v) {
        const int k = pick(rng);
        x = k < 2   ? L::quiet_NaN()
            : k < 3 ? L::infinity()
            : k < 4 ? -L::infinity()
            : k < 6 ? L::denorm_min() * (1 + pick(rng)) * (k == 4 ? 1 : -1)
            : k < 8 ? (k == 6 ? 0.0 : -0.0)
                    : normal(rng);
    }
    return v;
}

// Lengths that are and are not whole vectors.
const std::size_t kLengths[] = {1, 3, 8, 13, 64, 255, 1000, kernels::kBlock};

TEST(KernelBuilds, ClassifyAndMomentsAgreeWithPlainLoops) {
    kernels::Build builds[3];
    const int nb = kernels::builds(builds);
    ASSERT_GE(nb, 1);
    EXPECT_STREQ(builds[nb - 1].name, "baseline");
    EXPECT_STREQ(kernels::opsName(), builds[0].name);
    for (std::size_t n : kLengths) {
        const std::vector<double> v = awkwardDoubles(n, 7 + static_cast<unsigned>(n));
        std::vector<float> vf(v.begin(), v.end());
        // Plain loops.
        kernels::ClassCounts want;
        std::vector<double> finite;
        for (double x : v) {
            const unsigned c =
                F64::classifyBits(F64::bits(reinterpret_cast<const unsigned char*>(&x)));
            want.zero += (c & kClassZero) != 0;
            want.nan += (c & kClassNan) != 0;
            want.inf += (c & kClassInf) != 0;
            want.denorm += (c & kClassDenorm) != 0;
            if (!(c & kClassNonFinite))
                finite.push_back(x);
        }
        long double sum = 0;
        for (double x : finite)
            sum += x;
        for (int b = 0; b < nb; ++b) {
            SCOPED_TRACE(std::string(builds[b].name) + " n=" + std::to_string(n));
            const kernels::Ops& ops = *builds[b].ops;
            kernels::ClassCounts got;
            std::vector<double> out(n);
            const double* finiteOut = nullptr;
            const std::size_t nf = ops.classifyF64(v.data(), n, out.data(), &finiteOut, got);
            EXPECT_EQ(got.zero, want.zero);
            EXPECT_EQ(got.nan, want.nan);
            EXPECT_EQ(got.inf, want.inf);
            EXPECT_EQ(got.denorm, want.denorm);
            ASSERT_EQ(nf, finite.size());
            for (std::size_t i = 0; i < nf; ++i)
                EXPECT_EQ(std::memcmp(&finiteOut[i], &finite[i], 8), 0) << i;
            // No copy when there is nothing to leave out.
            EXPECT_EQ(finiteOut == v.data(), finite.size() == n);

            // The same values as floats: classes of the float, values widened.
            kernels::ClassCounts gotF;
            std::vector<double> outF(n);
            const double* finiteF = nullptr;
            const std::size_t nff = ops.classifyF32(vf.data(), n, outF.data(), &finiteF, gotF);
            std::size_t k = 0;
            for (float x : vf) {
                if (std::isfinite(x)) {
                    EXPECT_EQ(finiteF[k], static_cast<double>(x));
                    ++k;
                }
            }
            EXPECT_EQ(nff, k);

            if (nf == 0)
                continue;
            const kernels::FiniteMoments m = ops.moments(finiteOut, nf);
            const kernels::FiniteMoments base = builds[nb - 1].ops->moments(finiteOut, nf);
            // Every build adds in the same order: the same bits.
            EXPECT_EQ(std::memcmp(&m.sum, &base.sum, 8), 0);
            EXPECT_EQ(std::memcmp(&m.m2, &base.m2, 8), 0);
            EXPECT_NEAR(m.sum, static_cast<double>(sum), 1e-12 * 300 * static_cast<double>(nf));
            EXPECT_EQ(m.min, *std::min_element(finite.begin(), finite.end()));
            EXPECT_EQ(m.max, *std::max_element(finite.begin(), finite.end()));
            const long double mean = sum / static_cast<long double>(nf);
            long double m2 = 0;
            for (double x : finite)
                m2 += (x - mean) * (x - mean);
            EXPECT_NEAR(m.m2, static_cast<double>(m2), 1e-9 * static_cast<double>(m2) + 1e-300);
        }
    }
}

// Windows over keys of the data itself, described by key and by value as
// the statistics build them.
template <Repr R> kernels::ScanWindows windowsOver(const std::vector<std::uint64_t>& sorted) {
    using T = ReprTraits<R>;
    const std::size_t m = sorted.size();
    auto at = [&](double p) { return sorted[static_cast<std::size_t>(p * (m - 1))]; };
    // One of a single key, one overlapping another, one that holds nothing,
    // one over everything, and the three that meet zero: from +0, from -0,
    // and up to -0.
    const std::pair<std::uint64_t, std::uint64_t> ranges[] = {
        {at(0.1), at(0.3)},      {at(0.5), at(0.5)},
        {at(0.2), at(0.9)},      {1, 2},
        {at(0), at(1)},          {T::key(0.0), at(0.95)},
        {T::key(-0.0), at(0.7)}, {at(0.05), T::key(-0.0)}};
    kernels::ScanWindows w;
    for (auto r : ranges) {
        if (r.first > r.second) // small data: the zero windows the other way round
            std::swap(r.first, r.second);
        detail::setWindow<R>(w, w.count++, r.first, r.second);
    }
    return w;
}

TEST(KernelBuilds, WindowScansAgreeWithPlainLoopsOverKeys) {
    kernels::Build builds[3];
    const int nb = kernels::builds(builds);
    for (std::size_t n : kLengths) {
        for (bool floats : {false, true}) {
            std::vector<double> v = awkwardDoubles(n, 1000 + static_cast<unsigned>(n));
            v.erase(std::remove_if(v.begin(), v.end(), [](double x) { return !std::isfinite(x); }),
                    v.end());
            // Float elements reach the scan as the doubles they hold.
            if (floats)
                for (double& x : v)
                    x = static_cast<double>(static_cast<float>(x));
            const std::size_t m = v.size();
            if (m == 0)
                continue;
            std::vector<std::uint64_t> want(m);
            for (std::size_t i = 0; i < m; ++i)
                want[i] = floats ? F32::key(v[i]) : F64::key(v[i]);
            std::vector<std::uint64_t> sorted = want;
            std::sort(sorted.begin(), sorted.end());
            const kernels::ScanWindows w =
                floats ? windowsOver<Repr::F32>(sorted) : windowsOver<Repr::F64>(sorted);
            for (int b = 0; b < nb; ++b) {
                SCOPED_TRACE(std::string(builds[b].name) + " n=" + std::to_string(n) +
                             (floats ? " float" : " double"));
                const kernels::Ops& ops = *builds[b].ops;
                kernels::WindowTally tally;
                tally.under[0] = 5; // a scan adds to what is there
                std::vector<std::vector<std::uint64_t>> outs(w.count,
                                                             std::vector<std::uint64_t>(m + 1));
                std::uint64_t* ptrs[kernels::kMaxWindows];
                for (unsigned j = 0; j < w.count; ++j)
                    ptrs[j] = outs[j].data();
                std::size_t counts[kernels::kMaxWindows];
                ops.scan(v.data(), m, w, floats, tally, ptrs, counts);
                for (unsigned j = 0; j < w.count; ++j) {
                    std::uint64_t under = j == 0 ? 5 : 0;
                    std::vector<std::uint64_t> in;
                    for (std::uint64_t k : want) {
                        under += k < w.lo[j];
                        if (k >= w.lo[j] && k - w.lo[j] <= w.span[j])
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

TEST(Sample, OnePositionInEachStratum) {
    const std::uint64_t total = 1000003;
    const std::vector<std::uint64_t> p = stratifiedPositions(total, 4096);
    ASSERT_EQ(p.size(), 4096u);
    for (std::size_t i = 0; i < p.size(); ++i) {
        const std::uint64_t begin = total * i / 4096, end = total * (i + 1) / 4096;
        EXPECT_GE(p[i], begin);
        EXPECT_LT(p[i], end);
    }
    // Not all at the start of their stratum: the offsets vary.
    std::size_t atStart = 0;
    for (std::size_t i = 0; i < p.size(); ++i)
        atStart += p[i] == total * i / 4096;
    EXPECT_LT(atStart, 100u);
    EXPECT_EQ(stratifiedPositions(total, 4096), p);
    const std::vector<std::uint64_t> all = stratifiedPositions(10, 64);
    ASSERT_EQ(all.size(), 10u);
    for (std::uint64_t i = 0; i < 10; ++i)
        EXPECT_EQ(all[static_cast<std::size_t>(i)], i);
    EXPECT_TRUE(stratifiedPositions(0, 10).empty());
}

TEST(Sample, RunsOfNeighboursOneInEachStratum) {
    const std::uint64_t total = 1000003;
    const std::vector<std::uint64_t> p = stratifiedPositions(total, 4096, 8);
    ASSERT_EQ(p.size(), 4096u * 8);
    for (std::size_t i = 0; i < 4096; ++i) {
        const std::uint64_t begin = total * i / 4096, end = total * (i + 1) / 4096;
        EXPECT_GE(p[i * 8], begin);
        EXPECT_LT(p[i * 8 + 7], end);
        for (std::size_t k = 1; k < 8; ++k)
            EXPECT_EQ(p[i * 8 + k], p[i * 8] + k);
    }
    // Too few positions for runs in strata: all of them.
    const std::vector<std::uint64_t> all = stratifiedPositions(100, 20, 8);
    ASSERT_EQ(all.size(), 100u);
    EXPECT_EQ(all.back(), 99u);
}

TEST(Sample, RunsOnlyWhereNeighboursAreNeighboursInMemory) {
    std::vector<double> data(64 * 50);
    const ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Double, reinterpret_cast<std::uintptr_t>(data.data()), {64, 50});
    auto runFor = [&](const char* slice) {
        Result<Slice> s = parseSlice(slice, a);
        EXPECT_TRUE(s.ok()) << s.message();
        return s.ok() ? detail::sampleRunFor(layoutOf(a, s->dims)) : 0;
    };
    EXPECT_EQ(runFor(""), kSampleRun);
    EXPECT_EQ(runFor("[2:9][:]"), kSampleRun);
    EXPECT_EQ(runFor("[:][::2]"), 1u);     // every other element
    EXPECT_EQ(runFor("[:][49:0:-1]"), 1u); // backwards in memory
    EXPECT_EQ(runFor("[:][0:4]"), 1u);     // rows shorter than a run
}

TEST(Sample, KeysSortDigitByDigit) {
    std::mt19937_64 rng(5);
    for (std::size_t n : {std::size_t(10), std::size_t(5000), std::size_t(100000)}) {
        std::vector<std::uint64_t> keys(n);
        for (std::size_t i = 0; i < n; ++i)
            // Wide keys, narrow ones with constant high digits, and ties.
            keys[i] = i % 3 == 0   ? rng()
                      : i % 3 == 1 ? (0x8000000000000000ULL | (rng() & 0xfffff))
                                   : 42;
        std::vector<std::uint64_t> want = keys;
        std::sort(want.begin(), want.end());
        sortKeys(keys);
        EXPECT_EQ(keys, want) << n;
    }
}

// Runs of a sample whose keys are alike inside each run, or independent.
detail::SampleKeys sampleOfRuns(std::size_t runs, bool alike, unsigned seed) {
    std::mt19937_64 rng(seed);
    detail::SampleKeys s;
    s.runKeys.resize(runs * kSampleRun);
    s.runSize.assign(runs, static_cast<unsigned char>(kSampleRun));
    for (std::size_t r = 0; r < runs; ++r) {
        const std::uint64_t first = rng() >> 1;
        for (std::size_t k = 0; k < kSampleRun; ++k)
            s.runKeys[r * kSampleRun + k] = alike ? first : rng() >> 1;
    }
    s.sorted = s.runKeys;
    std::sort(s.sorted.begin(), s.sorted.end());
    return s;
}

TEST(Sample, RunsOfAlikeElementsCountForOneEach) {
    const std::size_t runs = 4096;
    const double m = static_cast<double>(runs * kSampleRun);
    for (double p : {0.25, 0.5, 0.75}) {
        SCOPED_TRACE(p);
        const detail::SampleKeys independent = sampleOfRuns(runs, false, 1);
        const std::uint64_t at1 = independent.sorted[static_cast<std::size_t>(p * (m - 1))];
        const double e1 = detail::shareError(independent, at1, p);
        EXPECT_NEAR(e1, std::sqrt(p * (1 - p) / m), 0.1 * std::sqrt(p * (1 - p) / m));
        // Eight alike elements tell what one does: the error of as many
        // elements as there are runs.
        const detail::SampleKeys alike = sampleOfRuns(runs, true, 2);
        const std::uint64_t at2 = alike.sorted[static_cast<std::size_t>(p * (m - 1))];
        const double e2 = detail::shareError(alike, at2, p);
        const double perRun = std::sqrt(p * (1 - p) / static_cast<double>(runs));
        EXPECT_NEAR(e2, perRun, 0.1 * perRun);
    }
}

TEST(Sample, AddressesAndReadsFollowTheResultOrder) {
    // A C array [5][6][7] of int32 sliced [4:0:-2][1:5:2][::3]: the layout
    // lists the kept dimensions in result order with their byte strides.
    std::vector<std::int32_t> data(5 * 6 * 7);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::int32_t>(i * 7 + 1);
    const ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Int32, reinterpret_cast<std::uintptr_t>(data.data()), {5, 6, 7});
    Result<Slice> s = parseSlice("[4:0:-2][1:5:2][::3]", a);
    ASSERT_TRUE(s.ok()) << s.message();
    const Layout layout = layoutOf(a, s->dims);
    std::vector<std::int32_t> expected;
    for (int i = 4; i >= 0; i -= 2)
        for (int j = 1; j <= 5; j += 2)
            for (int k = 0; k < 7; k += 3)
                expected.push_back(data[static_cast<std::size_t>((i * 6 + j) * 7 + k)]);
    ASSERT_EQ(layout.count(), expected.size());
    std::vector<std::uint64_t> positions;
    for (std::uint64_t p = 0; p < expected.size(); ++p) {
        positions.push_back(p);
        std::int32_t v;
        std::memcpy(&v, reinterpret_cast<const void*>(addressAt(layout, p)), 4);
        EXPECT_EQ(v, expected[static_cast<std::size_t>(p)]) << p;
    }
    BufferReader reader(data.data(), data.size() * 4);
    for (int threads : {1, 2, 5}) {
        std::vector<unsigned char> bytes;
        ASSERT_TRUE(readPositions(layout, reader, positions, threads, bytes).ok());
        ASSERT_EQ(bytes.size(), expected.size() * 4);
        EXPECT_EQ(std::memcmp(bytes.data(), expected.data(), bytes.size()), 0);
    }
    // A read outside the array fails and names the first address it could
    // not read: all 27 pieces go in one gathered read, first one first.
    Layout outside = layout;
    outside.base += 1 << 20;
    std::vector<unsigned char> bytes;
    Status st = readPositions(outside, reader, positions, 2, bytes);
    ASSERT_FALSE(st.ok());
    char where[32];
    std::snprintf(where, sizeof where, "0x%llx",
                  static_cast<unsigned long long>(addressAt(outside, 0)));
    EXPECT_EQ(st.error().message, std::string("Cannot read memory at address ") + where + ".");
}

// Statistics of doubles or floats against a sorted copy.
struct Expected {
    std::uint64_t count = 0, zero = 0, nan = 0, inf = 0;
    double sum = 0, min = 0, max = 0, mean = 0, sd = 0, q1 = 0, q2 = 0, q3 = 0, lowAdj = 0,
           highAdj = 0;
    std::int64_t checksum = 0;
};

double quantileOf(const std::vector<double>& sorted, double p) {
    return interpolate(sorted[quantilePoint(sorted.size(), p).lower],
                       sorted[quantilePoint(sorted.size(), p).upper],
                       quantilePoint(sorted.size(), p).fraction);
}

template <class F> Expected expectedOf(const std::vector<F>& v) {
    Expected e;
    std::vector<double> finite;
    for (F x : v) {
        ++e.count;
        e.zero += x == 0;
        e.nan += std::isnan(x);
        e.inf += std::isinf(x);
        if (std::isfinite(x))
            finite.push_back(static_cast<double>(x));
    }
    e.checksum = static_cast<std::int64_t>(XXH3_64bits(v.data(), v.size() * sizeof(F)));
    std::sort(finite.begin(), finite.end());
    long double sum = 0;
    for (double x : finite)
        sum += x;
    const long double mean = sum / static_cast<long double>(finite.size());
    long double m2 = 0;
    for (double x : finite)
        m2 += (x - mean) * (x - mean);
    e.sum = static_cast<double>(sum);
    e.mean = static_cast<double>(mean);
    e.sd = static_cast<double>(std::sqrt(m2 / static_cast<long double>(finite.size())));
    e.min = finite.front();
    e.max = finite.back();
    e.q1 = quantileOf(finite, 0.25);
    e.q2 = quantileOf(finite, 0.5);
    e.q3 = quantileOf(finite, 0.75);
    const double low = e.q1 - 1.5 * (e.q3 - e.q1), high = e.q3 + 1.5 * (e.q3 - e.q1);
    e.lowAdj = *std::lower_bound(finite.begin(), finite.end(), low);
    e.highAdj = *(std::upper_bound(finite.begin(), finite.end(), high) - 1);
    return e;
}

StatisticsOptions sampledOptions() {
    StatisticsOptions o = StatisticsOptions::Defaults();
    o.sampleFrom = 0;
    o.sampleSize = 4096;
    o.threads = 2;
    o.tileBytes = 8192;
    return o;
}

template <class F>
Statistics expectMatches(const std::vector<F>& v, const StatisticsOptions& options,
                         const std::string& filter = "") {
    const ElementKind kind = sizeof(F) == 8 ? ElementKind::Double : ElementKind::Float;
    const ArrayDescriptor a = ArrayDescriptor::cArray(
        kind, reinterpret_cast<std::uintptr_t>(v.data()), {static_cast<std::int64_t>(v.size())});
    BufferReader reader(v.data(), v.size() * sizeof(F));
    Result<Statistics> r = computeStatistics(a, reader, "", filter, options);
    EXPECT_TRUE(r.ok()) << r.message();
    if (!r.ok())
        return Statistics();
    const Statistics& s = r.value();
    if (!filter.empty())
        return s;
    const Expected e = expectedOf(v);
    EXPECT_EQ(s.count, e.count);
    EXPECT_EQ(s.zeroCount, e.zero);
    EXPECT_EQ(s.nanCount, e.nan);
    EXPECT_EQ(s.infCount, e.inf);
    EXPECT_EQ(s.checksum, e.checksum);
    EXPECT_EQ(toDouble(s.min), e.min);
    EXPECT_EQ(toDouble(s.max), e.max);
    const double scale =
        std::max(std::fabs(e.min), std::fabs(e.max)) * static_cast<double>(e.count);
    EXPECT_NEAR(toDouble(s.sum), e.sum, 1e-13 * scale + 1e-300);
    EXPECT_NEAR(s.stdDev, e.sd, 1e-10 * (e.sd + std::fabs(e.mean)) + 1e-300);
    EXPECT_EQ(s.firstQuartile, e.q1);
    EXPECT_EQ(s.median, e.q2);
    EXPECT_EQ(s.thirdQuartile, e.q3);
    EXPECT_EQ(toDouble(s.lowerAdjValue), e.lowAdj);
    EXPECT_EQ(toDouble(s.upperAdjValue), e.highAdj);
    return s;
}

std::vector<double> uniformWithZeros(std::size_t n, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-500, 500);
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = i % 4096 == 0 ? 0.0 : u(rng);
    return v;
}

TEST(OnePassStatistics, UniformDataTakesOnePass) {
    const std::vector<double> v = uniformWithZeros(1 << 18, 1);
    const Statistics s = expectMatches(v, sampledOptions());
    EXPECT_TRUE(s.sampled);
    EXPECT_TRUE(s.windowsHeld);
    EXPECT_EQ(s.passes, 1u);
}

TEST(OnePassStatistics, SmoothDataWidensTheWindowsAndStillTakesOnePass) {
    // A slow wave: the eight neighbours of each run are nearly equal.
    std::vector<double> v(1 << 18);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = std::sin(static_cast<double>(i) * 3e-4) * 100 + static_cast<double>(i % 7) * 1e-3;
    const Statistics s = expectMatches(v, sampledOptions());
    EXPECT_TRUE(s.sampled);
    EXPECT_TRUE(s.windowsHeld);
    EXPECT_EQ(s.passes, 1u);
}

TEST(OnePassStatistics, FencesInsideTheDataComeFromTheirWindows) {
    // Normal data with a few far outliers: both fences fall among the
    // elements, so the adjacent values are not the extremes.
    std::mt19937_64 rng(2);
    std::normal_distribution<double> normal(10, 3);
    std::vector<double> v(1 << 18);
    for (double& x : v)
        x = normal(rng);
    v[100] = 1e6;
    v[200] = -1e6;
    const Statistics s = expectMatches(v, sampledOptions());
    EXPECT_TRUE(s.sampled);
    EXPECT_TRUE(s.windowsHeld);
    EXPECT_EQ(s.passes, 1u);
    EXPECT_NE(toDouble(s.lowerAdjValue), toDouble(s.min));
    EXPECT_NE(toDouble(s.upperAdjValue), toDouble(s.max));
}

TEST(OnePassStatistics, AMisleadingSampleFallsBackToRadixSelection) {
    // The very elements the sample reads are far above all the others, so
    // its windows lie where no wanted rank is.
    std::vector<double> v = uniformWithZeros(1 << 18, 3);
    const StatisticsOptions o = sampledOptions();
    for (std::uint64_t p : stratifiedPositions(v.size(), o.sampleSize, kSampleRun))
        v[static_cast<std::size_t>(p)] = 1e9 + static_cast<double>(p);
    const Statistics s = expectMatches(v, o);
    EXPECT_TRUE(s.sampled);
    EXPECT_FALSE(s.windowsHeld);
    EXPECT_GT(s.passes, 1u);
}

TEST(OnePassStatistics, AWindowFullerThanTheSampleSaidFallsBack) {
    // Uniform on [0, 1), but outside the sample the values between 0.3 and
    // 0.7 are squeezed around 0.5: the quartiles stay where the sample puts
    // them and every rank lies in its window, but the median's window gets
    // many times the keys it was given room for.
    const StatisticsOptions o = sampledOptions();
    std::mt19937_64 rng(8);
    std::uniform_real_distribution<double> u(0, 1);
    std::vector<double> v(1 << 18);
    for (double& x : v) {
        x = u(rng);
        if (x > 0.3 && x < 0.7)
            x = 0.5 + (x - 0.5) * 0.005;
    }
    for (std::uint64_t p : stratifiedPositions(v.size(), o.sampleSize, kSampleRun))
        v[static_cast<std::size_t>(p)] = u(rng);
    const Statistics s = expectMatches(v, o);
    EXPECT_TRUE(s.sampled);
    EXPECT_FALSE(s.windowsHeld);
    EXPECT_GT(s.passes, 1u);
}

TEST(OnePassStatistics, ALargeArrayGetsALargerSample) {
    // The runs the array's size alone asks for would put far more keys in
    // the windows than 2 MiB hold: the sample grows until they fit.
    const std::vector<double> v = uniformWithZeros(1 << 22, 9);
    StatisticsOptions o = sampledOptions();
    o.sampleSize = 256;
    o.windowBytes = 2u << 20;
    o.tileBytes = 256 * 1024;
    const Statistics s = expectMatches(v, o);
    EXPECT_TRUE(s.sampled);
    EXPECT_TRUE(s.windowsHeld);
    EXPECT_EQ(s.passes, 1u);
}

TEST(OnePassStatistics, AConstantArrayNeedsNoKeysKept) {
    std::vector<double> v(1 << 16, 7.25);
    v[5] = std::numeric_limits<double>::quiet_NaN();
    const Statistics s = expectMatches(v, sampledOptions());
    EXPECT_TRUE(s.sampled);
    EXPECT_TRUE(s.windowsHeld);
    EXPECT_EQ(s.median, 7.25);
}

TEST(OnePassStatistics, FloatsAndAwkwardValues) {
    const std::vector<double> d = awkwardDoubles(1 << 17, 4);
    std::vector<float> f(d.begin(), d.end());
    const Statistics s = expectMatches(f, sampledOptions());
    EXPECT_TRUE(s.sampled);
    EXPECT_TRUE(s.windowsHeld);
    const Statistics s2 = expectMatches(d, sampledOptions());
    EXPECT_TRUE(s2.windowsHeld);
}

TEST(OnePassStatistics, TheSameBitsWhateverTheThreads) {
    // On either road: the sampled one and radix selection alone.
    const std::vector<double> v = uniformWithZeros(1 << 18, 5);
    for (std::size_t sample : {std::size_t(4096), std::size_t(0)}) {
        SCOPED_TRACE(sample);
        StatisticsOptions o = sampledOptions();
        o.sampleSize = sample;
        o.threads = 1;
        const Statistics one = expectMatches(v, o);
        EXPECT_EQ(one.sampled, sample > 0);
        for (int threads : {2, 3}) {
            o.threads = threads;
            // Several times: which thread takes which tile changes from run
            // to run.
            for (int run = 0; run < 4; ++run) {
                const Statistics many = expectMatches(v, o);
                EXPECT_EQ(std::get<double>(many.sum), std::get<double>(one.sum));
                EXPECT_EQ(many.stdDev, one.stdDev);
                EXPECT_EQ(many.mean, one.mean);
            }
        }
    }
}

TEST(OnePassStatistics, WithAFilterAgreesWithTheTwoPassRoad) {
    const std::vector<double> v = awkwardDoubles(1 << 18, 6);
    const ArrayDescriptor a =
        ArrayDescriptor::cArray(ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()),
                                {static_cast<std::int64_t>(v.size())});
    BufferReader reader(v.data(), v.size() * 8);
    StatisticsOptions plain = StatisticsOptions::Defaults();
    plain.sampleSize = 0;
    for (const char* filter : {"$value > 0", "abs($value) < 100 || $value == $inf"}) {
        SCOPED_TRACE(filter);
        Result<Statistics> one = computeStatistics(a, reader, "", filter, sampledOptions());
        Result<Statistics> two = computeStatistics(a, reader, "", filter, plain);
        ASSERT_TRUE(one.ok() && two.ok());
        EXPECT_TRUE(one->sampled);
        EXPECT_TRUE(one->windowsHeld);
        EXPECT_FALSE(two->sampled);
        EXPECT_EQ(one->count, two->count);
        EXPECT_EQ(one->infCount, two->infCount);
        EXPECT_EQ(one->checksum, two->checksum);
        EXPECT_EQ(one->median, two->median);
        EXPECT_EQ(one->firstQuartile, two->firstQuartile);
        EXPECT_EQ(one->thirdQuartile, two->thirdQuartile);
        EXPECT_EQ(toDouble(one->lowerAdjValue), toDouble(two->lowerAdjValue));
        EXPECT_EQ(toDouble(one->upperAdjValue), toDouble(two->upperAdjValue));
        EXPECT_EQ(toDouble(one->min), toDouble(two->min));
        EXPECT_NEAR(one->stdDev, two->stdDev, 1e-12 * two->stdDev);
    }
}

// Reads like the reader that goes through the debugger: no cheap scattered
// reads, so no sample.
class SlowScatterReader : public Reader {
public:
    SlowScatterReader(const void* data, std::size_t size) : inner_(data, size) {}
    Status read(std::uint64_t address, void* dest, std::size_t size) override {
        return inner_.read(address, dest, size);
    }

private:
    BufferReader inner_;
};

TEST(OnePassStatistics, NoSampleWhereScatteredReadsAreDearOrTheBudgetTooSmall) {
    const std::vector<double> v = uniformWithZeros(1 << 16, 7);
    const ArrayDescriptor a =
        ArrayDescriptor::cArray(ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()),
                                {static_cast<std::int64_t>(v.size())});
    SlowScatterReader slow(v.data(), v.size() * 8);
    Result<Statistics> r = computeStatistics(a, slow, "", "", sampledOptions());
    ASSERT_TRUE(r.ok());
    EXPECT_FALSE(r->sampled);
    StatisticsOptions tight = sampledOptions();
    tight.windowBytes = 1024;
    const Statistics s = expectMatches(v, tight);
    EXPECT_FALSE(s.sampled);
    // Below the size from which sampling pays, none either.
    StatisticsOptions defaults = StatisticsOptions::Defaults();
    const Statistics d = expectMatches(v, defaults);
    EXPECT_FALSE(d.sampled);
}

// Reads whole tiles up to a point of the array and fails beyond it; the
// small reads of a sample all succeed. After `cancelAfter` tile reads it
// raises the cancel flag instead, when one is given.
class BrokenTileReader : public Reader {
public:
    BrokenTileReader(const void* data, std::size_t size, std::uint64_t failFrom)
        : inner_(data, size), failFrom_(failFrom) {}
    Status read(std::uint64_t address, void* dest, std::size_t size) override {
        if (size > 1024) {
            if (cancel_ && ++tiles_ >= cancelAfter_)
                cancel_->store(true);
            if (!cancel_ && address + size > failFrom_)
                return unreadableAt(std::max(address, failFrom_));
        }
        return inner_.read(address, dest, size);
    }
    bool cheapScatteredReads() const override { return true; }
    void cancelAfter(std::atomic<bool>* flag, int tiles) {
        cancel_ = flag;
        cancelAfter_ = tiles;
    }

private:
    BufferReader inner_;
    std::uint64_t failFrom_;
    std::atomic<bool>* cancel_ = nullptr;
    std::atomic<int> tiles_{0};
    int cancelAfter_ = 0;
};

TEST(OnePassStatistics, AFailedReadOrACancelStopsEveryThreadWithItsReason) {
    const std::vector<double> v = uniformWithZeros(1 << 18, 11);
    const ArrayDescriptor a =
        ArrayDescriptor::cArray(ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()),
                                {static_cast<std::int64_t>(v.size())});
    const std::uint64_t middle = reinterpret_cast<std::uintptr_t>(v.data()) + v.size() * 4 + 100;
    for (int threads : {1, 2, 4}) {
        for (std::size_t sample : {std::size_t(4096), std::size_t(0)}) {
            SCOPED_TRACE(std::to_string(threads) + " threads, sample " + std::to_string(sample));
            StatisticsOptions o = sampledOptions();
            o.threads = threads;
            o.sampleSize = sample;
            BrokenTileReader broken(v.data(), v.size() * 8, middle);
            Result<Statistics> r = computeStatistics(a, broken, "", "", o);
            ASSERT_FALSE(r.ok());
            EXPECT_EQ(r.error().code, ErrorCode::Unreadable);
            EXPECT_EQ(r.error().message, unreadableAt(middle).message);

            std::atomic<bool> cancel{false};
            o.cancel = &cancel;
            BrokenTileReader cancelling(v.data(), v.size() * 8, middle);
            cancelling.cancelAfter(&cancel, 5);
            Result<Statistics> c = computeStatistics(a, cancelling, "", "", o);
            ASSERT_FALSE(c.ok());
            EXPECT_EQ(c.error().code, ErrorCode::Cancelled);
        }
    }
}

} // namespace
