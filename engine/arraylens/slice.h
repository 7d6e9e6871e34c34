// Slices: which elements of an array a request is about, and in what order.
//
// Text forms: C `[a:b:s][c:d]`, one bracket group per dimension, and Fortran
// `(a:b:s,c:d)`. The form is told by the first character, not the language.
// Per dimension: `a:b:s`, `a:b`, `:`, a single index `n` (same as `n:n`), and
// empty ends (`:5`, `3:`, `::2`) standing for the bound in the direction of
// the stride. Ends are inclusive; a negative stride runs from the start down.
// A dimension given as one index (`n`, `n:n`) is fixed and leaves the rank;
// the result lists the kept dimensions row-major, first dimension slowest.
#pragma once

#include "descriptor.h"
#include "result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens {

struct SliceDim {
    std::int64_t start = 0;
    std::int64_t end = 0; // as given, or the bound an empty end stands for
    std::int64_t stride = 1;
    std::int64_t count = 0; // indices selected
    bool fixed = false;     // one index given: dropped from the result's rank
    std::int64_t last() const { return start + (count - 1) * stride; }
    // The index of the k-th selected one, for k from 0 to count - 1.
    std::int64_t index(std::int64_t k) const { return start + k * stride; }
    // Bytes from one selected element to the next, over a dimension whose
    // elements lie byteStride apart. With one element selected the stride
    // can be anything up to 2^63 and is never stepped: the dimension's own
    // byte stride stands in, where the product could overflow.
    std::int64_t byteStep(std::int64_t byteStride) const {
        return count > 1 ? stride * byteStride : byteStride;
    }
};

struct Slice {
    Language form = Language::C; // form of the text, or the language's when empty
    bool whole = true;           // the text was empty: the whole array
    std::vector<SliceDim> dims;  // one per array dimension, declaration order

    std::size_t rank() const;    // kept dimensions
    std::uint64_t count() const; // elements selected
    std::vector<std::size_t> keptDims() const;
};

// Parses `text` against the array; the empty (or blank) text is the whole
// array. Every refusal says what is wrong and where.
Result<Slice> parseSlice(std::string_view text, const ArrayDescriptor& array);

// The slice of the whole array, in the form of the array's language, without
// strides: `[0:9][0:19]` or `(0:9,-2:5)`.
std::string wholeArraySliceText(const ArrayDescriptor& array);
// Every number written: `[0:0:1][0:9:1][0:19:2]` or `(1:10:1,2:2:1)`.
std::string normalFormText(const std::vector<SliceDim>& dims, Language form);
// `lower:upper` of one dimension.
std::string boundsText(const Dimension& dim);

// Where the selected elements lie in memory, kept dimensions only, in result
// order. A slice with no kept dimension gives one element of extent 1.
struct Layout {
    std::uint64_t base = 0; // address of the first element in result order
    std::size_t elementSize = 0;
    std::vector<std::int64_t> extents;
    std::vector<std::int64_t> byteStrides;
    std::uint64_t count() const;
};

Layout layoutOf(const ArrayDescriptor& array, const std::vector<SliceDim>& dims);

} // namespace arraylens
