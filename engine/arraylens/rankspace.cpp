#include "rankspace.h"

#include <algorithm>
#include <map>

namespace arraylens {

namespace {

// Lowest and highest byte offset of an array's elements from its address
// (strides may be negative), and the bytes from the one to the other's end.
struct Span {
    std::int64_t low = 0;
    std::int64_t high = 0;
    std::uint64_t bytes = 0;
};

Span spanOf(const ArrayDescriptor& a) {
    Span s;
    for (const Dimension& d : a.dims) {
        const std::int64_t reach = (d.extent() > 0 ? d.extent() - 1 : 0) * d.byteStride;
        (reach < 0 ? s.low : s.high) += reach;
    }
    s.bytes = static_cast<std::uint64_t>(s.high - s.low) + a.elementSize;
    return s;
}

// Row-major strides of the array packed end to end in result order.
std::vector<std::int64_t> packedStrides(const ArrayDescriptor& a) {
    std::vector<std::int64_t> strides(a.dims.size());
    std::int64_t s = static_cast<std::int64_t>(a.elementSize);
    for (std::size_t d = a.dims.size(); d-- > 0;) {
        strides[d] = s;
        s *= std::max<std::int64_t>(1, a.dims[d].extent());
    }
    return strides;
}

bool isPackedAlready(const ArrayDescriptor& a) {
    const std::vector<std::int64_t> packed = packedStrides(a);
    for (std::size_t d = 0; d < a.dims.size(); ++d)
        if (a.dims[d].extent() > 1 && a.dims[d].byteStride != packed[d])
            return false;
    return true;
}

bool sameStrides(const ArrayDescriptor& a, const ArrayDescriptor& b) {
    for (std::size_t d = 0; d < a.dims.size(); ++d)
        if (a.dims[d].byteStride != b.dims[d].byteStride)
            return false;
    return true;
}

Error rankError(int rank, const std::string& message) {
    return Error{ErrorCode::Unreadable, "Rank " + std::to_string(rank) + ": " + message};
}

RankSpaceReader::Region packedRegion(const RankArray& r, std::uint64_t start) {
    RankSpaceReader::Region region;
    region.start = start;
    region.size = r.array.elementCount() * r.array.elementSize;
    region.rank = r.rank;
    region.reader = r.reader;
    region.packed = r.array;
    region.isPacked = true;
    return region;
}

Status checkRanks(const std::vector<RankArray>& ranks) {
    if (ranks.empty())
        return Error{ErrorCode::BadRequest, "The process set is empty."};
    for (const RankArray& r : ranks) {
        if (!r.reader)
            return Error{ErrorCode::BadRequest,
                         "Rank " + std::to_string(r.rank) + " has no memory reader."};
        if (Status s = validate(r.array); !s)
            return s;
    }
    return Status::Ok();
}

} // namespace

RankSpaceReader::RankSpaceReader(std::vector<Region> regions) : regions_(std::move(regions)) {
    std::sort(regions_.begin(), regions_.end(),
              [](const Region& a, const Region& b) { return a.start < b.start; });
    for (const Region& r : regions_)
        cheap_ = cheap_ && r.reader && r.reader->cheapScatteredReads();
}

Status RankSpaceReader::read(std::uint64_t address, void* dest, std::size_t size) {
    const Segment s{address, size, dest};
    return readv(&s, 1);
}

Status RankSpaceReader::translate(const Region& region, std::uint64_t address, unsigned char* dest,
                                  std::size_t size, std::vector<Segment>& out) const {
    const std::uint64_t off = address - region.start;
    if (!region.isPacked) {
        out.push_back(Segment{region.realStart + off, size, dest});
        return Status::Ok();
    }
    // Packed: the element at result position e lies at its own place in the
    // rank's memory; walk the positions with an odometer over the indices.
    const ArrayDescriptor& a = region.packed;
    const std::uint64_t es = a.elementSize;
    const std::size_t rank = a.dims.size();
    std::uint64_t e = off / es;
    std::vector<std::int64_t> idx(rank, 0);
    std::int64_t realOff = 0;
    {
        std::uint64_t rest = e;
        for (std::size_t d = rank; d-- > 0;) {
            const auto ext = static_cast<std::uint64_t>(a.dims[d].extent());
            idx[d] = static_cast<std::int64_t>(rest % ext);
            rest /= ext;
            realOff += idx[d] * a.dims[d].byteStride;
        }
    }
    const std::uint64_t end = off + size;
    for (; e * es < end; ++e) {
        const std::uint64_t lo = std::max(off, e * es) - e * es;
        const std::uint64_t hi = std::min(end, (e + 1) * es) - e * es;
        const std::uint64_t real = a.address + static_cast<std::uint64_t>(realOff) + lo;
        unsigned char* to = dest + (e * es + lo - off);
        const std::size_t n = static_cast<std::size_t>(hi - lo);
        if (!out.empty() && out.back().address + out.back().size == real &&
            static_cast<unsigned char*>(out.back().dest) + out.back().size == to)
            out.back().size += n;
        else
            out.push_back(Segment{real, n, to});
        for (std::size_t d = rank; d-- > 0;) {
            if (++idx[d] < a.dims[d].extent()) {
                realOff += a.dims[d].byteStride;
                break;
            }
            realOff -= (idx[d] - 1) * a.dims[d].byteStride;
            idx[d] = 0;
        }
    }
    return Status::Ok();
}

Status RankSpaceReader::readv(const Segment* segments, std::size_t count) {
    // The pieces for each rank's reader, so that each gets one gathered call.
    std::map<const Region*, std::vector<Segment>> perRegion;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t address = segments[i].address;
        auto* dest = static_cast<unsigned char*>(segments[i].dest);
        std::size_t left = segments[i].size;
        while (left > 0) {
            auto it =
                std::upper_bound(regions_.begin(), regions_.end(), address,
                                 [](std::uint64_t a, const Region& r) { return a < r.start; });
            if (it == regions_.begin())
                return unreadableAt(address);
            const Region& region = *std::prev(it);
            if (address >= region.start + region.size)
                return unreadableAt(address);
            const std::size_t n = static_cast<std::size_t>(
                std::min<std::uint64_t>(left, region.start + region.size - address));
            if (Status s = translate(region, address, dest, n, perRegion[&region]); !s)
                return s;
            address += n;
            dest += n;
            left -= n;
        }
    }
    for (auto& [region, pieces] : perRegion) {
        Status s = region->reader->readv(pieces.data(), pieces.size());
        if (!s)
            return rankError(region->rank, s.message());
    }
    return Status::Ok();
}

