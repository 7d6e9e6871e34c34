#include "corefile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace arraylens {

namespace {

// Sizes and fields of the ELF64 structures, read byte by byte so that the
// layout of this machine's structs never matters.
constexpr std::size_t kElfHeaderBytes = 64;
constexpr std::size_t kProgramHeaderBytes = 56;
constexpr std::size_t kSectionHeaderBytes = 64;
constexpr std::uint16_t kElfCore = 4;
constexpr std::uint32_t kLoadSegment = 1;
constexpr std::uint16_t kManyProgramHeaders = 0xffff; // the count is in section 0

std::uint64_t little(const unsigned char* p, int bytes) {
    std::uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i)
        v = (v << 8) | p[i];
    return v;
}

Error corrupt(const std::string& why) {
    return Error{ErrorCode::Unreadable, why};
}

// Program headers read per call of the byte source.
constexpr std::size_t kHeadersPerRead = 4096;

} // namespace

Result<std::vector<CoreSegment>> parseCoreSegments(const CoreBytes& bytes, std::uint64_t fileSize) {
    unsigned char eh[kElfHeaderBytes];
    if (fileSize < kElfHeaderBytes || !bytes(0, eh, kElfHeaderBytes))
        return corrupt("it is too short to be an ELF file");
    if (std::memcmp(eh,
                    "\x7f"
                    "ELF",
                    4) != 0)
        return corrupt("it is not an ELF file");
    if (eh[4] != 2)
        return corrupt("it is not a 64-bit ELF file");
    if (eh[5] != 1)
        return corrupt("it is not a little-endian ELF file");
    const std::uint64_t type = little(eh + 16, 2);
    if (type != kElfCore)
        return corrupt("it is an ELF file but not a core (its type is " + std::to_string(type) +
                       ")");
    const std::uint64_t phoff = little(eh + 32, 8);
    const std::uint64_t shoff = little(eh + 40, 8);
    const std::uint64_t phentsize = little(eh + 54, 2);
    std::uint64_t phnum = little(eh + 56, 2);
    if (phnum == 0)
        return corrupt("it has no program headers");
    if (phentsize != kProgramHeaderBytes)
        return corrupt("its program headers are " + std::to_string(phentsize) +
                       " bytes long, not " + std::to_string(kProgramHeaderBytes));
    if (phnum == kManyProgramHeaders) {
        // More headers than 16 bits count: the first section header holds
        // the number.
        unsigned char sh[kSectionHeaderBytes];
        if (shoff == 0 || shoff > fileSize || fileSize - shoff < kSectionHeaderBytes ||
            !bytes(shoff, sh, kSectionHeaderBytes))
            return corrupt("its count of program headers lies outside the file");
        phnum = little(sh + 44, 4);
        if (phnum == 0)
            return corrupt("it has no program headers");
    }
    if (phoff > fileSize || (fileSize - phoff) / kProgramHeaderBytes < phnum)
        return corrupt("its program headers lie outside the file");

    std::vector<CoreSegment> segments;
    std::vector<unsigned char> table;
    for (std::uint64_t first = 0; first < phnum; first += kHeadersPerRead) {
        const std::size_t n = std::size_t(std::min<std::uint64_t>(kHeadersPerRead, phnum - first));
        table.resize(n * kProgramHeaderBytes);
        if (!bytes(phoff + first * kProgramHeaderBytes, table.data(), table.size()))
            return corrupt("its program headers cannot be read");
        for (std::size_t k = 0; k < n; ++k) {
            const unsigned char* ph = table.data() + k * kProgramHeaderBytes;
            if (little(ph, 4) != kLoadSegment)
                continue;
            CoreSegment s;
            s.offset = little(ph + 8, 8);
            s.address = little(ph + 16, 8);
            const std::uint64_t filesz = little(ph + 32, 8);
            s.memoryBytes = little(ph + 40, 8);
            const std::string which = "segment " + std::to_string(first + k);
            if (s.memoryBytes == 0)
                continue;
            if (filesz > s.memoryBytes)
                return corrupt(which + " holds more bytes in the file than in memory");
            if (s.address + s.memoryBytes < s.address)
                return corrupt(which + " runs past the end of the address space");
            if (s.offset + filesz < s.offset)
                return corrupt(which + " runs past the largest file offset");
            // A truncated core keeps what it has; the rest is not in it.
            s.fileBytes = s.offset >= fileSize ? 0 : std::min(filesz, fileSize - s.offset);
            segments.push_back(s);
        }
    }
    std::sort(segments.begin(), segments.end(),
              [](const CoreSegment& a, const CoreSegment& b) { return a.address < b.address; });
    for (std::size_t i = 1; i < segments.size(); ++i)
        if (segments[i - 1].address + segments[i - 1].memoryBytes > segments[i].address)
            return corrupt("two of its segments overlap");
    return segments;
}

