// Memory of a core file, read from the file itself.
//
// An ELF core lists the debuggee's memory as PT_LOAD program headers: a
// segment maps the addresses vaddr .. vaddr + memsz, of which the first
// filesz bytes lie in the file at offset. What the core leaves out (the part
// of a segment beyond filesz, and addresses no segment maps: read-only pages
// of the program and its libraries, which a debugger takes from those files)
// comes from a second reader, the debugger's. The file part is read with
// pread, at the speed of the page cache, from any number of threads.
#pragma once

#include "reader.h"
#include "result.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace arraylens {

// One PT_LOAD segment; fileBytes is what the file holds of it (filesz, less
// whatever a truncated core lost at its end).
struct CoreSegment {
    std::uint64_t address = 0;
    std::uint64_t memoryBytes = 0;
    std::uint64_t offset = 0;
    std::uint64_t fileBytes = 0;
};

// Reads n bytes of the file at offset into dest; false when they are not all
// there.
using CoreBytes = std::function<bool(std::uint64_t offset, void* dest, std::size_t n)>;

// The PT_LOAD segments of an ELF64 little-endian core of fileSize bytes, by
// increasing address. A core is untrusted input: every header field is
// checked against the file, and anything that is not a well-formed core is
// refused with a message that says what is wrong.
Result<std::vector<CoreSegment>> parseCoreSegments(const CoreBytes& bytes, std::uint64_t fileSize);

class CoreFileReader : public Reader {
public:
    // Opens and parses the core at path. `fallback` (may be null) reads what
    // the file does not hold; without one such reads fail.
    static Result<std::unique_ptr<CoreFileReader>> open(const std::string& path,
                                                        Reader* fallback = nullptr);
    ~CoreFileReader() override;
    CoreFileReader(const CoreFileReader&) = delete;
    CoreFileReader& operator=(const CoreFileReader&) = delete;

    Status read(std::uint64_t address, void* dest, std::size_t size) override;
    bool cheapScatteredReads() const override { return true; }

    const std::vector<CoreSegment>& segments() const { return segments_; }
    // How many of the size bytes at address the file holds.
    std::uint64_t bytesInFile(std::uint64_t address, std::uint64_t size) const;

private:
    CoreFileReader(int fd, std::string path, std::vector<CoreSegment> segments, Reader* fallback);
    // The first segment that ends after address, or segments_.size().
    std::size_t segmentAfter(std::uint64_t address) const;
    // Whether the file holds the byte at address; segment is the one that
    // maps it, or the next one.
    bool inFile(std::uint64_t address, std::size_t& segment) const;
    Status readFile(std::uint64_t offset, std::uint64_t address, unsigned char* dest,
                    std::size_t size);

    int fd_;
    std::string path_;
    std::vector<CoreSegment> segments_;
    Reader* fallback_;
};

} // namespace arraylens
