#include "controller/ui_handle.h"

#include <chrono>
#include <future>
#include <stdexcept>
#include <utility>

namespace zeph {
namespace {

constexpr std::chrono::milliseconds stopCheck(50);  // while an export is awaited

}  // namespace

UIHandle::~UIHandle() {
  {
    const std::lock_guard lock(mutex);
    stopped = true;
  }
  wake.notify_all();
  if (renderThread.joinable()) renderThread.join();
  controller.reset();
  canvas.reset();
}

Status UIHandle::status() const {
  if (controller) return controller->status();
  return freshStatus(run.config, 0, !run.paused, run.regulated);
}

void UIHandle::start(int device) {
  if (controller) return;
  controller = std::make_shared<Controller>(run, device);
  controller->setVisible(visible);
}

void UIHandle::setRunning(bool value) {
  run.paused = !value;
  if (controller) controller->setRunning(value);
}

void UIHandle::toggle() {
  setRunning(!status().running);
}

void UIHandle::step() {
  run.paused = true;
  if (controller) controller->step();
}

void UIHandle::reset() {
  if (controller) controller->reset();
}

void UIHandle::nextSeed() {
  Config config = status().config;
  config.seed += 1;
  applyConfig(config);
}

void UIHandle::setVisible(bool value) {
  visible = value;
  if (controller) controller->setVisible(value);
  wake.notify_all();
}

void UIHandle::setRegulated(bool value) {
  run.regulated = value;
  if (controller) controller->setRegulated(value);
}

void UIHandle::setLive(float cfl, double reynolds) {
  if (controller) controller->setLive(cfl, reynolds);
  run.config.cfl = cfl;
  if (!run.regulated) run.config.reynolds = reynolds;
}

void UIHandle::setDisplay(const DisplaySettings& settings) {
  run.settings = settings;
  if (controller) controller->setVelocityNeeded(settings.needsVelocity());
}

void UIHandle::setLimits(const RunSettings& limits) {
  run = limits;
  if (controller) controller->setRun(run);
}

void UIHandle::dismissErrors() {
  error.clear();
  if (controller) controller->clearError();
}

void UIHandle::applyConfig(Config config) {
  const Status now = status();
  followGrid(config, now.config, now.regulated);
  if (config == now.config) return;
  run.config = config;
  if (controller) controller->applyConfig(config);
}

void UIHandle::exportFrame(FrameExport work) {
  // Shared with the task: one that is dropped without having run must not break the promise.
  const auto promise = std::make_shared<std::promise<void>>();
  std::future<void> done = promise->get_future();
  {
    const std::lock_guard lock(mutex);
    const std::shared_ptr<const Frame> frame = status().frame;
    if (!frame) throw std::runtime_error("No completed frame.");
    if (stopped || !canvas) throw std::runtime_error(errorOr("No native renderer."));
    tasks.emplace_back(
        [promise, frame, settings = run.settings, work = std::move(work)](Renderer& renderer) {
          try {
            work(renderer, frame, settings);
            promise->set_value();
          } catch (...) {
            promise->set_exception(std::current_exception());
          }
        });
    wake.notify_all();
  }
  while (done.wait_for(stopCheck) != std::future_status::ready) {
    const std::lock_guard lock(mutex);
    if (stopped) throw std::runtime_error(errorOr("Renderer stopped."));
  }
  done.get();
}

std::string UIHandle::errorOr(const char* text) const {
  return error.empty() ? text : error;
}

}  // namespace zeph
