// Decoding element bytes: value, floating-point class, and an unsigned key
// whose order is the order of the values (for selection).
#pragma once

#include "descriptor.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace arraylens {

// Floating-point classes, as bits, of one element in its own format.
enum FloatClass : unsigned {
    kClassZero = 1u << 0,
    kClassQuietNan = 1u << 1,
    kClassSignalingNan = 1u << 2,
    kClassPosInf = 1u << 3,
    kClassNegInf = 1u << 4,
    kClassPosDenorm = 1u << 5,
    kClassNegDenorm = 1u << 6,
    kClassNan = kClassQuietNan | kClassSignalingNan,
    kClassInf = kClassPosInf | kClassNegInf,
    kClassDenorm = kClassPosDenorm | kClassNegDenorm,
    kClassNonFinite = kClassNan | kClassInf,
};

template <Repr R> struct ReprTag { static constexpr Repr repr = R; };

namespace detail {
template <class Raw, bool Logical> struct IntTraitsBase {
    using Raw_ = Raw;
    static constexpr bool isFloat = false;
    static constexpr bool isSigned = std::is_signed<Raw>::value && !Logical;
    static constexpr bool isLogical = Logical;
    static constexpr unsigned keyBits = sizeof(Raw) * 8;
    // Statistics see integers as int64 or uint64; logicals as 0 or 1.
    using Value = std::conditional_t<isSigned, std::int64_t, std::uint64_t>;
    // Quantiles and fences are reckoned in double, as numpy does.
    using Real = double;
    using Native = Raw;
    static Raw raw(const unsigned char* p) {
        Raw r;
        std::memcpy(&r, p, sizeof r);
        return r;
    }
    static Value value(const unsigned char* p) {
        Raw r = raw(p);
        if constexpr (Logical)
            return r != 0 ? 1 : 0;
        else
            return static_cast<Value>(r);
    }
    static unsigned classify(const unsigned char* p) { return value(p) == 0 ? kClassZero : 0; }
    static std::uint64_t key(Value v) {
        using U = std::make_unsigned_t<Raw>;
        U u = static_cast<U>(v);
        if constexpr (isSigned)
            u = static_cast<U>(u ^ (U(1) << (keyBits - 1)));
        return u;
    }
    static Value fromKey(std::uint64_t k) {
        using U = std::make_unsigned_t<Raw>;
        U u = static_cast<U>(k);
        if constexpr (isSigned) {
            u = static_cast<U>(u ^ (U(1) << (keyBits - 1)));
            return static_cast<Value>(static_cast<std::make_signed_t<U>>(u));
        } else {
            return static_cast<Value>(u);
        }
    }
};
} // namespace detail

template <Repr R> struct ReprTraits;
template <> struct ReprTraits<Repr::I8> : detail::IntTraitsBase<std::int8_t, false> {};
template <> struct ReprTraits<Repr::I16> : detail::IntTraitsBase<std::int16_t, false> {};
template <> struct ReprTraits<Repr::I32> : detail::IntTraitsBase<std::int32_t, false> {};
template <> struct ReprTraits<Repr::I64> : detail::IntTraitsBase<std::int64_t, false> {};
template <> struct ReprTraits<Repr::U8> : detail::IntTraitsBase<std::uint8_t, false> {};
template <> struct ReprTraits<Repr::U16> : detail::IntTraitsBase<std::uint16_t, false> {};
template <> struct ReprTraits<Repr::U32> : detail::IntTraitsBase<std::uint32_t, false> {};
template <> struct ReprTraits<Repr::U64> : detail::IntTraitsBase<std::uint64_t, false> {};
template <> struct ReprTraits<Repr::L8> : detail::IntTraitsBase<std::uint8_t, true> {};
template <> struct ReprTraits<Repr::L16> : detail::IntTraitsBase<std::uint16_t, true> {};
template <> struct ReprTraits<Repr::L32> : detail::IntTraitsBase<std::uint32_t, true> {};
template <> struct ReprTraits<Repr::L64> : detail::IntTraitsBase<std::uint64_t, true> {};

