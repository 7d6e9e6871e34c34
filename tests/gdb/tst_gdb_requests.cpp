// Requests through a real gdb: frames and recursion, casts, slices and
// filters, refusals, typed text that tries to smuggle in a second command,
// events and contexts, and the faults: gdb killed, debuggee running or gone.
#include "gdbrig.h"

#include "support/fakehost.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTimer>

#include <csignal>
#include <cstring>

using namespace gdbtest;

namespace {

// A statistics request that names its frame by hand.
ArrayStatisticsRequest frameRequest(const QString& expression, const QString& focus,
                                    const QString& scope, uint depth, const QString& slice = {},
                                    const QString& filter = {}) {
    ArrayStatisticsRequest r;
    r.setFields(nullptr, slice, filter);
    r.propertyBag->setProperty("Expression", expression);
    r.propertyBag->setProperty("Focus", focus);
    r.propertyBag->setProperty("ScopeID", scope);
    r.propertyBag->setProperty("FrameRecursionDepth", QVariant::fromValue<uint>(depth));
    return r;
}

std::unique_ptr<Rig> startedAt(const QString& program, const QString& stop,
                               GdbSession::Options options = {}) {
    auto rig = makeRig(options);
    QString why;
    if (!rig->startAt(program, stop, &why)) {
        ADD_FAILURE() << "cannot start " << program.toStdString() << ": " << why.toStdString();
        return nullptr;
    }
    return rig;
}

} // namespace

TEST(GdbRequests, RecursionDepthChoosesTheFrame) {
    auto rig = startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.recursion"));
    ASSERT_TRUE(rig);
    const QString thread = rig->session->stoppedThread();
    int depths = 0;
    for (int depth = 0; depth < 8; ++depth) {
        const QString key = QStringLiteral("trail_depth%1").arg(depth);
        if (!rig->ref.contains(key + QStringLiteral(".sum")))
            continue;
        ++depths;
        SCOPED_TRACE(key.toStdString());
        EXPECT_EQ(rig->ref.value(key + QStringLiteral(".recursion_depth")).toInt(), depth);
        auto bag =
            rig->request(frameRequest(QStringLiteral("trail"), thread,
                                      rig->ref.value(key + QStringLiteral(".frame")), uint(depth)));
        ASSERT_EQ(resultOf(bag), QStringLiteral("done")) << msgOf(bag).toStdString();
        EXPECT_EQ(bag->property("Sum").toString(), rig->ref.value(key + QStringLiteral(".sum")));
        EXPECT_EQ(bag->property("Max").toString(), rig->ref.value(key + QStringLiteral(".max")));
    }
    EXPECT_GE(depths, 2);

    // An expression evaluated in an outer frame learns its recursion depth.
    auto stack = rig->mi(QStringLiteral("-stack-list-frames"));
    ASSERT_TRUE(stack);
    arraylens::gdb::FrameInfo outer;
    int seen = 0;
    for (const auto* f : stack->record().results["stack"].all("frame")) {
        if ((*f)["func"].asString() != "recurse")
            continue;
        if (seen++ == 2) {
            outer.thread = thread;
            outer.level = QString::fromStdString((*f)["level"].asString()).toInt();
            outer.function = QStringLiteral("recurse");
        }
    }
    ASSERT_GE(seen, 3);
    auto* e = static_cast<GdbExpression*>(rig->debugger->createExpression(QStringLiteral("trail")));
    rig->owned.emplace_back(e);
    QSharedPointer<IHVFrame> frame(new arraylens::gdb::GdbFrame(outer));
    auto future = e->evaluate(frame);
    ASSERT_TRUE(waitFor([&] { return future.isFinished(); }));
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    EXPECT_EQ(e->getFrameRecursionDepth(), 2u);
    EXPECT_EQ(e->getScopeID(), QStringLiteral("recurse"));
    EXPECT_EQ(e->getFocus(), thread);
    EXPECT_EQ(e->getFrameLevel(), outer.level);
    ASSERT_TRUE(e->getFrame());
    EXPECT_EQ(e->getFrame()->getFunction(), QStringLiteral("recurse"));
    EXPECT_GT(e->getFrame()->getLine(), 0);
    auto stats = rig->statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done"));
    EXPECT_EQ(stats->property("Sum").toString(),
              rig->ref.value(QStringLiteral("trail_depth2.sum")));

    // A frame that is not there is refused with words that say so.
    auto gone =
        rig->request(frameRequest(QStringLiteral("trail"), thread, QStringLiteral("recurse"), 40));
    EXPECT_EQ(resultOf(gone), QStringLiteral("error"));
    EXPECT_TRUE(msgOf(gone).contains(QStringLiteral("gone"))) << msgOf(gone).toStdString();
}

