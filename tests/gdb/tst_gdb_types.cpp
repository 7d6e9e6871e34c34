// gdb's type texts and answers, read without a debugger.
#include "gdbtypes.h"

#include <gtest/gtest.h>

using namespace arraylens::gdb;

namespace {

struct CTypeCase {
    const char* text;
    bool isArray;
    bool isPointer;
    const char* element;
    QVector<qint64> extents;
};

class CTypes : public ::testing::TestWithParam<CTypeCase> {};

TEST_P(CTypes, ShapeAndElement) {
    const CTypeCase& c = GetParam();
    const TypeShape s = parseCType(QString::fromLatin1(c.text));
    EXPECT_EQ(s.isArray, c.isArray);
    EXPECT_EQ(s.isPointer, c.isPointer);
    if (c.isArray) {
        EXPECT_EQ(s.elementType, QString::fromLatin1(c.element));
        ASSERT_EQ(s.dims.size(), c.extents.size());
        for (int i = 0; i < s.dims.size(); ++i) {
            EXPECT_EQ(s.dims[i].lower, 0);
            EXPECT_EQ(s.dims[i].upper, c.extents[i] - 1);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CTypes,
    ::testing::Values(CTypeCase{"double [10][20]", true, false, "double", {10, 20}},
                      CTypeCase{"float [4][5][6]", true, false, "float", {4, 5, 6}},
                      CTypeCase{"const double (&)[24]", true, false, "const double", {24}},
                      CTypeCase{"double (*)[10]", false, true, "", {}},
                      CTypeCase{"double *", false, true, "", {}},
                      CTypeCase{"double", false, false, "", {}},
                      CTypeCase{"struct point [3]", true, false, "struct point", {3}},
                      CTypeCase{"unsigned char [16][16]", true, false, "unsigned char", {16, 16}}));

TEST(FortranTypes, DeclaredBoundsAndDefaults) {
    TypeShape s = parseFortranType(QStringLiteral("real(kind=8) (0:9,-2:5)"));
    ASSERT_TRUE(s.isArray);
    EXPECT_EQ(s.elementType, QStringLiteral("real(kind=8)"));
    ASSERT_EQ(s.dims.size(), 2);
    EXPECT_EQ(s.dims[0].lower, 0);
    EXPECT_EQ(s.dims[0].upper, 9);
    EXPECT_EQ(s.dims[1].lower, -2);
    EXPECT_EQ(s.dims[1].upper, 5);

    s = parseFortranType(QStringLiteral("real(kind=8) (5,8)"));
    ASSERT_EQ(s.dims.size(), 2);
    EXPECT_EQ(s.dims[0].lower, 1);
    EXPECT_EQ(s.dims[1].upper, 8);

    s = parseFortranType(QStringLiteral("real(kind=8), allocatable (3,4)"));
    EXPECT_TRUE(s.isArray);
    EXPECT_EQ(s.elementType, QStringLiteral("real(kind=8)"));
    EXPECT_TRUE(s.problem.isEmpty());
}

TEST(FortranTypes, ScalarsAndUnallocated) {
    EXPECT_FALSE(parseFortranType(QStringLiteral("real(kind=8)")).isArray);
    EXPECT_FALSE(parseFortranType(QStringLiteral("integer(kind=4)")).isArray);
    const TypeShape s = parseFortranType(QStringLiteral("real(kind=8), allocatable (:,:)"));
    EXPECT_TRUE(s.isArray);
    EXPECT_FALSE(s.problem.isEmpty());
    EXPECT_FALSE(parseFortranType(QStringLiteral("real(kind=8) (*)")).problem.isEmpty());
}

TEST(GdbAnswers, Languages) {
    EXPECT_TRUE(isCStyleLanguage(QStringLiteral("C++")));
    EXPECT_TRUE(isCStyleLanguage(QStringLiteral("upc")));
    EXPECT_FALSE(isCStyleLanguage(QStringLiteral("fortran")));
}

TEST(Expressions, ElementsAndCasts) {
    EXPECT_EQ(repeatOperand(QStringLiteral("p[0]@100")), QStringLiteral("p[0]"));
    EXPECT_EQ(repeatOperand(QStringLiteral("f(\"a@b\")")), std::nullopt);
    EXPECT_EQ(repeatOperand(QStringLiteral("a[(b@2)[0]]")), std::nullopt);
    EXPECT_EQ(reinterpretCast(QStringLiteral("p"), QStringLiteral("double[1000]"), false, {}),
              QStringLiteral("*(double(*)[1000])(p)"));
    EXPECT_EQ(reinterpretCast(QStringLiteral("grid"), QStringLiteral("float [10][40]"), true, {}),
              QStringLiteral("*(float(*)[10][40])&(grid)"));
    // A bare element type keeps the array's own extents.
    EXPECT_EQ(reinterpretCast(QStringLiteral("counters"), QStringLiteral("int"), true,
                              {DimBounds{0, 63}}),
              QStringLiteral("*(int(*)[64])&(counters)"));
    // An artificial array is cast from its first element: gdb would read all
    // of `*data@count` to take its address.
    EXPECT_EQ(reinterpretCast(QStringLiteral("*data@count"), QStringLiteral("float"), true,
                              {DimBounds{0, 99}}),
              QStringLiteral("*(float(*)[100])&(*data)"));
}

TEST(Elements, Classes) {
    EXPECT_EQ(classifyElement(QStringLiteral("double"), false), ElementClass::Float);
    EXPECT_EQ(classifyElement(QStringLiteral("const long double"), false), ElementClass::Float);
    EXPECT_EQ(classifyElement(QStringLiteral("unsigned long long"), false), ElementClass::Unsigned);
    EXPECT_EQ(classifyElement(QStringLiteral("long unsigned int"), false), ElementClass::Unsigned);
    EXPECT_EQ(classifyElement(QStringLiteral("short"), false), ElementClass::Signed);
    EXPECT_EQ(classifyElement(QStringLiteral("_Bool"), false), ElementClass::Bool);
    EXPECT_EQ(classifyElement(QStringLiteral("char"), false), ElementClass::Char);
    EXPECT_EQ(classifyElement(QStringLiteral("unsigned char"), false), ElementClass::UnsignedChar);
    EXPECT_EQ(classifyElement(QStringLiteral("struct point {"), false), ElementClass::Unsupported);
    EXPECT_EQ(classifyElement(QStringLiteral("real(kind=4)"), true), ElementClass::Float);
    EXPECT_EQ(classifyElement(QStringLiteral("integer(kind=2)"), true), ElementClass::Signed);
    EXPECT_EQ(classifyElement(QStringLiteral("logical(kind=4)"), true), ElementClass::Logical);
    EXPECT_EQ(classifyElement(QStringLiteral("character(kind=1)"), true), ElementClass::Character);
    EXPECT_EQ(classifyElement(QStringLiteral("character*8"), true), ElementClass::Unsupported);
}

} // namespace

namespace {

FortranCastType castOf(const char* text) {
    FortranCastType c;
    QString error;
    EXPECT_TRUE(parseFortranCastType(QString::fromLatin1(text), c, error))
        << text << ": " << error.toStdString();
    return c;
}

QString refusalOf(const char* text) {
    FortranCastType c;
    QString error;
    EXPECT_FALSE(parseFortranCastType(QString::fromLatin1(text), c, error)) << text;
    EXPECT_FALSE(error.isEmpty()) << text;
    return error;
}

struct FortranCastCase {
    const char* text;
    const char* element;
    int size;
};

class FortranCastNames : public ::testing::TestWithParam<FortranCastCase> {};

TEST_P(FortranCastNames, ElementInGdbsWordsAndSize) {
    const FortranCastCase& c = GetParam();
    const FortranCastType t = castOf(c.text);
    EXPECT_EQ(t.elementType, QString::fromLatin1(c.element)) << c.text;
    EXPECT_EQ(t.elementSize, c.size) << c.text;
    EXPECT_FALSE(t.hasShape) << c.text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, FortranCastNames,
    ::testing::Values(FortranCastCase{"integer", "integer(kind=4)", 4},
                      FortranCastCase{"integer(4)", "integer(kind=4)", 4},
                      FortranCastCase{"integer(kind=4)", "integer(kind=4)", 4},
                      FortranCastCase{"integer( kind = 8 )", "integer(kind=8)", 8},
                      FortranCastCase{"integer*4", "integer(kind=4)", 4},
                      FortranCastCase{"integer*1", "integer(kind=1)", 1},
                      FortranCastCase{"INTEGER(2)", "integer(kind=2)", 2},
                      FortranCastCase{"real", "real(kind=4)", 4},
                      FortranCastCase{"real(8)", "real(kind=8)", 8},
                      FortranCastCase{"Real(Kind=8)", "real(kind=8)", 8},
                      FortranCastCase{"real*8", "real(kind=8)", 8},
                      FortranCastCase{"double precision", "real(kind=8)", 8},
                      FortranCastCase{"DOUBLE   PRECISION", "real(kind=8)", 8},
                      FortranCastCase{"logical", "logical(kind=4)", 4},
                      FortranCastCase{"logical(kind=1)", "logical(kind=1)", 1},
                      FortranCastCase{"logical*8", "logical(kind=8)", 8},
                      FortranCastCase{"character", "character(kind=1)", 1},
                      FortranCastCase{"character(1)", "character(kind=1)", 1},
                      FortranCastCase{"character(len=1)", "character(kind=1)", 1},
                      FortranCastCase{"character*1", "character(kind=1)", 1}));

TEST(FortranCasts, ShapesOfExtentsAndBounds) {
    FortranCastType t = castOf("integer(kind=4) (0:19,-2:5)");
    EXPECT_EQ(t.elementType, QStringLiteral("integer(kind=4)"));
    ASSERT_TRUE(t.hasShape);
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{0, 19}, {-2, 5}}));

