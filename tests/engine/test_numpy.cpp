// The statistics of a million random doubles, and of a strided 3-D slice of
// them, agree with numpy's: counts, extremes, quartiles and adjacent values
// exactly; sum, mean and standard deviation to 1e-12 relative. numpy runs in
// the system's Python; without it the test fails.
#include "arraylens/arraylens.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <unistd.h>

using namespace arraylens;

namespace {

// Prints every number as a hexadecimal float, so that nothing is lost on
// the way back.
const char* kScript = R"PY(
import sys
import numpy as np
a = np.fromfile(sys.argv[1], dtype=np.float64)
def stats(name, x):
    x = np.ascontiguousarray(x).ravel()
    f = x[np.isfinite(x)]
    out = {}
    out['count'] = x.size
    out['zero'] = int(np.count_nonzero(x == 0))
    out['nan'] = int(np.count_nonzero(np.isnan(x)))
    out['inf'] = int(np.count_nonzero(np.isinf(x)))
    tiny = np.finfo(np.float64).tiny
    out['denorm'] = int(np.count_nonzero((x != 0) & (np.abs(x) < tiny)))
    q1, q2, q3 = np.percentile(f, [25, 50, 75])
    iqr = q3 - q1
    lo, hi = q1 - 1.5 * iqr, q3 + 1.5 * iqr
    floats = {'min': f.min(), 'max': f.max(), 'sum': np.sum(f), 'mean': np.mean(f),
              'std': np.std(f), 'q1': q1, 'median': q2, 'q3': q3,
              'lowadj': f[f >= lo].min(), 'highadj': f[f <= hi].max()}
    for k, v in out.items():
        print(name, k, v)
    for k, v in floats.items():
        print(name, k, float(v).hex())
stats('flat', a)
stats('slice', a.reshape(100, 100, 100)[2:98:3, 99::-2, ::5])
)PY";

std::vector<double> randomDoubles(std::size_t n) {
    std::mt19937_64 rng(20261123);
    std::normal_distribution<double> normal(12.5, 300.0);
    std::uniform_int_distribution<int> pick(0, 9999);
    std::vector<double> v(n);
    for (double& x : v) {
        const int k = pick(rng);
        if (k < 5)
            x = std::numeric_limits<double>::quiet_NaN();
        else if (k < 8)
            x = std::numeric_limits<double>::infinity();
        else if (k < 11)
            x = -std::numeric_limits<double>::infinity();
        else if (k < 15)
            x = std::numeric_limits<double>::denorm_min() * (k - 10);
        else if (k < 18)
            x = -std::numeric_limits<double>::denorm_min() * 3;
        else if (k < 25)
            x = (k & 1) ? 0.0 : -0.0;
        else if (k < 300)
            x = std::round(normal(rng)); // ties in the order
        else
            x = normal(rng);
    }
    return v;
}

using Answers = std::map<std::string, std::string>;

void expectAgreement(const Statistics& s, const Answers& np, const std::string& name) {
    SCOPED_TRACE(name);
    auto num = [&](const char* key) {
        auto it = np.find(name + " " + key);
        EXPECT_NE(it, np.end()) << key;
        return it == np.end() ? std::nan("") : std::strtod(it->second.c_str(), nullptr);
    };
    auto count = [&](const char* key) {
        auto it = np.find(name + " " + key);
        EXPECT_NE(it, np.end()) << key;
        return it == np.end() ? ~0ull : std::strtoull(it->second.c_str(), nullptr, 10);
    };
    EXPECT_EQ(s.count, count("count"));
    EXPECT_EQ(s.zeroCount, count("zero"));
    EXPECT_EQ(s.nanCount, count("nan"));
    EXPECT_EQ(s.infCount, count("inf"));
    EXPECT_EQ(s.denormCount, count("denorm"));
    EXPECT_EQ(std::get<double>(s.min), num("min"));
    EXPECT_EQ(std::get<double>(s.max), num("max"));
    EXPECT_EQ(s.firstQuartile, num("q1"));
    EXPECT_EQ(s.median, num("median"));
    EXPECT_EQ(s.thirdQuartile, num("q3"));
    EXPECT_EQ(std::get<double>(s.lowerAdjValue), num("lowadj"));
    EXPECT_EQ(std::get<double>(s.upperAdjValue), num("highadj"));
    auto close = [](double a, double b) { return std::fabs(a - b) <= 1e-12 * std::fabs(b); };
    EXPECT_PRED2(close, std::get<double>(s.sum), num("sum"));
    EXPECT_PRED2(close, s.mean, num("mean"));
    EXPECT_PRED2(close, s.stdDev, num("std"));
    EXPECT_EQ(s.statValid, 0xffff);
}

#ifdef ARRAYLENS_TEST_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

TEST(Numpy, MillionDoublesAndA3DSliceAgree) {
    if (kSanitized)
        GTEST_SKIP() << "runs in the normal build only; too slow under the sanitizers";
    const std::vector<double> data = randomDoubles(1'000'000);
    char path[] = "/tmp/arraylens-numpy-XXXXXX";
    const int fd = ::mkstemp(path);
    ASSERT_GE(fd, 0);
    ::close(fd);
    {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data.data()),
                  static_cast<std::streamsize>(data.size() * sizeof(double)));
        ASSERT_TRUE(out.good());
    }
    char scriptPath[] = "/tmp/arraylens-numpy-script-XXXXXX";
    const int sfd = ::mkstemp(scriptPath);
    ASSERT_GE(sfd, 0);
    ::close(sfd);
    {
        std::ofstream out(scriptPath);
        out << kScript;
    }
    const std::string command =
        std::string(ARRAYLENS_SYSTEM_PYTHON) + " " + scriptPath + " " + path + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string output;
    char buf[512];
    while (std::fgets(buf, sizeof buf, pipe))
        output += buf;
    const int status = ::pclose(pipe);
    std::remove(path);
    std::remove(scriptPath);
    ASSERT_EQ(status, 0) << "numpy did not run:\n" << output;

    Answers np;
    std::istringstream lines(output);
    std::string a, b, c;
    while (lines >> a >> b >> c)
        np[a + " " + b] = c;
    ASSERT_EQ(np.size(), 30u) << output;

    BufferReader reader(data.data(), data.size() * sizeof(double));
    const auto address = reinterpret_cast<std::uintptr_t>(data.data());
    ArrayDescriptor flat = ArrayDescriptor::cArray(ElementKind::Double, address, {1'000'000});
    Result<Statistics> s = computeStatistics(flat, reader, "", "");
    ASSERT_TRUE(s.ok()) << s.message();
    expectAgreement(s.value(), np, "flat");

    ArrayDescriptor cube = ArrayDescriptor::cArray(ElementKind::Double, address, {100, 100, 100});
    Result<Statistics> sl = computeStatistics(cube, reader, "[2:97:3][99:0:-2][::5]", "");
    ASSERT_TRUE(sl.ok()) << sl.message();
    expectAgreement(sl.value(), np, "slice");

    // The same numbers by radix selection with a small budget: more passes,
    // same answers.
    StatisticsOptions small = StatisticsOptions::Defaults();
    small.selectionBytes = 4096;
    small.sampleSize = 0;
    Result<Statistics> again = computeStatistics(flat, reader, "", "", small);
    ASSERT_TRUE(again.ok()) << again.message();
    EXPECT_GT(again->passes, s->passes);
    expectAgreement(again.value(), np, "flat");
}

} // namespace