TEST(GdbRequests, CastsOfAHeapPointer) {
    auto rig = startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"));
    ASSERT_TRUE(rig);
    // A pointer is no array until it is cast to one.
    GdbExpression* e = rig->evaluate(QStringLiteral("heap_floats"));
    ASSERT_FALSE(e->hasError());
    EXPECT_FALSE(e->isArray());
    e->setType(QStringLiteral("float [6][8]"), true);
    ASSERT_TRUE(e->hasAlternateExpression());
    EXPECT_EQ(e->getAlternateExpression(), QStringLiteral("*(float(*)[6][8])(heap_floats)"));
    auto future = e->evaluate(rig->debugger->currentFrame());
    ASSERT_TRUE(waitFor([&] { return future.isFinished(); }));
    ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
    EXPECT_TRUE(e->isArray());
    EXPECT_EQ(e->getActualType(), QStringLiteral("float [6][8]"));
    EXPECT_EQ(e->facts().byteStrides, (QVector<qint64>{32, 4}));

    auto stats = rig->statistics(e);
    ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
    EXPECT_EQ(stats->property("Count").toInt(), rig->ref.value("heap_floats.count").toInt());
    EXPECT_TRUE(near(number(rig->ref.value("heap_floats.sum")), stats->property("Sum").toDouble()));
    EXPECT_TRUE(
        near(number(rig->ref.value("heap_floats.median")), stats->property("Median").toDouble()));

    // The other spelling of the same memory, and the cast taken away again.
    GdbExpression* p = rig->evaluate(QStringLiteral("p"));
    p->setType(QStringLiteral("double[100]"), true);
    auto info = rig->info(p);
    ASSERT_EQ(resultOf(info), QStringLiteral("done")) << msgOf(info).toStdString();
    EXPECT_EQ(info->property("ArrayBounds").toStringList(), QStringList{QStringLiteral("0:99")});
    auto pstats = rig->statistics(p);
    ASSERT_EQ(resultOf(pstats), QStringLiteral("done"));
    EXPECT_TRUE(near(number(rig->ref.value("p.sum")), pstats->property("Sum").toDouble()));
    p->setType(QString(), true);
    EXPECT_FALSE(p->hasAlternateExpression());

    // An array cast to another element type goes through its address.
    GdbExpression* counters = rig->evaluate(QStringLiteral("counters"));
    counters->setType(QStringLiteral("unsigned char"), true);
    EXPECT_EQ(counters->getAlternateExpression(),
              QStringLiteral("*(unsigned char(*)[64])&(counters)"));
}

TEST(GdbRequests, TheProgramWritesOnATerminalOfItsOwn) {
    auto rig = makeRig();
    QByteArray program, console;
    QObject::connect(rig->session.get(), &GdbSession::inferiorOutput,
                     [&](const QByteArray& bytes) { program += bytes; });
    QObject::connect(rig->session.get(), &GdbSession::streamText,
                     [&](const QString& text) { console += text.toUtf8(); });
    QString why;
    ASSERT_TRUE(rig->startAt(QStringLiteral("example_arrays_fortran"),
                             QStringLiteral("arrays_f90.section"), &why))
        << why.toStdString();
    EXPECT_TRUE(rig->session->inferiorTerminalPath().startsWith(QStringLiteral("/dev/pts/")));
    // The Fortran example prints its words before it stops.
    ASSERT_TRUE(waitFor([&] { return program.contains("words:"); }, 5000)) << program.data();
    EXPECT_FALSE(console.contains("words:"));
}

