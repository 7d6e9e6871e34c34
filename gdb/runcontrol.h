// Bringing the debuggee to the stop a user asked for, shared by the
// command-line tool and the window: breakpoints with a condition and a skip
// count, and plain words for a program that is missing or that stops where
// no breakpoint is.
#pragma once

#include "mi/MiParser.h"

#include <QString>

namespace arraylens::gdb {

// A breakpoint as a user writes it: "LOCATION" or "LOCATION if CONDITION",
// the condition in the program's own language, as gdb takes it.
struct BreakSpec {
    QString location;
    QString condition;
};

// Splits on the first " if " outside quotes. False with `error` set when the
// location or the condition is empty.
bool parseBreakSpec(const QString& text, BreakSpec& spec, QString* error);

// The MI command that sets the breakpoint and skips its first `ignoreCount`
// hits. Location and condition reach gdb as quoted C strings.
QString breakInsertCommand(const BreakSpec& spec, int ignoreCount);

// The words for a program that gdb could not load: empty when
// -list-thread-groups (`groups`, its result) names an executable. `startup`
// is what gdb said before its first answer; its own reason is kept.
QString programNotFoundText(const QString& program, const mi::Value& groups,
                            const QString& startup);

// For a stop that is not a breakpoint's (a signal): what stopped the
// program and where. `stop` is the *stopped record's results, `stack` the
// result of -stack-list-frames for its thread (may be absent). Empty for a
// breakpoint's stop.
QString unexpectedStopText(const mi::Value& stop, const mi::Value& stack);

} // namespace arraylens::gdb
