#include "statistics.h"

#include "element.h"
#include "filter.h"
#include "kernels.h"
#include "parallel.h"
#include "sample.h"
#include "select.h"
#include "slice.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <type_traits>
#include <xxhash.h>

namespace arraylens {

double toDouble(const Number& n) {
    return std::visit([](auto v) { return static_cast<double>(v); }, n);
}

QuantilePoint quantilePoint(std::uint64_t n, double p) {
    if (n == 0)
        return QuantilePoint{0, 0, 0.0};
    double virt = static_cast<double>(n - 1) * p;
    if (virt >= static_cast<double>(n - 1))
        return QuantilePoint{n - 1, n - 1, 0.0};
    if (virt <= 0)
        return QuantilePoint{0, 0, 0.0};
    double lower = std::floor(virt);
    auto lo = static_cast<std::uint64_t>(lower);
    return QuantilePoint{lo, lo + 1, virt - lower};
}

// The same arithmetic as numpy's linear interpolation, so that the results
// agree to the last bit.
double interpolate(double a, double b, double fraction) {
    if (fraction == 0)
        return a;
    double diff = b - a;
    if (fraction >= 0.5)
        return b - diff * (1 - fraction);
    return a + diff * fraction;
}

namespace {

constexpr std::size_t kBlock = 1024;

// Pairwise summation: accurate to a few units in the last place however
// long the array, and fast because the inner blocks vectorise.
double pairwiseSum(const double* a, std::size_t n) {
    if (n < 8) {
        double s = 0;
        for (std::size_t i = 0; i < n; ++i)
            s += a[i];
        return s;
    }
    if (n <= 128) {
        double r[8];
        for (int k = 0; k < 8; ++k)
            r[k] = a[k];
        std::size_t i = 8;
        for (; i + 8 <= n; i += 8)
            for (int k = 0; k < 8; ++k)
                r[k] += a[i + static_cast<std::size_t>(k)];
        double s = ((r[0] + r[1]) + (r[2] + r[3])) + ((r[4] + r[5]) + (r[6] + r[7]));
        for (; i < n; ++i)
            s += a[i];
        return s;
    }
    std::size_t half = (n / 2) & ~std::size_t(7);
    return pairwiseSum(a, half) + pairwiseSum(a + half, n - half);
}

// Running mean and sum of squared deviations, merged block by block
// (Chan et al.): stable however large the mean is against the spread.
struct Moments {
    double n = 0, mean = 0, m2 = 0;
    void merge(double nb, double meanB, double m2B) {
        if (nb == 0)
            return;
        if (n == 0) {
            n = nb;
            mean = meanB;
            m2 = m2B;
            return;
        }
        double total = n + nb;
        double delta = meanB - mean;
        mean += delta * (nb / total);
        m2 += m2B + delta * delta * (n * nb / total);
        n = total;
    }
};

struct Neumaier {
    double sum = 0, c = 0;
    void add(double x) {
        double t = sum + x;
        if (std::fabs(sum) >= std::fabs(x))
            c += (sum - t) + x;
        else
            c += (x - t) + sum;
        sum = t;
    }
    double value() const { return sum + c; }
};

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

// XXH3 of the tiles' bytes in tile order, whatever order the threads
// finish them in. A tile that comes early is copied aside until its turn,
// so no thread waits for another unless many tiles are already waiting.
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
        if (size)
            XXH3_64bits_update(state_, bytes, size);
        ++next_;
        for (auto it = pending_.find(next_); it != pending_.end(); it = pending_.find(next_)) {
            if (!it->second.empty())
                XXH3_64bits_update(state_, it->second.data(), it->second.size());
            spare_.push_back(std::move(it->second));
            pending_.erase(it);
            ++next_;
        }
        ready_.notify_all();
        return true;
    }
    std::uint64_t digest() const { return XXH3_64bits_digest(state_); }

private:
    static constexpr std::size_t kMaxPending = 32;
    const TileTurns& stop_;
    XXH3_state_t* state_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::uint64_t next_ = 0;
    std::map<std::uint64_t, std::vector<unsigned char>> pending_;
    std::vector<std::vector<unsigned char>> spare_;
};

// Aligned so that the states of two threads never share a cache line.
template <Repr R> struct alignas(64) FirstPassState {
    using T = ReprTraits<R>;
    using V = typename T::Value;
    std::uint64_t count = 0, zero = 0, nan = 0, inf = 0, denorm = 0, finite = 0;
    __int128 isum = 0;
    Neumaier fsum;
    Moments moments;
    V min{}, max{};
    // 32-bit bins take half the cache of 64-bit ones; they spill into the
    // 64-bit histogram long before they could overflow.
    std::vector<std::uint32_t> hist32;
    std::vector<std::uint64_t> hist;
    std::uint64_t sinceSpill = 0;
    V block[kBlock];
    double dblock[kBlock];
    std::size_t nb = 0;
    // The passing elements' bytes for the checksum: packed[0, packed) of a
    // buffer that only grows, so that appending costs no clearing.
    std::vector<unsigned char> pack;
    std::size_t packed = 0;
    unsigned char* reservePack(std::size_t bytes) {
        if (pack.size() < packed + bytes)
            pack.resize(std::max(packed + bytes, 2 * pack.size()));
        return pack.data() + packed;
    }
    unsigned shift = 0;

    void spill() {
        for (std::size_t b = 0; b < hist.size(); ++b) {
            hist[b] += hist32[b];
            hist32[b] = 0;
        }
        sinceSpill = 0;
    }

    void flush() {
        if (nb == 0)
            return;
        const std::size_t n = nb;
        nb = 0;
        if (sinceSpill + n > 0xffffffffu)
            spill();
        sinceSpill += n;
        V lo = block[0], hi = block[0];
        for (std::size_t i = 0; i < n; ++i) {
            V v = block[i];
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
            ++hist32[T::key(v) >> shift];
        }
        double blockSum;
        if constexpr (T::isFloat) {
            blockSum = pairwiseSum(block, n);
            fsum.add(blockSum);
            for (std::size_t i = 0; i < n; ++i)
                dblock[i] = block[i];
        } else {
            __int128 s = 0;
            for (std::size_t i = 0; i < n; ++i)
                s += static_cast<__int128>(block[i]);
            isum += s;
            blockSum = static_cast<double>(s);
            for (std::size_t i = 0; i < n; ++i)
                dblock[i] = static_cast<double>(block[i]);
        }
        const double m = blockSum / static_cast<double>(n);
        double acc[4] = {0, 0, 0, 0};
        std::size_t i = 0;
        for (; i + 4 <= n; i += 4)
            for (int k = 0; k < 4; ++k) {
                double d = dblock[i + static_cast<std::size_t>(k)] - m;
                acc[k] += d * d;
            }
        for (; i < n; ++i) {
            double d = dblock[i] - m;
            acc[0] += d * d;
        }
        moments.merge(static_cast<double>(n), m, (acc[0] + acc[1]) + (acc[2] + acc[3]));
        if (finite == 0) {
            min = lo;
            max = hi;
        } else {
            min = lo < min ? lo : min;
            max = hi > max ? hi : max;
        }
        finite += n;
    }
};

template <Repr R> inline void firstPassElement(FirstPassState<R>& s, const unsigned char* p) {
    using T = ReprTraits<R>;
    ++s.count;
    if constexpr (T::isFloat) {
        unsigned cls = T::classify(p);
        if (cls) {
            if (cls & kClassZero) {
                ++s.zero;
            } else if (cls & kClassNan) {
                ++s.nan;
                return;
            } else if (cls & kClassInf) {
                ++s.inf;
                return;
            } else {
                ++s.denorm;
            }
        }
    } else {
        if (T::value(p) == 0)
            ++s.zero;
    }
    s.block[s.nb++] = T::value(p);
    if (s.nb == kBlock)
        s.flush();
}

