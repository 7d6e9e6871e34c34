/* Composite Gauss-Legendre quadrature of a heat-flux profile over a rod cut
 * into panels, with a 16-point rule on each panel.
 *
 * The rule's nodes and weights are a constant table (`gauss_rule`, in the
 * program's read-only data). The samples of every panel live in one block
 * of memory mapped for them (`samples`, PANELS x 16 doubles). The panels
 * of the rod's fixed ends are set once, from the boundary condition, and
 * then write-protected, so that a stray write into them faults at once
 * instead of spoiling the integral; the interior panels are recomputed each
 * sweep. The block is then two regions of memory with different
 * protections, side by side, and `samples` lies across both.
 *
 * It stops once, at the line marked "arraylens-break: integral", with the
 * samples of the last sweep and the panel integrals in place.
 *
 * Usage: example_quadrature [REFERENCE_FILE]
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "reference.h"

#define POINTS 16
#define PANELS 1024
#define SWEEPS 3

/* Nodes on [-1, 1] and their weights. */
static const double gauss_rule[POINTS][2] = {
    {-0.9894009349916499, 0.027152459411754037}, {-0.9445750230732326, 0.062253523938647706},
    {-0.8656312023878318, 0.09515851168249259},  {-0.755404408355003, 0.12462897125553403},
    {-0.6178762444026438, 0.14959598881657676},  {-0.45801677765722737, 0.16915651939500262},
    {-0.2816035507792589, 0.1826034150449236},   {-0.09501250983763745, 0.18945061045506859},
    {0.09501250983763745, 0.18945061045506859},  {0.2816035507792589, 0.1826034150449236},
    {0.45801677765722737, 0.16915651939500262},  {0.6178762444026438, 0.14959598881657676},
    {0.755404408355003, 0.12462897125553403},    {0.8656312023878318, 0.09515851168249259},
    {0.9445750230732326, 0.062253523938647706},  {0.9894009349916499, 0.027152459411754037},
};

void arraylens_break(int sweep) {
    static volatile int seen;
    (void)seen;
    seen = sweep;
}

/* Heat flux along the rod at position x in [0, 1] and time t. */
static double flux(double x, double t) {
    return exp(-t) * sin(M_PI * x) + 0.05 * cos(40.0 * M_PI * x) * exp(-4.0 * t);
}

static void sample_panel(double* panel, int p, double t) {
    const double a = (double)p / PANELS, h = 1.0 / PANELS;
    int k;
    for (k = 0; k < POINTS; ++k)
        panel[k] = flux(a + 0.5 * h * (gauss_rule[k][0] + 1.0), t);
}

int main(int argc, char** argv) {
    const long page = sysconf(_SC_PAGESIZE);
    const size_t bytes = (size_t)PANELS * POINTS * sizeof(double);
    /* The fixed ends: whole pages from the start of the block. */
    const size_t frozen_bytes = (bytes / 4) / (size_t)page * (size_t)page;
    const int frozen_panels = (int)(frozen_bytes / (POINTS * sizeof(double)));
    double(*samples)[POINTS];
    double panel_integral[PANELS];
    double total = 0.0;
    FILE* ref = ref_open(argc, argv, "quadrature", "c");
    int sweep, p, k;

    samples = mmap(NULL, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (samples == MAP_FAILED) {
        perror("mmap");
        return 2;
    }
    for (p = 0; p < frozen_panels; ++p)
        sample_panel(samples[p], p, 0.0);
    if (mprotect(samples, frozen_bytes, PROT_READ) != 0) {
        perror("mprotect");
        return 2;
    }

    for (sweep = 1; sweep <= SWEEPS; ++sweep) {
        const double t = 0.1 * sweep;
        total = 0.0;
        for (p = frozen_panels; p < PANELS; ++p)
            sample_panel(samples[p], p, t);
        for (p = 0; p < PANELS; ++p) {
            double s = 0.0;
            for (k = 0; k < POINTS; ++k)
                s += gauss_rule[k][1] * samples[p][k];
            panel_integral[p] = 0.5 * s / PANELS;
            total += panel_integral[p];
        }
    }

    ref_array(ref, "samples", "*samples@1024", REF_DOUBLE, samples, (size_t)PANELS * POINTS,
              "0:1023,0:15");
    ref_array(ref, "gauss_rule", "gauss_rule", REF_DOUBLE, gauss_rule, POINTS * 2, "0:15,0:1");
    ref_array(ref, "panel_integral", "panel_integral", REF_DOUBLE, panel_integral, PANELS,
              "0:1023");
    fprintf(ref, "frozen_panels=%d\n", frozen_panels);
    fflush(ref);
    printf("integral of the flux over the rod: %.15g\n", total);
    fflush(stdout);
    arraylens_break(sweep); /* arraylens-break: integral */

    ref_close(ref);
    munmap(samples, bytes);
    return 0;
}
