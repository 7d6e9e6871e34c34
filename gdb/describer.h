// The one MI command that describes an expression, and the reading of its
// answer. The describer itself is Python that runs inside gdb
// (python/arraylens_describe.py): it evaluates the expression once in the
// selected frame and prints its facts as one marked JSON line. Pure text
// functions, tested without a debugger.
#pragma once

#include "arrayresolver.h"

#include <QString>

namespace arraylens::gdb {

// The console command (for `-interpreter-exec --thread T --frame F console`)
// that describes `expression`. The expression goes in as the hexadecimal of
// its UTF-8 bytes, so no typed text reaches gdb's command line. With
// `castElement` (a C type such as "unsigned char") the answer also gives that
// type's resolved text and size, for a cast of a container's elements.
QString describerCommand(const QString& expression, bool layout, const QString& castElement = {});

// What a cast of a container's elements needs from gdb.
struct CastElement {
    QString type; // resolved text ("unsigned char" for uint8_t)
    int size = 0;
};

// Reads the describer's line out of a command's console output into `facts`
// (whose `expression` the caller has set). False with `failure` filled when
// the describer said no (a gdb error in gdb's words, or the service's own),
// or when there is no line to read. `facts.language` is filled whenever the
// describer said it, also on failure.
bool readDescriberReply(const QString& console, ArrayFacts& facts, Failure& failure,
                        CastElement* cast = nullptr);

// The kind of a gdb error message: the debuggee running or gone, or a plain
// error.
Failure::Kind failureKindOf(const QString& message);

} // namespace arraylens::gdb
