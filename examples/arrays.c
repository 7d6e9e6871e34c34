/* C arrays of every element type and layout that Array Lens handles.
 *
 * File-scope arrays (static storage), locals of main, heap blocks behind
 * pointers, special floating-point values, and two big arrays. The program
 * writes its reference values, then stops twice:
 *   1. in main, at the line marked "arraylens-break: main";
 *   2. at the deepest call of recurse(), the line marked
 *      "arraylens-break: recursion", with four frames of recurse() on the
 *      stack, each with its own `trail` array.
 * Both lines call arraylens_break(), which can serve as a function
 * breakpoint too (then go one frame up).
 */
#include <float.h>
#include <math.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "reference.h"

void arraylens_break(const char* where) {
    static volatile int stops;
    stops = stops + 1;
    (void)where;
}

/* ---- file scope ---- */
char message[32] = "Hello, arrays!\t\"quoted\"\n";
signed char deltas[20];
unsigned char pixels[16][16];
short samples[512];
unsigned short levels[24];
int matrix[10][20];
unsigned int counters[64];
long long ticks[100];
unsigned long long hashes[8];
bool flags[40];
float cube[4][5][6];
double grid[10][20];
long double precise[12];
double specials[16];
/* The ends of the double range, for formatting; their sum of squares does
 * not fit in a double. */
double extremes[6] = {DBL_MAX, -DBL_MAX, DBL_MIN, DBL_TRUE_MIN, 1e300, -1e-300};
float fspecials[12];
long double lspecials[10];
double big2d[1000][2000]; /* 16 MB: for paging through a big table */

/* Heap blocks: show them as *big1d@1000000 or *(double(*)[1000000])big1d. */
double* big1d;
size_t big1d_count = 1000000;
int* heap_ints;
size_t heap_ints_count = 250;
float* heap_floats; /* 6 x 8 values, row after row: *(float(*)[6][8])heap_floats */

static void fill_globals(void) {
    ref_rng rng = {20240601u};
    size_t i, j, k;

    for (i = 0; i < 20; ++i)
        deltas[i] = (signed char)((int)(i * 13 % 256) - 128);
    for (i = 0; i < 16; ++i)
        for (j = 0; j < 16; ++j)
            pixels[i][j] = (unsigned char)((i * 16 + j) * 7 % 256);
    for (i = 0; i < 512; ++i)
        samples[i] = (short)lround(30000.0 * sin(2.0 * M_PI * (double)i / 64.0));
    for (i = 0; i < 24; ++i)
        levels[i] = (unsigned short)(i * 2731 % 65536);
    for (i = 0; i < 10; ++i)
        for (j = 0; j < 20; ++j)
            matrix[i][j] = (int)(i * 20 + j) - 100;
    for (i = 0; i < 64; ++i)
        counters[i] = ref_next_u32(&rng);
    for (i = 0; i < 100; ++i)
        ticks[i] = ((long long)i - 50) * 123456789012345LL;
    for (i = 0; i < 8; ++i)
        hashes[i] = 0xfedcba9876543210ULL >> i;
    for (i = 0; i < 40; ++i)
        flags[i] = (i % 3 == 0) || (i % 7 == 0);
    for (i = 0; i < 4; ++i)
        for (j = 0; j < 5; ++j)
            for (k = 0; k < 6; ++k)
                cube[i][j][k] = (float)(i * 100 + j * 10 + k) + 0.25f;
    for (i = 0; i < 10; ++i)
        for (j = 0; j < 20; ++j)
            grid[i][j] = (double)i + (double)j / 100.0;
    for (i = 0; i < 12; ++i)
        precise[i] = 1.0L / (long double)(i + 3);

    {
        /* clang-format off */
        const double d[16] = {
            0.0, -0.0,
            NAN, -NAN, __builtin_nans(""), /* quiet, negative quiet, signalling */
            INFINITY, -INFINITY,
            DBL_MIN / 4.0, -DBL_TRUE_MIN,  /* subnormals */
            DBL_MIN,                       /* the smallest normal */
            1.0, -2.5, 0.1, 1e10, -1e-10,
            0.0,
        };
        /* clang-format on */
        memcpy(specials, d, sizeof d);
    }
    {
        const float f[12] = {0.0f,          -0.0f,   NAN,     INFINITY, -INFINITY, FLT_TRUE_MIN,
                             FLT_MIN / 2.f, FLT_MIN, FLT_MAX, 3.5f,     -7.25f,    0.1f};
        memcpy(fspecials, f, sizeof f);
    }
    {
        const long double l[10] = {0.0L,     -0.0L,          NAN,      INFINITY, -INFINITY,
                                   LDBL_MIN, LDBL_MIN / 8.L, 1.0L / 3, 1e100L,   -2.5L};
        memcpy(lspecials, l, sizeof l);
    }

    for (i = 0; i < 1000; ++i)
        for (j = 0; j < 2000; ++j)
            big2d[i][j] = (double)i * 0.001 + sin((double)j * 0.01);

    big1d = malloc(big1d_count * sizeof *big1d);
    heap_ints = malloc(heap_ints_count * sizeof *heap_ints);
    heap_floats = malloc(6 * 8 * sizeof *heap_floats);
    if (!big1d || !heap_ints || !heap_floats)
        exit(1);
    for (i = 0; i < big1d_count; ++i)
        big1d[i] = ref_next_unit(&rng) * 2.0 - 1.0; /* uniform in [-1, 1) */
    for (i = 0; i < heap_ints_count; ++i)
        heap_ints[i] = (int)(ref_next_u32(&rng) % 2001) - 1000;
    for (i = 0; i < 48; ++i)
        heap_floats[i] = (float)i * 0.5f - 3.0f;
}

