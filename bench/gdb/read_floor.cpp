// The floor of reading a stopped process's memory: one plain pass over
// BYTES at ADDRESS in process PID, process_vm_readv in 256 KiB chunks into a
// buffer each thread reuses, the chunks handed out in order to THREADS
// threads, every word added up so that each byte is used. No engine code:
// this is what the statistics are measured against.
//
// Usage: bench_read_floor PID ADDRESS BYTES [THREADS [RUNS]]
// Prints one line per run and "floor: median=SECONDS runs=N threads=T".
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/uio.h>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kChunk = 256 * 1024;

// Seconds for one pass, or a negative number when a read failed.
double pass(pid_t pid, std::uint64_t address, std::uint64_t bytes, int threads,
            std::uint64_t& checksum, int& error) {
    std::atomic<std::uint64_t> next{0};
    std::atomic<int> failed{0}; // the errno of a failed read
    std::vector<std::uint64_t> sums(std::size_t(threads), 0);
    const std::uint64_t chunks = (bytes + kChunk - 1) / kChunk;
    const auto start = std::chrono::steady_clock::now();
    auto body = [&](int t) {
        std::vector<std::uint64_t> buffer(kChunk / 8);
        std::uint64_t sum = 0;
        for (;;) {
            const std::uint64_t c = next.fetch_add(1);
            if (c >= chunks)
                break;
            const std::size_t n = std::size_t(std::min<std::uint64_t>(kChunk, bytes - c * kChunk));
            iovec local{buffer.data(), n};
            iovec remote{reinterpret_cast<void*>(address + c * kChunk), n};
            if (process_vm_readv(pid, &local, 1, &remote, 1, 0) != ssize_t(n)) {
                failed = errno ? errno : EIO;
                break;
            }
            for (std::size_t i = 0; i < n / 8; ++i)
                sum += buffer[i];
        }
        sums[std::size_t(t)] = sum;
    };
    std::vector<std::thread> others;
    for (int t = 1; t < threads; ++t)
        others.emplace_back(body, t);
    body(0);
    for (auto& th : others)
        th.join();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    checksum = 0;
    for (std::uint64_t s : sums)
        checksum += s;
    error = failed;
    return failed ? -1 : seconds;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: bench_read_floor PID ADDRESS BYTES [THREADS [RUNS]]\n");
        return 2;
    }
    const pid_t pid = pid_t(std::strtol(argv[1], nullptr, 10));
    const std::uint64_t address = std::strtoull(argv[2], nullptr, 0);
    const std::uint64_t bytes = std::strtoull(argv[3], nullptr, 0);
    const int threads = argc > 4 ? std::max(1, std::atoi(argv[4])) : 2;
    const int runs = argc > 5 ? std::max(1, std::atoi(argv[5])) : 5;
    std::vector<double> times;
    for (int r = 0; r < runs; ++r) {
        std::uint64_t checksum = 0;
        int error = 0;
        const double s = pass(pid, address, bytes, threads, checksum, error);
        if (s < 0) {
            std::fprintf(stderr, "bench_read_floor: cannot read process %d: %s\n", int(pid),
                         std::strerror(error));
            return 1;
        }
        std::printf("floor run %d: %.4f s (word sum %016llx)\n", r + 1, s,
                    static_cast<unsigned long long>(checksum));
        times.push_back(s);
    }
    std::sort(times.begin(), times.end());
    std::printf("floor: median=%.6f runs=%d threads=%d\n", times[times.size() / 2], runs, threads);
    return 0;
}
