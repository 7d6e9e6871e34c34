// Pieces every pass of the statistics shares: sums and moments that merge,
// the filter's verdicts kept from one pass for the next, the checksum in
// result order whatever order the threads finish tiles in, and
// order-preserving keys of elements and of thresholds. Only the statistics
// include this.
#pragma once

#include "element.h"
#include "exactmoments.h"
#include "filter.h"
#include "parallel.h"
#include "slice.h"
#include "statistics.h"
#include "walk.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <type_traits>
#include <vector>
#include <xxhash.h>
#if defined(__x86_64__)
// The library's own choice of AVX2 or AVX-512 at run time: three times the
// speed of its plain build, which is SSE2 only. Named below, not swapped in.
#define XXH_DISPATCH_DISABLE_REPLACE
#include <xxh_x86dispatch.h>
#endif

namespace arraylens::detail {

// Running mean and sum of squared deviations, merged block by block
// (Chan et al.): stable however large the mean is against the spread.
template <class F> struct BasicMoments {
    F n = 0, mean = 0, m2 = 0;
    void merge(F nb, F meanB, F m2B) {
        if (nb == 0)
            return;
        if (n == 0) {
            n = nb;
            mean = meanB;
            m2 = m2B;
            return;
        }
        F total = n + nb;
        F delta = meanB - mean;
        mean += delta * (nb / total);
        m2 += m2B + delta * delta * (n * nb / total);
        n = total;
    }
};
using Moments = BasicMoments<double>;

// The smallest and largest of the finite values seen, merged from blocks
// and from threads alike.
template <class V> struct Extremes {
    bool any = false;
    V min{}, max{};
    void add(V lo, V hi) {
        if (!any) {
            min = lo;
            max = hi;
            any = true;
            return;
        }
        min = lo < min ? lo : min;
        max = hi > max ? hi : max;
    }
    void add(const Extremes& o) {
        if (o.any)
            add(o.min, o.max);
    }
};

template <class F> struct BasicNeumaier {
    F sum = 0, c = 0;
    void add(F x) {
        F t = sum + x;
        if (std::fabs(sum) >= std::fabs(x))
            c += (sum - t) + x;
        else
            c += (x - t) + sum;
        sum = t;
    }
    F value() const { return sum + c; }
};
using Neumaier = BasicNeumaier<double>;

// Sums and moments of one tile, merged in tile order afterwards so that the
// result does not depend on which thread took which tile.
template <class F> struct BasicTileSums {
    BasicNeumaier<F> sum;
    BasicMoments<F> moments;
    void addBlock(F n, F blockSum, F m2) {
        sum.add(blockSum);
        moments.merge(n, blockSum / n, m2);
    }
    void merge(const BasicTileSums& t) {
        sum.add(t.sum.sum);
        sum.add(t.sum.c);
        moments.merge(t.moments.n, t.moments.mean, t.moments.m2);
    }
};

// Sums and moments of doubles (and floats): in double, block by block, as
// long as nothing overflows. A block whose sum or squared deviations would
// leave double's range (values near 1e154 and beyond) is taken in long
// double instead, where no sum or square of doubles can overflow, and so is
// every merge that would overflow; the two parts meet in long double at the
// end. Ordinary data never leaves the double road, so its bits do not change.
struct TileSums {
    BasicTileSums<double> fast;
    BasicTileSums<long double> wide;

    static bool finite(const BasicTileSums<double>& t) {
        return std::isfinite(t.sum.sum) && std::isfinite(t.sum.c) &&
               std::isfinite(t.moments.mean) && std::isfinite(t.moments.m2);
    }
    static BasicTileSums<long double> widened(const BasicTileSums<double>& t) {
        BasicTileSums<long double> w;
        w.sum.sum = t.sum.sum;
        w.sum.c = t.sum.c;
        w.moments.n = t.moments.n;
        w.moments.mean = t.moments.mean;
        w.moments.m2 = t.moments.m2;
        return w;
    }
    bool widenedAny() const { return wide.moments.n != 0; }

