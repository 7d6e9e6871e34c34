// Plot values: order, rank, and the limit.
#include "arraylens/plot.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace arraylens;

namespace {

TEST(Plot, RankRowsAndColumnsOfAPlane) {
    std::vector<std::uint16_t> v(4 * 5 * 6);
    std::iota(v.begin(), v.end(), 0);
    ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::UInt16, reinterpret_cast<std::uintptr_t>(v.data()), {4, 5, 6});
    BufferReader r(v.data(), v.size() * 2);
    Result<PlotValues> p = plotValues(a, r, "[1][4:0:-2][::5]", "");
    ASSERT_TRUE(p.ok()) << p.message();
    EXPECT_EQ(p->rank, 2);
    EXPECT_EQ(p->rows, 3);
    EXPECT_EQ(p->cols, 2);
    EXPECT_EQ(p->values, (std::vector<double>{54, 59, 42, 47, 30, 35}));
    EXPECT_EQ(p->emptySlice, "[0:3][0:4][0:5]");

    Result<PlotValues> f = plotValues(a, r, "[1][4:0:-2][::5]", "$value > 40 && $value < 55");
    ASSERT_TRUE(f.ok()) << f.message();
    EXPECT_EQ(f->rank, 1);
    EXPECT_EQ(f->rows, 0);
    EXPECT_EQ(f->values, (std::vector<double>{54, 42, 47}));

    Result<PlotValues> one = plotValues(a, r, "[1][2][3]", "");
    ASSERT_TRUE(one.ok());
    EXPECT_EQ(one->rank, 1);
    EXPECT_EQ(one->values, (std::vector<double>{45}));
}

TEST(Plot, LimitGivesTheCountAndSuggestsAStride) {
    std::vector<float> v(1000, 1.0f);
    v[10] = 2;
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Float,
                                                reinterpret_cast<std::uintptr_t>(v.data()), {1000});
    BufferReader r(v.data(), v.size() * 4);
    PlotOptions o = PlotOptions::Defaults();
    o.maxValues = 300;
    Result<PlotValues> p = plotValues(a, r, "", "", o);
    ASSERT_FALSE(p.ok());
    EXPECT_EQ(p.error().code, ErrorCode::TooLarge);
    EXPECT_EQ(p.message(), "The plot would have 1000 values, more than the 300 it can show. "
                           "Give the slice a stride of 4 or more in one of its dimensions.");
    Result<PlotValues> strided = plotValues(a, r, "[::4]", "", o);
    ASSERT_TRUE(strided.ok());
    EXPECT_EQ(strided->values.size(), 250u);
    // The limit counts the values that pass the filter.
    Result<PlotValues> filtered = plotValues(a, r, "", "$value > 1", o);
    ASSERT_TRUE(filtered.ok()) << filtered.message();
    EXPECT_EQ(filtered->values, (std::vector<double>{2}));
    EXPECT_EQ(plotValues(a, r, "", "$value > 0", o).message(),
              "The plot would have 1000 values, more than the 300 it can show. Give the slice a "
              "stride of 4 or more in one of its dimensions.");
}

TEST(Plot, DefaultLimitRefusesOneValueMoreThanItAllows) {
    std::vector<float> v(kMaxPlotValues + 1, 1.0f);
    ArrayDescriptor a =
        ArrayDescriptor::cArray(ElementKind::Float, reinterpret_cast<std::uintptr_t>(v.data()),
                                {static_cast<std::int64_t>(v.size())});
    BufferReader r(v.data(), v.size() * sizeof(float));
    Result<PlotValues> all = plotValues(a, r, "", "", PlotOptions::Defaults());
    ASSERT_FALSE(all.ok());
    EXPECT_NE(all.message().find(std::to_string(kMaxPlotValues + 1)), std::string::npos)
        << all.message();
    const std::string upToLimit = "[0:" + std::to_string(kMaxPlotValues - 1) + "]";
    Result<PlotValues> limit = plotValues(a, r, upToLimit, "", PlotOptions::Defaults());
    ASSERT_TRUE(limit.ok()) << limit.message();
    EXPECT_EQ(limit->values.size(), kMaxPlotValues);
}

TEST(Plot, CancelFlagStopsTheWork) {
    std::vector<double> v(100000, 1.0);
    ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()), {100000});
    BufferReader r(v.data(), v.size() * 8);
    std::atomic<bool> cancel{true};
    PlotOptions o = PlotOptions::Defaults();
    o.cancel = &cancel;
    Result<PlotValues> p = plotValues(a, r, "", "", o);
    ASSERT_FALSE(p.ok());
    EXPECT_EQ(p.error().code, ErrorCode::Cancelled);
}

} // namespace
