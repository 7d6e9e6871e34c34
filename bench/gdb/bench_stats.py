#!/usr/bin/python3
"""Statistics of a 1 GiB array of doubles, each figure against its baseline
in the same run.

Cases (all by default, or those named with --cases):

  live    arraylens-cli on the stopped process, from the stop to the answer,
          against one plain 2-thread pass of process_vm_readv over the same
          memory (bench_read_floor) and against gdb + numpy (gdb's Python
          read_memory, then numpy).
  core    the same statistics from a core file of the same program (gcore
          at the same stop), warm page cache: arraylens-cli --core against
          gdb + numpy reading the same core with read_memory.
  engine  the engine's own benchmark (bench_engine), the cases that
          --engine-filter selects (1 GiB of int64 against 1 GiB of doubles;
          by default every case that names int64, the whole-array
          statistics of doubles, and the live statistics by pid without
          the debugger against a plain read pass of the same memory).
  eval    the resolution time of a Fortran component, by bench_describe.py
          beside this script when it is there.

Every ratio compares medians of RUNS runs, except gdb + numpy, which takes
15 s and more per run and is run once. The numbers of the two sides are
compared too: a ratio over different answers means nothing.

Usage: bench_stats.py BUILD_DIR [COUNT] [RUNS] [--cases live,core,engine,eval]
                      [--engine-filter REGEX] [--core-dir DIR]
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))

# Statistic names of arraylens-cli and of stats_numpy.py.
PAIRS = [("Count", "count"), ("ZeroCount", "zeros"), ("Sum", "sum"), ("Min", "min"),
         ("Max", "max"), ("Mean", "mean"), ("StdDev", "stddev"), ("FirstQuartile", "q1"),
         ("Median", "median"), ("ThirdQuartile", "q3"), ("LowerAdjValue", "lower_adjacent"),
         ("UpperAdjValue", "upper_adjacent")]


def median(values):
    return sorted(values)[len(values) // 2]


def break_location(build, key):
    with open(os.path.join(build, "examples", "break-locations.txt")) as f:
        for line in f:
            if line.startswith(key + "="):
                return line.strip().split("=", 1)[1]
    sys.exit("no break location %s" % key)


def run_cli(build, count, target_args):
    """arraylens-cli stats; seconds from the stop (or the opened core) to the
    printed answer, the stages, and the answer."""
    cli = os.path.join(build, "bin", "arraylens-cli")
    args = [cli, "stats", "--expr", "*data@%d" % count, "--timings"] + target_args
    started = time.perf_counter()
    p = subprocess.run(args, capture_output=True, text=True, timeout=900)
    wall = time.perf_counter() - started
    if p.returncode != 0:
        sys.exit("arraylens-cli failed (%d): %s" % (p.returncode, p.stderr))
    stages = dict((m.group(1).strip(), float(m.group(2)))
                  for m in re.finditer(r"timing: (.+?)\s+([0-9.]+) s", p.stderr))
    from_stop = stages.get("evaluate", 0.0) + stages["request"] + stages["print"]
    return from_stop, stages, json.loads(p.stdout), wall


def run_numpy(gdb_args):
    """gdb + numpy: the seconds of read_memory and numpy, and the numbers."""
    args = ["gdb", "-q", "-nx", "-batch", "-ex", "set confirm off"] + gdb_args
    p = subprocess.run(args, capture_output=True, text=True, timeout=1800)
    line = next((l for l in p.stdout.splitlines() if l.startswith("numpy: ")), None)
    if line is None:
        sys.exit("the numpy baseline failed:\n%s\n%s" % (p.stdout, p.stderr))
    fields = dict(kv.split("=", 1) for kv in line[len("numpy: "):].split())
    return float(fields.pop("seconds")), fields


def numpy_script():
    return "python exec(open(%r).read())" % os.path.join(HERE, "stats_numpy.py")


def compare(answer, numpy_stats):
    worst = 0.0
    for ours_key, numpy_key in PAIRS:
        a = float(answer[ours_key])
        b = float(numpy_stats[numpy_key])
        rel = abs(a - b) / max(abs(a), abs(b), 1e-300)
        worst = max(worst, rel)
        print("  %-14s arraylens %-24.17g numpy %-24.17g" % (ours_key, a, b))
    print("  largest relative difference: %.3g" % worst)
    return worst


def cli_runs(build, count, runs, target_args, label):
    times, answer = [], None
    for i in range(runs):
        seconds, stages, answer, wall = run_cli(build, count, target_args)
        times.append(seconds)
        print("  arraylens-cli %s run %d: %.3f s from the stop (request %.3f, print %.3f); "
              "whole run %.1f s" % (label, i + 1, seconds, stages["request"], stages["print"],
                                    wall))
    return times, answer


def floor_pass(build, program, count, runs):
    """One plain 2-thread pass over the same array in a process of the same
    program, stopped at the same point (it waits there when told to)."""
    floor = os.path.join(build, "bin", "bench_read_floor")
    p = subprocess.Popen([program, str(count), "wait"], stderr=subprocess.PIPE, text=True,
                         stdout=subprocess.DEVNULL)
    try:
        address = None
        for line in p.stderr:
            m = re.search(r"doubles at (0x[0-9a-f]+)", line)
            if m:
                address = m.group(1)
            if "waiting" in line:
                break
        if address is None:
            sys.exit("example_bigarray did not say where its data is")
        out = subprocess.run([floor, str(p.pid), address, str(count * 8), "2", str(runs)],
                             capture_output=True, text=True, timeout=600)
        if out.returncode != 0:
            sys.exit("bench_read_floor failed: %s" % out.stderr)
        for line in out.stdout.splitlines():
            if line.startswith("floor run"):
                print("  " + line)
        m = re.search(r"floor: median=([0-9.]+)", out.stdout)
        return float(m.group(1))
    finally:
        p.kill()
        p.wait()


def case_live(build, count, runs, report):
    program = os.path.join(build, "bin", "example_bigarray")
    location = break_location(build, "bigarray.big")
    print("live: %d doubles (%.2f GiB) in a stopped process" % (count, count * 8 / 2**30))
    # Each run of ours next to a run of the floor, so that both see the same
    # load of the machine.
    times, floors, answer = [], [], None
    for i in range(runs):
        t, answer = cli_runs(build, count, 1, ["--break", location, "--", program, str(count)],
                             "live, round %d," % (i + 1))
        times += t
        floors.append(floor_pass(build, program, count, 1))
    ours = median(times)
    floor = median(floors)
    base, numpy_stats = run_numpy(["-ex", "break " + location, "-ex", "run", "-ex",
                                   numpy_script(), "-ex", "kill", "--args", program, str(count)])
    print("  gdb + numpy: %.3f s from the stop" % base)
    worst = compare(answer, numpy_stats)
    report.append(("live statistics, arraylens-cli (median)", ours))
    report.append(("live floor: plain 2-thread process_vm_readv pass (median)", floor))
    report.append(("live gdb + numpy", base))
    print("  arraylens-cli / floor: %.2fx on the medians (%.3f s / %.3f s), runs: %s; "
          "target at most 0.2 s: %s"
          % (ours / floor, ours, floor,
             ", ".join("%.2fx" % (t / f) for t, f in zip(times, floors)),
             "met" if ours <= 0.2 else "NOT met"))
    print("  (gdb + numpy) / arraylens-cli: %.1fx" % (base / ours))
    return worst


def case_core(build, count, runs, report, core_dir):
    program = os.path.join(build, "bin", "example_bigarray")
    location = break_location(build, "bigarray.big")
    need = count * 8 + (64 << 20)
    free = shutil.disk_usage(core_dir).free
    if free < 2 * need:
        print("core: skipped, %.1f GiB free in %s, %.1f GiB needed"
              % (free / 2**30, core_dir, 2 * need / 2**30))
        return 0.0
    work = tempfile.mkdtemp(prefix="arraylens-bench-core-", dir=core_dir)
    core = os.path.join(work, "bigarray.core")
    try:
        started = time.perf_counter()
        p = subprocess.run(["gdb", "-q", "-nx", "-batch", "-ex", "set confirm off",
                            "-ex", "break " + location, "-ex", "run", "-ex", "gcore " + core,
                            "-ex", "kill", "--args", program, str(count)],
                           capture_output=True, text=True, timeout=1800)
        if not os.path.exists(core):
            sys.exit("gcore made no core:\n%s\n%s" % (p.stdout, p.stderr))
        print("core: %d doubles (%.2f GiB) from a core of %.2f GiB (made in %.1f s)"
              % (count, count * 8 / 2**30, os.path.getsize(core) / 2**30,
                 time.perf_counter() - started))
        # Warm page cache: both sides read a file the cache holds.
        with open(core, "rb") as f:
            while f.read(16 << 20):
                pass
        times, answer = cli_runs(build, count, runs, ["--core", core, "--", program], "core")
        ours = median(times)
        base, numpy_stats = run_numpy([program, core, "-ex", numpy_script()])
        print("  gdb + numpy on the core: %.3f s" % base)
        worst = compare(answer, numpy_stats)
        report.append(("core statistics, arraylens-cli (median)", ours))
        report.append(("core gdb + numpy", base))
        print("  (gdb + numpy) / arraylens-cli: %.1fx; target at most 1 s: %s"
              % (base / ours, "met" if ours <= 1.0 else "NOT met"))
        return worst
    finally:
        shutil.rmtree(work, ignore_errors=True)


def case_engine(build, pattern):
    candidates = [os.path.join(build, "bin", "bench_engine"),
                  os.path.join(build, "bench", "engine", "bench_engine")]
    engine = next((c for c in candidates if os.path.exists(c)), None)
    if engine is None:
        print("engine: skipped, bench_engine is not built (needs Google benchmark)")
        return
    print("engine: bench_engine --benchmark_filter=%s" % pattern)
    p = subprocess.run([engine, "--benchmark_filter=" + pattern], capture_output=True, text=True,
                       timeout=3600)
    sys.stdout.write(p.stdout)
    if "Failed to match any benchmarks" in p.stdout + p.stderr:
        print("  no benchmark of bench_engine matches %s" % pattern)
    elif p.returncode != 0:
        sys.exit("bench_engine failed: %s" % p.stderr)


def case_eval(build):
    """The time to resolve a Fortran component, as bench_describe.py (the
    evaluation's own benchmark, beside this script) measures and prints it."""
    script = os.path.join(HERE, "bench_describe.py")
    if not os.path.exists(script):
        print("eval: skipped, %s is not there" % script)
        return
    print("eval: %s" % script)
    p = subprocess.run([sys.executable, script, build], capture_output=True, text=True,
                       timeout=1800)
    sys.stdout.write(p.stdout)
    if p.returncode != 0:
        sys.exit("bench_describe.py failed: %s" % p.stderr)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("build")
    parser.add_argument("count", nargs="?", type=int, default=1 << 27)
    parser.add_argument("runs", nargs="?", type=int, default=3)
    parser.add_argument("--cases", default="live,core,engine,eval")
    parser.add_argument("--engine-filter",
                        default="[Ii]nt64|BM_Statistics/whole|BM_LiveStatistics")
    parser.add_argument("--core-dir", default=tempfile.gettempdir())
    a = parser.parse_args()
    build = os.path.abspath(a.build)
    cases = a.cases.split(",")
    print("%d cores; medians of %d runs" % (os.cpu_count(), a.runs))
    report, worst = [], 0.0
    if "live" in cases:
        worst = max(worst, case_live(build, a.count, a.runs, report))
    if "core" in cases:
        worst = max(worst, case_core(build, a.count, a.runs, report, a.core_dir))
    if "engine" in cases:
        case_engine(build, a.engine_filter)
    if "eval" in cases:
        case_eval(build)
    if report:
        print("summary:")
        for name, seconds in report:
            print("  %-60s %8.3f s" % (name, seconds))
        print("  largest relative difference from numpy: %.3g" % worst)


if __name__ == "__main__":
    main()
