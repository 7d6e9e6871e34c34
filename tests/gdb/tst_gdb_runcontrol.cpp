// The words and commands of runcontrol.h, on MI text as gdb 13 writes it:
// breakpoints with conditions and skip counts, a program gdb cannot load, a
// stop at a signal; and a structure's type text over several lines.
#include "gdbtypes.h"
#include "runcontrol.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace arraylens::gdb;

namespace {

arraylens::mi::Value results(const std::string& line) {
    return arraylens::mi::parseLine(line).results;
}

TEST(BreakSpecs, LocationAndCondition) {
    BreakSpec spec;
    QString error;
    ASSERT_TRUE(parseBreakSpec(QStringLiteral("heat.c:124"), spec, &error));
    EXPECT_EQ(spec.location, QStringLiteral("heat.c:124"));
    EXPECT_TRUE(spec.condition.isEmpty());

    ASSERT_TRUE(parseBreakSpec(QStringLiteral("  f if cycle == 3 "), spec, &error));
    EXPECT_EQ(spec.location, QStringLiteral("f"));
    EXPECT_EQ(spec.condition, QStringLiteral("cycle == 3"));

    // The first " if " counts; later ones belong to the condition.
    ASSERT_TRUE(parseBreakSpec(QStringLiteral("g.c:7 if a if b"), spec, &error));
    EXPECT_EQ(spec.location, QStringLiteral("g.c:7"));
    EXPECT_EQ(spec.condition, QStringLiteral("a if b"));

    // Not a keyword inside quotes, nor inside a word.
    ASSERT_TRUE(parseBreakSpec(QStringLiteral("'my if.c':12 if\tn > 2"), spec, &error));
    EXPECT_EQ(spec.location, QStringLiteral("'my if.c':12"));
    EXPECT_EQ(spec.condition, QStringLiteral("n > 2"));
    ASSERT_TRUE(parseBreakSpec(QStringLiteral("modify_iff"), spec, &error));
    EXPECT_EQ(spec.location, QStringLiteral("modify_iff"));
    ASSERT_TRUE(parseBreakSpec(QStringLiteral("main ifx"), spec, &error));
    EXPECT_EQ(spec.location, QStringLiteral("main ifx"));
    EXPECT_TRUE(spec.condition.isEmpty());
}

TEST(BreakSpecs, EmptyPartsAreRefusedInWords) {
    BreakSpec spec;
    QString error;
    EXPECT_FALSE(parseBreakSpec(QStringLiteral("heat.c:124 if "), spec, &error));
    EXPECT_EQ(error, QStringLiteral(
                         "The condition after 'if' in the breakpoint 'heat.c:124 if' is empty."));
    EXPECT_FALSE(parseBreakSpec(QStringLiteral("main if"), spec, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("is empty"))) << error.toStdString();
    EXPECT_FALSE(parseBreakSpec(QStringLiteral("  "), spec, &error));
    EXPECT_EQ(error, QStringLiteral("The breakpoint '' has no location."));
    EXPECT_FALSE(parseBreakSpec(QStringLiteral(" if x"), spec, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("no location"))) << error.toStdString();
}

TEST(BreakSpecs, MiCommandQuotesWhatTheUserTyped) {
    BreakSpec spec{QStringLiteral("heat.c:124"), QStringLiteral("name == \"a b\"")};
    EXPECT_EQ(breakInsertCommand(spec, 0),
              QStringLiteral("-break-insert -c \"name == \\\"a b\\\"\" \"heat.c:124\""));
    EXPECT_EQ(breakInsertCommand(spec, 9),
              QStringLiteral("-break-insert -c \"name == \\\"a b\\\"\" -i 9 \"heat.c:124\""));
    EXPECT_EQ(breakInsertCommand(BreakSpec{QStringLiteral("main"), {}}, 2),
              QStringLiteral("-break-insert -i 2 \"main\""));
    // A line break in a condition cannot start a second command.
    EXPECT_FALSE(
        breakInsertCommand(BreakSpec{QStringLiteral("f"), QStringLiteral("x\n-gdb-exit")}, 0)
            .contains(QLatin1Char('\n')));
}

TEST(ProgramNotFound, GdbsOwnReasonIsKept) {
    const auto none = results("^done,groups=[{id=\"i1\",type=\"process\"}]");
    EXPECT_EQ(
        programNotFoundText(QStringLiteral("/no/such/prog"), none["groups"],
                            QStringLiteral("/no/such/prog: No such file or directory.\n")),
        QStringLiteral("The program /no/such/prog was not found (No such file or directory)."));
    EXPECT_EQ(programNotFoundText(QStringLiteral("prog"), none["groups"], QString()),
              QStringLiteral("The program prog was not found."));
    const auto loaded =
        results("^done,groups=[{id=\"i1\",type=\"process\",executable=\"/tmp/prog\"}]");
    EXPECT_TRUE(programNotFoundText(QStringLiteral("prog"), loaded["groups"], QString()).isEmpty());
}

TEST(UnexpectedStops, ASignalIsNamedWithTheProgramsOwnFunction) {
    // The stop is deep in the C library; the program's own frame is the
    // first whose source is there.
    const QString source = QDir::current().absoluteFilePath(QStringLiteral("membrane_here.c"));
    QFile file(source);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    const auto stop =
        results("*stopped,reason=\"signal-received\",signal-name=\"SIGUSR1\",signal-meaning=\"User "
                "defined signal 1\",frame={addr=\"0x00007ffff7e5aeec\",func=\"__pthread_kill_"
                "implementation\",args=[],file=\"./nptl/pthread_kill.c\",fullname=\"./nptl/./nptl/"
                "pthread_kill.c\",line=\"44\",arch=\"i386:x86-64\"},thread-id=\"1\","
                "stopped-threads=\"all\",core=\"0\"");
    const std::string stack =
        "^done,stack=[frame={level=\"0\",addr=\"0x1\",func=\"__pthread_kill_implementation\","
        "file=\"./nptl/pthread_kill.c\",fullname=\"./nptl/./nptl/pthread_kill.c\",line=\"44\"},"
        "frame={level=\"1\",addr=\"0x2\",func=\"raise\",from=\"/lib/libc.so.6\"},"
        "frame={level=\"2\",addr=\"0x3\",func=\"main\",file=\"membrane_here.c\",fullname=\"" +
        source.toStdString() + "\",line=\"87\"}]";
    EXPECT_EQ(unexpectedStopText(stop, results(stack)["stack"]),
              QStringLiteral("The program stopped at SIGUSR1 (User defined signal 1) in "
                             "__pthread_kill_implementation (pthread_kill.c:44), called from "
                             "main (membrane_here.c:87), before reaching a breakpoint."));
    // Without a stack, the stop's own frame.
    EXPECT_EQ(unexpectedStopText(stop, arraylens::mi::Value()),
              QStringLiteral("The program stopped at SIGUSR1 (User defined signal 1) in "
                             "__pthread_kill_implementation (pthread_kill.c:44), before reaching "
                             "a breakpoint."));
    QFile::remove(source);
    // A breakpoint's stop needs no words.
    EXPECT_TRUE(unexpectedStopText(results("*stopped,reason=\"breakpoint-hit\",frame={func=\"f\"}"),
                                   arraylens::mi::Value())
                    .isEmpty());
}

} // namespace
