// One step of a small coupled simulation whose state lives in the containers
// numerical C++ codes use: a heated rod in standard containers, a Poisson
// problem and a model fit in Eigen, sensor statistics in Armadillo, a
// pressure field with ghost layers in Boost.MultiArray, densities and
// stresses in xtensor, and a potential on a shifted grid in Blitz++.
//
// The program writes every array's values, in logical index order (first
// index slowest, whatever the storage order), to its reference file, then
// stops once at the line marked "arraylens-break: main".
#include <Eigen/Dense>
#include <armadillo>
#include <blitz/array.h>
#include <boost/multi_array.hpp>
#include <xtensor/xarray.hpp>
#include <xtensor/xtensor.hpp>

#include <array>
#include <cmath>
#include <complex>
#include <cstdio>
#include <span>
#include <string>
#include <valarray>
#include <vector>

#include "reference.h"

extern "C" void arraylens_break(const char* where) {
    static volatile int stops;
    stops = stops + 1;
    (void)where;
}

namespace {

template <class T> constexpr ref_kind kindOf();
template <> constexpr ref_kind kindOf<double>() {
    return REF_DOUBLE;
}
template <> constexpr ref_kind kindOf<float>() {
    return REF_FLOAT;
}
template <> constexpr ref_kind kindOf<int>() {
    return REF_INT;
}
template <> constexpr ref_kind kindOf<long long>() {
    return REF_LONGLONG;
}
template <> constexpr ref_kind kindOf<long>() {
    return REF_LONGLONG;
}

// Writes one array's facts: `bounds` gives lo and hi of each logical
// dimension, `at(index)` the element at a logical index. The values go out
// with the first index slowest, and the first, a middle and the last element
// by their indices.
template <class T, std::size_t Rank, class At>
void report(FILE* f, const char* name, const std::array<std::array<long, 2>, Rank>& bounds, At at) {
    std::vector<T> values;
    std::array<long, Rank> index;
    std::string bound;
    std::size_t count = 1;
    for (std::size_t d = 0; d < Rank; ++d) {
        index[d] = bounds[d][0];
        count *= std::size_t(bounds[d][1] - bounds[d][0] + 1);
        bound += (d ? "," : "") + std::to_string(bounds[d][0]) + ":" + std::to_string(bounds[d][1]);
    }
    auto indexText = [](const std::array<long, Rank>& i) {
        std::string text;
        for (long v : i)
            text += "[" + std::to_string(v) + "]";
        return text;
    };
    for (std::size_t n = 0; n < count; ++n) {
        values.push_back(at(index));
        for (std::size_t d = Rank; d-- > 0;) {
            if (++index[d] <= bounds[d][1])
                break;
            index[d] = bounds[d][0];
        }
    }
    const ref_kind kind = kindOf<T>();
    ref_array(f, name, name, kind, values.data(), count, bound.c_str());
    ref_values(f, name, kind, values.data(), count);
    std::array<long, Rank> first, middle, last;
    for (std::size_t d = 0; d < Rank; ++d) {
        first[d] = bounds[d][0];
        middle[d] = (bounds[d][0] + bounds[d][1]) / 2;
        last[d] = bounds[d][1];
    }
    for (const auto& i : {first, middle, last}) {
        std::size_t linear = 0;
        for (std::size_t d = 0; d < Rank; ++d)
            linear = linear * std::size_t(bounds[d][1] - bounds[d][0] + 1) +
                     std::size_t(i[d] - bounds[d][0]);
        ref_elem(f, name, indexText(i).c_str(), kind, &values[linear]);
    }
}

} // namespace

struct Particle {
    double x;
    double v;
};

