// The loops of kernels.inc built for AVX-512, with the window scan written
// out: its compares give masks, and a compressing store writes just the
// keys inside a window, which the compiler does not find by itself.
#include "kernels.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace arraylens::kernels::avx512 {

namespace generic {
#include "kernels.inc"
} // namespace generic

namespace {

void scan(const std::uint64_t* keys, std::size_t n, const KeyWindows& w, WindowTally& tally,
          std::uint64_t* const* out, std::size_t* counts) {
    for (unsigned j = 0; j < w.count; ++j) {
        const __m512i lo = _mm512_set1_epi64(static_cast<long long>(w.lo[j]));
        const __m512i span = _mm512_set1_epi64(static_cast<long long>(w.span[j]));
        std::uint64_t under = 0;
        std::uint64_t* o = out[j];
        std::size_t c = 0;
        std::size_t i = 0;
        for (; i + 8 <= n; i += 8) {
            const __m512i k = _mm512_loadu_si512(keys + i);
            const __mmask8 below = _mm512_cmplt_epu64_mask(k, lo);
            const __mmask8 in = _mm512_cmple_epu64_mask(_mm512_sub_epi64(k, lo), span);
            under += static_cast<unsigned>(__builtin_popcount(below));
            _mm512_mask_compressstoreu_epi64(o + c, in, k);
            c += static_cast<unsigned>(__builtin_popcount(in));
        }
        for (; i < n; ++i) {
            const std::uint64_t k = keys[i];
            under += k < w.lo[j];
            o[c] = k;
            c += (k - w.lo[j]) <= w.span[j];
        }
        tally.under[j] += under;
        counts[j] = c;
    }
}

} // namespace

const Ops& table() {
    static const Ops t = [] {
        Ops o = generic::table();
        o.scan = scan;
        return o;
    }();
    return t;
}

} // namespace arraylens::kernels::avx512
