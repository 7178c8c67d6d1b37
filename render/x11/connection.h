// A connection to the X server that DISPLAY names.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "render/x11/xcb_functions.h"

namespace zeph::x11 {

constexpr const char* noCanvas = "Cannot create native canvas.";
constexpr const char* lostServer = "Lost the X server.";
constexpr const char* noAnswer =
    "The X server does not answer.";  // caught by whoever sets a deadline

using Deadline = std::chrono::steady_clock::time_point;

class Connection {
 public:
  // Raises std::runtime_error: `noCanvas`.
  Connection();
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  xcb_connection_t* handle() const { return handle_; }
  int descriptor() const { return x.xcb_get_file_descriptor(handle_); }
  void flush() const { x.xcb_flush(handle_); }
  bool isLost() const { return x.xcb_connection_has_error(handle_) != 0; }
  // Raises std::runtime_error: `lostServer`.
  void requireServer() const;

  // The reply to a request; null if the server refuses it or is lost. Raises std::runtime_error if
  // there is a deadline and no reply until then.
  template <class Reply, class Cookie>
  Owned<Reply> await(Cookie cookie, std::optional<Deadline> deadline = {}) const {
    return Owned<Reply>(static_cast<Reply*>(awaitReply(cookie.sequence, deadline)));
  }
  bool hasReply(unsigned int request) const;

  xcb_atom_t atom(std::string_view name) const;
  // The bytes of a property; its type is NONE if there is no such property.
  Owned<xcb_get_property_reply_t> property(xcb_window_t window, xcb_atom_t name,
                                           std::uint32_t words,
                                           std::optional<Deadline> deadline) const;
  void select(xcb_window_t window, std::uint32_t events) const;

  const Xcb& x;

 private:
  void* awaitReply(unsigned int request, std::optional<Deadline> deadline) const;

  xcb_connection_t* handle_;
};

}  // namespace zeph::x11
