#pragma once
// An expression whose answers the test sets directly.

#include "host/hvexpression.h"

#include <QFuture>

class FakeExpression : public IHVExpression {
public:
    QString expression = "a";
    QString alternateExpression;
    bool hasAlternate = false;
    QString focus;
    QString scopeId;
    unsigned int frameRecursionDepth = 0;
    QStringList operationArgs;
    QVariantList operationKinds;
    QStringList operationQualifiedArgs;

    QString getExpression() const override { return expression; }
    QString getErrorMessage() const override { return QString(); }
    QString getType() const override { return QString(); }
    void setType(const QString&, bool) override {}
    QFuture<IHVExpression*> evaluate(QSharedPointer<IHVFrame>) override {
        return QFuture<IHVExpression*>();
    }
    QString getScopedExpression() const override { return QString(); }
    bool isResolved() const override { return true; }
    void setResolved(bool) override {}
    QSharedPointer<IHVFrame> getFrame() const override { return {}; }
    QString getScopePath() const override { return QString(); }
    QString getScopeID() const override { return scopeId; }
    QStringList getOperationArgs() const override { return operationArgs; }
    QStringList getOperationQualifiedArgs() const override { return operationQualifiedArgs; }
    QVariantList getOperationKinds() const override { return operationKinds; }
    bool isFortranExpression() const override { return false; }
    bool isCLanguageExpression() const override { return true; }
    bool isArray() const override { return true; }
    QString getActualType() const override { return QString(); }
    void setActualType(const QString&) override {}
    unsigned int getFrameRecursionDepth() const override { return frameRecursionDepth; }
    QString getBlockLine() const override { return QString(); }
    bool hasAlternateExpression() const override { return hasAlternate; }
    QString getAlternateExpression() const override { return alternateExpression; }
    QString getFocus() const override { return focus; }
    void setFocus(const QString& f) override { focus = f; }
    int getFrameLevel() const override { return 0; }
    QString getLanguage() const override { return "c++"; }
    bool hasError() const override { return false; }
};
