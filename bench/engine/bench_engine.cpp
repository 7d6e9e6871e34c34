// Speed of the engine against the floor of the same machine in the same run:
// statistics over 2^26 doubles against one plain pass that sums the same
// memory, and the process reader against memcpy of the same bytes. Each
// engine benchmark reports its time over the baseline's as "x_baseline";
// statistics of smaller arrays compare the two roads to the quartiles, and
// those of integers are timed against floating-point ones of the same size.
#include "arraylens/arraylens.h"
#include "arraylens/parallel.h"
#include "arraylens/slice.h"
#include "arraylens/walk.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace arraylens;

namespace {

constexpr std::size_t kCount = std::size_t(1) << 26; // 512 MiB of doubles
constexpr std::size_t kChunk = 256 * 1024;

const std::vector<double>& data() {
    static const std::vector<double> v = [] {
        std::vector<double> d(kCount);
        std::mt19937_64 rng(1);
        std::normal_distribution<double> normal(0.0, 1.0);
        for (double& x : d)
            x = normal(rng);
        return d;
    }();
    return v;
}

ArrayDescriptor descriptor(std::uint64_t address) {
    return ArrayDescriptor::cArray(ElementKind::Double, address,
                                   {static_cast<std::int64_t>(kCount)});
}

double seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

// CPU time of the whole process, all threads: on a machine shared with
// other work the wall clock also counts the time others had the cores.
double processCpuSeconds() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

struct Timing {
    double wall = 1e9, cpu = 1e9;
};

// Runs f a few times; the best wall and CPU times.
template <class F> Timing bestOf(F f) {
    Timing t;
    for (int r = 0; r < 5; ++r) {
        const double c0 = processCpuSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        f();
        t.wall = std::min(t.wall, seconds(std::chrono::steady_clock::now() - t0));
        t.cpu = std::min(t.cpu, processCpuSeconds() - c0);
    }
    return t;
}

// Sums the array once, split over `threads` threads.
double plainSum(const double* p, std::size_t n, int threads) {
    std::vector<double> partial(static_cast<std::size_t>(threads), 0.0);
    runOnThreads(threads, [&](int t) {
        const std::size_t begin =
            n * static_cast<std::size_t>(t) / static_cast<std::size_t>(threads);
        const std::size_t end =
            n * static_cast<std::size_t>(t + 1) / static_cast<std::size_t>(threads);
        double s[4] = {0, 0, 0, 0};
        std::size_t i = begin;
        for (; i + 4 <= end; i += 4)
            for (int k = 0; k < 4; ++k)
                s[k] += p[i + static_cast<std::size_t>(k)];
        for (; i < end; ++i)
            s[0] += p[i];
        partial[static_cast<std::size_t>(t)] = (s[0] + s[1]) + (s[2] + s[3]);
    });
    double total = 0;
    for (double x : partial)
        total += x;
    return total;
}

// Best of a few runs of the plain pass, measured in this process.
Timing baselineTiming(int threads) {
    static Timing cached[3];
    static bool done[3] = {false, false, false};
    if (!done[threads]) {
        cached[threads] =
            bestOf([&] { benchmark::DoNotOptimize(plainSum(data().data(), kCount, threads)); });
        done[threads] = true;
    }
    return cached[threads];
}

// Copies the array chunk by chunk into a reused buffer per thread.
Timing memcpyTiming(int threads) {
    static Timing cached[3];
    static bool done[3] = {false, false, false};
    if (done[threads])
        return cached[threads];
    const auto* bytes = reinterpret_cast<const unsigned char*>(data().data());
    const std::size_t total = kCount * sizeof(double);
    cached[threads] = bestOf([&] {
        std::atomic<std::size_t> next{0};
        runOnThreads(threads, [&](int) {
            std::vector<unsigned char> buf(kChunk);
            for (;;) {
                const std::size_t at = next.fetch_add(kChunk);
                if (at >= total)
                    return;
                std::memcpy(buf.data(), bytes + at, std::min(kChunk, total - at));
                benchmark::DoNotOptimize(buf.data());
            }
        });
    });
    done[threads] = true;
    return cached[threads];
}

void reportRatio(benchmark::State& state, Timing total, Timing baseline) {
    const double n = static_cast<double>(state.iterations());
    state.counters["x_baseline"] = total.wall / n / baseline.wall;
    state.counters["x_baseline_cpu"] = total.cpu / n / baseline.cpu;
    state.counters["baseline_s"] = baseline.wall;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(kCount * sizeof(double)));
}

