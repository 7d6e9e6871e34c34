// C++ arrays: members of classes, a namespace, std::array and std::vector,
// references to arrays, arrays behind `new`, and bool. The program writes its
// reference values, then stops twice:
//   1. in main, at the line marked "arraylens-break: main";
//   2. inside the member function Matrix::scale(), at the line marked
//      "arraylens-break: member", where `cells` is this->cells.
// Both lines call arraylens_break(), usable as a function breakpoint too.
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

#include "reference.h"

extern "C" void arraylens_break(const char* where) {
    static volatile int stops;
    stops = stops + 1;
    (void)where;
}

namespace lab {
double readings[24];
short offsets[3][4] = {{-3, -2, -1, 0}, {1, 2, 3, 4}, {5, 6, 7, 8}};
} // namespace lab

class Matrix {
public:
    float cells[8][8];
    unsigned int hits[8];

    void fill() {
        for (int r = 0; r < 8; ++r) {
            hits[r] = static_cast<unsigned>(r * r * 1000u);
            for (int c = 0; c < 8; ++c)
                cells[r][c] = static_cast<float>(r == c ? 1.0 : 1.0 / (1 + r + c));
        }
    }

    void scale(float factor, FILE* ref) {
        for (auto& row : cells)
            for (float& v : row)
                v *= factor;
        fprintf(ref, "stop=member\n");
        ref_array(ref, "cells", "cells", REF_FLOAT, cells, 64, "0:7,0:7");
        ref_elem(ref, "cells", "[0][0]", REF_FLOAT, &cells[0][0]);
        ref_elem(ref, "cells", "[2][5]", REF_FLOAT, &cells[2][5]);
        ref_array(ref, "this_hits", "this->hits", REF_UINT, hits, 8, "0:7");
        ref_elem(ref, "this_hits", "[7]", REF_UINT, &hits[7]);
        ref_close(ref);
        arraylens_break("member"); // arraylens-break: member
    }
};

template <typename T, std::size_t N> static T total(const T (&values)[N]) {
    T sum = T();
    for (const T& v : values)
        sum += v;
    return sum;
}

int main(int argc, char** argv) {
    FILE* ref = ref_open(argc, argv, "arrays_cpp", "c++");
    ref_rng rng = {7u};

    for (int i = 0; i < 24; ++i)
        lab::readings[i] = 20.0 + 5.0 * std::sin(i * M_PI / 12.0);
    const double(&day)[24] = lab::readings; // a reference to an array

    Matrix m;
    m.fill();

    std::array<int, 12> months{};
    for (int i = 0; i < 12; ++i)
        months[i] = (i + 1) * 100 - 650;

    std::vector<double> wave(5000);
    for (std::size_t i = 0; i < wave.size(); ++i)
        wave[i] = std::cos(i * 0.002) * std::exp(-(double)i / 2500.0);

    bool switches[2][5];
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 5; ++j)
            switches[i][j] = (i + j) % 2 == 0;

    unsigned char rgb[4][3] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {128, 128, 128}};
    char name[12] = "Array Lens";
    long long big[6] = {-9000000000000000000LL, -1, 0, 1, 123456789012LL, 9000000000000000000LL};

    long double* lds = new long double[30]; // *lds@30
    for (int i = 0; i < 30; ++i)
        lds[i] = std::sqrt(static_cast<long double>(i)) / 3.0L;

    int* noise = new int[1000]; // *noise@1000, *(int(*)[1000])noise
    for (int i = 0; i < 1000; ++i)
        noise[i] = static_cast<int>(ref_next_u32(&rng) % 201u) - 100;

    std::printf("readings total %.3f, offsets total %d\n", total(lab::readings),
                total(lab::offsets[1]));

    fprintf(ref, "stop=main\n");
    ref_array(ref, "readings", "lab::readings", REF_DOUBLE, lab::readings, 24, "0:23");
    ref_elem(ref, "readings", "[6]", REF_DOUBLE, &lab::readings[6]);
    ref_elem(ref, "readings", "[18]", REF_DOUBLE, &lab::readings[18]);
    ref_array(ref, "day", "day", REF_DOUBLE, day, 24, "0:23");
    ref_elem(ref, "day", "[0]", REF_DOUBLE, &day[0]);
    ref_array(ref, "offsets", "lab::offsets", REF_SHORT, lab::offsets, 12, "0:2,0:3");
    ref_elem(ref, "offsets", "[2][1]", REF_SHORT, &lab::offsets[2][1]);
    ref_array(ref, "m_cells", "m.cells", REF_FLOAT, m.cells, 64, "0:7,0:7");
    ref_elem(ref, "m_cells", "[0][0]", REF_FLOAT, &m.cells[0][0]);
    ref_elem(ref, "m_cells", "[2][5]", REF_FLOAT, &m.cells[2][5]);
    ref_array(ref, "m_hits", "m.hits", REF_UINT, m.hits, 8, "0:7");
    ref_elem(ref, "m_hits", "[7]", REF_UINT, &m.hits[7]);
    ref_array(ref, "months", "months._M_elems", REF_INT, months.data(), 12, "0:11");
    ref_elem(ref, "months", "[0]", REF_INT, &months[0]);
    ref_elem(ref, "months", "[11]", REF_INT, &months[11]);
    ref_array(ref, "wave", "*wave._M_impl._M_start@5000", REF_DOUBLE, wave.data(), wave.size(),
              "0:4999");
    ref_elem(ref, "wave", "[0]", REF_DOUBLE, &wave[0]);
    ref_elem(ref, "wave", "[2500]", REF_DOUBLE, &wave[2500]);
    ref_elem(ref, "wave", "[4999]", REF_DOUBLE, &wave[4999]);
    ref_array(ref, "switches", "switches", REF_BOOL, switches, 10, "0:1,0:4");
    ref_elem(ref, "switches", "[0][0]", REF_BOOL, &switches[0][0]);
    ref_elem(ref, "switches", "[1][0]", REF_BOOL, &switches[1][0]);
    ref_array(ref, "rgb", "rgb", REF_UCHAR, rgb, 12, "0:3,0:2");
    ref_elem(ref, "rgb", "[3][1]", REF_UCHAR, &rgb[3][1]);
    ref_array(ref, "name", "name", REF_CHAR, name, 12, "0:11");
    ref_elem(ref, "name", "[0]", REF_CHAR, &name[0]);
    ref_array(ref, "big", "big", REF_LONGLONG, big, 6, "0:5");
    ref_elem(ref, "big", "[0]", REF_LONGLONG, &big[0]);
    ref_elem(ref, "big", "[5]", REF_LONGLONG, &big[5]);
    ref_array(ref, "lds", "*lds@30", REF_LONGDOUBLE, lds, 30, "0:29");
    ref_elem(ref, "lds", "[2]", REF_LONGDOUBLE, &lds[2]);
    ref_elem(ref, "lds", "[29]", REF_LONGDOUBLE, &lds[29]);
    ref_array(ref, "noise", "*noise@1000", REF_INT, noise, 1000, "0:999");
    ref_elem(ref, "noise", "[0]", REF_INT, &noise[0]);
    ref_elem(ref, "noise", "[999]", REF_INT, &noise[999]);
    fflush(ref);

    arraylens_break("main"); // arraylens-break: main

    m.scale(2.0f, ref);

    delete[] lds;
    delete[] noise;
    return 0;
}
