#include "sample.h"

#include "parallel.h"

#include <algorithm>
#include <mutex>

namespace arraylens {

namespace {

// splitmix64: a well-mixed offset from the stratum's number alone.
std::uint64_t mix(std::uint64_t x) {
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

} // namespace

std::vector<std::uint64_t> stratifiedPositions(std::uint64_t total, std::size_t count) {
    std::vector<std::uint64_t> out;
    if (total == 0 || count == 0)
        return out;
    if (count >= total) {
        out.resize(static_cast<std::size_t>(total));
        for (std::uint64_t i = 0; i < total; ++i)
            out[static_cast<std::size_t>(i)] = i;
        return out;
    }
    out.reserve(count);
    const unsigned __int128 t = total;
    for (std::size_t i = 0; i < count; ++i) {
        const auto begin = static_cast<std::uint64_t>(t * i / count);
        const auto end = static_cast<std::uint64_t>(t * (i + 1) / count);
        out.push_back(begin + mix(i) % (end - begin));
    }
    return out;
}

std::uint64_t addressAt(const Layout& layout, std::uint64_t position) {
    std::int64_t offset = 0;
    for (std::size_t d = layout.extents.size(); d-- > 0;) {
        const auto extent = static_cast<std::uint64_t>(layout.extents[d]);
        offset += static_cast<std::int64_t>(position % extent) * layout.byteStrides[d];
        position /= extent;
    }
    return layout.base + static_cast<std::uint64_t>(offset);
}

Status readPositions(const Layout& layout, Reader& reader,
                     const std::vector<std::uint64_t>& positions, int threads,
                     std::vector<unsigned char>& out) {
    const std::size_t esize = layout.elementSize;
    out.resize(positions.size() * esize);
    std::vector<Segment> segments(positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i)
        segments[i] = Segment{addressAt(layout, positions[i]), esize, out.data() + i * esize};
    // Each piece costs the kernel a page walk of its own: both cores share
    // them.
    constexpr std::size_t kPerRead = 1024;
    const std::size_t reads = (segments.size() + kPerRead - 1) / kPerRead;
    threads = static_cast<int>(std::max<std::size_t>(
        1, std::min<std::size_t>(reads, static_cast<std::size_t>(std::max(threads, 1)))));
    std::mutex failed;
    Status first = Status::Ok();
    runOnThreads(threads, [&](int t) {
        for (std::size_t r = static_cast<std::size_t>(t); r < reads;
             r += static_cast<std::size_t>(threads)) {
            const std::size_t at = r * kPerRead;
            const std::size_t n = std::min(kPerRead, segments.size() - at);
            Status s = reader.readv(segments.data() + at, n);
            if (!s) {
                std::lock_guard<std::mutex> lock(failed);
                if (first.ok())
                    first = s;
                return;
            }
        }
    });
    return first;
}

} // namespace arraylens
