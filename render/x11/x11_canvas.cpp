// The canvas on X11, over a separate connection to the server that DISPLAY names. Through it any
// window of that server can be reached, whichever toolkit has made it.
#include "render/canvas.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "render/x11/x_resources.h"
#include "render/x11/xcb_functions.h"

namespace zeph {

using namespace x11;

namespace {

constexpr const char* noCanvas = "Cannot create native canvas.";
constexpr const char* lostServer = "Lost the X server.";

constexpr std::uint32_t iconicState = 3;             // of WM_STATE (ICCCM 4.1.3.1)
constexpr std::uint32_t longestResources = 1 << 16;  // in words of 4 bytes

xcb_connection_t* connect(const Xcb& x) {
  xcb_connection_t* connection = x.xcb_connect(nullptr, nullptr);
  if (x.xcb_connection_has_error(connection) == 0) return connection;
  x.xcb_disconnect(connection);
  throw std::runtime_error(noCanvas);
}

const Xcb& requireXcb() {
  const Xcb* functions = xcb();
  if (functions == nullptr) throw std::runtime_error(noCanvas);
  return *functions;
}

struct Connection {
  Connection() : x(requireXcb()), handle(connect(x)) {}
  ~Connection() { x.xcb_disconnect(handle); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  xcb_atom_t atom(std::string_view name) const {
    const auto cookie =
        x.xcb_intern_atom(handle, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const Owned<xcb_intern_atom_reply_t> reply(x.xcb_intern_atom_reply(handle, cookie, nullptr));
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
  }

  // The bytes of a property; its type is NONE if there is no such property.
  Owned<xcb_get_property_reply_t> property(xcb_window_t window, xcb_atom_t name,
                                           std::uint32_t words) const {
    const auto cookie =
        x.xcb_get_property(handle, 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, words);
    return Owned<xcb_get_property_reply_t>(x.xcb_get_property_reply(handle, cookie, nullptr));
  }

  const Xcb& x;
  xcb_connection_t* handle;
};

}  // namespace

struct Canvas::Impl {
  explicit Impl(xcb_window_t parentWindow);

  void grabLeftButton() const;
  float scale() const;
  bool isMinimised() const;
  xcb_window_t parentOf(xcb_window_t at) const;
  void requireConnection() const;