TEST(GdbRequests, SlicesAndFiltersOnTheFortranSection) {
    auto rig =
        startedAt(QStringLiteral("example_arrays_fortran"), QStringLiteral("arrays_f90.section"));
    ASSERT_TRUE(rig);
    GdbExpression* y = rig->evaluate(QStringLiteral("y"));
    ASSERT_FALSE(y->hasError());
    EXPECT_TRUE(y->isFortranExpression());
    // Strides come from the addresses of neighbours, as the program measured.
    const QStringList strides = rig->ref.value("y.byte_strides").split(QLatin1Char(','));
    ASSERT_EQ(strides.size(), 2);
    EXPECT_EQ(y->facts().byteStrides,
              (QVector<qint64>{strides[0].toLongLong(), strides[1].toLongLong()}));

    const QString slice = rig->ref.value("y_slice.slice");
    ASSERT_FALSE(slice.isEmpty());
    auto sliced = rig->statistics(y, slice);
    ASSERT_EQ(resultOf(sliced), QStringLiteral("done")) << msgOf(sliced).toStdString();
    EXPECT_EQ(sliced->property("Count").toInt(), rig->ref.value("y_slice.count").toInt());
    EXPECT_TRUE(near(number(rig->ref.value("y_slice.sum")), sliced->property("Sum").toDouble()));
    EXPECT_TRUE(
        near(number(rig->ref.value("y_slice.median")), sliced->property("Median").toDouble()));
    EXPECT_EQ(sliced->property("Min").toDouble(), number(rig->ref.value("y_slice.min")));
    EXPECT_EQ(sliced->property("Max").toDouble(), number(rig->ref.value("y_slice.max")));

    const QString filter = rig->ref.value("y_filter.filter");
    auto filtered = rig->statistics(y, QString(), filter);
    ASSERT_EQ(resultOf(filtered), QStringLiteral("done")) << msgOf(filtered).toStdString();
    EXPECT_EQ(filtered->property("Count").toInt(), rig->ref.value("y_filter.count").toInt());
    EXPECT_TRUE(near(number(rig->ref.value("y_filter.sum")), filtered->property("Sum").toDouble()));
    EXPECT_TRUE(near(number(rig->ref.value("y_filter.q3")),
                     filtered->property("ThirdQuartile").toDouble()));

    // The filtered plot: the passing values, rank 1.
    auto plot = rig->plot(y, QString(), filter);
    ASSERT_EQ(resultOf(plot), QStringLiteral("done")) << msgOf(plot).toStdString();
    EXPECT_EQ(plot->property("Rank").toInt(), 1);
    EXPECT_EQ(plot->property("AllEvaluations").toByteArray().size() / 8,
              rig->ref.value("y_filter.count").toInt());

    // A table of the slice: y(3,4) sits at row 1 (index 3 of 2:4) and
    // column 1 (index 4 of 1:8:3).
    auto table = rig->table(y, slice, 0, 1, 1, 1, 1);
    ASSERT_EQ(resultOf(table), QStringLiteral("done")) << msgOf(table).toStdString();
    EXPECT_EQ(table->property("RowCount").toInt(), 3);
    EXPECT_EQ(table->property("ColCount").toInt(), 3);
    EXPECT_EQ(table->property("ColStride").toInt(), 3);
    const QVariantList cells = table->property("TableDataList").toList();
    ASSERT_EQ(cells.size(), 1);
    EXPECT_EQ(number(cells[0].toMap().value("value").toString()),
              number(rig->ref.value("y.elem(3,4)")));

    // Refusals name the problem.
    auto badSlice = rig->statistics(y, QStringLiteral("(1:9,:)"));
    EXPECT_EQ(resultOf(badSlice), QStringLiteral("error"));
    EXPECT_EQ(badSlice->property("code").toString(), QStringLiteral("slice"));
    EXPECT_FALSE(msgOf(badSlice).isEmpty());
    auto badFilter = rig->statistics(y, QString(), QStringLiteral("$value .gt."));
    EXPECT_EQ(resultOf(badFilter), QStringLiteral("error"));
    EXPECT_EQ(badFilter->property("code").toString(), QStringLiteral("filter"));
    auto badTable = rig->table(y, QStringLiteral("(1:2"), 0, 0, 0, 0, 0);
    EXPECT_EQ(resultOf(badTable), QStringLiteral("error"));
    // The table echoes its settings also when it refuses.
    EXPECT_EQ(badTable->property("Slice").toString(), QStringLiteral("(1:2"));
    EXPECT_EQ(badTable->property("DataFormat").toInt(), 0);
    EXPECT_TRUE(badTable->property("RowDim").isValid());
}

