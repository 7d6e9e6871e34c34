// The slice text logic: dimension counts, whole-array slices, bounds read
// from type texts, the editor's records and their checks.
#include "config/slicemodel.h"
#include "config/slicerecords.h"

#include <gtest/gtest.h>

using namespace SliceModel;

// ---- getSliceDimCount -------------------------------------------------------

TEST(SliceDimCount, EmptyTextHasNoDimensions) {
    EXPECT_EQ(getSliceDimCount(""), 0);
}

TEST(SliceDimCount, CTypeWithTwoBracketGroupsHasTwo) {
    EXPECT_EQ(getSliceDimCount("int[10][20]"), 2);
}

TEST(SliceDimCount, FortranTypeWithThreeExtentsHasThree) {
    EXPECT_EQ(getSliceDimCount("integer(10,20,30)"), 3);
}

TEST(SliceDimCount, ScalarTypeCountsAsOne) {
    EXPECT_EQ(getSliceDimCount("int"), 1);
}

TEST(SliceDimCount, FortranSliceWithoutParenthesesIsCountedWhole) {
    EXPECT_EQ(getSliceDimCount("1:3,2:2"), 2);
}

TEST(SliceDimCount, CSliceCountsBracketJoins) {
    EXPECT_EQ(getSliceDimCount("[0:9:1][2:2:1][0:9:1]"), 3);
    EXPECT_EQ(getSliceDimCount("[:]"), 1);
}

TEST(SliceDimCount, FortranTakesTheLastParenthesesOnly) {
    // A kind parameter in front of the extents does not count.
    EXPECT_EQ(getSliceDimCount("real(kind=8) (0:9,-2:5)"), 2);
    EXPECT_EQ(getSliceDimCount("(1:10:1,2:2:1)"), 2);
}

// ---- getDefaultSlice ----------------------------------------------------------

TEST(DefaultSlice, BackendEmptySliceWinsOverTheStyleAsked) {
    EXPECT_EQ(getDefaultSlice("(0:9,-2:5)", "double [10][20]", true), "(0:9,-2:5)");
    EXPECT_EQ(getDefaultSlice("[0:9][0:19]", "integer(10,20)", false), "[0:9][0:19]");
}

TEST(DefaultSlice, EmptyTypeGivesEmptySlice) {
    EXPECT_EQ(getDefaultSlice("", "", true), "");
    EXPECT_EQ(getDefaultSlice("", "", false), "");
}

TEST(DefaultSlice, CStyleTakesEveryDimensionWhole) {
    EXPECT_EQ(getDefaultSlice("", "double [10][20]", true), "[:][:]");
    EXPECT_EQ(getDefaultSlice("", "int [4]", true), "[:]");
}

TEST(DefaultSlice, FortranStyleTakesEveryDimensionWhole) {
    EXPECT_EQ(getDefaultSlice("", "integer(10,20)", false), "(:,:)");
    EXPECT_EQ(getDefaultSlice("", "real(kind=8) (0:9,-2:5,3)", false), "(:,:,:)");
}

// ---- getBoundsFromType ----------------------------------------------------------

TEST(BoundsFromType, CurrentBoundsWinWhenThereAreAny) {
    const QStringList current{"0:4", "1:2"};
    EXPECT_EQ(getBoundsFromType(current, "int[10][20]", true), current);
}

TEST(BoundsFromType, EmptyTypeGivesNoBounds) {
    EXPECT_TRUE(getBoundsFromType({}, "", true).isEmpty());
}

TEST(BoundsFromType, CSizesBecomeZeroBasedInclusiveBounds) {
    EXPECT_EQ(getBoundsFromType({}, "int[10][20]", true), (QStringList{"0:9", "0:19"}));
}

TEST(BoundsFromType, CUnreadableSizeGetsAHundredIndexes) {
    EXPECT_EQ(getBoundsFromType({}, "int[n]", true), (QStringList{"0:99"}));
}

