#include "render/render_thread.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "device/check.h"
#include "platform/arithmetic.h"
#include "render/canvas.h"
#include "render/graphics_use.h"
#include "render/overlay.h"
#include "render/pacing.h"
#include "render/renderer.h"

namespace zeph {
namespace {

constexpr double latencySeconds = 0.016;  // the longest wait for what has just been presented

double now() {
  return monotonicSeconds();
}

// What one turn takes from the handle.
struct Turn {
  Status status;
  DisplaySettings settings;
  bool isVisible = true;
  std::vector<RendererTask> tasks;
};

class RenderLoop {
 public:
  RenderLoop(UIHandle& ui, int device);
  ~RenderLoop();
  RenderLoop(const RenderLoop&) = delete;
  RenderLoop& operator=(const RenderLoop&) = delete;

  void run();

 private:
  std::optional<Turn> take();
  void abandon();
  bool isWindowGone() const { return canvas_.window().width == 0; }
  bool isShown(const Turn& turn, const WindowState& window) const;
  void show(const Turn& turn, const WindowState& window);
  void present(Presentation next);
  void rest();
  void hear(const WindowState& window);
  void click(const Click& click, const WindowState& window);

  UIHandle& ui_;
  Canvas& canvas_;
  std::unique_ptr<Renderer> renderer_;  // null where the process ends
  std::optional<ProcessEndGuard> guard_;
  std::optional<ProcessEndGuard> lateGuard_;  // from the first frame on
  PresentationGrid grid_;
  int width_ = 0;
  int height_ = 0;
  std::uint64_t generation_ = 0;
  std::optional<Presentation> shown_;  // nothing of it has changed on the screen since
};

RenderLoop::RenderLoop(UIHandle& ui, int device) : ui_(ui), canvas_(*ui.canvas) {
  const GraphicsUse use;
  if (!use) return;
  try {
    renderer_ = std::make_unique<Renderer>(device, canvas_.native());
  } catch (const std::exception&) {
    if (isWindowGone()) throw std::runtime_error(invalidParent);
    throw;
  }
  guard_.emplace();
}

RenderLoop::~RenderLoop() {
  if (const GraphicsUse use; use) {
    lateGuard_.reset();
    guard_.reset();
    renderer_.reset();
  } else {
    static_cast<void>(renderer_.release());
  }
}

void RenderLoop::run() {
  while (const std::optional<Turn> turn = take()) {
    const GraphicsUse use;
    if (!use || !renderer_) return abandon();
    for (const RendererTask& task : turn->tasks) task(*renderer_);
    const WindowState window = canvas_.window();
    hear(window);
    if (isShown(*turn, window)) {
      show(*turn, window);
    } else {
      rest();
    }
  }
}

// The process is ending, and the thread with it, unless somebody closes the view before.
void RenderLoop::abandon() {
  std::unique_lock lock(ui_.mutex);
  ui_.wake.wait(lock, [this] { return ui_.stopped; });
}

// Nothing where the thread is to end.
std::optional<Turn> RenderLoop::take() {
  const std::lock_guard lock(ui_.mutex);
  if (ui_.stopped) return std::nullopt;
  Turn turn;
  turn.status = ui_.status();
  turn.settings = ui_.run.settings;
  turn.isVisible = ui_.visible;
  turn.tasks = std::exchange(ui_.tasks, {});
  if (turn.status.generation != generation_) {
    generation_ = turn.status.generation;
    ui_.presentations = 0;
  }
  return turn;
}

bool RenderLoop::isShown(const Turn& turn, const WindowState& window) const {
  return turn.isVisible && window.isVisible && window.width >= 1 && window.height >= 1 &&
         grid_.isDue(now());
}

void RenderLoop::show(const Turn& turn, const WindowState& window) {
  if (window.width != width_ || window.height != height_) {
    canvas_.resize(window.width, window.height);
    width_ = window.width;
    height_ = window.height;
    shown_.reset();
  }
  const float side = static_cast<float>(std::min(width_, height_)) / window.scale;
  Presentation next = {.frame = turn.status.frame,
                       .settings = turn.settings,
                       .overlay = overlayOf(turn.status, side),
                       .side = side,
                       .scale = window.scale};
  try {
    present(std::move(next));
  } catch (const std::exception&) {
    // The host may destroy its window in the middle of a frame, which is no failure of the view.
    if (!isWindowGone()) throw;
    return;
  }
  grid_.presented(now());
  if (turn.status.frame && shown_) {
    const std::lock_guard lock(ui_.mutex);
    ui_.presentations += 1;
  }
  renderer_->waitForLatency(latencySeconds);
  // By now all of the graphics system that is loaded late has been.
  if (turn.status.frame && !lateGuard_) lateGuard_.emplace();
}

// What is on the screen already need not be drawn again to be shown.
void RenderLoop::present(Presentation next) {
  renderer_->resize(static_cast<std::uint32_t>(width_), static_cast<std::uint32_t>(height_));
  if (shown_ && *shown_ == next) return;
  shown_.reset();
  if (renderer_->present(next)) shown_ = std::move(next);
}

void RenderLoop::rest() {
  const std::chrono::duration<double> wait(grid_.idleSeconds(now()));
  std::unique_lock lock(ui_.mutex);
  ui_.wake.wait_for(lock, wait, [this] { return ui_.stopped || !ui_.tasks.empty(); });
}

void RenderLoop::hear(const WindowState& window) {
  const Canvas::Events events = canvas_.takeEvents();
  if (events.isExposed) shown_.reset();
  for (const Click& one : events.clicks) {
    try {
      click(one, window);
    } catch (const std::exception& failure) {
      const std::lock_guard lock(ui_.mutex);
      ui_.error = failure.what();
    }
    canvas_.focusParent();
  }
}

void RenderLoop::click(const Click& click, const WindowState& window) {
  const std::lock_guard lock(ui_.mutex);
  const auto button = buttonAt(static_cast<float>(click.x) / window.scale,
                               static_cast<float>(click.y) / window.scale,
                               static_cast<float>(canvas_.height()) / window.scale);
  if (!button || !ui_.controller || !ui_.status().ready) return;
  switch (*button) {
    case Button::toggle:
      ui_.toggle();
      break;
    case Button::step:
      ui_.step();
      break;
    case Button::reset:
      ui_.reset();
      break;
  }
}

// Tasks that have not run never will; whoever waits for one sees that the thread has stopped.
void fail(UIHandle& ui, const char* text) {
  const std::lock_guard lock(ui.mutex);
  ui.error = text;
  ui.stopped = true;
  ui.tasks.clear();
  ui.wake.notify_all();
}

void renderThreadMain(UIHandle& ui, int device) {
  try {
    platform::useDefaultArithmetic();
    check(cudaSetDevice(device), "cudaSetDevice(deviceId)");
    RenderLoop(ui, device).run();
  } catch (const std::exception& failure) {
    fail(ui, failure.what());
  }
}

}  // namespace

void attachCanvas(UIHandle& ui, void* parent, int device) {
  if (ui.parent != nullptr) throw std::runtime_error("Canvas is already attached.");
  auto canvas = std::make_shared<Canvas>(parent);
  const std::lock_guard lock(ui.mutex);
  ui.canvas = canvas;
  ui.renderThread = std::thread([&ui, device] { renderThreadMain(ui, device); });
  ui.parent = parent;
}

}  // namespace zeph
