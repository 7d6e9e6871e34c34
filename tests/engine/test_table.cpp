// Table planes, the viewport, the normal form of the applied slice, and
// array information.
#include "arraylens/info.h"
#include "arraylens/table.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace arraylens;

namespace {

struct Cube {
    std::vector<std::int32_t> data = std::vector<std::int32_t>(3 * 10 * 20);
    ArrayDescriptor array;
    Cube() {
        // Element [i][j][k] holds 1000 i + 100 j... as ijk: i*10000 + j*100 + k.
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 10; ++j)
                for (int k = 0; k < 20; ++k)
                    data[static_cast<std::size_t>((i * 10 + j) * 20 + k)] = i * 10000 + j * 100 + k;
        array = ArrayDescriptor::cArray(ElementKind::Int32,
                                        reinterpret_cast<std::uintptr_t>(data.data()), {3, 10, 20});
        array.expression = "cube";
        array.typeName = "int [3][10][20]";
    }
    BufferReader reader() const { return BufferReader(data.data(), data.size() * 4); }
};

TEST(Table, DefaultPlaneOfACArrayIsTheLastTwoDimensions) {
    Cube c;
    BufferReader r = c.reader();
    Result<Table> t = tableCells(c.array, r, "", "");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowDim, 1);
    EXPECT_EQ(t->colDim, 2);
    EXPECT_EQ(t->rowCount, 10);
    EXPECT_EQ(t->colCount, 20);
    EXPECT_EQ(t->slice, "[0:0:1][0:9:1][0:19:1]");
    EXPECT_EQ(t->emptySlice, "[0:2][0:9][0:19]");
    EXPECT_EQ(t->arrayName, "cube");
    EXPECT_EQ(t->actualType, "int [3][10][20]");
    EXPECT_EQ(t->dimCount, 3);
    EXPECT_EQ(t->dataType, DataType::Integer);
    ASSERT_EQ(t->cells.size(), 200u);
    EXPECT_EQ(t->cell(0, 0), "0");
    EXPECT_EQ(t->cell(9, 19), "919");
    EXPECT_EQ(t->cell(3, 7), "307");
}

TEST(Table, OtherDimensionsAreFixedAtTheSlicesFirstIndex) {
    Cube c;
    BufferReader r = c.reader();
    Result<Table> t = tableCells(c.array, r, "[2:0:-1][0:9][0:19:2]", "");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->slice, "[2:2:1][0:9:1][0:19:2]");
    EXPECT_EQ(t->colCount, 10);
    EXPECT_EQ(t->colStride, 2);
    EXPECT_EQ(t->colLowerBound, 0);
    EXPECT_EQ(t->colUpperBound, 18);
    EXPECT_EQ(t->cell(4, 3), "20406");
}

TEST(Table, ReversedDimensionHasItsLowerBoundAboveItsUpper) {
    Cube c;
    BufferReader r = c.reader();
    Result<Table> t = tableCells(c.array, r, "[1][9:0:-3][:]", "");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowCount, 4);
    EXPECT_EQ(t->rowLowerBound, 9);
    EXPECT_EQ(t->rowUpperBound, 0);
    EXPECT_EQ(t->rowStride, -3);
    EXPECT_EQ(t->slice, "[1:1:1][9:0:-3][0:19:1]");
    EXPECT_EQ(t->cell(1, 5), "10605");
}

TEST(Table, ChosenDimensionsMayRunAgainstTheDeclarationOrder) {
    Cube c;
    BufferReader r = c.reader();
    TableOptions o = TableOptions::Defaults();
    o.rowDim = 2;
    o.colDim = 0;
    Result<Table> t = tableCells(c.array, r, "[:][4][:]", "", o);
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowCount, 20);
    EXPECT_EQ(t->colCount, 3);
    EXPECT_EQ(t->slice, "[0:2:1][4:4:1][0:19:1]");
    EXPECT_EQ(t->cell(7, 2), "20407");
}