TEST(BoundsFromType, FortranExtentsAndExplicitBounds) {
    EXPECT_EQ(getBoundsFromType({}, "(10,0:5)", false), (QStringList{"1:10", "0:5"}));
}

TEST(BoundsFromType, CExplicitUpperBoundIsAlsoLoweredByOne) {
    EXPECT_EQ(getBoundsFromType({}, "[2:10]", true), (QStringList{"2:9"}));
}

TEST(BoundsFromType, FortranKeepsUnreadableUpperAsItStands) {
    EXPECT_EQ(getBoundsFromType({}, "real(kind=8) (n,-2:5)", false), (QStringList{"1:n", "-2:5"}));
}

// ---- getDimensionString -------------------------------------------------------

TEST(DimensionString, CStyleOneBracketPerDimension) {
    EXPECT_EQ(getDimensionString(2, true), "[ i ][ j ]");
}

TEST(DimensionString, FortranStyleOneParenthesisPairPerDimension) {
    EXPECT_EQ(getDimensionString(3, false), "( i )( j )( k )");
}

TEST(DimensionString, BelowOneIsEmpty) {
    EXPECT_EQ(getDimensionString(0, true), "");
    EXPECT_EQ(getDimensionString(-3, false), "");
}

TEST(DimensionLabels, EighteenLettersFromI) {
    EXPECT_STREQ(DIMENSION_LABELS, "ijklmnopqrstuvwxyz");
    EXPECT_EQ(QString::fromLatin1(DIMENSION_LABELS).size(), 18);
}

// ---- adjustSliceDetailsForNegativeStride ----------------------------------------

TEST(NegativeStride, PositiveStrideWithStartAboveEndSwaps) {
    ArrayDimensionDetails d(0, 9, 0, 1);
    EXPECT_TRUE(adjustSliceDetailsForNegativeStride(&d));
    EXPECT_EQ(d.startIndex, 0);
    EXPECT_EQ(d.endIndex, 9);
    EXPECT_EQ(d.stride, 1);
}

TEST(NegativeStride, NegativeStrideWithStartBelowEndSwaps) {
    ArrayDimensionDetails d(0, 0, 9, -1);
    EXPECT_TRUE(adjustSliceDetailsForNegativeStride(&d));
    EXPECT_EQ(d.startIndex, 9);
    EXPECT_EQ(d.endIndex, 0);
    EXPECT_EQ(d.stride, -1);
}

TEST(NegativeStride, ZeroStrideNeverSwaps) {
    ArrayDimensionDetails d(0, 9, 0, 0);
    EXPECT_FALSE(adjustSliceDetailsForNegativeStride(&d));
    EXPECT_EQ(d.startIndex, 9);
    EXPECT_EQ(d.endIndex, 0);
}

TEST(NegativeStride, IndexesAlreadyInOrderAreLeftAlone) {
    ArrayDimensionDetails up(0, 2, 7, 3);
    EXPECT_FALSE(adjustSliceDetailsForNegativeStride(&up));
    EXPECT_EQ(up.startIndex, 2);
    ArrayDimensionDetails down(0, 7, 2, -3);
    EXPECT_FALSE(adjustSliceDetailsForNegativeStride(&down));
    EXPECT_EQ(down.startIndex, 7);
    ArrayDimensionDetails equal(0, 4, 4, -1);
    EXPECT_FALSE(adjustSliceDetailsForNegativeStride(&equal));
}

// ---- valid2DIndexes -------------------------------------------------------------

TEST(Valid2DIndexes, UnknownBoundsRefuseAnyIndexAboveMinusOne) {
    ArrayDimensionDetails d(0, 0, 0, 1);
    EXPECT_EQ(d.lowerBound, -1);
    EXPECT_EQ(d.upperBound, -1);
    EXPECT_FALSE(valid2DIndexes(&d));
    ArrayDimensionDetails minusOnes(0, -1, -1, 1);
    EXPECT_TRUE(valid2DIndexes(&minusOnes));
}

