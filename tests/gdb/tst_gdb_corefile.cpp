// Core files read from the file: for every array of an example program's
// stop, the core reader gives the bytes gdb gives for the same core, also
// where the core holds an array in two segments and where it holds none of
// it (read-only data that gdb takes from the executable). One core per
// program, made by gdb's gcore at the stop and opened in a second session,
// is shared by every check.
#include "gdbmemoryreader.h"
#include "gdbrig.h"

#include "arraylens/corefile.h"

#include <QFileInfo>

#include <atomic>
#include <map>
#include <thread>

using namespace gdbtest;
using arraylens::CoreFileReader;
using arraylens::gdb::ArrayFacts;
using arraylens::gdb::GdbMemoryReader;

namespace {

// The live program stopped where its arrays are set, its core, and a
// session on that core.
struct CoreRun {
    std::unique_ptr<Rig> live;
    std::unique_ptr<Rig> post;
    QString core;
    QString why; // empty when all of it worked
};

std::map<QString, std::unique_ptr<CoreRun>> runs;

CoreRun& coreOf(const QString& program, const QString& stop) {
    auto& run = runs[program];
    if (run)
        return *run;
    run = std::make_unique<CoreRun>();
    run->live = makeRig();
    QString why;
    if (!run->live->startAt(program, stop, &why)) {
        run->why = QStringLiteral("no stop: ") + why;
        return *run;
    }
    run->core = run->live->dir.filePath(QStringLiteral("program.core"));
    auto dumped = run->live->mi(QStringLiteral("-interpreter-exec console ") +
                                    QString::fromStdString(arraylens::mi::quoteCString(
                                        ("gcore " + run->core).toStdString())),
                                120000);
    if (!dumped || dumped->isError() || !QFileInfo::exists(run->core)) {
        run->why = QStringLiteral("no core: ") +
                   (dumped ? dumped->errorMessage() : QStringLiteral("no answer"));
        return *run;
    }
    run->post = makeRig();
    if (!run->post->session->start(exampleProgram(program), {}, &why)) {
        run->why = why;
        return *run;
    }
    run->post->session->setCoreFile(run->core);
    auto opened = run->post->mi(QStringLiteral("-target-select core ") + run->core);
    if (!opened || opened->isError()) {
        run->why = QStringLiteral("the core did not open: ") +
                   (opened ? opened->errorMessage() : QStringLiteral("no answer"));
        return *run;
    }
    run->post->session->markStopped();
    return *run;
}

// The bytes an array spans, from its lowest element to the end of its
// highest.
struct Span {
    std::uint64_t address = 0;
    std::size_t size = 0;
};

Span spanOf(const ArrayFacts& facts) {
    qint64 low = 0, high = 0;
    for (int d = 0; d < facts.dims.size(); ++d) {
        const qint64 reach = (facts.dims[d].upper - facts.dims[d].lower) * facts.byteStrides[d];
        (reach < 0 ? low : high) += reach;
    }
    return {facts.address + quint64(low), std::size_t(high - low + facts.elementSize)};
}

// Runs f on a worker thread, as the service does, while this thread keeps
// reading gdb's answers.
template <class F> void onWorker(F f) {
    std::atomic<bool> done{false};
    std::thread worker([&] {
        f();
        done = true;
    });
    waitFor([&] { return done.load(); }, 120000);
    worker.join();
}

struct Reads {
    QByteArray file, gdb;
    QString fileError, gdbError;
    std::uint64_t heldByFile = 0;
};

// The same bytes through the core reader (gdb only for what the file lacks)
// and through gdb alone.
Reads readBoth(CoreRun& run, Span span) {
    Reads r;
    r.file.resize(int(span.size));
    r.gdb.resize(int(span.size));
    onWorker([&] {
        GdbMemoryReader viaGdb(*run.post->session);
        auto core = CoreFileReader::open(run.core.toStdString(), &viaGdb);
        if (!core) {
            r.fileError = QString::fromStdString(core.message());
            return;
        }
        r.heldByFile = (*core)->bytesInFile(span.address, span.size);
        if (auto s = (*core)->read(span.address, r.file.data(), span.size); !s)
            r.fileError = QString::fromStdString(s.message());
        if (auto s = viaGdb.read(span.address, r.gdb.data(), span.size); !s)
            r.gdbError = QString::fromStdString(s.message());
    });
    return r;
}

constexpr std::size_t kWholeUpTo = 512 * 1024;

// Every array of the program's stop, byte for byte.
void compareEveryArray(const QString& program, const QString& stop) {
    CoreRun& run = coreOf(program, stop);
    ASSERT_TRUE(run.why.isEmpty()) << run.why.toStdString();
    ASSERT_FALSE(run.live->arraysOfThisStop.isEmpty());
    int compared = 0;
    for (const QString& name : run.live->arraysOfThisStop) {
        const QString expr = run.live->ref.value(name + QStringLiteral(".expr"));
        SCOPED_TRACE(expr.toStdString());
        GdbExpression* e = run.post->evaluate(expr);
        ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
        ASSERT_GT(e->facts().elementSize, 0);
        const Span span = spanOf(e->facts());
        // gdb sends memory as hex text at a few MB/s: of the arrays of many
        // megabytes, their first and last stretch.
        std::vector<Span> parts{span};
        if (span.size > 2 * kWholeUpTo)
            parts = {{span.address, kWholeUpTo},
                     {span.address + span.size - kWholeUpTo, kWholeUpTo}};
        for (const Span& part : parts) {
            const Reads r = readBoth(run, part);
            ASSERT_TRUE(r.fileError.isEmpty()) << r.fileError.toStdString();
            ASSERT_TRUE(r.gdbError.isEmpty()) << r.gdbError.toStdString();
            EXPECT_TRUE(r.file == r.gdb) << "the core reader's bytes differ from gdb's";
        }
        ++compared;
    }
    EXPECT_EQ(compared, run.live->arraysOfThisStop.size());
}

void acrossTheBoundary(CoreRun& run) {
    GdbExpression* e = run.post->evaluate(QStringLiteral("*samples@1024"));
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    const Span span = spanOf(e->facts());
    ASSERT_EQ(span.size, 1024u * 16 * 8);
    std::unique_ptr<CoreFileReader> core;
    {
        auto opened = CoreFileReader::open(run.core.toStdString());
        ASSERT_TRUE(opened) << opened.message();
        core = std::move(opened).value();
    }
    // Two segments share the array, and the file holds all of it: no byte
    // of it needs gdb, so the reader without a fallback reads it whole.
    int segments = 0;
    for (const auto& s : core->segments())
        if (s.address < span.address + span.size && span.address < s.address + s.memoryBytes)
            ++segments;
    EXPECT_EQ(segments, 2);
    EXPECT_EQ(core->bytesInFile(span.address, span.size), span.size);
    QByteArray plain(int(span.size), 0);
    ASSERT_TRUE(core->read(span.address, plain.data(), span.size));
    const Reads r = readBoth(run, span);
    EXPECT_TRUE(plain == r.gdb);

    // The service reads it from the file and gives the program's numbers.
    auto stats = run.post->statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    const auto& ref = run.live->ref;
    EXPECT_EQ(stats->property("Count").toInt(), ref.value("samples.count").toInt());
    EXPECT_TRUE(near(number(ref.value("samples.sum")), stats->property("Sum").toDouble()));
    EXPECT_EQ(stats->property("Min").toDouble(), number(ref.value("samples.min")));
    EXPECT_EQ(stats->property("Median").toDouble(), number(ref.value("samples.median")));
    EXPECT_EQ(stats->property("UpperAdjValue").toDouble(),
              number(ref.value("samples.upper_adjacent")));
}

void outsideTheCore(CoreRun& run) {
    GdbExpression* e = run.post->evaluate(QStringLiteral("gauss_rule"));
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    const Span span = spanOf(e->facts());
    ASSERT_EQ(span.size, 16u * 2 * 8);
    const Reads r = readBoth(run, span);
    // The core holds no byte of the table; gdb reads it from the program.
    EXPECT_EQ(r.heldByFile, 0u);
    ASSERT_TRUE(r.fileError.isEmpty()) << r.fileError.toStdString();
    EXPECT_TRUE(r.file == r.gdb);
    {
        auto core = CoreFileReader::open(run.core.toStdString());
        ASSERT_TRUE(core) << core.message();
        std::vector<char> bytes(span.size);
        EXPECT_FALSE((*core)->read(span.address, bytes.data(), span.size));
    }

    auto stats = run.post->statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    const auto& ref = run.live->ref;
    EXPECT_EQ(stats->property("Count").toInt(), ref.value("gauss_rule.count").toInt());
    EXPECT_TRUE(near(number(ref.value("gauss_rule.sum")), stats->property("Sum").toDouble()));
    EXPECT_EQ(stats->property("Median").toDouble(), number(ref.value("gauss_rule.median")));
}

} // namespace

