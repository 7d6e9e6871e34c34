// Sums of integer elements' keys and of their squares kept exactly, so
// that Sum, Mean and StdDev are rounded once, at the end, however large
// the values are against their spread (2^62 + i has neighbours 1024 apart
// as doubles). A key is the value plus a constant (see IntegerBlock): the
// sum of the values follows from the keys', and the spread is the same.
// Integer sums do not depend on the order they are added in, so threads
// may merge them in any order and still give the same bits.
#pragma once

#include "kernels.h"

#include <cstddef>
#include <cstdint>

namespace arraylens::detail {

struct IntegerMoments {
    std::uint64_t n = 0;
    // Keys are below 2^64 and n below 2^63: the sum stays within 127 bits.
    unsigned __int128 keySum = 0;
    // k^2 < 2^128: their sum is squaresHigh * 2^128 + squaresLow.
    unsigned __int128 squaresLow = 0;
    std::uint64_t squaresHigh = 0;

    void addSquares(unsigned __int128 lo, std::uint64_t hi) {
        squaresLow += lo;
        squaresHigh += hi + (squaresLow < lo ? 1 : 0);
    }
    void add(const IntegerMoments& o) {
        n += o.n;
        keySum += o.keySum;
        addSquares(o.squaresLow, o.squaresHigh);
    }
    // A block of m values as the kernels sum it.
    void add(const kernels::IntegerBlock& b, std::size_t m) {
        n += m;
        keySum += b.keySum;
        addSquares(b.squaresLow, b.squaresHigh);
    }
};

// num / den correctly rounded to the nearest double (ties to even);
// 0 < den < 2^64.
double ratioToDouble(__int128 num, std::uint64_t den);

// The population standard deviation of the n values: the exact numerator
// n * sum(k^2) - sum(k)^2 (up to 256 bits) as a long double, its root and
// the division by n each rounded to 64 bits, then to double. Relative error
// below 2^-61 before the last rounding: the double is the correctly rounded
// one unless the exact value lies within that of a midpoint between two
// doubles, and then one of its two neighbours.
double standardDeviation(const IntegerMoments& m);

} // namespace arraylens::detail
