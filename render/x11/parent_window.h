// The host's window, as the X server knows it.
#pragma once

#include <optional>

#include "render/canvas.h"
#include "render/x11/connection.h"

namespace zeph::x11 {

class ParentWindow {
 public:
  // Raises std::runtime_error: `invalidParent`.
  ParentWindow(const Connection& connection, xcb_window_t window);

  xcb_window_t id() const { return window_; }

  // Asks the server. A window that is gone has the size 0. Raises std::runtime_error if there is no
  // answer until the deadline.
  WindowState ask(std::optional<Deadline> deadline = {}) const;
  bool isGone() const;

  // Asks for the events that change the answer, from the window and all that it lies in.
  void selectEvents() const;
  // What an event means for the answer.
  enum class Change { none, state, ancestors };
  Change changeBy(const xcb_generic_event_t& event) const;

 private:
  double scale(std::optional<Deadline> deadline) const;
  bool isMinimised(std::optional<Deadline> deadline) const;
  xcb_window_t parentOf(xcb_window_t at, std::optional<Deadline> deadline = {}) const;
  bool isInside(xcb_window_t at) const { return at != root_ && at != XCB_WINDOW_NONE; }

  const Connection& connection_;
  const Xcb& x_;
  xcb_window_t window_;
  xcb_window_t root_ = XCB_WINDOW_NONE;
  xcb_atom_t wmState_ = XCB_ATOM_NONE;
};

}  // namespace zeph::x11
