// The loops of kernels.inc built for AVX-512. The window scans are the AVX2
// ones: its packing of the values inside windows is done by a table, which
// four lanes keep small.
#include "kernels.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace arraylens::kernels {

namespace avx2 {
Ops::Scan avx2Scan();
Ops::ScanKeys avx2ScanKeys();
} // namespace avx2

namespace avx512 {

namespace generic {
#include "kernels.inc"
} // namespace generic

const Ops& table() {
    static const Ops t = [] {
        Ops o = generic::table();
        o.scan = avx2::avx2Scan();
        o.scanKeys = avx2::avx2ScanKeys();
        return o;
    }();
    return t;
}

} // namespace avx512
} // namespace arraylens::kernels