int main(int argc, char** argv) {
    FILE* ref = ref_open(argc, argv, "containers", "c++");
    ref_rng rng = {2024u};

    // --- A rod heated in the middle, explicit finite differences ----------
    const int n = 64;
    std::vector<double> rod(n);
    std::vector<int> material(n);
    for (int i = 0; i < n; ++i) {
        const double s = (i - 20) / 5.0;
        rod[i] = 300.0 + 50.0 * std::exp(-s * s);
        material[i] = i < 32 ? 1 : (i < 48 ? 2 : 3);
    }
    const double conductivity[4] = {0.0, 0.40, 0.25, 0.10};
    for (int step = 0; step < 40; ++step) {
        std::vector<double> next(rod);
        for (int i = 1; i < n - 1; ++i)
            next[i] = rod[i] + conductivity[material[i]] * (rod[i - 1] - 2 * rod[i] + rod[i + 1]);
        rod.swap(next);
    }
    std::valarray<double> flux(n - 1);
    for (int i = 0; i < n - 1; ++i)
        flux[i] = -conductivity[material[i]] * (rod[i + 1] - rod[i]);
    std::array<float, 6> probes;
    for (int p = 0; p < 6; ++p)
        probes[p] = static_cast<float>(rod[5 + 10 * p]);
    std::span<double> interior(rod.data() + 1, n - 2);
    std::span<const int, 8> leftCells(material.data(), 8);

    // --- Eigen: a 1-D Poisson problem, a model fit, a plate ---------------
    const int m = 10;
    Eigen::MatrixXd laplacian = Eigen::MatrixXd::Zero(m, m + 2);
    for (int i = 0; i < m; ++i) {
        laplacian(i, i) = -1.0;
        laplacian(i, i + 1) = 2.0;
        laplacian(i, i + 2) = -1.0;
    }
    Eigen::VectorXd load(m);
    for (int i = 0; i < m; ++i)
        load(i) = std::sin(M_PI * (i + 1) / (m + 1));
    const Eigen::MatrixXd square = laplacian.middleCols(1, m);
    Eigen::VectorXd deflection = square.ldlt().solve(load);

    // Jacobian of r_i = a exp(-b t_i) + c t_i + d - y_i at the current guess.
    const double a = 2.0, b = 0.7;
    Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> jacobian(8, 4);
    for (int i = 0; i < 8; ++i) {
        const double t = 0.5 * i;
        jacobian(i, 0) = std::exp(-b * t);
        jacobian(i, 1) = -a * t * std::exp(-b * t);
        jacobian(i, 2) = t;
        jacobian(i, 3) = 1.0;
    }

    Eigen::Matrix4f pose = Eigen::Matrix4f::Identity();
    const float angle = static_cast<float>(M_PI / 6);
    pose(0, 0) = std::cos(angle);
    pose(0, 1) = -std::sin(angle);
    pose(1, 0) = std::sin(angle);
    pose(1, 1) = std::cos(angle);
    pose(0, 3) = 1.0f;
    pose(1, 3) = 2.0f;
    pose(2, 3) = 3.0f;

    // Each cell's four neighbours in a 3 x 4 periodic grid, row-major.
    Eigen::Matrix<int, 3, 4, Eigen::RowMajor> neighbours;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            neighbours(i, j) = ((i + 1) % 3) * 4 + (j + 3) % 4;

    // Laplace's equation on a plate: Jacobi sweeps, hot top edge.
    Eigen::ArrayXXd plate = Eigen::ArrayXXd::Zero(12, 9);
    plate.row(0).setConstant(100.0);
    plate.col(8).setLinSpaced(100.0, 0.0);
    for (int sweep = 0; sweep < 30; ++sweep) {
        Eigen::ArrayXXd next = plate;
        next.block(1, 1, 10, 7) = 0.25 * (plate.block(0, 1, 10, 7) + plate.block(2, 1, 10, 7) +
                                          plate.block(1, 0, 10, 7) + plate.block(1, 2, 10, 7));
        plate = next;
    }
    // The plate's interior, in place: column-major with a leading dimension.
    Eigen::Map<Eigen::MatrixXd, 0, Eigen::OuterStride<>> inner(plate.data() + 1 + 12, 10, 7,
                                                               Eigen::OuterStride<>(12));

    // A snapshot buffer from a C interface, viewed as a matrix.
    double* raw = new double[6 * 7];
    for (int k = 0; k < 6 * 7; ++k)
        raw[k] = std::cos(0.3 * (k % 6)) * std::exp(-0.1 * (k / 6));
    Eigen::Map<Eigen::MatrixXd> snapshot(raw, 6, 7);

    // --- Armadillo: sensor statistics ---------------------------------------
    arma::mat samples(40, 3);
    for (arma::uword i = 0; i < samples.n_rows; ++i)
        for (arma::uword j = 0; j < samples.n_cols; ++j)
            samples(i, j) = 10.0 * (j + 1) + (ref_next_unit(&rng) - 0.5) * (j + 2);
    arma::rowvec centre = arma::mean(samples, 0);
    arma::vec energy = arma::sum(arma::square(samples.each_row() - centre), 1);
    arma::mat covariance = arma::cov(samples);
    arma::cube history(6, 5, 4);
    for (arma::uword k = 0; k < history.n_slices; ++k)
        for (arma::uword j = 0; j < history.n_cols; ++j)
            for (arma::uword i = 0; i < history.n_rows; ++i)
                history(i, j, k) = std::sin(M_PI * (i + 1) / 7.0) * std::sin(M_PI * (j + 1) / 6.0) *
                                   std::exp(-0.5 * k);
    arma::imat counts(5, 3, arma::fill::zeros);
    for (arma::uword j = 0; j < samples.n_cols; ++j) {
        const double lo = samples.col(j).min(), hi = samples.col(j).max();
        for (arma::uword i = 0; i < samples.n_rows; ++i) {
            arma::uword bin = arma::uword(5.0 * (samples(i, j) - lo) / (hi - lo));
            counts(bin < 5 ? bin : 4, j) += 1;
        }
    }
    arma::fmat gains(3, 4);
    for (arma::uword i = 0; i < 3; ++i)
        for (arma::uword j = 0; j < 4; ++j)
            gains(i, j) = 1.0f / float(1 + i + 2 * j);

    // --- Boost.MultiArray: pressure with one ghost layer --------------------
    using range = boost::multi_array_types::extent_range;
    boost::multi_array<double, 3> pressure(boost::extents[range(-1, 5)][range(-1, 7)][3]);
    for (long i = -1; i < 5; ++i)
        for (long j = -1; j < 7; ++j)
            for (long k = 0; k < 3; ++k)
                pressure[i][j][k] = 101.3 + 0.5 * i - 0.25 * j + 0.01 * k * (i + j);
    // The interior of the middle layer, without the ghosts: a view.
    using boost::indices;
    using span = boost::multi_array_types::index_range;
    auto pressureInterior = pressure[indices[span(0, 4)][span(0, 6)][1]];
    // Velocities shared with a Fortran solver: column-major, based at 1.
    boost::multi_array<float, 2> velocity(boost::extents[4][6], boost::fortran_storage_order());
    velocity.reindex(1);
    for (int i = 1; i <= 4; ++i)
        for (int j = 1; j <= 6; ++j)
            velocity[i][j] = static_cast<float>(0.1 * i * j - 0.4 * j);
    std::vector<double> stageBuffer(5 * 8);
    boost::multi_array_ref<double, 2> stage(stageBuffer.data(), boost::extents[5][8]);
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 8; ++j)
            stage[i][j] = (i + 1) * 0.125 - j * 0.0625;

    // --- xtensor: densities and stresses ------------------------------------
    xt::xarray<double> density = xt::xarray<double>::from_shape({4, 5, 3});
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 5; ++j)
            for (std::size_t k = 0; k < 3; ++k)
                density(i, j, k) = 1.2 - 0.05 * i + 0.02 * j * k;
    xt::xtensor<double, 2> stress = xt::xtensor<double, 2>::from_shape({5, 4});
    for (std::size_t i = 0; i < 5; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            stress(i, j) = (i == j ? -2.0 : 0.5) * (1.0 + 0.1 * i);
    xt::xtensor<double, 2, xt::layout_type::column_major> moments =
        xt::xtensor<double, 2, xt::layout_type::column_major>::from_shape({3, 6});
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 6; ++j)
            moments(i, j) = std::pow(0.5 * (j + 1), double(i));

    // --- Blitz++: a potential on a shifted grid -----------------------------
    blitz::Array<double, 2> potential(blitz::Range(-2, 5), blitz::Range(0, 9));
    for (int i = -2; i <= 5; ++i)
        for (int j = 0; j <= 9; ++j)
            potential(i, j) = 1.0 / std::sqrt(1.0 + i * i + (j - 4.5) * (j - 4.5));
    blitz::Array<double, 2> flow(4, 6, blitz::fortranArray);
    for (int i = 1; i <= 4; ++i)
        for (int j = 1; j <= 6; ++j)
            flow(i, j) = std::sin(0.4 * i) * std::cos(0.3 * j);
    blitz::Array<int, 3> labels(3, 4, 5);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 5; ++k)
                labels(i, j, k) = int(ref_next_u32(&rng) % 7u) - 3;

    // --- Containers that are not one array of numbers -----------------------
    std::vector<std::vector<double>> perMaterial(3);
    for (int i = 0; i < n; ++i)
        perMaterial[material[i] - 1].push_back(rod[i]);
    std::vector<Particle> particles(16);
    std::vector<Eigen::Vector3d> positions(16);
    for (int i = 0; i < 16; ++i) {
        particles[i] = {0.25 * i, std::sin(0.5 * i)};
        positions[i] =
            pose.topLeftCorner<3, 3>().cast<double>() * Eigen::Vector3d(particles[i].x, 0, 0);
    }
    std::vector<std::complex<double>> spectrum(8);
    for (int k = 0; k < 8; ++k)
        spectrum[k] = std::polar(1.0 / (1 + k), 0.3 * k);
    std::vector<bool> frozen(n);
    for (int i = 0; i < n; ++i)
        frozen[i] = material[i] == 3;
    std::vector<double> pending;
    // The discrete Fourier transform of the rod's eight samples as a matrix,
    // and its roots of unity: complex numbers in Eigen and Armadillo.
    Eigen::MatrixXcd dft(8, 8);
    arma::cx_vec roots(8);
    for (int j = 0; j < 8; ++j) {
        roots(j) = std::polar(1.0, -2 * M_PI * j / 8);
        for (int k = 0; k < 8; ++k)
            dft(j, k) = std::polar(1.0, -2 * M_PI * j * k / 8);
    }
    const Eigen::VectorXcd samples8 =
        Eigen::Map<Eigen::VectorXd>(rod.data(), 8).cast<std::complex<double>>();
    const Eigen::VectorXcd modes = dft * samples8;
    const std::complex<double> mode1 = modes(1);

    std::printf("rod centre %.3f, deflection %.4f, plate %.3f, pressure %.2f, mode %.3f\n",
                rod[n / 2], deflection(m / 2), plate(6, 4), pressure[2][3][1], std::abs(mode1));

    fprintf(ref, "stop=main\n");
    report<double, 1>(ref, "rod", {{{0, n - 1}}}, [&](auto i) { return rod[i[0]]; });
    report<int, 1>(ref, "material", {{{0, n - 1}}}, [&](auto i) { return material[i[0]]; });
    report<double, 1>(ref, "flux", {{{0, n - 2}}}, [&](auto i) { return flux[i[0]]; });
    report<float, 1>(ref, "probes", {{{0, 5}}}, [&](auto i) { return probes[i[0]]; });
    report<double, 1>(ref, "interior", {{{0, n - 3}}}, [&](auto i) { return interior[i[0]]; });
    report<int, 1>(ref, "leftCells", {{{0, 7}}}, [&](auto i) { return leftCells[i[0]]; });

    report<double, 2>(ref, "laplacian", {{{0, m - 1}, {0, m + 1}}},
                      [&](auto i) { return laplacian(i[0], i[1]); });
    report<double, 1>(ref, "load", {{{0, m - 1}}}, [&](auto i) { return load(i[0]); });
    report<double, 1>(ref, "deflection", {{{0, m - 1}}}, [&](auto i) { return deflection(i[0]); });
    report<double, 2>(ref, "jacobian", {{{0, 7}, {0, 3}}},
                      [&](auto i) { return jacobian(i[0], i[1]); });
    report<float, 2>(ref, "pose", {{{0, 3}, {0, 3}}}, [&](auto i) { return pose(i[0], i[1]); });
    report<int, 2>(ref, "neighbours", {{{0, 2}, {0, 3}}},
                   [&](auto i) { return neighbours(i[0], i[1]); });
    report<double, 2>(ref, "plate", {{{0, 11}, {0, 8}}}, [&](auto i) { return plate(i[0], i[1]); });
    report<double, 2>(ref, "inner", {{{0, 9}, {0, 6}}}, [&](auto i) { return inner(i[0], i[1]); });
    report<double, 2>(ref, "snapshot", {{{0, 5}, {0, 6}}},
                      [&](auto i) { return snapshot(i[0], i[1]); });

    report<double, 2>(ref, "samples", {{{0, 39}, {0, 2}}},
                      [&](auto i) { return samples(i[0], i[1]); });
    report<double, 1>(ref, "centre", {{{0, 2}}}, [&](auto i) { return centre(i[0]); });
    report<double, 1>(ref, "energy", {{{0, 39}}}, [&](auto i) { return energy(i[0]); });
    report<double, 2>(ref, "covariance", {{{0, 2}, {0, 2}}},
                      [&](auto i) { return covariance(i[0], i[1]); });
    report<double, 3>(ref, "history", {{{0, 5}, {0, 4}, {0, 3}}},
                      [&](auto i) { return history(i[0], i[1], i[2]); });
    report<long long, 2>(ref, "counts", {{{0, 4}, {0, 2}}},
                         [&](auto i) { return counts(i[0], i[1]); });
    report<float, 2>(ref, "gains", {{{0, 2}, {0, 3}}}, [&](auto i) { return gains(i[0], i[1]); });

    report<double, 3>(ref, "pressure", {{{-1, 4}, {-1, 6}, {0, 2}}},
                      [&](auto i) { return pressure[i[0]][i[1]][i[2]]; });
    report<double, 2>(ref, "pressureInterior", {{{0, 3}, {0, 5}}},
                      [&](auto i) { return pressureInterior[i[0]][i[1]]; });
    report<float, 2>(ref, "velocity", {{{1, 4}, {1, 6}}},
                     [&](auto i) { return velocity[i[0]][i[1]]; });
    report<double, 2>(ref, "stage", {{{0, 4}, {0, 7}}}, [&](auto i) { return stage[i[0]][i[1]]; });

    report<double, 3>(ref, "density", {{{0, 3}, {0, 4}, {0, 2}}},
                      [&](auto i) { return density(i[0], i[1], i[2]); });
    report<double, 2>(ref, "stress", {{{0, 4}, {0, 3}}},
                      [&](auto i) { return stress(i[0], i[1]); });
    report<double, 2>(ref, "moments", {{{0, 2}, {0, 5}}},
                      [&](auto i) { return moments(i[0], i[1]); });

    report<double, 2>(ref, "potential", {{{-2, 5}, {0, 9}}},
                      [&](auto i) { return potential(int(i[0]), int(i[1])); });
    report<double, 2>(ref, "flow", {{{1, 4}, {1, 6}}},
                      [&](auto i) { return flow(int(i[0]), int(i[1])); });
    report<int, 3>(ref, "labels", {{{0, 2}, {0, 3}, {0, 4}}},
                   [&](auto i) { return labels(int(i[0]), int(i[1]), int(i[2])); });
    fflush(ref);

    arraylens_break("main"); // arraylens-break: main

    ref_close(ref);
    delete[] raw;
    return 0;
}