// Order-preserving keys of thresholds: the smallest key whose value is not
// below x, and the largest whose value is not above x.
template <Repr R> std::uint64_t keyNotBelow(double x, bool& none) {
    using T = ReprTraits<R>;
    none = false;
    if constexpr (T::isFloat) {
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

template <Repr R> std::uint64_t keyNotAbove(double x, bool& none) {
    using T = ReprTraits<R>;
    none = false;
    if constexpr (T::isFloat) {
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

// A later pass: keys of the finite passing elements go to the jobs of a
// selection step, and optionally to the search for the adjacent values.
struct FenceQuery {
    bool active = false;
    std::uint64_t notBelow = 0, notAbove = 0;   // thresholds
    std::uint64_t foundLow = ~std::uint64_t(0); // smallest key >= notBelow
    std::uint64_t foundHigh = 0;                // largest key <= notAbove
    bool anyLow = false, anyHigh = false;
};

// What one scan looks for, as key offsets so that each test is a single
// unsigned comparison: job candidates in [jobLo, jobLo + jobSpan], the low
// fence's in [lowStart, lowStart + lowSpan], the high fence's in
// [highEnd - highSpan, highEnd].
struct KeyWindows {
    bool jobs = false;
    std::uint64_t jobLo = 0, jobSpan = 0;
    std::uint64_t lowStart = 0, lowSpan = 0;
    std::uint64_t highEnd = 0, highSpan = 0;
    // Windows gathered whole for the adjacent values while the quartiles
    // are still unknown.
    std::uint64_t lowWinLo = 0, lowWinSpan = 0;
    std::uint64_t highWinLo = 0, highWinSpan = 0;
};

// The fence searches keep the smallest offset seen; ~0 while none. At most
// Filter::kBlock elements at a time.
template <Repr R, bool kMasked, bool kFence, bool kWindows, class OnCandidate>
inline void scanKeys(const unsigned char* p, std::ptrdiff_t step, std::size_t n,
                     const unsigned char* pass, const KeyWindows& w, std::uint64_t& bestLow,
                     std::uint64_t& bestHigh, OnCandidate&& onCandidate) {
    constexpr std::uint64_t kNone = ~std::uint64_t(0);
    std::uint64_t lowOff = bestLow, highOff = bestHigh;
    // Candidates are compacted without a branch and handled after the
    // loop: which elements are candidates is random, and a branch on it
    // would be mispredicted each time it is taken.
    std::uint64_t found[Filter::kBlock];
    std::size_t nfound = 0;
    for (std::size_t k = 0; k < n; ++k, p += step) {
        const std::uint64_t key = anyKey<R>(p);
        bool take = true;
        if constexpr (kMasked)
            take = pass[k] != 0;
        if constexpr (kFence) {
            const std::uint64_t dl = key - w.lowStart, dh = w.highEnd - key;
            const std::uint64_t tl = (take && dl <= w.lowSpan) ? dl : kNone;
            const std::uint64_t th = (take && dh <= w.highSpan) ? dh : kNone;
            lowOff = tl < lowOff ? tl : lowOff;
            highOff = th < highOff ? th : highOff;
        }
        bool hit = w.jobs && key - w.jobLo <= w.jobSpan;
        if constexpr (kWindows)
            hit = hit | (key - w.lowWinLo <= w.lowWinSpan) | (key - w.highWinLo <= w.highWinSpan);
        found[nfound] = key;
        nfound += (take && hit) ? 1 : 0;
    }
    for (std::size_t i = 0; i < nfound; ++i)
        onCandidate(found[i]);
    bestLow = lowOff;
    bestHigh = highOff;
}

// Keys around where the fences can fall, gathered in a selection pass so
// that the adjacent values need no pass of their own once the quartiles are
// known: every key in [lowLo, lowHi] and the smallest key above it, every key
// in [highLo, highHi] and the largest key below it.
struct FenceWindows {
    bool active = false;
    std::uint64_t lowLo = 0, lowHi = 0, highLo = 0, highHi = 0;
    std::size_t cap = 0; // more keys than this: the array changed; give up
    std::vector<std::uint64_t> lowKeys, highKeys;
    std::uint64_t above = 0, below = 0;
    bool anyAbove = false, anyBelow = false;
    bool overflow = false;
};

template <Repr R>
Status keyPass(const PassContext& ctx, const std::vector<KeyJob>& jobs, FenceQuery& fence,
               std::vector<std::vector<std::uint64_t>>& hists,
               std::vector<std::vector<std::uint64_t>>& keys, FenceWindows* windows = nullptr) {
    const std::size_t nj = jobs.size();
    const bool fused = kContiguousFiniteKeys<R> && windows && windows->active && !fence.active;
    hists.assign(nj, {});
    keys.assign(nj, {});
    std::vector<std::atomic<std::size_t>> fill(nj);
    for (std::size_t j = 0; j < nj; ++j) {
        fill[j] = 0;
        if (jobs[j].collect)
            keys[j].resize(static_cast<std::size_t>(jobs[j].expected));
    }
    std::uint64_t lo = ~std::uint64_t(0), hi = 0;
    for (const KeyJob& j : jobs) {
        lo = std::min(lo, j.lo);
        hi = std::max(hi, j.hi);
    }
    // One per thread, each on cache lines of its own, and its buffers
    // allocated by the thread that fills them: threads writing next to each
    // other's data would slow this loop several times over.
    struct alignas(64) Local {
        std::vector<std::vector<std::uint64_t>> hists, buffers;
        std::vector<std::uint64_t> lowKeys, highKeys;
        std::uint64_t foundLow = ~std::uint64_t(0), foundHigh = 0;
        bool anyLow = false, anyHigh = false;
        bool overflow = false;
        bool ready = false;
    };
    std::vector<Local> locals(static_cast<std::size_t>(std::max(ctx.threads, 1)));
    auto prepare = [&](Local& l) {
        l.hists.resize(nj);
        l.buffers.resize(nj);
        for (std::size_t j = 0; j < nj; ++j) {
            if (!jobs[j].collect)
                l.hists[j].assign(jobs[j].bins, 0);
            else
                l.buffers[j].reserve(4096);
        }
        l.ready = true;
    };
    auto flushBuffer = [&](Local& l, std::size_t j) {
        std::vector<std::uint64_t>& b = l.buffers[j];
        std::size_t at = fill[j].fetch_add(b.size());
        if (at + b.size() > keys[j].size()) {
            l.overflow = true;
        } else {
            std::copy(b.begin(), b.end(), keys[j].begin() + static_cast<std::ptrdiff_t>(at));
        }
        b.clear();
    };
    const Filter& filter = ctx.filter;
    Status s = forEachTile(
        ctx.plan, ctx.reader, ctx.threads,
        [&](int thread, std::uint64_t, const TileView& view) -> Status {
            Local& l = locals[static_cast<std::size_t>(thread)];
            if (!l.ready)
                prepare(l);
            if constexpr (kContiguousFiniteKeys<R>) {
                const std::uint64_t fmin = finiteKeyMin<R>(), fmax = finiteKeyMax<R>();
                KeyWindows w;
                const std::uint64_t jobLo = std::max(lo, fmin), jobHi = std::min(hi, fmax);
                w.jobs = nj > 0 && jobLo <= jobHi;
                w.jobLo = jobLo;
                w.jobSpan = jobHi - jobLo;
                std::uint64_t notBelow = fence.notBelow, notAbove = fence.notAbove;
                bool lowOk = notBelow <= fmax, highOk = notAbove >= fmin;
                if (fused) {
                    // The fence searches look past the windows.
                    lowOk = windows->lowHi < fmax;
                    notBelow = windows->lowHi + 1;
                    highOk = windows->highLo > fmin;
                    notAbove = windows->highLo - 1;
                    w.lowWinLo = windows->lowLo;
                    w.lowWinSpan = windows->lowHi - windows->lowLo;
                    w.highWinLo = windows->highLo;
                    w.highWinSpan = windows->highHi - windows->highLo;
                }
                w.lowStart = std::max(notBelow, fmin);
                w.lowSpan = fmax - w.lowStart;
                w.highEnd = std::min(notAbove, fmax);
                w.highSpan = w.highEnd - fmin;
                std::uint64_t bestLow = ~std::uint64_t(0), bestHigh = ~std::uint64_t(0);
                auto candidate = [&](std::uint64_t key) {
                    if (fused) {
                        if (key - windows->lowLo <= windows->lowHi - windows->lowLo &&
                            l.lowKeys.size() < windows->cap)
                            l.lowKeys.push_back(key);
                        if (key - windows->highLo <= windows->highHi - windows->highLo &&
                            l.highKeys.size() < windows->cap)
                            l.highKeys.push_back(key);
                        if (!w.jobs || key - jobLo > w.jobSpan)
                            return;
                    }
                    for (std::size_t j = 0; j < nj; ++j) {
                        const KeyJob& job = jobs[j];
                        if (key - job.lo > job.hi - job.lo)
                            continue;
                        if (job.collect) {
                            l.buffers[j].push_back(key);
                            if (l.buffers[j].size() >= 4096)
                                flushBuffer(l, j);
                        } else {
                            ++l.hists[j][job.bin(key)];
                        }
                        break;
                    }
                };
                const bool filtered = !filter.empty();
                unsigned char pass[Filter::kBlock];
                std::uint64_t position = view.firstIndex;
                for (const ElementRun& run : view.runs) {
                    const unsigned char* p = run.first;
                    for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
                        const std::size_t m = std::min(Filter::kBlock, run.count - k0);
                        if (filtered && ctx.verdicts)
                            loadVerdicts(ctx.verdicts, position, pass, m);
                        else if (filtered)
                            filter.matchBlock<R>(p, run.step, m, pass);
                        position += m;
                        if (fused) {
                            if (filtered)
                                scanKeys<R, true, true, true>(p, run.step, m, pass, w, bestLow,
                                                              bestHigh, candidate);
                            else
                                scanKeys<R, false, true, true>(p, run.step, m, pass, w, bestLow,
                                                               bestHigh, candidate);
                        } else if (filtered) {
                            if (fence.active)
                                scanKeys<R, true, true, false>(p, run.step, m, pass, w, bestLow,
                                                               bestHigh, candidate);
                            else
                                scanKeys<R, true, false, false>(p, run.step, m, pass, w, bestLow,
                                                                bestHigh, candidate);
                        } else if (fence.active) {
                            scanKeys<R, false, true, false>(p, run.step, m, pass, w, bestLow,
                                                            bestHigh, candidate);
                        } else {
                            scanKeys<R, false, false, false>(p, run.step, m, pass, w, bestLow,
                                                             bestHigh, candidate);
                        }
                        p += run.step * static_cast<std::ptrdiff_t>(m);
                    }
                }
                const bool searched = fence.active || fused;
                if (searched && lowOk && bestLow != ~std::uint64_t(0)) {
                    const std::uint64_t key = w.lowStart + bestLow;
                    if (!l.anyLow || key < l.foundLow)
                        l.foundLow = key;
                    l.anyLow = true;
                }
                if (searched && highOk && bestHigh != ~std::uint64_t(0)) {
                    const std::uint64_t key = w.highEnd - bestHigh;
                    if (!l.anyHigh || key > l.foundHigh)
                        l.foundHigh = key;
                    l.anyHigh = true;
                }
                return Status::Ok();
            }
            // Locals rather than members: the compiler keeps them in
            // registers across the loop.
            const bool fenceActive = fence.active;
            const std::uint64_t notBelow = fence.notBelow, notAbove = fence.notAbove;
            std::uint64_t foundLow = l.foundLow, foundHigh = l.foundHigh;
            bool anyLow = l.anyLow, anyHigh = l.anyHigh;
            const bool filtered = !filter.empty();
            const std::uint64_t span = hi - lo; // keys in [lo, hi]: key - lo <= span
            const bool anyJob = nj > 0;
            unsigned char pass[Filter::kBlock];
            for (const ElementRun& run : view.runs) {
                const unsigned char* p = run.first;
                for (std::size_t k = 0; k < run.count; ++k, p += run.step) {
                    const std::size_t inBlock = k % Filter::kBlock;
                    if (filtered) {
                        if (inBlock == 0)
                            filter.matchBlock<R>(p, run.step,
                                                 std::min(Filter::kBlock, run.count - k), pass);
                        if (!pass[inBlock])
                            continue;
                    }
                    std::uint64_t key;
                    if (!finiteKey<R>(p, key))
                        continue;
                    if (fenceActive) {
                        if (key >= notBelow && key <= foundLow) {
                            foundLow = key;
                            anyLow = true;
                        }
                        if (key <= notAbove && key >= foundHigh) {
                            foundHigh = key;
                            anyHigh = true;
                        }
                    }
                    if (!anyJob || key - lo > span)
                        continue;
                    for (std::size_t j = 0; j < nj; ++j) {
                        const KeyJob& job = jobs[j];
                        if (key - job.lo > job.hi - job.lo)
                            continue;
                        if (job.collect) {
                            l.buffers[j].push_back(key);
                            if (l.buffers[j].size() >= 4096)
                                flushBuffer(l, j);
                        } else {
                            ++l.hists[j][job.bin(key)];
                        }
                        break;
                    }
                }
            }
            l.foundLow = foundLow;
            l.foundHigh = foundHigh;
            l.anyLow = anyLow;
            l.anyHigh = anyHigh;
            return Status::Ok();
        },
        nullptr, ctx.cancel);
    if (!s)
        return s;
    for (std::size_t j = 0; j < nj; ++j) {
        if (jobs[j].collect) {
            for (Local& l : locals)
                if (l.ready && !l.buffers[j].empty())
                    flushBuffer(l, j);
        } else {
            hists[j].assign(jobs[j].bins, 0);
            for (Local& l : locals)
                if (l.ready)
                    for (std::size_t b = 0; b < jobs[j].bins; ++b)
                        hists[j][b] += l.hists[j][b];
        }
    }
    if (fused) {
        for (Local& l : locals) {
            if (!l.ready)
                continue;
            if (l.lowKeys.size() >= windows->cap || l.highKeys.size() >= windows->cap)
                windows->overflow = true;
            windows->lowKeys.insert(windows->lowKeys.end(), l.lowKeys.begin(), l.lowKeys.end());
            windows->highKeys.insert(windows->highKeys.end(), l.highKeys.begin(), l.highKeys.end());
            if (l.anyLow && (!windows->anyAbove || l.foundLow < windows->above)) {
                windows->above = l.foundLow;
                windows->anyAbove = true;
            }
            if (l.anyHigh && (!windows->anyBelow || l.foundHigh > windows->below)) {
                windows->below = l.foundHigh;
                windows->anyBelow = true;
            }
        }
        for (Local& l : locals)
            if (l.overflow)
                return Error{ErrorCode::Unreadable,
                             "The array changed while its statistics were computed."};
        for (std::size_t j = 0; j < nj; ++j)
            if (jobs[j].collect && fill[j].load() != keys[j].size())
                return Error{ErrorCode::Unreadable,
                             "The array changed while its statistics were computed."};
        return Status::Ok();
    }
    for (Local& l : locals) {
        if (l.overflow)
            return Error{ErrorCode::Unreadable,
                         "The array changed while its statistics were computed."};
        if (l.anyLow && (!fence.anyLow || l.foundLow < fence.foundLow)) {
            fence.foundLow = l.foundLow;
            fence.anyLow = true;
        }
        if (l.anyHigh && (!fence.anyHigh || l.foundHigh > fence.foundHigh)) {
            fence.foundHigh = l.foundHigh;
            fence.anyHigh = true;
        }
    }
    for (std::size_t j = 0; j < nj; ++j)
        if (jobs[j].collect && fill[j].load() != keys[j].size())
            return Error{ErrorCode::Unreadable,
                         "The array changed while its statistics were computed."};
    return Status::Ok();
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

// Where the fences can fall, from the key ranges the first histogram left
// for the quartiles' ranks; the windows are used only if the fences, once
// known, do fall inside them. Inactive when the windows would hold more than
// `limit` keys by the histogram's count.
template <Repr R>
FenceWindows fenceWindows(const RadixSelect& select, const QuantilePoint& q1,
                          const QuantilePoint& q3, const std::vector<std::uint64_t>& hist,
                          unsigned shift, std::size_t limit) {
    using T = ReprTraits<R>;
    FenceWindows w;
    if constexpr (kContiguousFiniteKeys<R>) {
        std::uint64_t a1, b1, a3, b3, unused;
        if (!select.rangeOf(q1.lower, a1, unused) || !select.rangeOf(q1.upper, unused, b1) ||
            !select.rangeOf(q3.lower, a3, unused) || !select.rangeOf(q3.upper, unused, b3))
            return w;
        const double q1lo = static_cast<double>(T::fromKey(a1));
        const double q1hi = static_cast<double>(T::fromKey(b1));
        const double q3lo = static_cast<double>(T::fromKey(a3));
        const double q3hi = static_cast<double>(T::fromKey(b3));
        // Each fence moves one way with each quartile.
        const double lowMin = q1lo - 1.5 * (q3hi - q1lo), lowMax = q1hi - 1.5 * (q3lo - q1hi);
        const double highMin = q3lo + 1.5 * (q3lo - q1hi), highMax = q3hi + 1.5 * (q3hi - q1lo);
        if (!std::isfinite(lowMin) || !std::isfinite(lowMax) || !std::isfinite(highMin) ||
            !std::isfinite(highMax) || lowMin > lowMax || highMin > highMax)
            return w;
        bool n1 = false, n2 = false, n3 = false, n4 = false;
        std::uint64_t lowLo = keyNotBelow<R>(lowMin, n1), lowHi = keyNotBelow<R>(lowMax, n2);
        std::uint64_t highLo = keyNotAbove<R>(highMin, n3), highHi = keyNotAbove<R>(highMax, n4);
        if (n1 || n2 || n3 || n4)
            return w;
        // A little slack for the rounding of the quartiles' interpolation.
        const std::uint64_t fmin = finiteKeyMin<R>(), fmax = finiteKeyMax<R>();
        constexpr std::uint64_t kSlack = 64;
        lowLo = lowLo - fmin > kSlack ? lowLo - kSlack : fmin;
        highLo = highLo - fmin > kSlack ? highLo - kSlack : fmin;
        lowHi = fmax - lowHi > kSlack ? lowHi + kSlack : fmax;
        highHi = fmax - highHi > kSlack ? highHi + kSlack : fmax;
        if (lowLo < fmin || lowHi > fmax || highLo < fmin || highHi > fmax || lowLo > lowHi ||
            highLo > highHi)
            return w;
        std::uint64_t count = 0;
        for (std::uint64_t b = lowLo >> shift; b <= (lowHi >> shift) && b < hist.size(); ++b)
            count += hist[b];
        for (std::uint64_t b = highLo >> shift; b <= (highHi >> shift) && b < hist.size(); ++b)
            count += hist[b];
        if (count > limit)
            return w;
        w.active = true;
        w.lowLo = lowLo;
        w.lowHi = lowHi;
        w.highLo = highLo;
        w.highHi = highHi;
        w.cap = static_cast<std::size_t>(count) + 1;
    }
    return w;
}

// The quartiles and adjacent values by radix selection, from the first
// histogram of the finite passing elements' keys: as many passes as the
// selection needs, and one more for the adjacent values unless the fences
// fall inside windows gathered on the way.
template <Repr R>
Status quantilesByRadix(const PassContext& later, const StatisticsOptions& options, std::uint64_t n,
                        std::vector<std::uint64_t> hist, typename ReprTraits<R>::Value min,
                        typename ReprTraits<R>::Value max, Statistics& out) {
    using T = ReprTraits<R>;
    using V = typename T::Value;
    const unsigned keyBits = T::keyBits;
    const unsigned shift = keyBits - std::min(keyBits, kRadixBits);
    // Exact quantiles by radix selection.
    const QuantilePoint q1 = quantilePoint(n, 0.25), q2 = quantilePoint(n, 0.5),
                        q3 = quantilePoint(n, 0.75);
    RadixSelect select(keyBits, {q1.lower, q1.upper, q2.lower, q2.upper, q3.lower, q3.upper}, n,
                       std::max<std::size_t>(options.selectionBytes / 8, 16));
    select.takeFirstHistogram(hist);
    FenceWindows windows;
    if (!select.done())
        windows = fenceWindows<R>(select, q1, q3, hist, shift,
                                  std::max<std::size_t>(options.selectionBytes / 8, 16) / 4);
    hist = std::vector<std::uint64_t>();
    std::vector<std::vector<std::uint64_t>> hists, keys;
    FenceQuery noFence;
    bool windowsGathered = false;
    while (!select.done()) {
        if (select.passes() > 2 * (64 / kRadixBits) + 2)
            return Error{ErrorCode::Unreadable,
                         "The array changed while its statistics were computed."};
        Status ps = keyPass<R>(later, select.jobs(), noFence, hists, keys,
                               windowsGathered ? nullptr : &windows);
        windowsGathered = windows.active;
        if (!ps)
            return ps;
        ++out.passes;
        select.takePass(hists, keys);
    }
    hists.clear();
    keys.clear();
    auto valueAt = [&](std::uint64_t rank) {
        return static_cast<double>(T::fromKey(select.keyAt(rank)));
    };
    auto quantile = [&](const QuantilePoint& q) {
        return interpolate(valueAt(q.lower), valueAt(q.upper), q.fraction);
    };
    out.firstQuartile = quantile(q1);
    out.median = quantile(q2);
    out.thirdQuartile = quantile(q3);

    // Tukey's adjacent values: the extremes of the elements inside the fences.
    const double iqr = out.thirdQuartile - out.firstQuartile;
    const double lowFence = out.firstQuartile - 1.5 * iqr;
    const double highFence = out.thirdQuartile + 1.5 * iqr;
    const std::uint64_t minKey = T::key(min), maxKey = T::key(max);
    FenceQuery fence;
    bool noneLow = false, noneHigh = false;
    fence.notBelow = keyNotBelow<R>(lowFence, noneLow);
    fence.notAbove = keyNotAbove<R>(highFence, noneHigh);
    V lowerAdj = min, upperAdj = max;
    const bool needLow = !noneLow && minKey < fence.notBelow;
    const bool needHigh = !noneHigh && maxKey > fence.notAbove;
    auto inWindow = [](std::uint64_t key, std::uint64_t lo, std::uint64_t hi) {
        return key >= lo && key <= hi;
    };
    if (windowsGathered && !windows.overflow &&
        (!needLow || inWindow(fence.notBelow, windows.lowLo, windows.lowHi)) &&
        (!needHigh || inWindow(fence.notAbove, windows.highLo, windows.highHi))) {
        if (needLow) {
            bool any = windows.anyAbove;
            std::uint64_t best = windows.above;
            for (std::uint64_t k : windows.lowKeys)
                if (k >= fence.notBelow && (!any || k < best)) {
                    best = k;
                    any = true;
                }
            if (any)
                lowerAdj = T::fromKey(best);
        }
        if (needHigh) {
            bool any = windows.anyBelow;
            std::uint64_t best = windows.below;
            for (std::uint64_t k : windows.highKeys)
                if (k <= fence.notAbove && (!any || k > best)) {
                    best = k;
                    any = true;
                }
            if (any)
                upperAdj = T::fromKey(best);
        }
    } else if (needLow || needHigh) {
        fence.active = true;
        Status ps = keyPass<R>(later, {}, fence, hists, keys);
        if (!ps)
            return ps;
        ++out.passes;
        if (needLow && fence.anyLow)
            lowerAdj = T::fromKey(fence.foundLow);
        if (needHigh && fence.anyHigh)
            upperAdj = T::fromKey(fence.foundHigh);
    }
    out.lowerAdjValue = typedNumber<R>(lowerAdj);
    out.upperAdjValue = typedNumber<R>(upperAdj);
    return Status::Ok();
}

// ---- One pass, with key windows guessed from a sample ----

// Windows chosen before the pass: one around each quartile's rank as a
// sample puts it, and one where each fence can fall if the quartiles lie in
// theirs. The pass counts the keys below each window and keeps those inside;
// afterwards the counts tell whether each wanted rank did fall inside.
struct GuessedWindows {
    kernels::KeyWindows keys;
    int quartile[3] = {-1, -1, -1}; // the windows of the 0.25, 0.5, 0.75 quantiles
    int lowFence = -1, highFence = -1;
    std::size_t cap[kernels::kMaxWindows] = {};
    std::uint64_t hi(int w) const { return keys.lo[w] + keys.span[w]; }
    bool holds(int w, std::uint64_t key) const {
        return w >= 0 && key - keys.lo[w] <= keys.span[w];
    }
};

// Where a sample of m keys puts quantile p: the sample's keys at p give or
// take 4.5 standard errors of a sample quantile's rank, and a few ranks more
// for small samples. One element per stratum only narrows the spread.
template <Repr R>
void quantileWindow(const std::vector<std::uint64_t>& sorted, double p, std::uint64_t& lo,
                    std::uint64_t& hi) {
    const double m = static_cast<double>(sorted.size());
    const double margin = 4.5 * std::sqrt(p * (1 - p) / m) + 3.0 / m;
    const double a = (p - margin) * (m - 1), b = (p + margin) * (m - 1);
    lo = a <= 0 ? finiteKeyMin<R>() : sorted[static_cast<std::size_t>(std::floor(a))];
    hi = b >= m - 1 ? finiteKeyMax<R>() : sorted[static_cast<std::size_t>(std::ceil(b))];
}

// The keys a fence can take while the quartiles stay in their windows,
// widened a little for the rounding of their interpolation. The lower fence
// rises with Q1 and falls with Q3, the upper one the other way round.
template <Repr R>
bool fenceWindow(bool low, double q1lo, double q1hi, double q3lo, double q3hi, std::uint64_t& a,
                 std::uint64_t& b) {
    const double from = low ? q1lo - 1.5 * (q3hi - q1lo) : q3lo + 1.5 * (q3lo - q1hi);
    const double to = low ? q1hi - 1.5 * (q3lo - q1hi) : q3hi + 1.5 * (q3hi - q1lo);
    if (!std::isfinite(from) || !std::isfinite(to) || from > to)
        return false;
    bool none1 = false, none2 = false;
    a = low ? keyNotBelow<R>(from, none1) : keyNotAbove<R>(from, none1);
    b = low ? keyNotBelow<R>(to, none2) : keyNotAbove<R>(to, none2);
    if (none1 || none2 || a > b)
        return false;
    constexpr std::uint64_t kSlack = 64;
    const std::uint64_t fmin = finiteKeyMin<R>(), fmax = finiteKeyMax<R>();
    a = a - fmin > kSlack ? a - kSlack : fmin;
    b = fmax - b > kSlack ? b + kSlack : fmax;
    return true;
}

// Reads the sample and chooses the windows; false when no guess is worth
// making (too few finite elements pass, or the windows would hold more keys
// than allowed).
template <Repr R>
bool guessWindows(const PassContext& ctx, const StatisticsOptions& options, GuessedWindows& g) {
    using T = ReprTraits<R>;
    const std::vector<std::uint64_t> positions =
        stratifiedPositions(ctx.plan.elementCount(), options.sampleSize);
    std::vector<unsigned char> bytes;
    if (!readPositions(*ctx.layout, ctx.reader, positions, ctx.threads, bytes))
        return false; // the pass itself says what could not be read
    const std::size_t esize = ctx.plan.elementSize();
    std::vector<std::uint64_t> sorted;
    sorted.reserve(positions.size());
    unsigned char pass[Filter::kBlock];
    for (std::size_t k0 = 0; k0 < positions.size(); k0 += Filter::kBlock) {
        const std::size_t m = std::min(Filter::kBlock, positions.size() - k0);
        const unsigned char* p = bytes.data() + k0 * esize;
        if (!ctx.filter.empty())
            ctx.filter.matchBlock<R>(p, static_cast<std::ptrdiff_t>(esize), m, pass);
        for (std::size_t k = 0; k < m; ++k, p += esize) {
            std::uint64_t key;
            if ((ctx.filter.empty() || pass[k]) && finiteKey<R>(p, key))
                sorted.push_back(key);
        }
    }
    // The margins widen by themselves for small samples; below this few the
    // windows would cover most of the data anyway.
    if (sorted.size() < 64)
        return false;
    std::sort(sorted.begin(), sorted.end());
    const double m = static_cast<double>(sorted.size());
    const double expectedFinite =
        static_cast<double>(ctx.plan.elementCount()) * m / static_cast<double>(positions.size());
    // Keys a window will see by the sample, with room for the sample's error.
    auto expectedIn = [&](std::uint64_t lo, std::uint64_t hi) {
        const auto in = std::upper_bound(sorted.begin(), sorted.end(), hi) -
                        std::lower_bound(sorted.begin(), sorted.end(), lo);
        return static_cast<std::size_t>(1.25 * expectedFinite * static_cast<double>(in + 4) / m) +
               4096;
    };
    const std::size_t budget = std::max<std::size_t>(options.windowBytes / 8, 16);
    std::size_t used = 0;
    kernels::KeyWindows& w = g.keys;
    auto add = [&](std::uint64_t lo, std::uint64_t hi) {
        const int at = static_cast<int>(w.count++);
        w.lo[at] = lo;
        w.span[at] = hi - lo;
        // A window of one key needs only its counts, not its keys.
        g.cap[at] = lo == hi ? 0 : expectedIn(lo, hi);
        used += g.cap[at];
        return at;
    };
    const double ps[3] = {0.25, 0.5, 0.75};
    std::uint64_t qlo[3], qhi[3];
    for (int i = 0; i < 3; ++i) {
        quantileWindow<R>(sorted, ps[i], qlo[i], qhi[i]);
        g.quartile[i] = add(qlo[i], qhi[i]);
    }
    if (used > budget)
        return false;
    const double q1lo = static_cast<double>(T::fromKey(qlo[0]));
    const double q1hi = static_cast<double>(T::fromKey(qhi[0]));
    const double q3lo = static_cast<double>(T::fromKey(qlo[2]));
    const double q3hi = static_cast<double>(T::fromKey(qhi[2]));
    // A fence window that would not fit is left out: the adjacent values
    // then need a pass of their own only if the fence falls inside the data.
    for (bool low : {true, false}) {
        std::uint64_t a, b;
        if (!fenceWindow<R>(low, q1lo, q1hi, q3lo, q3hi, a, b))
            continue;
        if (used + expectedIn(a, b) > budget)
            continue;
        (low ? g.lowFence : g.highFence) = add(a, b);
    }
    return true;
}

// One thread's share of the pass.
template <Repr R> struct alignas(64) OnePassState {
    using Native = typename ReprTraits<R>::Native;
    std::uint64_t count = 0, finite = 0;
    kernels::ClassCounts classes;
    double min = 0, max = 0;
    kernels::WindowTally tally;
    std::uint64_t in[kernels::kMaxWindows] = {};
    // Keys of each window waiting to go to its store: the scan writes a
    // block's worth straight after those already waiting.
    static constexpr std::size_t kFlushAt = 4096;
    std::unique_ptr<std::uint64_t[]> local[kernels::kMaxWindows];
    std::uint64_t* localAt[kernels::kMaxWindows] = {};
    std::size_t waiting[kernels::kMaxWindows] = {};
    std::size_t got[kernels::kMaxWindows] = {};
    Native native[kernels::kBlock];
    std::size_t nn = 0;
    double values[kernels::kBlock];
    std::uint64_t keys[kernels::kBlock];
    explicit OnePassState(unsigned windows) {
        for (unsigned j = 0; j < windows; ++j) {
            local[j].reset(new std::uint64_t[kFlushAt + kernels::kBlock]);
            localAt[j] = local[j].get();
        }
    }
    // The passing elements' bytes for the checksum, as in the first pass of
    // radix selection.
    std::vector<unsigned char> pack;
    std::size_t packed = 0;
    unsigned char* reservePackFor(std::size_t bytes) {
        if (pack.size() < packed + bytes)
            pack.resize(std::max(packed + bytes, 2 * pack.size()));
        return pack.data() + packed;
    }
};

// Sums and moments of one tile, merged in tile order afterwards so that the
// result does not depend on which thread took which tile.
struct TileSums {
    Neumaier sum;
    Moments moments;
};

// The keys a window kept: filled by every thread at once.
struct WindowStore {
    std::unique_ptr<std::uint64_t[]> keys;
    std::size_t cap = 0;
    std::atomic<std::size_t> fill{0};
    bool complete(std::uint64_t in) const { return fill.load() == in && in <= cap; }
};

// Statistics of IEEE single or double elements in one pass when the sample's
// windows hold; otherwise the same pass goes on to radix selection. False in
// `taken` when no guess was made and the caller is to compute it all.
template <Repr R>
Status statisticsInOnePass(const PassContext& ctx, const StatisticsOptions& options,
                           Statistics& out, bool& taken) {
    using T = ReprTraits<R>;
    using Native = typename T::Native;
    taken = false;
    GuessedWindows g;
    if (!guessWindows<R>(ctx, options, g))
        return Status::Ok();
    taken = true;
    out.sampled = true;
    const kernels::Ops& ops = kernels::ops();
    const kernels::KeyWindows& win = g.keys;
    const unsigned nw = win.count;
    WindowStore stores[kernels::kMaxWindows];
    for (unsigned j = 0; j < nw; ++j) {
        stores[j].cap = g.cap[j];
        if (g.cap[j])
            stores[j].keys.reset(new std::uint64_t[g.cap[j]]);
    }
    const std::size_t esize = ctx.plan.elementSize();
    constexpr std::size_t vbytes = sizeof(Native);
    std::vector<std::unique_ptr<OnePassState<R>>> states;
    for (int i = 0; i < ctx.threads; ++i)
        states.push_back(std::make_unique<OnePassState<R>>(nw));
    std::vector<TileSums> tiles(static_cast<std::size_t>(ctx.plan.tileCount()));
    std::unique_ptr<std::atomic<std::uint64_t>[]> verdicts;
    const std::uint64_t positions = ctx.plan.elementCount();
    if (!ctx.filter.empty() && positions <= (std::uint64_t(1) << 30))
        verdicts.reset(new std::atomic<std::uint64_t>[(positions + 63) / 64]());

    auto flushLocal = [&](OnePassState<R>& st, unsigned j) {
        WindowStore& s = stores[j];
        const std::size_t n = st.waiting[j];
        const std::size_t at = s.fill.fetch_add(n);
        if (at < s.cap)
            std::copy(st.local[j].get(), st.local[j].get() + std::min(n, s.cap - at),
                      s.keys.get() + at);
        st.waiting[j] = 0;
        st.localAt[j] = st.local[j].get();
    };
    auto block = [&](OnePassState<R>& st, TileSums& sums, const Native* v, std::size_t m) {
        st.count += m;
        std::size_t nf;
        if constexpr (R == Repr::F64)
            nf = ops.classifyF64(v, m, st.values, st.classes);
        else
            nf = ops.classifyF32(v, m, st.values, st.classes);
        if (nf == 0)
            return;
        const kernels::FiniteMoments fm = ops.moments(st.values, nf);
        sums.sum.add(fm.sum);
        sums.moments.merge(static_cast<double>(nf), fm.sum / static_cast<double>(nf), fm.m2);
        if (st.finite == 0) {
            st.min = fm.min;
            st.max = fm.max;
        } else {
            st.min = fm.min < st.min ? fm.min : st.min;
            st.max = fm.max > st.max ? fm.max : st.max;
        }
        st.finite += nf;
        if constexpr (R == Repr::F64)
            ops.keysF64(st.values, nf, st.keys);
        else
            ops.keysF32(st.values, nf, st.keys);
        ops.scan(st.keys, nf, win, st.tally, st.localAt, st.got);
        for (unsigned j = 0; j < nw; ++j) {
            st.in[j] += st.got[j];
            // A window of one key is known by its counts alone.
            if (g.cap[j] == 0 || st.got[j] == 0)
                continue;
            st.waiting[j] += st.got[j];
            st.localAt[j] += st.got[j];
            if (st.waiting[j] >= OnePassState<R>::kFlushAt)
                flushLocal(st, j);
        }
    };

    TileTurns turns;
    OrderedHasher hash(turns);
    const Filter& filter = ctx.filter;
    Status s = forEachTile(
        ctx.plan, ctx.reader, ctx.threads,
        [&](int thread, std::uint64_t tile, const TileView& view) -> Status {
            OnePassState<R>& st = *states[static_cast<std::size_t>(thread)];
            TileSums& sums = tiles[static_cast<std::size_t>(tile)];
            const bool direct = filter.empty() && view.runs.size() == 1 &&
                                view.runs[0].step == static_cast<std::ptrdiff_t>(esize) &&
                                esize == vbytes;
            st.packed = 0;
            st.nn = 0;
            std::uint64_t position = view.firstIndex;
            for (const ElementRun& run : view.runs) {
                const unsigned char* p = run.first;
                const bool aligned = reinterpret_cast<std::uintptr_t>(p) % alignof(Native) == 0;
                if (filter.empty() && run.step == static_cast<std::ptrdiff_t>(vbytes) &&
                    esize == vbytes && aligned) {
                    const Native* v = reinterpret_cast<const Native*>(p);
                    for (std::size_t k = 0; k < run.count; k += kernels::kBlock)
                        block(st, sums, v + k, std::min(kernels::kBlock, run.count - k));
                    if (!direct) {
                        unsigned char* o = st.reservePackFor(run.count * vbytes);
                        std::memcpy(o, p, run.count * vbytes);
                        st.packed += run.count * vbytes;
                    }
                    continue;
                }
                unsigned char pass[Filter::kBlock];
                for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
                    const std::size_t m = std::min(Filter::kBlock, run.count - k0);
                    if (!filter.empty()) {
                        filter.matchBlock<R>(p, run.step, m, pass);
                        if (verdicts)
                            storeVerdicts(verdicts.get(), position, pass, m);
                    }
                    position += m;
                    unsigned char* const start = st.reservePackFor(m * vbytes);
                    unsigned char* o = start;
                    for (std::size_t k = 0; k < m; ++k, p += run.step) {
                        if (!filter.empty() && !pass[k])
                            continue;
                        std::memcpy(&st.native[st.nn++], p, vbytes);
                        std::memcpy(o, p, vbytes);
                        o += vbytes;
                        if (st.nn == kernels::kBlock) {
                            block(st, sums, st.native, st.nn);
                            st.nn = 0;
                        }
                    }
                    st.packed += static_cast<std::size_t>(o - start);
                }
            }
            if (st.nn) {
                block(st, sums, st.native, st.nn);
                st.nn = 0;
            }
            const bool ok = direct ? hash.add(tile, view.runs[0].first, view.runs[0].count * esize)
                                   : hash.add(tile, st.pack.data(), st.packed);
            if (!ok)
                return Error{ErrorCode::Unreadable, "abandoned"};
            return Status::Ok();
        },
        &turns, ctx.cancel);
    const std::uint64_t checksum = hash.digest();
    if (!s)
        return s;

    // Everything counted, in an order that does not depend on the threads.
    OnePassState<R>& all = *states[0];
    for (auto& st : states)
        for (unsigned j = 0; j < nw; ++j)
            if (st->waiting[j])
                flushLocal(*st, j);
    for (std::size_t i = 1; i < states.size(); ++i) {
        OnePassState<R>& o = *states[i];
        all.count += o.count;
        all.classes.zero += o.classes.zero;
        all.classes.nan += o.classes.nan;
        all.classes.inf += o.classes.inf;
        all.classes.denorm += o.classes.denorm;
        if (o.finite) {
            if (all.finite == 0) {
                all.min = o.min;
                all.max = o.max;
            } else {
                all.min = o.min < all.min ? o.min : all.min;
                all.max = o.max > all.max ? o.max : all.max;
            }
        }
        all.finite += o.finite;
        for (unsigned j = 0; j < nw; ++j) {
            all.tally.under[j] += o.tally.under[j];
            all.in[j] += o.in[j];
        }
    }
    Neumaier sum;
    Moments moments;
    for (const TileSums& t : tiles) {
        sum.add(t.sum.sum);
        sum.add(t.sum.c);
        moments.merge(t.moments.n, t.moments.mean, t.moments.m2);
    }
    tiles = std::vector<TileSums>();

    out.checksum = static_cast<std::int64_t>(checksum);
    out.count = all.count;
    out.zeroCount = all.classes.zero;
    out.nanCount = all.classes.nan;
    out.infCount = all.classes.inf;
    out.denormCount = all.classes.denorm;
    out.passes = 1;
    out.statValid = 0x7 | (1u << StatNanCount) | (1u << StatInfCount) | (1u << StatDenormCount);
    const std::uint64_t n = all.finite;
    if (n == 0)
        return Status::Ok();
    out.statValid |= 0x1ff8;
    out.sum = sum.value();
    out.mean = sum.value() / static_cast<double>(n);
    out.min = all.min;
    out.max = all.max;
    out.stdDev = std::sqrt(moments.m2 / moments.n);

    // The quartiles' ranks, each looked up in its window.
    const QuantilePoint qs[3] = {quantilePoint(n, 0.25), quantilePoint(n, 0.5),
                                 quantilePoint(n, 0.75)};
    bool held = true;
    for (int i = 0; i < 3 && held; ++i) {
        const int w = g.quartile[i];
        for (std::uint64_t rank : {qs[i].lower, qs[i].upper})
            held = held && rank >= all.tally.under[w] && rank - all.tally.under[w] < all.in[w] &&
                   (g.cap[w] == 0 || stores[w].complete(all.in[w]));
    }
    PassContext later = ctx;
    later.verdicts = verdicts.get();
    if (!held) {
        // The guess missed: the first histogram radix selection starts from.
        const unsigned keyBits = T::keyBits;
        RadixSelect probe(keyBits, {0}, n, 16);
        std::vector<std::vector<std::uint64_t>> hists, keys;
        FenceQuery none;
        Status hs = keyPass<R>(later, {probe.firstJob()}, none, hists, keys);
        if (!hs)
            return hs;
        ++out.passes;
        return quantilesByRadix<R>(later, options, n, std::move(hists[0]), all.min, all.max, out);
    }
    // Each window's ranks by partial sorting, the windows on threads of
    // their own. Its two ranks are neighbours: the second is the smallest
    // key after the first.
    std::uint64_t found[3][2] = {};
    std::atomic<int> nextWindow{0};
    runOnThreads(std::min(ctx.threads, 3), [&](int) {
        for (int i = nextWindow++; i < 3; i = nextWindow++) {
            const int w = g.quartile[i];
            const std::uint64_t under = all.tally.under[w];
            if (g.cap[w] == 0) {
                found[i][0] = found[i][1] = win.lo[w];
                continue;
            }
            std::uint64_t* begin = stores[w].keys.get();
            std::uint64_t* end = begin + all.in[w];
            std::uint64_t* at = begin + (qs[i].lower - under);
            std::nth_element(begin, at, end);
            found[i][0] = *at;
            found[i][1] = qs[i].upper == qs[i].lower ? *at : *std::min_element(at + 1, end);
        }
    });
    auto quantile = [&](int i) {
        return interpolate(T::fromKey(found[i][0]), T::fromKey(found[i][1]), qs[i].fraction);
    };
    out.firstQuartile = quantile(0);
    out.median = quantile(1);
    out.thirdQuartile = quantile(2);

    // Tukey's adjacent values from the fence windows, when the fences fell
    // in them with a key between the fence and the window's far end; a
    // fence outside the data needs no window at all.
    const double iqr = out.thirdQuartile - out.firstQuartile;
    FenceQuery fence;
    bool noneLow = false, noneHigh = false;
    fence.notBelow = keyNotBelow<R>(out.firstQuartile - 1.5 * iqr, noneLow);
    fence.notAbove = keyNotAbove<R>(out.thirdQuartile + 1.5 * iqr, noneHigh);
    double lowerAdj = all.min, upperAdj = all.max;
    bool needLow = !noneLow && T::key(all.min) < fence.notBelow;
    bool needHigh = !noneHigh && T::key(all.max) > fence.notAbove;
    const int lw = g.lowFence, hw = g.highFence;
    if (needLow && g.holds(lw, fence.notBelow) && stores[lw].complete(all.in[lw])) {
        const std::uint64_t* k = stores[lw].keys.get();
        bool any = false;
        std::uint64_t best = 0;
        for (std::uint64_t i = 0; i < all.in[lw]; ++i)
            if (k[i] >= fence.notBelow && (!any || k[i] < best)) {
                best = k[i];
                any = true;
            }
        if (any) {
            lowerAdj = T::fromKey(best);
            needLow = false;
        }
    }
    if (needHigh && g.holds(hw, fence.notAbove) && stores[hw].complete(all.in[hw])) {
        const std::uint64_t* k = stores[hw].keys.get();
        bool any = false;
        std::uint64_t best = 0;
        for (std::uint64_t i = 0; i < all.in[hw]; ++i)
            if (k[i] <= fence.notAbove && (!any || k[i] > best)) {
                best = k[i];
                any = true;
            }
        if (any) {
            upperAdj = T::fromKey(best);
            needHigh = false;
        }
    }
    out.windowsHeld = !needLow && !needHigh;
    if (needLow || needHigh) {
        fence.active = true;
        std::vector<std::vector<std::uint64_t>> hists, keys;
        Status ps = keyPass<R>(later, {}, fence, hists, keys);
        if (!ps)
            return ps;
        ++out.passes;
        if (needLow && fence.anyLow)
            lowerAdj = T::fromKey(fence.foundLow);
        if (needHigh && fence.anyHigh)
            upperAdj = T::fromKey(fence.foundHigh);
    }
    out.lowerAdjValue = lowerAdj;
    out.upperAdjValue = upperAdj;
    return Status::Ok();
}

template <Repr R>
Status statisticsOf(const PassContext& ctx, const StatisticsOptions& options, Statistics& out) {
    using T = ReprTraits<R>;
    if constexpr (R == Repr::F64 || R == Repr::F32) {
        if (options.sampleSize > 0 && ctx.plan.elementCount() >= options.sampleFrom &&
            ctx.reader.cheapScatteredReads()) {
            bool taken = false;
            Status s = statisticsInOnePass<R>(ctx, options, out, taken);
            if (taken || !s)
                return s;
        }
    }
    const unsigned keyBits = T::keyBits;
    const unsigned histBits = std::min(keyBits, kRadixBits);
    const unsigned shift = keyBits - histBits;
    const std::size_t vbytes = valueBytes(R);
    const std::size_t esize = ctx.plan.elementSize();

    // First pass: counts, sums, extremes, moments, the checksum in result
    // order, and the first histogram of the keys.
    std::vector<std::unique_ptr<FirstPassState<R>>> states;
    for (int i = 0; i < ctx.threads; ++i) {
        states.push_back(std::make_unique<FirstPassState<R>>());
        states.back()->hist.assign(std::size_t(1) << histBits, 0);
        states.back()->hist32.assign(std::size_t(1) << histBits, 0);
        states.back()->shift = shift;
    }
    // A bit per element is little beside the elements themselves; beyond
    // 2^30 elements the filter is evaluated again in each pass instead.
    std::unique_ptr<std::atomic<std::uint64_t>[]> verdicts;
    const std::uint64_t positions = ctx.plan.elementCount();
    if (!ctx.filter.empty() && positions <= (std::uint64_t(1) << 30))
        verdicts.reset(new std::atomic<std::uint64_t>[(positions + 63) / 64]());
    TileTurns turns; // only its abandoned flag: a failed read stops the hasher
    OrderedHasher hash(turns);
    const Filter& filter = ctx.filter;
    Status s = forEachTile(
        ctx.plan, ctx.reader, ctx.threads,
        [&](int thread, std::uint64_t tile, const TileView& view) -> Status {
            FirstPassState<R>& st = *states[static_cast<std::size_t>(thread)];
            const bool direct = filter.empty() && view.runs.size() == 1 &&
                                view.runs[0].step == static_cast<std::ptrdiff_t>(esize) &&
                                esize == vbytes;
            st.packed = 0;
            std::uint64_t position = view.firstIndex;
            for (const ElementRun& run : view.runs) {
                const unsigned char* p = run.first;
                if (filter.empty() && run.step == static_cast<std::ptrdiff_t>(esize)) {
                    for (std::size_t k = 0; k < run.count; ++k, p += esize)
                        firstPassElement<R>(st, p);
                    if (!direct) {
                        unsigned char* out = st.reservePack(run.count * vbytes);
                        for (std::size_t k = 0; k < run.count; ++k, out += vbytes)
                            std::memcpy(out, run.first + k * esize, vbytes);
                        st.packed += run.count * vbytes;
                    }
                    continue;
                }
                unsigned char pass[Filter::kBlock];
                for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
                    const std::size_t m = std::min(Filter::kBlock, run.count - k0);
                    filter.matchBlock<R>(p, run.step, m, pass);
                    if (verdicts)
                        storeVerdicts(verdicts.get(), position, pass, m);
                    position += m;
                    unsigned char* const start = st.reservePack(m * vbytes);
                    unsigned char* out = start;
                    for (std::size_t k = 0; k < m; ++k, p += run.step) {
                        if (!pass[k])
                            continue;
                        firstPassElement<R>(st, p);
                        std::memcpy(out, p, vbytes);
                        out += vbytes;
                    }
                    st.packed += static_cast<std::size_t>(out - start);
                }
            }
            st.flush();
            const bool ok = direct ? hash.add(tile, view.runs[0].first, view.runs[0].count * esize)
                                   : hash.add(tile, st.pack.data(), st.packed);
            if (!ok)
                return Error{ErrorCode::Unreadable, "abandoned"};
            return Status::Ok();
        },
        &turns, ctx.cancel);
    const std::uint64_t checksum = hash.digest();
    if (!s)
        return s;

    for (auto& st : states)
        st->spill();
    FirstPassState<R>& all = *states[0];
    for (std::size_t i = 1; i < states.size(); ++i) {
        FirstPassState<R>& o = *states[i];
        all.count += o.count;
        all.zero += o.zero;
        all.nan += o.nan;
        all.inf += o.inf;
        all.denorm += o.denorm;
        all.isum += o.isum;
        all.fsum.add(o.fsum.sum);
        all.fsum.add(o.fsum.c);
        all.moments.merge(o.moments.n, o.moments.mean, o.moments.m2);
        if (o.finite) {
            if (all.finite == 0) {
                all.min = o.min;
                all.max = o.max;
            } else {
                all.min = o.min < all.min ? o.min : all.min;
                all.max = o.max > all.max ? o.max : all.max;
            }
        }
        all.finite += o.finite;
        for (std::size_t b = 0; b < all.hist.size(); ++b)
            all.hist[b] += o.hist[b];
    }
    states.resize(1);

    out.checksum = static_cast<std::int64_t>(checksum);
    out.count = all.count;
    out.zeroCount = all.zero;
    out.nanCount = all.nan;
    out.infCount = all.inf;
    out.denormCount = all.denorm;
    out.passes = 1;
    out.statValid = 0x7; // checksum, count, zero count
    if (T::isFloat)
        out.statValid |= (1u << StatNanCount) | (1u << StatInfCount) | (1u << StatDenormCount);
    const std::uint64_t n = all.finite;
    if (n == 0)
        return Status::Ok();
    out.statValid |= 0x1ff8; // bits 3 to 12

    if constexpr (T::isFloat) {
        out.sum = all.fsum.value();
        out.mean = all.fsum.value() / static_cast<double>(n);
    } else {
        const __int128 sum = all.isum;
        if constexpr (R == Repr::U64) {
            if (sum >= 0 && sum <= static_cast<__int128>(std::numeric_limits<std::uint64_t>::max()))
                out.sum = static_cast<std::uint64_t>(sum);
            else
                out.sum = static_cast<double>(sum);
        } else {
            if (sum >= std::numeric_limits<std::int64_t>::min() &&
                sum <= std::numeric_limits<std::int64_t>::max())
                out.sum = static_cast<std::int64_t>(sum);
            else
                out.sum = static_cast<double>(sum);
        }
        out.mean = static_cast<double>(static_cast<long double>(sum) / static_cast<long double>(n));
    }
    out.min = typedNumber<R>(all.min);
    out.max = typedNumber<R>(all.max);
    out.stdDev = std::sqrt(all.moments.m2 / all.moments.n);

    PassContext later = ctx;
    later.verdicts = verdicts.get();
    return quantilesByRadix<R>(later, options, n, std::move(all.hist), all.min, all.max, out);
}

} // namespace

Result<Statistics> computeStatistics(const ArrayDescriptor& array, Reader& reader,
                                     std::string_view sliceText, std::string_view filterText,
                                     const StatisticsOptions& options) {
    Status v = validate(array);
    if (!v)
        return v.error();
    Result<Slice> slice = parseSlice(sliceText, array);
    if (!slice)
        return slice.error();
    Result<Filter> filter = compileFilter(filterText);
    if (!filter)
        return filter.error();
    const Layout layout = layoutOf(array, slice->dims);
    const TilePlan plan(layout, options.tileBytes);
    PassContext ctx{plan, reader, threadsFor(options), filter.value(), options.cancel, &layout};
    Statistics out;
    out.array = array.expression;
    out.actualType = array.typeName;
    const Repr repr = kindInfo(array.kind).repr;
    Status s = withRepr(
        repr, [&](auto tag) { return statisticsOf<decltype(tag)::repr>(ctx, options, out); });
    if (!s)
        return s.error();
    out.emptySlice = wholeArraySliceText(array);
    out.filter = filter->text();
    return out;
}

} // namespace arraylens
