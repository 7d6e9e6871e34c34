// Settings every pass over the data shares: how many threads, how large the
// reused buffers are, and a flag that stops the work early.
#pragma once

#include <atomic>
#include <cstddef>

namespace arraylens {

// A few hundred KiB per read keeps the data in the core's cache between
// reading it and using it.
constexpr std::size_t kDefaultTileBytes = 256 * 1024;

struct PassOptions {
    int threads = 0;                           // 0: one per core
    std::size_t tileBytes = kDefaultTileBytes; // bytes read at once per thread
    // When set and it becomes true, the work stops and fails with
    // ErrorCode::Cancelled.
    const std::atomic<bool>* cancel = nullptr;
};

} // namespace arraylens
