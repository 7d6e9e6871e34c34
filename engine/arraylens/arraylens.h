// The array engine: statistics, table cells, plot values and array
// information over the raw memory of a debuggee. Plain C++17, no Qt.
//
// A caller describes the array with an ArrayDescriptor (element kind and
// size, address of the first element, per dimension its bounds and byte
// stride) and gives a Reader for the debuggee's memory (ProcessReader for a
// live local process, CoreFileReader for a core file, BufferReader for memory
// of this process, or its own).
// Then it calls one of four functions:
//
//   arrayInfo(array)                                  -> Result<ArrayInfo>
//   computeStatistics(array, reader, slice, filter)   -> Result<Statistics>
//   tableCells(array, reader, slice, filter, opts)    -> Result<Table>
//   plotValues(array, reader, slice, filter)          -> Result<PlotValues>
//
// Each takes an options struct whose Defaults() is the usual choice. Slices
// are `[a:b:s][c:d]` or `(a:b:s,c:d)`, the empty text the whole array;
// filters are conditions such as `$value > 0 && $value != $nan`, the empty
// text none. A Result holds the value or an Error whose message is written
// for the user. The engine reads in chunks into reused buffers, on every
// core, and never throws across this interface. Calls may run concurrently
// on different threads.
#pragma once

#include "corefile.h"
#include "descriptor.h"
#include "format.h"
#include "info.h"
#include "options.h"
#include "plot.h"
#include "reader.h"
#include "result.h"
#include "statistics.h"
#include "table.h"
