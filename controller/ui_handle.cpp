#include "controller/ui_handle.h"

#include <stdexcept>

namespace zeph {

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

void UIHandle::exportFrame() {
  const std::lock_guard lock(mutex);
  if (!status().frame) throw std::runtime_error("No completed frame.");
  throw std::runtime_error(error.empty() ? "No native renderer." : error);
}

}  // namespace zeph
