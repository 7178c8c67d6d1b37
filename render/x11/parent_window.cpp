#include "render/x11/parent_window.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "render/x11/x_resources.h"

namespace zeph::x11 {
namespace {

constexpr std::uint32_t iconicState = 3;             // of WM_STATE (ICCCM 4.1.3.1)
constexpr std::uint32_t longestResources = 1 << 16;  // in words of 4 bytes

constexpr int typeOfEvent = 0x7f;  // the other bit is set if a client has sent the event

}  // namespace

ParentWindow::ParentWindow(const Connection& connection, xcb_window_t window)
    : connection_(connection), x_(connection.x), window_(window) {
  const auto place = connection_.await<xcb_get_geometry_reply_t>(
      x_.xcb_get_geometry(connection_.handle(), window_));
  if (!place) throw std::runtime_error(invalidParent);
  root_ = place->root;
  wmState_ = connection_.atom("WM_STATE");
}

WindowState ParentWindow::ask(std::optional<Deadline> deadline) const {
  xcb_connection_t* c = connection_.handle();
  const auto place =
      connection_.await<xcb_get_geometry_reply_t>(x_.xcb_get_geometry(c, window_), deadline);
  const auto shown = connection_.await<xcb_get_window_attributes_reply_t>(
      x_.xcb_get_window_attributes(c, window_), deadline);
  connection_.requireServer();
  if (!place || !shown) return {};
  return {.width = place->width,
          .height = place->height,
          .scale = scale(deadline),
          .isVisible = shown->map_state == XCB_MAP_STATE_VIEWABLE && !isMinimised(deadline)};
}

bool ParentWindow::isGone() const {
  const auto place = connection_.await<xcb_get_geometry_reply_t>(
      x_.xcb_get_geometry(connection_.handle(), window_));
  connection_.requireServer();
  return !place;
}

double ParentWindow::scale(std::optional<Deadline> deadline) const {
  const auto resources =
      connection_.property(root_, XCB_ATOM_RESOURCE_MANAGER, longestResources, deadline);
  if (!resources) return 1;
  const std::string_view text(
      static_cast<const char*>(x_.xcb_get_property_value(resources.get())),
      static_cast<std::size_t>(x_.xcb_get_property_value_length(resources.get())));
  return scaleOfResources(text);
}

xcb_window_t ParentWindow::parentOf(xcb_window_t at, std::optional<Deadline> deadline) const {
  const auto tree = connection_.await<xcb_query_tree_reply_t>(
      x_.xcb_query_tree(connection_.handle(), at), deadline);
  return tree ? tree->parent : static_cast<xcb_window_t>(XCB_WINDOW_NONE);
}

// The window manager sets the state on the host's top-level window, which it may have put into a
// window of its own.
bool ParentWindow::isMinimised(std::optional<Deadline> deadline) const {
  for (xcb_window_t at = window_; isInside(at); at = parentOf(at, deadline)) {
    const auto state = connection_.property(at, wmState_, 2, deadline);
    if (!state || state->type == XCB_ATOM_NONE || state->length == 0) continue;
    std::uint32_t value = 0;
    std::memcpy(&value, x_.xcb_get_property_value(state.get()), sizeof(value));
    return value == iconicState;
  }
  return false;
}

void ParentWindow::selectEvents() const {
  connection_.select(root_, XCB_EVENT_MASK_PROPERTY_CHANGE);
  for (xcb_window_t at = window_; isInside(at); at = parentOf(at))
    connection_.select(at, XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE);
}

ParentWindow::Change ParentWindow::changeBy(const xcb_generic_event_t& event) const {
  switch (event.response_type & typeOfEvent) {
    case XCB_PROPERTY_NOTIFY: {
      const auto& property = reinterpret_cast<const xcb_property_notify_event_t&>(event);
      const bool matters = property.atom == wmState_ ||
                           (property.window == root_ && property.atom == XCB_ATOM_RESOURCE_MANAGER);
      return matters ? Change::state : Change::none;
    }
    case XCB_CONFIGURE_NOTIFY: {
      const auto& configure = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
      return configure.window == window_ ? Change::state : Change::none;
    }
    case XCB_MAP_NOTIFY:
    case XCB_UNMAP_NOTIFY:
    case XCB_DESTROY_NOTIFY:
      return Change::state;
    case XCB_REPARENT_NOTIFY:
      return Change::ancestors;
    default:
      return Change::none;
  }
}

}  // namespace zeph::x11