  Connection connection;
  const Xcb& x = connection.x;
  xcb_connection_t* c = connection.handle;
  xcb_window_t parent;
  xcb_window_t root = XCB_WINDOW_NONE;
  xcb_window_t window = XCB_WINDOW_NONE;
  int height = 0;
  xcb_atom_t wmState = XCB_ATOM_NONE;
};

Canvas::Impl::Impl(xcb_window_t parentWindow) : parent(parentWindow) {
  const Owned<xcb_get_geometry_reply_t> place(
      x.xcb_get_geometry_reply(c, x.xcb_get_geometry(c, parent), nullptr));
  if (!place) throw std::runtime_error(invalidParent);
  root = place->root;
  height = place->height;
  wmState = connection.atom("WM_STATE");
  window = x.xcb_generate_id(c);
  const std::uint32_t events = XCB_EVENT_MASK_EXPOSURE;
  // Without a background the old pixels stay until something is presented. Events of keys and of
  // the pointer are not selected, so that they reach the parent unchanged.
  const auto cookie = x.xcb_create_window_checked(
      c, XCB_COPY_FROM_PARENT, window, parent, 0, 0, std::max<std::uint16_t>(place->width, 1),
      std::max<std::uint16_t>(place->height, 1), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
  const Owned<xcb_generic_error_t> error(x.xcb_request_check(c, cookie));
  if (error || x.xcb_connection_has_error(c) != 0) throw std::runtime_error(noCanvas);
  grabLeftButton();
  x.xcb_map_window(c, window);
  x.xcb_flush(c);
}

// Of the pointer's buttons only the left one is the canvas's, with whatever other keys and locks
// are down. X cannot select the events of one button; it can grab one.
void Canvas::Impl::grabLeftButton() const {
  x.xcb_grab_button(c, 0, window, XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE,
                    XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_WINDOW_NONE, XCB_CURSOR_NONE,
                    XCB_BUTTON_INDEX_1, XCB_MOD_MASK_ANY);
}

void Canvas::Impl::requireConnection() const {
  if (x.xcb_connection_has_error(c) != 0) throw std::runtime_error(lostServer);
}

float Canvas::Impl::scale() const {
  const auto resources = connection.property(root, XCB_ATOM_RESOURCE_MANAGER, longestResources);
  if (!resources) return 1;
  const std::string_view text(
      static_cast<const char*>(x.xcb_get_property_value(resources.get())),
      static_cast<std::size_t>(x.xcb_get_property_value_length(resources.get())));
  return scaleOfResources(text);
}

xcb_window_t Canvas::Impl::parentOf(xcb_window_t at) const {
  const Owned<xcb_query_tree_reply_t> tree(
      x.xcb_query_tree_reply(c, x.xcb_query_tree(c, at), nullptr));
  return tree ? tree->parent : static_cast<xcb_window_t>(XCB_WINDOW_NONE);
}

// The window manager sets the state on the host's top-level window, which it may have put into a
// window of its own.
bool Canvas::Impl::isMinimised() const {
  for (xcb_window_t at = parent; at != root && at != XCB_WINDOW_NONE; at = parentOf(at)) {
    const auto state = connection.property(at, wmState, 2);
    if (!state || state->type == XCB_ATOM_NONE || state->length == 0) continue;
    std::uint32_t value = 0;
    std::memcpy(&value, x.xcb_get_property_value(state.get()), sizeof(value));
    return value == iconicState;
  }
  return false;
}

Canvas::Canvas(void* parent) {
  const auto id = reinterpret_cast<std::uintptr_t>(parent);
  if (id == 0 || id > 0xffffffffu) throw std::runtime_error(invalidParent);
  impl_ = std::make_unique<Impl>(static_cast<xcb_window_t>(id));
}

Canvas::~Canvas() {
  impl_->x.xcb_destroy_window(impl_->c, impl_->window);
  impl_->x.xcb_flush(impl_->c);
}

WindowState Canvas::window() const {
  const Impl& i = *impl_;
  const auto place = i.x.xcb_get_geometry(i.c, i.parent);
  const auto attributes = i.x.xcb_get_window_attributes(i.c, i.parent);
  const Owned<xcb_get_geometry_reply_t> geometry(i.x.xcb_get_geometry_reply(i.c, place, nullptr));
  const Owned<xcb_get_window_attributes_reply_t> shown(
      i.x.xcb_get_window_attributes_reply(i.c, attributes, nullptr));
  i.requireConnection();
  if (!geometry || !shown) return {};
  return {.width = geometry->width,
          .height = geometry->height,
          .scale = i.scale(),
          .isVisible = shown->map_state == XCB_MAP_STATE_VIEWABLE && !i.isMinimised()};
}

NativeWindow Canvas::native() const {
  return {.connection = impl_->c, .window = impl_->window};
}

int Canvas::height() const {
  return impl_->height;
}

void Canvas::resize(int width, int height) {
  impl_->height = height;
  const std::array<std::uint32_t, 4> values = {0, 0, static_cast<std::uint32_t>(width),
                                               static_cast<std::uint32_t>(height)};
  impl_->x.xcb_configure_window(impl_->c, impl_->window,
                                XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y |
                                    XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                                values.data());
  impl_->x.xcb_flush(impl_->c);
}

Canvas::Events Canvas::takeEvents() {
  Events events;
  while (const Owned<xcb_generic_event_t> event{impl_->x.xcb_poll_for_event(impl_->c)}) {
    const int type = event->response_type & 0x7f;
    if (type == XCB_EXPOSE) events.isExposed = true;
    if (type != XCB_BUTTON_RELEASE) continue;
    const auto* release = reinterpret_cast<const xcb_button_release_event_t*>(event.get());
    if (release->detail == XCB_BUTTON_INDEX_1)
      events.clicks.push_back({release->event_x, release->event_y});
  }
  impl_->requireConnection();
  return events;
}

void Canvas::focusParent() {
  impl_->x.xcb_set_input_focus(impl_->c, XCB_INPUT_FOCUS_PARENT, impl_->parent, XCB_CURRENT_TIME);
  impl_->x.xcb_flush(impl_->c);
}

}  // namespace zeph
