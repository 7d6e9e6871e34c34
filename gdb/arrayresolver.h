// What gdb says about an expression in a frame: its type, language, shape,
// and where its elements lie. Runs on a worker thread and waits for gdb's
// answers; every command names its thread and frame itself, so nothing
// depends on what gdb has selected at the moment.
#pragma once

#include "gdbsession.h"
#include "gdbtypes.h"

#include "arraylens/descriptor.h"

#include <QString>
#include <QVector>

namespace arraylens::gdb {

struct CastElement;

struct FrameInfo {
    QString thread;
    int level = 0;
    QString function;
    QString file;
    QString fullname;
    QString address;
    int line = 0;
    // Frames of the same function nearer the top of the stack.
    unsigned recursionDepth = 0;
};

// Why a step failed, in the words the user gets to read.
struct Failure {
    enum class Kind { None, Gdb, Lost, Running, Exited, TimedOut, NotArray, Frame, Type };
    Kind kind = Kind::None;
    QString message;
    QString code() const;
};

struct ArrayFacts {
    QString expression;
    QString typeText; // as `whatis` gives it
    QString language;
    bool fortran = false;
    bool isArray = false;
    bool isPointer = false;
    QVector<DimBounds> dims;
    QString elementType; // resolved (ptype) text of one element
    int elementSize = 0;
    quint64 address = 0; // of the element at every lower bound
    QVector<qint64> byteStrides;
    QString problem; // a shape that cannot be shown (not allocated, ...)
    // Why a value that is no array cannot be shown, and what to show
    // instead ("p is a pointer to double: show N elements with *p@N").
    QString refusal;
    // What to show instead when the elements are structures, in the
    // language's own syntax ("show a component of every element, for
    // example cells%density.").
    QString elementHint;
    // The container family when the value is a container ("std::vector").
    QString family;
    // The address of the value itself, when it is in memory.
    bool hasValueAddress = false;
    quint64 valueAddress = 0;
};

class ArrayResolver {
public:
    ArrayResolver(GdbSession& session, int timeoutMs = 30000);

    // Frames of a thread, innermost first, with their recursion depths.
    bool stack(const QString& thread, QVector<FrameInfo>& frames, Failure& failure);
    // The frame a request names: `scopeId` is the function (the innermost
    // frame when empty) and `depth` how many frames of it lie nearer the top.
    bool locate(const QString& focus, const QString& scopeId, unsigned depth, FrameInfo& frame,
                Failure& failure);
    // Type, language and shape; with `layout` also the element's kind,
    // size, first address and byte strides. The expression is evaluated
    // once, in one MI command, by the describer inside gdb.
    bool describe(const FrameInfo& frame, const QString& expression, bool layout, ArrayFacts& facts,
                  Failure& failure);
    // The engine's descriptor of an array described with its layout.
    static bool toDescriptor(const ArrayFacts& facts, arraylens::ArrayDescriptor& out,
                             Failure& failure);

    // Runs one MI command and waits for it; false with `failure` filled.
    MiReplyPtr run(const QString& command, Failure& failure);
    // A console command in a frame, e.g. "whatis x"; gives its output.
    bool console(const FrameInfo& frame, const QString& command, QString& output, Failure& failure);
    bool evaluate(const FrameInfo& frame, const QString& expression, QString& value,
                  Failure& failure);

private:
    QString frameOptions(const FrameInfo& frame) const;
    // The describer's one round trip.
    bool describeValue(const FrameInfo& frame, const QString& expression, bool layout,
                       const QString& castElement, ArrayFacts& facts, Failure& failure,
                       CastElement* cast = nullptr);
    // `{T (bounds)} E` in a Fortran frame: E's own facts (`base`, or the
    // failure that describing E met), then T's elements laid out
    // contiguously from E's first element.
    bool describeFortranCast(const FortranCastText& cast, const ArrayFacts& base,
                             const Failure& baseFailure, bool layout, ArrayFacts& facts,
                             Failure& failure);
    // `{T} E` with E a container: T's elements from the container's data,
    // contiguous and row-major.
    bool describeContainerCast(const FortranCastText& cast, const ArrayFacts& base,
                               const CastElement& element, ArrayFacts& facts, Failure& failure);

    GdbSession& session_;
    int timeoutMs_;
};

// Refuses text that could not be one gdb expression: empty, or with a line
// break or NUL, which no expression has.
bool checkExpressionText(const QString& text, Failure& failure);

} // namespace arraylens::gdb
