#include "descriptor.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace arraylens {

namespace {

const KindInfo kKinds[] = {
    {ElementKind::Int8, Repr::I8, DataType::Integer, 1, "int8"},
    {ElementKind::Int16, Repr::I16, DataType::Integer, 2, "int16"},
    {ElementKind::Int32, Repr::I32, DataType::Integer, 4, "int32"},
    {ElementKind::Int64, Repr::I64, DataType::Integer, 8, "int64"},
    {ElementKind::UInt8, Repr::U8, DataType::Integer, 1, "uint8"},
    {ElementKind::UInt16, Repr::U16, DataType::Integer, 2, "uint16"},
    {ElementKind::UInt32, Repr::U32, DataType::Integer, 4, "uint32"},
    {ElementKind::UInt64, Repr::U64, DataType::Integer, 8, "uint64"},
    {ElementKind::Bool, Repr::L8, DataType::Integer, 1, "bool"},
    {ElementKind::Char, Repr::I8, DataType::Character, 1, "char"},
    {ElementKind::SignedChar, Repr::I8, DataType::Character, 1, "signed char"},
    {ElementKind::UnsignedChar, Repr::U8, DataType::Character, 1, "unsigned char"},
    {ElementKind::WChar, Repr::I32, DataType::Character, 4, "wchar_t"},
    {ElementKind::Char16, Repr::U16, DataType::Character, 2, "char16_t"},
    {ElementKind::Char32, Repr::U32, DataType::Character, 4, "char32_t"},
    {ElementKind::Float, Repr::F32, DataType::Float, 4, "float"},
    {ElementKind::Double, Repr::F64, DataType::Float, 8, "double"},
    {ElementKind::LongDouble, Repr::F80, DataType::Float, 16, "long double"},
    {ElementKind::FortranReal4, Repr::F32, DataType::Float, 4, "real(4)"},
    {ElementKind::FortranReal8, Repr::F64, DataType::Float, 8, "real(8)"},
    {ElementKind::FortranInteger1, Repr::I8, DataType::Integer, 1, "integer(1)"},
    {ElementKind::FortranInteger2, Repr::I16, DataType::Integer, 2, "integer(2)"},
    {ElementKind::FortranInteger4, Repr::I32, DataType::Integer, 4, "integer(4)"},
    {ElementKind::FortranInteger8, Repr::I64, DataType::Integer, 8, "integer(8)"},
    {ElementKind::FortranLogical1, Repr::L8, DataType::Integer, 1, "logical(1)"},
    {ElementKind::FortranLogical2, Repr::L16, DataType::Integer, 2, "logical(2)"},
    {ElementKind::FortranLogical4, Repr::L32, DataType::Integer, 4, "logical(4)"},
    {ElementKind::FortranLogical8, Repr::L64, DataType::Integer, 8, "logical(8)"},
    {ElementKind::FortranCharacter, Repr::U8, DataType::Character, 1, "character(1)"},
};

// The byte stride of the next dimension out. It saturates rather than
// overflows: validate() refuses an array that large.
std::int64_t nextStride(std::int64_t stride, std::int64_t extent) {
    std::int64_t next;
    if (__builtin_mul_overflow(stride, std::max<std::int64_t>(extent, 1), &next))
        return std::numeric_limits<std::int64_t>::max();
    return next;
}

} // namespace

const KindInfo& kindInfo(ElementKind kind) {
    for (const KindInfo& k : kKinds)
        if (k.kind == kind)
            return k;
    return kKinds[0];
}

const std::vector<ElementKind>& allElementKinds() {
    static const std::vector<ElementKind> all = [] {
        std::vector<ElementKind> v;
        for (const KindInfo& k : kKinds)
            v.push_back(k.kind);
        return v;
    }();
    return all;
}

DataType dataTypeOf(ElementKind kind) {
    return kindInfo(kind).dataType;
}

bool isFloatingKind(ElementKind kind) {
    return kindInfo(kind).dataType == DataType::Float;
}
bool isCharacterKind(ElementKind kind) {
    return kindInfo(kind).dataType == DataType::Character;
}
bool isLogicalKind(ElementKind kind) {
    Repr r = kindInfo(kind).repr;
    return r == Repr::L8 || r == Repr::L16 || r == Repr::L32 || r == Repr::L64;
}

