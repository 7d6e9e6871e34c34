/* Heat spreading across a metal plate.
 *
 * The plate starts at room temperature. Three heaters hold small patches at
 * fixed temperatures, the rim is cooled to 0 degrees, and every step each
 * inner cell moves a little toward the average of its four neighbours.
 * Every 20 steps the program stops at its breakpoint (the line marked
 * "arraylens-break: heat"), so you can look at `plate`, `centre_row` or
 * `*average_history@step`, continue, and watch the heat spread.
 */
#include <stdio.h>
#include <stdlib.h>

#include "reference.h"

#define ROWS 48
#define COLS 64
#define STEPS 200
#define REPORT_EVERY 20

/* A place to stop: the program calls it at every report. */
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
    {12, 16, 4, 100.0},
    {30, 44, 6, 80.0},
    {38, 12, 3, 150.0},
};

static void apply_heaters(double plate[ROWS][COLS]) {
    size_t h;
    int r, c;
    for (h = 0; h < sizeof heaters / sizeof heaters[0]; ++h) {
        const struct heater* e = &heaters[h];
        for (r = e->row - e->radius; r <= e->row + e->radius; ++r)
            for (c = e->col - e->radius; c <= e->col + e->radius; ++c)
                if ((r - e->row) * (r - e->row) + (c - e->col) * (c - e->col) <=
                    e->radius * e->radius)
                    plate[r][c] = e->temperature;
    }
}

static void cool_rim(double plate[ROWS][COLS]) {
    int r, c;
    for (c = 0; c < COLS; ++c)
        plate[0][c] = plate[ROWS - 1][c] = 0.0;
    for (r = 0; r < ROWS; ++r)
        plate[r][0] = plate[r][COLS - 1] = 0.0;
}

static void write_reference(FILE* ref, int step, double plate[ROWS][COLS], const double* centre_row,
                            const double* average_history) {
    fprintf(ref, "stop=%d\n", step / REPORT_EVERY);
    fprintf(ref, "step=%d\n", step);
    ref_array(ref, "plate", "plate", REF_DOUBLE, plate, ROWS * COLS, "0:47,0:63");
    ref_elem(ref, "plate", "[0][0]", REF_DOUBLE, &plate[0][0]);
    ref_elem(ref, "plate", "[12][16]", REF_DOUBLE, &plate[12][16]);
    ref_elem(ref, "plate", "[24][32]", REF_DOUBLE, &plate[24][32]);
    ref_elem(ref, "plate", "[20][20]", REF_DOUBLE, &plate[20][20]);
    ref_elem(ref, "plate", "[47][63]", REF_DOUBLE, &plate[47][63]);
    ref_array(ref, "centre_row", "centre_row", REF_DOUBLE, centre_row, COLS, "0:63");
    ref_elem(ref, "centre_row", "[10]", REF_DOUBLE, &centre_row[10]);
    ref_elem(ref, "centre_row", "[44]", REF_DOUBLE, &centre_row[44]);
    {
        char bounds[32];
        snprintf(bounds, sizeof bounds, "0:%d", step - 1);
        ref_array(ref, "average_history", "*average_history@step", REF_DOUBLE, average_history,
                  (size_t)step, bounds);
    }
    ref_elem(ref, "average_history", "[0]", REF_DOUBLE, &average_history[0]);
    fflush(ref);
}

int main(int argc, char** argv) {
    static double plate[ROWS][COLS]; /* temperature in degrees Celsius */
    static double next[ROWS][COLS];
    double centre_row[COLS];
    double* average_history = malloc(STEPS * sizeof *average_history);
    const double rate = 0.2; /* stable for an explicit step: below 0.25 */
    FILE* ref = ref_open(argc, argv, "heat", "c");
    int step, r, c;

    if (!average_history)
        return 1;
    for (r = 0; r < ROWS; ++r)
        for (c = 0; c < COLS; ++c)
            plate[r][c] = 20.0;
    cool_rim(plate);
    apply_heaters(plate);

    for (step = 1; step <= STEPS; ++step) {
        double total = 0.0;
        for (r = 1; r < ROWS - 1; ++r)
            for (c = 1; c < COLS - 1; ++c)
                next[r][c] =
                    plate[r][c] + rate * (plate[r - 1][c] + plate[r + 1][c] + plate[r][c - 1] +
                                          plate[r][c + 1] - 4.0 * plate[r][c]);
        for (r = 1; r < ROWS - 1; ++r)
            for (c = 1; c < COLS - 1; ++c)
                plate[r][c] = next[r][c];
        cool_rim(plate);
        apply_heaters(plate);

        for (r = 0; r < ROWS; ++r)
            for (c = 0; c < COLS; ++c)
                total += plate[r][c];
        average_history[step - 1] = total / (ROWS * COLS);

        if (step % REPORT_EVERY == 0) {
            for (c = 0; c < COLS; ++c)
                centre_row[c] = plate[ROWS / 2][c];
            write_reference(ref, step, plate, centre_row, average_history);
            printf("step %3d: plate average %.3f C, centre %.3f C\n", step,
                   average_history[step - 1], plate[24][32]);
            fflush(stdout);
            arraylens_break(step); /* arraylens-break: heat */
        }
    }

    ref_close(ref);
    free(average_history);
    return 0;
}
