/* A square membrane under load, relaxed on a grid of nodes.
 *
 * Nodes are kept as an array of structures (position and displacement), as
 * finite-element codes keep them, and the element being assembled has its
 * corners copied into a small array of the same structures. Jacobi sweeps
 * relax the displacement toward the balance of the load and the tension.
 *
 * Like a batch job, the program writes a checkpoint when it gets SIGUSR1
 * (schedulers send it before the time limit). Given a checkpoint interval
 * it raises the signal itself every that many sweeps, so that the one road
 * to a checkpoint is the signal handler's.
 *
 * Usage: example_membrane [REFERENCE [CHECKPOINT_EVERY]]
 */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "reference.h"

#define NX 9
#define NY 7
#define SWEEPS 40

struct node {
    double x, y; /* position, metres */
    double u;    /* displacement, millimetres */
};

/* The four corners of a quadrilateral element, counter-clockwise. */
typedef struct node element[4];

static volatile sig_atomic_t checkpoint_requested;

static void request_checkpoint(int signal_number) {
    (void)signal_number;
    checkpoint_requested = 1;
}

/* A place to stop: the program calls it once the membrane has settled. */
void arraylens_break(int sweep) {
    static volatile int stops;
    stops = stops + sweep;
}

static void write_checkpoint(int sweep, const struct node* nodes) {
    double largest = 0.0;
    int i;
    for (i = 0; i < NX * NY; ++i)
        if (fabs(nodes[i].u) > largest)
            largest = fabs(nodes[i].u);
    fprintf(stderr, "membrane: checkpoint at sweep %d, largest displacement %.6f mm\n", sweep,
            largest);
}

int main(int argc, char** argv) {
    static struct node nodes[NY][NX];
    double next[NY][NX];
    double displacement[NY][NX];
    element corners;
    const double h = 0.25;    /* node spacing, metres */
    const double load = -2.0; /* pressure over tension, millimetres per square metre */
    const int checkpoint_every = argc > 2 ? atoi(argv[2]) : 0;
    FILE* ref = ref_open(argc, argv, "membrane", "c");
    int sweep, r, c;

    signal(SIGUSR1, request_checkpoint);
    for (r = 0; r < NY; ++r)
        for (c = 0; c < NX; ++c) {
            nodes[r][c].x = c * h;
            nodes[r][c].y = r * h;
            nodes[r][c].u = 0.0; /* clamped rim, flat start */
        }

    for (sweep = 1; sweep <= SWEEPS; ++sweep) {
        for (r = 1; r < NY - 1; ++r)
            for (c = 1; c < NX - 1; ++c)
                next[r][c] = 0.25 * (nodes[r - 1][c].u + nodes[r + 1][c].u + nodes[r][c - 1].u +
                                     nodes[r][c + 1].u - load * h * h);
        for (r = 1; r < NY - 1; ++r)
            for (c = 1; c < NX - 1; ++c)
                nodes[r][c].u = next[r][c];
        if (checkpoint_every > 0 && sweep % checkpoint_every == 0)
            raise(SIGUSR1);
        if (checkpoint_requested) {
            checkpoint_requested = 0;
            write_checkpoint(sweep, &nodes[0][0]);
        }
    }

    /* The element at the centre of the membrane. */
    corners[0] = nodes[NY / 2][NX / 2];
    corners[1] = nodes[NY / 2][NX / 2 + 1];
    corners[2] = nodes[NY / 2 + 1][NX / 2 + 1];
    corners[3] = nodes[NY / 2 + 1][NX / 2];
    for (r = 0; r < NY; ++r)
        for (c = 0; c < NX; ++c)
            displacement[r][c] = nodes[r][c].u;

    fprintf(ref, "nodes.struct=struct node\n");
    fprintf(ref, "nodes.bounds=0:%d,0:%d\n", NY - 1, NX - 1);
    fprintf(ref, "nodes.element_size=%zu\n", sizeof nodes[0][0]);
    fprintf(ref, "corners.typedef=element\n");
    fprintf(ref, "corners.bounds=0:3\n");
    ref_array(ref, "displacement", "displacement", REF_DOUBLE, displacement, NX * NY, "0:6,0:8");
    fflush(ref);
    arraylens_break(sweep); /* arraylens-break: membrane */

    ref_close(ref);
    printf("membrane: mean displacement of the centre element %.6f mm\n",
           0.25 * (corners[0].u + corners[1].u + corners[2].u + corners[3].u));
    return 0;
}