TEST(Valid2DIndexes, BothIndexesMustLieWithinTheBounds) {
    ArrayDimensionDetails inside(1, 0, 9, 0, 9, 1);
    EXPECT_TRUE(valid2DIndexes(&inside));
    ArrayDimensionDetails endOut(1, 0, 9, 0, 10, 1);
    EXPECT_FALSE(valid2DIndexes(&endOut));
    ArrayDimensionDetails startOut(1, -2, 5, -3, 5, 1);
    EXPECT_FALSE(valid2DIndexes(&startOut));
    ArrayDimensionDetails negativeBounds(1, -2, 5, -2, 5, -1);
    EXPECT_TRUE(valid2DIndexes(&negativeBounds));
}

// ---- records --------------------------------------------------------------------

TEST(DimensionDetails, SixArgumentConstructorKeepsFieldOrder) {
    ArrayDimensionDetails d(2, -1, 8, 3, 6, 2);
    EXPECT_EQ(d.dimension, 2);
    EXPECT_EQ(d.lowerBound, -1);
    EXPECT_EQ(d.upperBound, 8);
    EXPECT_EQ(d.startIndex, 3);
    EXPECT_EQ(d.endIndex, 6);
    EXPECT_EQ(d.stride, 2);
}

TEST(Config2DTableRecord, DefaultsMeanNothingChosen) {
    Config2DTable c;
    EXPECT_EQ(c.rowDim, -1);
    EXPECT_EQ(c.colDim, -1);
    EXPECT_EQ(c.dataPres, al_pres_default);
    EXPECT_EQ(int(c.dataPres), 8);
    EXPECT_EQ(c.dataType, al_type_other);
    EXPECT_EQ(int(c.dataType), 3);
    EXPECT_TRUE(c.otherDimIndexList.isEmpty());
    EXPECT_TRUE(c.slice.isEmpty());
}

TEST(Config2DTableRecord, FullConstructorTakesSliceBeforeFormats) {
    Config2DTable c(0, 2, "[0:9:1][3:3][0:4:1]", al_pres_hex, al_type_integer, {0, 3, 0});
    EXPECT_EQ(c.rowDim, 0);
    EXPECT_EQ(c.colDim, 2);
    EXPECT_EQ(c.slice, "[0:9:1][3:3][0:4:1]");
    EXPECT_EQ(c.dataPres, al_pres_hex);
    EXPECT_EQ(c.dataType, al_type_integer);
    EXPECT_EQ(c.otherDimIndexList, (QList<int>{0, 3, 0}));
}

TEST(Config2DTableRecord, Clear2DSliceLeavesTheFormatsAlone) {
    Config2DTable c(1, 2, "(1:3,2:2,1:4)", al_pres_octal, al_type_char, {0, 2, 0});
    c.clear2DSlice();
    EXPECT_EQ(c.rowDim, -1);
    EXPECT_EQ(c.colDim, -1);
    EXPECT_TRUE(c.slice.isEmpty());
    EXPECT_TRUE(c.otherDimIndexList.isEmpty());
    EXPECT_EQ(c.dataPres, al_pres_octal);
    EXPECT_EQ(c.dataType, al_type_char);
}

TEST(Config2DTableRecord, ResetDataFormatTouchesOnlyTheFormats) {
    Config2DTable c(1, 2, "(1:3,2:2,1:4)", al_pres_octal, al_type_char, {0, 2, 0});
    c.resetDataFormat();
    EXPECT_EQ(c.dataPres, al_pres_default);
    EXPECT_EQ(c.dataType, al_type_other);
    EXPECT_EQ(c.rowDim, 1);
    EXPECT_EQ(c.slice, "(1:3,2:2,1:4)");
}

