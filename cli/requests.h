// What a command asks of the service, built from its options: every road of
// the tool (one process, an MPI job, a trace) names its array the same way.
#pragma once

#include "clioptions.h"

#include "arrayoperations.h"

namespace arraylens::cli {

// The array a command is about: the expression, its slice and its filter,
// set on any request or settings that carry them.
template <class Request> void setSelection(Request& request, const Options& o) {
    request.expression = o.expression;
    request.slice = o.slice;
    request.filter = o.filter;
}

// The request of an info, stats, table or plot command, as the service
// takes it without a packet (the MPI road). Trace and export have none.
gdb::RequestSnapshot requestSnapshot(const Options& options);

} // namespace arraylens::cli
