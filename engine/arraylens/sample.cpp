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

std::vector<std::uint64_t> stratifiedPositions(std::uint64_t total, std::size_t count,
                                               std::size_t run) {
    std::vector<std::uint64_t> out;
    if (total == 0 || count == 0 || run == 0)
        return out;
    if (static_cast<unsigned __int128>(count) * run >= total) {
        out.resize(static_cast<std::size_t>(total));
        for (std::uint64_t i = 0; i < total; ++i)
            out[static_cast<std::size_t>(i)] = i;
        return out;
    }
    out.reserve(count * run);
    // Every stratum holds at least `run` positions, as total > count * run.
    const unsigned __int128 t = total;
    for (std::size_t i = 0; i < count; ++i) {
        const auto begin = static_cast<std::uint64_t>(t * i / count);
        const auto end = static_cast<std::uint64_t>(t * (i + 1) / count);
        const std::uint64_t first = begin + mix(i) % (end - begin - run + 1);
        for (std::size_t k = 0; k < run; ++k)
            out.push_back(first + k);
    }
    return out;
}

void sortKeys(std::vector<std::uint64_t>& keys) {
    const std::size_t n = keys.size();
    if (n < 4096) {
        std::sort(keys.begin(), keys.end());
        return;
    }
    // Six digits of eleven bits, least significant first: two passes fewer
    // than bytes would take, and each digit's counts (16 KiB) still fit the
    // first-level cache. A digit that is the same in every key is skipped.
    constexpr unsigned kDigitBits = 11;
    constexpr unsigned kDigits = (64 + kDigitBits - 1) / kDigitBits;
    constexpr std::size_t kBins = std::size_t(1) << kDigitBits;
    constexpr std::uint64_t kMask = kBins - 1;
    std::vector<std::size_t> counts(kDigits * kBins, 0);
    for (std::uint64_t k : keys)
        for (unsigned d = 0; d < kDigits; ++d)
            ++counts[d * kBins + ((k >> (kDigitBits * d)) & kMask)];
    std::vector<std::uint64_t> other(n);
    std::uint64_t* from = keys.data();
    std::uint64_t* to = other.data();
    for (unsigned d = 0; d < kDigits; ++d) {
        std::size_t* c = counts.data() + d * kBins;
        if (*std::max_element(c, c + kBins) == n)
            continue;
        std::size_t at = 0;
        for (std::size_t b = 0; b < kBins; ++b) {
            const std::size_t here = c[b];
            c[b] = at;
            at += here;
        }
        const unsigned shift = kDigitBits * d;
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint64_t k = from[i];
            to[c[(k >> shift) & kMask]++] = k;
        }
        std::swap(from, to);
    }
    if (from != keys.data())
        std::copy(from, from + n, keys.data());
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
    std::vector<Segment> segments;
    segments.reserve(positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const std::uint64_t address = addressAt(layout, positions[i]);
        unsigned char* dest = out.data() + i * esize;
        if (!segments.empty()) {
            Segment& last = segments.back();
            if (last.address + last.size == address &&
                static_cast<unsigned char*>(last.dest) + last.size == dest) {
                last.size += esize;
                continue;
            }
        }
        segments.push_back(Segment{address, esize, dest});
    }
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
