// The two single-thread kernels that keep the clock.
#include "kernels/bodies/time_step.h"

#include "kernels/processor/processor_kernels.h"
#include "kernels/processor/processor_loops.h"

namespace zeph::cpu::ZEPH_ISA {

void selectTimeStep(void** arguments) {
  const V2* partials = argument<const V2*>(arguments, 0);
  ClockState& clock = *argument<ClockState*>(arguments, 1);
  if (!selectStep(clock, partials, argument<const Params>(arguments, 2))) clock.healthy = 0;
}

void commitStep(void** arguments) {
  commit(*argument<ClockState*>(arguments, 0), argument<const Params>(arguments, 1));
}

}  // namespace zeph::cpu::ZEPH_ISA
