// A gdb session on one of the example programs, stopped at one of its
// breakpoints, with the reference values the program wrote for that stop.
#pragma once

#include "gdbdebugger.h"
#include "gdbsession.h"
#include "support/examples.h"

#include "wire/arrayrecords.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QTemporaryDir>
#include <QTextStream>

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace gdbtest {

using arraylens::gdb::GdbDebugger;
using arraylens::gdb::GdbExpression;
using arraylens::gdb::GdbSession;

// Keeps the event loop running until `done` holds or time runs out.
template <class Pred> bool waitFor(Pred done, int timeoutMs = 30000) {
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

inline QString breakLocation(const QString& key) {
    return examples::breakLocation(key);
}

inline QString exampleProgram(const QString& name) {
    return examples::program(name);
}

class Rig {
public:
    explicit Rig(GdbSession::Options options = {}) {
        session = std::make_unique<GdbSession>(options);
        debugger = std::make_unique<GdbDebugger>(session.get());
    }
    ~Rig() {
        debugger.reset();
        if (session) {
            session->kill();
            session.reset();
        }
    }

    // Starts `program` with its reference file, breaks at `stopKey` of
    // break-locations.txt and runs to it.
    bool startAt(const QString& program, const QString& stopKey, QString* why = nullptr) {
        referencePath = dir.filePath(QStringLiteral("reference.txt"));
        QString error;
        if (!session->start(exampleProgram(program), {referencePath}, &error)) {
            if (why)
                *why = error;
            return false;
        }
        const QString location = breakLocation(stopKey);
        if (location.isEmpty()) {
            if (why)
                *why = QStringLiteral("no break location ") + stopKey;
            return false;
        }
        auto bp = mi(QStringLiteral("-break-insert ") + location);
        if (!bp || bp->isError()) {
            if (why)
                *why = QStringLiteral("no breakpoint at ") + location + QStringLiteral(": ") +
                       (bp ? bp->errorMessage() : QStringLiteral("no answer"));
            return false;
        }
        return runToStop(QStringLiteral("-exec-run"), why);
    }

    // Sends a run command and waits for the next stop.
    bool runToStop(const QString& command, QString* why = nullptr) {
        const quint64 before = stops;
        auto r = mi(command);
        if (!r || r->isError()) {
            if (why)
                *why = r ? r->errorMessage() : QStringLiteral("no answer");
            return false;
        }
        const bool ok = waitFor([&] {
            return (stops > before && session->targetState() == GdbSession::TargetState::Stopped) ||
                   session->targetState() == GdbSession::TargetState::Exited;
        });
        if (!ok || session->targetState() != GdbSession::TargetState::Stopped) {
            if (why)
                *why = QStringLiteral("the program did not stop");
            return false;
        }
        loadReference();
        return true;
    }

    arraylens::gdb::MiReplyPtr mi(const QString& command, int timeoutMs = 30000) {
        auto reply = session->send(command);
        if (!reply->waitProcessingEvents(timeoutMs))
            return nullptr;
        return reply;
    }

    void loadReference() {
        ref.clear();
        arraysOfThisStop.clear();
        QFile f(referencePath);
        if (!f.open(QIODevice::ReadOnly))
            return;
        QTextStream in(&f);
        while (!in.atEnd()) {
            const QString line = in.readLine();
            if (line.startsWith(QLatin1Char('#')))
                continue;
            const int eq = line.indexOf(QLatin1Char('='));
            if (eq <= 0)
                continue;
            // Arrays of earlier stops may be out of scope at this one.
            if (line.startsWith(QLatin1String("stop=")))
                arraysOfThisStop.clear();
            else if (line.startsWith(QLatin1String("array=")))
                arraysOfThisStop.append(line.mid(eq + 1));
            ref.insert(line.left(eq), line.mid(eq + 1));
        }
    }

    // An expression evaluated in the frame of the stop, as a user's would be.
    GdbExpression* evaluate(const QString& text) {
        auto* e = static_cast<GdbExpression*>(debugger->createExpression(text));
        owned.emplace_back(e);
        auto future = e->evaluate(debugger->currentFrame());
        waitFor([&] { return future.isFinished(); });
        return e;
    }

    // Sends a request and waits for its answer's bag.
    QSharedPointer<QObject> request(const HVDWPRequest& request, int timeoutMs = 60000) {
        auto future = debugger->sendRequest(request);
        if (!waitFor([&] { return future.isFinished(); }, timeoutMs))
            return nullptr;
        return future.result();
    }

    QSharedPointer<QObject> statistics(IHVExpression* e, const QString& slice = {},
                                       const QString& filter = {}) {
        ArrayStatisticsRequest r;
        r.setFields(e, slice, filter);
        return request(r);
    }
    QSharedPointer<QObject> info(IHVExpression* e) {
        ArrayInfoRequest r;
        r.setFields(e);
        return request(r);
    }
    QSharedPointer<QObject> table(IHVExpression* e, const QString& slice, int format, int startRow,
                                  int endRow, int startCol, int endCol, const QString& filter = {},
                                  int rowDim = -1, int colDim = -1) {
        ArrayData2DTableRequest r;
        r.setFocusFields(e);
        r.setSlice(slice);
        r.setOperationFields(e);
        r.setRowDim(rowDim);
        r.setColDim(colDim);
        r.setDataFormat(format);
        r.setFilter(filter);
        r.setRequestViewport(true, startRow, endRow, startCol, endCol);
        return request(r);
    }
    QSharedPointer<QObject> plot(IHVExpression* e, const QString& slice = {},
                                 const QString& filter = {}) {
        VisEvaluateExpressionRequest r;
        r.setFields(e, slice, filter);
        return request(r);
    }

    QTemporaryDir dir;
    QString referencePath;
    QMap<QString, QString> ref;
    QStringList arraysOfThisStop;
    std::unique_ptr<GdbSession> session;
    std::unique_ptr<GdbDebugger> debugger;
    std::vector<std::unique_ptr<GdbExpression>> owned;
    quint64 stops = 0;

    void countStops() {
        QObject::connect(debugger.get(), &GdbDebugger::debuggerEvent, [this](AsyncRecord r) {
            if (r.getID() == QLatin1String("StoppedRecord"))
                ++stops;
        });
    }
};

// A rig that counts stops from the start.
inline std::unique_ptr<Rig> makeRig(GdbSession::Options options = {}) {
    auto rig = std::make_unique<Rig>(options);
    rig->countStops();
    return rig;
}

inline double number(const QString& text) {
    const QString t = text.trimmed();
    if (t == QLatin1String("nan"))
        return std::nan("");
    if (t == QLatin1String("inf"))
        return INFINITY;
    if (t == QLatin1String("-inf"))
        return -INFINITY;
    return std::strtod(t.toLatin1().constData(), nullptr);
}

// Equal to a relative 1e-12, or both NaN.
inline ::testing::AssertionResult near(double expected, double actual, double rel = 1e-12) {
    if (std::isnan(expected) && std::isnan(actual))
        return ::testing::AssertionSuccess();
    if (expected == actual)
        return ::testing::AssertionSuccess();
    const double scale = std::max(std::fabs(expected), std::fabs(actual));
    if (std::fabs(expected - actual) <= rel * scale || std::fabs(expected - actual) < 1e-300)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected " << expected << " got " << actual
                                         << " (difference " << expected - actual << ")";
}

// An answer's "result" and "msg", or what stands for them when no answer
// came.
inline QString resultOf(const QSharedPointer<QObject>& bag) {
    return bag ? bag->property("result").toString() : QStringLiteral("<no answer>");
}

inline QString msgOf(const QSharedPointer<QObject>& bag) {
    return bag ? bag->property("msg").toString() : QString();
}

} // namespace gdbtest