    // `blockSum` and `m2` are the double kernel's results over v[0..n).
    void addBlock(const double* v, std::size_t n, double blockSum, double m2) {
        if (std::isfinite(blockSum) && std::isfinite(m2)) {
            BasicTileSums<double> next = fast;
            next.addBlock(static_cast<double>(n), blockSum, m2);
            if (finite(next)) {
                fast = next;
                return;
            }
        }
        long double sum = 0;
        for (std::size_t i = 0; i < n; ++i)
            sum += v[i];
        const long double count = static_cast<long double>(n);
        const long double mean = sum / count;
        long double squares = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const long double d = v[i] - mean;
            squares += d * d;
        }
        wide.addBlock(count, sum, squares);
    }
    void merge(const TileSums& t) {
        BasicTileSums<double> next = fast;
        next.merge(t.fast);
        if (finite(next))
            fast = next;
        else
            wide.merge(widened(t.fast));
        wide.merge(t.wide);
    }

    // Sum, Mean and StdDev over `count` finite values: each the double
    // nearest the result, an infinity only where that is beyond double.
    void set(std::uint64_t count, Statistics& out) const {
        if (!widenedAny()) {
            const double sum = fast.sum.value();
            out.sum = sum;
            out.mean = sum / static_cast<double>(count);
            out.stdDev = std::sqrt(fast.moments.m2 / fast.moments.n);
            return;
        }
        BasicTileSums<long double> all = widened(fast);
        all.merge(wide);
        const long double sum = all.sum.value();
        out.sum = static_cast<double>(sum);
        out.mean = static_cast<double>(sum / static_cast<long double>(count));
        out.stdDev = static_cast<double>(std::sqrt(all.moments.m2 / all.moments.n));
    }
};

// Long double sums and moments twice over: of the values as they are, and
// of the values times 2^-kScale, which no sum or square of values up to
// LDBL_MAX can overflow (n < 2^64: sums below 2^8128, squares below
// 2^16194). The scaled ones count only where the plain ones overflowed, so
// values of 2^8000 or more were there: the scaling loses the precision of
// values below 2^-8062, whose share in such results is far beneath
// anything a double can show.
struct ExtendedTileSums {
    static constexpr int kScale = 8320;
    BasicTileSums<long double> plain, scaled;
    void addBlock(const long double* v, std::size_t n) {
        long double sums[2] = {0, 0};
        const long double scale = std::ldexp(1.0L, -kScale);
        for (std::size_t i = 0; i < n; ++i) {
            sums[0] += v[i];
            sums[1] += v[i] * scale;
        }
        const long double count = static_cast<long double>(n);
        long double m2[2] = {0, 0};
        for (int k = 0; k < 2; ++k) {
            const long double mean = sums[k] / count;
            for (std::size_t i = 0; i < n; ++i) {
                const long double d = (k == 0 ? v[i] : v[i] * scale) - mean;
                m2[k] += d * d;
            }
        }
        plain.addBlock(count, sums[0], m2[0]);
        scaled.addBlock(count, sums[1], m2[1]);
    }
    void merge(const ExtendedTileSums& t) {
        plain.merge(t.plain);
        scaled.merge(t.scaled);
    }
};

// All tiles' sums and moments, in tile order.
template <class Sums> Sums mergeTiles(const std::vector<Sums>& tiles) {
    Sums all;
    for (const Sums& t : tiles)
        all.merge(t);
    return all;
}

// Sum, Mean and StdDev of long double elements, each a double: the nearest
// to the long double result, an infinity where that is beyond double's
// range. Nothing overflows into a NaN: where the plain sums did, the
// scaled ones stand in.
inline void setExtendedMoments(const ExtendedTileSums& s, std::uint64_t count, Statistics& out) {
    const long double n = static_cast<long double>(count);
    const long double plainSum = s.plain.sum.value();
    long double sum, mean;
    if (std::isfinite(plainSum)) {
        sum = plainSum;
        mean = plainSum / n;
    } else {
        sum = std::ldexp(s.scaled.sum.value(), ExtendedTileSums::kScale);
        mean = std::ldexp(s.scaled.sum.value() / n, ExtendedTileSums::kScale);
    }
    const long double plainM2 = s.plain.moments.m2;
    const long double sd = std::isfinite(plainM2) && std::isfinite(plainSum)
                               ? std::sqrt(plainM2 / s.plain.moments.n)
                               : std::ldexp(std::sqrt(s.scaled.moments.m2 / s.scaled.moments.n),
                                            ExtendedTileSums::kScale);
    out.sum = static_cast<double>(sum);
    out.mean = static_cast<double>(mean);
    out.stdDev = static_cast<double>(sd);
}

