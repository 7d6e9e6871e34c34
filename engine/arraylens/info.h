// What the displays need to know of an array before they ask for its data.
#pragma once

#include "descriptor.h"
#include "result.h"

#include <string>
#include <vector>

namespace arraylens {

struct ArrayInfo {
    std::string arrayName;  // the expression text
    std::string actualType; // the type text the debugger reported
    int dimCount = 0;
    // One `lo:hi` per dimension in declaration order: `0:9` for a C array,
    // the declared bounds for a Fortran one.
    std::vector<std::string> arrayBounds;
    // The whole array in the expression's form: `[0:9][0:19]` or `(0:9,-2:5)`.
    std::string emptySlice;
    DataType dataType = DataType::Other;
};

struct ArrayInfoOptions {
    static ArrayInfoOptions Defaults() { return ArrayInfoOptions{}; }
};

// Reads no memory: everything comes from the descriptor.
Result<ArrayInfo> arrayInfo(const ArrayDescriptor& array,
                            const ArrayInfoOptions& options = ArrayInfoOptions::Defaults());

} // namespace arraylens
