/* Reference values written by the example programs themselves.
 *
 * The integration tests compare what Array Lens computes against numbers
 * that do not come from Array Lens: each example works them out from its own
 * arrays, with this straightforward code, and writes them as key=value lines
 * (format in README.md) before it stops at its breakpoint.
 *
 * Header-only and plain C so that the C and C++ examples share it.
 */
#ifndef ARRAYLENS_EXAMPLES_REFERENCE_H
#define ARRAYLENS_EXAMPLES_REFERENCE_H

#include <float.h>
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    REF_CHAR, /* plain char (signed on x86-64) */
    REF_SCHAR,
    REF_UCHAR,
    REF_SHORT,
    REF_USHORT,
    REF_INT,
    REF_UINT,
    REF_LONGLONG,
    REF_ULONGLONG,
    REF_BOOL,
    REF_FLOAT,
    REF_DOUBLE,
    REF_LONGDOUBLE
} ref_kind;

static inline const char* ref_kind_name(ref_kind k) {
    switch (k) {
    case REF_CHAR:
        return "char";
    case REF_SCHAR:
        return "signed char";
    case REF_UCHAR:
        return "unsigned char";
    case REF_SHORT:
        return "short";
    case REF_USHORT:
        return "unsigned short";
    case REF_INT:
        return "int";
    case REF_UINT:
        return "unsigned int";
    case REF_LONGLONG:
        return "long long";
    case REF_ULONGLONG:
        return "unsigned long long";
    case REF_BOOL:
        return "bool";
    case REF_FLOAT:
        return "float";
    case REF_DOUBLE:
        return "double";
    case REF_LONGDOUBLE:
        return "long double";
    }
    return "?";
}

static inline int ref_is_float(ref_kind k) {
    return k == REF_FLOAT || k == REF_DOUBLE || k == REF_LONGDOUBLE;
}

static inline int ref_is_unsigned(ref_kind k) {
    return k == REF_UCHAR || k == REF_USHORT || k == REF_UINT || k == REF_ULONGLONG ||
           k == REF_BOOL;
}

/* Element i, widened without loss: long double holds every value of every
 * kind here exactly (64-bit significand). */
static inline long double ref_load(ref_kind k, const void* data, size_t i) {
    switch (k) {
    case REF_CHAR:
        return ((const char*)data)[i];
    case REF_SCHAR:
        return ((const signed char*)data)[i];
    case REF_UCHAR:
        return ((const unsigned char*)data)[i];
    case REF_SHORT:
        return ((const short*)data)[i];
    case REF_USHORT:
        return ((const unsigned short*)data)[i];
    case REF_INT:
        return ((const int*)data)[i];
    case REF_UINT:
        return ((const unsigned*)data)[i];
    case REF_LONGLONG:
        return (long double)((const long long*)data)[i];
    case REF_ULONGLONG:
        return (long double)((const unsigned long long*)data)[i];
    case REF_BOOL:
        return ((const unsigned char*)data)[i] != 0; /* bool is one byte */
    case REF_FLOAT:
        return ((const float*)data)[i];
    case REF_DOUBLE:
        return ((const double*)data)[i];
    case REF_LONGDOUBLE:
        return ((const long double*)data)[i];
    }
    return 0;
}

/* Classified in the element's own type: a float subnormal is a normal double. */
static inline int ref_classify(ref_kind k, const void* data, size_t i) {
    switch (k) {
    case REF_FLOAT:
        return fpclassify(((const float*)data)[i]);
    case REF_DOUBLE:
        return fpclassify(((const double*)data)[i]);
    case REF_LONGDOUBLE:
        return fpclassify(((const long double*)data)[i]);
    default:
        return ref_load(k, data, i) == 0 ? FP_ZERO : FP_NORMAL;
    }
}

static inline size_t ref_elem_size(ref_kind k) {
    switch (k) {
    case REF_CHAR:
    case REF_SCHAR:
    case REF_UCHAR:
    case REF_BOOL:
        return 1;
    case REF_SHORT:
    case REF_USHORT:
        return 2;
    case REF_INT:
    case REF_UINT:
    case REF_FLOAT:
        return 4;
    case REF_LONGLONG:
    case REF_ULONGLONG:
    case REF_DOUBLE:
        return 8;
    case REF_LONGDOUBLE:
        return sizeof(long double);
    }
    return 1;
}

/* Doubles with 17 significant digits (they read back exactly); non-finite
 * values as nan, inf, -inf. */
static inline void ref_put_double(FILE* f, double v) {
    if (isnan(v))
        fputs("nan", f);
    else if (isinf(v))
        fputs(v < 0 ? "-inf" : "inf", f);
    else
        fprintf(f, "%.17g", v);
}