TEST(GdbRequests, RefusalsSayWhatIsWrong) {
    auto rig = startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"));
    ASSERT_TRUE(rig);
    GdbExpression* scalar = rig->evaluate(QStringLiteral("grid[1][2]"));
    EXPECT_FALSE(scalar->hasError());
    EXPECT_FALSE(scalar->isArray());
    auto notArray = rig->statistics(scalar);
    EXPECT_EQ(resultOf(notArray), QStringLiteral("error"));
    EXPECT_TRUE(msgOf(notArray).contains(QStringLiteral("not an array")))
        << msgOf(notArray).toStdString();

    GdbExpression* unknown = rig->evaluate(QStringLiteral("nosuchvar"));
    EXPECT_TRUE(unknown->hasError());
    EXPECT_TRUE(unknown->getErrorMessage().contains(QStringLiteral("No symbol")));
    auto noSymbol = rig->info(unknown);
    EXPECT_EQ(resultOf(noSymbol), QStringLiteral("error"));
    EXPECT_TRUE(msgOf(noSymbol).contains(QStringLiteral("nosuchvar")))
        << msgOf(noSymbol).toStdString();
    EXPECT_FALSE(noSymbol->property("code").toString().isEmpty());

    GdbExpression* grid = rig->evaluate(QStringLiteral("grid"));
    auto badSlice = rig->statistics(grid, QStringLiteral("[0:9][0:20]"));
    EXPECT_EQ(resultOf(badSlice), QStringLiteral("error"));
    EXPECT_EQ(badSlice->property("code").toString(), QStringLiteral("slice"));
    auto badFilter = rig->plot(grid, QString(), QStringLiteral("$value < "));
    EXPECT_EQ(resultOf(badFilter), QStringLiteral("error"));
    EXPECT_EQ(badFilter->property("code").toString(), QStringLiteral("filter"));

    // Strings of Fortran and structures have a shape but no numbers.
    GdbExpression* message = rig->evaluate(QStringLiteral("message"));
    auto info = rig->info(message);
    EXPECT_EQ(resultOf(info), QStringLiteral("done"));
    EXPECT_EQ(info->property("DataType").toInt(), 2);
}

TEST(GdbRequests, TypedTextCannotStartASecondCommand) {
    auto rig = startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"));
    ASSERT_TRUE(rig);
    const QString marker = rig->dir.filePath(QStringLiteral("smuggled"));
    const QStringList attempts = {
        QStringLiteral("grid\nshell touch %1").arg(marker),
        QStringLiteral("grid\r\n-interpreter-exec console \"shell touch %1\"").arg(marker),
        QStringLiteral("grid\" console \"shell touch %1").arg(marker),
        QStringLiteral("\"\\\" -interpreter-exec console \\\"shell touch %1\\\"").arg(marker),
        QStringLiteral("grid\\\"\n-gdb-exit"),
        QStringLiteral("grid\\"),
    };
    for (const QString& text : attempts) {
        SCOPED_TRACE(text.toStdString());
        GdbExpression* e = rig->evaluate(text);
        EXPECT_TRUE(e->hasError());
        EXPECT_FALSE(e->getErrorMessage().isEmpty());
        ArrayStatisticsRequest r;
        r.setFields(nullptr, QString(), QString());
        r.propertyBag->setProperty("Expression", text);
        auto bag = rig->request(r);
        EXPECT_EQ(resultOf(bag), QStringLiteral("error"));
        EXPECT_FALSE(msgOf(bag).isEmpty());
    }
    // Line breaks are refused before gdb sees them, in plain words.
    GdbExpression* twoLines = rig->evaluate(attempts[0]);
    EXPECT_TRUE(twoLines->getErrorMessage().contains(QStringLiteral("single line")));
    EXPECT_FALSE(QFileInfo::exists(marker));
    // gdb is still there and still answers.
    EXPECT_TRUE(rig->session->isAlive());
    auto ok = rig->statistics(rig->evaluate(QStringLiteral("grid")));
    EXPECT_EQ(resultOf(ok), QStringLiteral("done"));
}

