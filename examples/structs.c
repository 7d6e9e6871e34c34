/* Arrays as C codes hold them: behind pointers in structures, with their
 * lengths in other members.
 *
 * A finite-volume setup on a small unstructured mesh, written the way such
 * codes are: a sparse matrix in compressed-row form whose values are
 * `*A->list_of_vals@A->local_nnz`, a domain with per-region element counts
 * `*domain.m_regElemSize@domain.m_numReg`, a structured block reached
 * through a pointer to rows `*blk->rows@blk->ny`, a ghost layer this rank
 * does not have (length 0) and a node count not computed yet (-1), a
 * residual history whose values follow its header (`double v[]`, shown as
 * `*hist->v@hist->n`), and a pool of scratch blocks handed out by
 * next_block(), which counts its calls in `blocks_handed_out`.
 *
 * The program writes its reference values, then stops once, in main, at the
 * line marked "arraylens-break: main".
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "reference.h"

void arraylens_break(const char* where) {
    static volatile int stops;
    stops = stops + 1;
    (void)where;
}

/* ---- a sparse matrix in compressed-row form ---- */
typedef struct {
    int n_rows;           /* rows owned here */
    int local_nnz;        /* nonzeros in those rows */
    int* row_start;       /* n_rows + 1 offsets into col_index and list_of_vals */
    int* col_index;       /* local_nnz column numbers */
    double* list_of_vals; /* local_nnz values */
    void* solver_data;    /* whatever the preconditioner keeps */
} csr_matrix;

/* ---- a mesh domain split into regions ---- */
typedef struct {
    int m_numElem;
    int m_numReg;
    int* m_regElemSize; /* m_numReg counts, summing to m_numElem */
    int* m_regNumList;  /* region of each element */
    double* m_e;        /* energy per element */
    int m_numGhost;     /* ghost elements of this rank: none here */
    double* m_ghostE;
    int m_numNode; /* -1 until the node list is built */
    double* m_nodalMass;
} domain_t;

/* ---- a structured block: ny rows of NX cells ---- */
#define NX 12
typedef struct {
    int ny;
    double (*rows)[NX];
} block_t;

/* ---- a solver's residual history: its values follow the header ---- */
typedef struct {
    int n;
    double v[];
} history_t;

/* ---- scratch blocks for a solver's work vectors ---- */
#define POOL_BLOCKS 64
#define BLOCK_LEN 16
static double pool[POOL_BLOCKS][BLOCK_LEN];
int blocks_handed_out;

/* The next scratch block, round robin; counts every call. */
double* next_block(void) {
    double* b = pool[blocks_handed_out % POOL_BLOCKS];
    ++blocks_handed_out;
    return b;
}

/* The 5-point Laplacian of an nx x ny grid with Dirichlet boundaries:
 * 4 on the diagonal, -1 to each neighbour inside the grid. */
static csr_matrix* assemble_laplacian(int nx, int ny) {
    csr_matrix* A = malloc(sizeof *A);
    int i, j, k = 0;
    A->n_rows = nx * ny;
    A->local_nnz = 5 * nx * ny - 2 * nx - 2 * ny;
    A->row_start = malloc((size_t)(A->n_rows + 1) * sizeof(int));
    A->col_index = malloc((size_t)A->local_nnz * sizeof(int));
    A->list_of_vals = malloc((size_t)A->local_nnz * sizeof(double));
    for (j = 0; j < ny; ++j) {
        for (i = 0; i < nx; ++i) {
            const int row = j * nx + i;
            A->row_start[row] = k;
            if (j > 0) {
                A->col_index[k] = row - nx;
                A->list_of_vals[k++] = -1.0;
            }
            if (i > 0) {
                A->col_index[k] = row - 1;
                A->list_of_vals[k++] = -1.0;
            }
            A->col_index[k] = row;
            /* A variable coefficient keeps the diagonal from being constant. */
            A->list_of_vals[k++] = 4.0 + 0.01 * sin(0.1 * row);
            if (i < nx - 1) {
                A->col_index[k] = row + 1;
                A->list_of_vals[k++] = -1.0;
            }
            if (j < ny - 1) {
                A->col_index[k] = row + nx;
                A->list_of_vals[k++] = -1.0;
            }
        }
    }
    A->row_start[A->n_rows] = k;
    A->solver_data = A->list_of_vals;
    if (k != A->local_nnz) {
        fprintf(stderr, "assembled %d nonzeros, expected %d\n", k, A->local_nnz);
        exit(3);
    }
    return A;
}

static void build_domain(domain_t* d, int numReg, int numElem) {
    int r, e;
    unsigned seed = 12345u;
    d->m_numElem = numElem;
    d->m_numReg = numReg;
    d->m_regElemSize = calloc((size_t)numReg, sizeof(int));
    d->m_regNumList = malloc((size_t)numElem * sizeof(int));
    d->m_e = malloc((size_t)numElem * sizeof(double));
    /* Elements fall into regions at random, so the regions differ in size
     * as a material decomposition makes them. */
    for (e = 0; e < numElem; ++e) {
        seed = seed * 1103515245u + 12345u;
        r = (int)((seed >> 16) % (unsigned)numReg);
        d->m_regNumList[e] = r;
        d->m_regElemSize[r]++;
        d->m_e[e] = 1.0e3 * (1 + r) + (double)((seed >> 8) % 1000) / 7.0;
    }
    d->m_numGhost = 0;
    d->m_ghostE = malloc(1); /* a valid pointer to nothing */
    d->m_numNode = -1;
    d->m_nodalMass = NULL;
}