TEST(Config2DTableRecord, ClearThenResetEqualsTheDefault) {
    Config2DTable c(1, 2, "(1:3,2:2,1:4)", al_pres_scientific, al_type_float, {0, 2, 0});
    EXPECT_NE(c, Config2DTable());
    c.clear2DSlice();
    c.resetDataFormat();
    EXPECT_EQ(c, Config2DTable());
}

TEST(DataPresentation, NumbersAreTheWireValues) {
    EXPECT_EQ(int(al_pres_automatic), 0);
    EXPECT_EQ(int(al_pres_hex_dec), 1);
    EXPECT_EQ(int(al_pres_dec_hex), 2);
    EXPECT_EQ(int(al_pres_decimal), 3);
    EXPECT_EQ(int(al_pres_hex), 4);
    EXPECT_EQ(int(al_pres_octal), 5);
    EXPECT_EQ(int(al_pres_char), 6);
    EXPECT_EQ(int(al_pres_scientific), 7);
    EXPECT_EQ(int(al_type_integer), 0);
    EXPECT_EQ(int(al_type_float), 1);
    EXPECT_EQ(int(al_type_char), 2);
}

// ---- language style and reading a slice's dimensions ---------------------------------

TEST(LanguageStyle, CFamilyNamesAreCaseInsensitive) {
    EXPECT_TRUE(isCStyleLanguage("c"));
    EXPECT_TRUE(isCStyleLanguage("C++"));
    EXPECT_TRUE(isCStyleLanguage("UPC"));
    EXPECT_FALSE(isCStyleLanguage("fortran"));
    EXPECT_FALSE(isCStyleLanguage("auto"));
    EXPECT_FALSE(isCStyleLanguage(""));
}

TEST(SplitSlice, CPiecesLoseTheirBrackets) {
    EXPECT_EQ(splitSlice("[0:9:1][2:2][:]", true), (QStringList{"0:9:1", "2:2", ":"}));
}

TEST(SplitSlice, FortranPiecesLoseTheirParenthesesAndKeepEmptyOnes) {
    EXPECT_EQ(splitSlice("(1:10:1,,2:2)", false), (QStringList{"1:10:1", "", "2:2"}));
}

TEST(ReadSlicePiece, PieceWithoutColonHasNoRange) {
    EXPECT_FALSE(readSlicePiece("5", false).hasRange);
    EXPECT_FALSE(readSlicePiece("", true).hasRange);
}

TEST(ReadSlicePiece, WholeDimensionColonHasNoRangeOnlyWhenTwoCharactersAreRequired) {
    EXPECT_FALSE(readSlicePiece(":", true).hasRange);
    const SlicePiece p = readSlicePiece(":", false);
    EXPECT_TRUE(p.hasRange);
    EXPECT_EQ(p.start, 0);
    EXPECT_EQ(p.end, 0);
    EXPECT_EQ(p.stride, 1);
}

TEST(ReadSlicePiece, ThreePartsGiveTheStride) {
    const SlicePiece p = readSlicePiece("9:0:-3", true);
    EXPECT_TRUE(p.hasRange);
    EXPECT_EQ(p.start, 9);
    EXPECT_EQ(p.end, 0);
    EXPECT_EQ(p.stride, -3);
}

TEST(ReadSlicePiece, FourPartsFallBackToStrideOne) {
    const SlicePiece p = readSlicePiece("1:8:2:5", true);
    EXPECT_EQ(p.start, 1);
    EXPECT_EQ(p.end, 8);
    EXPECT_EQ(p.stride, 1);
}

TEST(ReadSlicePiece, UnreadableNumbersReadAsZero) {
    const SlicePiece p = readSlicePiece("a:-2:x", true);
    EXPECT_TRUE(p.hasRange);
    EXPECT_EQ(p.start, 0);
    EXPECT_EQ(p.end, -2);
    EXPECT_EQ(p.stride, 0);
}
