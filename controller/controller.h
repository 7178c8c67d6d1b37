// The controller is where the threads of a view meet. The host's thread and the render thread write
// what is wanted; the simulation thread (simulation.h) computes the flow and publishes its status.
// Neither side waits for the other: commands overwrite state instead of queueing, so that a burst
// collapses into the last one. Only single steps are counted.
#pragma once

#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "controller/status.h"
#include "controller/wall_clock.h"
#include "solver/state_record.h"

namespace zeph {

// All operations may be called from any thread.
class Controller {
 public:
  // Starts the thread, and with it the flow's first generation, on a device. Raises
  // std::system_error if the thread cannot be started.
  Controller(const RunSettings& run, int device, Clock clock = monotonicSeconds);
  // Waits for the batch under way.
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  void setRunning(bool value);
  // Asks for one more step. A running flow pauses.
  void step();

  // Both begin a new generation: the flow starts again at time zero. A configuration that is
  // refused raises std::invalid_argument, and the present flow goes on.
  void reset();
  void applyConfig(Config config);

  // These keep the flow. While it is regulated, the Reynolds number given to setLive() is ignored.
  void setLive(float cfl, double reynolds);
  void setRegulated(bool value);
  void setVisible(bool value);
  void setVelocityNeeded(bool value);

  // Takes effect at the next generation.
  void setRun(const RunSettings& run);
  void clearError();
  Status status() const;
  ShownStatus shown() const;

  // The state of the flow after the batch under way, from the simulation thread.
  std::future<StateRecord> askState();

  // For the simulation thread.
  Control control() const;
  Control control(RunSettings& run) const;
  // If `generation` is still the current one, calls use(control, status) under the lock and returns
  // true. Otherwise returns false: results for an older generation are dropped.
  template <class Use>
  bool ifCurrent(std::uint64_t generation, Use use);
  // Marks the flow as settled and waits until the control block differs from `seen`, at most 20
  // milliseconds.
  void waitForChange(const Control& seen);
  void failStart(const char* text);
  using StateRequests = std::vector<std::promise<StateRecord>>;
  StateRequests takeStateRequests();

 private:
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  Control control_;
  Status status_;
  RunSettings run_;
  StateRequests stateRequests_;
  bool hasEnded_ = false;  // the thread could not start
  std::thread thread_;
};

// Where `next` has another grid than `current`, gives it that grid's default Reynolds number,
// unless the flow is unregulated and `next` already asks for another number.
void followGrid(Config& next, const Config& current, bool regulated);

template <class Use>
bool Controller::ifCurrent(std::uint64_t generation, Use use) {
  const std::lock_guard lock(mutex_);
  if (control_.generation != generation) return false;
  use(control_, status_);
  return true;
}

}  // namespace zeph
