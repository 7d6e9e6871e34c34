#include "gdbexpression.h"

#include "gdbdebugger.h"

namespace arraylens::gdb {

GdbFrame::GdbFrame(const FrameInfo& info, QObject* parent) : IHVFrame(parent), info_(info) {}

GdbFrame::~GdbFrame() = default;

GdbExpression::GdbExpression(GdbDebugger* debugger, const QString& text, QObject* parent)
    : IHVExpression(parent), debugger_(debugger), text_(text) {}

GdbExpression::~GdbExpression() = default;

void GdbExpression::setType(const QString& type, bool reinterpret) {
    Q_UNUSED(reinterpret)
    const QString t = type.trimmed();
    if (t.isEmpty() || t == declaredType_) {
        takeCastAway();
        return;
    }
    if (isFortranLanguage(language_)) {
        // gdb's Fortran has no pointer cast: the alternate text is a form of
        // our own that the resolver reads, with every bound written out.
        QString error;
        const QString cast = fortranReinterpretCast(text_, t, declaredType_, baseDims_, error);
        if (cast.isEmpty()) {
            takeCastAway();
            return;
        }
        alternate_ = cast;
        type_ = t;
        // Said at once, and again by every request that carries the text.
        if (castRefused_)
            error_.clear();
        castRefused_ = !error.isEmpty();
        if (castRefused_)
            error_ = error;
        return;
    }
    // A container's elements are cast, not the container object; gdb has no
    // expression for that, so the text is a form of our own.
    if (!baseFamily_.isEmpty()) {
        alternate_ = containerReinterpretCast(text_, t, baseDims_);
        type_ = t;
        return;
    }
    // An array is cast through its address, a pointer through its value, so
    // that a pointer cast to `double[1000]` shows the memory it points to.
    alternate_ = reinterpretCast(text_, t, baseIsArray_, baseDims_);
    type_ = t;
}

void GdbExpression::takeCastAway() {
    alternate_.clear();
    type_ = declaredType_;
    if (castRefused_)
        error_.clear();
    castRefused_ = false;
}

QFuture<IHVExpression*> GdbExpression::evaluate(QSharedPointer<IHVFrame> frame) {
    if (!debugger_) {
        error_ = QString::fromLatin1(kDebuggerStoppedMessage);
        QFutureInterface<IHVExpression*> done;
        done.reportStarted();
        done.reportResult(this);
        done.reportFinished();
        return done.future();
    }
    return debugger_->evaluateExpression(this, frame);
}

QString GdbExpression::getScopedExpression() const {
    return scopeId_.isEmpty() ? text_ : scopeId_ + QStringLiteral("::") + text_;
}

QString GdbExpression::getScopePath() const {
    return scopePath_;
}

QString GdbExpression::getBlockLine() const {
    if (!frame_)
        return QString();
    return QStringLiteral("%1:%2").arg(frame_->getFileName()).arg(frame_->getLine());
}

void GdbExpression::copyFrom(const GdbExpression& o) {
    text_ = o.text_;
    type_ = o.type_;
    declaredType_ = o.declaredType_;
    actualType_ = o.actualType_;
    alternate_ = o.alternate_;
    error_ = o.error_;
    language_ = o.language_;
    focus_ = o.focus_;
    scopeId_ = o.scopeId_;
    scopePath_ = o.scopePath_;
    depth_ = o.depth_;
    frameLevel_ = o.frameLevel_;
    resolved_ = o.resolved_;
    facts_ = o.facts_;
    baseIsArray_ = o.baseIsArray_;
    baseDims_ = o.baseDims_;
    baseFamily_ = o.baseFamily_;
    castRefused_ = o.castRefused_;
    frame_ = o.frame_;
}

void GdbExpression::applyEvaluation(const FrameInfo& frame, const ArrayFacts& facts,
                                    const Failure& failure) {
    error_ = failure.kind == Failure::Kind::None ? QString() : failure.message;
    if (!error_.isEmpty() && facts.typeText.isEmpty()) {
        resolved_ = false;
        return;
    }
    // The shape stays that of the expression itself: a cast's alternate text
    // is evaluated, but a later cast is built on the original again.
    const bool casting = hasAlternateExpression();
    if (!casting) {
        declaredType_ = facts.typeText;
        type_ = facts.typeText;
        baseIsArray_ = facts.isArray;
        baseDims_ = facts.dims;
        baseFamily_ = facts.family;
    }
    facts_ = facts;
    actualType_ = facts.typeText;
    language_ = facts.language;
    focus_ = frame.thread;
    scopeId_ = frame.function;
    scopePath_ = frame.fullname.isEmpty() ? frame.function
                                          : frame.fullname + QLatin1Char(':') + frame.function;
    depth_ = frame.recursionDepth;
    frameLevel_ = frame.level;
    frame_ = QSharedPointer<IHVFrame>(new GdbFrame(frame), &QObject::deleteLater);
    resolved_ = true;
}

} // namespace arraylens::gdb
