// The trace service on the blowup example, whose plate overflows to
// infinity and then NaN: the lines of a trace that lets the program go on
// while each stop's statistics are computed on a copy, and of one whose
// stops are handled inside gdb, are the lines of one that computes every
// stop before going on, value for value and bit for bit, through the stops
// with infinities and NaN to the program's end; with --stops the last stop
// is left standing in all three; and with a condition the program stays
// stopped where it holds.
#include "gdbrig.h"

#include "traceservice.h"

#include <QMetaType>

#include <cstring>

using namespace gdbtest;
using arraylens::gdb::TraceService;
using arraylens::gdb::TraceSettings;

namespace {

// A line as text that differs when any field's name, order, type or bits do.
QString lineText(const QObject* line) {
    QStringList parts;
    for (const QByteArray& name : line->dynamicPropertyNames()) {
        const QVariant v = line->property(name.constData());
        QString value;
        if (v.userType() == QMetaType::Double) {
            const double d = v.toDouble();
            quint64 bits = 0;
            std::memcpy(&bits, &d, sizeof bits);
            value = QString::number(bits, 16);
        } else {
            value = v.toString();
        }
        parts << QString::fromLatin1(name) + QLatin1Char(':') + QString::fromLatin1(v.typeName()) +
                     QLatin1Char('=') + value;
    }
    return parts.join(QLatin1Char(' '));
}

struct TraceRun {
    QStringList lines;
    TraceService::End end = TraceService::End::Failed;
    QString message;
    int copied = 0;
    int inGdb = 0;
    GdbSession::TargetState stateAfter = GdbSession::TargetState::None;
    QString why;
};

// A 40 x 60 plate with the unstable step, a stop every 5 steps.
TraceRun runTrace(TraceSettings settings, const QStringList& programArgs) {
    TraceRun out;
    auto rig = makeRig();
    QString error;
    if (!rig->session->start(exampleProgram(QStringLiteral("example_blowup")), programArgs,
                             &error)) {
        out.why = error;
        return out;
    }
    auto bp =
        rig->mi(QStringLiteral("-break-insert ") + breakLocation(QStringLiteral("blowup.blowup")));
    if (!bp || bp->isError()) {
        out.why = QStringLiteral("no breakpoint: ") + (bp ? bp->errorMessage() : QString());
        return out;
    }
    if (!rig->runToStop(QStringLiteral("-exec-run"), &out.why))
        return out;
    TraceService trace(rig->debugger.get());
    if (!trace.configure(settings, &out.why))
        return out;
    bool done = false;
    QObject::connect(&trace, &TraceService::lineReady,
                     [&](QSharedPointer<QObject> line) { out.lines << lineText(line.data()); });
    QObject::connect(&trace, &TraceService::finished,
                     [&](TraceService::End end, const QString& message) {
                         out.end = end;
                         out.message = message;
                         done = true;
                     });
    trace.start();
    if (!waitFor([&] { return done; }, 100000))
        out.why = QStringLiteral("the trace did not end");
    if (out.end == TraceService::End::Failed)
        out.why = QStringLiteral("the trace failed: ") + out.message;
    out.copied = trace.copiedStops();
    out.inGdb = trace.inGdbStops();
    out.stateAfter = rig->session->targetState();
    return out;
}

const QStringList kArgs{QStringLiteral("-"), QStringLiteral("700"), QStringLiteral("40"),
                        QStringLiteral("60"), QStringLiteral("5")};

TraceSettings plate(bool overlap) {
    TraceSettings s;
    s.expression = QStringLiteral("*(double(*)[40][60])u");
    s.overlap = overlap;
    return s;
}

// One trace on each road: overlapping over MI, overlapping in gdb, and
// every stop computed before the program goes on.
struct Roads {
    TraceRun overlapped, inGdb, stepwise;
    QString why() const { return overlapped.why + inGdb.why + stepwise.why; }
};

Roads runRoads(TraceSettings settings) {
    Roads out;
    settings.overlap = true;
    settings.inGdb = false;
    out.overlapped = runTrace(settings, kArgs);
    settings.inGdb = true;
    out.inGdb = runTrace(settings, kArgs);
    settings.inGdb = false;
    settings.overlap = false;
    out.stepwise = runTrace(settings, kArgs);
    return out;
}

TEST(TraceOverlap, GivesTheLinesOfTheStopByStopRoad) {
    // To the program's end: 140 stops, the last ones with infinities and
    // NaN, and the closing line.
    TraceSettings filtered = plate(true);
    filtered.filter = QStringLiteral("$value > 1e-3 || $value == $nan");
    const Roads roads = runRoads(filtered);
    ASSERT_TRUE(roads.why().isEmpty()) << roads.why().toStdString();
    const TraceRun &overlapped = roads.overlapped, &inGdb = roads.inGdb, &stepwise = roads.stepwise;
    EXPECT_EQ(overlapped.end, TraceService::End::Exited);
    EXPECT_EQ(stepwise.end, TraceService::End::Exited);
    ASSERT_EQ(overlapped.lines.size(), 141);
    EXPECT_EQ(overlapped.lines, stepwise.lines);
    EXPECT_EQ(inGdb.lines, stepwise.lines);
    EXPECT_EQ(inGdb.end, TraceService::End::Exited);
    // Every stop went the overlapping road in one, none in the other; in
    // gdb, every one after the first.
    EXPECT_EQ(overlapped.copied, 140);
    EXPECT_EQ(overlapped.inGdb, 0);
    EXPECT_EQ(stepwise.copied, 0);
    EXPECT_EQ(inGdb.copied, 140);
    EXPECT_EQ(inGdb.inGdb, 139);
    EXPECT_TRUE(overlapped.lines.last().contains(QStringLiteral("result:QString=exit")));
    EXPECT_TRUE(overlapped.lines[139].contains(QStringLiteral("NanCount:int=")));
    EXPECT_FALSE(overlapped.lines[139].contains(QStringLiteral("NanCount:int=0 ")));
}

TEST(TraceOverlap, StopsAndConditionsLeaveTheProgramStopped) {
    TraceSettings some = plate(true);
    some.maxStops = 12;
    const Roads roads = runRoads(some);
    ASSERT_TRUE(roads.why().isEmpty()) << roads.why().toStdString();
    const TraceRun &overlapped = roads.overlapped, &inGdb = roads.inGdb, &stepwise = roads.stepwise;
    EXPECT_EQ(inGdb.lines, stepwise.lines);
    EXPECT_EQ(inGdb.end, TraceService::End::Stops);
    // The first and the last are stops over MI.
    EXPECT_EQ(inGdb.inGdb, 10);
    EXPECT_EQ(inGdb.stateAfter, GdbSession::TargetState::Stopped);
    EXPECT_EQ(overlapped.end, TraceService::End::Stops);
    EXPECT_EQ(overlapped.lines.size(), 12);
    EXPECT_EQ(overlapped.lines, stepwise.lines);
    EXPECT_EQ(overlapped.copied, 12);
    EXPECT_EQ(overlapped.stateAfter, GdbSession::TargetState::Stopped);
    EXPECT_EQ(stepwise.stateAfter, GdbSession::TargetState::Stopped);

    // A condition is decided before the program goes on: no copies, and the
    // program stands at the stop where it held.
    TraceSettings until = plate(true);
    until.until = QStringLiteral("NanCount > 0");
    until.inGdb = true;
    const TraceRun held = runTrace(until, kArgs);
    ASSERT_TRUE(held.why.isEmpty()) << held.why.toStdString();
    EXPECT_EQ(held.end, TraceService::End::Until);
    EXPECT_EQ(held.copied, 0);
    EXPECT_EQ(held.inGdb, 0);
    EXPECT_EQ(held.stateAfter, GdbSession::TargetState::Stopped);
    ASSERT_FALSE(held.lines.isEmpty());
    EXPECT_TRUE(held.lines.last().contains(QStringLiteral("Until:bool=true")));
    // Its lines before the condition held are those of the overlapping road.
    for (int i = 0; i < std::min(12, int(held.lines.size()) - 1); ++i)
        EXPECT_EQ(held.lines[i], overlapped.lines[i]) << "stop " << i + 1;
}

} // namespace
