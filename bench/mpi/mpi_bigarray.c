/* Every rank of an MPI job holds N doubles (default 2^25, 256 MiB) behind
 * a heap pointer, filled like example_bigarray's values but from a seed of
 * its own: the benchmark's job, shown as `*data@count`. It stops once, at
 * the line marked "arraylens-break: big", with the data filled.
 *
 * Usage: mpi_bigarray [N]
 */
#include <mpi.h>
#include <stdio.h>
#include <stdlib.h>

#include "reference.h"

double* data;
size_t count;

void arraylens_break(size_t n) {
    static volatile size_t seen;
    (void)seen;
    seen = n;
}

int main(int argc, char** argv) {
    int rank;
    size_t i;
    ref_rng rng;
    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    count = argc > 1 ? (size_t)strtoull(argv[1], NULL, 10) : (size_t)1 << 25;
    data = malloc(count * sizeof *data);
    if (!data)
        MPI_Abort(MPI_COMM_WORLD, 2);
    rng.state = 20261123u + 7919u * (unsigned)rank;
    /* Values in [-500, 500) with a coarse grid of exact zeros. */
    for (i = 0; i < count; ++i)
        data[i] = (i % 4096 == 0) ? 0.0 : ref_next_unit(&rng) * 1000.0 - 500.0;
    MPI_Barrier(MPI_COMM_WORLD);
    arraylens_break(count); /* arraylens-break: big */
    free(data);
    MPI_Finalize();
    return 0;
}
