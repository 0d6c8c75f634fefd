// `tavrin batch`: many documents on all cores or on a Dask cluster. The
// batch runner is the Python package's (tavrin.batch), because Dask
// schedules Python functions and starts its worker processes from a real
// interpreter; the program hands its arguments to Debian's /usr/bin/python3,
// the interpreter that sees Debian's dask and numpy modules.
#ifndef TAVRIN_APP_BATCH_COMMAND_H
#define TAVRIN_APP_BATCH_COMMAND_H

#include <string>
#include <vector>

namespace tavrin {

// Replaces the process with `python3 -m tavrin.batch ARGS`; returns only by
// throwing AppError(kExitFailure) when the interpreter cannot be started.
[[noreturn]] void runBatch(const std::vector<std::string>& args);

}  // namespace tavrin

#endif
