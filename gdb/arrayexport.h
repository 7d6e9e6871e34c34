// Writing an array's selected elements to a .npy or .csv file: a request of
// the service's own ("ArrayExportRequest"), answered on a worker thread like
// the four array operations, so that the command-line tool and the shell
// export the same way.
//
// Request: "Expression", "Focus", "ScopeID", "FrameRecursionDepth" as for
// the others, "Slice", "Filter", and "OutFile" (the path; its extension
// picks the format). Answer: "File", "Format" ("npy" or "csv"), "Count"
// (elements written), "Shape" (a list of extents: the .npy shape, or the
// CSV's rows and columns), "DType" and "FortranOrder" for .npy,
// "ActualType", "EmptySlice", "Filter", and "result".
#pragma once

#include "arrayoperations.h"

#include "wire/hvdwppacket.h"

class IHVExpression;

namespace arraylens::gdb {

constexpr const char* kExportRequestId = "ArrayExportRequest";

// The request for `expression` as last evaluated.
HVDWPRequest exportRequest(IHVExpression* expression, const QString& slice, const QString& filter,
                           const QString& path);

// Writes the file; runs on a worker thread with the array resolved.
Fields exportFields(const RequestSnapshot& request, const ArrayFacts& facts, std::size_t tileBytes,
                    const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                    const std::atomic<bool>* cancel);

} // namespace arraylens::gdb
