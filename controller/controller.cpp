#include "controller/controller.h"

#include <chrono>
#include <stdexcept>
#include <utility>

#include "controller/simulation.h"
#include "platform/thread_environment.h"

namespace zeph {
namespace {

constexpr std::chrono::milliseconds idleWait(20);

Control controlOf(const RunSettings& run) {
  Control control;
  control.config = run.config;
  control.running = !run.paused;
  control.regulated = run.regulated;
  control.velocityNeeded = run.settings.needsVelocity() || !run.velocity.empty();
  // A controller created with a step limit ignores all limits. A step limit takes effect only if it
  // arrives later, by setRun().
  control.stopRulesArmed = !run.stepLimited;
  return control;
}

}  // namespace

Status freshStatus(const Config& config, std::uint64_t generation, bool running, bool regulated) {
  Status status;
  status.config = config;
  status.generation = generation;
  status.running = running;
  status.regulated = regulated;
  return status;
}

ShownStatus shownOf(const Status& status) {
  return {.frame = status.frame,
          .generation = status.generation,
          .seed = status.config.seed,
          .time = status.stats.time,
          .ready = status.ready,
          .running = status.running,
          .failed = !status.error_message.empty()};
}

void followGrid(Config& next, const Config& current, bool regulated) {
  if (next.resolution == current.resolution && next.k0 == current.k0) return;
  const bool asksForOther = !regulated && !(next.reynolds == current.reynolds);
  if (!asksForOther) next.reynolds = DefaultReynolds(next.resolution, next.k0);
}

Controller::Controller(const RunSettings& run, int device, Clock clock)
    : control_(controlOf(run)),
      status_(freshStatus(run.config, control_.generation, control_.running, control_.regulated)),
      run_(run),
      thread_(platform::startThread(
          [this, device, clock = std::move(clock)] { simulate(*this, device, clock); })) {}

Controller::~Controller() {
  {
    const std::lock_guard lock(mutex_);
    control_.stopRequested = true;
  }
  wake_.notify_all();
  thread_.join();
}

void Controller::setRunning(bool value) {
  const std::lock_guard lock(mutex_);
  control_.running = value;
  if (!value) control_.pendingSteps = 0;
  status_.running = value;
  status_.settled = false;
  status_.finished = false;
  wake_.notify_all();
}

void Controller::step() {
  const std::lock_guard lock(mutex_);
  control_.pendingSteps += 1;
  control_.running = false;
  status_.running = false;
  status_.settled = false;
  status_.finished = false;
  wake_.notify_all();
}

void Controller::reset() {
  applyConfig(control().config);
}

void Controller::applyConfig(Config config) {
  checkConfig(config);
  const std::lock_guard lock(mutex_);
  followGrid(config, control_.config, control_.regulated);
  control_.generation += 1;
  control_.config = config;
  control_.pendingSteps = 0;
  status_ = freshStatus(config, control_.generation, control_.running, control_.regulated);
  wake_.notify_all();
}

void Controller::setLive(float cfl, double reynolds) {
  const std::lock_guard lock(mutex_);
  control_.parameterEpoch += 1;
  control_.config.cfl = cfl;
  status_.config.cfl = cfl;
  if (!control_.regulated) {
    control_.config.reynolds = reynolds;
    status_.config.reynolds = reynolds;
    status_.stats.reynolds = reynolds;
  }
  wake_.notify_all();
}

void Controller::setRegulated(bool value) {
  const std::lock_guard lock(mutex_);
  if (value == control_.regulated) return;
  control_.regulationEpoch += 1;
  control_.regulated = value;
  // Switched off, the flow keeps the Reynolds number that the regulator has reached.
  if (!value && status_.stats.reynolds > 0) control_.config.reynolds = status_.stats.reynolds;
  control_.parameterEpoch += 1;
  status_.config.reynolds = control_.config.reynolds;
  status_.regulated = value;
  wake_.notify_all();
}

void Controller::setVisible(bool value) {
  const std::lock_guard lock(mutex_);
  if (value == control_.visible) return;
  control_.displayEpoch += 1;
  control_.visible = value;
  wake_.notify_all();
}

void Controller::setVelocityNeeded(bool value) {
  const std::lock_guard lock(mutex_);
  if (value == control_.velocityNeeded) return;
  control_.displayEpoch += 1;
  control_.velocityNeeded = value;
  wake_.notify_all();
}

void Controller::setRun(const RunSettings& run) {
  const std::lock_guard lock(mutex_);
  run_ = run;
}

void Controller::clearError() {
  const std::lock_guard lock(mutex_);
  status_.error_message.clear();
}

Status Controller::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

ShownStatus Controller::shown() const {
  const std::lock_guard lock(mutex_);
  return shownOf(status_);
}

Control Controller::control() const {
  const std::lock_guard lock(mutex_);
  return control_;
}

Control Controller::control(RunSettings& run) const {
  const std::lock_guard lock(mutex_);
  run = run_;
  return control_;
}

void Controller::waitForChange(const Control& seen) {
  const auto changed = [&] {
    return control_.stopRequested || control_.generation != seen.generation ||
           control_.running != seen.running || control_.pendingSteps > seen.pendingSteps ||
           control_.parameterEpoch != seen.parameterEpoch ||
           control_.regulationEpoch != seen.regulationEpoch ||
           control_.displayEpoch != seen.displayEpoch || !stateRequests_.empty();
  };
  std::unique_lock lock(mutex_);
  if (changed()) return;
  status_.settled = true;
  wake_.wait_until(lock, std::chrono::steady_clock::now() + idleWait, changed);
}

std::future<StateRecord> Controller::askState() {
  const std::lock_guard lock(mutex_);
  if (hasEnded_) throw std::runtime_error(noFlowToSave);
  std::future<StateRecord> answer = stateRequests_.emplace_back().get_future();
  wake_.notify_all();
  return answer;
}

Controller::StateRequests Controller::takeStateRequests() {
  const std::lock_guard lock(mutex_);
  return std::exchange(stateRequests_, {});
}

void Controller::failStart(const char* text) {
  const std::lock_guard lock(mutex_);
  hasEnded_ = true;
  const auto failure = std::make_exception_ptr(std::runtime_error(noFlowToSave));
  for (auto& request : std::exchange(stateRequests_, {})) request.set_exception(failure);
  status_.error_message = text;
  status_.running = false;
}

}  // namespace zeph
