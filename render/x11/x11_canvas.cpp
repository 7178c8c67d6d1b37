// The canvas on X11. Through connections of its own any window of the server can be reached,
// whichever toolkit has made it. There are two: the graphics system has threads that read from the
// one that it presents through, so they could take away events for which the render thread sleeps.
#include "render/canvas.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "render/x11/connection.h"
#include "render/x11/parent_window.h"

namespace zeph {

using namespace x11;

namespace {

// The longest that the host's thread waits for the server's answer.
constexpr std::chrono::milliseconds answerTime(50);

timespec timeOf(double seconds) {
  const double whole = std::floor(seconds);
  return {.tv_sec = static_cast<std::time_t>(whole),
          .tv_nsec = static_cast<long>((seconds - whole) * 1e9)};
}

// A descriptor to sleep on that any thread can make readable.
class Alarm {
 public:
  Alarm() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) throw std::runtime_error(noCanvas);
  }
  ~Alarm() { close(descriptor_); }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  int descriptor() const { return descriptor_; }
  void ring() const { static_cast<void>(eventfd_write(descriptor_, 1)); }
  void silence() const {
    eventfd_t count = 0;
    static_cast<void>(eventfd_read(descriptor_, &count));
  }

 private:
  int descriptor_;
};

}  // namespace

struct Canvas::Impl {
  Impl(xcb_window_t parentWindow, std::function<void(const Click&)> onClick);

  void create(const WindowState& place);
  void grabLeftButton() const;
  bool takeQueued();
  void take(const xcb_generic_event_t& event);
  void dropErrors() const;
  bool isAnswering();
  void actOnClicks();
  void focusParent() const;

  Connection drawing;
  Connection events;
  const Xcb& x = events.x;
  ParentWindow parent;
  Alarm alarm;
  xcb_window_t window = XCB_WINDOW_NONE;

  // For the host's thread.
  WindowState answered;
  std::optional<unsigned int> unanswered;  // a request whose answer is late

  // For the render thread.
  std::function<void(const Click&)> act;
  int height = 0;  // of the canvas
  WindowState state;
  bool isStateOld = true;
  bool areAncestorsOld = true;
  bool isReadable = true;  // the descriptor of `events`
  std::vector<Click> clicks;
  bool isExposed = false;
};

Canvas::Impl::Impl(xcb_window_t parentWindow, std::function<void(const Click&)> onClick)
    : parent(events, parentWindow), act(std::move(onClick)) {
  answered = parent.ask();
  create(answered);
  height = answered.height;
}

