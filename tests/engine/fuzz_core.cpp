// libFuzzer over the core file's header parser: any bytes as a whole file.
// The parser must refuse or answer, never read outside the file or crash,
// and what it answers must be well-formed.
#include "arraylens/corefile.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    auto bytes = [&](std::uint64_t offset, void* dest, std::size_t n) {
        if (offset > size || n > size - offset)
            return false;
        std::memcpy(dest, data + offset, n);
        return true;
    };
    auto segments = arraylens::parseCoreSegments(bytes, size);
    if (!segments) {
        if (segments.message().empty())
            std::abort();
        return 0;
    }
    std::uint64_t end = 0;
    for (const auto& s : *segments) {
        // Sorted, apart, inside the address space, the file part inside the
        // file.
        if (s.address < end || s.memoryBytes == 0 || s.fileBytes > s.memoryBytes ||
            s.address + s.memoryBytes < s.address ||
            (s.fileBytes > 0 && (s.offset > size || s.fileBytes > size - s.offset)))
            std::abort();
        end = s.address + s.memoryBytes;
    }
    return 0;
}
