#include "info.h"

#include "slice.h"

namespace arraylens {

Result<ArrayInfo> arrayInfo(const ArrayDescriptor& array, const ArrayInfoOptions&) {
    Status v = validate(array);
    if (!v)
        return v.error();
    ArrayInfo info;
    info.arrayName = array.expression;
    info.actualType = array.typeName;
    info.dimCount = static_cast<int>(array.dims.size());
    for (const Dimension& d : array.dims)
        info.arrayBounds.push_back(boundsText(d));
    info.emptySlice = wholeArraySliceText(array);
    info.dataType = dataTypeOf(array.kind);
    return info;
}

} // namespace arraylens