/* A value of the element's kind, exactly. */
static inline void ref_put_value(FILE* f, ref_kind k, long double v) {
    if (!ref_is_float(k)) {
        if (ref_is_unsigned(k))
            fprintf(f, "%llu", (unsigned long long)v);
        else
            fprintf(f, "%lld", (long long)v);
    } else if (isnan(v)) {
        fputs("nan", f);
    } else if (isinf(v)) {
        fputs(v < 0 ? "-inf" : "inf", f);
    } else if (k == REF_FLOAT) {
        fprintf(f, "%.9g", (double)v);
    } else if (k == REF_DOUBLE) {
        fprintf(f, "%.17g", (double)v);
    } else {
        fprintf(f, "%.21Lg", v);
    }
}

static inline int ref_compare(const void* a, const void* b) {
    const long double x = *(const long double*)a;
    const long double y = *(const long double*)b;
    return (x > y) - (x < y);
}

/* Quantile with linear interpolation between the closest ranks. */
static inline long double ref_quantile(const long double* sorted, size_t n, double p) {
    const long double h = (long double)(n - 1) * p;
    const size_t lo = (size_t)floorl(h);
    if (lo + 1 >= n)
        return sorted[n - 1];
    return sorted[lo] + (h - (long double)lo) * (sorted[lo + 1] - sorted[lo]);
}

/* Opens the reference output: the file named by $ARRAYLENS_REFERENCE, else
 * the first program argument, else standard output. */
static inline FILE* ref_open(int argc, char** argv, const char* program, const char* language) {
    const char* path = getenv("ARRAYLENS_REFERENCE");
    FILE* f = stdout;
    if ((!path || !*path) && argc > 1)
        path = argv[1];
    if (path && *path) {
        f = fopen(path, "w");
        if (!f) {
            perror(path);
            exit(2);
        }
    }
    fprintf(f, "# Array Lens reference values\n");
    fprintf(f, "program=%s\n", program);
    fprintf(f, "language=%s\n", language);
    return f;
}

static inline void ref_close(FILE* f) {
    fputs("end\n", f);
    if (f == stdout)
        fflush(f);
    else
        fclose(f);
}

/* Statistics of `count` elements of kind k stored contiguously at `data`.
 * `expr` is the gdb expression that shows the array, `bounds` the lo:hi of
 * each dimension in declaration order ("0:9,0:19"). */