static void write_globals(FILE* ref) {
    ref_array(ref, "message", "message", REF_CHAR, message, 32, "0:31");
    ref_elem(ref, "message", "[0]", REF_CHAR, &message[0]);
    ref_elem(ref, "message", "[14]", REF_CHAR, &message[14]);
    ref_elem(ref, "message", "[31]", REF_CHAR, &message[31]);

    ref_array(ref, "deltas", "deltas", REF_SCHAR, deltas, 20, "0:19");
    ref_elem(ref, "deltas", "[0]", REF_SCHAR, &deltas[0]);
    ref_elem(ref, "deltas", "[19]", REF_SCHAR, &deltas[19]);

    ref_array(ref, "pixels", "pixels", REF_UCHAR, pixels, 256, "0:15,0:15");
    ref_elem(ref, "pixels", "[0][1]", REF_UCHAR, &pixels[0][1]);
    ref_elem(ref, "pixels", "[15][15]", REF_UCHAR, &pixels[15][15]);

    ref_array(ref, "samples", "samples", REF_SHORT, samples, 512, "0:511");
    ref_elem(ref, "samples", "[16]", REF_SHORT, &samples[16]);
    ref_elem(ref, "samples", "[48]", REF_SHORT, &samples[48]);

    ref_array(ref, "levels", "levels", REF_USHORT, levels, 24, "0:23");
    ref_elem(ref, "levels", "[23]", REF_USHORT, &levels[23]);

    ref_array(ref, "matrix", "matrix", REF_INT, matrix, 200, "0:9,0:19");
    ref_elem(ref, "matrix", "[0][0]", REF_INT, &matrix[0][0]);
    ref_elem(ref, "matrix", "[3][7]", REF_INT, &matrix[3][7]);
    ref_elem(ref, "matrix", "[9][19]", REF_INT, &matrix[9][19]);

    ref_array(ref, "counters", "counters", REF_UINT, counters, 64, "0:63");
    ref_elem(ref, "counters", "[0]", REF_UINT, &counters[0]);
    ref_elem(ref, "counters", "[63]", REF_UINT, &counters[63]);

    ref_array(ref, "ticks", "ticks", REF_LONGLONG, ticks, 100, "0:99");
    ref_elem(ref, "ticks", "[0]", REF_LONGLONG, &ticks[0]);
    ref_elem(ref, "ticks", "[99]", REF_LONGLONG, &ticks[99]);

    ref_array(ref, "hashes", "hashes", REF_ULONGLONG, hashes, 8, "0:7");
    ref_elem(ref, "hashes", "[0]", REF_ULONGLONG, &hashes[0]);

    ref_array(ref, "flags", "flags", REF_BOOL, flags, 40, "0:39");
    ref_elem(ref, "flags", "[0]", REF_BOOL, &flags[0]);
    ref_elem(ref, "flags", "[1]", REF_BOOL, &flags[1]);
    ref_elem(ref, "flags", "[14]", REF_BOOL, &flags[14]);

    ref_array(ref, "cube", "cube", REF_FLOAT, cube, 120, "0:3,0:4,0:5");
    ref_elem(ref, "cube", "[0][0][0]", REF_FLOAT, &cube[0][0][0]);
    ref_elem(ref, "cube", "[2][3][4]", REF_FLOAT, &cube[2][3][4]);
    ref_elem(ref, "cube", "[3][4][5]", REF_FLOAT, &cube[3][4][5]);

    ref_array(ref, "grid", "grid", REF_DOUBLE, grid, 200, "0:9,0:19");
    ref_elem(ref, "grid", "[0][0]", REF_DOUBLE, &grid[0][0]);
    ref_elem(ref, "grid", "[2][5]", REF_DOUBLE, &grid[2][5]);
    ref_elem(ref, "grid", "[9][19]", REF_DOUBLE, &grid[9][19]);

    ref_array(ref, "precise", "precise", REF_LONGDOUBLE, precise, 12, "0:11");
    ref_elem(ref, "precise", "[0]", REF_LONGDOUBLE, &precise[0]);
    ref_elem(ref, "precise", "[11]", REF_LONGDOUBLE, &precise[11]);

    ref_array(ref, "specials", "specials", REF_DOUBLE, specials, 16, "0:15");
    ref_elem(ref, "specials", "[1]", REF_DOUBLE, &specials[1]);
    ref_elem(ref, "specials", "[2]", REF_DOUBLE, &specials[2]);
    ref_elem(ref, "specials", "[6]", REF_DOUBLE, &specials[6]);
    ref_elem(ref, "specials", "[7]", REF_DOUBLE, &specials[7]);
    ref_elem(ref, "specials", "[8]", REF_DOUBLE, &specials[8]);

    ref_array(ref, "extremes", "extremes", REF_DOUBLE, extremes, 6, "0:5");
    ref_elem(ref, "extremes", "[0]", REF_DOUBLE, &extremes[0]);
    ref_elem(ref, "extremes", "[3]", REF_DOUBLE, &extremes[3]);

    ref_array(ref, "fspecials", "fspecials", REF_FLOAT, fspecials, 12, "0:11");
    ref_elem(ref, "fspecials", "[5]", REF_FLOAT, &fspecials[5]);
    ref_elem(ref, "fspecials", "[11]", REF_FLOAT, &fspecials[11]);

    ref_array(ref, "lspecials", "lspecials", REF_LONGDOUBLE, lspecials, 10, "0:9");
    ref_elem(ref, "lspecials", "[6]", REF_LONGDOUBLE, &lspecials[6]);
    ref_elem(ref, "lspecials", "[8]", REF_LONGDOUBLE, &lspecials[8]);

    ref_array(ref, "big2d", "big2d", REF_DOUBLE, big2d, 1000 * 2000, "0:999,0:1999");
    ref_elem(ref, "big2d", "[0][0]", REF_DOUBLE, &big2d[0][0]);
    ref_elem(ref, "big2d", "[500][1000]", REF_DOUBLE, &big2d[500][1000]);
    ref_elem(ref, "big2d", "[999][1999]", REF_DOUBLE, &big2d[999][1999]);

    ref_array(ref, "big1d", "*big1d@1000000", REF_DOUBLE, big1d, big1d_count, "0:999999");
    ref_elem(ref, "big1d", "[0]", REF_DOUBLE, &big1d[0]);
    ref_elem(ref, "big1d", "[123456]", REF_DOUBLE, &big1d[123456]);
    ref_elem(ref, "big1d", "[999999]", REF_DOUBLE, &big1d[999999]);

    ref_array(ref, "heap_ints", "*heap_ints@250", REF_INT, heap_ints, heap_ints_count, "0:249");
    ref_elem(ref, "heap_ints", "[0]", REF_INT, &heap_ints[0]);
    ref_elem(ref, "heap_ints", "[249]", REF_INT, &heap_ints[249]);

    ref_array(ref, "heap_floats", "*(float(*)[6][8])heap_floats", REF_FLOAT, heap_floats, 48,
              "0:5,0:7");
    ref_elem(ref, "heap_floats", "[0][0]", REF_FLOAT, &heap_floats[0]);
    ref_elem(ref, "heap_floats", "[2][3]", REF_FLOAT, &heap_floats[2 * 8 + 3]);
    ref_elem(ref, "heap_floats", "[5][7]", REF_FLOAT, &heap_floats[5 * 8 + 7]);
}

