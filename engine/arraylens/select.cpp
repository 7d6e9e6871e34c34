#include "select.h"

#include <algorithm>

namespace arraylens {

namespace {
unsigned bitWidth(std::uint64_t v) {
    unsigned w = 0;
    while (v) {
        ++w;
        v >>= 1;
    }
    return w;
}
} // namespace

KeyJob RadixSelect::histogramJob(std::uint64_t lo, std::uint64_t hi, std::uint64_t expected) {
    KeyJob j;
    j.lo = lo;
    j.hi = hi;
    j.collect = false;
    unsigned w = bitWidth(hi - lo);
    j.shift = w > kRadixBits ? w - kRadixBits : 0;
    j.bins = static_cast<std::size_t>(((hi - lo) >> j.shift) + 1);
    j.expected = expected;
    return j;
}

RadixSelect::RadixSelect(unsigned keyBits, std::vector<std::uint64_t> ranks, std::uint64_t n,
                         std::size_t collectLimit)
    : collectLimit_(collectLimit) {
    std::uint64_t maxKey = keyBits >= 64 ? ~std::uint64_t(0) : (std::uint64_t(1) << keyBits) - 1;
    first_ = histogramJob(0, maxKey, n);
    std::sort(ranks.begin(), ranks.end());
    ranks.erase(std::unique(ranks.begin(), ranks.end()), ranks.end());
    for (std::uint64_t r : ranks)
        targets_.push_back(Target{r, 0, maxKey, r});
}

void RadixSelect::narrow(Target& t, const KeyJob& job, const std::vector<std::uint64_t>& hist) {
    std::uint64_t below = 0;
    for (std::size_t b = 0; b < job.bins; ++b) {
        if (t.offset < below + hist[b]) {
            t.lo = job.lo + (static_cast<std::uint64_t>(b) << job.shift);
            std::uint64_t width = (std::uint64_t(1) << job.shift) - 1;
            t.hi = std::min(job.hi, t.lo + width);
            t.offset -= below;
            if (t.lo == t.hi) {
                t.resolved = true;
                t.key = t.lo;
            }
            return;
        }
        below += hist[b];
    }
}

void RadixSelect::takeFirstHistogram(const std::vector<std::uint64_t>& hist) {
    ++passes_;
    std::vector<std::uint64_t> counts;
    for (Target& t : targets_)
        narrow(t, first_, hist);
    // Remember how many keys each narrowed range holds.
    jobs_.clear();
    std::vector<std::uint64_t> expected;
    for (Target& t : targets_) {
        if (t.resolved)
            continue;
        std::size_t b = first_.bin(t.lo);
        expected.push_back(hist[b]);
    }
    std::size_t k = 0;
    for (Target& t : targets_)
        if (!t.resolved)
            t.job = static_cast<int>(k++);
    // Temporarily keep counts in jobs_ for planJobs.
    k = 0;
    for (Target& t : targets_)
        if (!t.resolved) {
            KeyJob j;
            j.lo = t.lo;
            j.hi = t.hi;
            j.expected = expected[k++];
            jobs_.push_back(j);
        }
    planJobs();
}

// One job per distinct range; ranges small enough to hold in memory are
// collected, the largest ones counted again, until the collected keys fit.
void RadixSelect::planJobs() {
    std::vector<KeyJob> ranges;
    for (const KeyJob& j : jobs_) {
        bool seen = false;
        for (const KeyJob& r : ranges)
            seen = seen || (r.lo == j.lo && r.hi == j.hi);
        if (!seen)
            ranges.push_back(j);
    }
    std::sort(ranges.begin(), ranges.end(),
              [](const KeyJob& a, const KeyJob& b) { return a.expected < b.expected; });
    std::uint64_t collected = 0;
    jobs_.clear();
    for (const KeyJob& r : ranges) {
        if (collected + r.expected <= collectLimit_) {
            KeyJob j = r;
            j.collect = true;
            collected += r.expected;
            jobs_.push_back(j);
        } else {
            jobs_.push_back(histogramJob(r.lo, r.hi, r.expected));
        }
    }
    std::sort(jobs_.begin(), jobs_.end(),
              [](const KeyJob& a, const KeyJob& b) { return a.lo < b.lo; });
    for (Target& t : targets_) {
        t.job = -1;
        if (t.resolved)
            continue;
        for (std::size_t i = 0; i < jobs_.size(); ++i)
            if (jobs_[i].lo == t.lo && jobs_[i].hi == t.hi)
                t.job = static_cast<int>(i);
    }
}

bool RadixSelect::done() const {
    for (const Target& t : targets_)
        if (!t.resolved)
            return false;
    return true;
}

void RadixSelect::takePass(const std::vector<std::vector<std::uint64_t>>& hists,
                           std::vector<std::vector<std::uint64_t>>& keys) {
    ++passes_;
    std::vector<KeyJob> next;
    for (Target& t : targets_) {
        if (t.resolved || t.job < 0)
            continue;
        const KeyJob& job = jobs_[static_cast<std::size_t>(t.job)];
        if (job.collect) {
            std::vector<std::uint64_t>& v = keys[static_cast<std::size_t>(t.job)];
            if (t.offset < v.size()) {
                std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(t.offset),
                                 v.end());
                t.key = v[t.offset];
                t.resolved = true;
            }
        } else {
            const std::vector<std::uint64_t>& h = hists[static_cast<std::size_t>(t.job)];
            narrow(t, job, h);
            if (!t.resolved) {
                KeyJob j;
                j.lo = t.lo;
                j.hi = t.hi;
                j.expected = h[job.bin(t.lo)];
                next.push_back(j);
            }
        }
    }
    jobs_ = std::move(next);
    planJobs();
}

