// A flow at one moment, with everything that its further course depends on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "kernels/params.h"
#include "solver/config_record.h"

namespace zeph {

// The memory of a view's regulator.
struct RegulatorRecord {
  double fastPalinstrophy = 0;
  double slowPalinstrophy = 0;
  double previousError = 0;
};

struct StateRecord {
  Config config;        // of the flow's start
  double reynolds = 0;  // in force
  float cfl = 0;        // in force
  double initialTurnoverTime = 0;
  ClockState clock = {};
  std::vector<V2> omega;                     // half spectrum
  std::vector<V2> correction;                // of the compensated sums, half spectrum
  std::optional<RegulatorRecord> regulator;  // of a regulated view
  std::string device;                        // the name of the device that computed the flow
};

// Raises std::invalid_argument unless `wanted` is the configuration of the state, except for the
// Reynolds and the Courant number.
void requireSameFlow(const Config& state, const Config& wanted);

}  // namespace zeph
