#include "controller/ui_handle.h"

#include <chrono>
#include <future>
#include <stdexcept>
#include <utility>

namespace zeph {
namespace {

// How often a waiting export checks whether the render thread has ended.
constexpr std::chrono::milliseconds stopCheck(50);

}  // namespace

Status UIHandle::status() const {
  if (controller_) return controller_->status();
  return freshStatus(run_.config, 0, !run_.paused, run_.regulated);
}

ShownStatus UIHandle::shown() const {
  if (controller_) return controller_->shown();
  return shownOf(freshStatus(run_.config, 0, !run_.paused, run_.regulated));
}

void UIHandle::start(int device) {
  if (controller_) return;
  controller_ = std::make_unique<Controller>(run_, device);
  controller_->setVisible(isVisible_);
}

void UIHandle::setRunning(bool value) {
  run_.paused = !value;
  if (controller_) controller_->setRunning(value);
}

void UIHandle::toggle() {
  setRunning(!status().running);
}

void UIHandle::step() {
  run_.paused = true;
  if (controller_) controller_->step();
}

void UIHandle::reset() {
  if (controller_) controller_->reset();
}

void UIHandle::nextSeed() {
  Config config = status().config;
  config.seed += 1;
  applyConfig(config);
}

void UIHandle::setVisible(bool value) {
  isVisible_ = value;
  if (controller_) controller_->setVisible(value);
  wakeRenderThread();
}

void UIHandle::setRegulated(bool value) {
  run_.regulated = value;
  if (controller_) controller_->setRegulated(value);
}

void UIHandle::setLive(float cfl, double reynolds) {
  if (controller_) controller_->setLive(cfl, reynolds);
  run_.config.cfl = cfl;
  if (!run_.regulated) run_.config.reynolds = reynolds;
}

void UIHandle::setLook(const Look& look) {
  run_.settings = look.settings;
  exposure_ = look.exposure;
  sigma_ = look.sigma;
  if (controller_) controller_->setVelocityNeeded(look.settings.needsVelocity());
}

void UIHandle::setLimits(const RunSettings& limits) {
  run_ = limits;
  if (controller_) controller_->setRun(run_);
}

void UIHandle::dismissErrors() {
  error_.clear();
  if (controller_) controller_->clearError();
}

void UIHandle::applyConfig(Config config) {
  const Status now = status();
  followGrid(config, now.config, now.regulated);
  if (config == now.config) return;
  run_.config = config;
  if (controller_) controller_->applyConfig(config);
}

void UIHandle::beginRendering(std::function<void()> wake) {
  wake_ = std::move(wake);
  isRendering_ = true;
}

ViewReport UIHandle::report() const {
  const auto held = lock();
  const Status now = status();
  // The render thread may not have seen the newest flow yet: nothing of that has been shown.
  const bool isCounted = now.generation == presentedGeneration_;
  return {.status = now,
          .look = look(),
          .isVisible = isVisible_,
          .isFocused = isFocused_,
          .error = error_,
          .presentations = isCounted ? presentations_ : 0};
}

void UIHandle::exportFrame(FrameFiles files) {
  const auto promise = std::make_shared<std::promise<RestOfExport>>();
  std::future<RestOfExport> done = promise->get_future();
  {
    const auto held = lock();
    const std::shared_ptr<const Frame> frame = shown().frame;
    if (!frame) throw std::runtime_error("No completed frame.");
    if (!isRendering_) throw std::runtime_error(errorOr("No native renderer."));
    files.settings = run_.settings;
    exports_.push_back({frame, std::move(files), promise});
    wakeRenderThread();
  }
  while (done.wait_for(stopCheck) != std::future_status::ready) {
    const auto held = lock();
    if (!isRendering_) throw std::runtime_error(errorOr("Renderer stopped."));
  }
  if (const RestOfExport rest = done.get()) rest();
}

StateRecord UIHandle::state() {
  std::future<StateRecord> answer;
  {
    const auto held = lock();
    if (!controller_) throw std::runtime_error(noFlowToSave);
    answer = controller_->askState();
  }
  return answer.get();
}

void UIHandle::stopRendering() {
  const auto held = lock();
  isRendering_ = false;
  hasEnded_.notify_all();
  wakeRenderThread();
}

std::optional<RenderTurn> UIHandle::takeTurn() {
  const auto held = lock();
  if (!isRendering_) return std::nullopt;
  RenderTurn turn = {.status = shown(),
                     .settings = run_.settings,
                     .isVisible = isVisible_,
                     .exports = std::exchange(exports_, {})};
  if (turn.status.generation != presentedGeneration_) {
    presentedGeneration_ = turn.status.generation;
    presentations_ = 0;
  }
  return turn;
}

void UIHandle::countPresentation() {
  const auto held = lock();
  presentations_ += 1;
}

void UIHandle::reportError(const char* text) {
  const auto held = lock();
  error_ = text;
}

void UIHandle::waitForStop() {
  auto held = lock();
  hasEnded_.wait(held, [this] { return !isRendering_; });
}

void UIHandle::endRendering(const char* error) {
  const auto held = lock();
  error_ = error;
  isRendering_ = false;
  exports_.clear();
}

void UIHandle::wakeRenderThread() {
  if (wake_) wake_();
}

std::string UIHandle::errorOr(const char* text) const {
  return error_.empty() ? text : error_;
}

}  // namespace zeph
