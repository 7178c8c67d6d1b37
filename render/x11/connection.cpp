#include "render/x11/connection.h"

#include <poll.h>

#include <stdexcept>

namespace zeph::x11 {
namespace {

// Another thread may have read the reply from the descriptor, which then stays silent.
constexpr int pollMilliseconds = 1;

const Xcb& requireXcb() {
  const Xcb* functions = xcb();
  if (functions == nullptr) throw std::runtime_error(noCanvas);
  return *functions;
}

}  // namespace

Connection::Connection() : x(requireXcb()), handle_(x.xcb_connect(nullptr, nullptr)) {
  if (!isLost()) return;
  x.xcb_disconnect(handle_);
  throw std::runtime_error(noCanvas);
}

Connection::~Connection() {
  x.xcb_disconnect(handle_);
}

void Connection::requireServer() const {
  if (isLost()) throw std::runtime_error(lostServer);
}

void* Connection::awaitReply(unsigned int request, std::optional<Deadline> deadline) const {
  xcb_generic_error_t* error = nullptr;
  if (!deadline) {
    void* reply = x.xcb_wait_for_reply(handle_, request, &error);
    std::free(error);
    return reply;
  }
  flush();
  for (;;) {
    void* reply = nullptr;
    const bool isAnswered = x.xcb_poll_for_reply(handle_, request, &reply, &error) != 0;
    std::free(error);
    if (isAnswered) return reply;
    if (std::chrono::steady_clock::now() >= *deadline) {
      x.xcb_discard_reply(handle_, request);
      throw std::runtime_error(noAnswer);
    }
    pollfd answers = {.fd = descriptor(), .events = POLLIN, .revents = 0};
    poll(&answers, 1, pollMilliseconds);
  }
}

bool Connection::hasReply(unsigned int request) const {
  void* reply = nullptr;
  xcb_generic_error_t* error = nullptr;
  const bool isAnswered = x.xcb_poll_for_reply(handle_, request, &reply, &error) != 0;
  std::free(reply);
  std::free(error);
  return isAnswered;
}

xcb_atom_t Connection::atom(std::string_view name) const {
  const auto reply = await<xcb_intern_atom_reply_t>(
      x.xcb_intern_atom(handle_, 0, static_cast<std::uint16_t>(name.size()), name.data()));
  return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

Owned<xcb_get_property_reply_t> Connection::property(xcb_window_t window, xcb_atom_t name,
                                                     std::uint32_t words,
                                                     std::optional<Deadline> deadline) const {
  return await<xcb_get_property_reply_t>(
      x.xcb_get_property(handle_, 0, window, name, XCB_GET_PROPERTY_TYPE_ANY, 0, words), deadline);
}

void Connection::select(xcb_window_t window, std::uint32_t events) const {
  x.xcb_change_window_attributes(handle_, window, XCB_CW_EVENT_MASK, &events);
}

}  // namespace zeph::x11
