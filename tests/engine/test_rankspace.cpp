// Several ranks' arrays as one: each rank's values live in a buffer of its
// own (at an address of its own), and the stacked or concatenated array must
// give every rank's elements in result order, and statistics over all of
// them, through one reader.
#include "arraylens/arraylens.h"
#include "arraylens/rankspace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace arraylens;

namespace {

// One rank: its values and a reader that serves them at `address`.
struct FakeRank {
    std::vector<double> values;
    std::uint64_t address;
    std::unique_ptr<BufferReader> reader;
    FakeRank(std::vector<double> v, std::uint64_t at) : values(std::move(v)), address(at) {
        reader =
            std::make_unique<BufferReader>(values.data(), values.size() * sizeof(double), address);
    }
};

std::vector<double> rankValues(int rank, std::size_t n) {
    std::vector<double> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = rank * 1000.0 + double((i * 37) % n) - 0.25 * double(i % 3);
    return v;
}

// Median of all values by sorting: numpy's default interpolation.
double median(std::vector<double> all) {
    std::sort(all.begin(), all.end());
    const std::size_t n = all.size();
    return n % 2 ? all[n / 2] : (all[n / 2 - 1] + all[n / 2]) / 2;
}

std::vector<double> readAll(const RankSpace& space) {
    auto plot = plotValues(space.array, *space.reader, "", "");
    EXPECT_TRUE(plot.ok()) << plot.message();
    return plot ? plot->values : std::vector<double>();
}

} // namespace

TEST(RankSpace, StackedCArraysGainALeadingProcessDimension) {
    constexpr std::int64_t rows = 6, cols = 7;
    std::vector<FakeRank> ranks;
    // Addresses far apart and in no order, like separate processes' heaps.
    const std::uint64_t at[] = {0x7f0000001000, 0x5555000000, 0x7f0000000008};
    for (int r = 0; r < 3; ++r)
        ranks.emplace_back(rankValues(r, rows * cols), at[r]);
    std::vector<RankArray> set;
    std::vector<double> all;
    for (int r = 0; r < 3; ++r) {
        set.push_back({r + 4,
                       ArrayDescriptor::cArray(ElementKind::Double, ranks[r].address, {rows, cols}),
                       ranks[r].reader.get()});
        all.insert(all.end(), ranks[r].values.begin(), ranks[r].values.end());
    }
    auto space = stackRanks(set);
    ASSERT_TRUE(space.ok()) << space.message();
    ASSERT_EQ(space->array.dims.size(), 3u);
    EXPECT_EQ(space->array.dims[0].lower, 0);
    EXPECT_EQ(space->array.dims[0].upper, 2);
    EXPECT_EQ(readAll(*space), all);

    auto stats = computeStatistics(space->array, *space->reader, "", "");
    ASSERT_TRUE(stats.ok()) << stats.message();
    EXPECT_EQ(stats->count, all.size());
    EXPECT_EQ(std::get<double>(stats->min), *std::min_element(all.begin(), all.end()));
    EXPECT_EQ(std::get<double>(stats->max), *std::max_element(all.begin(), all.end()));
    EXPECT_EQ(stats->median, median(all));

    // Fixing the process dimension shows one rank.
    auto one = plotValues(space->array, *space->reader, "[1][:][:]", "");
    ASSERT_TRUE(one.ok()) << one.message();
    EXPECT_EQ(one->values, ranks[1].values);
    auto info = arrayInfo(space->array);
    ASSERT_TRUE(info.ok());
    EXPECT_EQ(info->emptySlice, "[0:2][0:5][0:6]");
}

