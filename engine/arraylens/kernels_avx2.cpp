// The loops of kernels.inc built for AVX2, with the window scans written out:
// four values at a time are compared with every window, and those inside
// any window are packed to the front of a vector by a table of permutations
// and stored, with no branch, for the exact look at their keys.
#include "kernels.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <immintrin.h>
#include <type_traits>
#include <utility>

namespace arraylens::kernels::avx2 {

namespace generic {
#include "kernels.inc"
} // namespace generic

namespace {

// For each 4-bit mask of lanes, the 32-bit lane pairs that move the chosen
// doubles to the front, in order.
struct CompressTable {
    alignas(32) std::int32_t idx[16][8];
    CompressTable() {
        for (int m = 0; m < 16; ++m) {
            int k = 0;
            for (int lane = 0; lane < 4; ++lane)
                if (m & (1 << lane)) {
                    idx[m][2 * k] = 2 * lane;
                    idx[m][2 * k + 1] = 2 * lane + 1;
                    ++k;
                }
            for (; k < 4; ++k)
                idx[m][2 * k] = idx[m][2 * k + 1] = 0;
        }
    }
};
const CompressTable kCompress;

// Stores the 64-bit lanes of x that `mask` picks, in order, at `out`,
// which has room for four; how many it picked.
std::size_t packLanes(__m256i x, int mask, void* out) {
    const __m256i perm = _mm256_load_si256(reinterpret_cast<const __m256i*>(kCompress.idx[mask]));
    _mm256_storeu_si256(static_cast<__m256i*>(out), _mm256_permutevar8x32_epi32(x, perm));
    return static_cast<std::size_t>(__builtin_popcount(static_cast<unsigned>(mask)));
}

std::uint64_t laneSum(__m256i v) {
    alignas(32) std::uint64_t lanes[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), v);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}

// The number of windows is a template argument so that their bounds and
// counts stay in registers.
template <unsigned NW>
void scanN(const double* v, std::size_t n, const ScanWindows& w, bool floatKeys, WindowTally& tally,
           std::uint64_t* const* out, std::size_t* counts) {
    __m256d lo[NW], hi[NW];
    __m256i under[NW];
    for (unsigned j = 0; j < NW; ++j) {
        lo[j] = _mm256_set1_pd(w.loValue[j]);
        hi[j] = _mm256_set1_pd(w.hiValue[j]);
        under[j] = _mm256_setzero_si256();
    }
    // Room for the last full store of four.
    double cand[kBlock + 4];
    std::size_t nc = 0;
    std::size_t i = 0;
    // Eight values at a time: most often none of them is inside any window,
    // and then one branch skips the packing of both fours.
    for (; i + 8 <= n; i += 8) {
        const __m256d x0 = _mm256_loadu_pd(v + i);
        const __m256d x1 = _mm256_loadu_pd(v + i + 4);
        __m256d any0 = _mm256_setzero_pd(), any1 = _mm256_setzero_pd();
        for (unsigned j = 0; j < NW; ++j) {
            const __m256d lt0 = _mm256_cmp_pd(x0, lo[j], _CMP_LT_OQ);
            const __m256d lt1 = _mm256_cmp_pd(x1, lo[j], _CMP_LT_OQ);
            under[j] = _mm256_sub_epi64(
                under[j], _mm256_add_epi64(_mm256_castpd_si256(lt0), _mm256_castpd_si256(lt1)));
            any0 = _mm256_or_pd(any0, _mm256_andnot_pd(lt0, _mm256_cmp_pd(x0, hi[j], _CMP_LE_OQ)));
            any1 = _mm256_or_pd(any1, _mm256_andnot_pd(lt1, _mm256_cmp_pd(x1, hi[j], _CMP_LE_OQ)));
        }
        const int m0 = _mm256_movemask_pd(any0), m1 = _mm256_movemask_pd(any1);
        if ((m0 | m1) == 0)
            continue;
        nc += packLanes(_mm256_castpd_si256(x0), m0, cand + nc);
        nc += packLanes(_mm256_castpd_si256(x1), m1, cand + nc);
    }
    for (; i + 4 <= n; i += 4) {
        const __m256d x = _mm256_loadu_pd(v + i);
        __m256d any = _mm256_setzero_pd();
        for (unsigned j = 0; j < NW; ++j) {
            const __m256d lt = _mm256_cmp_pd(x, lo[j], _CMP_LT_OQ);
            // A true compare is -1 in every bit: subtracting counts it.
            under[j] = _mm256_sub_epi64(under[j], _mm256_castpd_si256(lt));
            const __m256d le = _mm256_cmp_pd(x, hi[j], _CMP_LE_OQ);
            any = _mm256_or_pd(any, _mm256_andnot_pd(lt, le));
        }
        nc += packLanes(_mm256_castpd_si256(x), _mm256_movemask_pd(any), cand + nc);
    }
    for (unsigned j = 0; j < NW; ++j) {
        std::uint64_t u = laneSum(under[j]);
        for (std::size_t t = i; t < n; ++t)
            u += v[t] < w.loValue[j];
        tally.under[j] += u;
    }
    for (; i < n; ++i) {
        bool in = false;
        for (unsigned j = 0; j < NW; ++j)
            in = in || (v[i] >= w.loValue[j] && v[i] <= w.hiValue[j]);
        cand[nc] = v[i];
        nc += in;
    }
    generic::addNegativeZeros(v, n, w, tally);
    generic::distribute(cand, nc, w, floatKeys, out, counts);
}

// scanN<1> .. scanN<kMaxWindows>, by the number of windows less one.
template <std::size_t... I>
constexpr std::array<Ops::Scan, sizeof...(I)> scansByCount(std::index_sequence<I...>) {
    return {{&scanN<I + 1>...}};
}
constexpr auto kScans = scansByCount(std::make_index_sequence<kMaxWindows>());

void scan(const double* v, std::size_t n, const ScanWindows& w, bool floatKeys, WindowTally& tally,
          std::uint64_t* const* out, std::size_t* counts) {
    if (w.count > 0)
        kScans[w.count - 1](v, n, w, floatKeys, tally, out, counts);
}

// The same over integer keys. AVX2 compares 64-bit lanes as signed only:
// keys with their top bit flipped compare as signed as the keys do
// unsigned. A key is outside every window when it is below or above each.
template <unsigned NW>
void scanKeysN(const std::uint64_t* k, std::size_t n, const ScanWindows& w, WindowTally& tally,
               std::uint64_t* const* out, std::size_t* counts) {
    constexpr std::uint64_t kTop = std::uint64_t(1) << 63;
    const __m256i flip = _mm256_set1_epi64x(static_cast<long long>(kTop));
    __m256i lo[NW], hi[NW], under[NW];
    for (unsigned j = 0; j < NW; ++j) {
        lo[j] = _mm256_set1_epi64x(static_cast<long long>(w.lo[j] ^ kTop));
        hi[j] = _mm256_set1_epi64x(static_cast<long long>((w.lo[j] + w.span[j]) ^ kTop));
        under[j] = _mm256_setzero_si256();
    }
    std::uint64_t cand[kBlock + 4];
    std::size_t nc = 0;
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m256i key = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(k + i));
        const __m256i x = _mm256_xor_si256(key, flip);
        __m256i outside = _mm256_set1_epi64x(-1);
        for (unsigned j = 0; j < NW; ++j) {
            const __m256i lt = _mm256_cmpgt_epi64(lo[j], x);
            under[j] = _mm256_sub_epi64(under[j], lt);
            const __m256i gt = _mm256_cmpgt_epi64(x, hi[j]);
            outside = _mm256_and_si256(outside, _mm256_or_si256(lt, gt));
        }
        nc += packLanes(key, _mm256_movemask_pd(_mm256_castsi256_pd(outside)) ^ 0xf, cand + nc);
    }
    for (unsigned j = 0; j < NW; ++j) {
        std::uint64_t u = laneSum(under[j]);
        for (std::size_t t = i; t < n; ++t)
            u += k[t] < w.lo[j];
        tally.under[j] += u;
    }
    for (; i < n; ++i) {
        bool in = false;
        for (unsigned j = 0; j < NW; ++j)
            in = in || k[i] - w.lo[j] <= w.span[j];
        cand[nc] = k[i];
        nc += in;
    }
    generic::distributeKeys(cand, nc, w, out, counts);
}

template <std::size_t... I>
constexpr std::array<Ops::ScanKeys, sizeof...(I)> scanKeysByCount(std::index_sequence<I...>) {
    return {{&scanKeysN<I + 1>...}};
}
constexpr auto kScanKeys = scanKeysByCount(std::make_index_sequence<kMaxWindows>());

void scanKeys(const std::uint64_t* k, std::size_t n, const ScanWindows& w, WindowTally& tally,
              std::uint64_t* const* out, std::size_t* counts) {
    if (w.count > 0)
        kScanKeys[w.count - 1](k, n, w, tally, out, counts);
}

} // namespace

// The AVX-512 build shares these scans.
Ops::Scan avx2Scan() {
    return scan;
}
Ops::ScanKeys avx2ScanKeys() {
    return scanKeys;
}

const Ops& table() {
    static const Ops t = [] {
        Ops o = generic::table();
        o.scan = scan;
        o.scanKeys = scanKeys;
        return o;
    }();
    return t;
}

} // namespace arraylens::kernels::avx2
