/* A big array of doubles for the benchmarks: N values (default 2^27, that is
 * 1 GiB) behind a heap pointer, shown as `*data@N`. It stops once, at the
 * line marked "arraylens-break: big", with the data filled.
 *
 * Usage: example_bigarray [N]
 *
 * It writes no reference file: computing exact quantiles of a gigabyte the
 * plain way would take longer than the benchmark itself. The benchmark
 * compares with numpy over the same memory instead.
 */
#include <stdio.h>
#include <stdlib.h>

#include "reference.h"

void arraylens_break(size_t count) {
    static volatile size_t seen;
    (void)seen;
    seen = count;
}

int main(int argc, char** argv) {
    const size_t count = argc > 1 ? (size_t)strtoull(argv[1], NULL, 10) : (size_t)1 << 27;
    double* data = malloc(count * sizeof *data);
    ref_rng rng = {20261123u};
    size_t i;
    if (!data) {
        perror("malloc");
        return 2;
    }
    /* Values in [-500, 500) with a coarse grid of exact zeros. */
    for (i = 0; i < count; ++i)
        data[i] = (i % 4096 == 0) ? 0.0 : ref_next_unit(&rng) * 1000.0 - 500.0;
    fprintf(stderr, "bigarray: %zu doubles at %p\n", count, (void*)data);
    arraylens_break(count); /* arraylens-break: big */
    free(data);
    return 0;
}
