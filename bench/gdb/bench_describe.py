#!/usr/bin/python3
"""From the stop to the start of the read: how long the service takes to
describe an expression before the engine reads a byte.

arraylens-cli runs example_hydro_fortran to a stop and asks for the
statistics of a Fortran allocatable component of a derived type
(chunk%field%density0), at two stops: in a routine that uses the module
(gdb knows the plain name) and in the main program (the service finds the
module itself). With ARRAYLENS_MI_TRACE every MI line carries a millisecond
clock; the figure is the time from gdb's *stopped record to the answer of
the last command that resolves the expression (memory is then read from the
process directly, without gdb).

Baseline, in the same run and the same gdb: the round trip of the
-stack-list-frames command that follows the stop, the cheapest command a
request sends. The ratio says how many such round trips describing costs;
the target is 50 ms from the stop to the read.

Usage: bench_describe.py BUILD_DIR [RUNS]
"""
import os
import re
import statistics
import subprocess
import sys

from bench_stats import break_location

TARGET_MS = 50.0
TRACE = re.compile(r"^\[mi +(\d+)\] (.) (\d*)(.*)$")


def one_run(build, stop, expression):
    """(stop to read, stack round trip, resolving commands) in ms."""
    env = dict(os.environ, ARRAYLENS_MI_TRACE="1")
    program = os.path.join(build, "bin", "example_hydro_fortran")
    args = [os.path.join(build, "bin", "arraylens-cli"), "stats", "--expr", expression,
            "--break", break_location(build, stop), "--", program, os.devnull]
    run = subprocess.run(args, env=env, capture_output=True, text=True, timeout=120)
    if run.returncode != 0:
        sys.exit("arraylens-cli failed: " + run.stderr[-2000:])
    stopped = None
    sent = {}
    stack = None
    last = None
    commands = 0
    for line in run.stderr.splitlines():
        m = TRACE.match(line)
        if not m:
            continue
        clock, direction, token, body = int(m.group(1)), m.group(2), m.group(3), m.group(4)
        if stopped is None:
            if direction == "<" and body.startswith('*stopped,reason="breakpoint-hit"'):
                stopped = clock
            continue
        if direction == ">" and body.startswith(("-stack-list-frames", "-interpreter-exec",
                                                 "-data-evaluate-expression")):
            sent[token] = (clock, body)
            commands += 1
        elif direction == "<" and token in sent and body.startswith("^"):
            start, command = sent[token]
            if command.startswith("-stack-list-frames") and stack is None:
                stack = clock - start
            last = clock
    if stopped is None or last is None or stack is None:
        sys.exit("no stop or no resolution in the MI trace")
    return last - stopped, stack, commands


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = sys.argv[1]
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 7
    for stop, where in (("hydro_f90.ideal_gas", "routine that uses the module"),
                        ("hydro_f90.main", "main program, module found by the service")):
        results = [one_run(build, stop, "chunk%field%density0") for _ in range(runs)]
        latency = statistics.median(r[0] for r in results)
        stack = statistics.median(r[1] for r in results)
        commands = results[0][2]
        print("%-45s stop to read %6.1f ms (median of %d; min %d, max %d), %d MI commands; "
              "stack round trip %.1f ms, ratio %.1f; target %.0f ms: %s" %
              (where, latency, runs, min(r[0] for r in results), max(r[0] for r in results),
               commands, stack, latency / max(stack, 1.0), TARGET_MS,
               "met" if latency <= TARGET_MS else "NOT met"))


if __name__ == "__main__":
    main()
