// .npy and .csv files of slices, read back by numpy in the system's Python
// and compared byte for byte with numpy's own slicing of the same memory.
#include "arraylens/arraylens.h"
#include "arraylens/export.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <unistd.h>

using namespace arraylens;

namespace {

class ExportFiles : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/arraylens-export-XXXXXX";
        ASSERT_NE(::mkdtemp(dir), nullptr);
        dir_ = dir;
    }
    void TearDown() override { std::system(("rm -rf '" + dir_ + "'").c_str()); }

    std::string path(const std::string& name) const { return dir_ + "/" + name; }

    template <class T> std::string dump(const std::vector<T>& v, const std::string& name) {
        const std::string p = path(name);
        std::ofstream(p, std::ios::binary)
            .write(reinterpret_cast<const char*>(v.data()), std::streamsize(v.size() * sizeof(T)));
        return p;
    }

    // Runs a Python check; it prints "ok" when everything held.
    std::string python(const std::string& body) {
        const std::string script = path("check.py");
        std::ofstream(script) << "import sys\nimport numpy as np\n" << body;
        FILE* p =
            ::popen((std::string(ARRAYLENS_SYSTEM_PYTHON) + " " + script + " 2>&1").c_str(), "r");
        std::string out;
        char buf[512];
        while (p && std::fgets(buf, sizeof buf, p))
            out += buf;
        if (p)
            ::pclose(p);
        return out;
    }

    std::string dir_;
};

TEST_F(ExportFiles, CSlicesAndFiltersAsNumpySlicesThem) {
    std::vector<double> v(4 * 5 * 6);
    std::mt19937_64 rng(5);
    std::normal_distribution<double> normal(0, 1e3);
    for (double& x : v)
        x = normal(rng);
    v[7] = std::numeric_limits<double>::quiet_NaN();
    v[8] = -std::numeric_limits<double>::infinity();
    v[9] = 4.9e-324;
    v[10] = -0.0;
    const ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::Double, reinterpret_cast<std::uintptr_t>(v.data()), {4, 5, 6});
    BufferReader r(v.data(), v.size() * 8);
    Result<ExportSummary> whole = exportElements(a, r, "", "", path("whole.npy"));
    ASSERT_TRUE(whole.ok()) << whole.message();
    EXPECT_EQ(whole->count, 120u);
    EXPECT_EQ(whole->shape, (std::vector<std::int64_t>{4, 5, 6}));
    EXPECT_EQ(whole->dtype, "<f8");
    EXPECT_FALSE(whole->fortranOrder);
    Result<ExportSummary> sliced = exportElements(a, r, "[1:3][4:0:-2][::5]", "", path("s.npy"));
    ASSERT_TRUE(sliced.ok()) << sliced.message();
    EXPECT_EQ(sliced->shape, (std::vector<std::int64_t>{3, 3, 2}));
    Result<ExportSummary> fixed = exportElements(a, r, "[2][3][:]", "", path("row.npy"));
    ASSERT_TRUE(fixed.ok());
    Result<ExportSummary> filtered = exportElements(a, r, "", "$value > 100", path("f.npy"));
    ASSERT_TRUE(filtered.ok()) << filtered.message();
    Result<ExportSummary> none = exportElements(a, r, "", "$value > 1e300", path("none.npy"));
    ASSERT_TRUE(none.ok());
    EXPECT_EQ(none->count, 0u);
    Result<ExportSummary> csv = exportElements(a, r, "[1][:][:]", "", path("plane.csv"));
    ASSERT_TRUE(csv.ok()) << csv.message();
    EXPECT_EQ(csv->shape, (std::vector<std::int64_t>{5, 6}));
    // A 3-D slice's CSV is the table's plane: the last two dimensions at
    // the first index of the first.
    ASSERT_TRUE(exportElements(a, r, "[2:3][:][:]", "", path("plane3.csv")).ok());
    ASSERT_TRUE(exportElements(a, r, "", "$value < 0", path("neg.csv")).ok());
    const std::string raw = dump(v, "raw.bin");
    const std::string out = python("d = '" + dir_ + "/'\n" + R"PY(
a = np.fromfile(d + 'raw.bin', dtype='<f8').reshape(4, 5, 6)
def same(name, want):
    got = np.load(d + name)
    assert got.dtype == want.dtype, (name, got.dtype)
    assert got.shape == want.shape, (name, got.shape, want.shape)
    assert got.tobytes() == np.ascontiguousarray(want).tobytes(), name
same('whole.npy', a)
same('s.npy', a[1:4, 4:-6:-2, ::5])
same('row.npy', a[2, 3, :])
with np.errstate(invalid='ignore'):
    same('f.npy', a[a > 100])
    same('none.npy', a[a > 1e300])
    neg = np.loadtxt(d + 'neg.csv', dtype='<f8', ndmin=1)
    assert neg.tobytes() == a[a < 0].tobytes()
p = np.loadtxt(d + 'plane.csv', delimiter=',', dtype='<f8')
assert p.tobytes() == a[1].tobytes(), 'plane'
p3 = np.loadtxt(d + 'plane3.csv', delimiter=',', dtype='<f8')
assert p3.tobytes() == a[2].tobytes(), 'plane3'
print('ok')
)PY");
    EXPECT_EQ(out, "ok\n");
}

