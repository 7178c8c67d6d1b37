// The view's own window, a child that covers the whole client area of the host's. The renderer
// presents into it. It collects clicks, leaves the keyboard to the host, and reports the size,
// scale and visibility of the host's window. On Linux it is render/x11.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace zeph {

// Of the host's window. Lengths are device pixels.
struct WindowState {
  int width = 0;
  int height = 0;
  float scale = 1;         // dots per inch over 96
  bool isVisible = false;  // and not minimised
};

// A release of the left button, in device pixels from the canvas's upper left corner.
struct Click {
  int x = 0;
  int y = 0;
};

// The window as the graphics system names it.
struct NativeWindow {
  void* connection = nullptr;
  std::uintptr_t window = 0;
};

// The message if the host's window does not exist, or no longer exists.
constexpr const char* invalidParent = "Invalid parent HWND.";

class Canvas {
 public:
  // `parent` is the handle or id of the host's window. Raises std::runtime_error: `invalidParent`
  // if there is no such window, otherwise "Cannot create native canvas."
  explicit Canvas(void* parent);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  // Both may be called from any thread. A window that is gone has the size 0. Raises
  // std::runtime_error if the connection to the display is lost.
  WindowState window() const;
  NativeWindow native() const;

  // For the render thread alone. The height is that of the canvas itself, in device pixels.
  void resize(int width, int height);
  int height() const;
  // Since the call before: clicks, and whether a part of the canvas was uncovered and has to be
  // presented again.
  struct Events {
    std::vector<Click> clicks;
    bool isExposed = false;
  };
  Events takeEvents();
  void focusParent();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zeph
