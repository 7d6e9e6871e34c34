#include "walk.h"

#include <algorithm>
#include <cstdlib>

namespace arraylens {

namespace {

// Runs whose elements are at most this far apart are read whole, gaps and
// all: moving a few hundred unused bytes costs less than one more piece in a
// gathered read.
constexpr std::int64_t kDenseStrideLimit = 256;

std::int64_t absStride(std::int64_t s) {
    return s < 0 ? -s : s;
}

} // namespace

TilePlan::TilePlan(const Layout& layout, std::size_t tileBytes) : layout_(layout) {
    esize_ = layout.elementSize;
    total_ = layout.count();
    const std::size_t r = layout.extents.size();
    if (total_ == 0 || r == 0) {
        tiles_ = 0;
        return;
    }
    const std::int64_t budget = static_cast<std::int64_t>(std::max(tileBytes, esize_));
    const std::int64_t es = static_cast<std::int64_t>(esize_);
    auto fastestFrom = [&](std::size_t from) {
        std::size_t best = from;
        for (std::size_t d = from; d < r; ++d)
            if (absStride(layout.byteStrides[d]) <= absStride(layout.byteStrides[best]))
                best = d;
        return best;
    };
    std::size_t m = fastestFrom(0);
    for (;;) {
        std::uint64_t post = 1;
        bool overflow = false;
        for (std::size_t d = m + 1; d < r; ++d) {
            post *= static_cast<std::uint64_t>(layout.extents[d]);
            if (post > static_cast<std::uint64_t>(budget))
                overflow = true;
        }
        const std::int64_t s = absStride(layout.byteStrides[m]);
        const bool dense = s <= kDenseStrideLimit;
        if (!overflow && static_cast<std::int64_t>(post) * es <= budget) {
            const std::int64_t perRun = budget / static_cast<std::int64_t>(post);
            std::int64_t block;
            if (dense)
                block = s == 0 ? layout.extents[m] : (perRun - es) / s + 1;
            else
                block = perRun / es;
            block = std::max<std::int64_t>(1, std::min(block, layout.extents[m]));
            m_ = m;
            block_ = block;
            post_ = post;
            dense_ = dense;
            break;
        }
        // Even one element per run is too much for the buffer: read this
        // dimension one index at a time and run along a later one.
        m = fastestFrom(m + 1);
    }
    blocks_ = (layout.extents[m_] + block_ - 1) / block_;
    std::uint64_t outer = 1;
    for (std::size_t d = 0; d < m_; ++d)
        outer *= static_cast<std::uint64_t>(layout.extents[d]);
    tiles_ = outer * static_cast<std::uint64_t>(blocks_);
}

Status TilePlan::read(Reader& reader, std::uint64_t t, TileBuffer& buf) const {
    const std::size_t r = layout_.extents.size();
    const std::uint64_t outerIndex = t / static_cast<std::uint64_t>(blocks_);
    const std::int64_t blockIndex = static_cast<std::int64_t>(t % blocks_);

    // Address of the tile's first run.
    std::int64_t offset = 0;
    {
        std::uint64_t rest = outerIndex;
        for (std::size_t d = m_; d-- > 0;) {
            std::uint64_t e = static_cast<std::uint64_t>(layout_.extents[d]);
            offset += static_cast<std::int64_t>(rest % e) * layout_.byteStrides[d];
            rest /= e;
        }
    }
    const std::int64_t sm = layout_.byteStrides[m_];
    const std::int64_t b0 = blockIndex * block_;
    const std::int64_t b = std::min(block_, layout_.extents[m_] - b0);
    offset += b0 * sm;

    const std::int64_t es = static_cast<std::int64_t>(esize_);
    const std::int64_t as = absStride(sm);
    const std::int64_t runBytes = dense_ ? (b - 1) * as + es : b * es;
    const std::size_t total = static_cast<std::size_t>(runBytes) * post_;
    if (buf.bytes.size() < total)
        buf.bytes.resize(total);
    buf.segments.clear();

    // One run per combination of the dimensions after m, in result order.
    std::vector<std::int64_t> idx(r, 0);
    std::int64_t postOffset = 0;
    for (std::uint64_t q = 0; q < post_; ++q) {
        std::uint64_t runAddr = layout_.base + static_cast<std::uint64_t>(offset + postOffset);
        unsigned char* dest = buf.bytes.data() + q * static_cast<std::size_t>(runBytes);
        if (dense_) {
            std::uint64_t lowAddr =
                sm >= 0 ? runAddr : runAddr - static_cast<std::uint64_t>((b - 1) * as);
            // Neighbouring runs that touch are merged into one piece.
            if (!buf.segments.empty()) {
                Segment& prev = buf.segments.back();
                if (prev.address + prev.size == lowAddr &&
                    static_cast<unsigned char*>(prev.dest) + prev.size == dest) {
                    prev.size += static_cast<std::size_t>(runBytes);
                    goto next;
                }
            }
            buf.segments.push_back(Segment{lowAddr, static_cast<std::size_t>(runBytes), dest});
        } else {
            for (std::int64_t k = 0; k < b; ++k)
                buf.segments.push_back(
                    Segment{runAddr + static_cast<std::uint64_t>(k * sm), esize_, dest + k * es});
        }
    next:
        // Advance the odometer over the dimensions after m.
        for (std::size_t d = r; d-- > m_ + 1;) {
            if (++idx[d] < layout_.extents[d]) {
                postOffset += layout_.byteStrides[d];
                break;
            }
            postOffset -= (idx[d] - 1) * layout_.byteStrides[d];
            idx[d] = 0;
        }
    }
    Status s = reader.readv(buf.segments.data(), buf.segments.size());
    if (!s)
        return s;

    TileView& v = buf.view;
    v.runs.clear();
    v.firstIndex = outerIndex * static_cast<std::uint64_t>(layout_.extents[m_]) * post_ +
                   static_cast<std::uint64_t>(b0) * post_;
    v.count = static_cast<std::uint64_t>(b) * post_;
    const std::ptrdiff_t elemStep = dense_ ? sm : es;
    const unsigned char* first = buf.bytes.data() + ((dense_ && sm < 0) ? (b - 1) * as : 0);
    if (post_ == 1) {
        v.runs.push_back(ElementRun{first, elemStep, static_cast<std::size_t>(b)});
    } else {
        for (std::int64_t k = 0; k < b; ++k)
            v.runs.push_back(ElementRun{first + k * elemStep, static_cast<std::ptrdiff_t>(runBytes),
                                        static_cast<std::size_t>(post_)});
    }
    return Status::Ok();
}

} // namespace arraylens
