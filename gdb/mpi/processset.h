// The four array operations over a set of processes (ranks of an MPI job):
// the expression is resolved in every rank's gdb, and one engine pass reads
// every rank's memory straight from its process.
//
// When all ranks hold the expression with one shape and element type, the
// array gains a process dimension with bounds 0:N-1 (the ranks of the set in
// order): the first dimension in C form, the last in Fortran form. When the
// shapes differ, statistics and plot values cover the elements of all ranks
// in rank order as one dimension, and information and the table ask for one
// rank.
#pragma once

#include "arrayoperations.h"
#include "gdbsession.h"

#include <QVector>

#include <atomic>

namespace arraylens::gdb {

struct RankTarget {
    int rank = 0;
    GdbSession* session = nullptr;
};

// Runs on a worker thread, like performRequest.
Fields performProcessSetRequest(const QVector<RankTarget>& ranks, const RequestSnapshot& request,
                                const std::atomic<bool>* cancel);

} // namespace arraylens::gdb