std::size_t valueBytes(Repr repr) {
    switch (repr) {
    case Repr::I8:
    case Repr::U8:
    case Repr::L8:
        return 1;
    case Repr::I16:
    case Repr::U16:
    case Repr::L16:
        return 2;
    case Repr::I32:
    case Repr::U32:
    case Repr::L32:
    case Repr::F32:
        return 4;
    case Repr::I64:
    case Repr::U64:
    case Repr::L64:
    case Repr::F64:
        return 8;
    case Repr::F80:
        return 10;
    }
    return 1;
}

Language languageFromName(std::string_view name) {
    std::string lower;
    for (char c : name)
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return (lower == "c" || lower == "c++" || lower == "upc") ? Language::C : Language::Fortran;
}

ArrayDescriptor ArrayDescriptor::cArray(ElementKind kind, std::uint64_t address,
                                        const std::vector<std::int64_t>& extents) {
    ArrayDescriptor d;
    d.kind = kind;
    d.elementSize = kindInfo(kind).size;
    d.address = address;
    d.language = Language::C;
    d.dims.resize(extents.size());
    std::int64_t stride = static_cast<std::int64_t>(d.elementSize);
    for (std::size_t i = extents.size(); i-- > 0;) {
        d.dims[i] = Dimension{0, extents[i] - 1, stride};
        stride = nextStride(stride, extents[i]);
    }
    return d;
}

ArrayDescriptor
ArrayDescriptor::fortranArray(ElementKind kind, std::uint64_t address,
                              const std::vector<std::pair<std::int64_t, std::int64_t>>& bounds) {
    ArrayDescriptor d;
    d.kind = kind;
    d.elementSize = kindInfo(kind).size;
    d.address = address;
    d.language = Language::Fortran;
    std::int64_t stride = static_cast<std::int64_t>(d.elementSize);
    for (const auto& b : bounds) {
        d.dims.push_back(Dimension{b.first, b.second, stride});
        stride = nextStride(stride, d.dims.back().extent());
    }
    return d;
}

std::uint64_t ArrayDescriptor::elementCount() const {
    std::uint64_t n = 1;
    for (const Dimension& d : dims)
        n *= static_cast<std::uint64_t>(d.extent());
    return n;
}

std::string dimensionName(std::size_t dim) {
    std::string s = "dimension " + std::to_string(dim + 1);
    if (dim < kDimensionLetters.size()) {
        s += " (";
        s += kDimensionLetters[dim];
        s += ')';
    }
    return s;
}

Status validate(const ArrayDescriptor& array) {
    const KindInfo& info = kindInfo(array.kind);
    if (info.kind != array.kind)
        return Error{ErrorCode::UnsupportedType, "The element type of the array is not supported."};
    bool sizeOk = info.repr == Repr::F80 ? (array.elementSize == 10 || array.elementSize == 12 ||
                                            array.elementSize == 16)
                                         : array.elementSize == info.size;
    if (!sizeOk)
        return Error{ErrorCode::UnsupportedType,
                     "Elements of type " + std::string(info.name) + " cannot be " +
                         std::to_string(array.elementSize) + " bytes long."};
    if (array.dims.empty())
        return Error{ErrorCode::BadRequest, "The expression is not an array."};
    if (array.dims.size() > kDimensionLetters.size())
        return Error{ErrorCode::BadRequest, "The array has " + std::to_string(array.dims.size()) +
                                                " dimensions; at most " +
                                                std::to_string(kDimensionLetters.size()) +
                                                " are supported."};
    constexpr __int128 kLimit = std::numeric_limits<std::int64_t>::max();
    __int128 reach = 0, count = 1;
    for (std::size_t i = 0; i < array.dims.size(); ++i) {
        const Dimension& d = array.dims[i];
        if (d.upper < d.lower) {
            count = 0;
            continue;
        }
        const __int128 extent = static_cast<__int128>(d.upper) - d.lower + 1;
        const __int128 stride = d.byteStride < 0 ? -static_cast<__int128>(d.byteStride)
                                                 : static_cast<__int128>(d.byteStride);
        // No step overflows: extent and stride are at most 2^63, and the
        // sum is checked after every term.
        if (extent <= kLimit)
            reach += (extent - 1) * stride;
        if (extent > kLimit || reach > kLimit)
            return Error{ErrorCode::BadRequest,
                         "The array is too large: " + dimensionName(i) + ", bounds " +
                             std::to_string(d.lower) + ":" + std::to_string(d.upper) +
                             ", reaches beyond what 64-bit offsets can address."};
        if (count != 0)
            count = std::min(count * extent, kLimit + 1);
    }
    if (count > kLimit)
        return Error{ErrorCode::BadRequest,
                     "The array is too large: it has more than 2^63 elements."};
    return Status::Ok();
}

} // namespace arraylens
