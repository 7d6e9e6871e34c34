// Reading gdb's type texts and answers. Pure text functions, so that the
// rules for C and Fortran shapes are tested without a debugger.
#pragma once

#include <QString>
#include <QVector>
#include <optional>

namespace arraylens::gdb {

struct DimBounds {
    qint64 lower = 0;
    qint64 upper = -1;
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

// The language name inside gdb's `show language` answer:
// 'The current source language is "auto; currently c".' gives "c".
QString languageFromShowLanguage(const QString& text);
// C slice syntax: "c", "c++" and "upc", in any case.
bool isCStyleLanguage(const QString& language);
bool isFortranLanguage(const QString& language);

// The first hexadecimal number of an address answer: "0x5555 <a+8>",
// "(double *) 0x5555". Nothing when there is none.
std::optional<quint64> parseAddress(const QString& text);

// The text after "type = " of a whatis/ptype answer, first line only.
QString typeFromWhatis(const QString& consoleText);

// Wraps an expression so that it can be indexed, called or have its address
// taken without binding to a neighbouring operator.
QString parenthesised(const QString& expression);

// The left operand of a gdb artificial array (`*p@100` gives `*p`), or
// nothing when the expression has no `@` outside brackets, parentheses and
// quotes.
std::optional<QString> repeatOperand(const QString& expression);

// An element of the array by index list: C `(E)[0][1]`, Fortran `(E)(0,-2)`.
// For an artificial array `L@N` the element is `(&(L))[i]...`: gdb reads the
// whole of `L@N` whenever it evaluates it, even to take an address, while a
// pointer to its first element costs nothing.
QString elementExpression(const QString& expression, const QVector<qint64>& index, bool fortran);

// The reinterpreting cast that makes `expression` show as type `type`:
// `*(double(*)[1000])&(E)` for an array, `*(double(*)[1000])(E)` for a
// pointer. A type without dimensions keeps the dimensions the array has now
// (`currentDims`), so `float` over `int [10]` reads `float [10]`.
QString reinterpretCast(const QString& expression, const QString& type, bool expressionIsArray,
                        const QVector<DimBounds>& currentDims);

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