void BM_PlainSum(benchmark::State& state) {
    const int threads = static_cast<int>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(plainSum(data().data(), kCount, threads));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(kCount * sizeof(double)));
}
BENCHMARK(BM_PlainSum)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// All 16 statistics, exact quartiles included, on two threads; the ratio is
// against the plain pass on two threads. Argument 1: quartiles from a
// sample's windows in one pass where they hold; 0: radix selection only.
void BM_Statistics(benchmark::State& state, const char* slice, const char* filter) {
    const std::vector<double>& d = data();
    const Timing baseline = baselineTiming(2);
    BufferReader reader(d.data(), d.size() * sizeof(double));
    const ArrayDescriptor a = descriptor(reinterpret_cast<std::uintptr_t>(d.data()));
    StatisticsOptions o = StatisticsOptions::Defaults();
    o.threads = 2;
    if (state.range(0) == 0)
        o.sampleSize = 0;
    Timing total{0, 0};
    unsigned passes = 0;
    bool held = false;
    for (auto _ : state) {
        const double c0 = processCpuSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        Result<Statistics> s = computeStatistics(a, reader, slice, filter, o);
        total.wall += seconds(std::chrono::steady_clock::now() - t0);
        total.cpu += processCpuSeconds() - c0;
        if (!s.ok()) {
            state.SkipWithError(s.message().c_str());
            return;
        }
        passes = s->passes;
        held = s->windowsHeld;
        benchmark::DoNotOptimize(s->median);
    }
    reportRatio(state, total, baseline);
    state.counters["passes"] = passes;
    state.counters["one_pass"] = held ? 1 : 0;
}
BENCHMARK_CAPTURE(BM_Statistics, whole, "", "")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_Statistics, filtered, "", "$value > -1 && $value != $nan")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Statistics of n elements of `kind`, `size` bytes each, at p on two
// threads, by radix selection alone or by the sampled road; the time taken
// goes to `best` when it is lower.
Result<Statistics> timedStatistics(ElementKind kind, const void* p, std::size_t n, std::size_t size,
                                   bool radixOnly, double& best) {
    BufferReader reader(p, n * size);
    const ArrayDescriptor a = ArrayDescriptor::cArray(kind, reinterpret_cast<std::uintptr_t>(p),
                                                      {static_cast<std::int64_t>(n)});
    StatisticsOptions o = StatisticsOptions::Defaults();
    o.threads = 2;
    if (radixOnly)
        o.sampleSize = 0;
    const auto t0 = std::chrono::steady_clock::now();
    Result<Statistics> s = computeStatistics(a, reader, "", "", o);
    best = std::min(best, seconds(std::chrono::steady_clock::now() - t0));
    return s;
}

// Smaller arrays, the first 2^k of the same doubles: the sampled one-pass
// road against radix selection alone, both in each iteration, each its best
// time; "x_radix" is how many times faster the sampled road is.
void BM_StatisticsBySize(benchmark::State& state) {
    const std::vector<double>& d = data();
    const std::size_t n = std::size_t(1) << state.range(0);
    double best[2] = {1e9, 1e9};
    bool sampled = false;
    for (auto _ : state) {
        for (int road = 0; road < 2; ++road) {
            Result<Statistics> s = timedStatistics(ElementKind::Double, d.data(), n, sizeof(double),
                                                   road == 0, best[road]);
            if (!s.ok()) {
                state.SkipWithError(s.message().c_str());
                return;
            }
            if (road == 1)
                sampled = s->sampled;
            benchmark::DoNotOptimize(s->median);
        }
    }
    state.counters["radix_ms"] = best[0] * 1e3;
    state.counters["sampled_ms"] = best[1] * 1e3;
    state.counters["x_radix"] = best[0] / best[1];
    state.counters["sampled"] = sampled ? 1 : 0;
}
BENCHMARK(BM_StatisticsBySize)
    ->Arg(17)
    ->Arg(20)
    ->Arg(24)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Statistics of 2^27 integers against 2^27 floating-point elements of the