// IEEE binary formats held in an unsigned integer of the same width.
template <class F, class Bits, int MantBits> struct IeeeTraits {
    static constexpr bool isFloat = true;
    static constexpr bool isSigned = true;
    static constexpr bool isLogical = false;
    static constexpr unsigned keyBits = sizeof(Bits) * 8;
    using Value = double;
    using Native = F;
    using Real = double;
    static constexpr Bits kSign = Bits(1) << (keyBits - 1);
    static constexpr Bits kMant = (Bits(1) << MantBits) - 1;
    static constexpr Bits kExp = ~(kSign | kMant);
    static constexpr Bits kQuiet = Bits(1) << (MantBits - 1);
    static Bits bits(const unsigned char* p) {
        Bits b;
        std::memcpy(&b, p, sizeof b);
        return b;
    }
    static F native(const unsigned char* p) {
        F f;
        std::memcpy(&f, p, sizeof f);
        return f;
    }
    static double value(const unsigned char* p) { return static_cast<double>(native(p)); }
    static unsigned classifyBits(Bits b) {
        Bits e = b & kExp, m = b & kMant;
        bool neg = (b & kSign) != 0;
        if (e == kExp) {
            if (m == 0)
                return neg ? kClassNegInf : kClassPosInf;
            return (m & kQuiet) ? kClassQuietNan : kClassSignalingNan;
        }
        if (e == 0)
            return m == 0 ? kClassZero : (neg ? kClassNegDenorm : kClassPosDenorm);
        return 0;
    }
    static unsigned classify(const unsigned char* p) { return classifyBits(bits(p)); }
    static std::uint64_t keyOfNative(F f) {
        Bits b;
        std::memcpy(&b, &f, sizeof b);
        return (b & kSign) ? static_cast<Bits>(~b) : static_cast<Bits>(b | kSign);
    }
    static std::uint64_t key(double v) { return keyOfNative(static_cast<F>(v)); }
    static double fromKey(std::uint64_t k) {
        Bits b = static_cast<Bits>(k);
        b = (b & kSign) ? static_cast<Bits>(b & ~kSign) : static_cast<Bits>(~b);
        F f;
        std::memcpy(&f, &b, sizeof f);
        return static_cast<double>(f);
    }
};

template <> struct ReprTraits<Repr::F32> : IeeeTraits<float, std::uint32_t, 23> {};
template <> struct ReprTraits<Repr::F64> : IeeeTraits<double, std::uint64_t, 52> {};

