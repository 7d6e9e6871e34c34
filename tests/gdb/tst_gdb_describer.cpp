// The describer's command and the reading of its answer, without a debugger.
#include "describer.h"

#include <gtest/gtest.h>

using namespace arraylens::gdb;

TEST(DescriberCommand, TypedTextGoesInAsHexadecimal) {
    const QString typed = QStringLiteral("a\"); gdb.execute('shell touch x') #\u00e9");
    const QString command = describerCommand(typed, true);
    EXPECT_EQ(command, QStringLiteral("python arraylens_describe.describe('%1', True)")
                           .arg(QString::fromLatin1(typed.toUtf8().toHex())));
    // Nothing of the typed text is left as it was typed.
    EXPECT_FALSE(command.contains(QLatin1String("shell")));
    EXPECT_FALSE(command.contains(QLatin1Char('"')));
    EXPECT_EQ(describerCommand(QStringLiteral("v"), false, QStringLiteral("float")),
              QStringLiteral("python arraylens_describe.describe('76', False, '666c6f6174')"));
}

TEST(DescriberReply, AnArrayWithItsLayout) {
    ArrayFacts facts;
    facts.expression = QStringLiteral("*A->vals@A->n");
    Failure failure;
    const QString console = QStringLiteral(
        "warning: something gdb said first\n"
        "arraylens-describe: {\"language\": \"c\", \"isArray\": true, \"isPointer\": false, "
        "\"type\": \"double [3240]\", \"dims\": [[\"0\", \"3239\"]], \"element\": \"double\", "
        "\"elementSize\": 8, \"address\": \"18446744073709551608\", \"byteStrides\": [\"-8\"]}\n");
    ASSERT_TRUE(readDescriberReply(console, facts, failure)) << failure.message.toStdString();
    EXPECT_EQ(facts.language, QStringLiteral("c"));
    EXPECT_FALSE(facts.fortran);
    EXPECT_TRUE(facts.isArray);
    EXPECT_EQ(facts.typeText, QStringLiteral("double [3240]"));
    ASSERT_EQ(facts.dims.size(), 1);
    EXPECT_EQ(facts.dims[0].upper, 3239);
    EXPECT_EQ(facts.elementSize, 8);
    // Addresses beyond 2^53 come through exactly.
    EXPECT_EQ(facts.address, quint64(18446744073709551608ull));
    EXPECT_EQ(facts.byteStrides, QVector<qint64>{-8});
}

TEST(DescriberReply, ErrorsRefusalsAndUnknownShapes) {
    ArrayFacts facts;
    Failure failure;
    EXPECT_FALSE(readDescriberReply(
        QStringLiteral("arraylens-describe: {\"error\": \"Invalid number 0 of repetitions.\", "
                       "\"kind\": \"gdb\", \"language\": \"c\"}\n"),
        facts, failure));
    EXPECT_EQ(failure.kind, Failure::Kind::Gdb);
    EXPECT_EQ(failure.message, QStringLiteral("Invalid number 0 of repetitions."));
    EXPECT_EQ(facts.language, QStringLiteral("c"));

    facts = ArrayFacts();
    EXPECT_FALSE(readDescriberReply(
        QStringLiteral(
            "arraylens-describe: {\"error\": \"No frame selected.\", \"kind\": \"gdb\"}"),
        facts, failure));
    EXPECT_EQ(failure.kind, Failure::Kind::Exited);

    facts = ArrayFacts();
    failure = Failure();
    ASSERT_TRUE(readDescriberReply(
        QStringLiteral("arraylens-describe: {\"language\": \"c\", \"isArray\": false, "
                       "\"isPointer\": true, \"type\": \"double *\", \"refusal\": \"p is a "
                       "pointer to double: show N elements with *p@N\"}"),
        facts, failure));
    EXPECT_TRUE(facts.isPointer);
    EXPECT_EQ(facts.refusal, QStringLiteral("p is a pointer to double: show N elements with *p@N"));

    facts = ArrayFacts();
    ASSERT_TRUE(readDescriberReply(
        QStringLiteral("arraylens-describe: {\"language\": \"fortran\", \"isArray\": true, "
                       "\"type\": \"real(kind=8), allocatable (:,:)\", \"shapeUnknown\": true}"),
        facts, failure));
    EXPECT_TRUE(facts.fortran);
    EXPECT_EQ(facts.problem, QStringLiteral("The array is not allocated."));
    EXPECT_EQ(facts.dims.size(), 2);

    facts = ArrayFacts();
    ASSERT_TRUE(readDescriberReply(
        QStringLiteral("arraylens-describe: {\"language\": \"c\", \"isArray\": true, "
                       "\"type\": \"double []\", \"problem\": \"v is declared without a "
                       "length\", \"dims\": [[\"0\", \"0\"]]}"),
        facts, failure));
    EXPECT_EQ(facts.problem, QStringLiteral("v is declared without a length"));

    facts = ArrayFacts();
    EXPECT_FALSE(readDescriberReply(
        QStringLiteral("Python scripting is not supported in this copy of GDB.\n"), facts,
        failure));
    EXPECT_EQ(failure.message,
              QStringLiteral("Python scripting is not supported in this copy of GDB."));
    EXPECT_FALSE(
        readDescriberReply(QStringLiteral("arraylens-describe: {\"dims\": [[1]]"), facts, failure));
    EXPECT_TRUE(failure.message.startsWith(QLatin1String("Cannot read")));
}

TEST(ContainerCasts, AlternateTextOfTheServicesOwn) {
    const QVector<DimBounds> dims{{0, 124}};
    EXPECT_EQ(containerReinterpretCast(QStringLiteral("domain.m_e"), QStringLiteral("float"), dims),
              QStringLiteral("{float [125]} domain.m_e"));
    EXPECT_EQ(
        containerReinterpretCast(QStringLiteral("v"), QStringLiteral("double [25] [5]"), dims),
        QStringLiteral("{double [25][5]} v"));
    const auto split = splitFortranCast(QStringLiteral("{double [25][5]} v"));
    ASSERT_TRUE(split);
    EXPECT_EQ(split->type, QStringLiteral("double [25][5]"));
    EXPECT_EQ(split->expression, QStringLiteral("v"));
}
