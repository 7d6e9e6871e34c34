#include "matchspan.h"

#include "parallel.h"

#include <algorithm>

namespace arraylens {

MatchSpan matchSpanOfVerdicts(const std::atomic<std::uint64_t>* words, std::uint64_t positions) {
    MatchSpan span;
    if (!words || positions == 0)
        return span;
    const std::uint64_t n = (positions + 63) / 64;
    for (std::uint64_t w = 0; w < n; ++w) {
        const std::uint64_t bits = words[w].load(std::memory_order_relaxed);
        if (bits) {
            span.first = static_cast<std::int64_t>(w * 64 + unsigned(__builtin_ctzll(bits)));
            break;
        }
    }
    if (span.first < 0)
        return span;
    for (std::uint64_t w = n; w-- > 0;) {
        const std::uint64_t bits = words[w].load(std::memory_order_relaxed);
        if (bits) {
            span.last = static_cast<std::int64_t>(w * 64 + 63 - unsigned(__builtin_clzll(bits)));
            break;
        }
    }
    return span;
}

namespace {

// The first (or last) passing position of one tile; -1 when none passes.
template <Repr R> std::int64_t passingIn(const TileView& view, const Filter& filter, bool last) {
    std::int64_t found = -1;
    std::uint64_t position = view.firstIndex;
    unsigned char pass[Filter::kBlock];
    for (const ElementRun& run : view.runs) {
        const unsigned char* p = run.first;
        for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
            const std::size_t m = std::min(Filter::kBlock, run.count - k0);
            filter.matchBlock<R>(p, run.step, m, pass);
            for (std::size_t k = 0; k < m; ++k) {
                if (!pass[k])
                    continue;
                found = static_cast<std::int64_t>(position + k);
                if (!last)
                    return found;
            }
            position += m;
            p += static_cast<std::ptrdiff_t>(m) * run.step;
        }
    }
    return found;
}

} // namespace

Status findMatchSpan(const TilePlan& plan, Reader& reader, const Filter& filter, Repr repr,
                     const std::atomic<bool>* cancel, MatchSpan& span) {
    span = MatchSpan();
    TileBuffer buffer;
    const std::uint64_t tiles = plan.tileCount();
    auto search = [&](bool fromBack, std::int64_t& out) -> Status {
        for (std::uint64_t i = 0; i < tiles; ++i) {
            if (cancel && cancel->load())
                return cancelledError();
            const std::uint64_t t = fromBack ? tiles - 1 - i : i;
            if (Status s = plan.read(reader, t, buffer); !s)
                return s;
            out = withRepr(repr, [&](auto tag) {
                return passingIn<decltype(tag)::repr>(buffer.view, filter, fromBack);
            });
            if (out >= 0)
                return Status::Ok();
        }
        return Status::Ok();
    };
    if (Status s = search(false, span.first); !s || span.first < 0)
        return s;
    return search(true, span.last);
}

std::string positionText(const Slice& slice, std::uint64_t position, Language form) {
    std::vector<std::int64_t> index(slice.dims.size());
    std::uint64_t rest = position;
    for (std::size_t d = slice.dims.size(); d-- > 0;) {
        const SliceDim& s = slice.dims[d];
        if (s.fixed || s.count <= 0) {
            index[d] = s.start;
            continue;
        }
        const std::uint64_t n = static_cast<std::uint64_t>(s.count);
        index[d] = s.index(static_cast<std::int64_t>(rest % n));
        rest /= n;
    }
    std::string text;
    if (form == Language::C) {
        for (std::int64_t i : index)
            text += "[" + std::to_string(i) + "]";
        return text;
    }
    text = "(";
    for (std::size_t d = 0; d < index.size(); ++d)
        text += (d ? "," : "") + std::to_string(index[d]);
    return text + ")";
}

} // namespace arraylens
