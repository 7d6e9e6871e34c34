// The reader of a live process: a forked child changes its copy of an array,
// and the parent reads the child's values by pid, with process_vm_readv and
// with pread on /proc/PID/mem.
#include "arraylens/arraylens.h"

#include <gtest/gtest.h>

#include <csignal>
#include <numeric>
#include <sys/wait.h>
#include <unistd.h>

using namespace arraylens;

namespace {

constexpr std::size_t kRows = 300, kCols = 500;

// A child that holds the array until the parent is done with it.
class Child {
public:
    explicit Child(std::vector<double>& data) {
        int ready[2], done[2];
        if (::pipe(ready) != 0 || ::pipe(done) != 0)
            return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(ready[0]);
            ::close(done[1]);
            // The child's own values differ from the parent's copy, so a read
            // of the parent's memory would be caught.
            for (std::size_t i = 0; i < data.size(); ++i)
                data[i] = static_cast<double>(i) * 0.5 - 7;
            char c = 1;
            ssize_t w = ::write(ready[1], &c, 1);
            ssize_t r = ::read(done[0], &c, 1); // returns when the parent closes it
            ::_exit(w == 1 && r >= 0 ? 0 : 1);
        }
        ::close(ready[1]);
        ::close(done[0]);
        done_ = done[1];
        char c = 0;
        ok_ = pid_ > 0 && ::read(ready[0], &c, 1) == 1;
        ::close(ready[0]);
    }
    ~Child() {
        if (done_ >= 0)
            ::close(done_);
        if (pid_ > 0) {
            int status = 0;
            ::waitpid(pid_, &status, 0);
        }
    }
    bool ok() const { return ok_; }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int done_ = -1;
    bool ok_ = false;
};

void readAndCheck(ProcessReader::Method method) {
    std::vector<double> data(kRows * kCols, 123.0);
    Child child(data);
    ASSERT_TRUE(child.ok());
    ProcessReader reader(child.pid(), method);

    // A whole read, and a column: one element per row, far apart.
    std::vector<double> buf(kCols);
    const auto base = reinterpret_cast<std::uintptr_t>(data.data());
    ASSERT_TRUE(reader.read(base + 8 * kCols * 7, buf.data(), 8 * kCols).ok());
    for (std::size_t k = 0; k < kCols; ++k)
        ASSERT_EQ(buf[k], static_cast<double>(7 * kCols + k) * 0.5 - 7) << k;
    EXPECT_EQ(reader.method(), method);

    ArrayDescriptor a = ArrayDescriptor::cArray(ElementKind::Double, base, {kRows, kCols});
    Result<PlotValues> column = plotValues(a, reader, "[:][3]", "");
    ASSERT_TRUE(column.ok()) << column.message();
    ASSERT_EQ(column->values.size(), kRows);
    for (std::size_t i = 0; i < kRows; ++i)
        ASSERT_EQ(column->values[i], static_cast<double>(i * kCols + 3) * 0.5 - 7) << i;

    // Statistics through the process reader equal those of a local copy.
    std::vector<double> local(kRows * kCols);
    for (std::size_t i = 0; i < local.size(); ++i)
        local[i] = static_cast<double>(i) * 0.5 - 7;
    ArrayDescriptor la = a;
    la.address = reinterpret_cast<std::uintptr_t>(local.data());
    BufferReader localReader(local.data(), local.size() * 8);
    Result<Statistics> remote = computeStatistics(a, reader, "[1:299:2][::-3]", "$value > 100");
    Result<Statistics> mine = computeStatistics(la, localReader, "[1:299:2][::-3]", "$value > 100");
    ASSERT_TRUE(remote.ok()) << remote.message();
    ASSERT_TRUE(mine.ok()) << mine.message();
    EXPECT_GT(remote->count, 1000u);
    EXPECT_EQ(remote->count, mine->count);
    EXPECT_EQ(remote->checksum, mine->checksum);
    EXPECT_EQ(remote->median, mine->median);
    EXPECT_EQ(std::get<double>(remote->sum), std::get<double>(mine->sum));

    // An address nobody maps.
    double one = 0;
    Status bad = reader.read(8, &one, sizeof one);
    ASSERT_FALSE(bad.ok());
    EXPECT_EQ(bad.error().code, ErrorCode::Unreadable);
    EXPECT_EQ(bad.message(), "Cannot read memory at address 0x8.");
}

TEST(ProcessReader, ProcessVmReadv) {
    readAndCheck(ProcessReader::Method::VmReadv);
}

TEST(ProcessReader, ProcMemFallback) {
    readAndCheck(ProcessReader::Method::ProcMem);
}

TEST(ProcessReader, AutomaticSettlesOnAMethod) {
    std::vector<double> data(16, 1.0);
    Child child(data);
    ASSERT_TRUE(child.ok());
    ProcessReader reader(child.pid());
    double v = 0;
    ASSERT_TRUE(reader.read(reinterpret_cast<std::uintptr_t>(data.data()) + 8, &v, 8).ok());
    EXPECT_EQ(v, -6.5);
    EXPECT_NE(reader.method(), ProcessReader::Method::Automatic);
}

TEST(ProcessReader, ProcessThatIsGone) {
    pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(0);
    int status = 0;
    ::waitpid(pid, &status, 0);
    double v = 0;
    for (auto method : {ProcessReader::Method::VmReadv, ProcessReader::Method::ProcMem}) {
        ProcessReader reader(pid, method);
        Status s = reader.read(reinterpret_cast<std::uintptr_t>(&v), &v, 8);
        ASSERT_FALSE(s.ok());
        EXPECT_EQ(s.error().code, ErrorCode::Unreadable);
        EXPECT_NE(s.message().find(std::to_string(pid)), std::string::npos) << s.message();
    }
}

} // namespace
