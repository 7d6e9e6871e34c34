// Descriptors, the buffer reader, and the tiles the engine reads.
#include "arraylens/descriptor.h"
#include "arraylens/parallel.h"
#include "arraylens/reader.h"
#include "arraylens/slice.h"
#include "arraylens/walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <numeric>

using namespace arraylens;

namespace {

TEST(Descriptor, CAndFortranStrides) {
    ArrayDescriptor c = ArrayDescriptor::cArray(ElementKind::Int16, 100, {3, 4, 5});
    EXPECT_EQ(c.elementSize, 2u);
    EXPECT_EQ(c.dims[0].byteStride, 40);
    EXPECT_EQ(c.dims[1].byteStride, 10);
    EXPECT_EQ(c.dims[2].byteStride, 2);
    EXPECT_EQ(c.elementCount(), 60u);
    ArrayDescriptor f =
        ArrayDescriptor::fortranArray(ElementKind::FortranReal8, 0, {{-1, 1}, {0, 3}});
    EXPECT_EQ(f.dims[0].byteStride, 8);
    EXPECT_EQ(f.dims[1].byteStride, 24);
    EXPECT_EQ(f.dims[0].extent(), 3);
    EXPECT_EQ(f.language, Language::Fortran);
}

TEST(Descriptor, EveryKindHasItsSizeAndClass) {
    for (ElementKind k : allElementKinds()) {
        ArrayDescriptor a = ArrayDescriptor::cArray(k, 0, {2});
        EXPECT_TRUE(validate(a).ok()) << kindInfo(k).name;
    }
    EXPECT_EQ(kindInfo(ElementKind::LongDouble).size, 16u);
    ArrayDescriptor ld = ArrayDescriptor::cArray(ElementKind::LongDouble, 0, {2});
    for (std::size_t size : {10u, 12u, 16u}) {
        ld.elementSize = size;
        EXPECT_TRUE(validate(ld).ok()) << size;
    }
    ld.elementSize = 8;
    EXPECT_EQ(validate(ld).message(), "Elements of type long double cannot be 8 bytes long.");
    EXPECT_EQ(dataTypeOf(ElementKind::Bool), DataType::Integer);
    EXPECT_EQ(dataTypeOf(ElementKind::FortranLogical8), DataType::Integer);
    EXPECT_EQ(dataTypeOf(ElementKind::Char16), DataType::Character);
    EXPECT_EQ(dataTypeOf(ElementKind::FortranReal4), DataType::Float);
}

TEST(Descriptor, LanguageNames) {
    EXPECT_EQ(languageFromName("c"), Language::C);
    EXPECT_EQ(languageFromName("C++"), Language::C);
    EXPECT_EQ(languageFromName("UPC"), Language::C);
    EXPECT_EQ(languageFromName("fortran"), Language::Fortran);
    EXPECT_EQ(languageFromName("ada"), Language::Fortran);
}

TEST(BufferReaderTest, ReadsInsideAndRefusesOutside) {
    std::vector<unsigned char> bytes(64);
    std::iota(bytes.begin(), bytes.end(), 0);
    BufferReader r(bytes.data(), bytes.size(), 0x1000);
    unsigned char out[8];
    ASSERT_TRUE(r.read(0x1038, out, 8).ok());
    EXPECT_EQ(out[7], 63);
    EXPECT_EQ(r.read(0x1039, out, 8).message(), "Cannot read memory at address 0x1039.");
    EXPECT_EQ(r.read(0xfff, out, 1).message(), "Cannot read memory at address 0xfff.");
}

// Every tile plan, whatever its tile size, visits every selected element
// once, in result order.
TEST(Tiles, VisitEveryElementOnceInResultOrder) {
    std::vector<std::int32_t> data(7 * 9 * 11);
    std::iota(data.begin(), data.end(), 0);
    ArrayDescriptor f = ArrayDescriptor::fortranArray(ElementKind::FortranInteger4,
                                                      reinterpret_cast<std::uintptr_t>(data.data()),
                                                      {{1, 7}, {1, 9}, {1, 11}});
    BufferReader reader(data.data(), data.size() * 4);
    for (const char* text : {"", "(7:1:-2, :, 11:1:-5)", "[2:6][::-1][3]", "(4, 5, :)"}) {
        Result<Slice> s = parseSlice(text, f);
        ASSERT_TRUE(s.ok()) << s.message();
        // The expected order by plain loops, first dimension slowest.
        std::vector<std::int32_t> expected;
        const auto& d = s->dims;
        for (std::int64_t a = 0; a < d[0].count; ++a)
            for (std::int64_t b = 0; b < d[1].count; ++b)
                for (std::int64_t c = 0; c < d[2].count; ++c)
                    expected.push_back(static_cast<std::int32_t>(
                        (d[0].index(a) - 1) + (d[1].index(b) - 1) * 7 + (d[2].index(c) - 1) * 63));
        for (std::size_t tileBytes : {4u, 12u, 100u, 1000u, 1u << 20}) {
            SCOPED_TRACE(std::string(text) + " tile " + std::to_string(tileBytes));
            TilePlan plan(layoutOf(f, s->dims), tileBytes);
            std::vector<std::int32_t> seen(expected.size(), -1);
            std::vector<int> visits(expected.size(), 0);
            std::mutex m;
            Status st = forEachTile(plan, reader, 2, [&](int, std::uint64_t, const TileView& v) {
                std::lock_guard<std::mutex> lock(m);
                std::size_t at = static_cast<std::size_t>(v.firstIndex);
                for (const ElementRun& run : v.runs) {
                    const unsigned char* p = run.first;
                    for (std::size_t k = 0; k < run.count; ++k, p += run.step, ++at) {
                        std::int32_t x;
                        std::memcpy(&x, p, 4);
                        seen[at] = x;
                        ++visits[at];
                    }
                }
                EXPECT_EQ(at, v.firstIndex + v.count);
                return Status::Ok();
            });
            ASSERT_TRUE(st.ok()) << st.message();
            EXPECT_EQ(seen, expected);
            EXPECT_EQ(std::count(visits.begin(), visits.end(), 1),
                      static_cast<std::ptrdiff_t>(visits.size()));
        }
    }
}

} // namespace
