// Extents, bounds and indices past 2^31, strides up to 2^63 and dimension
// numbers up to 2^63: exact 64-bit answers or refusals in words, never a
// wrapped number. The big arrays are descriptors over a reader that makes
// up each byte from its address, so no test needs gigabytes of memory.
#include "arraylens/arraylens.h"
#include "arraylens/slice.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

using namespace arraylens;

namespace {

constexpr std::uint64_t kBase = 0x10000000;
constexpr std::int64_t kThreeBillion = 3'000'000'000;

// Byte at address a: 'a' + (a - base) % 26, readable from base for size bytes.
class SyntheticReader : public Reader {
public:
    explicit SyntheticReader(std::uint64_t size) : size_(size) {}
    Status read(std::uint64_t address, void* dest, std::size_t size) override {
        if (address < kBase || address - kBase + size > size_)
            return unreadableAt(address);
        auto* out = static_cast<unsigned char*>(dest);
        for (std::size_t k = 0; k < size; ++k)
            out[k] = static_cast<unsigned char>('a' + (address - kBase + k) % 26);
        return Status::Ok();
    }

private:
    std::uint64_t size_;
};

std::string charCell(std::int64_t index) {
    const char c = static_cast<char>('a' + index % 26);
    return std::to_string(static_cast<int>(c)) + " '" + c + "'";
}

TEST(Extents, ThreeBillionCharsHaveExactBoundsAndRows) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Char, kBase, {kThreeBillion});
    SyntheticReader reader(static_cast<std::uint64_t>(kThreeBillion));
    Result<ArrayInfo> info = arrayInfo(a);
    ASSERT_TRUE(info.ok()) << info.message();
    EXPECT_EQ(info->arrayBounds, (std::vector<std::string>{"0:2999999999"}));
    EXPECT_EQ(info->emptySlice, "[0:2999999999]");

    TableOptions o = TableOptions::Defaults();
    o.usingViewPort = true;
    o.viewport = Viewport{kThreeBillion - 5, kThreeBillion + 100, 0, 0};
    Result<Table> t = tableCells(a, reader, "", "", o);
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowCount, kThreeBillion);
    EXPECT_EQ(t->rowLowerBound, 0);
    EXPECT_EQ(t->rowUpperBound, kThreeBillion - 1);
    EXPECT_EQ(t->tableStartRow, kThreeBillion - 5);
    EXPECT_EQ(t->tableEndRow, kThreeBillion - 1);
    EXPECT_EQ(t->dataStartRow, kThreeBillion - 5);
    EXPECT_EQ(t->dataEndRow, kThreeBillion - 1);
    ASSERT_EQ(t->cells.size(), 5u);
    for (std::int64_t row = kThreeBillion - 5; row < kThreeBillion; ++row)
        EXPECT_EQ(t->cell(row, 0), charCell(row)) << row;

    // Reversed, with a stride: row k is index 2999999999 - 7k.
    o.viewport = Viewport{428'571'420, 428'571'430, 0, 0};
    Result<Table> r = tableCells(a, reader, "[2999999999:0:-7]", "", o);
    ASSERT_TRUE(r.ok()) << r.message();
    EXPECT_EQ(r->rowCount, 428'571'429);
    EXPECT_EQ(r->rowLowerBound, kThreeBillion - 1);
    EXPECT_EQ(r->rowUpperBound, kThreeBillion - 1 - 7 * 428'571'428LL);
    EXPECT_EQ(r->rowStride, -7);
    EXPECT_EQ(r->slice, "[2999999999:0:-7]");
    ASSERT_EQ(r->visibleRowCount, 9);
    EXPECT_EQ(r->cell(428'571'428, 0), charCell(kThreeBillion - 1 - 7 * 428'571'428LL));

    // The plot refuses with the exact count.
    Result<PlotValues> p = plotValues(a, reader, "", "");
    ASSERT_FALSE(p.ok());
    EXPECT_EQ(p.message(), "The plot would have 3000000000 values, more than the 2000000 it can "
                           "show. Give the slice a stride of 1500 or more in one of its "
                           "dimensions.");
}

