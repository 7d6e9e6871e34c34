// Faults in the middle of a request, against a real gdb: gdb or the program
// dying while the engine reads the program's memory; and the words for
// arrays of structures, whose type gdb spells over several lines.
#include "gdbrig.h"

#include <QElapsedTimer>

#include <csignal>

using namespace gdbtest;

namespace {

// A quarter of a gigabyte of doubles: reading and computing take long enough to be
// cut in the middle.
constexpr qint64 kBigCount = qint64(1) << 25;

QString bigExpression() {
    return QStringLiteral("*data@%1").arg(kBigCount);
}

// Sends a statistics request, waits until it is halfway through its reading
// (by the times measured before), makes `fault` happen and returns the
// answer.
template <class Fault>
QSharedPointer<QObject> statisticsCutInTheMiddle(Rig& rig, IHVExpression* e, qint64 resolveMs,
                                                 qint64 wholeMs, Fault fault) {
    ArrayStatisticsRequest r;
    r.setFields(e, QString(), QString());
    QElapsedTimer clock;
    clock.start();
    auto future = rig.debugger->sendRequest(r);
    const qint64 middle = resolveMs + (wholeMs - resolveMs) / 2;
    waitFor([&] { return clock.elapsed() >= middle; }, int(middle) + 1000);
    EXPECT_FALSE(future.isFinished())
        << "the request ended before the fault, after " << clock.elapsed() << " ms";
    fault();
    if (!waitFor([&] { return future.isFinished(); }, 20000))
        return nullptr;
    return future.result();
}

TEST(GdbFaults, DeathOfGdbWinsOverTheReadErrorItCauses) {
    auto rig = makeRig();
    QString error;
    ASSERT_TRUE(rig->session->start(exampleProgram(QStringLiteral("example_bigarray")),
                                    {QString::number(kBigCount)}, &error))
        << error.toStdString();
    auto bp =
        rig->mi(QStringLiteral("-break-insert ") + breakLocation(QStringLiteral("bigarray.big")));
    ASSERT_TRUE(bp && !bp->isError());
    QString why;
    ASSERT_TRUE(rig->runToStop(QStringLiteral("-exec-run"), &why)) << why.toStdString();
    ASSERT_TRUE(rig->session->readsMemoryDirectly());

    // How long the resolution takes (array information reads no element),
    // and the whole statistics request.
    GdbExpression* data = rig->evaluate(bigExpression());
    ASSERT_TRUE(data->isArray()) << data->getErrorMessage().toStdString();
    QElapsedTimer clock;
    clock.start();
    auto info = rig->info(data);
    const qint64 resolveMs = clock.elapsed();
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    clock.restart();
    auto whole = rig->statistics(data);
    const qint64 wholeMs = clock.elapsed();
    ASSERT_EQ(resultOf(whole), QStringLiteral("done")) << msgOf(whole).toStdString();
    EXPECT_EQ(whole->property("Count").toLongLong(), kBigCount);
    std::printf("resolution %lld ms, statistics %lld ms\n", static_cast<long long>(resolveMs),
                static_cast<long long>(wholeMs));
    ASSERT_GT(wholeMs - resolveMs, 100) << "too quick to be cut in the middle";

    // The program killed by someone else under the reading, gdb still
    // there: the read says what happened.
    const qint64 pid = rig->session->pid();
    auto killedProgram = statisticsCutInTheMiddle(*rig, data, resolveMs, wholeMs,
                                                  [&] { ::kill(pid_t(pid), SIGKILL); });
    EXPECT_EQ(resultOf(killedProgram), QStringLiteral("error"));
    EXPECT_EQ(msgOf(killedProgram),
              QStringLiteral("The process %1 does not exist any more.").arg(pid));
    EXPECT_TRUE(rig->session->isAlive());

    // Run again; now gdb is killed under the reading, and takes the program
    // with it: whatever the reading met, the answer is that the debugger
    // has stopped.
    ASSERT_TRUE(rig->runToStop(QStringLiteral("-exec-run"), &why)) << why.toStdString();
    data = rig->evaluate(bigExpression());
    ASSERT_TRUE(data->isArray()) << data->getErrorMessage().toStdString();
    const qint64 gdbPid = rig->session->gdbPid();
    ASSERT_GT(gdbPid, 0);
    auto killedGdb = statisticsCutInTheMiddle(*rig, data, resolveMs, wholeMs,
                                              [&] { ::kill(pid_t(gdbPid), SIGKILL); });
    EXPECT_EQ(resultOf(killedGdb), QStringLiteral("error"));
    EXPECT_EQ(msgOf(killedGdb), QStringLiteral("The debugger has stopped."));
    EXPECT_EQ(killedGdb ? killedGdb->property("code").toString() : QString(),
              QStringLiteral("stopped"));
}

TEST(GdbFaults, ArraysOfStructuresKeepTheirWholeTypeText) {
    auto rig = makeRig();
    QString why;
    ASSERT_TRUE(
        rig->startAt(QStringLiteral("example_membrane"), QStringLiteral("membrane.membrane"), &why))
        << why.toStdString();
    const QStringList nodeBounds = rig->ref.value(QStringLiteral("nodes.bounds")).split(',');
    ASSERT_EQ(nodeBounds.size(), 2);
    QString shape;
    for (const QString& b : nodeBounds)
        shape += QStringLiteral("[%1]").arg(b.section(':', 1).toInt() + 1);

    auto nodes = rig->info(rig->evaluate(QStringLiteral("nodes")));
    ASSERT_EQ(resultOf(nodes), QStringLiteral("done")) << msgOf(nodes).toStdString();
    EXPECT_EQ(nodes->property("ActualType").toString(),
              rig->ref.value(QStringLiteral("nodes.struct")) + QLatin1Char(' ') + shape);
    EXPECT_EQ(nodes->property("ArrayBounds").toStringList(), nodeBounds);
    EXPECT_EQ(nodes->property("DataType").toInt(), 3);

    // An array of structures behind a typedef: gdb's ptype spells the
    // structure over several lines.
    auto corners = rig->info(rig->evaluate(QStringLiteral("corners")));
    ASSERT_EQ(resultOf(corners), QStringLiteral("done")) << msgOf(corners).toStdString();
    EXPECT_EQ(corners->property("ActualType").toString(),
              rig->ref.value(QStringLiteral("corners.typedef")));
    EXPECT_EQ(corners->property("ArrayBounds").toStringList(),
              QStringList{rig->ref.value(QStringLiteral("corners.bounds"))});

    // Numbers of structures are refused, in words that name the whole type
    // (the type's name, never its first line of members), and a member of
    // one element, in C's own syntax, to print instead.
    auto stats = rig->statistics(rig->evaluate(QStringLiteral("nodes")));
    EXPECT_EQ(resultOf(stats), QStringLiteral("error"));
    EXPECT_EQ(msgOf(stats), QStringLiteral("Elements of type %1 (%2 bytes) are not supported: they "
                                           "are structures, not numbers: print a member of one of "
                                           "them, for example nodes[0][0].x.")
                                .arg(rig->ref.value(QStringLiteral("nodes.struct")),
                                     rig->ref.value(QStringLiteral("nodes.element_size"))));
    auto offered = rig->mi(QStringLiteral("-data-evaluate-expression nodes[0][0].x"));
    ASSERT_TRUE(offered);
    EXPECT_FALSE(offered->isError()) << offered->errorMessage().toStdString();
}

} // namespace
