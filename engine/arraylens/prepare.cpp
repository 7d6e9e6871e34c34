#include "prepare.h"

#include <utility>

namespace arraylens {

Result<Selection> prepareSelection(const ArrayDescriptor& array, std::string_view sliceText,
                                   std::string_view filterText) {
    if (Status v = validate(array); !v)
        return v.error();
    Result<Slice> slice = parseSlice(sliceText, array);
    if (!slice)
        return slice.error();
    Result<Filter> filter = compileFilter(filterText);
    if (!filter)
        return filter.error();
    return Selection{std::move(slice).value(), std::move(filter).value()};
}

} // namespace arraylens