struct PassContext {
    const TilePlan& plan;
    Reader& reader;
    int threads;
    const Filter& filter;
    const std::atomic<bool>* cancel;
    const Layout* layout = nullptr;
    // The filter's verdicts from the first pass, a bit per result position,
    // so that later passes need not evaluate it again; null when not kept.
    const std::atomic<std::uint64_t>* verdicts = nullptr;
};

// Sets the bits of the passing elements among m at result positions from
// base on. Tiles can share a word at their edges, hence the atomic or.
inline void storeVerdicts(std::atomic<std::uint64_t>* words, std::uint64_t base,
                          const unsigned char* pass, std::size_t m) {
    std::size_t k = 0;
    while (k < m) {
        const std::uint64_t at = base + k;
        const unsigned bit = static_cast<unsigned>(at & 63);
        const std::size_t take = std::min<std::size_t>(m - k, 64 - bit);
        std::uint64_t bits = 0;
        for (std::size_t j = 0; j < take; ++j)
            bits |= static_cast<std::uint64_t>(pass[k + j] != 0) << (bit + j);
        if (bits)
            words[at >> 6].fetch_or(bits, std::memory_order_relaxed);
        k += take;
    }
}

inline void loadVerdicts(const std::atomic<std::uint64_t>* words, std::uint64_t base,
                         unsigned char* pass, std::size_t m) {
    std::size_t k = 0;
    while (k < m) {
        const std::uint64_t at = base + k;
        const unsigned bit = static_cast<unsigned>(at & 63);
        const std::size_t take = std::min<std::size_t>(m - k, 64 - bit);
        const std::uint64_t bits = words[at >> 6].load(std::memory_order_relaxed) >> bit;
        for (std::size_t j = 0; j < take; ++j)
            pass[k + j] = static_cast<unsigned char>((bits >> j) & 1);
        k += take;
    }
}

// Adds bytes to a running XXH3 hash with the fastest build there is.
inline void hashBytes(XXH3_state_t* state, const void* bytes, std::size_t size) {
#if defined(__x86_64__)
    XXH3_64bits_update_dispatch(state, bytes, size);
#else
    XXH3_64bits_update(state, bytes, size);
#endif
}

// What a tile's work returns when the pass stopped while the tile waited
// for its turn at the checksum; the failure that stopped it is the one
// reported.
inline Error stoppedWhileWaiting() {
    return Error{ErrorCode::Unreadable, "The pass stopped while this tile waited for its turn."};
}

// XXH3 of the tiles' bytes in tile order, whatever order the threads
// finish them in. With add(), a tile that comes early is copied aside until
// its turn, so no thread waits for another unless many tiles are already
// waiting. addInTurn() waits for the turn instead: a tile whose bytes are
// hashed as they are, straight after its read, waits only for the read of
// the tile before it, and is hashed while still in the core's cache.
class OrderedHasher {
public:
    explicit OrderedHasher(const TileTurns& stop) : stop_(stop) {
        state_ = XXH3_createState();
        XXH3_64bits_reset(state_);
    }
    ~OrderedHasher() { XXH3_freeState(state_); }
    OrderedHasher(const OrderedHasher&) = delete;
    OrderedHasher& operator=(const OrderedHasher&) = delete;

    // False when the pass was abandoned while this tile waited.
    bool add(std::uint64_t tile, const unsigned char* bytes, std::size_t size) {
        std::unique_lock<std::mutex> lock(mutex_);
        while (tile != next_ && pending_.size() >= kMaxPending) {
            if (stop_.abandoned())
                return false;
            ready_.wait_for(lock, std::chrono::milliseconds(1));
        }
        if (tile != next_) {
            std::vector<unsigned char> copy;
            if (!spare_.empty()) {
                copy = std::move(spare_.back());
                spare_.pop_back();
            }
            copy.assign(bytes, bytes + size);
            pending_.emplace(tile, std::move(copy));
            return true;
        }
        hashInTurn(bytes, size);
        return true;
    }

