// arraylens-cli on an MPI job: --mpi N launches `mpirun -np N`, --attach-mpi
// PID attaches to a running job's ranks; the answer covers the ranks of
// --ranks (all by default) as one array.
#pragma once

#include "clioptions.h"

namespace arraylens::cli {

// The whole run; the exit status of the tool.
int runMpi(const Options& options);

} // namespace arraylens::cli
