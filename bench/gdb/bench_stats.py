#!/usr/bin/python3
"""Statistics of a 1 GiB array of doubles: arraylens-cli against gdb + numpy.

Both start from the same stop at the breakpoint of example_bigarray and
compute the same statistics over the same memory: arraylens-cli reads the
stopped process directly and computes with the engine; the baseline reads
the memory with gdb's Python read_memory and computes with numpy. The
figure that counts is the time from the stop to the answer; the ratio of
the two is printed, with the targets (at least 30 times faster, within
0.5 s).

Usage: bench_stats.py BUILD_DIR [COUNT] [RUNS]
"""
import os
import re
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))


def break_location(build, key):
    with open(os.path.join(build, "examples", "break-locations.txt")) as f:
        for line in f:
            if line.startswith(key + "="):
                return line.strip().split("=", 1)[1]
    sys.exit("no break location %s" % key)


def run_cli(build, program, location, count):
    cli = os.path.join(build, "bin", "arraylens-cli")
    args = [cli, "stats", "--expr", "*data@%d" % count, "--break", location, "--timings",
            "--", program, str(count)]
    started = time.perf_counter()
    p = subprocess.run(args, capture_output=True, text=True, timeout=900)
    wall = time.perf_counter() - started
    if p.returncode != 0:
        sys.exit("arraylens-cli failed (%d): %s" % (p.returncode, p.stderr))
    stages = dict((m.group(1).strip(), float(m.group(2)))
                  for m in re.finditer(r"timing: (.+?)\s+([0-9.]+) s", p.stderr))
    # From the stop at the breakpoint to the printed answer.
    from_stop = stages["evaluate"] + stages["request"] + stages["print"]
    import json
    return from_stop, stages, json.loads(p.stdout), wall


def run_numpy(program, location, count):
    args = ["gdb", "-q", "-nx", "-batch",
            "-ex", "set confirm off", "-ex", "break " + location, "-ex", "run",
            "-ex", "python exec(open(%r).read())" % os.path.join(HERE, "stats_numpy.py"),
            "-ex", "kill", "--args", program, str(count)]
    p = subprocess.run(args, capture_output=True, text=True, timeout=1800)
    line = next((l for l in p.stdout.splitlines() if l.startswith("numpy: ")), None)
    if line is None:
        sys.exit("the numpy baseline failed:\n%s\n%s" % (p.stdout, p.stderr))
    fields = dict(kv.split("=", 1) for kv in line[len("numpy: "):].split())
    return float(fields.pop("seconds")), fields


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = os.path.abspath(sys.argv[1])
    count = int(sys.argv[2]) if len(sys.argv) > 2 else 1 << 27
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    program = os.path.join(build, "bin", "example_bigarray")
    location = break_location(build, "bigarray.big")
    print("array: %d doubles (%.2f GiB), %d cores" % (count, count * 8 / 2**30, os.cpu_count()))

    ours = []
    for i in range(runs):
        seconds, stages, answer, wall = run_cli(build, program, location, count)
        ours.append(seconds)
        print("arraylens-cli run %d: %.3f s from the stop (evaluate %.3f, request %.3f); "
              "whole run %.1f s" % (i + 1, seconds, stages["evaluate"], stages["request"], wall))
    best = min(ours)
    median = sorted(ours)[len(ours) // 2]

    base, numpy_stats = run_numpy(program, location, count)
    print("gdb + numpy: %.3f s from the stop" % base)

    # The same numbers, or the comparison means nothing.
    pairs = [("Count", "count"), ("ZeroCount", "zeros"), ("Sum", "sum"), ("Min", "min"),
             ("Max", "max"), ("Mean", "mean"), ("StdDev", "stddev"), ("FirstQuartile", "q1"),
             ("Median", "median"), ("ThirdQuartile", "q3"), ("LowerAdjValue", "lower_adjacent"),
             ("UpperAdjValue", "upper_adjacent")]
    worst = 0.0
    for ours_key, numpy_key in pairs:
        a = float(answer[ours_key])
        b = float(numpy_stats[numpy_key])
        rel = abs(a - b) / max(abs(a), abs(b), 1e-300)
        worst = max(worst, rel)
        print("  %-14s arraylens %-24.17g numpy %-24.17g" % (ours_key, a, b))
    print("largest relative difference: %.3g" % worst)

    # The verdict takes the median run, not the luckiest one.
    ratio = base / median
    print("ratio (gdb + numpy) / arraylens-cli: %.1fx on the median of %d runs (%.3f s); "
          "%.1fx on the best (%.3f s)" % (ratio, runs, median, base / best, best))
    print("target at least 30x: %s; target within 0.5 s: %s"
          % ("met" if ratio >= 30 else "NOT met", "met" if median <= 0.5 else "NOT met"))

if __name__ == "__main__":
    main()
