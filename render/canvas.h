// The view's own window, a child that covers the whole client area of the host's. The renderer
// presents into it. It collects clicks, leaves the keyboard to the host, and reports the size,
// scale and visibility of the host's window. On Linux it is render/x11, on Windows render/win32.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace zeph {

// Of the host's window. Lengths are device pixels.
struct WindowState {
  int width = 0;
  int height = 0;
  double scale = 1;        // dots per inch over 96
  bool isVisible = false;  // and not minimised
};

// A release of the left button, in device pixels from the canvas's upper left corner.
struct Click {
  int x = 0;
  int y = 0;
  int height = 0;    // of the canvas
  double scale = 1;  // of the canvas
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
  // `parent` is the handle or id of the host's window. Each click is given to `act`, which raises
  // nothing; then the parent gets the keyboard. On Windows that is done by the host's thread while
  // it handles the canvas's messages, on Linux by the render thread in takeEvents().
  //
  // Raises std::runtime_error: `invalidParent` if there is no such window, otherwise
  // "Cannot create native canvas."
  Canvas(void* parent, std::function<void(const Click&)> act);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  NativeWindow native() const;

  // For the host's thread: asks the window system, and takes its last answer if it keeps the thread
  // waiting. A window that is gone has the size 0. Raises std::runtime_error if the connection to
  // the display is lost.
  WindowState askWindow();

  // What follows is for the render thread alone.

  // Whether since the call before a part of the canvas was uncovered and has to be presented again.
  // Raises std::runtime_error if the connection to the display is lost.
  bool takeEvents();
  // As of the last takeEvents().
  const WindowState& window() const;
  // Asks the window system. Raises like takeEvents().
  bool isParentGone() const;

  // Sleeps so long, or for ever, or until something happens to the window; on Windows, which does
  // not report that, for 16 ms at most.
  void wait(std::optional<double> seconds);
  // Ends the wait, or else the next one. For any thread.
  void wake() const;

  // In device pixels.
  void resize(int width, int height);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zeph
