#include "plot.h"

#include "element.h"
#include "filter.h"
#include "parallel.h"
#include "prepare.h"
#include "slice.h"
#include "walk.h"

#include <algorithm>

namespace arraylens {

namespace {

Error tooManyValues(std::uint64_t count, std::uint64_t limit) {
    const std::uint64_t stride = limit == 0 ? count : (count + limit - 1) / limit;
    return Error{ErrorCode::TooLarge,
                 "The plot would have " + std::to_string(count) + " values, more than the " +
                     std::to_string(limit) + " it can show. Give the slice a stride of " +
                     std::to_string(stride) + " or more in one of its dimensions."};
}

template <Repr R>
Status collect(const TilePlan& plan, Reader& reader, const Filter& filter,
               const PlotOptions& options, PlotValues& out) {
    using T = ReprTraits<R>;
    const int threads = threadsFor(options);
    if (filter.empty()) {
        const std::uint64_t total = plan.elementCount();
        if (total > options.maxValues)
            return tooManyValues(total, options.maxValues);
        out.values.resize(static_cast<std::size_t>(total));
        double* values = out.values.data();
        return forEachTile(
            plan, reader, threads,
            [&](int, std::uint64_t, const TileView& view) -> Status {
                double* at = values + view.firstIndex;
                for (const ElementRun& run : view.runs) {
                    const unsigned char* p = run.first;
                    for (std::size_t k = 0; k < run.count; ++k, p += run.step)
                        *at++ = static_cast<double>(T::value(p));
                }
                return Status::Ok();
            },
            nullptr, options.cancel);
    }

    // Where the passing elements of a tile go is known only after counting
    // them: one pass counts per tile, a second one writes.
    std::vector<std::uint64_t> counts(static_cast<std::size_t>(plan.tileCount()), 0);
    Status s = forEachTile(
        plan, reader, threads,
        [&](int, std::uint64_t tile, const TileView& view) -> Status {
            std::uint64_t c = 0;
            unsigned char pass[Filter::kBlock];
            for (const ElementRun& run : view.runs) {
                const unsigned char* p = run.first;
                for (std::size_t k0 = 0; k0 < run.count; k0 += Filter::kBlock) {
                    const std::size_t m = std::min(Filter::kBlock, run.count - k0);
                    filter.matchBlock<R>(p, run.step, m, pass);
                    for (std::size_t k = 0; k < m; ++k)
                        c += pass[k];
                    p += static_cast<std::ptrdiff_t>(m) * run.step;
                }
            }
            counts[static_cast<std::size_t>(tile)] = c;
            return Status::Ok();
        },
        nullptr, options.cancel);
    if (!s)
        return s;
    std::uint64_t total = 0;
    for (std::uint64_t& c : counts) {
        const std::uint64_t here = c;
        c = total;
        total += here;
    }
    if (total > options.maxValues)
        return tooManyValues(total, options.maxValues);
    out.values.resize(static_cast<std::size_t>(total));
    double* values = out.values.data();
    return forEachTile(
        plan, reader, threads,
        [&](int, std::uint64_t tile, const TileView& view) -> Status {
            const std::uint64_t begin = counts[static_cast<std::size_t>(tile)];
            const std::uint64_t end =
                tile + 1 < counts.size() ? counts[static_cast<std::size_t>(tile + 1)] : total;
            std::uint64_t at = begin;
            for (const ElementRun& run : view.runs) {
                const unsigned char* p = run.first;
                for (std::size_t k = 0; k < run.count; ++k, p += run.step) {
                    if (!filter.matches<R>(p))
                        continue;
                    if (at == end)
                        return Error{ErrorCode::Unreadable,
                                     "The array changed while its values were read."};
                    values[at++] = static_cast<double>(T::value(p));
                }
            }
            if (at != end)
                return Error{ErrorCode::Unreadable,
                             "The array changed while its values were read."};
            return Status::Ok();
        },
        nullptr, options.cancel);
}

} // namespace

Result<PlotValues> plotValues(const ArrayDescriptor& array, Reader& reader,
                              std::string_view sliceText, std::string_view filterText,
                              const PlotOptions& options) {
    Result<Selection> selection = prepareSelection(array, sliceText, filterText);
    if (!selection)
        return selection.error();
    const Slice& slice = selection->slice;
    const Filter& filter = selection->filter;
    PlotValues out;
    out.arrayName = array.expression;
    out.actualType = array.typeName;
    out.filter = filter.text();
    out.emptySlice = wholeArraySliceText(array);
    const std::size_t rank = slice.rank();
    out.rank = filter.empty() ? static_cast<int>(std::max<std::size_t>(rank, 1)) : 1;
    if (out.rank == 2) {
        const std::vector<std::size_t> kept = slice.keptDims();
        out.rows = slice.dims[kept[0]].count;
        out.cols = slice.dims[kept[1]].count;
    }
    const TilePlan plan(layoutOf(array, slice.dims), options.tileBytes);
    Status s = withRepr(kindInfo(array.kind).repr, [&](auto tag) {
        return collect<decltype(tag)::repr>(plan, reader, filter, options, out);
    });
    if (!s)
        return s.error();
    return out;
}

} // namespace arraylens
