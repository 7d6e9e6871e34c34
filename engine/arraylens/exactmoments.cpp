#include "exactmoments.h"

#include <cmath>

namespace arraylens::detail {

namespace {

using u128 = unsigned __int128;

// An unsigned 256-bit integer, least significant word first: just what the
// variance's numerator needs.
struct U256 {
    std::uint64_t w[4] = {0, 0, 0, 0};
};

// a + b * c into words [at, ...) of r, carrying upwards.
void addProduct(U256& r, unsigned at, std::uint64_t b, std::uint64_t c) {
    u128 carry = static_cast<u128>(b) * c;
    for (unsigned i = at; i < 4 && carry != 0; ++i) {
        const u128 t = static_cast<u128>(r.w[i]) + static_cast<std::uint64_t>(carry);
        r.w[i] = static_cast<std::uint64_t>(t);
        carry = (carry >> 64) + (t >> 64);
    }
}

// a - b for a >= b.
U256 subtract(const U256& a, const U256& b) {
    U256 r;
    std::uint64_t borrow = 0;
    for (unsigned i = 0; i < 4; ++i) {
        const std::uint64_t d = a.w[i] - b.w[i];
        const std::uint64_t bo = (a.w[i] < b.w[i]) || (d < borrow) ? 1 : 0;
        r.w[i] = d - borrow;
        borrow = bo;
    }
    return r;
}

// Each word is exact in a long double's 64-bit significand; the three
// additions round, so the result is within 3 * 2^-64 of the value.
long double toLongDouble(const U256& a) {
    long double r = 0;
    for (int i = 3; i >= 0; --i)
        r = std::ldexp(r, 64) + static_cast<long double>(a.w[i]);
    return r;
}

} // namespace

double ratioToDouble(__int128 num, std::uint64_t den) {
    if (num == 0)
        return 0.0;
    const bool negative = num < 0;
    const u128 a = negative ? u128(0) - static_cast<u128>(num) : static_cast<u128>(num);
    u128 q = a / den, r = a % den;
    int exponent = 0;
    // Quotient bits until there are at least 65: more than a double's 53
    // and the bit that rounds. r < den < 2^64, so r * 2^64 fits.
    while ((q >> 64) == 0) {
        const u128 wide = r << 64;
        q = (q << 64) | (wide / den);
        r = wide % den;
        exponent -= 64;
    }
    // What is left below the last bit only matters as "more than nothing":
    // a sticky bit well below the rounding bit makes the one conversion
    // round as the exact quotient would.
    q |= r != 0 ? 1 : 0;
    const double d = std::ldexp(static_cast<double>(q), exponent);
    return negative ? -d : d;
}

double standardDeviation(const IntegerMoments& m) {
    if (m.n == 0)
        return 0.0;
    // n * sum(k^2): the three words of the sum of squares times n.
    U256 ns;
    addProduct(ns, 0, static_cast<std::uint64_t>(m.squaresLow), m.n);
    addProduct(ns, 1, static_cast<std::uint64_t>(m.squaresLow >> 64), m.n);
    addProduct(ns, 2, m.squaresHigh, m.n);
    // sum(k)^2 from its two words.
    const u128 s = m.keySum;
    const std::uint64_t s0 = static_cast<std::uint64_t>(s),
                        s1 = static_cast<std::uint64_t>(s >> 64);
    U256 ss;
    addProduct(ss, 0, s0, s0);
    addProduct(ss, 1, s0, s1);
    addProduct(ss, 1, s0, s1);
    addProduct(ss, 2, s1, s1);
    // n * sum(k^2) >= sum(k)^2 (Cauchy-Schwarz), equal when all are alike.
    const long double numerator = toLongDouble(subtract(ns, ss));
    return static_cast<double>(std::sqrt(numerator) / static_cast<long double>(m.n));
}

} // namespace arraylens::detail