Result<std::unique_ptr<CoreFileReader>> CoreFileReader::open(const std::string& path,
                                                             Reader* fallback) {
    auto failed = [&](const std::string& why) {
        return Error{ErrorCode::Unreadable, "Cannot read the core file " + path + ": " + why + "."};
    };
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return failed(std::strerror(errno));
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return failed("it is not a regular file");
    }
    auto bytes = [fd](std::uint64_t offset, void* dest, std::size_t n) {
        auto* out = static_cast<unsigned char*>(dest);
        while (n > 0) {
            const ssize_t got = ::pread(fd, out, n, off_t(offset));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            out += got;
            offset += std::uint64_t(got);
            n -= std::size_t(got);
        }
        return true;
    };
    auto segments = parseCoreSegments(bytes, std::uint64_t(st.st_size));
    if (!segments) {
        ::close(fd);
        return failed(segments.message());
    }
    return std::unique_ptr<CoreFileReader>(
        new CoreFileReader(fd, path, std::move(segments).value(), fallback));
}

CoreFileReader::CoreFileReader(int fd, std::string path, std::vector<CoreSegment> segments,
                               Reader* fallback)
    : fd_(fd), path_(std::move(path)), segments_(std::move(segments)), fallback_(fallback) {}

CoreFileReader::~CoreFileReader() {
    ::close(fd_);
}

std::size_t CoreFileReader::segmentAfter(std::uint64_t address) const {
    // Segments do not overlap, so their ends rise with their starts.
    auto it = std::upper_bound(
        segments_.begin(), segments_.end(), address,
        [](std::uint64_t a, const CoreSegment& s) { return a < s.address + s.memoryBytes; });
    return std::size_t(it - segments_.begin());
}

std::uint64_t CoreFileReader::bytesInFile(std::uint64_t address, std::uint64_t size) const {
    const std::uint64_t end = address + std::min(size, ~std::uint64_t(0) - address);
    std::uint64_t held = 0;
    for (std::size_t i = segmentAfter(address); i < segments_.size(); ++i) {
        const CoreSegment& s = segments_[i];
        if (s.address >= end)
            break;
        const std::uint64_t from = std::max(address, s.address);
        const std::uint64_t to = std::min(end, s.address + s.fileBytes);
        if (to > from)
            held += to - from;
    }
    return held;
}

Status CoreFileReader::readFile(std::uint64_t offset, std::uint64_t address, unsigned char* dest,
                                std::size_t size) {
    while (size > 0) {
        const ssize_t got = ::pread(fd_, dest, size, off_t(offset));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            // The file shrank or failed under us since it was opened.
            const std::string why = got < 0 ? std::strerror(errno) : "it ended early";
            char at[32];
            std::snprintf(at, sizeof at, "0x%llx", static_cast<unsigned long long>(address));
            return Error{ErrorCode::Unreadable, "Cannot read the core file " + path_ +
                                                    " at the address " + at + ": " + why + "."};
        }
        dest += got;
        offset += std::uint64_t(got);
        address += std::uint64_t(got);
        size -= std::size_t(got);
    }
    return Status::Ok();
}

bool CoreFileReader::inFile(std::uint64_t address, std::size_t& segment) const {
    segment = segmentAfter(address);
    return segment < segments_.size() && segments_[segment].address <= address &&
           address - segments_[segment].address < segments_[segment].fileBytes;
}

Status CoreFileReader::read(std::uint64_t address, void* dest, std::size_t size) {
    auto* out = static_cast<unsigned char*>(dest);
    while (size > 0) {
        std::size_t i = 0;
        std::size_t n = 0;
        if (inFile(address, i)) {
            const CoreSegment& s = segments_[i];
            const std::uint64_t in = address - s.address;
            n = std::size_t(std::min<std::uint64_t>(size, s.fileBytes - in));
            Status st = readFile(s.offset + in, address, out, n);
            if (!st)
                return st;
        } else {
            // The file does not hold this address: find where it next does
            // within the read, and let the fallback read everything up to
            // there in one call.
            std::uint64_t end = address;
            for (;;) {
                if (i < segments_.size() && segments_[i].address <= end)
                    end = segments_[i].address + segments_[i].memoryBytes; // past its file part
                else if (i < segments_.size())
                    end = segments_[i].address; // a gap before the next segment
                else
                    end = ~std::uint64_t(0);
                if (end - address >= size) {
                    end = address + size;
                    break;
                }
                if (inFile(end, i))
                    break;
            }
            n = std::size_t(end - address);
            if (!fallback_)
                return unreadableAt(address);
            Status st = fallback_->read(address, out, n);
            if (!st)
                return st;
        }
        out += n;
        address += n;
        size -= n;
    }
    return Status::Ok();
}

} // namespace arraylens
