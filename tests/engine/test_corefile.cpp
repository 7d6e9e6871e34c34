// The core-file reader on cores written here byte by byte: which bytes come
// from the file and which from the fallback, reads across segment
// boundaries, and the refusal of files that are not well-formed cores.
#include "arraylens/arraylens.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

using namespace arraylens;

namespace {

struct Load {
    std::uint64_t address, memoryBytes, fileBytes;
};

void put(std::vector<unsigned char>& b, std::size_t at, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i)
        b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

// Memory as the debuggee had it: byte at address a is a function of a.
unsigned char memoryByte(std::uint64_t a) {
    return static_cast<unsigned char>((a * 2654435761u) >> 13);
}

// An ELF64 core whose PT_LOAD segments hold the first fileBytes of each
// load, in the order given, after one PT_NOTE. With `many`, e_phnum is
// 0xffff and the count stands in section header 0.
std::vector<unsigned char> makeCore(const std::vector<Load>& loads, bool many = false) {
    const std::size_t phnum = loads.size() + 1;
    const std::size_t phoff = 64, shoff = phoff + phnum * 56;
    std::size_t data = shoff + 64;
    std::vector<unsigned char> b(data);
    std::memcpy(b.data(),
                "\x7f"
                "ELF",
                4);
    b[4] = 2; // 64-bit
    b[5] = 1; // little-endian
    b[6] = 1;
    put(b, 16, 4, 2);  // ET_CORE
    put(b, 18, 62, 2); // x86-64
    put(b, 20, 1, 4);
    put(b, 32, phoff, 8);
    put(b, 40, many ? shoff : 0, 8);
    put(b, 52, 64, 2);
    put(b, 54, 56, 2);
    put(b, 56, many ? 0xffff : phnum, 2);
    put(b, 58, 64, 2);
    put(b, 60, many ? 1 : 0, 2);
    if (many)
        put(b, shoff + 44, phnum, 4);
    put(b, phoff, 4, 4); // PT_NOTE, empty
    for (std::size_t i = 0; i < loads.size(); ++i) {
        const std::size_t ph = phoff + (i + 1) * 56;
        put(b, ph, 1, 4);
        put(b, ph + 4, 6, 4);
        put(b, ph + 8, data, 8);
        put(b, ph + 16, loads[i].address, 8);
        put(b, ph + 32, loads[i].fileBytes, 8);
        put(b, ph + 40, loads[i].memoryBytes, 8);
        put(b, ph + 48, 4096, 8);
        b.resize(data + loads[i].fileBytes);
        for (std::uint64_t k = 0; k < loads[i].fileBytes; ++k)
            b[data + k] = memoryByte(loads[i].address + k);
        data += loads[i].fileBytes;
    }
    return b;
}

class TempFile {
public:
    explicit TempFile(const std::vector<unsigned char>& bytes) {
        char name[] = "/tmp/arraylens-core-XXXXXX";
        const int fd = ::mkstemp(name);
        path_ = name;
        if (fd >= 0) {
            const ssize_t w = ::write(fd, bytes.data(), bytes.size());
            ok_ = w == static_cast<ssize_t>(bytes.size());
            ::close(fd);
        }
    }
    ~TempFile() { std::remove(path_.c_str()); }
    const std::string& path() const { return path_; }
    bool ok() const { return ok_; }

private:
    std::string path_;
    bool ok_ = false;
};

// The debugger's view: every address readable, each read recorded.
class RecordingFallback : public Reader {
public:
    Status read(std::uint64_t address, void* dest, std::size_t size) override {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back({address, size, nullptr});
        auto* out = static_cast<unsigned char*>(dest);
        for (std::size_t i = 0; i < size; ++i)
            out[i] = memoryByte(address + i);
        return Status::Ok();
    }
    std::mutex mutex;
    std::vector<Segment> calls;
};

// Segments out of address order, one with a tail the file leaves out, one
// the file holds nothing of, a gap, and two that touch.
const std::vector<Load> kLoads = {
    {0x16000, 0x2000, 0x2000}, // C
    {0x10000, 0x3000, 0x3000}, // A
    {0x13000, 0x2000, 0x1000}, // B: 0x14000..0x15000 not in the file
    {0x18000, 0x1000, 0x0},    // D: none of it in the file
    {0x19000, 0x1000, 0x1000}, // E
};                             // 0x15000..0x16000 is a gap

std::vector<unsigned char> expected(std::uint64_t address, std::size_t size) {
    std::vector<unsigned char> v(size);
    for (std::size_t i = 0; i < size; ++i)
        v[i] = memoryByte(address + i);
    return v;
}

std::string refusal(const std::vector<unsigned char>& bytes) {
    TempFile f(bytes);
    if (!f.ok())
        return "no temporary file";
    auto r = CoreFileReader::open(f.path());
    return r ? std::string("opened") : r.message();
}

} // namespace

