// FirstMatch and LastMatch: where the first and last passing element lie,
// by both statistics roads, in both slice forms, and by the search that
// passes without verdicts use.
#include "arraylens/arraylens.h"
#include "arraylens/matchspan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <random>

using namespace arraylens;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

Statistics stats(const ArrayDescriptor& a, Reader& r, const std::string& slice,
                 const std::string& filter) {
    Result<Statistics> s = computeStatistics(a, r, slice, filter);
    EXPECT_TRUE(s.ok()) << s.message();
    return s.ok() ? *s : Statistics();
}

TEST(MatchSpan, FirstNanOfACPlane) {
    std::vector<double> v(10 * 100, 1.5);
    v[3 * 100 + 7] = kNan;
    v[8 * 100 + 2] = kNan;
    ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()), {10, 100});
    BufferReader r(v.data(), v.size() * 8);
    Statistics s = stats(a, r, "", "$value == $nan");
    EXPECT_EQ(s.count, 2u);
    EXPECT_EQ(s.firstMatch, 307);
    EXPECT_EQ(s.lastMatch, 802);
    EXPECT_EQ(s.firstMatchText, "[3][7]");
    EXPECT_EQ(s.lastMatchText, "[8][2]");
    // In result order: rows reversed, the last NaN comes first.
    Statistics rev = stats(a, r, "[9:0:-1][:]", "$value == $nan");
    EXPECT_EQ(rev.firstMatchText, "[8][2]");
    EXPECT_EQ(rev.lastMatchText, "[3][7]");
    // A fixed dimension is written with its index.
    Statistics row = stats(a, r, "[3][:]", "$value == $nan");
    EXPECT_EQ(row.firstMatchText, "[3][7]");
    EXPECT_EQ(row.lastMatchText, "[3][7]");
}

TEST(MatchSpan, WithoutFilterTheFirstAndLastElement) {
    std::vector<double> v(10 * 100);
    std::iota(v.begin(), v.end(), 0.0);
    ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()), {10, 100});
    BufferReader r(v.data(), v.size() * 8);
    Statistics s = stats(a, r, "", "");
    EXPECT_EQ(s.firstMatchText, "[0][0]");
    EXPECT_EQ(s.lastMatchText, "[9][99]");
    Statistics strided = stats(a, r, "[9:1:-2][1::7]", "");
    EXPECT_EQ(strided.firstMatchText, "[9][1]");
    EXPECT_EQ(strided.lastMatchText, "[1][99]");
}

TEST(MatchSpan, NoPassingElementGivesEmptyTexts) {
    std::vector<double> v(500, 2.0);
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Double,
                                                reinterpret_cast<std::uintptr_t>(v.data()), {500});
    BufferReader r(v.data(), v.size() * 8);
    Statistics s = stats(a, r, "", "$value == $nan");
    EXPECT_EQ(s.count, 0u);
    EXPECT_EQ(s.firstMatch, -1);
    EXPECT_EQ(s.lastMatch, -1);
    EXPECT_EQ(s.firstMatchText, "");
    EXPECT_EQ(s.lastMatchText, "");
}

TEST(MatchSpan, FortranFormWithDeclaredBounds) {
    // x(0:9,-2:5), column-major; result order is row-major of (i, j).
    std::vector<double> v(10 * 8, 0.0);
    auto at = [&](int i, int j) -> double& { return v[std::size_t((j + 2) * 10 + i)]; };
    at(3, -1) = -4;
    at(7, 4) = -5;
    ArrayDescriptor a = ArrayDescriptor::fortranArray(
        ElementKind::FortranReal8, reinterpret_cast<std::uintptr_t>(v.data()), {{0, 9}, {-2, 5}});
    BufferReader r(v.data(), v.size() * 8);
    Statistics s = stats(a, r, "", "$value < 0");
    EXPECT_EQ(s.firstMatchText, "(3,-1)");
    EXPECT_EQ(s.lastMatchText, "(7,4)");
    Statistics whole = stats(a, r, "", "");
    EXPECT_EQ(whole.firstMatchText, "(0,-2)");
    EXPECT_EQ(whole.lastMatchText, "(9,5)");
}

TEST(MatchSpan, TheSampledRoadKnowsThemToo) {
    // Large enough for the one-pass road of doubles.
    const std::size_t n = std::size_t(1) << 18;
    std::vector<double> v(n);
    std::mt19937_64 rng(7);
    std::normal_distribution<double> normal;
    for (double& x : v)
        x = normal(rng);
    v[1234] = kNan;
    v[200000] = kNan;
    ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()), {512, 512});
    BufferReader r(v.data(), v.size() * 8);
    Statistics s = stats(a, r, "", "$value == $nan");
    EXPECT_EQ(s.firstMatchText, "[2][210]");
    EXPECT_EQ(s.lastMatchText, "[390][320]");
    Statistics big = stats(a, r, "", "$value > 0.5");
    ASSERT_TRUE(big.sampled);
    std::int64_t first = -1, last = -1;
    for (std::size_t i = 0; i < n; ++i)
        if (v[i] > 0.5) {
            if (first < 0)
                first = std::int64_t(i);
            last = std::int64_t(i);
        }
    EXPECT_EQ(big.firstMatch, first);
    EXPECT_EQ(big.lastMatch, last);
}

TEST(MatchSpan, SearchByReadingAgreesWithTheVerdicts) {
    std::vector<std::int32_t> v(6 * 7 * 50);
    std::mt19937 rng(3);
    for (auto& x : v)
        x = std::int32_t(rng() % 1000);
    ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Int32, reinterpret_cast<std::uintptr_t>(v.data()), {6, 7, 50});
    BufferReader r(v.data(), v.size() * 4);
    for (const char* filter : {"$value > 998", "$value < 2", "$value == 500", "$value > 5000"}) {
        for (const char* slice : {"", "[5:0:-1][::3][1:49:4]", "[2][:][:]"}) {
            Statistics s = stats(a, r, slice, filter);
            Result<Slice> parsed = parseSlice(slice, a);
            ASSERT_TRUE(parsed.ok());
            // Small tiles, so that the search crosses many of them.
            TilePlan plan(layoutOf(a, parsed->dims), 64);
            Result<Filter> f = compileFilter(filter);
            ASSERT_TRUE(f.ok());
            MatchSpan span;
            ASSERT_TRUE(findMatchSpan(plan, r, *f, Repr::I32, nullptr, span).ok());
            EXPECT_EQ(span.first, s.firstMatch) << filter << " " << slice;
            EXPECT_EQ(span.last, s.lastMatch) << filter << " " << slice;
            if (s.count == 0)
                EXPECT_EQ(span.first, -1);
            else
                EXPECT_EQ(s.firstMatchText,
                          positionText(*parsed, std::uint64_t(span.first), Language::C));
        }
    }
}

} // namespace
