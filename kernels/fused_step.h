// A whole step on the processor, in a few passes over memory.
//
// It does what the kernels of a step do one after another, which stay its definition, but keeps
// columns and rows in the cache from one operation to the next: a stage is a pass over tiles of
// rows (inverse transform, products, forward transform) and one over tiles of columns (forward
// transform, stage update, and the next stage's velocity and inverse transform). "stress" takes one
// complex transform each way, of u + i v and of (u^2 - v^2) + i u v. Results agree with those of
// the kernels to rounding, and have the same bits on any number of threads and any vector width.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "device/cpu/processor_memory.h"
#include "device/transform.h"
#include "kernels/arrays.h"
#include "kernels/processor/fused_pass.h"

namespace zeph {

// What a step works on. `padded` is memory of the padded planes and `spectra` that of two half
// spectra; what they held is lost.
struct FusedArrays {
  StageArrays stage;
  V2* padded;
  V2* spectra;
  V2* cflPartials;
};

class FusedStep {
 public:
  // Raises std::bad_alloc.
  FusedStep(int resolution, OperatorKind kind);
  FusedStep(const FusedStep&) = delete;
  FusedStep& operator=(const FusedStep&) = delete;

  // Runs at most `steps` steps, with the parameters of their stage 0. Ends at an endpoint and where
  // the flow is no longer finite.
  void run(const FusedArrays& arrays, const Params& p, int steps);

  // The memory of the tables and tiles.
  std::vector<TransformAllocation> allocations() const;

 private:
  using Task = cpu::FusedPasses::Task;

  bool selectsStep();
  void step(bool first, bool last);
  void share(Task task, int tiles);
  void runColumns(Task task);
  bool needsFactors();

  cpu::FusedPasses passes_;
  cpu::PaddedPlan plan_;
  cpu::FusedPass pass_;
  cpu::DeviceFloats scratch_;
  V2* cflPartials_ = nullptr;
  float viscosity_ = 0, dt_ = 0;  // that the factors belong to; dt_ is 0 before there are any
};

// Whether solvers made from now on step by the kernels one after another; for tests.
void useSeparateKernels(bool separate);
bool usesSeparateKernels();

}  // namespace zeph
