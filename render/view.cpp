#include "render/view.h"

#include <stdexcept>
#include <utility>

#include "platform/thread_environment.h"
#include "render/clicks.h"
#include "render/render_thread.h"

namespace zeph {

View::~View() {
  handle_.stopRendering();
  if (renderThread_.joinable()) renderThread_.join();
}

void View::attach(void* parent, int device) {
  if (parent_ != nullptr) throw std::runtime_error("Canvas is already attached.");
  auto canvas =
      std::make_unique<Canvas>(parent, [this](const Click& click) { actOnClick(handle_, click); });
  const auto lock = handle_.lock();  // the thread's first turn waits for beginRendering()
  renderThread_ =
      platform::startThread([this, &on = *canvas, device] { renderFrames(handle_, on, device); });
  handle_.beginRendering([&on = *canvas] { on.wake(); });
  canvas_ = std::move(canvas);
  parent_ = parent;
}

}  // namespace zeph