TEST(RankSpace, StackedFortranArraysGainATrailingProcessDimension) {
    // Column-major (1:4, -1:2): result order is row-major over the indices.
    std::vector<FakeRank> ranks;
    for (int r = 0; r < 2; ++r)
        ranks.emplace_back(rankValues(r, 16), 0x10000 + std::uint64_t(r) * 0x100000);
    std::vector<RankArray> set;
    for (int r = 0; r < 2; ++r) {
        auto a = ArrayDescriptor::fortranArray(ElementKind::FortranReal8, ranks[r].address,
                                               {{1, 4}, {-1, 2}});
        set.push_back({r, a, ranks[r].reader.get()});
    }
    auto space = stackRanks(set);
    ASSERT_TRUE(space.ok()) << space.message();
    ASSERT_EQ(space->array.dims.size(), 3u);
    EXPECT_EQ(space->array.dims[2].upper, 1);
    auto info = arrayInfo(space->array);
    ASSERT_TRUE(info.ok());
    EXPECT_EQ(info->emptySlice, "(1:4,-1:2,0:1)");
    // Element (i, j, p) of the stack is rank p's element (i, j).
    auto v = plotValues(space->array, *space->reader, "(3,0,1)", "");
    ASSERT_TRUE(v.ok()) << v.message();
    ASSERT_EQ(v->values.size(), 1u);
    EXPECT_EQ(v->values[0], ranks[1].values[(3 - 1) + 4 * (0 + 1)]);
}

TEST(RankSpace, RanksWithDifferentStridesArePackedInResultOrder) {
    // Rank 1 holds its 3 x 4 array as every other column of a wider one.
    FakeRank a(rankValues(0, 12), 0x20000), b(rankValues(1, 24), 0x90000);
    auto da = ArrayDescriptor::cArray(ElementKind::Double, a.address, {3, 4});
    auto db = ArrayDescriptor::cArray(ElementKind::Double, b.address, {3, 4});
    db.dims[1].byteStride = 16;
    db.dims[0].byteStride = 64;
    auto space = stackRanks({{0, da, a.reader.get()}, {1, db, b.reader.get()}});
    ASSERT_TRUE(space.ok()) << space.message();
    std::vector<double> expected = a.values;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            expected.push_back(b.values[std::size_t(i * 8 + j * 2)]);
    EXPECT_EQ(readAll(*space), expected);
}

TEST(RankSpace, UnequalShapesConcatenateInRankOrder) {
    FakeRank a(rankValues(0, 13 * 5), 0x30000), b(rankValues(1, 12 * 5), 0x30000);
    auto da = ArrayDescriptor::cArray(ElementKind::Double, a.address, {13, 5});
    auto db = ArrayDescriptor::cArray(ElementKind::Double, b.address, {12, 5});
    EXPECT_EQ(shapeDifference(da, db), "bounds of dimension 1 (i)");
    EXPECT_FALSE(stackRanks({{0, da, a.reader.get()}, {1, db, b.reader.get()}}).ok());
    auto space = concatenateRanks({{0, da, a.reader.get()}, {1, db, b.reader.get()}});
    ASSERT_TRUE(space.ok()) << space.message();
    ASSERT_EQ(space->array.dims.size(), 1u);
    std::vector<double> all = a.values;
    all.insert(all.end(), b.values.begin(), b.values.end());
    EXPECT_EQ(readAll(*space), all);
    // Small tiles: reads that straddle the two ranks.
    StatisticsOptions options;
    options.tileBytes = 24;
    auto stats = computeStatistics(space->array, *space->reader, "", "", options);
    ASSERT_TRUE(stats.ok()) << stats.message();
    EXPECT_EQ(stats->count, all.size());
    EXPECT_EQ(stats->median, median(all));
}

TEST(RankSpace, AnUnreadableRankIsNamed) {
    FakeRank a(rankValues(0, 10), 0x40000);
    auto da = ArrayDescriptor::cArray(ElementKind::Double, a.address, {10});
    auto db = ArrayDescriptor::cArray(ElementKind::Double, 0x1000, {10}); // nothing there
    auto space = stackRanks({{0, da, a.reader.get()}, {3, db, a.reader.get()}});
    ASSERT_TRUE(space.ok()) << space.message();
    auto stats = computeStatistics(space->array, *space->reader, "", "");
    ASSERT_FALSE(stats.ok());
    EXPECT_EQ(stats.message().rfind("Rank 3: ", 0), 0u) << stats.message();
}
