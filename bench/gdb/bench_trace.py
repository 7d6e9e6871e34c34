#!/usr/bin/python3
"""A trace of 1,000 stops over 10^6 doubles: arraylens-cli trace against a
gdb Python script that does the same with read_memory and numpy.

The program is example_blowup on a 1000 x 1000 plate with a stable time
step, stopping after every step. Runs in the same session: the program
alone (its own time for the steps), arraylens-cli trace --stops N (the time
from the first stop to the last line, from --timings), gdb with
trace_numpy.py (the same span, timed by the script), and the two floors of
trace_floor.py, which do no work at a stop at all: a breakpoint whose
Python stop hook lets the program go on at once (gdb's own cost of a hit,
and what being stopped costs the program: after each stop its own steps
run slower, from cold caches and TLB), and a stop and continue as gdb
reports one. The figure that counts is the time per stop beyond the
program's own run: (span - program's time) / stops. Targets: at most 20 ms
per stop, and at least 20 times faster than the script. The hook floor
bounds the second: no tool that stops the program can be more than
(script's cost / floor's cost) times faster than the script.

arraylens-cli overlaps: at each stop it copies the plate out of the stopped
program, lets it go on, and computes the statistics on the copy while the
program runs its next step (on the other core). All stops but the first and
the last are handled inside gdb: a breakpoint condition hands the stop's
frame and the describer's line to arraylens-cli over a local socket and
lets the program go on once the plate is copied, with no MI stop, continue
or describe. The lines are the same as those of a trace that computes each
stop before it continues (gdb.TraceOverlap checks it). The script's work is
the same as ever: read_memory, sixteen statistics with numpy, continue.

The program's own time is taken before the traced runs and once more after
them, and the smaller is used: on a shared machine a run that happens to
be slow would otherwise be credited to the stops.

Usage: bench_trace.py BUILD_DIR [STOPS] [ROWS COLS]
"""
import os
import re
import subprocess
import sys
import time

from bench_stats import break_location

HERE = os.path.dirname(os.path.abspath(__file__))


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = os.path.abspath(sys.argv[1])
    stops = int(sys.argv[2]) if len(sys.argv) > 2 else 1000
    rows = int(sys.argv[3]) if len(sys.argv) > 4 else 1000
    cols = int(sys.argv[4]) if len(sys.argv) > 4 else 1000
    program = os.path.join(build, "bin", "example_blowup")
    location = break_location(build, "blowup.blowup")
    # A stable step (rate 0.2), so that every stop has a million finite
    # values to work on rather than a plate of NaN.
    args = ["-", str(stops), str(rows), str(cols), "1", "0.2"]
    print("trace: %d stops over %d doubles, %d cores" % (stops, rows * cols, os.cpu_count()))

    # The program's own time for the steps between the first stop and the
    # last: a run of all the steps less a run of one (which has the set-up).
    def alone_run(steps):
        started = time.perf_counter()
        subprocess.run([program, "-", str(steps)] + args[2:], check=True, capture_output=True)
        return time.perf_counter() - started
    one = min(alone_run(1) for _ in range(3))
    alone_before = alone_run(stops) - one

    cli = os.path.join(build, "bin", "arraylens-cli")
    expr = "*(double(*)[%d][%d])u" % (rows, cols)
    p = subprocess.run([cli, "trace", "--expr", expr, "--stops", str(stops), "--break", location,
                        "--timings", "--"] + [program] + args,
                       capture_output=True, text=True, timeout=3600)
    if p.returncode != 0:
        sys.exit("arraylens-cli failed (%d): %s" % (p.returncode, p.stderr[-2000:]))
    lines = [l for l in p.stdout.splitlines() if l.strip()]
    if len(lines) != stops:
        sys.exit("arraylens-cli traced %d stops, not %d" % (len(lines), stops))
    stages = dict((m.group(1).strip(), float(m.group(2)))
                  for m in re.finditer(r"timing: (.+?)\s+([0-9.]+) s", p.stderr))
    ours = stages["trace"]

    env = dict(os.environ, ROWS=str(rows), COLS=str(cols), STOPS=str(stops))
    q = subprocess.run(["gdb", "-q", "-nx", "-batch", "-ex", "set confirm off",
                        "-ex", "set pagination off", "-ex", "break " + location, "-ex", "run",
                        "-ex", "python exec(open(%r).read())" % os.path.join(HERE, "trace_numpy.py"),
                        "-ex", "kill", "--args", program] + args,
                       capture_output=True, text=True, timeout=7200, env=env)
    line = next((l for l in q.stdout.splitlines() if l.startswith("numpy: ")), None)
    if line is None:
        sys.exit("the numpy baseline failed:\n%s\n%s" % (q.stdout[-2000:], q.stderr[-2000:]))
    base = float(line.split("seconds=")[1])
    traced = sum(1 for l in q.stdout.splitlines() if l.startswith("stop="))

    alone_after = alone_run(stops) - one
    alone = min(alone_before, alone_after)
    print("program alone: %.3f s for %d steps (%.2f ms a step; %.3f s before the traced runs, "
          "%.3f s after)" % (alone, stops - 1, 1e3 * alone / max(stops - 1, 1), alone_before,
                            alone_after))

    floors = {}
    for mode in ("hook", "continue"):
        env = dict(os.environ, LOCATION=location, STOPS=str(stops), MODE=mode)
        f = subprocess.run(["gdb", "-q", "-nx", "-batch", "-ex", "set confirm off",
                            "-ex", "set pagination off",
                            "-ex", "python exec(open(%r).read())"
                            % os.path.join(HERE, "trace_floor.py"),
                            "-ex", "kill", "--args", program] + args,
                           capture_output=True, text=True, timeout=3600, env=env)
        fl = next((l for l in f.stdout.splitlines() if l.startswith("floor: ")), None)
        if fl is None:
            sys.exit("the %s floor failed:\n%s\n%s" % (mode, f.stdout[-2000:], f.stderr[-2000:]))
        n = int(re.search(r"stops=(\d+)", fl).group(1))
        floors[mode] = (float(fl.split("seconds=")[1]) - alone) / max(n - 1, 1)

    # The program ran its steps inside every span; what is left is the cost
    # of the stops.
    per_ours = (ours - alone) / stops
    per_base = (base - alone) / stops
    print("arraylens-cli trace: %.3f s from the first stop to the last line, "
          "%.2f ms a stop beyond the program" % (ours, 1e3 * per_ours))
    print("gdb + numpy (%d stops): %.3f s, %.2f ms a stop beyond the program"
          % (traced, base, 1e3 * per_base))
    print("floor, a Python stop hook that goes on at once: %.2f ms a stop beyond the program"
          % (1e3 * floors["hook"]))
    print("floor, gdb stop and continue doing nothing: %.2f ms a stop beyond the program"
          % (1e3 * floors["continue"]))
    ratio = per_base / per_ours if per_ours > 0 else float("inf")
    print("ratio per stop (gdb + numpy) / arraylens-cli: %.1fx" % ratio)
    if floors["hook"] > 0:
        print("the most any stopping tool could reach against the script: %.1fx "
              "(gdb + numpy / hook floor)" % (per_base / floors["hook"]))
    print("target at most 20 ms a stop: %s; target at least 20x: %s"
          % ("met" if per_ours <= 0.020 else "NOT met", "met" if ratio >= 20 else "NOT met"))


if __name__ == "__main__":
    main()