/* Every level keeps its own `trail`, so the same expression means different
 * data in each frame of recurse(). */
static int recurse(int depth, FILE* ref) {
    int trail[6];
    int i, result;
    char name[32];
    for (i = 0; i < 6; ++i)
        trail[i] = depth * 10 + i;
    /* The call with depth d has d frames of recurse() nearer the top of
     * the stack when the innermost call (depth 0) stops. */
    snprintf(name, sizeof name, "trail_depth%d", depth);
    ref_array(ref, name, "trail", REF_INT, trail, 6, "0:5");
    ref_elem(ref, name, "[5]", REF_INT, &trail[5]);
    fprintf(ref, "%s.frame=recurse\n", name);
    fprintf(ref, "%s.recursion_depth=%d\n", name, depth);
    if (depth == 0) {
        ref_close(ref);
        arraylens_break("recursion"); /* arraylens-break: recursion */
        return trail[5];
    }
    result = recurse(depth - 1, ref);
    return result + trail[0];
}

int main(int argc, char** argv) {
    /* Locals of main. */
    double local1d[8];
    int local2d[3][4];
    short local3d[2][3][4];
    unsigned char bytes[10];
    double* p = malloc(100 * sizeof *p); /* *p@100, p[0]@100, *(double(*)[100])p */
    FILE* ref = ref_open(argc, argv, "arrays_c", "c");
    int i, j, k;

    if (!p)
        return 1;
    fill_globals();
    for (i = 0; i < 8; ++i)
        local1d[i] = 1.5 * i - 2.0;
    for (i = 0; i < 3; ++i)
        for (j = 0; j < 4; ++j)
            local2d[i][j] = (i + 1) * (j - 1);
    for (i = 0; i < 2; ++i)
        for (j = 0; j < 3; ++j)
            for (k = 0; k < 4; ++k)
                local3d[i][j][k] = (short)(-(i * 100) + j * 10 + k);
    for (i = 0; i < 10; ++i)
        bytes[i] = (unsigned char)(250 + i);
    for (i = 0; i < 100; ++i)
        p[i] = sqrt((double)i);

    fprintf(ref, "stop=main\n");
    write_globals(ref);
    ref_array(ref, "local1d", "local1d", REF_DOUBLE, local1d, 8, "0:7");
    ref_elem(ref, "local1d", "[7]", REF_DOUBLE, &local1d[7]);
    ref_array(ref, "local2d", "local2d", REF_INT, local2d, 12, "0:2,0:3");
    ref_elem(ref, "local2d", "[2][3]", REF_INT, &local2d[2][3]);
    ref_array(ref, "local3d", "local3d", REF_SHORT, local3d, 24, "0:1,0:2,0:3");
    ref_elem(ref, "local3d", "[1][2][3]", REF_SHORT, &local3d[1][2][3]);
    ref_array(ref, "bytes", "bytes", REF_UCHAR, bytes, 10, "0:9");
    ref_elem(ref, "bytes", "[5]", REF_UCHAR, &bytes[5]);
    ref_array(ref, "p", "*p@100", REF_DOUBLE, p, 100, "0:99");
    ref_elem(ref, "p", "[0]", REF_DOUBLE, &p[0]);
    ref_elem(ref, "p", "[2]", REF_DOUBLE, &p[2]);
    ref_elem(ref, "p", "[99]", REF_DOUBLE, &p[99]);
    fflush(ref);

    arraylens_break("main"); /* arraylens-break: main */

    fprintf(ref, "stop=recursion\n");
    printf("recursion result %d\n", recurse(3, ref));
    free(p);
    free(big1d);
    free(heap_ints);
    free(heap_floats);
    return 0;
}
