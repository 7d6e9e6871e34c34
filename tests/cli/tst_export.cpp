// arraylens-cli export against the real gdb: .npy and .csv files of C and
// Fortran arrays, slices and a filter, read back by numpy and compared bit
// for bit with the values the programs write themselves.
#include "clirun.h"

#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace clitest;

namespace {

const QString kPlate = QStringLiteral("*(double(*)[40][60])u");

// Loads the files and the programs' own values; prints "ok" when every
// comparison held.
const char* kCheck = R"PY(
import sys
import numpy as np
d = sys.argv[1] + '/'
def values(path, key):
    text = None
    for line in open(path):
        if line.startswith(key + '='):
            text = line.split('=', 1)[1].strip()
            break
    return np.array([float(t) for t in text.split(',')], dtype='<f8')
def same(got, want, name):
    assert got.dtype == np.dtype('<f8'), (name, got.dtype)
    assert got.shape == want.shape, (name, got.shape, want.shape)
    g = np.ascontiguousarray(got).ravel()
    w = np.ascontiguousarray(want).ravel()
    nan = np.isnan(w)
    assert (np.isnan(g) == nan).all(), name
    assert g[~nan].tobytes() == w[~nan].tobytes(), name
u = values(d + 'c.txt', 'u.values').reshape(40, 60)
same(np.load(d + 'c.npy'), u, 'c.npy')
assert not np.load(d + 'c.npy').flags.f_contiguous
same(np.load(d + 'cs.npy'), u[1:39:3, 59:0:-2], 'cs.npy')
same(np.load(d + 'cf.npy'), u[u > 50], 'cf.npy')
same(np.loadtxt(d + 'c.csv', delimiter=',', dtype='<f8'), u, 'c.csv')
# The Fortran program writes x(0:9,-2:5) in its own (column-major) order.
x = values(d + 'f.txt', 'x.values').reshape((10, 8), order='F')
fx = np.load(d + 'x.npy')
assert fx.flags.f_contiguous, 'fortran order'
same(fx, x, 'x.npy')
# x(1:9:2,-1:5): numpy indices are the program's minus the lower bounds.
same(np.load(d + 'xs.npy'), x[1:10:2, 1:8], 'xs.npy')
same(np.load(d + 'xf.npy'), x[x > 5], 'xf.npy')
same(np.loadtxt(d + 'x.csv', delimiter=',', dtype='<f8'), x, 'x.csv')
print('ok')
)PY";

TEST(Export, FilesEqualThePrograms) {
    QTemporaryDir dir;
    const QString d = dir.path() + '/';
    const QString blowup = QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_blowup");
    const QString fortran = QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_arrays_fortran");
    const QString atC = examples::breakLocation("blowup.blowup");
    const QString atF = examples::breakLocation("arrays_f90.unallocated");
    struct Case {
        QString expr, slice, filter, out;
        bool fortran;
    };
    const QList<Case> cases = {
        {kPlate, "", "", "c.npy", false},
        {kPlate, "[1:38:3][59:0:-2]", "", "cs.npy", false},
        {kPlate, "", "$value > 50", "cf.npy", false},
        {kPlate, "", "", "c.csv", false},
        {"x", "", "", "x.npy", true},
        {"x", "(1:9:2,-1:5)", "", "xs.npy", true},
        {"x", "", "$value .gt. 5", "xf.npy", true},
        {"x", "", "", "x.csv", true},
    };
    for (const Case& c : cases) {
        QStringList args{"export", "--expr", c.expr, "--out", d + c.out};
        if (!c.slice.isEmpty())
            args << "--slice" << c.slice;
        if (!c.filter.isEmpty())
            args << "--filter" << c.filter;
        if (c.fortran)
            args << "--break" << atF << "--" << fortran << d + "f.txt";
        else
            args << "--break" << atC << "--" << blowup << d + "c.txt"
                 << "20";
        const CliResult r = cli(args);
        ASSERT_EQ(r.exitCode, 0) << c.out.toStdString() << ": " << r.err.toStdString();
        const QJsonObject answer = r.lines().value(0);
        EXPECT_EQ(answer.value("result").toString(), QStringLiteral("done"));
        EXPECT_EQ(answer.value("File").toString(), d + c.out);
        if (c.out == "x.npy") {
            EXPECT_TRUE(answer.value("FortranOrder").toBool());
            EXPECT_EQ(answer.value("Shape").toArray(), (QJsonArray{10, 8}));
            EXPECT_EQ(answer.value("DType").toString(), QStringLiteral("<f8"));
            EXPECT_EQ(answer.value("Count").toInt(), 80);
        }
    }
    QFile script(d + "check.py");
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(kCheck);
    script.close();
    QProcess python;
    python.start(QStringLiteral(ARRAYLENS_SYSTEM_PYTHON), {script.fileName(), dir.path()});
    ASSERT_TRUE(python.waitForFinished(60000));
    EXPECT_EQ(python.readAllStandardOutput(), QByteArray("ok\n"))
        << python.readAllStandardError().toStdString();
}

TEST(Export, RefusalsSayWhy) {
    QTemporaryDir dir;
    const CliResult noOut = cli({"export", "--expr", "x", "--", "prog"});
    EXPECT_EQ(noOut.exitCode, 2);
    EXPECT_TRUE(noOut.err.contains("export needs --out")) << noOut.err.toStdString();
    const CliResult txt = cli({"export", "--expr", kPlate, "--out", dir.filePath("u.txt"),
                               "--break", examples::breakLocation("blowup.blowup"), "--",
                               QStringLiteral(ARRAYLENS_EXAMPLES_BIN "/example_blowup"),
                               dir.filePath("ref.txt"), "20"});
    EXPECT_EQ(txt.exitCode, 1);
    EXPECT_TRUE(txt.err.contains("ends neither in .npy nor in .csv")) << txt.err.toStdString();
}

} // namespace
