// The loops of kernels.inc built for AVX-512. The window scan is the AVX2
// one: its packing of the values inside windows is done by a table, which
// four lanes keep small.
#include "kernels.h"

#include <cstddef>
#include <cstdint>

namespace arraylens::kernels {

namespace avx2 {
Ops::Scan avx2Scan();
} // namespace avx2

namespace avx512 {

namespace generic {
#include "kernels.inc"
} // namespace generic

const Ops& table() {
    static const Ops t = [] {
        Ops o = generic::table();
        o.scan = avx2::avx2Scan();
        return o;
    }();
    return t;
}

} // namespace avx512
} // namespace arraylens::kernels
