# The floors of the trace benchmark, run by gdb's embedded Python; neither
# reads the array. The environment gives LOCATION, STOPS and MODE:
#   hook:     a breakpoint whose stop hook does nothing and lets the program
#             go on. What remains beyond the program's own time is gdb's own
#             cost of a hit (the trap, ptrace, putting the instruction back
#             and stepping over it) and what the stops cost the program.
#   continue: the program stopped at the breakpoint and continued, STOPS
#             times, as the numpy baseline does but without its work: the
#             cost of a whole stop as gdb reports one.
# Prints the stops and the seconds from the first to the last.
import os
import time

import gdb

mode = os.environ.get("MODE", "hook")
stops = int(os.environ["STOPS"])


class Hook(gdb.Breakpoint):
    def __init__(self, location):
        super().__init__(location, internal=True)
        self.hits = 0
        self.first = self.last = None

    def stop(self):
        now = time.perf_counter()
        if self.first is None:
            self.first = now
        self.last = now
        self.hits += 1
        return False


if mode == "hook":
    hook = Hook(os.environ["LOCATION"])
    gdb.execute("run", to_string=True)
    print("floor: stops=%d seconds=%.6f" % (hook.hits, (hook.last or 0) - (hook.first or 0)))
else:
    gdb.execute("break " + os.environ["LOCATION"], to_string=True)
    gdb.execute("run", to_string=True)
    start = time.perf_counter()
    for stop in range(2, stops + 1):
        gdb.execute("continue", to_string=True)
    print("floor: stops=%d seconds=%.6f" % (stops, time.perf_counter() - start))