    // False when the pass was abandoned while this tile waited. Every tile
    // before this one must be on its way to add() or addInTurn() without
    // waiting for a later one.
    bool addInTurn(std::uint64_t tile, const unsigned char* bytes, std::size_t size) {
        // The tile before is usually a read away: a short spin first.
        for (int spins = 0; next_.load(std::memory_order_acquire) != tile && spins < 2000; ++spins)
            if (stop_.abandoned())
                return false;
        std::unique_lock<std::mutex> lock(mutex_);
        while (next_.load(std::memory_order_relaxed) != tile) {
            if (stop_.abandoned())
                return false;
            ready_.wait_for(lock, std::chrono::milliseconds(1));
        }
        hashInTurn(bytes, size);
        return true;
    }
    std::uint64_t digest() const { return XXH3_64bits_digest(state_); }

private:
    // With the lock held and the turn this tile's: hashes it and whatever
    // waited for it.
    void hashInTurn(const unsigned char* bytes, std::size_t size) {
        if (size)
            hashBytes(state_, bytes, size);
        std::uint64_t next = next_.load(std::memory_order_relaxed) + 1;
        for (auto it = pending_.find(next); it != pending_.end(); it = pending_.find(next)) {
            if (!it->second.empty())
                hashBytes(state_, it->second.data(), it->second.size());
            spare_.push_back(std::move(it->second));
            pending_.erase(it);
            ++next;
        }
        next_.store(next, std::memory_order_release);
        ready_.notify_all();
    }

    static constexpr std::size_t kMaxPending = 32;
    const TileTurns& stop_;
    XXH3_state_t* state_;
    std::mutex mutex_;
    std::condition_variable ready_;
    // Written only with the lock held; read without it by a spinning turn.
    std::atomic<std::uint64_t> next_{0};
    std::map<std::uint64_t, std::vector<unsigned char>> pending_;
    std::vector<std::vector<unsigned char>> spare_;
};

// The passing elements' bytes for the checksum: bytes[0, packed) of a
// buffer that only grows, so that appending costs no clearing.
struct PackBuffer {
    std::vector<unsigned char> bytes;
    std::size_t packed = 0;
    unsigned char* reserve(std::size_t size) {
        if (bytes.size() < packed + size)
            bytes.resize(std::max(packed + size, 2 * bytes.size()));
        return bytes.data() + packed;
    }
};

// Copies one element's value bytes; the usual sizes are copies of known
// length, which cost no call.
inline void copyValue(unsigned char* out, const unsigned char* p, std::size_t size) {
    switch (size) {
    case 1:
        std::memcpy(out, p, 1);
        break;
    case 2:
        std::memcpy(out, p, 2);
        break;
    case 4:
        std::memcpy(out, p, 4);
        break;
    case 8:
        std::memcpy(out, p, 8);
        break;
    default:
        std::memcpy(out, p, size);
        break;
    }
}

// The elements of a run that pass the filter (all of them when it has
// none), a block at a time: each goes to `take`, its value's bytes to the
// checksum's pack, and the verdicts, when kept, to their bits from
// `position` on, which moves past the run. Whether an element passes is
// often as good as random, so the passing ones' places are listed first,
// with no branch, and only they are visited.
template <Repr R, class Take>
void takePassing(const Filter& filter, const ElementRun& run, std::size_t valueSize,
                 std::atomic<std::uint64_t>* verdicts, std::uint64_t& position, PackBuffer& pack,
                 Take take) {
    static_assert(Filter::kBlock <= 65536, "places are 16-bit");
    const unsigned char* p = run.first;
    unsigned char pass[Filter::kBlock];
    std::uint16_t places[Filter::kBlock];
    for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
        const std::size_t m = std::min(Filter::kBlock, run.count - k0);
        filter.matchBlock<R>(p, run.step, m, pass);
        if (verdicts)
            storeVerdicts(verdicts, position, pass, m);
        position += m;
        std::size_t np = 0;
        for (std::size_t k = 0; k < m; ++k) {
            places[np] = static_cast<std::uint16_t>(k);
            np += pass[k];
        }
        unsigned char* out = pack.reserve(np * valueSize);
        for (std::size_t i = 0; i < np; ++i, out += valueSize) {
            const unsigned char* e = p + static_cast<std::ptrdiff_t>(places[i]) * run.step;
            take(e);
            copyValue(out, e, valueSize);
        }
        pack.packed += np * valueSize;
        p += static_cast<std::ptrdiff_t>(m) * run.step;
    }
}

