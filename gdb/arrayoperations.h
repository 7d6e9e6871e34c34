// The four array operations: a request's fields in, a response's fields
// out. Resolves the expression through gdb, then reads and computes with
// the engine. Runs on a worker thread.
#pragma once

#include "arrayresolver.h"
#include "gdbsession.h"

#include "arraylens/plot.h"
#include "arraylens/reader.h"
#include "arraylens/table.h"

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVariant>
#include <QVector>

#include <atomic>
#include <cstddef>
#include <memory>

class QObject;

namespace arraylens::gdb {

using Fields = QVector<QPair<QByteArray, QVariant>>;

enum class Operation { Statistics, ArrayInfo, Table, Plot, Export, Unknown };

// What a request asks, copied out of its bag on the GUI thread.
struct RequestSnapshot {
    Operation operation = Operation::Unknown;
    QString id;
    QString expression;
    QString focus;
    QString scopeId;
    unsigned depth = 0;
    QString slice;
    QString filter;
    // Dimensions and viewport as 64-bit numbers: a table can have more than
    // 2^31 rows, and a value out of range must reach the engine to be
    // refused in words, not be cut to 32 bits on the way.
    qint64 rowDim = -1;
    qint64 colDim = -1;
    int dataFormat = 8;
    bool usingViewPort = false;
    qint64 startRow = -1, endRow = -1, startCol = -1, endCol = -1;
    QString outFile; // an export's file

    static RequestSnapshot fromBag(const QObject* bag);
};

// The most values a plot answer carries: the engine's limit, set from what
// the chart pages draw in time.
constexpr quint64 kMaxPlotValues = arraylens::kMaxPlotValues;

// The fields of the answer; "result" is always among them.
Fields performRequest(GdbSession& session, const RequestSnapshot& request,
                      const std::atomic<bool>* cancel);

// The fields of a table the engine made: extents, bounds and indices as
// ints while they fit, as the plug-in reads them, and as exact 64-bit
// numbers beyond.
Fields tableAnswer(const RequestSnapshot& request, const QString& typeText,
                   const arraylens::Table& table);

// Answers that need no gdb: the debugger gone, no process, a running one.
Fields stoppedFields(const RequestSnapshot& request);
Fields exitFields(const RequestSnapshot& request);
Fields staleFields(const RequestSnapshot& request);
Fields failureFields(const RequestSnapshot& request, const Failure& failure);
// An "error" answer with its message and code.
Fields errorFields(const RequestSnapshot& request, const QString& msg, const QString& code,
                   int dataType = 3);

class GdbMemoryReader;

// The reader of the target's memory: the process itself when it is live and
// local; a core's own file, with gdb for what the file leaves out; gdb for
// everything otherwise. And the tile size that suits it.
class MemoryAccess {
public:
    explicit MemoryAccess(GdbSession& session);
    ~MemoryAccess();
    MemoryAccess(const MemoryAccess&) = delete;
    MemoryAccess& operator=(const MemoryAccess&) = delete;
    arraylens::Reader& reader();
    std::size_t tileBytes() const;

private:
    std::unique_ptr<GdbMemoryReader> viaGdb_; // outlives the core reader that falls back on it
    std::unique_ptr<arraylens::Reader> direct_;
};

// The answer to a request about an array already described: reads through
// `reader` and computes with the engine (information reads nothing), on
// `threads` threads (0: one per core).
Fields computeFields(const RequestSnapshot& request, const ArrayFacts& facts,
                     const arraylens::ArrayDescriptor& array, arraylens::Reader& reader,
                     std::size_t tileBytes, const std::atomic<bool>* cancel, int threads = 0);

} // namespace arraylens::gdb
