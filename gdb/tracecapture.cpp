#include "tracecapture.h"

#include "describer.h"

#include "arraylens/options.h"
#include "arraylens/reader.h"

#include <algorithm>

namespace arraylens::gdb {

namespace {

bool isError(const Fields& fields) {
    for (const auto& field : fields)
        if (field.first == "result")
            return field.second.toString() != QLatin1String("done");
    return true;
}

} // namespace

std::shared_ptr<CaptureBuffers::Buffer> CaptureBuffers::take(std::size_t size,
                                                             const std::atomic<bool>* cancel) {
    std::unique_ptr<Buffer> buffer;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        returned_.wait(lock, [&] { return out_ < limit_ || (cancel && cancel->load()); });
        if (cancel && cancel->load())
            return nullptr;
        ++out_;
        if (!free_.empty()) {
            buffer = std::move(free_.back());
            free_.pop_back();
        }
    }
    if (!buffer)
        buffer = std::make_unique<Buffer>();
    // Grows only: a buffer that served a stop serves the next one of the
    // same array without touching a new page.
    if (buffer->size() < size)
        buffer->resize(size);
    std::weak_ptr<CaptureBuffers> pool = weak_from_this();
    return std::shared_ptr<Buffer>(buffer.release(), [pool](Buffer* b) {
        if (auto p = pool.lock())
            p->give(b);
        else
            delete b;
    });
}

void CaptureBuffers::give(Buffer* buffer) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        --out_;
        free_.emplace_back(buffer);
    }
    returned_.notify_all();
}

void CaptureBuffers::wake() {
    // Taking the lock orders this wake-up after a waiter's look at its flag.
    { std::lock_guard<std::mutex> lock(mutex_); }
    returned_.notify_all();
}

bool arraySpan(const arraylens::ArrayDescriptor& array, std::uint64_t& first, std::uint64_t& size) {
    // validate() has made sure that every offset fits in 64 signed bits.
    std::int64_t low = 0, high = 0;
    for (const arraylens::Dimension& d : array.dims) {
        const std::int64_t extent = d.extent();
        if (extent <= 0)
            return false;
        const std::int64_t reach = (extent - 1) * d.byteStride;
        if (reach < 0)
            low += reach;
        else
            high += reach;
    }
    first = array.address + std::uint64_t(low);
    size = std::uint64_t(high - low) + array.elementSize;
    return true;
}

bool copyArray(GdbSession& session, StopCapture& capture, CaptureBuffers& buffers,
               const std::atomic<bool>* cancel, std::uint64_t maxCopyBytes) {
    std::uint64_t first = 0, size = 0;
    if (!arraySpan(capture.array, first, size) || size > maxCopyBytes ||
        size / 2 > capture.array.elementCount() * capture.array.elementSize + 4096 ||
        !session.readsMemoryDirectly() || session.pid() <= 0)
        return false;
    capture.bytes = buffers.take(std::size_t(size), cancel);
    if (!capture.bytes)
        return false;
    arraylens::ProcessReader process(pid_t(session.pid()));
    if (!process.read(first, capture.bytes->data(), std::size_t(size))) {
        capture.bytes.reset();
        return false;
    }
    capture.base = first;
    capture.kind = StopCapture::Kind::Copied;
    return true;
}

StopCapture captureStop(GdbSession& session, const FrameInfo& frame, const RequestSnapshot& request,
                        bool copy, CaptureBuffers& buffers, const std::atomic<bool>* cancel,
                        std::uint64_t maxCopyBytes) {
    StopCapture out;
    const quint64 generation = session.runGeneration();
    ArrayResolver resolver(session);
    Failure failure;
    {
        const auto transaction = session.beginTransaction();
        if (!resolver.describe(frame, request.expression, true, out.facts, failure))
            return out;
    }
    if (!ArrayResolver::toDescriptor(out.facts, out.array, failure) ||
        !arraylens::validate(out.array))
        return out;
    if (copy && copyArray(session, out, buffers, cancel, maxCopyBytes)) {
        if (session.runGeneration() != generation ||
            session.targetState() != GdbSession::TargetState::Stopped)
            return StopCapture();
        return out;
    }
    if (cancel && cancel->load())
        return StopCapture();
    MemoryAccess memory(session);
    out.fields =
        computeFields(request, out.facts, out.array, memory.reader(), memory.tileBytes(), cancel);
    if (isError(out.fields) || session.runGeneration() != generation)
        return StopCapture();
    out.kind = StopCapture::Kind::Computed;
    return out;
}

StopCapture captureDescribed(GdbSession& session, const QString& expression,
                             const QString& describerLine, CaptureBuffers& buffers,
                             const std::atomic<bool>* cancel, std::uint64_t maxCopyBytes) {
    StopCapture out;
    out.facts.expression = expression;
    Failure failure;
    if (!checkExpressionText(expression, failure) || splitFortranCast(expression) ||
        !readDescriberReply(describerLine, out.facts, failure) ||
        (out.facts.isArray && !out.facts.problem.isEmpty()) ||
        !ArrayResolver::toDescriptor(out.facts, out.array, failure) ||
        !arraylens::validate(out.array) || !copyArray(session, out, buffers, cancel, maxCopyBytes))
        return StopCapture();
    return out;
}

Fields computeCopied(const StopCapture& capture, const RequestSnapshot& request,
                     const std::atomic<bool>* cancel) {
    arraylens::BufferReader reader(capture.bytes->data(), capture.bytes->size(), capture.base);
    // The tiles of a live read. One thread: the program runs its next step
    // on another core meanwhile, and the engine's answer has the same bits
    // whatever the threads.
    return computeFields(request, capture.facts, capture.array, reader,
                         arraylens::kDefaultTileBytes, cancel, 1);
}

} // namespace arraylens::gdb