TEST(GdbRequests, StopEventsAndContextsFollowGdb) {
    fake::CallLog log;
    fake::ContextManager contexts(log);
    auto rig = makeRig();
    QList<AsyncRecord> events;
    QObject::connect(rig->debugger.get(), &GdbDebugger::debuggerEvent,
                     [&](AsyncRecord r) { events.append(r); });
    rig->debugger->setContextManager(&contexts);
    EXPECT_TRUE(contexts.isContextRegistered(QStringLiteral("HVDebugger.CONNECTED")));
    EXPECT_FALSE(contexts.hasContext(QStringLiteral("HVDebugger.CONNECTED")));
    QString why;
    ASSERT_TRUE(rig->startAt(QStringLiteral("example_arrays_c"),
                             QStringLiteral("arrays_c.recursion"), &why));
    EXPECT_TRUE(contexts.hasContext(QStringLiteral("HVDebugger.CONNECTED")));
    EXPECT_TRUE(contexts.hasContext(QStringLiteral("HVDebugger.READY")));
    const AsyncRecord* stop = nullptr;
    for (const AsyncRecord& r : events)
        if (r.getID() == QLatin1String("StoppedRecord"))
            stop = &r;
    ASSERT_TRUE(stop);
    EXPECT_EQ(stop->propertyBag->property("reason").toString(), QStringLiteral("breakpoint-hit"));
    EXPECT_EQ(stop->propertyBag->property("thread-id").toString(), rig->session->stoppedThread());
    EXPECT_EQ(stop->propertyBag->property("frame").toMap().value("func").toString(),
              QStringLiteral("recurse"));

    // While the program runs the data is stale; once it has exited, "exit".
    QFuture<QSharedPointer<QObject>> whileRunning;
    bool sentWhileRunning = false;
    bool readyWhileRunning = true;
    GdbExpression* trail = rig->evaluate(QStringLiteral("trail"));
    auto connection = QObject::connect(
        rig->session.get(), &GdbSession::targetStateChanged, [&](GdbSession::TargetState s) {
            if (s == GdbSession::TargetState::Running && !sentWhileRunning) {
                sentWhileRunning = true;
                ArrayStatisticsRequest r;
                r.setFields(trail, QString(), QString());
                whileRunning = rig->debugger->sendRequest(r);
                readyWhileRunning = contexts.hasContext(QStringLiteral("HVDebugger.READY"));
            }
        });
    rig->mi(QStringLiteral("-break-delete"));
    rig->mi(QStringLiteral("-exec-continue"));
    ASSERT_TRUE(
        waitFor([&] { return rig->session->targetState() == GdbSession::TargetState::Exited; }));
    QObject::disconnect(connection);
    ASSERT_TRUE(sentWhileRunning);
    ASSERT_TRUE(waitFor([&] { return whileRunning.isFinished(); }));
    auto stale = whileRunning.result();
    EXPECT_EQ(resultOf(stale), QStringLiteral("done"));
    EXPECT_TRUE(stale->property("IsStale").toBool());
    EXPECT_FALSE(readyWhileRunning);
    EXPECT_FALSE(contexts.hasContext(QStringLiteral("HVDebugger.READY")));
    auto exited = rig->statistics(trail);
    EXPECT_EQ(resultOf(exited), QStringLiteral("exit"));

    rig->session->kill();
    ASSERT_TRUE(waitFor([&] { return !rig->session->isAlive(); }));
    EXPECT_FALSE(contexts.hasContext(QStringLiteral("HVDebugger.CONNECTED")));
}

