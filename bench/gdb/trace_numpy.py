# The baseline of the trace benchmark, run by gdb's embedded Python: at each
# stop read the plate with gdb's read_memory and compute the same sixteen
# statistics with numpy (the checksum with the system's libxxhash through
# ctypes, as the engine's is XXH3-64), then continue. Prints one line per
# stop and a closing line with the seconds from the first stop to the last
# answer. The environment gives ROWS, COLS and STOPS.
import ctypes
import os
import time

import gdb
import numpy as np

rows = int(os.environ["ROWS"])
cols = int(os.environ["COLS"])
stops = int(os.environ["STOPS"])
xxh = ctypes.CDLL("libxxhash.so.0")
xxh.XXH3_64bits.restype = ctypes.c_uint64
xxh.XXH3_64bits.argtypes = [ctypes.c_void_p, ctypes.c_size_t]
tiny = np.finfo(np.float64).tiny


def statistics(values):
    finite = values[np.isfinite(values)]
    out = {"count": values.size, "zeros": int((values == 0).sum()),
           "nans": int(np.isnan(values).sum()), "infs": int(np.isinf(values).sum()),
           "checksum": xxh.XXH3_64bits(values.ctypes.data, values.nbytes)}
    if finite.size:
        q1, median, q3 = np.percentile(finite, [25, 50, 75])
        iqr = q3 - q1
        out.update(denormals=int(((finite != 0) & (np.abs(finite) < tiny)).sum()),
                   sum=float(finite.sum()), min=float(finite.min()), max=float(finite.max()),
                   mean=float(finite.mean()), std=float(finite.std()), q1=float(q1),
                   median=float(median), q3=float(q3),
                   lower_adjacent=float(finite[finite >= q1 - 1.5 * iqr].min()),
                   upper_adjacent=float(finite[finite <= q3 + 1.5 * iqr].max()))
    return out


start = time.perf_counter()
for stop in range(1, stops + 1):
    address = int(gdb.parse_and_eval("u"))
    raw = gdb.selected_inferior().read_memory(address, rows * cols * 8)
    s = statistics(np.frombuffer(raw, dtype=np.float64))
    print("stop=%d nans=%d max=%r" % (stop, s["nans"], s.get("max")))
    if stop < stops:
        gdb.execute("continue", to_string=True)
print("numpy: seconds=%.6f" % (time.perf_counter() - start))
