// The two single-thread kernels that keep the clock.
#include "kernels/bodies/time_step.h"

#include "kernels/processor/processor_kernels.h"

namespace zeph::cpu::ZEPH_ISA {

void selectTimeStep(const TimeStepArrays& arrays, const Params& p) {
  if (!selectStep(*arrays.clock, arrays.cflPartials, p)) arrays.clock->healthy = 0;
}

void commitStep(const CommitArrays& arrays, const Params& p) {
  commit(*arrays.clock, p);
}

}  // namespace zeph::cpu::ZEPH_ISA
