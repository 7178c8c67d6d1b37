// What a view's flow starts from: the simulation, the picture, and the limits of a run.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "render/display_settings.h"
#include "solver/config_record.h"

namespace zeph {

// Paths are UTF-8 text; an empty one means none.
struct RunSettings {
  Config config;
  DisplaySettings settings;
  bool stepLimited = false;
  bool paused = false;
  bool regulated = true;
  std::int32_t stepLimit = 200;  // steps after which a step-limited run ends
  std::int32_t batch = 8;        // steps of a batch, where it is fixed
  bool fixedBatch = false;
  double wallSeconds = 0;                // wall time of free running; 0 means no limit
  std::optional<double> until;           // simulated time
  std::optional<double> untilTurnovers;  // in turnover times of the start
  std::string initial;                   // starting field
  std::string state;                     // state to go on from; then there is no starting field
  std::string spectrum;                  // spectrum of a finished run
  std::string field;                     // fields of a finished run
  std::string velocity;                  // never written; if set, every frame has the velocity
};

}  // namespace zeph
