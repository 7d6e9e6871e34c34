// One array over several processes (the ranks of an MPI job): every rank's
// array is placed in one synthetic address space, and a reader sends each
// piece of a read to the rank whose memory it lies in. The engine then makes
// one pass over all ranks with the descriptor and reader built here, with
// the same exactness as over one array.
//
// Two views:
// - stacked: every rank holds the array with the same shape and element
//   type; the result has one more dimension, the process dimension, with
//   bounds 0:N-1 (first for C form, last for Fortran form).
// - concatenated: the shapes differ; the elements of every rank, in result
//   order, one rank after another, as a one-dimensional array.
#pragma once

#include "descriptor.h"
#include "reader.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace arraylens {

// One rank's array and the reader of that rank's memory (not owned).
struct RankArray {
    int rank = 0; // the rank's number in its job, for messages
    ArrayDescriptor array;
    Reader* reader = nullptr;
};

// A reader over the synthetic address space. Each region is a piece of it
// that belongs to one rank: either a plain window onto that rank's memory,
// or the rank's elements packed one after another in result order.
class RankSpaceReader : public Reader {
public:
    struct Region {
        std::uint64_t start = 0; // synthetic address of its first byte
        std::uint64_t size = 0;
        int rank = 0;
        Reader* reader = nullptr;
        // Plain window: synthetic start maps to this address of the rank.
        std::uint64_t realStart = 0;
        // Packed: the rank's array, whose elements in result order are laid
        // end to end from `start`. Empty dims means a plain window.
        ArrayDescriptor packed;
        bool isPacked = false;
    };

    explicit RankSpaceReader(std::vector<Region> regions);
    Status read(std::uint64_t address, void* dest, std::size_t size) override;
    Status readv(const Segment* segments, std::size_t count) override;
    bool cheapScatteredReads() const override { return cheap_; }
    const std::vector<Region>& regions() const { return regions_; }

private:
    // Appends the rank's real pieces for synthetic [address, address+size).
    Status translate(const Region& region, std::uint64_t address, unsigned char* dest,
                     std::size_t size, std::vector<Segment>& out) const;

    std::vector<Region> regions_; // sorted by start, not overlapping
    bool cheap_ = true;
};

// A descriptor and reader that present several ranks' arrays as one.
struct RankSpace {
    ArrayDescriptor array;
    std::unique_ptr<RankSpaceReader> reader;
};

// The reasons two ranks' arrays cannot be stacked; empty when they can.
// Compares element kind and size and every dimension's bounds.
std::string shapeDifference(const ArrayDescriptor& a, const ArrayDescriptor& b);
bool sameElementType(const ArrayDescriptor& a, const ArrayDescriptor& b);

// Stacks arrays of one shape and element type along a new process dimension
// with bounds 0:N-1, in the order given. The expression text, type text and
// language are the first array's.
Result<RankSpace> stackRanks(const std::vector<RankArray>& ranks);

// The elements of every rank in result order, rank after rank, as one
// one-dimensional array. All ranks must have one element type.
Result<RankSpace> concatenateRanks(const std::vector<RankArray>& ranks);

} // namespace arraylens
