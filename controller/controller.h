// The controller is where the threads of a view meet. Whoever steers writes what is wanted and goes
// on; the simulation thread (simulation.h) turns it into a flow and publishes what it has achieved.
// Nobody waits for the other: wishes are state and not messages, and only single steps are counted.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "controller/status.h"
#include "controller/wall_clock.h"

namespace zeph {

// All operations may be called from any thread.
class Controller {
 public:
  // Starts the thread, and with it the flow's first generation, on a device. Raises
  // std::system_error where a thread cannot be had.
  Controller(const RunSettings& run, int device, Clock clock = monotonicSeconds);
  // Waits for the batch under way.
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  void setRunning(bool value);
  // One step; a flow that runs freely pauses for it.
  void step();

  // Each begins a new generation: the flow starts again from its beginning. Raises
  // std::invalid_argument for a configuration that is refused, and the flow goes on.
  void reset();
  void applyConfig(Config config);

  // These keep the flow. The Reynolds number is left to the regulator while there is one.
  void setLive(float cfl, double reynolds);
  void setRegulated(bool value);
  void setVisible(bool value);
  void setVelocityNeeded(bool value);

  // Takes effect at the next generation.
  void setRun(const RunSettings& run);
  void clearError();
  Status status() const;
  ShownStatus shown() const;

  // For the simulation thread.
  Control control() const;
  Control control(RunSettings& run) const;
  // Calls use(control, status) under the lock and returns true if `generation` is still the current
  // one. Otherwise what was done for it is of no interest any more.
  template <class Use>
  bool ifCurrent(std::uint64_t generation, Use use);
  // Returns when there is something new against `seen`, or soon; the flow is settled meanwhile.
  void waitForChange(const Control& seen);
  void failStart(const char* text);

 private:
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  Control control_;
  Status status_;
  RunSettings run_;
  std::thread thread_;
};

// What a change of grid means for the Reynolds number of `next`: the grid's own default, unless
// nothing regulates it and `next` names another one than `current`.
void followGrid(Config& next, const Config& current, bool regulated);

template <class Use>
bool Controller::ifCurrent(std::uint64_t generation, Use use) {
  const std::lock_guard lock(mutex_);
  if (control_.generation != generation) return false;
  use(control_, status_);
  return true;
}

}  // namespace zeph