TEST(Table, ViewportIsClampedToTheTable) {
    Cube c;
    BufferReader r = c.reader();
    TableOptions o = TableOptions::Defaults();
    o.usingViewPort = true;
    o.viewport = Viewport{8, 20, -1, 3};
    o.format = DataFormat::Hex;
    Result<Table> t = tableCells(c.array, r, "", "", o);
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_TRUE(t->usingViewPort);
    EXPECT_EQ(t->tableStartRow, 8);
    EXPECT_EQ(t->tableEndRow, 9);
    EXPECT_EQ(t->tableStartCol, 0);
    EXPECT_EQ(t->tableEndCol, 3);
    EXPECT_EQ(t->visibleRowCount, 2);
    EXPECT_EQ(t->visibleColCount, 4);
    EXPECT_EQ(t->rowOffset, 8);
    EXPECT_EQ(t->dataStartRow, 8);
    EXPECT_EQ(t->dataEndCol, 3);
    EXPECT_EQ(t->dataFormat, DataFormat::Hex);
    ASSERT_EQ(t->cells.size(), 8u);
    EXPECT_EQ(t->cells[0], "0x320");   // 800
    EXPECT_EQ(t->cell(9, 3), "0x387"); // 903
    // Entirely outside: no cells.
    o.viewport = Viewport{12, 15, 0, 3};
    Result<Table> none = tableCells(c.array, r, "", "", o);
    ASSERT_TRUE(none.ok());
    EXPECT_TRUE(none->cells.empty());
    EXPECT_EQ(none->visibleRowCount, 0);
}

TEST(Table, CellsFailingTheFilterAreEmpty) {
    Cube c;
    BufferReader r = c.reader();
    Result<Table> t = tableCells(c.array, r, "[0][0:1][0:4]", "$value > 2 && $value < 102");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->filter, "$value > 2 && $value < 102");
    EXPECT_EQ(t->cells, (std::vector<std::string>{"", "", "", "3", "4", "100", "101", "", "", ""}));
}

TEST(Table, FortranDefaultsToTheFirstTwoDimensions) {
    std::vector<double> data(4 * 3 * 2);
    std::iota(data.begin(), data.end(), 0.5);
    ArrayDescriptor f = ArrayDescriptor::fortranArray(ElementKind::FortranReal8,
                                                      reinterpret_cast<std::uintptr_t>(data.data()),
                                                      {{1, 4}, {-1, 1}, {0, 1}});
    BufferReader r(data.data(), data.size() * 8);
    Result<Table> t = tableCells(f, r, "", "");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowDim, 0);
    EXPECT_EQ(t->colDim, 1);
    EXPECT_EQ(t->slice, "(1:4:1,-1:1:1,0:0:1)");
    EXPECT_EQ(t->dataType, DataType::Float);
    EXPECT_EQ(t->cell(2, 1), "6.5"); // (3, 0, 0): offset 2 + 1*4
    // A C-form slice of the same array puts the last two dimensions in the
    // table, and the written slice keeps the array's form.
    Result<Table> tc = tableCells(f, r, "[2][:][:]", "");
    ASSERT_TRUE(tc.ok()) << tc.message();
    EXPECT_EQ(tc->rowDim, 1);
    EXPECT_EQ(tc->colDim, 2);
    EXPECT_EQ(tc->slice, "(2:2:1,-1:1:1,0:1:1)");
    EXPECT_EQ(tc->cell(2, 1), "21.5"); // (2, 1, 1): 1 + 2*4 + 1*12
}

TEST(Table, OneDimensionIsOneColumn) {
    std::vector<std::int16_t> v{5, 6, 7};
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Int16,
                                                reinterpret_cast<std::uintptr_t>(v.data()), {3});
    BufferReader r(v.data(), 6);
    Result<Table> t = tableCells(a, r, "[::-1]", "");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->colDim, -1);
    EXPECT_EQ(t->colCount, 1);
    EXPECT_EQ(t->cells, (std::vector<std::string>{"7", "6", "5"}));
}

TEST(TableRefusal, Dimensions) {
    Cube c;
    BufferReader r = c.reader();
    TableOptions o = TableOptions::Defaults();
    o.rowDim = 3;
    o.colDim = 0;
    Result<Table> t = tableCells(c.array, r, "", "", o);
    ASSERT_FALSE(t.ok());
    EXPECT_EQ(t.message(), "Row dimension 4 does not exist: the array has 3 dimensions.");
    o.rowDim = 1;
    o.colDim = 7;
    EXPECT_EQ(tableCells(c.array, r, "", "", o).message(),
              "Column dimension 8 does not exist: the array has 3 dimensions.");
    o.colDim = 1;
    EXPECT_EQ(tableCells(c.array, r, "", "", o).message(),
              "Rows and columns cannot both run along dimension 2.");
}

