#pragma once
// Watchers that carry the context of one outstanding array request through
// the wait for its answer. The future delivers the answer's property bag.
// A watcher is made with new and no parent, and deleted by the slot that its
// own finished() signal reached, after that slot copied out what it needs.

#include "wire/wire_export.h"

#include <QFutureWatcher>
#include <QObject>
#include <QSharedPointer>
#include <QString>

class IHVExpression;

class ARRAYLENS_WIRE_EXPORT StatisticsWatcher : public QFutureWatcher<QSharedPointer<QObject>> {
    Q_OBJECT
public:
    explicit StatisticsWatcher(QObject* parent = nullptr)
        : QFutureWatcher<QSharedPointer<QObject>>(parent) {}

    IHVExpression* expression = nullptr; // borrowed
    QString slice;
    QString filter;
};

// On an array information request: the expression asked about, no slice, and
// the two flags of the request. On a table request: its slice, both flags
// false.
class ARRAYLENS_WIRE_EXPORT Data2DTableWatcher : public QFutureWatcher<QSharedPointer<QObject>> {
    Q_OBJECT
public:
    explicit Data2DTableWatcher(QObject* parent = nullptr)
        : QFutureWatcher<QSharedPointer<QObject>>(parent) {}

    IHVExpression* expression = nullptr; // borrowed
    QString slice;
    // Handed on to the table request that follows the information answer.
    bool forceSetup = false;
    // The information answer only refreshes the view; no table request follows.
    bool boundsOnly = false;
};

class ARRAYLENS_WIRE_EXPORT VisualDataWatcher : public QFutureWatcher<QSharedPointer<QObject>> {
    Q_OBJECT
public:
    explicit VisualDataWatcher(QObject* parent = nullptr)
        : QFutureWatcher<QSharedPointer<QObject>>(parent) {}

    IHVExpression* expression = nullptr; // borrowed
    QString slice;
    QString filter;
};
