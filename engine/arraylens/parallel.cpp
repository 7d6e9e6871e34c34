#include "parallel.h"

#include <mutex>
#include <thread>
#include <vector>

namespace arraylens {

int hardwareThreads() {
    unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : static_cast<int>(n);
}

void runOnThreads(int n, const std::function<void(int)>& body) {
    std::vector<std::thread> others;
    for (int i = 1; i < n; ++i)
        others.emplace_back(body, i);
    body(0);
    for (std::thread& t : others)
        t.join();
}

bool TileTurns::wait(std::uint64_t t) const {
    unsigned spins = 0;
    while (next_.load(std::memory_order_acquire) != t) {
        if (abandoned_.load(std::memory_order_acquire))
            return false;
        if (++spins > 64)
            std::this_thread::yield();
    }
    return true;
}

void TileTurns::pass(std::uint64_t t) {
    next_.store(t + 1, std::memory_order_release);
}

void TileTurns::abandon() {
    abandoned_.store(true, std::memory_order_release);
}

int threadsFor(const PassOptions& options) {
    return options.threads > 0 ? options.threads : hardwareThreads();
}

Error cancelledError() {
    return Error{ErrorCode::Cancelled, "The request was cancelled."};
}

Status forEachTile(const TilePlan& plan, Reader& reader, int threads, const TileFn& fn,
                   TileTurns* turns, const std::atomic<bool>* cancel) {
    const std::uint64_t tiles = plan.tileCount();
    if (tiles == 0)
        return Status::Ok();
    if (threads < 1)
        threads = 1;
    if (static_cast<std::uint64_t>(threads) > tiles)
        threads = static_cast<int>(tiles);
    std::atomic<std::uint64_t> nextTile{0};
    std::atomic<bool> stop{false};
    std::mutex errorMutex;
    Status firstError;
    std::uint64_t errorTile = 0;
    bool readFailed = false;
    TileTurns localTurns;
    TileTurns& gate = turns ? *turns : localTurns;
    runOnThreads(threads, [&](int thread) {
        TileBuffer buf;
        for (;;) {
            if (stop.load(std::memory_order_relaxed))
                return;
            std::uint64_t t = nextTile.fetch_add(1, std::memory_order_relaxed);
            if (t >= tiles)
                return;
            Status s = Status::Ok();
            if (cancel && cancel->load(std::memory_order_relaxed))
                s = cancelledError();
            if (s)
                s = plan.read(reader, t, buf);
            const bool read = s.ok();
            if (s)
                s = fn(thread, t, buf.view);
            if (!s) {
                std::lock_guard<std::mutex> lock(errorMutex);
                // Threads read tiles out of order: of the reads that fail,
                // the first in the array is the one to name, whichever
                // thread got there first. A failure of fn after one that
                // stopped the pass may just be its consequence.
                const bool readError = !read;
                if (firstError.ok() || (readError && (!readFailed || t < errorTile))) {
                    firstError = s;
                    errorTile = t;
                    readFailed = readFailed || readError;
                }
                stop.store(true);
                gate.abandon();
                return;
            }
        }
    });
    // A tile that failed may have been a wait in the gate; a failure that
    // stems from an abandoned gate is not the one to report.
    return firstError;
}

} // namespace arraylens