// x87 extended: 64-bit mantissa with an explicit integer bit, 15-bit
// exponent, sign; the rest of the storage is padding. Statistics take its
// value as a long double. Its 64-bit key orders values as the double they
// round to does while that double is finite; values beyond double's range
// take the keys a double leaves to NaN (above +inf's, below -inf's), by
// exponent and the first 38 bits of the fraction. So the order statistics
// tell values apart as doubles do, and those beyond double's range closely
// enough that they come out as the infinity a double gives them, or, where
// huge values of both signs meet, as the long double between them.
template <> struct ReprTraits<Repr::F80> {
    static constexpr bool isFloat = true;
    static constexpr bool isSigned = true;
    static constexpr bool isLogical = false;
    static constexpr unsigned keyBits = 64;
    using Value = long double;
    using Native = long double;
    using Real = long double;
    static long double native(const unsigned char* p) {
        long double f = 0;
        std::memcpy(&f, p, 10);
        return f;
    }
    static long double value(const unsigned char* p) { return native(p); }
    static unsigned classify(const unsigned char* p) {
        std::uint64_t m;
        std::uint16_t se;
        std::memcpy(&m, p, 8);
        std::memcpy(&se, p + 8, 2);
        bool neg = (se & 0x8000) != 0;
        unsigned e = se & 0x7fff;
        if (e == 0x7fff) {
            std::uint64_t frac = m & 0x7fffffffffffffffULL;
            if (frac == 0)
                return neg ? kClassNegInf : kClassPosInf;
            return (m & 0x4000000000000000ULL) ? kClassQuietNan : kClassSignalingNan;
        }
        if (e == 0)
            return m == 0 ? kClassZero : (neg ? kClassNegDenorm : kClassPosDenorm);
        return 0;
    }
    static constexpr unsigned kBeyondFraction = 38;
    // The key of +inf as a double; keys above it are values beyond.
    static constexpr std::uint64_t kPosInfKey = 0xfff0000000000000ULL;
    static std::uint64_t key(long double v) {
        const double d = static_cast<double>(v);
        if (std::fabs(d) <= std::numeric_limits<double>::max())
            return ReprTraits<Repr::F64>::key(d);
        const long double a = std::fabs(v);
        int e = 0;
        const long double m = std::frexp(a, &e); // a = m * 2^e, m in [0.5, 1)
        // e - 1 is the exponent of a in [1, 2) form: 1023 for the values
        // just below 2^1024 that round up to +inf, up to 16383.
        const auto fraction = static_cast<std::uint64_t>(
            std::ldexp(m * 2 - 1, static_cast<int>(kBeyondFraction))); // truncated
        const std::uint64_t k = kPosInfKey + 1 +
                                (static_cast<std::uint64_t>(e - 1 - 1023) << kBeyondFraction) +
                                fraction;
        return v < 0 ? ~k : k;
    }
    static std::uint64_t keyOfNative(long double v) { return key(v); }
    static long double fromKey(std::uint64_t k) {
        const std::uint64_t negInfKey = ~kPosInfKey;
        if (k > negInfKey && k < kPosInfKey)
            return static_cast<long double>(ReprTraits<Repr::F64>::fromKey(k));
        if (k == kPosInfKey || k == negInfKey)
            return k == kPosInfKey ? std::numeric_limits<long double>::infinity()
                                   : -std::numeric_limits<long double>::infinity();
        const bool negative = k < negInfKey;
        const std::uint64_t off = (negative ? ~k : k) - kPosInfKey - 1;
        const int e = static_cast<int>(off >> kBeyondFraction) + 1023;
        const std::uint64_t fraction = off & ((std::uint64_t(1) << kBeyondFraction) - 1);
        const long double a = std::ldexp(
            1 + std::ldexp(static_cast<long double>(fraction), -static_cast<int>(kBeyondFraction)),
            e);
        return negative ? -a : a;
    }
};

// Calls f(ReprTag<R>{}) for the representation r.
template <class F> decltype(auto) withRepr(Repr r, F&& f) {
    switch (r) {
    case Repr::I8:
        return f(ReprTag<Repr::I8>{});
    case Repr::I16:
        return f(ReprTag<Repr::I16>{});
    case Repr::I32:
        return f(ReprTag<Repr::I32>{});
    case Repr::I64:
        return f(ReprTag<Repr::I64>{});
    case Repr::U8:
        return f(ReprTag<Repr::U8>{});
    case Repr::U16:
        return f(ReprTag<Repr::U16>{});
    case Repr::U32:
        return f(ReprTag<Repr::U32>{});
    case Repr::U64:
        return f(ReprTag<Repr::U64>{});
    case Repr::L8:
        return f(ReprTag<Repr::L8>{});
    case Repr::L16:
        return f(ReprTag<Repr::L16>{});
    case Repr::L32:
        return f(ReprTag<Repr::L32>{});
    case Repr::L64:
        return f(ReprTag<Repr::L64>{});
    case Repr::F32:
        return f(ReprTag<Repr::F32>{});
    case Repr::F64:
        return f(ReprTag<Repr::F64>{});
    case Repr::F80:
        break;
    }
    return f(ReprTag<Repr::F80>{});
}

} // namespace arraylens