    t = castOf("real*8 (20, 8)");
    EXPECT_EQ(t.elementSize, 8);
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{1, 20}, {1, 8}}));

    // A group after a blank is the shape, a group glued to the name the kind;
    // of two groups the first is the kind.
    t = castOf("integer (4)");
    EXPECT_EQ(t.elementType, QStringLiteral("integer(kind=4)"));
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{1, 4}}));
    t = castOf("integer (2) (6)");
    EXPECT_EQ(t.elementType, QStringLiteral("integer(kind=2)"));
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{1, 6}}));
    t = castOf("integer*2(3, 0:1)");
    EXPECT_EQ(t.elementSize, 2);
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{1, 3}, {0, 1}}));
    t = castOf("logical (kind=1) ( -5 : -5 )");
    EXPECT_EQ(t.elementType, QStringLiteral("logical(kind=1)"));
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{-5, -5}}));
    // gdb's own text of an array type reads back as the same cast.
    t = castOf("real(kind=8) (0:9,-2:5)");
    EXPECT_EQ(t.elementType, QStringLiteral("real(kind=8)"));
    EXPECT_EQ(t.dims, (QVector<DimBounds>{{0, 9}, {-2, 5}}));
}

TEST(FortranCasts, RefusalsSayWhatIsWrong) {
    EXPECT_TRUE(refusalOf("int").contains(QStringLiteral("Unknown type 'int'")));
    EXPECT_TRUE(refusalOf("float [10]").contains(QStringLiteral("Cannot read the type")));
    EXPECT_TRUE(refusalOf("complex(8)").contains(QStringLiteral("Unknown type 'complex(8)'")));
    EXPECT_EQ(refusalOf("real(kind=3)"),
              QStringLiteral("There is no real(kind=3): real has the kinds 4 and 8."));
    EXPECT_EQ(refusalOf("real*16"),
              QStringLiteral("There is no real(kind=16): real has the kinds 4 and 8."));
    EXPECT_EQ(refusalOf("integer(3)"),
              QStringLiteral("There is no integer(kind=3): integer has the kinds 1, 2, 4 and 8."));
    EXPECT_TRUE(refusalOf("logical(kind=16)").contains(QStringLiteral("logical(kind=16)")));
    EXPECT_TRUE(refusalOf("character(8)").contains(QStringLiteral("single characters")));
    EXPECT_TRUE(refusalOf("double precision(8)").contains(QStringLiteral("takes no kind")));
    EXPECT_TRUE(refusalOf("integer(kind=four)").contains(QStringLiteral("Cannot read the kind")));
    EXPECT_TRUE(refusalOf("integer*").contains(QStringLiteral("after '*'")));
    EXPECT_TRUE(refusalOf("integer(4").contains(QStringLiteral("without ')'")));
    EXPECT_TRUE(refusalOf("integer(4) 10").contains(QStringLiteral("Cannot read '10'")));
    EXPECT_TRUE(refusalOf("integer(4) (5:2)").contains(QStringLiteral("has no elements")));
    EXPECT_TRUE(refusalOf("integer(4) (0)").contains(QStringLiteral("has no elements")));
    EXPECT_TRUE(refusalOf("integer(4) (1:)").contains(QStringLiteral("dimension 1")));
    EXPECT_TRUE(refusalOf("integer(4) (3,:)").contains(QStringLiteral("dimension 2")));
    EXPECT_TRUE(refusalOf("integer(4) (*)").contains(QStringLiteral("Cannot read")));
    EXPECT_TRUE(refusalOf("integer(4) (3,,4)").contains(QStringLiteral("dimension 2")));
    EXPECT_TRUE(refusalOf("integer(4) ((3))").contains(QStringLiteral("shape")));
    EXPECT_TRUE(refusalOf("integer(4) (2000000000000000)").contains(QStringLiteral("too large")));
    EXPECT_TRUE(refusalOf("integer(4) (1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1)")
                    .contains(QStringLiteral("at most 15")));
    EXPECT_TRUE(refusalOf("").contains(QStringLiteral("Unknown type")));
    EXPECT_TRUE(
        refusalOf("integer\" console \"shell true").contains(QStringLiteral("Cannot read")));
}