TEST(CoreFile, SegmentsAreSortedWithTheirFileParts) {
    TempFile f(makeCore(kLoads));
    ASSERT_TRUE(f.ok());
    auto r = CoreFileReader::open(f.path());
    ASSERT_TRUE(r) << r.message();
    const auto& s = (*r)->segments();
    ASSERT_EQ(s.size(), 5u);
    EXPECT_EQ(s[0].address, 0x10000u);
    EXPECT_EQ(s[1].address, 0x13000u);
    EXPECT_EQ(s[1].fileBytes, 0x1000u);
    EXPECT_EQ(s[1].memoryBytes, 0x2000u);
    EXPECT_EQ(s[4].address, 0x19000u);
    // A, B's file part, C and E.
    EXPECT_EQ((*r)->bytesInFile(0x12000, 0x8000), 0x1000u + 0x1000u + 0x2000u + 0x1000u);
    EXPECT_EQ((*r)->bytesInFile(0x18000, 0x1000), 0u);
}

TEST(CoreFile, ReadsWithinAndAcrossSegmentsComeFromTheFile) {
    TempFile f(makeCore(kLoads));
    ASSERT_TRUE(f.ok());
    RecordingFallback fallback;
    auto r = CoreFileReader::open(f.path(), &fallback);
    ASSERT_TRUE(r) << r.message();
    // Inside A; across the boundary of A and B; across C and the empty D,
    // which the fallback reads.
    for (auto [address, size] :
         {std::pair<std::uint64_t, std::size_t>{0x10010, 100}, {0x12ff0, 0x1008}, {0x17ff8, 16}}) {
        std::vector<unsigned char> got(size);
        ASSERT_TRUE((*r)->read(address, got.data(), size));
        EXPECT_EQ(got, expected(address, size)) << std::hex << address;
    }
    ASSERT_EQ(fallback.calls.size(), 1u);
    EXPECT_EQ(fallback.calls[0].address, 0x18000u);
    EXPECT_EQ(fallback.calls[0].size, 8u);
}

TEST(CoreFile, WhatTheFileLacksIsReadByTheFallbackInOneCallPerStretch) {
    TempFile f(makeCore(kLoads));
    ASSERT_TRUE(f.ok());
    RecordingFallback fallback;
    auto r = CoreFileReader::open(f.path(), &fallback);
    ASSERT_TRUE(r) << r.message();
    // From A through B's missing tail, the gap, C, D and E, and beyond the
    // last segment.
    const std::uint64_t address = 0x12800;
    const std::size_t size = 0x1b000 - address;
    std::vector<unsigned char> got(size);
    ASSERT_TRUE((*r)->read(address, got.data(), size));
    EXPECT_EQ(got, expected(address, size));
    ASSERT_EQ(fallback.calls.size(), 3u);
    // B's tail and the gap after it are one stretch.
    EXPECT_EQ(fallback.calls[0].address, 0x14000u);
    EXPECT_EQ(fallback.calls[0].size, 0x2000u);
    EXPECT_EQ(fallback.calls[1].address, 0x18000u);
    EXPECT_EQ(fallback.calls[1].size, 0x1000u);
    EXPECT_EQ(fallback.calls[2].address, 0x1a000u);
    EXPECT_EQ(fallback.calls[2].size, 0x1000u);
}

TEST(CoreFile, WithoutAFallbackTheFirstMissingByteIsNamed) {
    TempFile f(makeCore(kLoads));
    ASSERT_TRUE(f.ok());
    auto r = CoreFileReader::open(f.path());
    ASSERT_TRUE(r) << r.message();
    std::vector<unsigned char> got(0x2000);
    Status s = (*r)->read(0x13800, got.data(), got.size());
    ASSERT_FALSE(s);
    EXPECT_EQ(s.message(), "Cannot read memory at address 0x14000.");
    EXPECT_EQ(s.error().code, ErrorCode::Unreadable);
}

