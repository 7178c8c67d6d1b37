// A view that a host has created: its handle and, once it has a window, the canvas over that window
// and the thread that draws there.
#pragma once

#include <memory>
#include <thread>

#include "controller/ui_handle.h"
#include "render/canvas.h"

namespace zeph {

class View {
 public:
  View() = default;
  // Ends the render thread, then the simulation thread.
  ~View();
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  UIHandle& handle() { return handle_; }
  const UIHandle& handle() const { return handle_; }

  // Lays the canvas over the host's window and starts the render thread, for the frames of a
  // device. Raises std::runtime_error, and std::system_error if no thread can be started.
  void attach(void* parent, int device);

  // Both are null before attach().
  void* parent() const { return parent_; }
  Canvas* canvas() const { return canvas_.get(); }

 private:
  void* parent_ = nullptr;          // the host's window
  std::unique_ptr<Canvas> canvas_;  // destroyed last: after the handle's flow has ended
  UIHandle handle_;
  std::thread renderThread_;
};

}  // namespace zeph