TEST(FortranCasts, AlternateTextCarriesEveryBound) {
    const QVector<DimBounds> x{{0, 9}, {-2, 5}};
    const QString declared = QStringLiteral("real(kind=8) (0:9,-2:5)");
    QString error;
    // Without a shape the cast keeps the bounds the array has now.
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("x"), QStringLiteral("integer(kind=4)"),
                                     declared, x, error),
              QStringLiteral("{integer(kind=4) (0:9,-2:5)} x"));
    EXPECT_TRUE(error.isEmpty());
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("x"), QStringLiteral("integer*4 (0:19,-2:5)"),
                                     declared, x, error),
              QStringLiteral("{integer(kind=4) (0:19,-2:5)} x"));
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("a"), QStringLiteral("logical (6,4)"),
                                     QStringLiteral("real(kind=8), allocatable (3,4)"),
                                     {{1, 3}, {1, 4}}, error),
              QStringLiteral("{logical(kind=4) (6,4)} a"));
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("field(1:10:2,:)"), QStringLiteral("real"),
                                     QStringLiteral("real(kind=8) (5,8)"), {{1, 5}, {1, 8}}, error),
              QStringLiteral("{real(kind=4) (5,8)} field(1:10:2,:)"));

    // Back to the declared element and bounds, in any spelling: no cast.
    EXPECT_EQ(
        fortranReinterpretCast(QStringLiteral("x"), QStringLiteral("real(8)"), declared, x, error),
        QString());
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("x"),
                                     QStringLiteral("double precision (0:9,-2:5)"), declared, x,
                                     error),
              QString());
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("a"), QStringLiteral("real*8"),
                                     QStringLiteral("real(kind=8), allocatable (3,4)"),
                                     {{1, 3}, {1, 4}}, error),
              QString());
    // The same element with other bounds is a cast.
    EXPECT_EQ(fortranReinterpretCast(QStringLiteral("x"), QStringLiteral("real(8) (80)"), declared,
                                     x, error),
              QStringLiteral("{real(kind=8) (80)} x"));

    // A refused type says why and travels as typed, so requests refuse it too.
    QString text = fortranReinterpretCast(QStringLiteral("x"), QStringLiteral("real(kind=3)"),
                                          declared, x, error);
    EXPECT_EQ(text, QStringLiteral("{real(kind=3)} x"));
    EXPECT_EQ(error, QStringLiteral("There is no real(kind=3): real has the kinds 4 and 8."));
    // A brace of the typed text cannot end the type early and leave the rest
    // to be read as the expression.
    text = fortranReinterpretCast(QStringLiteral("x"), QStringLiteral("integer} y {"), declared, x,
                                  error);
    EXPECT_FALSE(error.isEmpty());
    const auto split = splitFortranCast(text);
    ASSERT_TRUE(split.has_value());
    EXPECT_EQ(split->expression, QStringLiteral("x"));
    FortranCastType t;
    QString again;
    EXPECT_FALSE(parseFortranCastType(split->type, t, again));
}