bool sameElementType(const ArrayDescriptor& a, const ArrayDescriptor& b) {
    return a.kind == b.kind && a.elementSize == b.elementSize;
}

std::string shapeDifference(const ArrayDescriptor& a, const ArrayDescriptor& b) {
    if (!sameElementType(a, b))
        return "element type";
    if (a.dims.size() != b.dims.size())
        return "number of dimensions";
    for (std::size_t d = 0; d < a.dims.size(); ++d)
        if (a.dims[d].lower != b.dims[d].lower || a.dims[d].upper != b.dims[d].upper)
            return "bounds of " + dimensionName(d);
    return std::string();
}

Result<RankSpace> stackRanks(const std::vector<RankArray>& ranks) {
    if (Status s = checkRanks(ranks); !s)
        return s.error();
    const ArrayDescriptor& first = ranks.front().array;
    bool same = true;
    std::uint64_t widest = 0;
    for (const RankArray& r : ranks) {
        const std::string diff = shapeDifference(first, r.array);
        if (!diff.empty())
            return Error{ErrorCode::BadRequest, "Ranks " + std::to_string(ranks.front().rank) +
                                                    " and " + std::to_string(r.rank) +
                                                    " differ in the " + diff + "."};
        same = same && sameStrides(first, r.array);
        widest = std::max(widest, spanOf(r.array).bytes);
    }
    // Each rank gets a window of 2^k bytes, at least twice its array's span,
    // so that no read of the engine runs from one rank into the next.
    int k = 20;
    while ((std::uint64_t(1) << k) < 2 * widest)
        ++k;
    const std::uint64_t window = std::uint64_t(1) << k;
    if (k >= 62 || ranks.size() + 1 > (std::uint64_t(1) << (63 - k)))
        return Error{ErrorCode::TooLarge, "The array is too large to be shown over " +
                                              std::to_string(ranks.size()) + " ranks."};

    RankSpace out;
    out.array = first;
    std::vector<std::int64_t> strides;
    if (!same) {
        // The ranks lay the array out differently (sections of differently
        // sized parents): present each packed in result order.
        strides = packedStrides(first);
        for (std::size_t d = 0; d < strides.size(); ++d)
            out.array.dims[d].byteStride = strides[d];
    }
    std::vector<RankSpaceReader::Region> regions;
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        const RankArray& r = ranks[i];
        const std::uint64_t base = (i + 1) * window;
        if (same) {
            const Span s = spanOf(r.array);
            RankSpaceReader::Region region;
            region.start = base + static_cast<std::uint64_t>(s.low);
            region.size = s.bytes;
            region.rank = r.rank;
            region.reader = r.reader;
            region.realStart = r.array.address + static_cast<std::uint64_t>(s.low);
            regions.push_back(std::move(region));
        } else {
            regions.push_back(packedRegion(r, base));
        }
    }
    out.array.address = window;
    const Dimension process{0, static_cast<std::int64_t>(ranks.size()) - 1,
                            static_cast<std::int64_t>(window)};
    if (first.language == Language::Fortran)
        out.array.dims.push_back(process);
    else
        out.array.dims.insert(out.array.dims.begin(), process);
    if (Status s = validate(out.array); !s)
        return s.error();
    out.reader = std::make_unique<RankSpaceReader>(std::move(regions));
    return out;
}