TEST(GdbRequests, KilledGdbFailsEveryOpenRequestAtOnce) {
    GdbSession::Options slow;
    // Through gdb the big table takes seconds, so the requests are surely
    // open when gdb goes.
    slow.memoryThroughGdb = true;
    auto rig = startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"), slow);
    ASSERT_TRUE(rig);
    GdbExpression* big = rig->evaluate(QStringLiteral("big2d"));
    ASSERT_TRUE(big->isArray());

    // The GUI thread's event loop must keep turning throughout.
    QElapsedTimer tick;
    tick.start();
    qint64 longestGap = 0;
    QTimer heartbeat;
    heartbeat.setInterval(5);
    QObject::connect(&heartbeat, &QTimer::timeout,
                     [&] { longestGap = std::max(longestGap, tick.restart()); });
    heartbeat.start();

    QElapsedTimer sending;
    sending.start();
    QList<QFuture<QSharedPointer<QObject>>> futures;
    for (int i = 0; i < 6; ++i) {
        ArrayStatisticsRequest r;
        r.setFields(big, QString(), QString());
        futures.append(rig->debugger->sendRequest(r));
    }
    // Handing over a request only queues it.
    EXPECT_LT(sending.elapsed(), 250);
    waitFor([] { return false; }, 300);
    for (const auto& f : futures)
        ASSERT_FALSE(f.isFinished()) << "a request finished before gdb was killed";

    ASSERT_GT(rig->session->gdbPid(), 0);
    QElapsedTimer sinceKill;
    sinceKill.start();
    ::kill(pid_t(rig->session->gdbPid()), SIGKILL);
    const bool allDone = waitFor(
        [&] {
            for (const auto& f : futures)
                if (!f.isFinished())
                    return false;
            return true;
        },
        1000);
    const qint64 took = sinceKill.elapsed();
    ASSERT_TRUE(allDone) << "open requests still waiting after " << took << " ms";
    EXPECT_LT(took, 1000);
    for (const auto& f : futures) {
        EXPECT_EQ(resultOf(f.result()), QStringLiteral("error"));
        EXPECT_EQ(msgOf(f.result()), QStringLiteral("The debugger has stopped."));
    }
    // And every request after.
    ArrayInfoRequest later;
    later.setFields(big);
    auto after = rig->debugger->sendRequest(later);
    ASSERT_TRUE(after.isFinished());
    EXPECT_EQ(msgOf(after.result()), QStringLiteral("The debugger has stopped."));
    heartbeat.stop();
    // Generous, for a loaded machine: a thread waiting for gdb or for the
    // reading would stand still for seconds.
    EXPECT_LT(longestGap, 500) << "the GUI thread stood still for " << longestGap << " ms";
}

TEST(GdbRequests, MemoryThroughGdbGivesTheSameNumbers) {
    GdbSession::Options viaGdb;
    viaGdb.memoryThroughGdb = true;
    auto rig =
        startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"), viaGdb);
    ASSERT_TRUE(rig);
    for (const char* name : {"grid", "cube", "specials"}) {
        SCOPED_TRACE(name);
        auto stats = rig->statistics(rig->evaluate(QString::fromLatin1(name)));
        ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
        const QString key = QString::fromLatin1(name);
        EXPECT_EQ(stats->property("Count").toInt(), rig->ref.value(key + ".count").toInt());
        EXPECT_EQ(stats->property("NanCount").toInt(), rig->ref.value(key + ".nans").toInt());
        EXPECT_TRUE(near(number(rig->ref.value(key + ".sum")), stats->property("Sum").toDouble()));
        EXPECT_TRUE(
            near(number(rig->ref.value(key + ".median")), stats->property("Median").toDouble()));
    }
}