TEST(FortranCasts, SplitAndArrayTypeText) {
    auto s = splitFortranCast(QStringLiteral("  {integer(kind=4) (0:19,-2:5)} x(:, 1:3)"));
    ASSERT_TRUE(s.has_value());
    EXPECT_EQ(s->type, QStringLiteral("integer(kind=4) (0:19,-2:5)"));
    EXPECT_EQ(s->expression, QStringLiteral("x(:, 1:3)"));
    s = splitFortranCast(QStringLiteral("{real}"));
    ASSERT_TRUE(s.has_value());
    EXPECT_TRUE(s->expression.isEmpty());
    EXPECT_FALSE(splitFortranCast(QStringLiteral("x")).has_value());
    EXPECT_FALSE(splitFortranCast(QStringLiteral("{integer x")).has_value());
    EXPECT_FALSE(splitFortranCast(QStringLiteral("*(int(*)[8][10])&(x)")).has_value());

    EXPECT_EQ(fortranArrayType(QStringLiteral("integer(kind=4)"), {{0, 19}, {-2, 5}}),
              QStringLiteral("integer(kind=4) (0:19,-2:5)"));
    EXPECT_EQ(fortranArrayType(QStringLiteral("real(kind=8)"), {{1, 20}, {1, 8}}),
              QStringLiteral("real(kind=8) (20,8)"));
    EXPECT_EQ(fortranArrayType(QStringLiteral("logical(kind=4)"), {{1, 6}, {0, 3}}),
              QStringLiteral("logical(kind=4) (6,0:3)"));
    // The text gdb would write reads back as the same shape.
    const TypeShape back = parseFortranType(
        fortranArrayType(QStringLiteral("integer(kind=2)"), {{-3, 4}, {1, 7}, {2, 2}}));
    EXPECT_EQ(back.elementType, QStringLiteral("integer(kind=2)"));
    EXPECT_EQ(back.dims, (QVector<DimBounds>{{-3, 4}, {1, 7}, {2, 2}}));
}

} // namespace
