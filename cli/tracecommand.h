// arraylens-cli trace: one JSON line per stop, from the stop the program is
// at, through the trace service.
#pragma once

#include "clioptions.h"

namespace arraylens::gdb {
class GdbDebugger;
struct TraceSettings;
} // namespace arraylens::gdb

namespace arraylens::cli {

gdb::TraceSettings traceSettings(const Options& options);

// Runs the trace and prints its lines on standard output. The exit status:
// 0 when the condition held or the stops were traced, or when the program
// ended a trace that had neither; 1 when it ended before the condition held
// or the stops were reached, or gdb failed (the words on standard error).
int runTrace(gdb::GdbDebugger& debugger, const Options& options);

} // namespace arraylens::cli
