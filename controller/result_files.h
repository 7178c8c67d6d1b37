// The files that a finished run leaves.
#pragma once

#include "controller/run_settings.h"
#include "solver/solver.h"

namespace zeph {

// Writes the spectrum and the fields to the paths of `run` that are not empty. Raises
// std::runtime_error.
void writeResultFiles(Solver& solver, const RunSettings& run);

}  // namespace zeph
