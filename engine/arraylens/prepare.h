// What every operation over a selection of an array does first: check the
// descriptor, read the slice against it and compile the filter. The first
// of the three to fail gives the error the request answers with.
#pragma once

#include "descriptor.h"
#include "filter.h"
#include "result.h"
#include "slice.h"

#include <string_view>

namespace arraylens {

struct Selection {
    Slice slice;
    Filter filter;
};

Result<Selection> prepareSelection(const ArrayDescriptor& array, std::string_view sliceText,
                                   std::string_view filterText);

} // namespace arraylens
