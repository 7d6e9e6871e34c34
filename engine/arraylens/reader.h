// Readers give the engine the bytes of the debuggee. The engine asks for
// pieces of a few hundred KiB into buffers it reuses, from several threads at
// once: every reader must allow concurrent calls.
#pragma once

#include "result.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace arraylens {

// One piece of a gathered read: size bytes at address go to dest.
struct Segment {
    std::uint64_t address;
    std::size_t size;
    void* dest;
};

class Reader {
public:
    virtual ~Reader() = default;
    virtual Status read(std::uint64_t address, void* dest, std::size_t size) = 0;
    // Reads many pieces; readers that can gather in one call override this.
    virtual Status readv(const Segment* segments, std::size_t count);
    // Whether thousands of small pieces read scattered over the array cost
    // little beside one pass over it; guesses from a sample are made only
    // then.
    virtual bool cheapScatteredReads() const { return false; }
};

// Memory of this process, as if it were the debuggee's: the address is taken
// relative to a base, so tests can describe arrays at any address they like.
class BufferReader : public Reader {
public:
    // The debuggee address `baseAddress` maps to data[0].
    BufferReader(const void* data, std::size_t size, std::uint64_t baseAddress);
    // The buffer's own address is its debuggee address.
    BufferReader(const void* data, std::size_t size);
    Status read(std::uint64_t address, void* dest, std::size_t size) override;
    bool cheapScatteredReads() const override { return true; }
    std::uint64_t baseAddress() const { return base_; }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::uint64_t base_;
};

// Memory of a live local process by pid: process_vm_readv, and pread on
// /proc/PID/mem when the former is not allowed or not there.
class ProcessReader : public Reader {
public:
    enum class Method { Automatic, VmReadv, ProcMem };
    explicit ProcessReader(pid_t pid, Method method = Method::Automatic);
    ~ProcessReader() override;
    ProcessReader(const ProcessReader&) = delete;
    ProcessReader& operator=(const ProcessReader&) = delete;

    Status read(std::uint64_t address, void* dest, std::size_t size) override;
    Status readv(const Segment* segments, std::size_t count) override;
    bool cheapScatteredReads() const override { return true; }
    // The method the last successful read used.
    Method method() const { return method_.load(); }

private:
    Status readVm(const Segment* segments, std::size_t count, bool& unsupported);
    Status readProcMem(const Segment* segments, std::size_t count);
    int memFd();

    pid_t pid_;
    std::atomic<Method> method_;
    std::atomic<int> fd_{-1};
};

// "Cannot read memory at address 0x1000."
Error unreadableAt(std::uint64_t address);

} // namespace arraylens
