// A test fixture for the checks of one stop of an example program: one
// debuggee run, started by the suite's SetUpTestSuite(), shared by all its
// tests.
#pragma once

#include "referencecheck.h"

namespace gdbtest {

// Typed text and the words it must be answered with.
struct Words {
    const char* expression;
    const char* words;
};

// One debuggee run shared by all checks of a program's stop.
class SharedStop : public ::testing::Test {
protected:
    static void start(const char* program, const char* stop) {
        rig_ = makeRig();
        if (!rig_->startAt(QLatin1String(program), QLatin1String(stop), &why_))
            rig_.reset();
    }
    static void TearDownTestSuite() { rig_.reset(); }
    void SetUp() override { ASSERT_TRUE(rig_) << why_.toStdString(); }

    // What the program wrote about the array called `name`.
    static ArrayRef reference(const QString& name) {
        const QList<ArrayRef> found = arraysOf(rig_->ref, {name});
        return found.isEmpty() ? ArrayRef() : found.first();
    }
    // A variable of the debuggee, read through gdb.
    static QString value(const QString& expression) {
        auto r = rig_->mi(QStringLiteral("-data-evaluate-expression ") + expression);
        if (!r || r->isError())
            return QStringLiteral("<error>");
        return QString::fromStdString(r->record().results["value"].asString());
    }
    // What a refusal offers to type instead (the words after its last "for
    // example ", N as 2), read through gdb: "<error>" when gdb cannot.
    static QString valueOfOffered(const QString& words) {
        const QString marker = QStringLiteral("for example ");
        const int at = words.lastIndexOf(marker);
        if (at < 0)
            return QStringLiteral("<error>");
        QString typed = words.mid(at + marker.size());
        if (typed.endsWith(QLatin1Char('.')))
            typed.chop(1);
        typed.replace(QStringLiteral("@N"), QStringLiteral("@2"));
        return value(typed);
    }
    // The words a request answers with for the typed text.
    static QString refusalOf(const QString& expression) {
        ArrayStatisticsRequest r;
        r.setFields(nullptr, QString(), QString());
        r.propertyBag->setProperty("Expression", expression);
        auto bag = rig_->request(r);
        return resultOf(bag) + QLatin1Char(' ') + msgOf(bag);
    }

    static inline std::unique_ptr<Rig> rig_;
    static inline QString why_;
};

} // namespace gdbtest