void Canvas::Impl::create(const WindowState& place) {
  xcb_connection_t* c = drawing.handle();
  window = x.xcb_generate_id(c);
  // Without a background the old pixels stay until something is presented. Events of keys and of
  // the pointer are not selected, so that they reach the parent unchanged.
  const auto cookie =
      x.xcb_create_window_checked(c, XCB_COPY_FROM_PARENT, window, parent.id(), 0, 0,
                                  static_cast<std::uint16_t>(std::max(place.width, 1)),
                                  static_cast<std::uint16_t>(std::max(place.height, 1)), 0,
                                  XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
  const Owned<xcb_generic_error_t> error(x.xcb_request_check(c, cookie));
  if (error || drawing.isLost()) throw std::runtime_error(noCanvas);
  events.select(window, XCB_EVENT_MASK_EXPOSURE);
  grabLeftButton();
  static_cast<void>(parent.isGone());  // a round trip: what stands above holds from here on
  x.xcb_map_window(c, window);
  drawing.flush();
}

// Of the pointer's buttons only the left one is the canvas's, with whatever other keys and locks
// are down. X cannot select the events of one button; it can grab one.
void Canvas::Impl::grabLeftButton() const {
  x.xcb_grab_button(events.handle(), 0, window,
                    XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE,
                    XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_WINDOW_NONE, XCB_CURSOR_NONE,
                    XCB_BUTTON_INDEX_1, XCB_MOD_MASK_ANY);
}

// Reads from the server only if there is something to read. Returns whether an event has come.
bool Canvas::Impl::takeQueued() {
  bool hasTaken = false;
  const auto next = [&] {
    xcb_connection_t* c = events.handle();
    return Owned<xcb_generic_event_t>(isReadable ? x.xcb_poll_for_event(c)
                                                 : x.xcb_poll_for_queued_event(c));
  };
  while (const auto event = next()) {
    take(*event);
    hasTaken = true;
  }
  isReadable = false;
  return hasTaken;
}

void Canvas::Impl::take(const xcb_generic_event_t& event) {
  const int type = event.response_type & 0x7f;
  const ParentWindow::Change change = parent.changeBy(event);
  if (change != ParentWindow::Change::none) isStateOld = true;
  if (change == ParentWindow::Change::ancestors) areAncestorsOld = true;
  if (type == XCB_EXPOSE) isExposed = true;
  if (type != XCB_BUTTON_RELEASE) return;
  const auto& release = reinterpret_cast<const xcb_button_release_event_t&>(event);
  if (release.detail == XCB_BUTTON_INDEX_1)
    clicks.push_back({.x = release.event_x, .y = release.event_y});
}

// Nobody selects events on the connection that the graphics system uses, but errors of requests
// that nobody waits for are kept like events.
void Canvas::Impl::dropErrors() const {
  while (const Owned<xcb_generic_event_t> error{x.xcb_poll_for_queued_event(drawing.handle())}) {
  }
}

bool Canvas::Impl::isAnswering() {
  if (unanswered && events.hasReply(*unanswered)) unanswered.reset();
  return !unanswered;
}

void Canvas::Impl::actOnClicks() {
  for (Click& click : std::exchange(clicks, {})) {
    click.height = height;
    click.scale = state.scale;
    act(click);
    focusParent();
  }
}

void Canvas::Impl::focusParent() const {
  x.xcb_set_input_focus(events.handle(), XCB_INPUT_FOCUS_PARENT, parent.id(), XCB_CURRENT_TIME);
  events.flush();
}

Canvas::Canvas(void* parent, std::function<void(const Click&)> act) {
  const auto id = reinterpret_cast<std::uintptr_t>(parent);
  if (id == 0 || id > 0xffffffffu) throw std::runtime_error(invalidParent);
  impl_ = std::make_unique<Impl>(static_cast<xcb_window_t>(id), std::move(act));
}

Canvas::~Canvas() {
  impl_->x.xcb_destroy_window(impl_->drawing.handle(), impl_->window);
  impl_->drawing.flush();
}

WindowState Canvas::askWindow() {
  Impl& i = *impl_;
  if (!i.isAnswering()) return i.answered;
  try {
    i.answered = i.parent.ask(std::chrono::steady_clock::now() + answerTime);
  } catch (const std::runtime_error&) {
    i.events.requireServer();
    i.unanswered = i.x.xcb_get_input_focus(i.events.handle()).sequence;
    i.events.flush();
  }
  // Events that came with the answers are in the queue now: the descriptor no longer shows them.
  i.alarm.ring();
  return i.answered;
}

const WindowState& Canvas::window() const {
  return impl_->state;
}

bool Canvas::isParentGone() const {
  return impl_->parent.isGone();
}

NativeWindow Canvas::native() const {
  return {.connection = impl_->drawing.handle(), .window = impl_->window};
}

// Through the connection of the graphics system, which asks for the new size afterwards.
void Canvas::resize(int width, int height) {
  impl_->height = height;
  const std::array<std::uint32_t, 4> values = {0, 0, static_cast<std::uint32_t>(width),
                                               static_cast<std::uint32_t>(height)};
  impl_->x.xcb_configure_window(impl_->drawing.handle(), impl_->window,
                                XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y |
                                    XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                                values.data());
  impl_->drawing.flush();
}

bool Canvas::takeEvents() {
  Impl& i = *impl_;
  i.dropErrors();
  // Answers bring events with them.
  for (i.takeQueued(); i.isStateOld; i.takeQueued()) {
    i.isStateOld = false;
    if (std::exchange(i.areAncestorsOld, false)) i.parent.selectEvents();
    i.state = i.parent.ask();
  }
  i.events.requireServer();
  if (i.drawing.isLost()) throw std::runtime_error(lostServer);
  i.actOnClicks();
  return std::exchange(i.isExposed, false);
}

void Canvas::wait(std::optional<double> seconds) {
  Impl& i = *impl_;
  if (i.takeQueued()) return;
  std::array<pollfd, 2> sources = {pollfd{i.events.descriptor(), POLLIN, 0},
                                   pollfd{i.alarm.descriptor(), POLLIN, 0}};
  const timespec longest = timeOf(std::max(seconds.value_or(0), 0.0));
  ppoll(sources.data(), sources.size(), seconds ? &longest : nullptr, nullptr);
  i.isReadable = sources[0].revents != 0;
  if (sources[1].revents != 0) i.alarm.silence();
}

void Canvas::wake() const {
  impl_->alarm.ring();
}

}  // namespace zeph
