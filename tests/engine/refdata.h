// Random element data with the awkward values mixed in, and the element
// types of the typed tests.
#pragma once

#include "arraylens/descriptor.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

namespace reftest {

using arraylens::ElementKind;

// One element kind of the typed tests: its C storage type and how values
// are made.
template <ElementKind K, class S, bool Logical = false> struct KindCase {
    static constexpr ElementKind kind = K;
    using Storage = S;
    static constexpr bool logical = Logical;
    static constexpr bool floating = std::is_floating_point<S>::value;
};

// Floating-point values: ordinary ones of both signs and several sizes,
// with NaNs (quiet and signalling), both infinities, subnormals of both
// signs and both zeros.
template <class F> F randomFloat(std::mt19937_64& rng) {
    using L = std::numeric_limits<F>;
    std::uniform_int_distribution<int> pick(0, 99);
    std::normal_distribution<double> normal(3.0, 40.0);
    int k = pick(rng);
    if (k < 3)
        return L::quiet_NaN();
    if (k < 4)
        return -L::quiet_NaN();
    if (k < 5)
        return L::signaling_NaN();
    if (k < 7)
        return L::infinity();
    if (k < 9)
        return -L::infinity();
    if (k < 12)
        return L::denorm_min() * static_cast<F>(1 + pick(rng));
    if (k < 14)
        return -L::denorm_min() * static_cast<F>(1 + pick(rng));
    if (k < 16)
        return F(0);
    if (k < 18)
        return -F(0);
    if (k < 30)
        return static_cast<F>(std::round(normal(rng))); // ties in the order
    return static_cast<F>(normal(rng));
}

template <class I> I randomInteger(std::mt19937_64& rng, bool logical) {
    std::uniform_int_distribution<int> pick(0, 99);
    if (logical)
        return static_cast<I>(pick(rng) < 40 ? 0 : 1);
    int k = pick(rng);
    if (k < 3)
        return std::numeric_limits<I>::min();
    if (k < 6)
        return std::numeric_limits<I>::max();
    if (k < 10)
        return I(0);
    if (k < 20) {
        std::uniform_int_distribution<std::uint64_t> any;
        return static_cast<I>(any(rng));
    }
    std::uniform_int_distribution<int> small(-150, 150);
    int v = small(rng);
    if (std::is_unsigned<I>::value && v < 0)
        v = -v;
    return static_cast<I>(v);
}

template <class Case> std::vector<typename Case::Storage> randomData(std::size_t n, unsigned seed) {
    using S = typename Case::Storage;
    std::mt19937_64 rng(seed);
    std::vector<S> v(n);
    for (S& x : v) {
        if constexpr (Case::floating) {
            x = randomFloat<S>(rng);
        } else {
            x = randomInteger<S>(rng, Case::logical);
        }
    }
    return v;
}

} // namespace reftest
