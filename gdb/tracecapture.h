// The work of one trace stop off the GUI thread: the array described in the
// frame the stop record named (no stack listing first), then either its
// bytes copied out of the stopped process, so that the program can go on
// while the statistics are computed on the copy, or the statistics computed
// at once on the live process.
//
// A copy is the same bytes the live read would see, read while the program
// stands still, and the engine computes over it with the same tiles: the
// answer is the one a statistics request at that stop gives. Whatever goes
// wrong on this road (gdb's refusal, an unreadable page, a program that ran
// on) is left to the ordinary request road, which has the words for it.
#pragma once

#include "arrayoperations.h"
#include "arrayresolver.h"
#include "gdbsession.h"

#include "arraylens/descriptor.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace arraylens::gdb {

// Copies of arrays in memory, reused from stop to stop (a fresh buffer of
// megabytes costs a page fault per page). At most `limit` are out at once:
// a capture waits for a copy still being computed over, so a program that
// steps faster than its statistics are computed cannot pile up copies.
// Held through a shared_ptr: a buffer goes back to its pool when the last
// user lets go, whichever thread that is.
class CaptureBuffers : public std::enable_shared_from_this<CaptureBuffers> {
public:
    using Buffer = std::vector<unsigned char>;
    explicit CaptureBuffers(int limit = 2) : limit_(limit) {}
    // A buffer of at least `size` bytes; null when `cancel` was set while
    // waiting for one.
    std::shared_ptr<Buffer> take(std::size_t size, const std::atomic<bool>* cancel);
    // Wakes captures waiting in take() to look at their cancel flag.
    void wake();

private:
    void give(Buffer* buffer);

    std::mutex mutex_;
    std::condition_variable returned_;
    std::vector<std::unique_ptr<Buffer>> free_;
    int out_ = 0;
    int limit_;
};

// The bytes from the lowest to the highest element of an array (with
// gaps between strided elements); false when it has no element.
bool arraySpan(const arraylens::ArrayDescriptor& array, std::uint64_t& first, std::uint64_t& size);

struct StopCapture {
    enum class Kind {
        // Leave this stop to the ordinary request road (an error, a target
        // that changed, a layout that is not worth copying when overlapping
        // is not asked for either).
        Fallback,
        // The array's bytes are in `bytes`, at `base`; the program may go on.
        Copied,
        // The answer was computed on the live process: `fields`.
        Computed,
    };
    Kind kind = Kind::Fallback;
    ArrayFacts facts;
    arraylens::ArrayDescriptor array;
    std::shared_ptr<CaptureBuffers::Buffer> bytes;
    std::uint64_t base = 0;
    Fields fields;
};

// Describes `request.expression` in `frame` and, with `copy`, copies the
// array out of the stopped process (a live local one; copies of more than
// `maxCopyBytes` are not made); otherwise, or when the array is not worth
// copying, computes the statistics at once.
StopCapture captureStop(GdbSession& session, const FrameInfo& frame, const RequestSnapshot& request,
                        bool copy, CaptureBuffers& buffers, const std::atomic<bool>* cancel,
                        std::uint64_t maxCopyBytes = std::uint64_t(512) << 20);

// The copy of an array the describer's console line (as the stopped program
// stands) tells of: for a stop handled inside gdb, where no MI command can be
// sent. Kind::Fallback for anything but a plain expression whose array was
// copied.
StopCapture captureDescribed(GdbSession& session, const QString& expression,
                             const QString& describerLine, CaptureBuffers& buffers,
                             const std::atomic<bool>* cancel,
                             std::uint64_t maxCopyBytes = std::uint64_t(512) << 20);

// The statistics of a copied array.
Fields computeCopied(const StopCapture& capture, const RequestSnapshot& request,
                     const std::atomic<bool>* cancel);

} // namespace arraylens::gdb
