// Writing the selected elements of an array to a file: numpy's .npy format
// or CSV text.
//
// .npy: the slice's elements with the element's dtype and the slice's shape
// (its kept dimensions in declaration order). A Fortran array is written in
// its logical index order, first index fastest, with `fortran_order: True`,
// so that numpy's a[i, j] is the program's x(lo1 + i, lo2 + j) for a whole
// array. A filter makes a one-dimensional result of the passing elements in
// result order, as plots have them. Logicals and bools become numpy bools
// (any non-zero value true), characters their codes (integers of their own
// width and sign); long double is refused, numpy having no type for the x87
// format that every reader shares.
//
// .csv: the table's plane (the table's default rows and columns, other
// dimensions at their first index), one line per row; floating point in the
// shortest text that reads back to the same value, integers, characters and
// logicals as decimal numbers. With a filter, one passing value per line.
//
// The file is written under a temporary name beside it and renamed when
// complete, so that a failed export leaves no half file. The elements are
// read a tile at a time; the whole array is never in memory at once.
#pragma once

#include "descriptor.h"
#include "options.h"
#include "reader.h"
#include "result.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace arraylens {

enum class ExportFormat { Npy, Csv };

struct ExportOptions : PassOptions {
    static ExportOptions Defaults() { return ExportOptions{}; }
};

struct ExportSummary {
    ExportFormat format = ExportFormat::Npy;
    std::uint64_t count = 0;         // elements written
    std::vector<std::int64_t> shape; // .npy: as in the header; .csv: rows and columns
    bool fortranOrder = false;       // .npy only
    std::string dtype;               // .npy only: '<f8', '|b1', ...
};

// The format a file name asks for by its extension (any case); an error
// for any other.
Result<ExportFormat> exportFormatOf(std::string_view path);

// The numpy dtype of an element kind; an error for long double.
Result<std::string> npyDtype(ElementKind kind);

// Writes the slice's elements that pass the filter to `path`, in the format
// its extension names.
Result<ExportSummary> exportElements(const ArrayDescriptor& array, Reader& reader,
                                     std::string_view slice, std::string_view filter,
                                     const std::string& path,
                                     const ExportOptions& options = ExportOptions::Defaults());

} // namespace arraylens