static inline void ref_array(FILE* f, const char* name, const char* expr, ref_kind k,
                             const void* data, size_t count, const char* bounds) {
    size_t zeros = 0, nans = 0, infs = 0, denormals = 0, finite = 0, i;
    long double* values = (long double*)malloc((count ? count : 1) * sizeof(long double));
    if (!values) {
        perror("malloc");
        exit(2);
    }
    for (i = 0; i < count; ++i) {
        const int c = ref_classify(k, data, i);
        if (c == FP_NAN) {
            ++nans;
            continue;
        }
        if (c == FP_INFINITE) {
            ++infs;
            continue;
        }
        if (c == FP_ZERO)
            ++zeros;
        if (c == FP_SUBNORMAL)
            ++denormals;
        values[finite++] = ref_load(k, data, i);
    }

    fprintf(f, "array=%s\n", name);
    fprintf(f, "%s.expr=%s\n", name, expr);
    fprintf(f, "%s.type=%s\n", name, ref_kind_name(k));
    fprintf(f, "%s.element_size=%zu\n", name, ref_elem_size(k));
    fprintf(f, "%s.bounds=%s\n", name, bounds);
    fprintf(f, "%s.count=%zu\n", name, count);
    fprintf(f, "%s.finite=%zu\n", name, finite);
    fprintf(f, "%s.zeros=%zu\n", name, zeros);
    fprintf(f, "%s.nans=%zu\n", name, nans);
    fprintf(f, "%s.infs=%zu\n", name, infs);
    fprintf(f, "%s.denormals=%zu\n", name, denormals);

    if (finite > 0) {
        long double sum = 0, comp = 0, mean, squares = 0, q1, q3, iqr, lowFence, highFence;
        long double minimum = values[0], maximum = values[0], lowerAdj, upperAdj;
        size_t j;
        if (ref_is_float(k)) {
            /* Neumaier's compensated sum in extended precision. */
            for (i = 0; i < finite; ++i) {
                const long double t = sum + values[i];
                if (fabsl(sum) >= fabsl(values[i]))
                    comp += (sum - t) + values[i];
                else
                    comp += (values[i] - t) + sum;
                sum = t;
            }
            sum += comp;
        }
        fprintf(f, "%s.sum=", name);
        if (ref_is_float(k)) {
            ref_put_double(f, (double)sum);
        } else if (ref_is_unsigned(k)) {
            unsigned __int128 s = 0;
            for (i = 0; i < finite; ++i)
                s += (unsigned long long)values[i];
            sum = (long double)s;
            if (s <= (unsigned __int128)UINT64_MAX)
                fprintf(f, "%llu", (unsigned long long)s);
            else
                ref_put_double(f, (double)s);
        } else {
            __int128 s = 0;
            for (i = 0; i < finite; ++i)
                s += (long long)values[i];
            sum = (long double)s;
            if (s >= (__int128)INT64_MIN && s <= (__int128)INT64_MAX)
                fprintf(f, "%lld", (long long)s);
            else
                ref_put_double(f, (double)s);
        }
        fputc('\n', f);

        for (i = 1; i < finite; ++i) {
            if (values[i] < minimum)
                minimum = values[i];
            if (values[i] > maximum)
                maximum = values[i];
        }
        mean = sum / (long double)finite;
        for (i = 0; i < finite; ++i)
            squares += (values[i] - mean) * (values[i] - mean);

        qsort(values, finite, sizeof(long double), ref_compare);
        q1 = ref_quantile(values, finite, 0.25);
        q3 = ref_quantile(values, finite, 0.75);
        iqr = q3 - q1;
        lowFence = q1 - 1.5L * iqr;
        highFence = q3 + 1.5L * iqr;
        lowerAdj = values[0];
        for (j = 0; j < finite; ++j) {
            if (values[j] >= lowFence) {
                lowerAdj = values[j];
                break;
            }
        }
        upperAdj = values[finite - 1];
        for (j = finite; j-- > 0;) {
            if (values[j] <= highFence) {
                upperAdj = values[j];
                break;
            }
        }

        fprintf(f, "%s.min=", name);
        ref_put_value(f, ref_is_float(k) ? REF_DOUBLE : k, minimum);
        fprintf(f, "\n%s.max=", name);
        ref_put_value(f, ref_is_float(k) ? REF_DOUBLE : k, maximum);
        fprintf(f, "\n%s.mean=", name);
        ref_put_double(f, (double)mean);
        fprintf(f, "\n%s.stddev=", name);
        ref_put_double(f, (double)sqrtl(squares / (long double)finite));
        fprintf(f, "\n%s.q1=", name);
        ref_put_double(f, (double)q1);
        fprintf(f, "\n%s.median=", name);
        ref_put_double(f, (double)ref_quantile(values, finite, 0.5));
        fprintf(f, "\n%s.q3=", name);
        ref_put_double(f, (double)q3);
        fprintf(f, "\n%s.lower_adjacent=", name);
        ref_put_value(f, ref_is_float(k) ? REF_DOUBLE : k, lowerAdj);
        fprintf(f, "\n%s.upper_adjacent=", name);
        ref_put_value(f, ref_is_float(k) ? REF_DOUBLE : k, upperAdj);
        fputc('\n', f);
    }
    free(values);
}

/* One chosen element: `index` in C syntax within the array that `expr`
 * shows ("[2][5]"), `element` its address. */
static inline void ref_elem(FILE* f, const char* name, const char* index, ref_kind k,
                            const void* element) {
    fprintf(f, "%s.elem%s=", name, index);
    ref_put_value(f, k, ref_load(k, element, 0));
    fputc('\n', f);
}

/* Every element, in the order the array lists them (first index slowest,
 * whatever the storage order), comma-separated on one line as the Fortran
 * side writes them: for tests that check each value or work out their own
 * statistics. */
static inline void ref_values(FILE* f, const char* name, ref_kind k, const void* data,
                              size_t count) {
    size_t i;
    fprintf(f, "%s.values=", name);
    for (i = 0; i < count; ++i) {
        if (i > 0)
            fputc(',', f);
        ref_put_value(f, k, ref_load(k, data, i));
    }
    fputc('\n', f);
}

/* A fixed-seed generator (64-bit LCG, Knuth's MMIX constants) so the data
 * is the same on every run and every machine. */
typedef struct {
    uint64_t state;
} ref_rng;

static inline uint32_t ref_next_u32(ref_rng* r) {
    r->state = r->state * 6364136223846793005ULL + 1442695040888963407ULL;
    return (uint32_t)(r->state >> 32);
}

/* Uniform in [0, 1), 32 random bits. */
static inline double ref_next_unit(ref_rng* r) {
    return ref_next_u32(r) / 4294967296.0;
}

#ifdef __cplusplus
}
#endif

#endif
