// Statistics of large IEEE single and double arrays, and of integer ones,
// in one pass: a stratified sample guesses key windows around the quartiles
// and the fences,
// the pass keeps the keys inside them and counts those below, and when every
// wanted rank did fall inside its window, nothing more is read. Otherwise
// radix selection takes over from the counts of the same pass. Only the
// statistics include this.
#pragma once

#include "kernels.h"
#include "keypass.h"
#include "matchspan.h"
#include "sample.h"

#include <memory>

namespace arraylens::detail {

// Windows chosen before the pass: one around each quartile's rank as a
// sample puts it, and one where each fence can fall if the quartiles lie in
// theirs. The pass counts the keys below each window and keeps those inside;
// afterwards the counts tell whether each wanted rank did fall inside.
struct GuessedWindows {
    kernels::ScanWindows keys;
    int quartile[3] = {-1, -1, -1}; // the windows of the 0.25, 0.5, 0.75 quantiles
    int lowFence = -1, highFence = -1;
    std::size_t cap[kernels::kMaxWindows] = {};
    bool holds(int w, std::uint64_t key) const {
        return w >= 0 && key - keys.lo[w] <= keys.span[w];
    }
};

// Makes window `at` the keys [lo, hi], with the values the scan compares
// in place of keys.
template <Repr R>
void setWindow(kernels::ScanWindows& w, unsigned at, std::uint64_t lo, std::uint64_t hi) {
    using T = ReprTraits<R>;
    w.lo[at] = lo;
    w.span[at] = hi - lo;
    w.loValue[at] = static_cast<double>(T::fromKey(lo));
    w.hiValue[at] = static_cast<double>(T::fromKey(hi));
    w.loPlusZero[at] = lo == T::key(0.0);
}

// The sample as the windows are chosen from it: its keys in order, and each
// run's keys on their own.
struct SampleKeys {
    std::vector<std::uint64_t> sorted;
    // Run r's keys are runKeys[r * runLength, r * runLength + runSize[r]).
    std::size_t runLength = kSampleRun;
    std::vector<std::uint64_t> runKeys;
    std::vector<unsigned char> runSize;
};

// Elements in each run of the sample of this layout: kSampleRun where the
// result's fastest dimension is contiguous in memory, one elsewhere.
inline std::size_t sampleRunFor(const Layout& layout) {
    if (layout.byteStrides.empty() ||
        layout.byteStrides.back() != static_cast<std::int64_t>(layout.elementSize) ||
        layout.extents.back() < static_cast<std::int64_t>(kSampleRun))
        return 1;
    return kSampleRun;
}

// The standard error of the share of elements at or below `key` as the
// sample's runs estimate it: from how much that share varies between runs,
// so that runs of alike neighbours count for little more than one element
// each, and never less than for as many independent elements.
inline double shareError(const SampleKeys& s, std::uint64_t key, double p) {
    const double m = static_cast<double>(s.sorted.size());
    const double independent = std::sqrt(p * (1 - p) / m);
    // The share the whole sample has; ties can make it differ from p.
    const double share =
        static_cast<double>(std::upper_bound(s.sorted.begin(), s.sorted.end(), key) -
                            s.sorted.begin()) /
        m;
    std::size_t used = 0;
    double sq = 0;
    for (std::size_t r = 0; r < s.runSize.size(); ++r) {
        const std::size_t size = s.runSize[r];
        if (size == 0)
            continue;
        ++used;
        const std::uint64_t* run = s.runKeys.data() + r * s.runLength;
        std::size_t below = 0;
        for (std::size_t k = 0; k < size; ++k)
            below += run[k] <= key;
        const double d = static_cast<double>(below) - share * static_cast<double>(size);
        sq += d * d;
    }
    if (used < 2)
        return independent;
    const double u = static_cast<double>(used);
    const double ratio = std::sqrt(sq * u / (u - 1)) / m;
    return std::max(independent, ratio);
}

// Where the sample puts quantile p: its keys at p give or take 4.5 standard
// errors of the share below, and a few ranks more for small samples.
template <Repr R>
void quantileWindow(const SampleKeys& s, double p, std::uint64_t& lo, std::uint64_t& hi) {
    const std::vector<std::uint64_t>& sorted = s.sorted;
    const double m = static_cast<double>(sorted.size());
    const std::uint64_t at = sorted[static_cast<std::size_t>(p * (m - 1))];
    const double margin = 4.5 * shareError(s, at, p) + 3.0 / m;
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

// The number of runs in the sample. Its cost grows with the runs, and that
// of the windows' keys with the array over the root of the runs; n^(2/3) / 8
// runs keep the two in balance (as measured here: 512 runs are best for
// 2^18 elements, 8192 for 2^24, 32768 for 2^27). Even when the elements of
// a run are all alike, the windows together hold about 16 / sqrt(runs) of
// the data, with room for the sample's error, while their budget stays
// fixed: a very large array gets more runs, up to 2^20 (about as dear as a
// pass over 250 million elements), so that its windows still fit.
inline std::size_t sampleSizeFor(std::uint64_t elements, const StatisticsOptions& options) {
    const double n = static_cast<double>(elements);
    const double balanced = std::cbrt(n * n) / 8;
    const double budget = static_cast<double>(std::max<std::size_t>(options.windowBytes / 8, 16));
    const double root = 20.0 * n / budget;
    const double wanted = std::min(std::max(balanced, root * root), double(std::size_t(1) << 20));
    return std::max(options.sampleSize, static_cast<std::size_t>(wanted));
}

// Reads the sample and chooses the windows; false when no guess is worth
// making (too few finite elements pass, or the windows would hold more keys
// than allowed).
template <Repr R>
bool guessWindows(const PassContext& ctx, const StatisticsOptions& options, GuessedWindows& g) {
    using T = ReprTraits<R>;
    // Runs pay only where neighbours in the result are neighbours in memory
    // too, and a run is one read; elsewhere each element would be a read.
    const Layout& layout = *ctx.layout;
    const std::size_t run = sampleRunFor(layout);
    const std::vector<std::uint64_t> positions = stratifiedPositions(
        ctx.plan.elementCount(), sampleSizeFor(ctx.plan.elementCount(), options), run);
    std::vector<unsigned char> bytes;
    if (!readPositions(layout, ctx.reader, positions, ctx.threads, bytes))
        return false; // the pass itself says what could not be read
    const std::size_t esize = ctx.plan.elementSize();
    SampleKeys sample;
    std::vector<std::uint64_t>& sorted = sample.sorted;
    sorted.reserve(positions.size());
    const std::size_t runs = (positions.size() + run - 1) / run;
    sample.runLength = run;
    sample.runKeys.resize(runs * run);
    sample.runSize.assign(runs, 0);
    unsigned char pass[Filter::kBlock];
    for (std::size_t k0 = 0; k0 < positions.size(); k0 += Filter::kBlock) {
        const std::size_t m = std::min(Filter::kBlock, positions.size() - k0);
        const unsigned char* p = bytes.data() + k0 * esize;
        if (!ctx.filter.empty())
            ctx.filter.matchBlock<R>(p, static_cast<std::ptrdiff_t>(esize), m, pass);
        for (std::size_t k = 0; k < m; ++k, p += esize) {
            std::uint64_t key;
            if ((ctx.filter.empty() || pass[k]) && finiteKey<R>(p, key)) {
                sorted.push_back(key);
                const std::size_t r = (k0 + k) / run;
                sample.runKeys[r * run + sample.runSize[r]++] = key;
            }
        }
    }
    // The margins widen by themselves for small samples; below this few the
    // windows would cover most of the data anyway.
    if (sorted.size() < 64)
        return false;
    sortKeys(sorted);
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
    kernels::ScanWindows& w = g.keys;
    auto add = [&](std::uint64_t lo, std::uint64_t hi) {
        const int at = static_cast<int>(w.count++);
        setWindow<R>(w, static_cast<unsigned>(at), lo, hi);
        // A window of one key needs only its counts, not its keys.
        g.cap[at] = lo == hi ? 0 : expectedIn(lo, hi);
        used += g.cap[at];
        return at;
    };
    const double ps[3] = {0.25, 0.5, 0.75};
    std::uint64_t qlo[3], qhi[3];
    for (int i = 0; i < 3; ++i) {
        quantileWindow<R>(sample, ps[i], qlo[i], qhi[i]);
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

// Scans one block against the windows its range of values can reach. A
// window wholly above the block has all n elements below it and none
// inside; one wholly below has none either way: neither needs a look at
// the elements, and a fence window beyond the data is usually such a one.
// `side(j)` says which: -1 for a window above the block, 1 for one below,
// 0 when the block may reach it. `scan(windows, tally, out, got)` scans the
// block against the windows given; its counts go back to the windows they
// belong to.
template <class Side, class Scan>
void scanReachable(const kernels::ScanWindows& all, std::size_t n, kernels::WindowTally& tally,
                   std::uint64_t* const* out, std::size_t* got, Side side, Scan scan) {
    kernels::ScanWindows reach;
    unsigned from[kernels::kMaxWindows];
    std::uint64_t* reachOut[kernels::kMaxWindows];
    for (unsigned j = 0; j < all.count; ++j) {
        got[j] = 0;
        const int s = side(j);
        if (s < 0)
            tally.under[j] += n;
        if (s != 0)
            continue;
        const unsigned k = reach.count++;
        reach.lo[k] = all.lo[j];
        reach.span[k] = all.span[j];
        reach.loValue[k] = all.loValue[j];
        reach.hiValue[k] = all.hiValue[j];
        reach.loPlusZero[k] = all.loPlusZero[j];
        reachOut[k] = out[j];
        from[k] = j;
    }
    if (reach.count == all.count) {
        scan(all, tally, out, got);
        return;
    }
    if (reach.count == 0)
        return;
    kernels::WindowTally reachTally;
    std::size_t reachGot[kernels::kMaxWindows] = {};
    scan(reach, reachTally, reachOut, reachGot);
    for (unsigned k = 0; k < reach.count; ++k) {
        tally.under[from[k]] += reachTally.under[k];
        got[from[k]] = reachGot[k];
    }
}

// One thread's share of the pass.
template <Repr R> struct alignas(64) OnePassState {
    using Native = typename ReprTraits<R>::Native;
    using V = typename ReprTraits<R>::Value;
    std::uint64_t count = 0, finite = 0;
    kernels::ClassCounts classes;
    Extremes<V> extremes;
    // Integer sums are exact and merge in any order.
    IntegerMoments exact;
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
    // Integers' keys, which the scan compares exactly.
    std::uint64_t keys[kernels::kBlock];
    explicit OnePassState(unsigned windows) {
        for (unsigned j = 0; j < windows; ++j) {
            local[j].reset(new std::uint64_t[kFlushAt + kernels::kBlock]);
            localAt[j] = local[j].get();
        }
    }
    PackBuffer pack;
};

// The keys a window kept: filled by every thread at once.
struct WindowStore {
    std::unique_ptr<std::uint64_t[]> keys;
    std::size_t cap = 0;
    std::atomic<std::size_t> fill{0};
    bool complete(std::uint64_t in) const { return fill.load() == in && in <= cap; }
};

// Statistics of IEEE single or double elements, or of integer ones, in one
// pass when the sample's windows hold; otherwise the same pass goes on to
// radix selection. False in `taken` when no guess was made and the caller
// is to compute it all. Floating-point values are scanned against the
// windows as doubles, which tell every float and double apart; integers by
// their keys, since doubles cannot tell those beyond 2^53 apart.
template <Repr R>
Status statisticsInOnePass(const PassContext& ctx, const StatisticsOptions& options,
                           Statistics& out, bool& taken) {
    using T = ReprTraits<R>;
    using Native = typename T::Native;
    using V = typename T::Value;
    using Real = typename T::Real;
    taken = false;
    GuessedWindows g;
    if (!guessWindows<R>(ctx, options, g))
        return Status::Ok();
    taken = true;
    out.sampled = true;
    const kernels::Ops& ops = kernels::ops();
    const kernels::ScanWindows& win = g.keys;
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
    // Only floating-point sums depend on the order they are added in.
    std::vector<TileSums> tiles(T::isFloat ? static_cast<std::size_t>(ctx.plan.tileCount()) : 0);
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
    auto block = [&](OnePassState<R>& st, TileSums* sums, const Native* v, std::size_t m) {
        st.count += m;
        if constexpr (T::isFloat) {
            std::size_t nf;
            const double* values;
            if constexpr (R == Repr::F64)
                nf = ops.classifyF64(v, m, st.values, &values, st.classes);
            else
                nf = ops.classifyF32(v, m, st.values, &values, st.classes);
            if (nf == 0)
                return;
            const kernels::FiniteMoments fm = ops.moments(values, nf);
            sums->addBlock(values, nf, fm.sum, fm.m2);
            st.extremes.add(fm.min, fm.max);
            st.finite += nf;
            scanReachable(
                win, nf, st.tally, st.localAt, st.got,
                [&](unsigned j) {
                    return fm.max < win.loValue[j] ? -1 : fm.min > win.hiValue[j] ? 1 : 0;
                },
                [&](const kernels::ScanWindows& w, kernels::WindowTally& tally,
                    std::uint64_t* const* out, std::size_t* got) {
                    ops.scan(values, nf, w, R == Repr::F32, tally, out, got);
                });
        } else {
            kernels::IntegerBlock b;
            integerBlock<R>(v, m, st.keys, b);
            st.classes.zero += b.zero;
            st.exact.add(b, m);
            st.extremes.add(T::fromKey(b.minKey), T::fromKey(b.maxKey));
            st.finite += m;
            scanReachable(
                win, m, st.tally, st.localAt, st.got,
                [&](unsigned j) {
                    return b.maxKey < win.lo[j] ? -1 : b.minKey > win.lo[j] + win.span[j] ? 1 : 0;
                },
                [&](const kernels::ScanWindows& w, kernels::WindowTally& tally,
                    std::uint64_t* const* out,
                    std::size_t* got) { ops.scanKeys(st.keys, m, w, tally, out, got); });
        }
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
            TileSums* sums = T::isFloat ? &tiles[static_cast<std::size_t>(tile)] : nullptr;
            bool direct = false;
            if (Status hs = hashWholeTile(hash, tile, view, esize, vbytes, !filter.empty(), direct);
                !hs)
                return hs;
            st.pack.packed = 0;
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
                        std::memcpy(st.pack.reserve(run.count * vbytes), p, run.count * vbytes);
                        st.pack.packed += run.count * vbytes;
                    }
                    continue;
                }
                takePassing<R>(filter, run, vbytes, verdicts.get(), position, st.pack,
                               [&](const unsigned char* e) {
                                   std::memcpy(&st.native[st.nn++], e, vbytes);
                                   if (st.nn == kernels::kBlock) {
                                       block(st, sums, st.native, st.nn);
                                       st.nn = 0;
                                   }
                               });
            }
            if (st.nn) {
                block(st, sums, st.native, st.nn);
                st.nn = 0;
            }
            return hashPackedTile(hash, tile, direct, st.pack);
        },
        &turns, ctx.cancel);
    const std::uint64_t checksum = hash.digest();
    if (!s)
        return s;
    const MatchSpan span = matchSpanOfVerdicts(verdicts.get(), positions);
    out.firstMatch = span.first;
    out.lastMatch = span.last;

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
        all.extremes.add(o.extremes);
        all.exact.add(o.exact);
        all.finite += o.finite;
        for (unsigned j = 0; j < nw; ++j) {
            all.tally.under[j] += o.tally.under[j];
            all.in[j] += o.in[j];
        }
    }
    const TileSums merged = mergeTiles(tiles);
    tiles = std::vector<TileSums>();

    out.checksum = static_cast<std::int64_t>(checksum);
    out.count = all.count;
    out.zeroCount = all.classes.zero;
    out.nanCount = all.classes.nan;
    out.infCount = all.classes.inf;
    out.denormCount = all.classes.denorm;
    out.passes = 1;
    out.statValid = 0x7;
    if (T::isFloat)
        out.statValid |= (1u << StatNanCount) | (1u << StatInfCount) | (1u << StatDenormCount);
    const std::uint64_t n = all.finite;
    if (n == 0)
        return Status::Ok();
    out.statValid |= 0x1ff8;
    if constexpr (T::isFloat) {
        merged.set(n, out);
    } else {
        setIntegerMoments<R>(all.exact, out);
    }
    const V min = all.extremes.min, max = all.extremes.max;
    out.min = typedNumber<R>(min);
    out.max = typedNumber<R>(max);

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
        // The guess missed: its keys go before radix selection gathers its
        // own, and the first histogram is what that starts from.
        for (WindowStore& w : stores)
            w.keys.reset();
        const unsigned keyBits = T::keyBits;
        RadixSelect probe(keyBits, {0}, n, 16);
        std::vector<std::vector<std::uint64_t>> hists, keys;
        FenceQuery none;
        Status hs = keyPass<R>(later, {probe.firstJob()}, none, hists, keys);
        if (!hs)
            return hs;
        ++out.passes;
        return quantilesByRadix<R>(later, options, n, std::move(hists[0]), min, max, out);
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
            std::uint64_t next;
            keysAtRank(stores[w].keys.get(), static_cast<std::size_t>(all.in[w]), win.lo[w],
                       win.lo[w] + win.span[w], qs[i].lower - under, found[i][0], next);
            found[i][1] = qs[i].upper == qs[i].lower ? found[i][0] : next;
        }
    });
    auto quantile = [&](int i) {
        return interpolateIn(static_cast<Real>(T::fromKey(found[i][0])),
                             static_cast<Real>(T::fromKey(found[i][1])), qs[i].fraction);
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
    V lowerAdj = min, upperAdj = max;
    bool needLow = !noneLow && T::key(min) < fence.notBelow;
    bool needHigh = !noneHigh && T::key(max) > fence.notAbove;
    // The nearest kept key on the inner side of a fence: the smallest not
    // below the low one, the largest not above the high one.
    auto fromWindow = [&](int w, std::uint64_t fenceKey, bool low, V& adjacent) {
        if (!g.holds(w, fenceKey) || !stores[w].complete(all.in[w]))
            return false;
        const std::uint64_t* k = stores[w].keys.get();
        bool any = false;
        std::uint64_t best = 0;
        for (std::uint64_t i = 0; i < all.in[w]; ++i) {
            const bool inside = low ? k[i] >= fenceKey : k[i] <= fenceKey;
            if (inside && (!any || (low ? k[i] < best : k[i] > best))) {
                best = k[i];
                any = true;
            }
        }
        if (any)
            adjacent = T::fromKey(best);
        return any;
    };
    if (needLow && fromWindow(g.lowFence, fence.notBelow, true, lowerAdj))
        needLow = false;
    if (needHigh && fromWindow(g.highFence, fence.notAbove, false, upperAdj))
        needHigh = false;
    out.windowsHeld = !needLow && !needHigh;
    if (needLow || needHigh) {
        Status ps = adjacentValuesByPass<R>(later, fence, needLow, needHigh, lowerAdj, upperAdj);
        if (!ps)
            return ps;
        ++out.passes;
    }
    out.lowerAdjValue = typedNumber<R>(lowerAdj);
    out.upperAdjValue = typedNumber<R>(upperAdj);
    return Status::Ok();
}

} // namespace arraylens::detail