// same size, on two threads, each road in every iteration, each its best
// time. "x_float" is the integers' time over the floats' by the sampled
// road; "x_radix" how many times faster the integers' sampled road is than
// their radix selection alone. The integers are large values close
// together, as timestamps and ids are, beyond 2^53 when 64-bit.
template <class I, class F> void BM_IntegersAgainstFloats(benchmark::State& state) {
    const std::size_t n = std::size_t(1) << 27;
    std::vector<I> ints(n);
    std::vector<F> floats(n);
    std::mt19937_64 rng(3);
    std::normal_distribution<double> normal(0.0, 1.0);
    const double offset = sizeof(I) == 8 ? 4611686018427387904.0 : 0.0; // 2^62
    const double spread = sizeof(I) == 8 ? 1e12 : 1e8;
    for (std::size_t i = 0; i < n; ++i) {
        const double x = normal(rng);
        floats[i] = static_cast<F>(x);
        ints[i] = static_cast<I>(offset + std::round(x * spread));
    }
    const ElementKind ik = sizeof(I) == 8 ? ElementKind::Int64 : ElementKind::Int32;
    const ElementKind fk = sizeof(F) == 8 ? ElementKind::Double : ElementKind::Float;
    double best[3] = {1e9, 1e9, 1e9}; // integers sampled, floats sampled, integers by radix
    bool held[2] = {false, false};
    for (auto _ : state) {
        for (int road = 0; road < 3; ++road) {
            Result<Statistics> s =
                road == 1 ? timedStatistics(fk, floats.data(), n, sizeof(F), false, best[road])
                          : timedStatistics(ik, ints.data(), n, sizeof(I), road == 2, best[road]);
            if (!s.ok()) {
                state.SkipWithError(s.message().c_str());
                return;
            }
            if (road < 2)
                held[road] = s->windowsHeld;
            benchmark::DoNotOptimize(s->median);
        }
    }
    state.counters["int_ms"] = best[0] * 1e3;
    state.counters["float_ms"] = best[1] * 1e3;
    state.counters["int_radix_ms"] = best[2] * 1e3;
    state.counters["x_float"] = best[0] / best[1];
    state.counters["x_radix"] = best[2] / best[0];
    state.counters["one_pass"] = held[0] && held[1] ? 1 : 0;
}
BENCHMARK_TEMPLATE(BM_IntegersAgainstFloats, std::int64_t, double)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_TEMPLATE(BM_IntegersAgainstFloats, std::int32_t, float)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// A child process holds a copy of the array; the parent reads it by pid.
class ChildCopy {
public:
    ChildCopy() {
        data();
        int done[2];
        if (::pipe(done) != 0)
            return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(done[1]);
            char c;
            ssize_t r = ::read(done[0], &c, 1);
            ::_exit(r >= 0 ? 0 : 1);
        }
        ::close(done[0]);
        done_ = done[1];
    }
    ~ChildCopy() {
        ::close(done_);
        int status = 0;
        if (pid_ > 0)
            ::waitpid(pid_, &status, 0);
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int done_ = -1;
};

