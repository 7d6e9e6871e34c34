# The baseline of the statistics benchmark, run by gdb's embedded Python at
# the breakpoint: read the array with gdb's read_memory and compute the same
# statistics with numpy. Prints one line of key=value pairs.
import time

import gdb
import numpy as np

count = int(gdb.parse_and_eval("count"))
address = int(gdb.parse_and_eval("data"))

start = time.perf_counter()
raw = gdb.selected_inferior().read_memory(address, count * 8)
values = np.frombuffer(raw, dtype=np.float64)
finite_mask = np.isfinite(values)
nans = int(np.isnan(values).sum())
infs = int(np.isinf(values).sum())
zeros = int((values == 0).sum())
finite = values[finite_mask]
tiny = np.finfo(np.float64).tiny
denormals = int(((finite != 0) & (np.abs(finite) < tiny)).sum())
total = float(finite.sum())
low = float(finite.min())
high = float(finite.max())
mean = float(finite.mean())
std = float(finite.std())
q1, median, q3 = (float(x) for x in np.percentile(finite, [25, 50, 75]))
iqr = q3 - q1
lower_adjacent = float(finite[finite >= q1 - 1.5 * iqr].min())
upper_adjacent = float(finite[finite <= q3 + 1.5 * iqr].max())
elapsed = time.perf_counter() - start

print(
    "numpy: seconds=%.6f count=%d zeros=%d nans=%d infs=%d denormals=%d sum=%.17g min=%.17g "
    "max=%.17g mean=%.17g stddev=%.17g q1=%.17g median=%.17g q3=%.17g lower_adjacent=%.17g "
    "upper_adjacent=%.17g"
    % (elapsed, values.size, zeros, nans, infs, denormals, total, low, high, mean, std, q1,
       median, q3, lower_adjacent, upper_adjacent)
)
