// Reads the debuggee's memory through gdb (-data-read-memory-bytes), for
// targets whose memory this process cannot read itself: core files and
// remote targets. Slow (hex text), so it reads in large pieces.
#pragma once

#include "arrayresolver.h"
#include "gdbsession.h"

#include "arraylens/reader.h"

namespace arraylens::gdb {

class GdbMemoryReader : public arraylens::Reader {
public:
    explicit GdbMemoryReader(GdbSession& session, int timeoutMs = 60000);
    arraylens::Status read(std::uint64_t address, void* dest, std::size_t size) override;

    // Bytes of one command; larger reads are split.
    static constexpr std::size_t kChunkBytes = 4u << 20;

private:
    GdbSession& session_;
    int timeoutMs_;
};

} // namespace arraylens::gdb
