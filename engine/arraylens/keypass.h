// Passes over the keys of the finite passing elements: the histograms and
// candidates of radix selection, the search for the adjacent values, and the
// quartiles and adjacent values they give. Only the statistics include this.
#pragma once

#include "passparts.h"
#include "select.h"

#include <memory>

namespace arraylens::detail {

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
    // A key inside the jobs' range goes to the first job that holds it:
    // kept, or counted in its histogram.
    auto toJob = [&](Local& l, std::uint64_t key) {
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
            return;
        }
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
                    toJob(l, key);
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
                    toJob(l, key);
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

// Tukey's adjacent values by a pass of their own: the smallest key not
// below the low fence and the largest not above the high one, for the sides
// that need it.
template <Repr R>
Status adjacentValuesByPass(const PassContext& later, FenceQuery& fence, bool needLow,
                            bool needHigh, typename ReprTraits<R>::Value& lowerAdj,
                            typename ReprTraits<R>::Value& upperAdj) {
    using T = ReprTraits<R>;
    fence.active = true;
    std::vector<std::vector<std::uint64_t>> hists, keys;
    Status ps = keyPass<R>(later, {}, fence, hists, keys);
    if (!ps)
        return ps;
    if (needLow && fence.anyLow)
        lowerAdj = T::fromKey(fence.foundLow);
    if (needHigh && fence.anyHigh)
        upperAdj = T::fromKey(fence.foundHigh);
    return Status::Ok();
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
    using Real = typename T::Real;
    auto valueAt = [&](std::uint64_t rank) {
        return static_cast<Real>(T::fromKey(select.keyAt(rank)));
    };
    auto quantile = [&](const QuantilePoint& q) {
        return interpolateIn(valueAt(q.lower), valueAt(q.upper), q.fraction);
    };
    const Real first = quantile(q1), third = quantile(q3);
    out.firstQuartile = static_cast<double>(first);
    out.median = static_cast<double>(quantile(q2));
    out.thirdQuartile = static_cast<double>(third);

    // Tukey's adjacent values: the extremes of the elements inside the fences.
    const Real iqr = third - first;
    const Real lowFence = first - Real(1.5) * iqr;
    const Real highFence = third + Real(1.5) * iqr;
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
