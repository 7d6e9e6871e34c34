// Reading gdb's type texts and answers. Pure text functions, so that the
// rules for C and Fortran shapes are tested without a debugger.
#pragma once

#include <QString>
#include <QVector>
#include <functional>
#include <optional>

namespace arraylens::gdb {

struct DimBounds {
    qint64 lower = 0;
    qint64 upper = -1;
    bool operator==(const DimBounds& o) const { return lower == o.lower && upper == o.upper; }
    bool operator!=(const DimBounds& o) const { return !(*this == o); }
};

// What the type text of an expression says about its shape.
struct TypeShape {
    bool isArray = false;
    bool isPointer = false;
    // Element type as gdb writes it ("double", "real(kind=8)").
    QString elementType;
    // Declaration order: C `[10][20]` gives 0:9, 0:19; Fortran `(0:9,-2:5)`
    // gives the declared bounds, `(5,8)` gives 1:5, 1:8.
    QVector<DimBounds> dims;
    // Set when the text names an array whose elements cannot be shown yet:
    // an allocatable before allocate, an assumed-size dummy, `[]`.
    QString problem;
};

// "double [10][20]", "const double (&)[24]", "double (*)[10]" (a pointer,
// not an array), "struct point [3]".
TypeShape parseCType(const QString& typeText);
// "real(kind=8) (0:9,-2:5)", "integer(kind=4), allocatable (:,:)",
// "character*8 (3)", "real(kind=8)" (a scalar).
TypeShape parseFortranType(const QString& typeText);

// C slice syntax: "c", "c++" and "upc", in any case.
bool isCStyleLanguage(const QString& language);
bool isFortranLanguage(const QString& language);

// Wraps an expression so that it can be indexed, called or have its address
// taken without binding to a neighbouring operator.
QString parenthesised(const QString& expression);

// Walks `text` as gdb reads an expression: calls `stop(i)` at each position
// outside string and character literals (their quotes included, a
// backslash escaping the next character) and gives the first position at
// which it returns true, -1 when there is none.
int firstOutsideQuotes(const QString& text, const std::function<bool(int)>& stop);

// The left operand of a gdb artificial array (`*p@100` gives `*p`), or
// nothing when the expression has no `@` outside brackets, parentheses and
// quotes.
std::optional<QString> repeatOperand(const QString& expression);

// The reinterpreting cast that makes `expression` show as type `type`:
// `*(double(*)[1000])&(E)` for an array, `*(double(*)[1000])(E)` for a
// pointer. A type without dimensions keeps the dimensions the array has now
// (`currentDims`), so `float` over `int [10]` reads `float [10]`. An
// artificial array `L@N` is cast through `&(L)`, which reads nothing.
QString reinterpretCast(const QString& expression, const QString& type, bool expressionIsArray,
                        const QVector<DimBounds>& currentDims);

// The reinterpreting cast of a container's elements, a form of the
// service's own after gdb's `{type} address`: `{float [125]} v` means
// "floats from the address of v's first element on, contiguous and
// row-major". A type without dimensions keeps the container's.
QString containerReinterpretCast(const QString& expression, const QString& type,
                                 const QVector<DimBounds>& currentDims);

// A Fortran cast as a person types it: `integer`, `integer(4)`,
// `integer(kind=4)`, `integer*4`, `real(8)`, `double precision`,
// `logical`, `character`, in any case, optionally followed by a shape of
// extents `(20,8)` or bounds `(0:19,-2:5)`. A parenthesis glued to the type
// name, or one that says `kind=`, is the kind; one after a blank is the
// shape, as gdb writes them (`real(kind=8) (0:9,-2:5)`).
struct FortranCastType {
    // gdb's words for one element: "integer(kind=4)", "character(kind=1)".
    QString elementType;
    int elementSize = 0;
    bool hasShape = false;
    QVector<DimBounds> dims;
};

// False with `error` in plain words for an unknown type, a kind the type
// does not have, or a shape that cannot be read.
bool parseFortranCastType(const QString& text, FortranCastType& out, QString& error);

// gdb's type text of a Fortran array: "integer(kind=4) (0:19,-2:5)"; a
// dimension whose lower bound is 1 is written as its extent, "(20,8)".
QString fortranArrayType(const QString& elementType, const QVector<DimBounds>& dims);

// The reinterpreting cast of a Fortran expression: `{T (bounds)} E`, after
// gdb's `{type} address`, meaning "T's elements from the address of E's
// first element on, contiguous and column-major". gdb's Fortran parser has
// no pointer cast, so the service resolves this form itself; the bounds are
// written in full, so the text alone says everything. A type without a shape
// takes `currentDims`. Empty when the cast comes to `declaredType` (gdb's
// text of the expression's own type), which takes the cast away. When the
// type cannot be read, `error` says why and the text still carries what was
// typed, so that the requests refuse it in the same words.
QString fortranReinterpretCast(const QString& expression, const QString& type,
                               const QString& declaredType, const QVector<DimBounds>& currentDims,
                               QString& error);

// Splits `{T} E` into its type text and expression; nothing when the text
// is not of that form.
struct FortranCastText {
    QString type;
    QString expression;
};
std::optional<FortranCastText> splitFortranCast(const QString& text);

enum class ElementClass {
    Signed,
    Unsigned,
    Bool,
    Char,
    SignedChar,
    UnsignedChar,
    WChar,
    Char16,
    Char32,
    Float,
    Logical,
    Character,
    Unsupported
};

// The class of an element from its resolved (ptype) text and language; the
// size decides the width.
ElementClass classifyElement(const QString& resolvedType, bool fortran);

} // namespace arraylens::gdb
