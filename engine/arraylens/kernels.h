// The innermost loops of the statistics pass, over one block of elements
// already in memory. Each loop does one simple thing over the whole block so
// that the compiler turns it into vector instructions. The same source is
// built for the baseline processor and, on x86-64, once more for AVX2 and
// for AVX-512; the processor's own choice is made once. All builds give the
// same results to the bit: they add in the same order and none fuses
// multiplies and adds.
#pragma once

#include <cstddef>
#include <cstdint>

namespace arraylens::kernels {

// Elements per block: the block, its finite values and the scan's
// candidates stay in the core's first-level cache.
constexpr std::size_t kBlock = 1024;

// The most key windows one scan checks.
constexpr unsigned kMaxWindows = 8;

// Classes of the elements of one block of IEEE values.
struct ClassCounts {
    std::uint64_t zero = 0, nan = 0, inf = 0, denorm = 0;
};

// Of the finite values of one block: their pairwise sum, extremes, and the
// sum of squared deviations from their own mean.
struct FiniteMoments {
    double sum = 0, min = 0, max = 0, m2 = 0;
};

// Ranges of order-preserving keys, each [lo, lo + span], and the same ranges
// as values [loValue, hiValue]: a scan compares values, which needs no key
// for the many that fall outside every window. The two agree except at zero:
// a window starting at the key of +0 also holds -0 by value, so the scan
// counts the block's -0 below such a window itself (`loPlusZero`).
struct ScanWindows {
    unsigned count = 0;
    std::uint64_t lo[kMaxWindows] = {};
    std::uint64_t span[kMaxWindows] = {};
    double loValue[kMaxWindows] = {};
    double hiValue[kMaxWindows] = {};
    bool loPlusZero[kMaxWindows] = {};
};

// What a scan adds up, per window: the keys below it.
struct WindowTally {
    std::uint64_t under[kMaxWindows] = {};
};

// Of one block of integers, by their keys: the smallest and largest, the
// zeros, and the exact sum of the keys and of their squares (squaresHigh *
// 2^128 + squaresLow). A key is the value plus a constant, so its spread
// is the values' own.
struct IntegerBlock {
    std::uint64_t minKey = 0, maxKey = 0, zero = 0;
    unsigned __int128 keySum = 0;
    unsigned __int128 squaresLow = 0;
    std::uint64_t squaresHigh = 0;
};

struct Ops {
    // Classes of n doubles (floats); the number of finite ones is returned
    // and *finite points at them as doubles: at v itself when every double
    // is finite, at `scratch`, which has room for n, otherwise.
    std::size_t (*classifyF64)(const double* v, std::size_t n, double* scratch,
                               const double** finite, ClassCounts& c);
    std::size_t (*classifyF32)(const float* v, std::size_t n, double* scratch,
                               const double** finite, ClassCounts& c);
    // Over n > 0 finite values.
    FiniteMoments (*moments)(const double* v, std::size_t n);
    // Tallies n finite values, at most kBlock, against the windows, and
    // writes the keys of those inside window j to out[j], which has room for
    // n, and their number to counts[j]. The keys are those of the values'
    // own type: a float's (`floatKeys`) has 32 bits.
    using Scan = void (*)(const double* v, std::size_t n, const ScanWindows& w, bool floatKeys,
                          WindowTally& tally, std::uint64_t* const* out, std::size_t* counts);
    Scan scan;
    // n integer elements of `width` bytes (1, 2, 4 or 8), signed or not, at
    // most kBlock: each one's order-preserving key, the value plus `bias`
    // (2^(bits - 1) for signed kinds of that many bits, wrapping), to
    // keys[i], and the block's sums.
    void (*integers)(const void* v, unsigned width, bool isSigned, std::size_t n,
                     std::uint64_t bias, std::uint64_t* keys, IntegerBlock& out);
    // The scan of integer elements, by their keys: exact, with no values
    // between. Tallies and writes as `scan` does.
    using ScanKeys = void (*)(const std::uint64_t* keys, std::size_t n, const ScanWindows& w,
                              WindowTally& tally, std::uint64_t* const* out, std::size_t* counts);
    ScanKeys scanKeys;
};

// The loops for this processor.
const Ops& ops();
// Every build this processor can run, fastest first, with its name
// ("avx512", "avx2", "baseline"): all give the same results.
struct Build {
    const char* name;
    const Ops* ops;
};
int builds(Build* out); // at most 3
// The name of the build ops() chose.
const char* opsName();

} // namespace arraylens::kernels
