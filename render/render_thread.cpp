#include "render/render_thread.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "device/check.h"
#include "platform/thread_environment.h"
#include "render/frame_export.h"
#include "render/graphics_use.h"
#include "render/overlay.h"
#include "render/pacing.h"
#include "render/renderer.h"

namespace zeph {
namespace {

constexpr double latencySeconds = 0.016;  // the longest wait for what has just been presented
constexpr double longestDrawingSeconds = 9;

double now() {
  return monotonicSeconds();
}

class RenderLoop {
 public:
  RenderLoop(UIHandle& ui, Canvas& canvas, int device);
  ~RenderLoop();
  RenderLoop(const RenderLoop&) = delete;
  RenderLoop& operator=(const RenderLoop&) = delete;

  void run();

 private:
  static bool isShown(const RenderTurn& turn, const WindowState& window);
  void show(const RenderTurn& turn, const WindowState& window);
  bool present(Presentation next);
  void waitForLatency();
  void finishTurn();
  std::optional<double> longestWait(bool isShown) const;
  void waitForStop();

  UIHandle& ui_;
  Canvas& canvas_;
  std::unique_ptr<Renderer> renderer_;          // null if the process is exiting
  std::optional<FirstUseGuard> firstUseGuard_;  // while something loads or is drawn first
  std::optional<GraphicsUse> use_;  // in a turn, and until what it has asked for is drawn
  bool isDrawing_ = false;
  bool hasShownFrame_ = false;
  PresentationGrid grid_;
  int width_ = 0;
  int height_ = 0;
  std::optional<Presentation> onScreen_;  // empty if it is not known what the screen shows
};

RenderLoop::RenderLoop(UIHandle& ui, Canvas& canvas, int device) : ui_(ui), canvas_(canvas) {
  const GraphicsUse use;
  if (!use) return;
  firstUseGuard_.emplace();
  try {
    renderer_ = std::make_unique<Renderer>(device, canvas_.native());
  } catch (const std::exception&) {
    if (canvas_.isParentGone()) throw std::runtime_error(invalidParent);
    throw;
  }
}

RenderLoop::~RenderLoop() {
  if (!use_) use_.emplace();
  if (*use_) {
    renderer_.reset();
  } else {
    static_cast<void>(renderer_.release());
  }
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): what draws is left to the end of the process

void RenderLoop::run() {
  while (const std::optional<RenderTurn> turn = ui_.takeTurn()) {
    if (!use_) use_.emplace();
    // While the process ends, nothing may be drawn; the view may still be closed.
    if (!*use_ || !renderer_ || processIsEnding()) return waitForStop();
    for (const ExportTask& task : turn->exports) runExport(*renderer_, task);
    if (canvas_.takeEvents()) onScreen_.reset();
    const WindowState window = canvas_.window();
    const bool shown = isShown(*turn, window);
    if (shown && grid_.isDue(now())) show(*turn, window);
    finishTurn();
    canvas_.wait(longestWait(shown));
  }
}

// Drawing loads parts of the graphics system on threads of its own, which must not meet the end of
// the process either.
void RenderLoop::finishTurn() {
  if (isDrawing_) {
    renewProcessEndGuard();
    isDrawing_ = !renderer_->waitForDrawing(0);
  }
  if (isDrawing_) return;
  firstUseGuard_.reset();
  use_.reset();
}

void RenderLoop::waitForStop() {
  if (*use_ && renderer_) renderer_->waitForDrawing(longestDrawingSeconds);
  use_.reset();
  ui_.waitForStop();
}

bool RenderLoop::isShown(const RenderTurn& turn, const WindowState& window) {
  return turn.isVisible && window.isVisible && window.width >= 1 && window.height >= 1;
}

// While nothing is shown, the window or the host wakes the thread for whatever it has to do.
std::optional<double> RenderLoop::longestWait(bool isShown) const {
  if (isShown) return grid_.secondsUntilDue(now());
  if (isDrawing_) return latencySeconds;
  return std::nullopt;
}

void RenderLoop::show(const RenderTurn& turn, const WindowState& window) {
  if (window.width != width_ || window.height != height_) {
    canvas_.resize(window.width, window.height);
    width_ = window.width;
    height_ = window.height;
    onScreen_.reset();
  }
  const auto scale = static_cast<float>(window.scale);
  const float side = static_cast<float>(std::min(width_, height_)) / scale;
  Presentation next = {.frame = turn.status.frame,
                       .settings = turn.settings,
                       .overlay = overlayOf(turn.status, side),
                       .side = side,
                       .scale = scale};
  bool isNew = false;
  try {
    isNew = present(std::move(next));
  } catch (const std::exception&) {
    // The host may destroy its window in the middle of a frame, which is no failure of the view.
    if (!canvas_.isParentGone()) throw;
    return;
  }
  grid_.presented(now());
  if (turn.status.frame && onScreen_) {
    ui_.countPresentation();
    hasShownFrame_ = true;
  }
  if (isNew) waitForLatency();
}

// The image just presented is drawn, and it alone waits for the screen.
void RenderLoop::waitForLatency() {
  const double end = now() + latencySeconds;
  renderer_->waitForDrawing(latencySeconds);
  renderer_->waitForScreen(std::max(end - now(), 0.0));
}

// Draws nothing if the screen already shows just this. Returns whether something was presented.
bool RenderLoop::present(Presentation next) {
  renderer_->resize(static_cast<std::uint32_t>(width_), static_cast<std::uint32_t>(height_));
  if (onScreen_ && *onScreen_ == next && !renderer_->repeats()) return false;
  onScreen_.reset();
  isDrawing_ = true;
  if (!hasShownFrame_ && !firstUseGuard_) firstUseGuard_.emplace();
  if (!renderer_->present(next)) return false;
  onScreen_ = std::move(next);
  return true;
}

}  // namespace

void renderFrames(UIHandle& ui, Canvas& canvas, int device) {
  try {
    platform::enterOwnThread();
    const std::shared_ptr<void> entered = enterRenderThread();
    check(cudaSetDevice(device), "cudaSetDevice(deviceId)");
    RenderLoop(ui, canvas, device).run();
  } catch (const std::exception& failure) {
    ui.endRendering(failure.what());
  }
}

}  // namespace zeph