static char* bounds_of(int n) {
    static char text[32];
    snprintf(text, sizeof text, "0:%d", n - 1);
    return text;
}

int main(int argc, char** argv) {
    FILE* ref = ref_open(argc, argv, "structs_c", "c");
    csr_matrix* A = assemble_laplacian(36, 20);
    domain_t domain;
    block_t block, *blk = &block;
    history_t* hist = malloc(sizeof *hist + 25 * sizeof(double));
    char name[64];
    int i, j;

    build_domain(&domain, 11, 500);
    blk->ny = 7;
    blk->rows = malloc((size_t)blk->ny * sizeof *blk->rows);
    for (j = 0; j < blk->ny; ++j)
        for (i = 0; i < NX; ++i)
            blk->rows[j][i] = (j - 3) * 0.5 + i * i * 0.125;
    for (j = 0; j < POOL_BLOCKS; ++j)
        for (i = 0; i < BLOCK_LEN; ++i)
            pool[j][i] = j + i / 16.0;
    /* Residuals of a converging iteration. */
    hist->n = 25;
    for (i = 0; i < hist->n; ++i)
        hist->v[i] = pow(0.6, i) * (1.0 + 0.1 * cos(i));

    fprintf(ref, "stop=main\n");
    ref_array(ref, "vals", "*A->list_of_vals@A->local_nnz", REF_DOUBLE, A->list_of_vals,
              (size_t)A->local_nnz, bounds_of(A->local_nnz));
    ref_elem(ref, "vals", "[0]", REF_DOUBLE, &A->list_of_vals[0]);
    ref_elem(ref, "vals", "[2]", REF_DOUBLE, &A->list_of_vals[2]);
    snprintf(name, sizeof name, "[%d]", A->local_nnz - 1);
    ref_elem(ref, "vals", name, REF_DOUBLE, &A->list_of_vals[A->local_nnz - 1]);
    ref_array(ref, "cols", "*A->col_index@A->local_nnz", REF_INT, A->col_index,
              (size_t)A->local_nnz, bounds_of(A->local_nnz));
    ref_elem(ref, "cols", "[7]", REF_INT, &A->col_index[7]);
    ref_array(ref, "rowstart", "A->row_start[0]@A->n_rows+1", REF_INT, A->row_start,
              (size_t)A->n_rows + 1, bounds_of(A->n_rows + 1));
    ref_elem(ref, "rowstart", "[720]", REF_INT, &A->row_start[720]);
    ref_array(ref, "regsize", "*domain.m_regElemSize@domain.m_numReg", REF_INT,
              domain.m_regElemSize, (size_t)domain.m_numReg, bounds_of(domain.m_numReg));
    ref_elem(ref, "regsize", "[0]", REF_INT, &domain.m_regElemSize[0]);
    ref_elem(ref, "regsize", "[10]", REF_INT, &domain.m_regElemSize[10]);
    ref_array(ref, "energy", "*domain.m_e@domain.m_numElem", REF_DOUBLE, domain.m_e,
              (size_t)domain.m_numElem, bounds_of(domain.m_numElem));
    ref_elem(ref, "energy", "[499]", REF_DOUBLE, &domain.m_e[499]);
    ref_array(ref, "rows", "*blk->rows@blk->ny", REF_DOUBLE, block.rows, (size_t)block.ny * NX,
              "0:6,0:11");
    ref_elem(ref, "rows", "[0][0]", REF_DOUBLE, &block.rows[0][0]);
    ref_elem(ref, "rows", "[2][5]", REF_DOUBLE, &block.rows[2][5]);
    ref_elem(ref, "rows", "[6][11]", REF_DOUBLE, &block.rows[6][11]);
    ref_array(ref, "residuals", "*hist->v@hist->n", REF_DOUBLE, hist->v, (size_t)hist->n,
              bounds_of(hist->n));
    ref_elem(ref, "residuals", "[24]", REF_DOUBLE, &hist->v[24]);
    fprintf(ref, "counts.local_nnz=%d\n", A->local_nnz);
    fprintf(ref, "counts.m_numReg=%d\n", domain.m_numReg);
    fprintf(ref, "counts.m_numGhost=%d\n", domain.m_numGhost);
    fprintf(ref, "counts.m_numNode=%d\n", domain.m_numNode);
    fprintf(ref, "counts.blocks_handed_out=%d\n", blocks_handed_out);
    ref_close(ref);

    arraylens_break("main"); /* arraylens-break: main */

    /* A solver step would use the scratch blocks here. */
    i = blocks_handed_out;
    printf("handed out %d blocks before the solver; first value %g\n", i, next_block()[0]);
    free(A->list_of_vals);
    free(A->col_index);
    free(A->row_start);
    free(A);
    free(domain.m_regElemSize);
    free(domain.m_regNumList);
    free(domain.m_e);
    free(domain.m_ghostE);
    free(block.rows);
    free(hist);
    return 0;
}
