// Expressions and frames of the debugger service over gdb.
#pragma once

#include "arrayresolver.h"
#include "gdbtypes.h"

#include "host/hvexpression.h"

#include <QPointer>
#include <QSharedPointer>

namespace arraylens::gdb {

class GdbDebugger;

class GdbFrame : public IHVFrame {
    Q_OBJECT
public:
    explicit GdbFrame(const FrameInfo& info, QObject* parent = nullptr);
    ~GdbFrame() override;

    QString getThreadID() const override { return info_.thread; }
    QString getAddress() const override { return info_.address; }
    QString getFunction() const override { return info_.function; }
    QString getFileName() const override { return info_.file; }
    int getLine() const override { return info_.line; }
    quint64 getFP() const override { return 0; }

    int level() const { return info_.level; }
    const FrameInfo& info() const { return info_; }

private:
    FrameInfo info_;
};

class GdbExpression : public IHVExpression {
    Q_OBJECT
public:
    GdbExpression(GdbDebugger* debugger, const QString& text, QObject* parent = nullptr);
    ~GdbExpression() override;

    QString getExpression() const override { return text_; }
    QString getErrorMessage() const override { return error_; }
    QString getType() const override { return type_; }
    // A cast to `type`: the alternate expression becomes the reinterpreting
    // cast of the expression's memory. The empty type, or the declared one,
    // takes the cast away. In a Fortran frame the type is Fortran's
    // (`integer(kind=4) (0:19,-2:5)`); one that cannot be read sets the
    // error message at once.
    void setType(const QString& type, bool reinterpret) override;
    QFuture<IHVExpression*> evaluate(QSharedPointer<IHVFrame> frame) override;
    QString getScopedExpression() const override;
    bool isResolved() const override { return resolved_; }
    void setResolved(bool resolved) override { resolved_ = resolved; }
    QSharedPointer<IHVFrame> getFrame() const override { return frame_; }
    QString getScopePath() const override;
    QString getScopeID() const override { return scopeId_; }
    QStringList getOperationArgs() const override { return {}; }
    QStringList getOperationQualifiedArgs() const override { return {}; }
    QVariantList getOperationKinds() const override { return {}; }
    bool isFortranExpression() const override { return isFortranLanguage(language_); }
    bool isCLanguageExpression() const override { return isCStyleLanguage(language_); }
    bool isArray() const override { return facts_.isArray; }
    QString getActualType() const override { return actualType_; }
    void setActualType(const QString& type) override { actualType_ = type; }
    unsigned int getFrameRecursionDepth() const override { return depth_; }
    QString getBlockLine() const override;
    bool hasAlternateExpression() const override { return !alternate_.isEmpty(); }
    QString getAlternateExpression() const override { return alternate_; }
    QString getFocus() const override { return focus_; }
    void setFocus(const QString& focus) override { focus_ = focus; }
    int getFrameLevel() const override { return frameLevel_; }
    QString getLanguage() const override { return language_; }
    bool hasError() const override { return !error_.isEmpty(); }

    // The text gdb evaluates: the cast when there is one.
    QString effectiveText() const { return hasAlternateExpression() ? alternate_ : text_; }
    // What the last evaluation found: shape, element size, first address and
    // byte strides (when the expression is an array in memory).
    const ArrayFacts& facts() const { return facts_; }
    // Fills this expression with another's state (for clones).
    void copyFrom(const GdbExpression& other);

private:
    friend class GdbDebugger;
    // Called on the GUI thread with what an evaluation found.
    void applyEvaluation(const FrameInfo& frame, const ArrayFacts& facts, const Failure& failure);
    void takeCastAway();

    QPointer<GdbDebugger> debugger_;
    QString text_;
    QString type_;
    QString declaredType_;
    QString actualType_;
    QString alternate_;
    QString error_;
    QString language_;
    QString focus_;
    QString scopeId_;
    QString scopePath_;
    unsigned depth_ = 0;
    int frameLevel_ = 0;
    bool resolved_ = false;
    ArrayFacts facts_;
    // Shape of the expression itself, which a cast is built on.
    bool baseIsArray_ = false;
    QVector<DimBounds> baseDims_;
    // The container family when the expression is a container.
    QString baseFamily_;
    // The last cast's type could not be read; its message is in error_.
    bool castRefused_ = false;
    QSharedPointer<IHVFrame> frame_;
};

} // namespace arraylens::gdb
