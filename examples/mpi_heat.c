/* Heat spreading across a plate, computed by an MPI job.
 *
 * The plate of NY x 64 cells is cut into horizontal bands, one per rank.
 * Each rank holds its band with one ghost row above and one below, which it
 * fills from its neighbours before every step (MPI_Sendrecv). The plate's
 * rim is cooled to 0 degrees, two heaters hold patches at fixed
 * temperatures, and every step each inner cell moves toward the average of
 * its four neighbours (explicit Euler, Jacobi style).
 *
 * Every REPORT steps all ranks compute the plate's total heat together
 * (MPI_Allreduce), each rank writes its own band to its reference file, and
 * then stops at the line marked "arraylens-break: report" (all ranks), where
 * `u[1]@nloc` is the rank's band (`double [nloc][64]`). Rank 0 then prints
 * the total on the line marked "arraylens-break: summary" (rank 0 alone).
 *
 * Usage: mpi_heat REFERENCE_PREFIX [NY [STEPS [REPORT]]]
 * Rank r writes REFERENCE_PREFIX.rank<r>: "step=", "rank=", "rows=",
 * "cols=", "first_row=" lines, then "values=" and the band's values in row
 * order, one per line, printed with 17 significant digits.
 * A band needs at least two rows: a rank that would get fewer stops the job
 * with MPI_Abort.
 */
#include <mpi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define NX 64

/* A place to stop: every rank calls it at every report. */
void arraylens_break(int step) {
    static volatile int stops;
    stops = stops + 1;
    (void)step;
}

struct heater {
    int row, col, radius;
    double temperature;
};

static const struct heater heaters[] = {
    {10, 20, 5, 100.0},
    {30, 44, 7, 80.0},
};

/* Holds the heaters' cells of this band at their temperatures. */
static void apply_heaters(double (*u)[NX], int first_row, int nloc, int ny) {
    size_t h;
    int i, j;
    for (h = 0; h < sizeof heaters / sizeof heaters[0]; ++h) {
        const struct heater* e = &heaters[h];
        const int row = e->row * ny / 48; /* heaters scale with the plate */
        for (i = 1; i <= nloc; ++i) {
            const int gi = first_row + i - 1;
            for (j = 0; j < NX; ++j)
                if ((gi - row) * (gi - row) + (j - e->col) * (j - e->col) <= e->radius * e->radius)
                    u[i][j] = e->temperature;
        }
    }
}

/* The rim of the plate: the first and last global rows, the outer columns. */
static void cool_rim(double (*u)[NX], int first_row, int nloc, int ny) {
    int i, j;
    for (i = 1; i <= nloc; ++i) {
        const int gi = first_row + i - 1;
        u[i][0] = u[i][NX - 1] = 0.0;
        if (gi == 0 || gi == ny - 1)
            for (j = 0; j < NX; ++j)
                u[i][j] = 0.0;
    }
}

static void exchange_ghosts(double (*u)[NX], int nloc, int up, int down) {
    /* My first row goes up, the row below my band comes from below; then the
     * other way round. */
    MPI_Sendrecv(u[1], NX, MPI_DOUBLE, up, 0, u[nloc + 1], NX, MPI_DOUBLE, down, 0,
                 MPI_COMM_WORLD, MPI_STATUS_IGNORE);
    MPI_Sendrecv(u[nloc], NX, MPI_DOUBLE, down, 1, u[0], NX, MPI_DOUBLE, up, 1, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
}

static void write_reference(const char* prefix, int rank, int step, double (*u)[NX], int nloc,
                            int first_row) {
    char path[4096];
    FILE* f;
    int i, j;
    snprintf(path, sizeof path, "%s.rank%d", prefix, rank);
    f = fopen(path, "w");
    if (!f) {
        perror(path);
        return;
    }
    fprintf(f, "step=%d\nrank=%d\nrows=%d\ncols=%d\nfirst_row=%d\nvalues=\n", step, rank, nloc,
            NX, first_row);
    for (i = 1; i <= nloc; ++i)
        for (j = 0; j < NX; ++j)
            fprintf(f, "%.17g\n", u[i][j]);
    fclose(f);
}

int main(int argc, char** argv) {
    int rank, size, ny, steps, report, nloc, first_row, up, down, step, i, j;
    double (*u)[NX], (*next)[NX], (*swap)[NX];
    double local_heat, total_heat;
    const double alpha = 0.2;
    const char* prefix;

    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    prefix = argc > 1 ? argv[1] : "mpi_heat";
    ny = argc > 2 ? atoi(argv[2]) : 48;
    steps = argc > 3 ? atoi(argv[3]) : 100;
    report = argc > 4 ? atoi(argv[4]) : 50;
    if (report < 1)
        report = 1;

    /* Bands of NY / size rows; the first NY % size ranks take one more. */
    nloc = ny / size + (rank < ny % size ? 1 : 0);
    first_row = rank * (ny / size) + (rank < ny % size ? rank : ny % size);
    if (nloc < 2) {
        fprintf(stderr, "rank %d: a band of %d rows is too thin; use fewer ranks\n", rank, nloc);
        MPI_Abort(MPI_COMM_WORLD, 3);
    }
    up = rank > 0 ? rank - 1 : MPI_PROC_NULL;
    down = rank < size - 1 ? rank + 1 : MPI_PROC_NULL;

    u = calloc((size_t)(nloc + 2), sizeof *u);
    next = calloc((size_t)(nloc + 2), sizeof *next);
    if (!u || !next)
        MPI_Abort(MPI_COMM_WORLD, 2);
    for (i = 1; i <= nloc; ++i)
        for (j = 0; j < NX; ++j)
            u[i][j] = 20.0;
    apply_heaters(u, first_row, nloc, ny);
    cool_rim(u, first_row, nloc, ny);

    for (step = 1; step <= steps; ++step) {
        exchange_ghosts(u, nloc, up, down);
        for (i = 1; i <= nloc; ++i) {
            next[i][0] = u[i][0];
            next[i][NX - 1] = u[i][NX - 1];
            for (j = 1; j < NX - 1; ++j)
                next[i][j] = u[i][j] + alpha * (u[i - 1][j] + u[i + 1][j] + u[i][j - 1] +
                                                u[i][j + 1] - 4.0 * u[i][j]);
        }
        swap = u;
        u = next;
        next = swap;
        apply_heaters(u, first_row, nloc, ny);
        cool_rim(u, first_row, nloc, ny);

        if (step % report == 0) {
            local_heat = 0.0;
            for (i = 1; i <= nloc; ++i)
                for (j = 0; j < NX; ++j)
                    local_heat += u[i][j];
            MPI_Allreduce(&local_heat, &total_heat, 1, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
            write_reference(prefix, rank, step, u, nloc, first_row);
            arraylens_break(step); /* arraylens-break: report */
            if (rank == 0)
                printf("step %d: total heat %.6g\n", step, total_heat); /* arraylens-break: summary */
        }
    }

    free(u);
    free(next);
    MPI_Finalize();
    return 0;
}