class CoreFileReads : public ::testing::Test {
protected:
    static void TearDownTestSuite() { runs.clear(); }
};

TEST_F(CoreFileReads, EveryArrayOfTheCProgramAsGdbReadsIt) {
    compareEveryArray(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"));
}

TEST_F(CoreFileReads, EveryArrayOfTheCppProgramAsGdbReadsIt) {
    compareEveryArray(QStringLiteral("example_arrays_cpp"), QStringLiteral("arrays_cpp.main"));
}

TEST_F(CoreFileReads, EveryArrayOfTheFortranProgramAsGdbReadsIt) {
    compareEveryArray(QStringLiteral("example_arrays_fortran"), QStringLiteral("arrays_f90.main"));
}

// The quadrature's arrays, then the two that matter most: one the core holds
// in two segments, one it holds no byte of. One test, so that one core
// serves all of it.
TEST_F(CoreFileReads, TheQuadratureAcrossSegmentsAndOutsideTheCore) {
    compareEveryArray(QStringLiteral("example_quadrature"), QStringLiteral("quadrature.integral"));
    CoreRun& run =
        coreOf(QStringLiteral("example_quadrature"), QStringLiteral("quadrature.integral"));
    ASSERT_TRUE(run.why.isEmpty()) << run.why.toStdString();
    {
        SCOPED_TRACE("samples, across two segments");
        acrossTheBoundary(run);
    }
    {
        SCOPED_TRACE("gauss_rule, not in the core");
        outsideTheCore(run);
    }
}
