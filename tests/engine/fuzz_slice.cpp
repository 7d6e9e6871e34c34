// libFuzzer target for slice texts, and the table over what they select.
// The first bytes of an input shape an array (rank, form, bounds from small
// to the ends of 64 bits, the table's dimensions and viewport); the rest is
// the slice text. Besides "no crash, no overflow" (the sanitizers watch
// those) it checks on every input:
//  - a refusal says what is wrong, in a message of bounded length;
//  - a parsed slice stays within the array's bounds, its count is the
//    product of its dimensions', and every element of its layout lies
//    inside the array's memory;
//  - the slice written in normal form reads back to the same ranges;
//  - a table of it has one cell per row and column of its viewport.
#include "arraylens/slice.h"
#include "arraylens/table.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

using namespace arraylens;

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "fuzz_slice: property violated: %s\n", what);
        std::abort();
    }
}

// Messages quote at most about 80 characters of the text.
constexpr std::size_t kMaxMessage = 600;

constexpr std::int64_t kLowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();
const std::int64_t kLowerBounds[] = {0, 1, -1, -3, 7, 1000, kHighest - 4, kLowest, -2147483648LL};

class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    std::uint8_t next() { return pos_ < size_ ? data_[pos_++] : 0; }
    std::int64_t next64() {
        std::uint64_t v = 0;
        for (int k = 0; k < 8; ++k)
            v = v << 8 | next();
        return static_cast<std::int64_t>(v);
    }
    std::string_view rest() const {
        return pos_ < size_
                   ? std::string_view(reinterpret_cast<const char*>(data_ + pos_), size_ - pos_)
                   : std::string_view();
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

// A viewport end or a dimension number: mostly small, now and then any.
std::int64_t smallOrAny(Bytes& in) {
    const std::uint8_t b = in.next();
    if (b < 0xF0)
        return static_cast<std::int64_t>(b % 16) - 2;
    return in.next64();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes in(data, size);
    const std::uint8_t shape = in.next();
    const std::size_t rank = 1 + shape % 4;
    const bool fortran = (shape & 0x10) != 0;
    std::vector<std::pair<std::int64_t, std::int64_t>> bounds;
    std::vector<std::int64_t> extents;
    for (std::size_t d = 0; d < rank; ++d) {
        const std::uint8_t b = in.next();
        const std::int64_t extent = b % 6; // 0 to 5
        std::int64_t lower = kLowerBounds[(b >> 3) % (sizeof kLowerBounds / 8)];
        // An empty dimension's upper bound is one below its lower one.
        if (extent == 0 && lower == kLowest)
            ++lower;
        extents.push_back(extent);
        // The top lower bound leaves room for five elements.
        bounds.emplace_back(lower, lower + (extent - 1));
    }
    std::uint64_t elements = 1;
    for (std::int64_t e : extents)
        elements *= static_cast<std::uint64_t>(e);
    std::vector<std::int32_t> memory(elements > 0 ? elements : 1);
    for (std::size_t k = 0; k < memory.size(); ++k)
        memory[k] = static_cast<std::int32_t>(k);
    const auto address = reinterpret_cast<std::uintptr_t>(memory.data());
    ArrayDescriptor array;
    if (fortran) {
        array = ArrayDescriptor::fortranArray(ElementKind::Int32, address, bounds);
    } else {
        array = ArrayDescriptor::cArray(ElementKind::Int32, address, extents);
        for (std::size_t d = 0; d < rank; ++d) {
            array.dims[d].lower = bounds[d].first;
            array.dims[d].upper = bounds[d].second;
        }
    }
    check(validate(array).ok(), "the array is valid");

    TableOptions options;
    options.threads = 1;
    options.rowDim = smallOrAny(in);
    options.colDim = smallOrAny(in);
    options.usingViewPort = (in.next() & 1) != 0;
    options.viewport = Viewport{smallOrAny(in), smallOrAny(in), smallOrAny(in), smallOrAny(in)};
    options.format = static_cast<DataFormat>(in.next() % 9);
    const std::string_view text = in.rest();

    Result<Slice> parsed = parseSlice(text, array);
    if (!parsed.ok()) {
        check(!parsed.message().empty(), "a refusal says why");
        check(parsed.message().size() <= kMaxMessage, "a refusal is short");
        check(parsed.error().code == ErrorCode::BadSlice, "a refusal is a slice error");
    } else {
        const Slice& s = parsed.value();
        check(s.dims.size() == rank, "one range per dimension");
        std::uint64_t count = 1;
        for (std::size_t d = 0; d < rank; ++d) {
            const SliceDim& sd = s.dims[d];
            const Dimension& ad = array.dims[d];
            check(sd.count >= 0 && sd.count <= ad.extent(), "count within the extent");
            check(sd.stride != 0, "stride not 0");
            if (sd.count > 0) {
                check(sd.start >= ad.lower && sd.start <= ad.upper, "start within bounds");
                check(sd.last() >= ad.lower && sd.last() <= ad.upper, "last within bounds");
            }
            check(!sd.fixed || sd.count == 1, "a fixed dimension selects one index");
            count *= static_cast<std::uint64_t>(sd.count);
        }
        check(count == s.count(), "count is the product");
        const Layout layout = layoutOf(array, s.dims);
        check(layout.count() == s.count(), "the layout has the slice's elements");
        // Every element of the layout inside the array's memory.
        if (layout.count() > 0 && layout.count() <= memory.size()) {
            std::vector<std::int64_t> at(layout.extents.size(), 0);
            for (std::uint64_t k = 0; k < layout.count(); ++k) {
                std::int64_t offset = 0;
                for (std::size_t d = 0; d < at.size(); ++d)
                    offset += at[d] * layout.byteStrides[d];
                const std::uint64_t a = layout.base + static_cast<std::uint64_t>(offset);
                check(a >= address && a + 4 <= address + memory.size() * 4 &&
                          (a - address) % 4 == 0,
                      "element inside the array");
                for (std::size_t d = at.size(); d-- > 0;) {
                    if (++at[d] < layout.extents[d])
                        break;
                    at[d] = 0;
                }
            }
        }
        bool anyEmpty = false;
        for (std::int64_t e : extents)
            anyEmpty = anyEmpty || e == 0;
        if (!anyEmpty) {
            const std::string normal = normalFormText(s.dims, s.form);
            Result<Slice> again = parseSlice(normal, array);
            check(again.ok(), "the normal form reads back");
            for (std::size_t d = 0; d < rank; ++d) {
                const SliceDim& x = s.dims[d];
                const SliceDim& y = again->dims[d];
                check(x.start == y.start && x.end == y.end && x.stride == y.stride &&
                          x.count == y.count,
                      "the normal form is the same slice");
                // `n:n:1` is fixed by definition, also where `:` of a
                // one-element dimension kept it.
                check(x.fixed == y.fixed || x.start == x.end, "the normal form keeps the rank");
            }
        }
    }

    BufferReader reader(memory.data(), memory.size() * 4);
    Result<Table> table = tableCells(array, reader, text, "", options);
    if (!table.ok()) {
        check(!table.message().empty(), "a table refusal says why");
        check(table.message().size() <= kMaxMessage, "a table refusal is short");
        if (parsed.ok())
            check(table.error().code != ErrorCode::BadSlice, "the slice was read before");
    } else {
        const Table& t = table.value();
        check(parsed.ok(), "a table only of a slice that reads");
        check(t.visibleRowCount >= 0 && t.visibleColCount >= 0, "counts not negative");
        check(t.cells.size() == static_cast<std::uint64_t>(t.visibleRowCount) *
                                    static_cast<std::uint64_t>(t.visibleColCount),
              "one cell per row and column");
        check(t.visibleRowCount <= t.rowCount && t.visibleColCount <= t.colCount,
              "the viewport inside the table");
        for (const std::string& cell : t.cells)
            check(!cell.empty(), "every cell has a text without a filter");
    }
    return 0;
}