TEST(TableRefusal, TooManyCells) {
    Cube c;
    BufferReader r = c.reader();
    TableOptions o = TableOptions::Defaults();
    o.maxCells = 100;
    Result<Table> t = tableCells(c.array, r, "", "", o);
    ASSERT_FALSE(t.ok());
    EXPECT_EQ(t.error().code, ErrorCode::TooLarge);
    EXPECT_EQ(t.message(), "The table view has 200 cells, more than the 100 one answer can "
                           "carry; ask for a smaller viewport.");
}

TEST(TableRefusal, SliceAndFilterErrorsPassThrough) {
    Cube c;
    BufferReader r = c.reader();
    EXPECT_EQ(tableCells(c.array, r, "[0][0]", "").message(),
              "Slice has 2 dimensions but the array has 3.");
    EXPECT_EQ(tableCells(c.array, r, "", "$value <").message(),
              "Filter error at column 9: expected a number or $value after '<'.");
}

TEST(TableRefusal, UnreadableMemory) {
    Cube c;
    BufferReader r(c.data.data(), 100); // the first 25 elements only
    Result<Table> t = tableCells(c.array, r, "", "");
    ASSERT_FALSE(t.ok());
    EXPECT_EQ(t.error().code, ErrorCode::Unreadable);
    EXPECT_NE(t.message().find("Cannot read memory at address 0x"), std::string::npos);
}

TEST(ArrayInformation, CAndFortran) {
    Cube c;
    Result<ArrayInfo> i = arrayInfo(c.array);
    ASSERT_TRUE(i.ok());
    EXPECT_EQ(i->arrayName, "cube");
    EXPECT_EQ(i->actualType, "int [3][10][20]");
    EXPECT_EQ(i->dimCount, 3);
    EXPECT_EQ(i->arrayBounds, (std::vector<std::string>{"0:2", "0:9", "0:19"}));
    EXPECT_EQ(i->emptySlice, "[0:2][0:9][0:19]");
    EXPECT_EQ(i->dataType, DataType::Integer);

    ArrayDescriptor f =
        ArrayDescriptor::fortranArray(ElementKind::FortranCharacter, 0, {{0, 9}, {-2, 5}});
    Result<ArrayInfo> fi = arrayInfo(f);
    ASSERT_TRUE(fi.ok());
    EXPECT_EQ(fi->arrayBounds, (std::vector<std::string>{"0:9", "-2:5"}));
    EXPECT_EQ(fi->emptySlice, "(0:9,-2:5)");
    EXPECT_EQ(fi->dataType, DataType::Character);
    f.kind = ElementKind::FortranLogical4;
    f.elementSize = 4;
    EXPECT_EQ(arrayInfo(f)->dataType, DataType::Integer);
    f.kind = ElementKind::LongDouble;
    f.elementSize = 16;
    EXPECT_EQ(arrayInfo(f)->dataType, DataType::Float);
}

TEST(ArrayInformation, RefusesBadDescriptors) {
    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Double, 0, {4});
    a.elementSize = 4;
    EXPECT_EQ(arrayInfo(a).message(), "Elements of type double cannot be 4 bytes long.");
    a.elementSize = 8;
    a.dims.clear();
    EXPECT_EQ(arrayInfo(a).message(), "The expression is not an array.");
}

} // namespace

