// Slice texts: both forms, empty ends, fixed dimensions, result order, and
// every refusal with its message.
#include "arraylens/slice.h"

#include <gtest/gtest.h>

using namespace arraylens;

namespace {

ArrayDescriptor cArray3() {
    return ArrayDescriptor::cArray(ElementKind::Int32, 0x1000, {10, 20, 30});
}

std::string refusal(std::string_view text, const ArrayDescriptor& a) {
    Result<Slice> r = parseSlice(text, a);
    EXPECT_FALSE(r.ok()) << "accepted '" << text << "'";
    if (r.ok())
        return "";
    EXPECT_EQ(r.error().code, ErrorCode::BadSlice);
    return r.message();
}

TEST(Slice, EmptyTextIsTheWholeArray) {
    const ArrayDescriptor a = cArray3();
    for (const char* text : {"", "   "}) {
        Result<Slice> r = parseSlice(text, a);
        ASSERT_TRUE(r.ok()) << r.message();
        EXPECT_TRUE(r->whole);
        EXPECT_EQ(r->rank(), 3u);
        EXPECT_EQ(r->count(), 6000u);
        EXPECT_EQ(r->dims[2].start, 0);
        EXPECT_EQ(r->dims[2].end, 29);
    }
}

TEST(Slice, FormIsToldByTheFirstCharacter) {
    ArrayDescriptor f = ArrayDescriptor::fortranArray(ElementKind::Double, 0, {{1, 10}, {-2, 5}});
    Result<Slice> c = parseSlice("[2:4][0:5:2]", f);
    ASSERT_TRUE(c.ok()) << c.message();
    EXPECT_EQ(c->form, Language::C);
    Result<Slice> fo = parseSlice(" ( 2 : 4 , -2 : 5 : 2 ) ", f);
    ASSERT_TRUE(fo.ok()) << fo.message();
    EXPECT_EQ(fo->form, Language::Fortran);
    EXPECT_EQ(fo->dims[1].count, 4);
    // The empty slice takes the language's form.
    EXPECT_EQ(parseSlice("", f)->form, Language::Fortran);
}

TEST(Slice, EmptyEndsStandForTheBoundsInTheStrideDirection) {
    const ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int8, 0, {10});
    auto dim = [&](const char* text) { return parseSlice(text, a).value().dims[0]; };
    EXPECT_EQ(dim("[:5]").start, 0);
    EXPECT_EQ(dim("[:5]").count, 6);
    EXPECT_EQ(dim("[3:]").end, 9);
    EXPECT_EQ(dim("[3:]").count, 7);
    EXPECT_EQ(dim("[::2]").count, 5);
    EXPECT_EQ(dim("[::-1]").start, 9);
    EXPECT_EQ(dim("[::-1]").end, 0);
    EXPECT_EQ(dim("[:]").count, 10);
    EXPECT_EQ(dim("[:3:-3]").start, 9);
    EXPECT_EQ(dim("[:3:-3]").count, 3); // 9, 6, 3
}

TEST(Slice, NegativeStrideReverses) {
    const ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int8, 0, {10});
    Result<Slice> r = parseSlice("[9:0:-1]", a);
    ASSERT_TRUE(r.ok());
    EXPECT_EQ(r->dims[0].count, 10);
    EXPECT_EQ(r->dims[0].last(), 0);
    Result<Slice> s = parseSlice("[8:1:-3]", a);
    ASSERT_TRUE(s.ok());
    EXPECT_EQ(s->dims[0].count, 3); // 8, 5, 2
    EXPECT_EQ(s->dims[0].last(), 2);
}

TEST(Slice, SingleIndexFixesTheDimensionAndDropsItFromTheRank) {
    const ArrayDescriptor a = cArray3();
    Result<Slice> r = parseSlice("[3][4:4][0:0:1]", a);
    ASSERT_TRUE(r.ok()) << r.message();
    EXPECT_TRUE(r->dims[0].fixed);
    EXPECT_TRUE(r->dims[1].fixed);
    EXPECT_TRUE(r->dims[2].fixed);
    EXPECT_EQ(r->rank(), 0u);
    // A range of extent 1 that is not one index stays in the rank.
    Result<Slice> k = parseSlice("[3][0:1:5][:]", a);
    ASSERT_TRUE(k.ok()) << k.message();
    EXPECT_FALSE(k->dims[1].fixed);
    EXPECT_EQ(k->dims[1].count, 1);
    EXPECT_EQ(k->rank(), 2u);
    EXPECT_EQ(k->keptDims(), (std::vector<std::size_t>{1, 2}));
}

TEST(Slice, LayoutListsKeptDimensionsRowMajorInDeclarationOrder) {
    // Fortran (column-major) array: the result still runs first dimension
    // slowest.
    ArrayDescriptor f =
        ArrayDescriptor::fortranArray(ElementKind::Double, 8000, {{1, 4}, {1, 5}, {1, 6}});
    Result<Slice> r = parseSlice("(2:4, 3, 6:1:-2)", f);
    ASSERT_TRUE(r.ok()) << r.message();
    Layout l = layoutOf(f, r->dims);
    EXPECT_EQ(l.extents, (std::vector<std::int64_t>{3, 3}));
    EXPECT_EQ(l.byteStrides, (std::vector<std::int64_t>{8, -2 * 4 * 5 * 8}));
    EXPECT_EQ(l.base, 8000u + 8 * (1 + 2 * 4 + 5 * 20));
}

