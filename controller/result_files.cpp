#include "controller/result_files.h"

#include <stdexcept>

#include "solver/raw_files.h"

namespace zeph {

void writeResultFiles(Solver& solver, const RunSettings& run) {
  if (!run.spectrum.empty()) writeRawFile(run.spectrum, solver.spectrum());
  if (run.field.empty()) return;
  const auto frame = solver.snapshot(true);
  if (!frame) throw std::runtime_error("No snapshot slot.");
  writeRawFile(run.field, solver.copyFields(*frame));
}

}  // namespace zeph