namespace {

// A 5x5x5 cube whose element [i][j][k] holds 100 i + 10 j + k.
struct SmallCube {
    std::vector<std::int32_t> data = std::vector<std::int32_t>(125);
    ArrayDescriptor c, f;
    SmallCube() {
        for (int i = 0; i < 5; ++i)
            for (int j = 0; j < 5; ++j)
                for (int k = 0; k < 5; ++k)
                    data[static_cast<std::size_t>((i * 5 + j) * 5 + k)] = 100 * i + 10 * j + k;
        c = ArrayDescriptor::cArray(ElementKind::Int32,
                                    reinterpret_cast<std::uintptr_t>(data.data()), {5, 5, 5});
        // The same memory as a Fortran array x(0:4,0:4,0:4): x(k,j,i).
        f = ArrayDescriptor::fortranArray(ElementKind::FortranInteger4,
                                          reinterpret_cast<std::uintptr_t>(data.data()),
                                          {{0, 4}, {0, 4}, {0, 4}});
    }
    BufferReader reader() const { return BufferReader(data.data(), data.size() * 4); }
};

TEST(Table, DefaultPlaneIsMadeOfTheDimensionsTheSliceKeeps) {
    SmallCube cube;
    BufferReader r = cube.reader();
    Result<Table> t = tableCells(cube.c, r, "[:][:][2]", "");
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowDim, 0);
    EXPECT_EQ(t->colDim, 1);
    EXPECT_EQ(t->rowCount, 5);
    EXPECT_EQ(t->colCount, 5);
    EXPECT_EQ(t->slice, "[0:4:1][0:4:1][2:2:1]");
    EXPECT_EQ(t->cell(3, 4), "342");
    // C form: the last two kept; the first dimension stays fixed at its
    // slice's first index.
    Result<Table> k = tableCells(cube.c, r, "[3:4][1][::2]", "");
    ASSERT_TRUE(k.ok()) << k.message();
    EXPECT_EQ(k->rowDim, 0);
    EXPECT_EQ(k->colDim, 2);
    EXPECT_EQ(k->rowCount, 2);
    EXPECT_EQ(k->colCount, 3);
    EXPECT_EQ(k->cell(1, 2), "414");
    // Fortran form: the first two kept.
    Result<Table> ft = tableCells(cube.f, r, "(2,:,:)", "");
    ASSERT_TRUE(ft.ok()) << ft.message();
    EXPECT_EQ(ft->rowDim, 1);
    EXPECT_EQ(ft->colDim, 2);
    EXPECT_EQ(ft->rowCount, 5);
    EXPECT_EQ(ft->colCount, 5);
    EXPECT_EQ(ft->cell(1, 3), "312"); // x(2,1,3)
    Result<Table> fk = tableCells(cube.f, r, "(:,4,1:3)", "");
    ASSERT_TRUE(fk.ok()) << fk.message();
    EXPECT_EQ(fk->rowDim, 0);
    EXPECT_EQ(fk->colDim, 2);
    EXPECT_EQ(fk->colCount, 3);
    EXPECT_EQ(fk->cell(0, 2), "340"); // x(0,4,3)
}

TEST(Table, DefaultPlaneWithFewerThanTwoKeptDimensions) {
    SmallCube cube;
    BufferReader r = cube.reader();
    // One kept: it runs down the rows or across the columns with the
    // fixed dimension nearest to the form's end.
    Result<Table> down = tableCells(cube.c, r, "[:][1][2]", "");
    ASSERT_TRUE(down.ok()) << down.message();
    EXPECT_EQ(down->rowDim, 0);
    EXPECT_EQ(down->colDim, 2);
    EXPECT_EQ(down->rowCount, 5);
    EXPECT_EQ(down->colCount, 1);
    EXPECT_EQ(down->cell(4, 0), "412");
    Result<Table> across = tableCells(cube.c, r, "[1][2][:]", "");
    ASSERT_TRUE(across.ok()) << across.message();
    EXPECT_EQ(across->rowDim, 1);
    EXPECT_EQ(across->colDim, 2);
    EXPECT_EQ(across->rowCount, 1);
    EXPECT_EQ(across->colCount, 5);
    // None kept: the last two dimensions, as before.
    Result<Table> none = tableCells(cube.c, r, "[1][2][3]", "");
    ASSERT_TRUE(none.ok()) << none.message();
    EXPECT_EQ(none->rowDim, 1);
    EXPECT_EQ(none->colDim, 2);
    EXPECT_EQ(none->cells, (std::vector<std::string>{"123"}));
}

TEST(Table, NamedDimensionsAreTakenAsGiven) {
    SmallCube cube;
    BufferReader r = cube.reader();
    // The data table names both: a fixed dimension in the plane gives one
    // column, exactly as it always did.
    TableOptions o = TableOptions::Defaults();
    o.rowDim = 1;
    o.colDim = 2;
    Result<Table> t = tableCells(cube.c, r, "[:][:][2]", "", o);
    ASSERT_TRUE(t.ok()) << t.message();
    EXPECT_EQ(t->rowCount, 5);
    EXPECT_EQ(t->colCount, 1);
    EXPECT_EQ(t->slice, "[0:0:1][0:4:1][2:2:1]");
    EXPECT_EQ(t->cell(3, 0), "32");
    // One named: the other is the default that differs from it.
    o.rowDim = -1;
    o.colDim = 0;
    Result<Table> one = tableCells(cube.c, r, "[:][:][2]", "", o);
    ASSERT_TRUE(one.ok()) << one.message();
    EXPECT_EQ(one->rowDim, 1);
    EXPECT_EQ(one->colDim, 0);
    EXPECT_EQ(one->cell(4, 1), "142");
}

} // namespace
