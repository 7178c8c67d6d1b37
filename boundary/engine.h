// The headless way to the solver: an engine and the operations that a host sends to it.
#pragma once

#include <mutex>

#include "boundary/json_reading.h"
#include "solver/solver.h"

namespace zeph {

struct EngineHandle {
  // A configuration object, with the path of a starting field under "initial" or of a state under
  // "state".
  explicit EngineHandle(const Json& configuration);

  std::mutex mutex;  // held for the whole of an operation
  Solver solver;
};

// Runs the operation that the request names under "op". A failure raises an exception; files that
// an "export" has already written remain.
Json runOperation(Solver& solver, const Json& request);

}  // namespace zeph