// A tile read as one run of whole elements, with no filter, is the
// checksum's bytes as it stands: hashed at once, in its turn, while it is in
// the cache. `whole` says whether it was such a tile.
inline Status hashWholeTile(OrderedHasher& hash, std::uint64_t tile, const TileView& view,
                            std::size_t elementSize, std::size_t valueSize, bool filtered,
                            bool& whole) {
    whole = !filtered && view.runs.size() == 1 &&
            view.runs[0].step == static_cast<std::ptrdiff_t>(elementSize) &&
            elementSize == valueSize;
    if (whole && !hash.addInTurn(tile, view.runs[0].first, view.runs[0].count * elementSize))
        return stoppedWhileWaiting();
    return Status::Ok();
}

// Any other tile's checksum bytes are its passing elements, packed.
inline Status hashPackedTile(OrderedHasher& hash, std::uint64_t tile, bool whole,
                             const PackBuffer& pack) {
    if (!whole && !hash.add(tile, pack.bytes.data(), pack.packed))
        return stoppedWhileWaiting();
    return Status::Ok();
}

// Order-preserving keys of thresholds: the smallest key whose value is not
// below x, and the largest whose value is not above x.
template <Repr R> std::uint64_t keyNotBelow(typename ReprTraits<R>::Real x, bool& none) {
    using T = ReprTraits<R>;
    none = false;
    if constexpr (R == Repr::F80) {
        if (x == -std::numeric_limits<long double>::infinity())
            return T::key(-std::numeric_limits<long double>::max());
        if (x == std::numeric_limits<long double>::infinity()) {
            none = true;
            return 0;
        }
        std::uint64_t k = T::key(x == 0 ? -0.0L : x);
        if (T::fromKey(k) < x)
            k += k + 1 == T::kPosInfKey ? 2 : 1;
        return k;
    } else if constexpr (T::isFloat) {
        if constexpr (R == Repr::F32) {
            float f = static_cast<float>(x);
            if (static_cast<double>(f) < x)
                f = std::nextafter(f, std::numeric_limits<float>::infinity());
            if (f == 0)
                f = -0.0f;
            return T::key(static_cast<double>(f));
        } else {
            return T::key(x == 0 ? -0.0 : x);
        }
    } else {
        using Raw = typename T::Raw_;
        // Long double holds every 64-bit bound exactly; double would round
        // the largest int64 up to 2^63, which no int64 can hold.
        const long double lo = T::isLogical ? 0 : std::numeric_limits<Raw>::min();
        const long double hi = T::isLogical ? 1 : std::numeric_limits<Raw>::max();
        const long double c = std::ceil(static_cast<long double>(x));
        if (c <= lo)
            return T::key(
                static_cast<typename T::Value>(T::isLogical ? 0 : std::numeric_limits<Raw>::min()));
        if (c > hi) {
            none = true;
            return 0;
        }
        return T::key(static_cast<typename T::Value>(c));
    }
}

template <Repr R> std::uint64_t keyNotAbove(typename ReprTraits<R>::Real x, bool& none) {
    using T = ReprTraits<R>;
    none = false;
    if constexpr (R == Repr::F80) {
        if (x == std::numeric_limits<long double>::infinity())
            return T::key(std::numeric_limits<long double>::max());
        if (x == -std::numeric_limits<long double>::infinity()) {
            none = true;
            return 0;
        }
        std::uint64_t k = T::key(x == 0 ? 0.0L : x);
        if (T::fromKey(k) > x)
            k -= k - 1 == ~T::kPosInfKey ? 2 : 1;
        return k;
    } else if constexpr (T::isFloat) {
        if constexpr (R == Repr::F32) {
            float f = static_cast<float>(x);
            if (static_cast<double>(f) > x)
                f = std::nextafter(f, -std::numeric_limits<float>::infinity());
            if (f == 0)
                f = 0.0f;
            return T::key(static_cast<double>(f));
        } else {
            return T::key(x == 0 ? 0.0 : x);
        }
    } else {
        using Raw = typename T::Raw_;
        const long double lo = T::isLogical ? 0 : std::numeric_limits<Raw>::min();
        const long double hi = T::isLogical ? 1 : std::numeric_limits<Raw>::max();
        const long double f = std::floor(static_cast<long double>(x));
        if (f >= hi)
            return T::key(
                static_cast<typename T::Value>(T::isLogical ? 1 : std::numeric_limits<Raw>::max()));
        if (f < lo) {
            none = true;
            return 0;
        }
        return T::key(static_cast<typename T::Value>(f));
    }
}