// The engine's read path: every tile of the whole array read from the child
// on two threads into reused buffers; the ratio is against memcpy of the
// same bytes in the same chunks on two threads.
void BM_ProcessReader(benchmark::State& state, ProcessReader::Method method) {
    const Timing baseline = memcpyTiming(2);
    ChildCopy child;
    ProcessReader reader(child.pid(), method);
    const ArrayDescriptor a = descriptor(reinterpret_cast<std::uintptr_t>(data().data()));
    const Slice whole = parseSlice("", a).value();
    const TilePlan plan(layoutOf(a, whole.dims), kChunk);
    Timing total{0, 0};
    for (auto _ : state) {
        const double c0 = processCpuSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        Status s = forEachTile(plan, reader, 2, [](int, std::uint64_t, const TileView& v) {
            benchmark::DoNotOptimize(v.runs.data());
            return Status::Ok();
        });
        total.wall += seconds(std::chrono::steady_clock::now() - t0);
        total.cpu += processCpuSeconds() - c0;
        if (!s.ok()) {
            state.SkipWithError(s.message().c_str());
            return;
        }
    }
    if (reader.method() != method)
        state.SkipWithError("the reader fell back to another method");
    reportRatio(state, total, baseline);
}
BENCHMARK_CAPTURE(BM_ProcessReader, process_vm_readv, ProcessReader::Method::VmReadv)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_ProcessReader, proc_pid_mem, ProcessReader::Method::ProcMem)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The live road without the debugger: all 16 statistics of the array in a
// child process, read by pid on two threads, against a plain pass of the
// same reader over the same memory that only adds up the words (the floor
// of reading it), both in every iteration so that both see the same load.
// "x_floor" is the statistics' best time over the floor's best, and
// "x_floor_cpu" the same of the CPU time of all threads, which a machine
// busy with other work disturbs less; "faults" counts the page faults of
// the first request (later ones reuse what the allocator kept), which no
// load changes.
void BM_LiveStatistics(benchmark::State& state) {
    ChildCopy child;
    ProcessReader reader(child.pid(), ProcessReader::Method::VmReadv);
    const ArrayDescriptor a = descriptor(reinterpret_cast<std::uintptr_t>(data().data()));
    const Slice whole = parseSlice("", a).value();
    const TilePlan plan(layoutOf(a, whole.dims), kChunk);
    StatisticsOptions o = StatisticsOptions::Defaults();
    o.threads = 2;
    // The child shares its pages with this process; the first read of each
    // has the kernel copy it for the child. One pass before the timed ones
    // does that, so that the first request's page faults are its own.
    auto floorPass = [&](std::uint64_t* into) {
        return forEachTile(plan, reader, 2, [&](int t, std::uint64_t, const TileView& v) {
            std::uint64_t sum = 0;
            for (const ElementRun& run : v.runs)
                for (std::size_t i = 0; i < run.count; ++i) {
                    std::uint64_t w;
                    std::memcpy(&w, run.first + i * 8, 8);
                    sum += w;
                }
            into[t] += sum;
            return Status::Ok();
        });
    };
    std::uint64_t sums[2] = {0, 0};
    if (Status f = floorPass(sums); !f.ok()) {
        state.SkipWithError(f.message().c_str());
        return;
    }
    Timing best[2]; // statistics, floor
    unsigned passes = 0;
    long faults = -1;
    for (auto _ : state) {
        rusage before, after;
        getrusage(RUSAGE_SELF, &before);
        double c0 = processCpuSeconds();
        auto t0 = std::chrono::steady_clock::now();
        Result<Statistics> s = computeStatistics(a, reader, "", "", o);
        best[0].wall = std::min(best[0].wall, seconds(std::chrono::steady_clock::now() - t0));
        best[0].cpu = std::min(best[0].cpu, processCpuSeconds() - c0);
        getrusage(RUSAGE_SELF, &after);
        if (faults < 0)
            faults = after.ru_minflt - before.ru_minflt;
        if (!s.ok()) {
            state.SkipWithError(s.message().c_str());
            return;
        }
        passes = s->passes;
        benchmark::DoNotOptimize(s->median);
        c0 = processCpuSeconds();
        t0 = std::chrono::steady_clock::now();
        Status f = floorPass(sums);
        best[1].wall = std::min(best[1].wall, seconds(std::chrono::steady_clock::now() - t0));
        best[1].cpu = std::min(best[1].cpu, processCpuSeconds() - c0);
        benchmark::DoNotOptimize(sums);
        if (!f.ok()) {
            state.SkipWithError(f.message().c_str());
            return;
        }
    }
    state.counters["stats_ms"] = best[0].wall * 1e3;
    state.counters["floor_ms"] = best[1].wall * 1e3;
    state.counters["x_floor"] = best[0].wall / best[1].wall;
    state.counters["x_floor_cpu"] = best[0].cpu / best[1].cpu;
    state.counters["passes"] = passes;
    state.counters["faults"] = static_cast<double>(faults);
}
BENCHMARK(BM_LiveStatistics)->Iterations(5)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    data(); // the array is made before any timing starts
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
