// Exact order statistics without a copy of the data: radix selection on
// order-preserving keys. Each pass over the data either counts keys into a
// 65,536-bin histogram of a key range, narrowing that range to one bin, or,
// once a range holds few enough keys, collects them for a final partial
// sort. Memory stays bounded whatever the array's size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace arraylens {

constexpr unsigned kRadixBits = 16;

struct KeyJob {
    std::uint64_t lo = 0, hi = 0; // key range, inclusive
    bool collect = false;         // gather the keys rather than count them
    unsigned shift = 0;           // histogram: bin = (key - lo) >> shift
    std::size_t bins = 0;
    std::uint64_t expected = 0; // keys known to lie in the range
    std::size_t bin(std::uint64_t key) const {
        return static_cast<std::size_t>((key - lo) >> shift);
    }
};

class RadixSelect {
public:
    // ranks: positions (from 0) in the sorted order of n keys of keyBits bits.
    RadixSelect(unsigned keyBits, std::vector<std::uint64_t> ranks, std::uint64_t n,
                std::size_t collectLimit);

    // The first histogram covers every key.
    const KeyJob& firstJob() const { return first_; }
    void takeFirstHistogram(const std::vector<std::uint64_t>& hist);

    bool done() const;
    // Work for the next pass; results in the same order.
    const std::vector<KeyJob>& jobs() const { return jobs_; }
    // hists[j] for histogram jobs; keys[j] for collecting jobs (reordered).
    void takePass(const std::vector<std::vector<std::uint64_t>>& hists,
                  std::vector<std::vector<std::uint64_t>>& keys);

    std::uint64_t keyAt(std::uint64_t rank) const;
    // The key range known to hold the key of that rank; false for a rank
    // not asked for.
    bool rangeOf(std::uint64_t rank, std::uint64_t& lo, std::uint64_t& hi) const;
    unsigned passes() const { return passes_; }

private:
    struct Target {
        std::uint64_t rank;
        std::uint64_t lo, hi; // range known to hold it
        std::uint64_t offset; // its rank among the keys of the range
        bool resolved = false;
        std::uint64_t key = 0;
        int job = -1;
    };
    void narrow(Target& t, const KeyJob& job, const std::vector<std::uint64_t>& hist);
    void planJobs();
    static KeyJob histogramJob(std::uint64_t lo, std::uint64_t hi, std::uint64_t expected);

    std::vector<Target> targets_;
    std::vector<KeyJob> jobs_;
    KeyJob first_;
    std::size_t collectLimit_;
    unsigned passes_ = 0;
};

// The keys of rank `rank` and rank + 1 (counted from 0) among keys[0, n),
// every one of which lies in [lo, hi]; `next` is `at` when rank is the
// last. One pass counts the keys into at most 65,536 bins of the range,
// and only those in the bins of the two ranks are partially sorted: far
// less work than a partial sort of them all. The keys are reordered.
void keysAtRank(std::uint64_t* keys, std::size_t n, std::uint64_t lo, std::uint64_t hi,
                std::uint64_t rank, std::uint64_t& at, std::uint64_t& next);

} // namespace arraylens
