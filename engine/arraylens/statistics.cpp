#include "statistics.h"

#include "kernels.h"
#include "matchspan.h"
#include "onepass.h"
#include "prepare.h"

#include <algorithm>
#include <cmath>
#include <memory>

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

long double interpolateExtended(long double a, long double b, double fraction) {
    if (fraction == 0)
        return a;
    const long double f = fraction;
    const long double diff = b - a;
    if (!std::isfinite(diff))
        return a * (1 - f) + b * f;
    if (f >= 0.5L)
        return b - diff * (1 - f);
    return a + diff * f;
}

namespace {

using namespace detail;

// Aligned so that the states of two threads never share a cache line.
template <Repr R> struct alignas(64) FirstPassState {
    using T = ReprTraits<R>;
    using V = typename T::Value;
    std::uint64_t count = 0, zero = 0, nan = 0, inf = 0, denorm = 0, finite = 0;
    // Integer sums are exact, so any order of merging gives the same bits.
    IntegerMoments exact;
    // Floating-point sums and moments go to the tile being read, so that
    // they are merged in tile order whatever the threads did; long double
    // ones are taken in long double.
    using Sums = std::conditional_t<R == Repr::F80, ExtendedTileSums, TileSums>;
    Sums* tile = nullptr;
    Extremes<V> extremes;
    // 32-bit bins take half the cache of 64-bit ones; they spill into the
    // 64-bit histogram long before they could overflow.
    std::vector<std::uint32_t> hist32;
    std::vector<std::uint64_t> hist;
    std::uint64_t sinceSpill = 0;
    V block[kernels::kBlock];
    std::size_t nb = 0;
    PackBuffer pack;
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
        // Squared deviations from the block's own mean, by the same loops as
        // the one-pass road; integers exactly.
        if constexpr (T::isFloat) {
            V lo = block[0], hi = block[0];
            for (std::size_t i = 0; i < n; ++i) {
                V v = block[i];
                lo = v < lo ? v : lo;
                hi = v > hi ? v : hi;
                ++hist32[T::key(v) >> shift];
            }
            if constexpr (R == Repr::F80) {
                tile->addBlock(block, n);
            } else {
                const kernels::FiniteMoments fm = kernels::ops().moments(block, n);
                tile->addBlock(block, n, fm.sum, fm.m2);
            }
            extremes.add(lo, hi);
        } else {
            std::uint64_t keys[kernels::kBlock];
            kernels::IntegerBlock b;
            integerBlock<R>(block, n, keys, b);
            for (std::size_t i = 0; i < n; ++i)
                ++hist32[keys[i] >> shift];
            exact.add(b, n);
            extremes.add(T::fromKey(b.minKey), T::fromKey(b.maxKey));
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
    if (s.nb == kernels::kBlock)
        s.flush();
}

template <Repr R>
Status statisticsOf(const PassContext& ctx, const StatisticsOptions& options, Statistics& out) {
    using T = ReprTraits<R>;
    // Floats and integers that are not logicals may take the sampled road;
    // long double and logicals always take radix selection.
    if constexpr (R == Repr::F64 || R == Repr::F32 || (!T::isFloat && !T::isLogical)) {
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
    std::vector<typename FirstPassState<R>::Sums> tiles(
        static_cast<std::size_t>(ctx.plan.tileCount()));
    TileTurns turns; // only its abandoned flag: a failed read stops the hasher
    OrderedHasher hash(turns);
    const Filter& filter = ctx.filter;
    Status s = forEachTile(
        ctx.plan, ctx.reader, ctx.threads,
        [&](int thread, std::uint64_t tile, const TileView& view) -> Status {
            FirstPassState<R>& st = *states[static_cast<std::size_t>(thread)];
            st.tile = &tiles[static_cast<std::size_t>(tile)];
            bool direct = false;
            if (Status hs = hashWholeTile(hash, tile, view, esize, vbytes, !filter.empty(), direct);
                !hs)
                return hs;
            st.pack.packed = 0;
            std::uint64_t position = view.firstIndex;
            for (const ElementRun& run : view.runs) {
                const unsigned char* p = run.first;
                if (filter.empty() && run.step == static_cast<std::ptrdiff_t>(esize)) {
                    for (std::size_t k = 0; k < run.count; ++k, p += esize)
                        firstPassElement<R>(st, p);
                    if (!direct) {
                        unsigned char* out = st.pack.reserve(run.count * vbytes);
                        for (std::size_t k = 0; k < run.count; ++k, out += vbytes)
                            std::memcpy(out, run.first + k * esize, vbytes);
                        st.pack.packed += run.count * vbytes;
                    }
                    continue;
                }
                takePassing<R>(filter, run, vbytes, verdicts.get(), position, st.pack,
                               [&](const unsigned char* e) { firstPassElement<R>(st, e); });
            }
            st.flush();
            return hashPackedTile(hash, tile, direct, st.pack);
        },
        &turns, ctx.cancel);
    const std::uint64_t checksum = hash.digest();
    if (!s)
        return s;
    const MatchSpan span = matchSpanOfVerdicts(verdicts.get(), positions);
    out.firstMatch = span.first;
    out.lastMatch = span.last;

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
        all.exact.add(o.exact);
        all.extremes.add(o.extremes);
        all.finite += o.finite;
        for (std::size_t b = 0; b < all.hist.size(); ++b)
            all.hist[b] += o.hist[b];
    }
    states.resize(1);
    const auto sums = mergeTiles(tiles);
    tiles.clear();
    tiles.shrink_to_fit();

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

    if constexpr (R == Repr::F80) {
        setExtendedMoments(sums, n, out);
    } else if constexpr (T::isFloat) {
        sums.set(n, out);
    } else {
        setIntegerMoments<R>(all.exact, out);
    }
    out.min = typedNumber<R>(all.extremes.min);
    out.max = typedNumber<R>(all.extremes.max);

    PassContext later = ctx;
    later.verdicts = verdicts.get();
    return quantilesByRadix<R>(later, options, n, std::move(all.hist), all.extremes.min,
                               all.extremes.max, out);
}

// The first and last passing element. Without a filter they are the first
// and last of the slice; with one, the first pass's verdicts tell, and only
// a pass that kept none (beyond a billion positions) has them searched.
Status placeMatches(const PassContext& ctx, Repr repr, const Slice& slice, Language form,
                    Statistics& out) {
    if (out.count == 0) {
        out.firstMatch = out.lastMatch = -1;
    } else if (ctx.filter.empty()) {
        out.firstMatch = 0;
        out.lastMatch = static_cast<std::int64_t>(ctx.plan.elementCount() - 1);
    } else if (out.firstMatch < 0) {
        MatchSpan span;
        if (Status s = findMatchSpan(ctx.plan, ctx.reader, ctx.filter, repr, ctx.cancel, span); !s)
            return s;
        out.firstMatch = span.first;
        out.lastMatch = span.last;
    }
    if (out.firstMatch >= 0) {
        out.firstMatchText = positionText(slice, static_cast<std::uint64_t>(out.firstMatch), form);
        out.lastMatchText = positionText(slice, static_cast<std::uint64_t>(out.lastMatch), form);
    }
    return Status::Ok();
}

} // namespace

Result<Statistics> computeStatistics(const ArrayDescriptor& array, Reader& reader,
                                     std::string_view sliceText, std::string_view filterText,
                                     const StatisticsOptions& options) {
    Result<Selection> selection = prepareSelection(array, sliceText, filterText);
    if (!selection)
        return selection.error();
    const Slice& slice = selection->slice;
    const Filter& filter = selection->filter;
    const Layout layout = layoutOf(array, slice.dims);
    const TilePlan plan(layout, options.tileBytes);
    PassContext ctx{plan, reader, threadsFor(options), filter, options.cancel, &layout};
    Statistics out;
    out.array = array.expression;
    out.actualType = array.typeName;
    const Repr repr = kindInfo(array.kind).repr;
    Status s = withRepr(
        repr, [&](auto tag) { return statisticsOf<decltype(tag)::repr>(ctx, options, out); });
    if (!s)
        return s.error();
    if (Status m = placeMatches(ctx, repr, slice, array.language, out); !m)
        return m.error();
    out.emptySlice = wholeArraySliceText(array);
    out.filter = filter.text();
    return out;
}

} // namespace arraylens