TEST(Extents, ColumnsPastTwoToTheThirtyOne) {
    // char [3][1000000000]: a billion columns, read at the far end.
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Char, kBase, {3, 1'000'000'000});
    SyntheticReader reader(static_cast<std::uint64_t>(kThreeBillion));
    TableOptions o = TableOptions::Defaults();
    o.usingViewPort = true;
    o.viewport = Viewport{0, -1, 999'999'998, 5'000'000'000};
    Result<Table> t = tableCells(a, reader, "", "", o);
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowCount, 3);
    EXPECT_EQ(t->colCount, 1'000'000'000);
    EXPECT_EQ(t->tableEndCol, 999'999'999);
    ASSERT_EQ(t->cells.size(), 6u);
    EXPECT_EQ(t->cell(2, 999'999'999), charCell(kThreeBillion - 1));
    EXPECT_EQ(t->cell(1, 999'999'998), charCell(1'999'999'998));
}

TEST(Extents, HugeStridesSelectOneElementWithoutOverflow) {
    std::vector<double> v(10);
    for (std::size_t k = 0; k < v.size(); ++k)
        v[k] = 0.5 + static_cast<double>(k);
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Double,
                                                reinterpret_cast<std::uintptr_t>(v.data()), {10});
    BufferReader reader(v.data(), v.size() * 8);
    // 2^60 and more times 8 bytes is past 2^63: only the first index is
    // selected, and the stride is never stepped.
    for (const char* slice : {"[0:9:1152921504606846976]", "[9:0:-9223372036854775808]",
                              "[2:9:9223372036854775807]", "[::4611686018427387904]"}) {
        SCOPED_TRACE(slice);
        Result<Slice> s = parseSlice(slice, a);
        ASSERT_TRUE(s.ok()) << s.message();
        EXPECT_EQ(s->dims[0].count, 1);
        Layout l = layoutOf(a, s->dims);
        EXPECT_EQ(l.count(), 1u);
        Result<Table> t = tableCells(a, reader, slice, "");
        ASSERT_TRUE(t.ok()) << t.message();
        EXPECT_EQ(t->rowCount, 1);
        ASSERT_EQ(t->cells.size(), 1u);
        EXPECT_EQ(t->cells[0], slice[1] == '9' ? "9.5" : slice[1] == '2' ? "2.5" : "0.5");
        Result<Statistics> st = computeStatistics(a, reader, slice, "");
        ASSERT_TRUE(st.ok()) << st.message();
        EXPECT_EQ(st->count, 1u);
        Result<PlotValues> p = plotValues(a, reader, slice, "");
        ASSERT_TRUE(p.ok()) << p.message();
        ASSERT_EQ(p->values.size(), 1u);
    }
    // A viewport far past the table: no cells, no overflow.
    TableOptions o = TableOptions::Defaults();
    o.usingViewPort = true;
    o.viewport =
        Viewport{std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::max(),
                 std::numeric_limits<std::int64_t>::max(), -1};
    Result<Table> far = tableCells(a, reader, "[0:9:1152921504606846976]", "", o);
    ASSERT_TRUE(far.ok()) << far.message();
    EXPECT_TRUE(far->cells.empty());
    EXPECT_EQ(far->visibleRowCount, 0);
    EXPECT_EQ(far->dataStartRow, 0);
}

TEST(Extents, DimensionNumbersOfAnySizeAreRefusedInWords) {
    std::vector<std::int32_t> v(6);
    ArrayDescriptor grid = ArrayDescriptor::cArray(
        ElementKind::Int32, reinterpret_cast<std::uintptr_t>(v.data()), {2, 3});
    ArrayDescriptor line = ArrayDescriptor::cArray(ElementKind::Int32,
                                                   reinterpret_cast<std::uintptr_t>(v.data()), {6});
    BufferReader reader(v.data(), v.size() * 4);
    TableOptions o = TableOptions::Defaults();
    o.rowDim = 2147483647;
    o.colDim = 0;
    EXPECT_EQ(tableCells(grid, reader, "", "", o).message(),
              "Row dimension 2147483648 does not exist: the array has 2 dimensions.");
    EXPECT_EQ(tableCells(line, reader, "", "", o).message(),
              "Row dimension 2147483648 does not exist: the array has 1 dimension.");
    o.rowDim = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(tableCells(grid, reader, "", "", o).message(),
              "Row dimension 9223372036854775808 does not exist: the array has 2 dimensions.");
    o.rowDim = 0;
    o.colDim = 4294967296;
    EXPECT_EQ(tableCells(grid, reader, "", "", o).message(),
              "Column dimension 4294967297 does not exist: the array has 2 dimensions.");
}

TEST(Extents, DescriptorsBeyondSixtyFourBitsAreRefused) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int8, kBase, {10});
    a.dims[0] = Dimension{std::numeric_limits<std::int64_t>::min(),
                          std::numeric_limits<std::int64_t>::max(), 1};
    Result<ArrayInfo> wide = arrayInfo(a);
    ASSERT_FALSE(wide.ok());
    EXPECT_EQ(wide.message(), "The array is too large: dimension 1 (i), bounds "
                              "-9223372036854775808:9223372036854775807, reaches beyond what "
                              "64-bit offsets can address.");
    // Bounds that fit, but bytes that do not.
    a.dims[0] = Dimension{0, 1LL << 61, 8};
    EXPECT_FALSE(arrayInfo(a).ok());
    // Elements that fit one by one but not together.
    ArrayDescriptor b = ArrayDescriptor::cArray(ElementKind::Int8, kBase, {1LL << 40, 1LL << 40});
    for (Dimension& d : b.dims)
        d.byteStride = 0;
    SyntheticReader one(1);
    Result<Table> t = tableCells(b, one, "", "");
    ASSERT_FALSE(t.ok());
    EXPECT_EQ(t.message(), "The array is too large: it has more than 2^63 elements.");
    // The largest that fits is taken.
    ArrayDescriptor c = ArrayDescriptor::cArray(ElementKind::Int8, kBase, {10});
    c.dims[0] = Dimension{std::numeric_limits<std::int64_t>::max() - 9,
                          std::numeric_limits<std::int64_t>::max(), 1};
    Result<ArrayInfo> top = arrayInfo(c);
    ASSERT_TRUE(top.ok()) << top.message();
    EXPECT_EQ(top->arrayBounds[0], "9223372036854775798:9223372036854775807");
    SyntheticReader reader(10);
    Result<Table> tt = tableCells(c, reader, "", "");
    ASSERT_TRUE(tt.ok()) << tt.message();
    EXPECT_EQ(tt->rowUpperBound, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(tt->cells.size(), 10u);
}

} // namespace