TEST(CoreFile, ManyProgramHeadersCountedInSectionZero) {
    TempFile f(makeCore(kLoads, true));
    ASSERT_TRUE(f.ok());
    auto r = CoreFileReader::open(f.path());
    ASSERT_TRUE(r) << r.message();
    EXPECT_EQ((*r)->segments().size(), 5u);
}

TEST(CoreFile, ATruncatedCoreKeepsWhatItHolds) {
    auto bytes = makeCore({{0x10000, 0x2000, 0x2000}});
    bytes.resize(bytes.size() - 0x800);
    TempFile f(bytes);
    ASSERT_TRUE(f.ok());
    RecordingFallback fallback;
    auto r = CoreFileReader::open(f.path(), &fallback);
    ASSERT_TRUE(r) << r.message();
    EXPECT_EQ((*r)->segments()[0].fileBytes, 0x1800u);
    std::vector<unsigned char> got(0x2000);
    ASSERT_TRUE((*r)->read(0x10000, got.data(), got.size()));
    EXPECT_EQ(got, expected(0x10000, 0x2000));
    ASSERT_EQ(fallback.calls.size(), 1u);
    EXPECT_EQ(fallback.calls[0].address, 0x11800u);
}

TEST(CoreFile, FilesThatAreNotCoresAreRefusedInWords) {
    const auto good = makeCore(kLoads);
    auto with = [&](std::size_t at, std::uint64_t v, int bytes) {
        auto b = good;
        put(b, at, v, bytes);
        return b;
    };
    EXPECT_EQ(refusal(good), "opened");
    const std::string prefix = "Cannot read the core file ";
    auto says = [&](const std::vector<unsigned char>& b, const std::string& why) {
        const std::string m = refusal(b);
        return m.rfind(prefix, 0) == 0 && m.size() > why.size() + 1 &&
               m.compare(m.size() - why.size() - 1, why.size(), why) == 0 && m.back() == '.';
    };
    EXPECT_TRUE(says({good.begin(), good.begin() + 20}, "it is too short to be an ELF file"));
    EXPECT_TRUE(says(with(0, 0, 1), "it is not an ELF file"));
    EXPECT_TRUE(says(with(4, 1, 1), "it is not a 64-bit ELF file"));
    EXPECT_TRUE(says(with(5, 2, 1), "it is not a little-endian ELF file"));
    EXPECT_TRUE(says(with(16, 2, 2), "it is an ELF file but not a core (its type is 2)"));
    EXPECT_TRUE(says(with(56, 0, 2), "it has no program headers"));
    EXPECT_TRUE(says(with(54, 32, 2), "its program headers are 32 bytes long, not 56"));
    EXPECT_TRUE(says(with(32, good.size() - 100, 8), "its program headers lie outside the file"));
    EXPECT_TRUE(says(with(32, ~0ull - 10, 8), "its program headers lie outside the file"));
    EXPECT_TRUE(says(with(56, 0xffff, 2), "its count of program headers lies outside the file"));
    // Program header 2 is A's: more in the file than in memory, and an end
    // past the address space.
    const std::size_t a = 64 + 2 * 56;
    EXPECT_TRUE(
        says(with(a + 32, 0x4000, 8), "segment 2 holds more bytes in the file than in memory"));
    EXPECT_TRUE(
        says(with(a + 16, ~0ull - 0x1000, 8), "segment 2 runs past the end of the address space"));
    EXPECT_TRUE(
        says(with(a + 8, ~0ull - 0x1000, 8), "segment 2 runs past the largest file offset"));
    EXPECT_TRUE(says(with(a + 16, 0x16800, 8), "two of its segments overlap"));
    EXPECT_EQ(refusal({}).rfind(prefix, 0), 0u);
    EXPECT_EQ(CoreFileReader::open("/nonexistent/core").message(),
              "Cannot read the core file /nonexistent/core: No such file or directory.");
    EXPECT_EQ(CoreFileReader::open("/tmp").message(),
              "Cannot read the core file /tmp: it is not a regular file.");
}
