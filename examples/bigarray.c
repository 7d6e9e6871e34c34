/* A big array of doubles for the benchmarks: N values (default 2^27, that is
 * 1 GiB) behind a heap pointer, shown as `*data@N`. It stops once, at the
 * line marked "arraylens-break: big", with the data filled.
 *
 * Usage: example_bigarray [N [wait]]
 *
 * With "wait" it then sleeps for up to a minute instead of ending, so that
 * a debugger can attach to it; `data` and `count` are file-scope, so that
 * they are in scope in whatever frame an attach stops.
 *
 * It writes no reference file: computing exact quantiles of a gigabyte the
 * plain way would take longer than the benchmark itself. The benchmark
 * compares with numpy over the same memory instead.
 */
#include <stdio.h>
#include <stdlib.h>

#include <string.h>
#include <unistd.h>

#include "reference.h"

double* data;
size_t count;

void arraylens_break(size_t n) {
    static volatile size_t seen;
    (void)seen;
    seen = n;
}

int main(int argc, char** argv) {
    int waits = 0;
    count = argc > 1 ? (size_t)strtoull(argv[1], NULL, 10) : (size_t)1 << 27;
    data = malloc(count * sizeof *data);
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
    if (argc > 2 && strcmp(argv[2], "wait") == 0) {
        fprintf(stderr, "bigarray: waiting\n");
        while (waits++ < 60)
            sleep(1);
    }
    free(data);
    return 0;
}