TEST(GdbRequests, CoreFileIsReadThroughGdb) {
    auto rig = startedAt(QStringLiteral("example_arrays_c"), QStringLiteral("arrays_c.main"));
    ASSERT_TRUE(rig);
    const QString core = rig->dir.filePath(QStringLiteral("arrays.core"));
    auto dumped = rig->mi(
        QStringLiteral("-interpreter-exec console ") +
            QString::fromStdString(arraylens::mi::quoteCString(("gcore " + core).toStdString())),
        120000);
    ASSERT_TRUE(dumped && !dumped->isError())
        << (dumped ? dumped->errorMessage().toStdString() : "");
    ASSERT_TRUE(QFileInfo::exists(core));

    Rig post;
    QString error;
    ASSERT_TRUE(post.session->start(exampleProgram(QStringLiteral("example_arrays_c")), {}, &error))
        << error.toStdString();
    post.session->setTargetIsLocalProcess(false);
    // -target-select hands its arguments to the command line as they stand.
    auto opened = post.mi(QStringLiteral("-target-select core ") + core);
    ASSERT_TRUE(opened && !opened->isError())
        << (opened ? opened->errorMessage().toStdString() : "");
    post.session->markStopped();
    EXPECT_FALSE(post.session->readsMemoryDirectly());
    for (const char* name : {"grid", "*heap_ints@250", "lspecials"}) {
        SCOPED_TRACE(name);
        GdbExpression* e = post.evaluate(QString::fromLatin1(name));
        ASSERT_FALSE(e->hasError()) << e->getErrorMessage().toStdString();
        auto stats = post.statistics(e);
        ASSERT_EQ(resultOf(stats), QStringLiteral("done")) << msgOf(stats).toStdString();
        QString key = QString::fromLatin1(name);
        if (key.startsWith('*'))
            key = QStringLiteral("heap_ints");
        EXPECT_EQ(stats->property("Count").toInt(), rig->ref.value(key + ".count").toInt());
        EXPECT_EQ(stats->property("NanCount").toInt(), rig->ref.value(key + ".nans").toInt());
        EXPECT_TRUE(near(number(rig->ref.value(key + ".sum")), stats->property("Sum").toDouble()));
        EXPECT_TRUE(
            near(number(rig->ref.value(key + ".median")), stats->property("Median").toDouble()));
    }
}

TEST(GdbRequests, AnAllocatableBeforeAllocateIsRefused) {
    auto rig = startedAt(QStringLiteral("example_arrays_fortran"),
                         QStringLiteral("arrays_f90.unallocated"));
    ASSERT_TRUE(rig);
    EXPECT_EQ(rig->ref.value("a.allocated"), QStringLiteral("0"));
    GdbExpression* a = rig->evaluate(QStringLiteral("a"));
    EXPECT_TRUE(a->hasError());
    EXPECT_TRUE(a->getErrorMessage().contains(QStringLiteral("not allocated")))
        << a->getErrorMessage().toStdString();
    ArrayInfoRequest info;
    info.setFields(nullptr);
    info.propertyBag->setProperty("Expression", QStringLiteral("a"));
    auto bag = rig->request(info);
    EXPECT_EQ(resultOf(bag), QStringLiteral("error"));
    EXPECT_TRUE(msgOf(bag).contains(QStringLiteral("not allocated"))) << msgOf(bag).toStdString();

    // The arrays beside it answer as usual, with their declared bounds.
    GdbExpression* x = rig->evaluate(QStringLiteral("x"));
    auto xinfo = rig->info(x);
    ASSERT_EQ(resultOf(xinfo), QStringLiteral("done"));
    EXPECT_EQ(xinfo->property("EmptySlice").toString(), QStringLiteral("(0:9,-2:5)"));
    EXPECT_EQ(xinfo->property("ArrayBounds").toStringList(), rig->ref.value("x.bounds").split(','));
}