Result<RankSpace> concatenateRanks(const std::vector<RankArray>& ranks) {
    if (Status s = checkRanks(ranks); !s)
        return s.error();
    const ArrayDescriptor& first = ranks.front().array;
    for (const RankArray& r : ranks)
        if (!sameElementType(first, r.array))
            return Error{ErrorCode::BadRequest, "Ranks " + std::to_string(ranks.front().rank) +
                                                    " and " + std::to_string(r.rank) +
                                                    " hold elements of different types."};
    // Rank after rank from a base well away from 0, elements end to end.
    const std::uint64_t base = std::uint64_t(1) << 20;
    std::uint64_t at = base;
    std::vector<RankSpaceReader::Region> regions;
    for (const RankArray& r : ranks) {
        const std::uint64_t bytes = r.array.elementCount() * r.array.elementSize;
        if (bytes == 0)
            continue;
        if (isPackedAlready(r.array)) {
            RankSpaceReader::Region region;
            region.start = at;
            region.size = bytes;
            region.rank = r.rank;
            region.reader = r.reader;
            region.realStart = r.array.address;
            regions.push_back(std::move(region));
        } else {
            regions.push_back(packedRegion(r, at));
        }
        at += bytes;
    }
    RankSpace out;
    out.array = first;
    out.array.address = base;
    const std::uint64_t total = (at - base) / first.elementSize;
    const std::int64_t lower = first.language == Language::Fortran ? 1 : 0;
    out.array.dims = {Dimension{lower, lower + static_cast<std::int64_t>(total) - 1,
                                static_cast<std::int64_t>(first.elementSize)}};
    if (Status s = validate(out.array); !s)
        return s.error();
    out.reader = std::make_unique<RankSpaceReader>(std::move(regions));
    return out;
}

} // namespace arraylens