std::uint64_t RadixSelect::keyAt(std::uint64_t rank) const {
    for (const Target& t : targets_)
        if (t.rank == rank)
            return t.key;
    return 0;
}

bool RadixSelect::rangeOf(std::uint64_t rank, std::uint64_t& lo, std::uint64_t& hi) const {
    for (const Target& t : targets_)
        if (t.rank == rank) {
            lo = t.resolved ? t.key : t.lo;
            hi = t.resolved ? t.key : t.hi;
            return true;
        }
    return false;
}

void keysAtRank(std::uint64_t* keys, std::size_t n, std::uint64_t lo, std::uint64_t hi,
                std::uint64_t rank, std::uint64_t& at, std::uint64_t& next) {
    const bool second = rank + 1 < n;
    // Few keys, or more than 32-bit bins can count: a partial sort of them all.
    if (n < (std::size_t(1) << 15) || n > 0xffffffffu) {
        std::nth_element(keys, keys + rank, keys + n);
        at = keys[rank];
        next = second ? *std::min_element(keys + rank + 1, keys + n) : at;
        return;
    }
    const unsigned width = bitWidth(hi - lo);
    const unsigned shift = width > kRadixBits ? width - kRadixBits : 0;
    std::vector<std::uint32_t> hist(static_cast<std::size_t>((hi - lo) >> shift) + 1, 0);
    for (std::size_t i = 0; i < n; ++i)
        ++hist[static_cast<std::size_t>((keys[i] - lo) >> shift)];
    // The bin of `rank`, and that of rank + 1 when it is a later one; the
    // bins between them are empty.
    std::uint64_t before = 0;
    std::size_t first = 0;
    while (before + hist[first] <= rank)
        before += hist[first++];
    std::size_t last = first;
    if (second && before + hist[first] == rank + 1)
        for (++last; hist[last] == 0;)
            ++last;
    std::vector<std::uint64_t> picked;
    picked.reserve(hist[first] + (last != first ? hist[last] : 0));
    for (std::size_t i = 0; i < n; ++i) {
        const std::size_t bin = static_cast<std::size_t>((keys[i] - lo) >> shift);
        if (bin >= first && bin <= last)
            picked.push_back(keys[i]);
    }
    const auto local = static_cast<std::ptrdiff_t>(rank - before);
    std::nth_element(picked.begin(), picked.begin() + local, picked.end());
    at = picked[static_cast<std::size_t>(local)];
    next = second ? *std::min_element(picked.begin() + local + 1, picked.end()) : at;
}

} // namespace arraylens
