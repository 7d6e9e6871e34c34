#include "kernels.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace arraylens::kernels {

namespace baseline {
#include "kernels.inc"
} // namespace baseline

#ifdef ARRAYLENS_X86_KERNELS
namespace avx2 {
const Ops& table();
} // namespace avx2
namespace avx512 {
const Ops& table();
} // namespace avx512
#endif

int builds(Build* out) {
    int n = 0;
#ifdef ARRAYLENS_X86_KERNELS
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw"))
        out[n++] = Build{"avx512", &avx512::table()};
    if (__builtin_cpu_supports("avx2"))
        out[n++] = Build{"avx2", &avx2::table()};
#endif
    out[n++] = Build{"baseline", &baseline::table()};
    return n;
}

namespace {

const Build& chosen() {
    static const Build b = [] {
        Build all[3];
        builds(all);
        return all[0];
    }();
    return b;
}

} // namespace

const Ops& ops() {
    return *chosen().ops;
}

const char* opsName() {
    return chosen().name;
}

} // namespace arraylens::kernels
