// Splitting the passes over the data across the machine's cores.
#pragma once

#include "walk.h"

#include <atomic>
#include <cstdint>
#include <functional>

namespace arraylens {

// The machine's cores, at least 1.
int hardwareThreads();

// Runs body(0) .. body(n-1) at once; body(0) on the calling thread.
void runOnThreads(int n, const std::function<void(int)>& body);

// Lets tiles pass an ordered section (the checksum) one after the other in
// tile order while threads read and compute them in parallel.
class TileTurns {
public:
    // Waits until every tile before t has passed; false when the pass was
    // abandoned.
    bool wait(std::uint64_t t) const;
    void pass(std::uint64_t t);
    void abandon();
    bool abandoned() const { return abandoned_.load(std::memory_order_acquire); }

private:
    std::atomic<std::uint64_t> next_{0};
    std::atomic<bool> abandoned_{false};
};

// Reads every tile of the plan once, on `threads` threads, each thread
// reusing its own buffer, and calls fn(thread, tileIndex, view) for each.
// Threads take tiles in increasing order. The first failure (of a read or
// of fn) stops the pass and is returned; so does a raised cancel flag.
using TileFn = std::function<Status(int thread, std::uint64_t tile, const TileView& view)>;
Status forEachTile(const TilePlan& plan, Reader& reader, int threads, const TileFn& fn,
                   TileTurns* turns = nullptr, const std::atomic<bool>* cancel = nullptr);

// The threads a pass uses: options.threads, or one per core when it is 0.
int threadsFor(const PassOptions& options);

// "The request was cancelled."
Error cancelledError();

} // namespace arraylens