TEST_F(ExportFiles, FortranArraysInLogicalIndexOrder) {
    // x(0:9,-2:5) as a program holds it, column-major.
    std::vector<std::int32_t> v(10 * 8);
    std::iota(v.begin(), v.end(), -30);
    const ArrayDescriptor a = ArrayDescriptor::fortranArray(
        ElementKind::FortranInteger4, reinterpret_cast<std::uintptr_t>(v.data()),
        {{0, 9}, {-2, 5}});
    BufferReader r(v.data(), v.size() * 4);
    Result<ExportSummary> whole = exportElements(a, r, "", "", path("x.npy"));
    ASSERT_TRUE(whole.ok()) << whole.message();
    EXPECT_TRUE(whole->fortranOrder);
    EXPECT_EQ(whole->shape, (std::vector<std::int64_t>{10, 8}));
    EXPECT_EQ(whole->dtype, "<i4");
    ASSERT_TRUE(exportElements(a, r, "(1:9:2,-1:5)", "", path("s.npy")).ok());
    ASSERT_TRUE(exportElements(a, r, "(3,:)", "", path("row.npy")).ok());
    ASSERT_TRUE(exportElements(a, r, "", "$value .gt. 20", path("f.npy")).ok());
    ASSERT_TRUE(exportElements(a, r, "", "", path("x.csv")).ok());
    std::vector<std::int32_t> logical(6);
    logical[1] = 1;
    logical[4] = -1; // any non-zero value is true
    const ArrayDescriptor l = ArrayDescriptor::fortranArray(
        ElementKind::FortranLogical4, reinterpret_cast<std::uintptr_t>(logical.data()), {{1, 6}});
    BufferReader lr(logical.data(), logical.size() * 4);
    Result<ExportSummary> b = exportElements(l, lr, "", "", path("l.npy"));
    ASSERT_TRUE(b.ok()) << b.message();
    EXPECT_EQ(b->dtype, "|b1");
    dump(v, "raw.bin");
    const std::string out = python("d = '" + dir_ + "/'\n" + R"PY(
x = np.fromfile(d + 'raw.bin', dtype='<i4').reshape((10, 8), order='F')
got = np.load(d + 'x.npy')
assert got.flags.f_contiguous and got.shape == (10, 8)
assert (got == x).all()
# The program's x(3,-1), column-major offset 3 + 1 * 10 from -30, is got[3, 1].
assert got[3, 1] == -17
s = np.load(d + 's.npy')
assert s.shape == (5, 7) and (s == x[1:10:2, 1:8]).all(), s
row = np.load(d + 'row.npy')
assert row.shape == (8,) and (row == x[3, :]).all()
f = np.load(d + 'f.npy')
assert (f == x[x > 20]).all() and f.shape == (int((x > 20).sum()),)
c = np.loadtxt(d + 'x.csv', delimiter=',', dtype='<i4')
assert c.shape == (10, 8) and (c == x).all()
l = np.load(d + 'l.npy')
assert l.dtype == np.bool_ and l.tolist() == [False, True, False, False, True, False]
print('ok')
)PY");
    EXPECT_EQ(out, "ok\n");
}

TEST_F(ExportFiles, RefusalsSayWhy) {
    std::vector<long double> v(4, 1.0L);
    const ArrayDescriptor a = ArrayDescriptor::cArray(
        ElementKind::LongDouble, reinterpret_cast<std::uintptr_t>(v.data()), {4});
    ArrayDescriptor ld = a;
    ld.elementSize = sizeof(long double);
    BufferReader r(v.data(), v.size() * sizeof(long double));
    Result<ExportSummary> npy = exportElements(ld, r, "", "", path("ld.npy"));
    ASSERT_FALSE(npy.ok());
    EXPECT_EQ(npy.message(),
              "Cannot write long double elements to .npy: numpy has no type for the x87 80-bit "
              "format that every reader shares. Export to .csv, or cast the expression to double.");
    EXPECT_FALSE(std::ifstream(path("ld.npy")).good());
    EXPECT_FALSE(std::ifstream(path("ld.npy.part")).good());
    // CSV has no such trouble.
    Result<ExportSummary> csv = exportElements(ld, r, "", "", path("ld.csv"));
    ASSERT_TRUE(csv.ok()) << csv.message();
    std::ifstream in(path("ld.csv"));
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "1");
    Result<ExportSummary> txt = exportElements(ld, r, "", "", path("ld.txt"));
    EXPECT_EQ(txt.message(),
              "The file name '" + path("ld.txt") + "' ends neither in .npy nor in .csv.");
    Result<ExportSummary> nodir = exportElements(ld, r, "", "", "/nonexistent/dir/x.csv");
    EXPECT_EQ(nodir.message(), "Cannot write '/nonexistent/dir/x.csv': No such file or directory.");
}

} // namespace
