// The two blocks that the threads of a view share: what is wanted (Control) and what has been
// computed (Status).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "controller/run_settings.h"
#include "solver/statistics.h"

namespace zeph {

// Written by the host's and the render thread, read by the simulation thread. Epochs count changes,
// so that the thread notices a change even if it was undone before it looked.
struct Control {
  Config config;
  std::uint64_t generation = 1;  // the number of the current flow
  std::uint64_t parameterEpoch = 0;
  std::uint64_t regulationEpoch = 0;
  std::uint64_t displayEpoch = 0;
  bool running = true;  // free running is wanted
  bool visible = true;  // frames are wanted
  bool velocityNeeded = false;
  bool regulated = true;
  bool stopRequested = false;
  bool stopRulesArmed = true;
  std::int32_t pendingSteps = 0;  // single steps asked for and not yet begun
};

// Written by the simulation thread and, for what a command changes at once, by the commands.
struct Status {
  Config config;
  Statistics stats;
  Statistics firstStats;  // of the start of this generation
  std::shared_ptr<const Frame> frame;
  std::uint64_t generation = 0;
  bool ready = false;  // a frame of this generation has been published
  bool running = true;
  bool settled = false;  // the thread has reached its idle wait in this generation
  bool regulated = true;
  bool finished = false;  // a run limit has been reached
  double simtimePerSecond = 0;
  double turnoversPerSecond = 0;
  double stepsPerSecond = 0;
  double elapsedSeconds = 0;  // wall time of free running in this generation
  double gpuSeconds = 0;
  std::uint32_t batchCount = 0;
  std::uint32_t frameCount = 0;
  std::int32_t batchSteps = 1;
  std::vector<double> history;  // energies, oldest first
  std::string error_message;
};

// What a state is refused with where there is none.
inline constexpr const char* noFlowToSave = "No flow to save.";

// The part of a status that the picture and the interface over it show.
struct ShownStatus {
  std::shared_ptr<const Frame> frame;
  std::uint64_t generation = 0;
  std::uint64_t seed = 0;
  double time = 0;
  bool ready = false;
  bool running = true;
  bool failed = false;  // there is an error message
};

ShownStatus shownOf(const Status& status);

// The status at the start of a generation.
Status freshStatus(const Config& config, std::uint64_t generation, bool running, bool regulated);

}  // namespace zeph
