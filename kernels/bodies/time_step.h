// The time step and the simulated time, decided on the device.
#pragma once

#include "kernels/bodies/body.h"

namespace zeph {

// The speed bound of all blocks, and whether any of them met a non-finite value.
struct SpeedBound {
  float largest;
  bool invalid;
};

ZEPH_BODY SpeedBound combineSpeedBounds(const V2* partials, std::uint32_t blocks) {
  SpeedBound bound = {0.0f, false};
  for (std::uint32_t p = 0; p < blocks; ++p) {
    bound.largest = larger(bound.largest, partials[p].re);
    bound.invalid = bound.invalid || partials[p].im != 0.0f;
  }
  return bound;
}

// The step d before it is cut to an endpoint: d N/2 (|u| + |v|) = cfl. A smaller step than the last
// is taken at once; a larger one is approached by a fifth of the difference in each step. A flow at
// rest keeps the last step.
ZEPH_BODY float chooseStep(float speed, float rawDt, const Params& p) {
  if (p.fixedDt > 0.0f) return p.fixedDt;
  float d;
  if (speed > 0.0f) {
    d = (p.cfl + p.cfl) / (speed * static_cast<float>(p.resolution));
  } else {
    d = rawDt > 0.0f ? rawDt : 1.0f;
  }
  if (rawDt > 0.0f) {
    const float limited = (d * 0.2f) + (rawDt * 0.8f);
    d = limited < d ? limited : d;
  }
  return d;
}

ZEPH_BODY float timeRemaining(const ClockState& clock, const Params& p) {
  return (p.endHigh - clock.timeHigh) + (p.endLow - clock.timeLow);
}

// False if the flow or the step is not finite; the step is then void.
ZEPH_BODY bool selectStep(ClockState& clock, const V2* partials, const Params& p) {
  const SpeedBound bound = combineSpeedBounds(partials, p.blocks);
  clock.maxSpeed = bound.largest;
  clock.stepState = noStep;
  if (bound.invalid || clock.healthy == 0) return false;

  const float remaining = timeRemaining(clock, p);
  if (p.hasEnd != 0 && remaining <= 0.0f) return true;

  float d = chooseStep(bound.largest, clock.rawDt, p);
  if (!(d > 0.0f) || nonFinite(d)) return false;
  clock.rawDt = d;
  clock.stepState = p.hasEnd != 0 && d >= remaining ? finalStep : normalStep;
  if (p.hasEnd != 0 && remaining < d) d = remaining;
  clock.dt = d;
  return true;
}

// The final step lands on the endpoint exactly; any other is added to the pair by a two-sum
// (Knuth 1969) and renormalised (Dekker 1971).
ZEPH_BODY void commit(ClockState& clock, const Params& p) {
  if (clock.stepState == noStep || clock.healthy == 0) return;
  if (clock.stepState == finalStep) {
    clock.timeHigh = p.endHigh;
    clock.timeLow = p.endLow;
  } else {
    const float hi = clock.timeHigh;
    const float lo = clock.timeLow;
    const float dt = clock.dt;
    const float s = hi + dt;
    const float b = s - hi;
    const float e = (dt - b) + (hi - (s - b));
    const float l = lo + e;
    const float h = s + l;
    clock.timeHigh = h;
    clock.timeLow = l - (h - s);
  }
  clock.steps += 1;
}

}  // namespace zeph
