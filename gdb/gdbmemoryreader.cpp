#include "gdbmemoryreader.h"

#include <cstring>

namespace arraylens::gdb {

GdbMemoryReader::GdbMemoryReader(GdbSession& session, int timeoutMs)
    : session_(session), timeoutMs_(timeoutMs) {}

arraylens::Status GdbMemoryReader::read(std::uint64_t address, void* dest, std::size_t size) {
    auto* out = static_cast<unsigned char*>(dest);
    ArrayResolver resolver(session_, timeoutMs_);
    while (size > 0) {
        const std::size_t n = std::min(size, kChunkBytes);
        Failure failure;
        MiReplyPtr r = resolver.run(QStringLiteral("-data-read-memory-bytes 0x%1 %2")
                                        .arg(address, 0, 16)
                                        .arg(qulonglong(n)),
                                    failure);
        if (!r) {
            if (failure.kind == Failure::Kind::Gdb)
                return arraylens::unreadableAt(address);
            return arraylens::Error{arraylens::ErrorCode::Unreadable,
                                    failure.message.toStdString()};
        }
        // gdb may answer in several blocks; all of the range must be there.
        std::size_t filled = 0;
        for (const auto& block : r->record().results["memory"].members()) {
            const std::string& begin = block.value["begin"].asString();
            const std::string& contents = block.value["contents"].asString();
            const std::uint64_t at = std::stoull(begin.empty() ? "0" : begin, nullptr, 16);
            if (at < address || at >= address + n)
                continue;
            const std::size_t offset = std::size_t(at - address);
            const std::size_t bytes = std::min(contents.size() / 2, n - offset);
            for (std::size_t i = 0; i < bytes; ++i) {
                const int hi = mi::hexDigit(contents[2 * i]),
                          lo = mi::hexDigit(contents[2 * i + 1]);
                if (hi < 0 || lo < 0)
                    return arraylens::unreadableAt(at + i);
                out[offset + i] = static_cast<unsigned char>(hi * 16 + lo);
            }
            filled += bytes;
        }
        if (filled < n)
            return arraylens::unreadableAt(address + filled);
        out += n;
        address += n;
        size -= n;
    }
    return arraylens::Status::Ok();
}

} // namespace arraylens::gdb
