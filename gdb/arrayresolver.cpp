#include "arrayresolver.h"

#include "describer.h"

#include <algorithm>

namespace arraylens::gdb {

namespace {

QString q(const QString& text) {
    return QString::fromStdString(mi::quoteCString(text.toStdString()));
}

QString str(const mi::Value& v) {
    return QString::fromStdString(v.asString());
}

bool kindFor(ElementClass cls, int size, bool fortran, ElementKind& kind) {
    using K = ElementKind;
    switch (cls) {
    case ElementClass::Float:
        if (fortran) {
            if (size == 4)
                kind = K::FortranReal4;
            else if (size == 8)
                kind = K::FortranReal8;
            else
                return false;
            return true;
        }
        if (size == 4)
            kind = K::Float;
        else if (size == 8)
            kind = K::Double;
        else if (size == 10 || size == 12 || size == 16)
            kind = K::LongDouble;
        else
            return false;
        return true;
    case ElementClass::Signed:
    case ElementClass::Unsigned: {
        const bool u = cls == ElementClass::Unsigned;
        switch (size) {
        case 1:
            kind = fortran ? K::FortranInteger1 : (u ? K::UInt8 : K::Int8);
            return true;
        case 2:
            kind = fortran ? K::FortranInteger2 : (u ? K::UInt16 : K::Int16);
            return true;
        case 4:
            kind = fortran ? K::FortranInteger4 : (u ? K::UInt32 : K::Int32);
            return true;
        case 8:
            kind = fortran ? K::FortranInteger8 : (u ? K::UInt64 : K::Int64);
            return true;
        default:
            return false;
        }
    }
    case ElementClass::Logical:
        switch (size) {
        case 1:
            kind = K::FortranLogical1;
            return true;
        case 2:
            kind = K::FortranLogical2;
            return true;
        case 4:
            kind = K::FortranLogical4;
            return true;
        case 8:
            kind = K::FortranLogical8;
            return true;
        default:
            return false;
        }
    case ElementClass::Bool:
        kind = K::Bool;
        return size == 1;
    case ElementClass::Char:
        kind = K::Char;
        return size == 1;
    case ElementClass::SignedChar:
        kind = K::SignedChar;
        return size == 1;
    case ElementClass::UnsignedChar:
        kind = K::UnsignedChar;
        return size == 1;
    case ElementClass::WChar:
        kind = K::WChar;
        return size == 4;
    case ElementClass::Char16:
        kind = K::Char16;
        return size == 2;
    case ElementClass::Char32:
        kind = K::Char32;
        return size == 4;
    case ElementClass::Character:
        kind = K::FortranCharacter;
        return size == 1;
    case ElementClass::Unsupported:
        break;
    }
    return false;
}

} // namespace

QString Failure::code() const {
    switch (kind) {
    case Kind::None:
        return QString();
    case Kind::Gdb:
        return QStringLiteral("gdb");
    case Kind::Lost:
        return QStringLiteral("stopped");
    case Kind::Running:
        return QStringLiteral("running");
    case Kind::Exited:
        return QStringLiteral("exit");
    case Kind::TimedOut:
        return QStringLiteral("timeout");
    case Kind::NotArray:
        return QStringLiteral("notarray");
    case Kind::Frame:
        return QStringLiteral("frame");
    case Kind::Type:
        return QStringLiteral("type");
    }
    return QString();
}

bool checkExpressionText(const QString& text, Failure& failure) {
    if (text.trimmed().isEmpty()) {
        failure = {Failure::Kind::Gdb, QStringLiteral("The expression is empty.")};
        return false;
    }
    for (QChar c : text) {
        if (c == QLatin1Char('\n') || c == QLatin1Char('\r') || c == QChar(0)) {
            failure = {Failure::Kind::Gdb,
                       QStringLiteral("An expression must be a single line of text.")};
            return false;
        }
    }
    return true;
}

ArrayResolver::ArrayResolver(GdbSession& session, int timeoutMs)
    : session_(session), timeoutMs_(timeoutMs) {}

MiReplyPtr ArrayResolver::run(const QString& command, Failure& failure) {
    MiReplyPtr reply = session_.send(command);
    if (!reply->wait(timeoutMs_)) {
        failure = {Failure::Kind::TimedOut, QStringLiteral("The debugger did not answer in time.")};
        return nullptr;
    }
    if (reply->lost()) {
        failure = {Failure::Kind::Lost, QString::fromLatin1(kDebuggerStoppedMessage)};
        return nullptr;
    }
    if (reply->isError()) {
        const QString msg = reply->errorMessage();
        failure = {failureKindOf(msg), msg};
        return nullptr;
    }
    return reply;
}

QString ArrayResolver::frameOptions(const FrameInfo& frame) const {
    QString out;
    if (!frame.thread.isEmpty())
        out += QStringLiteral(" --thread %1").arg(frame.thread.toInt());
    out += QStringLiteral(" --frame %1").arg(frame.level);
    return out;
}

bool ArrayResolver::console(const FrameInfo& frame, const QString& command, QString& output,
                            Failure& failure) {
    MiReplyPtr r = run(QStringLiteral("-interpreter-exec") + frameOptions(frame) +
                           QStringLiteral(" console ") + q(command),
                       failure);
    if (!r)
        return false;
    output = r->console();
    return true;
}

bool ArrayResolver::evaluate(const FrameInfo& frame, const QString& expression, QString& value,
                             Failure& failure) {
    MiReplyPtr r = run(QStringLiteral("-data-evaluate-expression") + frameOptions(frame) +
                           QLatin1Char(' ') + q(expression),
                       failure);
    if (!r)
        return false;
    value = str(r->record().results["value"]);
    return true;
}

bool ArrayResolver::stack(const QString& focus, QVector<FrameInfo>& frames, Failure& failure) {
    QString thread = focus;
    if (thread.isEmpty()) {
        // No stop has named a thread (a core file): gdb's current one.
        MiReplyPtr info = run(QStringLiteral("-thread-info"), failure);
        if (!info)
            return false;
        thread = str(info->record().results["current-thread-id"]);
    }
    QString command = QStringLiteral("-stack-list-frames");
    if (!thread.isEmpty())
        command += QStringLiteral(" --thread %1").arg(thread.toInt());
    MiReplyPtr r = run(command, failure);
    if (!r)
        return false;
    frames.clear();
    for (const mi::Value* f : r->record().results["stack"].all("frame")) {
        FrameInfo info;
        info.thread = thread;
        info.level = str((*f)["level"]).toInt();
        info.function = str((*f)["func"]);
        info.file = str((*f)["file"]);
        info.fullname = str((*f)["fullname"]);
        info.address = str((*f)["addr"]);
        info.line = str((*f)["line"]).toInt();
        unsigned depth = 0;
        for (const FrameInfo& nearer : frames)
            if (nearer.function == info.function)
                ++depth;
        info.recursionDepth = depth;
        frames.append(info);
    }
    return true;
}

bool ArrayResolver::locate(const QString& focus, const QString& scopeId, unsigned depth,
                           FrameInfo& frame, Failure& failure) {
    QString thread = focus.trimmed();
    if (thread.isEmpty())
        thread = session_.stoppedThread();
    QVector<FrameInfo> frames;
    if (!stack(thread, frames, failure))
        return false;
    if (frames.isEmpty()) {
        failure = {Failure::Kind::Frame, QStringLiteral("Thread %1 has no frames.").arg(thread)};
        return false;
    }
    if (scopeId.isEmpty()) {
        frame = frames.first();
        return true;
    }
    for (const FrameInfo& f : frames) {
        if (f.function == scopeId && f.recursionDepth == depth) {
            frame = f;
            return true;
        }
    }
    failure = {Failure::Kind::Frame,
               QStringLiteral("The frame of %1 (recursion depth %2) in thread %3 is gone.")
                   .arg(scopeId)
                   .arg(depth)
                   .arg(thread)};
    return false;
}

bool ArrayResolver::describe(const FrameInfo& frame, const QString& expression, bool layout,
                             ArrayFacts& facts, Failure& failure) {
    if (!checkExpressionText(expression, failure))
        return false;
    facts = ArrayFacts();
    facts.expression = expression;
    if (const auto cast = splitFortranCast(expression)) {
        // `{T} E`: in a Fortran frame, and for a container in C++, a cast of
        // the service's own that gdb never sees; otherwise gdb's own
        // `{type} address`. E's facts decide, from the one evaluation of E.
        ArrayFacts base;
        base.expression = cast->expression;
        Failure baseFailure;
        CastElement element;
        const QString castElement = parseCType(cast->type).elementType;
        const bool described =
            describeValue(frame, cast->expression.isEmpty() ? expression : cast->expression, layout,
                          castElement, base, baseFailure, &element);
        if (baseFailure.kind == Failure::Kind::Lost || baseFailure.kind == Failure::Kind::Running ||
            baseFailure.kind == Failure::Kind::Exited ||
            baseFailure.kind == Failure::Kind::TimedOut) {
            failure = baseFailure;
            return false;
        }
        if (base.fortran) {
            facts.language = base.language;
            facts.fortran = true;
            return describeFortranCast(*cast, base, baseFailure, layout, facts, failure);
        }
        if (described && !base.family.isEmpty())
            return describeContainerCast(*cast, base, element, facts, failure);
    }
    return describeValue(frame, expression, layout, QString(), facts, failure);
}

bool ArrayResolver::describeValue(const FrameInfo& frame, const QString& expression, bool layout,
                                  const QString& castElement, ArrayFacts& facts, Failure& failure,
                                  CastElement* cast) {
    QString out;
    if (!console(frame, describerCommand(expression, layout, castElement), out, failure))
        return false;
    if (!readDescriberReply(out, facts, failure, cast))
        return false;
    if (layout && facts.isArray && !facts.problem.isEmpty()) {
        failure = {Failure::Kind::Type, facts.problem};
        return false;
    }
    return true;
}

bool ArrayResolver::describeFortranCast(const FortranCastText& cast, const ArrayFacts& base,
                                        const Failure& baseFailure, bool layout, ArrayFacts& facts,
                                        Failure& failure) {
    FortranCastType type;
    QString error;
    if (!parseFortranCastType(cast.type, type, error)) {
        failure = {Failure::Kind::Type, error};
        return false;
    }
    if (cast.expression.isEmpty()) {
        failure = {Failure::Kind::Gdb,
                   QStringLiteral("The cast to %1 names no expression.").arg(cast.type)};
        return false;
    }
    if (baseFailure.kind != Failure::Kind::None) {
        failure = baseFailure;
        return false;
    }
    if (!type.hasShape && !base.isArray) {
        failure = {Failure::Kind::NotArray,
                   QStringLiteral("'%1' is not an array (its type is %2): give the cast a shape, "
                                  "for example %3 (10).")
                       .arg(cast.expression, base.typeText, type.elementType)};
        return false;
    }
    facts.dims = type.hasShape ? type.dims : base.dims;
    facts.typeText = fortranArrayType(type.elementType, facts.dims);
    facts.isArray = true;
    facts.elementType = type.elementType;
    facts.elementSize = type.elementSize;
    facts.problem = type.hasShape ? QString() : base.problem;
    if (!layout)
        return true;
    if (!facts.problem.isEmpty()) {
        failure = {Failure::Kind::Type, facts.problem};
        return false;
    }
    if (base.isArray) {
        // The first element's address, which for an allocatable or a
        // pointer is that of its data, not of its descriptor.
        facts.address = base.address;
    } else if (base.hasValueAddress) {
        facts.address = base.valueAddress;
    } else {
        failure = {Failure::Kind::Type,
                   QStringLiteral("'%1' is not in memory.").arg(cast.expression)};
        return false;
    }
    // Memory reinterpreted: contiguous, first dimension fastest, whatever
    // the strides of the expression itself.
    qint64 stride = facts.elementSize;
    facts.byteStrides.clear();
    for (const DimBounds& d : facts.dims) {
        facts.byteStrides.append(stride);
        stride *= d.upper - d.lower + 1;
    }
    return true;
}

bool ArrayResolver::describeContainerCast(const FortranCastText& cast, const ArrayFacts& base,
                                          const CastElement& element, ArrayFacts& facts,
                                          Failure& failure) {
    const TypeShape shape = parseCType(cast.type);
    if (!shape.problem.isEmpty()) {
        failure = {Failure::Kind::Type, shape.problem};
        return false;
    }
    // A cast to an element type alone, or to the container's own extents,
    // keeps the container's shape and index bases: `{float [40][3]} m` of a
    // 40 x 3 matrix is that matrix read as floats.
    bool ownShape = !shape.isArray || shape.dims.size() == base.dims.size();
    for (int d = 0; ownShape && shape.isArray && d < shape.dims.size(); ++d)
        ownShape =
            shape.dims[d].upper - shape.dims[d].lower == base.dims[d].upper - base.dims[d].lower;
    facts.language = base.language;
    facts.family = base.family;
    facts.dims = ownShape ? base.dims : shape.dims;
    facts.isArray = true;
    facts.elementType = element.type;
    facts.elementSize = element.size;
    facts.typeText = cast.type.trimmed();
    if (!shape.isArray) {
        for (const DimBounds& d : facts.dims)
            facts.typeText += QStringLiteral(" [%1]").arg(d.upper - d.lower + 1);
    }
    // The container's elements reinterpreted from its data address. Another
    // shape lays them out as C does, last dimension fastest. The container's
    // own shape keeps its layout, as a Fortran array's cast does: elements
    // of the same size are read where they are (a strided Map, a descending
    // dimension), others follow the container's storage order, so m(i,j) of
    // a column-major matrix stays m(i,j).
    facts.address = base.address;
    const bool ownLayout = ownShape && base.byteStrides.size() == facts.dims.size();
    if (ownLayout && element.size == base.elementSize) {
        facts.byteStrides = base.byteStrides;
        return true;
    }
    QVector<int> fastestFirst;
    for (int d = facts.dims.size() - 1; d >= 0; --d)
        fastestFirst.append(d);
    if (ownLayout)
        std::stable_sort(fastestFirst.begin(), fastestFirst.end(), [&](int a, int b) {
            return qAbs(base.byteStrides[a]) < qAbs(base.byteStrides[b]);
        });
    qint64 stride = facts.elementSize;
    facts.byteStrides = QVector<qint64>(facts.dims.size(), 0);
    for (int d : fastestFirst) {
        facts.byteStrides[d] = stride;
        stride *= qMax<qint64>(0, facts.dims[d].upper - facts.dims[d].lower + 1);
    }
    return true;
}

bool ArrayResolver::toDescriptor(const ArrayFacts& facts, arraylens::ArrayDescriptor& out,
                                 Failure& failure) {
    if (!facts.isArray) {
        failure = {Failure::Kind::NotArray,
                   !facts.refusal.isEmpty()
                       ? facts.refusal
                       : QStringLiteral("'%1' is not an array (its type is %2).")
                             .arg(facts.expression, facts.typeText)};
        return false;
    }
    ElementKind kind = ElementKind::Double;
    const ElementClass cls = classifyElement(facts.elementType, facts.fortran);
    if (!kindFor(cls, facts.elementSize, facts.fortran, kind)) {
        const QString why = QStringLiteral("Elements of type %1 (%2 bytes) are not supported")
                                .arg(facts.elementType)
                                .arg(facts.elementSize);
        failure = {Failure::Kind::Type, facts.elementHint.isEmpty()
                                            ? why + QLatin1Char('.')
                                            : why + QStringLiteral(": ") + facts.elementHint};
        return false;
    }
    out = arraylens::ArrayDescriptor();
    out.kind = kind;
    out.elementSize = size_t(facts.elementSize);
    out.address = facts.address;
    out.language =
        facts.fortran ? Language::Fortran : languageFromName(facts.language.toStdString());
    for (int d = 0; d < facts.dims.size(); ++d) {
        Dimension dim;
        dim.lower = facts.dims[d].lower;
        dim.upper = facts.dims[d].upper;
        dim.byteStride = facts.byteStrides.value(d);
        out.dims.push_back(dim);
    }
    return true;
}

} // namespace arraylens::gdb
