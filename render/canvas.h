// The view's own window, laid over the whole client area of the host's. What the renderer presents
// goes into it; it hands a click on, keeps the keyboard with the host, and tells how the host's
// window stands. On Linux it is render/x11.
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

// What a graphics system needs to know of the window.
struct NativeWindow {
  void* connection = nullptr;
  std::uintptr_t window = 0;
};

// Of a host's window that is none, or none any more.
constexpr const char* invalidParent = "Invalid parent HWND.";

class Canvas {
 public:
  // In the window whose handle or id the host has. Raises std::runtime_error, with `invalidParent`
  // where there is no such window and "Cannot create native canvas." else.
  explicit Canvas(void* parent);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  // Both may be called from any thread. A window that is gone is one without a size. Raises
  // std::runtime_error where the connection to the system is lost.
  WindowState window() const;
  NativeWindow native() const;

  // For the render thread alone. The height is that of the canvas itself, in device pixels.
  void resize(int width, int height);
  int height() const;
  // What has come since the call before: clicks, and whether something of the canvas was uncovered
  // that has to be shown again.
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