// The order-preserving key of a finite element; false for NaN and the
// infinities. IEEE formats take it straight from the bits.
template <Repr R> inline bool finiteKey(const unsigned char* p, std::uint64_t& key) {
    using T = ReprTraits<R>;
    if constexpr (R == Repr::F32 || R == Repr::F64) {
        if ((T::bits(p) & T::kExp) == T::kExp)
            return false;
        key = T::keyOfNative(T::native(p));
        return true;
    } else if constexpr (R == Repr::F80) {
        if (T::classify(p) & kClassNonFinite)
            return false;
        key = T::key(T::value(p));
        return true;
    } else {
        key = T::key(T::value(p));
        return true;
    }
}

// Types whose finite elements have keys in one interval with every
// non-finite key outside it: one unsigned range test then both drops NaN and
// the infinities and picks the candidates, with no branch on the class.
template <Repr R>
constexpr bool kContiguousFiniteKeys = R == Repr::F32 || R == Repr::F64 || !ReprTraits<R>::isFloat;

template <Repr R> inline std::uint64_t anyKey(const unsigned char* p) {
    using T = ReprTraits<R>;
    if constexpr (T::isFloat) {
        using Bits = decltype(T::bits(p));
        using SBits = std::make_signed_t<Bits>;
        const Bits b = T::bits(p);
        // Negative: all bits flipped; positive: the sign bit set.
        const Bits flip = static_cast<Bits>(
            static_cast<Bits>(static_cast<SBits>(b) >> (T::keyBits - 1)) | T::kSign);
        return static_cast<Bits>(b ^ flip);
    } else {
        return T::key(T::value(p));
    }
}

template <Repr R> std::uint64_t finiteKeyMin() {
    using T = ReprTraits<R>;
    if constexpr (T::isFloat)
        return T::keyOfNative(-std::numeric_limits<typename T::Native>::max());
    else
        return 0;
}

template <Repr R> std::uint64_t finiteKeyMax() {
    using T = ReprTraits<R>;
    if constexpr (T::isFloat)
        return T::keyOfNative(std::numeric_limits<typename T::Native>::max());
    else
        return T::keyBits >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << T::keyBits) - 1;
}

// Quantiles interpolated in the type they are reckoned in.
inline double interpolateIn(double a, double b, double fraction) {
    return interpolate(a, b, fraction);
}
inline long double interpolateIn(long double a, long double b, double fraction) {
    return interpolateExtended(a, b, fraction);
}

// The kernel's keys and exact sums of a block of n integers of the kind R,
// as stored (S) or widened to its Value.
template <Repr R, class S>
void integerBlock(const S* v, std::size_t n, std::uint64_t* keys, kernels::IntegerBlock& out) {
    using T = ReprTraits<R>;
    constexpr std::uint64_t bias = T::isSigned ? std::uint64_t(1) << (T::keyBits - 1) : 0;
    kernels::ops().integers(v, sizeof(S), std::is_signed<S>::value, n, bias, keys, out);
}

// Sum, Mean and StdDev of integer elements from their exact sums: the sum
// in the element's type while it fits 64 bits, beyond that the double
// nearest to it; the mean and the deviation rounded once.
template <Repr R> void setIntegerMoments(const IntegerMoments& m, Statistics& out) {
    using T = ReprTraits<R>;
    constexpr std::uint64_t bias = T::isSigned ? std::uint64_t(1) << (T::keyBits - 1) : 0;
    const __int128 sum =
        static_cast<__int128>(m.keySum) - static_cast<__int128>(m.n) * static_cast<__int128>(bias);
    const bool fits =
        R == Repr::U64
            ? sum >= 0 && sum <= static_cast<__int128>(std::numeric_limits<std::uint64_t>::max())
            : sum >= std::numeric_limits<std::int64_t>::min() &&
                  sum <= std::numeric_limits<std::int64_t>::max();
    if (!fits)
        out.sum = ratioToDouble(sum, 1);
    else if (R == Repr::U64)
        out.sum = static_cast<std::uint64_t>(sum);
    else
        out.sum = static_cast<std::int64_t>(sum);
    out.mean = ratioToDouble(sum, m.n);
    out.stdDev = standardDeviation(m);
}

template <Repr R> Number typedNumber(typename ReprTraits<R>::Value v) {
    using T = ReprTraits<R>;
    if constexpr (T::isFloat)
        return static_cast<double>(v);
    else if constexpr (R == Repr::U64)
        return static_cast<std::uint64_t>(v);
    else
        return static_cast<std::int64_t>(v);
}

} // namespace arraylens::detail
