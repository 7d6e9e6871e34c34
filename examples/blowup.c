/* Heat spreading across a plate with a time step that is too large.
 *
 * The explicit step u += r * (sum of the four neighbours - 4 u) is stable
 * only for r <= 1/4; this program takes r = 1/2, the limit of a
 * one-dimensional rod, a classic slip when a 1-D code is extended to 2-D.
 * The smooth initial bump decays at first, but the chequerboard part of the
 * small measurement noise in the initial data grows by a factor of almost 3
 * each step, until the values overflow to infinity and, one step later,
 * infinity minus infinity gives the first NaN.
 *
 * Every REPORT_EVERY steps the program stops at its breakpoint (the line
 * marked "arraylens-break: blowup"). It writes its own statistics of `u`
 * for each stop, the growth factor per step of the fastest-growing mode,
 * the step at which the first NaN appeared and, at every stop that has
 * NaN, where the first one is in row-major order; and every value of `u`
 * at the first stop and at the first stop with NaN.
 *
 *   example_blowup [REFERENCE | -] [STEPS [ROWS COLS [REPORT_EVERY [RATE]]]]
 *
 * "-" writes no reference file (for the benchmarks: computing the
 * reference statistics of a large plate costs far more than a step). RATE
 * replaces the step's 1/2; at 1/4 or below the scheme is stable.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "reference.h"

/* A place to stop: the program calls it at every report. */
void arraylens_break(int step) {
    static volatile int stops;
    stops = stops + 1;
    (void)step;
}

/* Every value of u in row-major order, in text that reads back exactly. */
static void write_values(FILE* ref, const double* u, size_t n) {
    size_t i;
    fputs("u.values=", ref);
    for (i = 0; i < n; ++i) {
        if (i)
            fputc(',', ref);
        ref_put_double(ref, u[i]);
    }
    fputc('\n', ref);
}

/* The first NaN in row-major order; 0 when there is none. */
static int first_nan(const double* u, int rows, int cols, int* row, int* col) {
    int r, c;
    for (r = 0; r < rows; ++r)
        for (c = 0; c < cols; ++c)
            if (isnan(u[(size_t)r * cols + c])) {
                *row = r;
                *col = c;
                return 1;
            }
    return 0;
}

int main(int argc, char** argv) {
    const double pi = 3.14159265358979323846;
    /* By default twice the stable limit of 1/4. */
    const double rate = argc > 6 ? atof(argv[6]) : 0.5;
    int steps = argc > 2 ? atoi(argv[2]) : 1000;
    int rows = argc > 4 ? atoi(argv[3]) : 40;
    int cols = argc > 4 ? atoi(argv[4]) : 60;
    int every = argc > 5 ? atoi(argv[5]) : 20;
    const int write_ref = !(argc > 1 && strcmp(argv[1], "-") == 0);
    FILE* ref = write_ref ? ref_open(argc, argv, "blowup", "c") : NULL;
    double* u = malloc((size_t)rows * cols * sizeof *u);
    double* next = malloc((size_t)rows * cols * sizeof *next);
    ref_rng noise = {2026};
    int nan_step = 0, nan_row = -1, nan_col = -1;
    int step, r, c;
    double growth;

    if (!u || !next || rows < 3 || cols < 3 || steps < 0 || every < 1)
        return 1;
    /* The fastest mode of the discrete Laplacian with the rim held at 0:
     * the highest wave number in each direction. */
    growth = fabs(1.0 - rate * (4.0 * pow(sin(pi * (rows - 2) / (2.0 * (rows - 1))), 2) +
                                4.0 * pow(sin(pi * (cols - 2) / (2.0 * (cols - 1))), 2)));
    if (ref) {
        fprintf(ref, "rows=%d\ncols=%d\nreport_every=%d\n", rows, cols, every);
        fprintf(ref, "growth_per_step=%.17g\n", growth);
    }

    for (r = 0; r < rows; ++r)
        for (c = 0; c < cols; ++c) {
            const double y = (r - rows / 2.0) / rows, x = (c - cols / 2.0) / cols;
            const int rim = r == 0 || c == 0 || r == rows - 1 || c == cols - 1;
            u[(size_t)r * cols + c] =
                rim ? 0.0 : 100.0 * exp(-20.0 * (x * x + y * y)) + 1e-6 * ref_next_unit(&noise);
        }

    for (step = 1; step <= steps; ++step) {
        for (r = 1; r < rows - 1; ++r)
            for (c = 1; c < cols - 1; ++c) {
                const size_t i = (size_t)r * cols + c;
                next[i] = u[i] + rate * (u[i - cols] + u[i + cols] + u[i - 1] + u[i + 1] - 4.0 * u[i]);
            }
        for (r = 1; r < rows - 1; ++r)
            memcpy(&u[(size_t)r * cols + 1], &next[(size_t)r * cols + 1],
                   (size_t)(cols - 2) * sizeof *u);
        if (!nan_step && first_nan(u, rows, cols, &nan_row, &nan_col)) {
            nan_step = step;
            if (ref)
                fprintf(ref, "nan_step=%d\nnan_step.first=[%d][%d]\n", step, nan_row, nan_col);
        }

        if (step % every == 0) {
            if (ref) {
                char bounds[64], expr[64];
                fprintf(ref, "stop=%d\nstep=%d\n", step / every, step);
                snprintf(bounds, sizeof bounds, "0:%d,0:%d", rows - 1, cols - 1);
                snprintf(expr, sizeof expr, "*(double(*)[%d][%d])u", rows, cols);
                ref_array(ref, "u", expr, REF_DOUBLE, u, (size_t)rows * cols, bounds);
                if (first_nan(u, rows, cols, &r, &c))
                    fprintf(ref, "u.first_nan=[%d][%d]\n", r, c);
                /* All values at the first stop and at the first one with NaN. */
                if (step == every || (nan_step && nan_step > step - every))
                    write_values(ref, u, (size_t)rows * cols);
                ref_elem(ref, "u", "[1][1]", REF_DOUBLE, &u[(size_t)cols + 1]);
                fflush(ref);
            }
            arraylens_break(step); /* arraylens-break: blowup */
        }
    }

    if (ref)
        ref_close(ref);
    free(next);
    free(u);
    return 0;
}
