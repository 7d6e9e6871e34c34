#include "reader.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/uio.h>
#include <unistd.h>

namespace arraylens {

Error unreadableAt(std::uint64_t address) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(address));
    return Error{ErrorCode::Unreadable, std::string("Cannot read memory at address ") + buf + "."};
}

Status Reader::readv(const Segment* segments, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        Status s = read(segments[i].address, segments[i].dest, segments[i].size);
        if (!s)
            return s;
    }
    return Status::Ok();
}

BufferReader::BufferReader(const void* data, std::size_t size, std::uint64_t baseAddress)
    : data_(static_cast<const unsigned char*>(data)), size_(size), base_(baseAddress) {}

BufferReader::BufferReader(const void* data, std::size_t size)
    : BufferReader(data, size, reinterpret_cast<std::uintptr_t>(data)) {}

Status BufferReader::read(std::uint64_t address, void* dest, std::size_t size) {
    if (address < base_ || address - base_ > size_ || size > size_ - (address - base_))
        return unreadableAt(address);
    if (size)
        std::memcpy(dest, data_ + (address - base_), size);
    return Status::Ok();
}

ProcessReader::ProcessReader(pid_t pid, Method method) : pid_(pid), method_(method) {}

ProcessReader::~ProcessReader() {
    int fd = fd_.load();
    if (fd >= 0)
        ::close(fd);
}

Status ProcessReader::read(std::uint64_t address, void* dest, std::size_t size) {
    Segment s{address, size, dest};
    return readv(&s, 1);
}

Status ProcessReader::readv(const Segment* segments, std::size_t count) {
    if (method_.load() != Method::ProcMem) {
        bool unsupported = false;
        Status s = readVm(segments, count, unsupported);
        if (!unsupported) {
            if (s && method_.load() == Method::Automatic)
                method_.store(Method::VmReadv);
            return s;
        }
        method_.store(Method::ProcMem);
    }
    return readProcMem(segments, count);
}

// Gathers up to IOV_MAX pieces per call. A short count means an unreadable
// page; the address named is the first byte that did not arrive.
Status ProcessReader::readVm(const Segment* segments, std::size_t count, bool& unsupported) {
    constexpr std::size_t kMaxIov = IOV_MAX < 1024 ? IOV_MAX : 1024;
    iovec local[kMaxIov];
    iovec remote[kMaxIov];
    std::size_t i = 0;
    while (i < count) {
        std::size_t n = 0;
        std::size_t want = 0;
        for (; n < kMaxIov && i + n < count; ++n) {
            const Segment& s = segments[i + n];
            local[n].iov_base = s.dest;
            local[n].iov_len = s.size;
            remote[n].iov_base = reinterpret_cast<void*>(static_cast<std::uintptr_t>(s.address));
            remote[n].iov_len = s.size;
            want += s.size;
        }
        std::size_t done = 0;
        while (done < want) {
            // Skip what already arrived after a partial transfer.
            std::size_t skip = done, k = 0;
            while (k < n && skip >= remote[k].iov_len) {
                skip -= remote[k].iov_len;
                ++k;
            }
            iovec l = local[k], r = remote[k];
            local[k].iov_base = static_cast<char*>(local[k].iov_base) + skip;
            local[k].iov_len -= skip;
            remote[k].iov_base = static_cast<char*>(remote[k].iov_base) + skip;
            remote[k].iov_len -= skip;
            ssize_t got = ::process_vm_readv(pid_, local + k, n - k, remote + k, n - k, 0);
            local[k] = l;
            remote[k] = r;
            if (got < 0) {
                if (errno == EINTR)
                    continue;
                if (errno == ENOSYS || errno == EPERM) {
                    unsupported = true;
                    return Status::Ok();
                }
                if (errno == ESRCH)
                    return Error{ErrorCode::Unreadable, "The process " + std::to_string(pid_) +
                                                            " does not exist any more."};
                return unreadableAt(reinterpret_cast<std::uintptr_t>(remote[k].iov_base) + skip);
            }
            if (got == 0)
                return unreadableAt(reinterpret_cast<std::uintptr_t>(remote[k].iov_base) + skip);
            done += static_cast<std::size_t>(got);
        }
        i += n;
    }
    return Status::Ok();
}

int ProcessReader::memFd() {
    int fd = fd_.load();
    if (fd >= 0)
        return fd;
    std::string path = "/proc/" + std::to_string(pid_) + "/mem";
    int opened = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0)
        return -1;
    int expected = -1;
    if (!fd_.compare_exchange_strong(expected, opened)) {
        ::close(opened);
        return expected;
    }
    return opened;
}

Status ProcessReader::readProcMem(const Segment* segments, std::size_t count) {
    int fd = memFd();
    if (fd < 0)
        return Error{ErrorCode::Unreadable, "Cannot read the memory of process " +
                                                std::to_string(pid_) + ": " + std::strerror(errno) +
                                                "."};
    for (std::size_t i = 0; i < count; ++i) {
        const Segment& s = segments[i];
        std::size_t done = 0;
        while (done < s.size) {
            ssize_t got = ::pread(fd, static_cast<char*>(s.dest) + done, s.size - done,
                                  static_cast<off_t>(s.address + done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return unreadableAt(s.address + done);
            done += static_cast<std::size_t>(got);
        }
    }
    return Status::Ok();
}

} // namespace arraylens
