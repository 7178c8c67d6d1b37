// How many bytes a step must move between the device and its memory, when each part of the step
// takes its arrays once and nothing stays in a cache from one part to the next. With N^2/2 modes
// kept of the half spectrum (8 bytes each) and M^2 samples of the padded grid (4 bytes each):
//
//   a transform        one pass along each axis, which reads and writes the field once. Along y it
//                      has the N^2/2 modes on one side and M N/2 on the other; along x those and
//                      the samples. The band that dealiasing leaves empty is not counted.
//   velocityToPadded   reads the state, writes the modes of each field to be transformed
//   the products       read the fields' samples, write the products' in place
//   advanceStage       reads the modes of each transformed product, and reads and writes what its
//                      integrator needs at each mode
//
// The clock and the partial sums of reductions are too small to count. A device that cuts a long
// axis into two passes moves more than this, and one that does several parts at once, or whose
// caches hold the fields of a small grid, moves less.
#pragma once

#include <cstdint>

#include "kernels/params.h"
#include "solver/config_record.h"

namespace zeph::bench {

struct StepBytes {
  std::uint64_t transforms, kernels;

  std::uint64_t total() const { return transforms + kernels; }
};

// What a step's updates read and write at each mode.
struct UpdateAccesses {
  std::uint64_t complex, real;
};

constexpr UpdateAccesses updateAccesses(Integrator integrator) {
  switch (integrator) {
    case Integrator::imexRK3:
      // Each stage updates omega and correction and writes first; the later two read it.
      return {.complex = 5 + 6 + 6, .real = 0};
    case Integrator::ifHeunRK3:
      // omega -> base, first, omega; base -> omega; base, first, correction -> omega, correction.
      return {.complex = 4 + 2 + 5, .real = 3 + 2 + 2};
    case Integrator::etdrk4:
      // omega -> base, first, predictor, omega; base -> middle, omega;
      // predictor, first, middle -> middle, omega; base, first, middle, correction -> omega,
      // correction.
      return {.complex = 5 + 3 + 5 + 6, .real = 6 + 2 + 2 + 4};
  }
  return {};
}

struct GridBytes {
  explicit constexpr GridBytes(int resolution) {
    const auto n = static_cast<std::uint64_t>(resolution);
    const auto m = static_cast<std::uint64_t>(paddedResolution(resolution));
    modes = n * (n / 2) * sizeof(V2);
    columns = m * (n / 2) * sizeof(V2);
    samples = m * m * sizeof(float);
  }

  // One field in one direction.
  constexpr std::uint64_t transform() const { return (modes + columns) + (columns + samples); }

  std::uint64_t modes, columns, samples;  // of one field
};

constexpr StepBytes bytesOfStep(int resolution, Integrator integrator, OperatorKind operatorKind) {
  const GridBytes grid(resolution);
  const UpdateAccesses update = updateAccesses(integrator);
  const auto stages = static_cast<std::uint64_t>(needsOf(integrator).stages);
  const auto fields = static_cast<std::uint64_t>(needsOf(operatorKind).fields);
  const auto products = static_cast<std::uint64_t>(needsOf(operatorKind).products);
  const std::uint64_t stageKernels =
      (1 + fields) * grid.modes + (fields + products) * grid.samples + products * grid.modes;
  return {
      .transforms = stages * (fields + products) * grid.transform(),
      .kernels =
          stages * stageKernels + update.complex * grid.modes + update.real * (grid.modes / 2),
  };
}

}  // namespace zeph::bench