TEST(Slice, WrittenForms) {
    ArrayDescriptor c = ArrayDescriptor::cArray(ElementKind::Int32, 0, {10, 20});
    EXPECT_EQ(wholeArraySliceText(c), "[0:9][0:19]");
    ArrayDescriptor f = ArrayDescriptor::fortranArray(ElementKind::Double, 0, {{0, 9}, {-2, 5}});
    EXPECT_EQ(wholeArraySliceText(f), "(0:9,-2:5)");
    Result<Slice> r = parseSlice("[::2][3]", c);
    ASSERT_TRUE(r.ok());
    EXPECT_EQ(normalFormText(r->dims, Language::C), "[0:9:2][3:3:1]");
    EXPECT_EQ(normalFormText(r->dims, Language::Fortran), "(0:9:2,3:3:1)");
}

TEST(SliceRefusal, DimensionCount) {
    const ArrayDescriptor a = cArray3();
    EXPECT_EQ(refusal("[1:2][3:4]", a), "Slice has 2 dimensions but the array has 3.");
    EXPECT_EQ(refusal("(1:2)", a), "Slice has 1 dimension but the array has 3.");
    EXPECT_EQ(refusal("[:][:][:][:]", a), "Slice has 4 dimensions but the array has 3.");
}

TEST(SliceRefusal, IndexOutsideTheBounds) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int32, 0, {10, 20});
    EXPECT_EQ(refusal("[12][:]", a),
              "Slice index 12 is outside the bounds 0:9 of dimension 1 (i).");
    EXPECT_EQ(refusal("[0:12][:]", a),
              "Slice index 12 is outside the bounds 0:9 of dimension 1 (i).");
    EXPECT_EQ(refusal("[:][-1:5]", a),
              "Slice index -1 is outside the bounds 0:19 of dimension 2 (j).");
    ArrayDescriptor f = ArrayDescriptor::fortranArray(ElementKind::Double, 0, {{1, 10}, {-2, 5}});
    EXPECT_EQ(refusal("(1:10, -3:5)", f),
              "Slice index -3 is outside the bounds -2:5 of dimension 2 (j).");
}

TEST(SliceRefusal, ZeroStride) {
    const ArrayDescriptor a = cArray3();
    EXPECT_EQ(refusal("[:][0:5:0][:]", a), "Slice stride must not be 0 (dimension 2).");
}

TEST(SliceRefusal, SelectsNoElements) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int32, 0, {10, 20});
    EXPECT_EQ(refusal("[0:9:-1][:]", a),
              "Slice selects no elements in dimension 1: with stride -1 the start must not be "
              "below the end.");
    EXPECT_EQ(refusal("[:][9:0:2]", a),
              "Slice selects no elements in dimension 2: with stride 2 the start must not be "
              "above the end.");
}

TEST(SliceRefusal, CannotRead) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int32, 0, {10});
    EXPECT_EQ(refusal("[1:2", a), "Cannot read the slice '[1:2' at column 5: expected ']'.");
    EXPECT_EQ(refusal("1:2", a), "Cannot read the slice '1:2' at column 1: expected '[' or '('.");
    EXPECT_EQ(refusal("[]", a),
              "Cannot read the slice '[]' at column 2: expected an index or ':'.");
    EXPECT_EQ(refusal("[1 2]", a),
              "Cannot read the slice '[1 2]' at column 4: expected ':' or ']'.");
    EXPECT_EQ(refusal("[1:2:]", a),
              "Cannot read the slice '[1:2:]' at column 6: expected a stride.");
    EXPECT_EQ(refusal("[-x]", a), "Cannot read the slice '[-x]' at column 3: expected a digit.");
    EXPECT_EQ(refusal("[1:2]x", a), "Cannot read the slice '[1:2]x' at column 6: expected '['.");
    EXPECT_EQ(refusal("[99999999999999999999]", a),
              "Cannot read the slice '[99999999999999999999]' at column 2: the number is too "
              "large.");
    EXPECT_EQ(refusal("(1:2;", a),
              "Cannot read the slice '(1:2;' at column 5: expected ',' or ')'.");
    EXPECT_EQ(refusal("(1:2) 3", a),
              "Cannot read the slice '(1:2) 3' at column 7: expected the end of the slice.");
    EXPECT_EQ(refusal("(1 2)", a),
              "Cannot read the slice '(1 2)' at column 4: expected ':', ',' or ')'.");
}

TEST(SliceRefusal, LargestIndicesDoNotOverflow) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int32, 0, {10});
    EXPECT_EQ(refusal("[-9223372036854775808:9]", a),
              "Slice index -9223372036854775808 is outside the bounds 0:9 of dimension 1 (i).");
    EXPECT_EQ(refusal("[9223372036854775807:0:-9223372036854775807]", a),
              "Slice index 9223372036854775807 is outside the bounds 0:9 of dimension 1 (i).");
}

} // namespace
