// What the engine knows of an array: the kind and size of its elements, the
// address of its first element, and per dimension the bounds and the byte
// stride. Byte strides make C arrays, Fortran arrays and strided Fortran
// sections one and the same case.
#pragma once

#include "result.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens {

enum class ElementKind {
    Int8,
    Int16,
    Int32,
    Int64,
    UInt8,
    UInt16,
    UInt32,
    UInt64,
    Bool,       // C and C++ bool, one byte
    Char,       // plain char (signed on this platform)
    SignedChar, // signed char
    UnsignedChar,
    WChar, // wchar_t, 4 bytes, signed
    Char16,
    Char32,
    Float,
    Double,
    LongDouble, // x87 80-bit extended, stored in 10, 12 or 16 bytes
    FortranReal4,
    FortranReal8,
    FortranInteger1,
    FortranInteger2,
    FortranInteger4,
    FortranInteger8,
    FortranLogical1,
    FortranLogical2,
    FortranLogical4,
    FortranLogical8,
    FortranCharacter, // character(1)
};

// How the bytes of an element are held; the code paths are chosen by this.
enum class Repr {
    I8,
    I16,
    I32,
    I64,
    U8,
    U16,
    U32,
    U64,
    L8, // logicals and bools: any non-zero value is true
    L16,
    L32,
    L64,
    F32,
    F64,
    F80,
};

// The element classes that decide which display formats fit.
enum class DataType { Integer = 0, Float = 1, Character = 2, Other = 3 };

enum class Language { C, Fortran };

struct KindInfo {
    ElementKind kind;
    Repr repr;
    DataType dataType;
    std::size_t size; // natural size; LongDouble accepts 10, 12 and 16
    const char* name;
};

const KindInfo& kindInfo(ElementKind kind);
const std::vector<ElementKind>& allElementKinds();
// The element class of a kind: integers and logicals 0, floating point 1,
// characters 2.
DataType dataTypeOf(ElementKind kind);
bool isFloatingKind(ElementKind kind);
bool isCharacterKind(ElementKind kind);
bool isLogicalKind(ElementKind kind);
// Bytes of an element that carry its value (10 for the x87 format).
std::size_t valueBytes(Repr repr);

// The slice form of a language name: "c", "c++" and "upc" (any case) write C
// slices, every other language Fortran slices.
Language languageFromName(std::string_view name);

struct Dimension {
    std::int64_t lower = 0;  // lowest index, inclusive
    std::int64_t upper = -1; // highest index, inclusive; below lower when empty
    std::int64_t byteStride = 0;
    // Wraps rather than overflows for bounds too far apart to count;
    // validate() refuses those.
    std::int64_t extent() const {
        return upper >= lower ? static_cast<std::int64_t>(static_cast<std::uint64_t>(upper) -
                                                          static_cast<std::uint64_t>(lower) + 1)
                              : 0;
    }
};

struct ArrayDescriptor {
    ElementKind kind = ElementKind::Double;
    std::size_t elementSize = 8;
    std::uint64_t address = 0;   // address of the element at every lower bound
    std::vector<Dimension> dims; // declaration order
    // The language of the expression: the form of every slice text the
    // engine writes, and the table's default rows and columns.
    Language language = Language::C;
    // Echoed in the results: the expression as the user wrote it, and the
    // type text the debugger reports for it.
    std::string expression;
    std::string typeName;

    // A C array of the given extents laid out row-major, from index 0.
    static ArrayDescriptor cArray(ElementKind kind, std::uint64_t address,
                                  const std::vector<std::int64_t>& extents);
    // A Fortran array with the given (lower, upper) bounds laid out column-major.
    static ArrayDescriptor
    fortranArray(ElementKind kind, std::uint64_t address,
                 const std::vector<std::pair<std::int64_t, std::int64_t>>& bounds);

    std::uint64_t elementCount() const;
};

// Checks what the engine relies on: a known kind, a fitting element size, at
// least one dimension, no more than the letters can name, and extents, element
// count and byte offsets that all fit in 64 signed bits, so that no index or
// address computed later can overflow.
Status validate(const ArrayDescriptor& array);

// Letters that name dimensions in messages and labels.
constexpr std::string_view kDimensionLetters = "ijklmnopqrstuvwxyz";
// "dimension 2 (j)"
std::string dimensionName(std::size_t dim);

} // namespace arraylens
