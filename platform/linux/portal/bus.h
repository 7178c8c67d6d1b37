// The session's D-Bus, through libdbus-1. The library is loaded at its first use; without it there
// is just no bus.
#pragma once

#include <dbus/dbus.h>

#include <memory>
#include <string>

namespace zeph::platform {

// The functions that are used, each under its own name.
#define ZEPH_BUS_FUNCTIONS(use)                   \
  use(dbus_bus_add_match);                        \
  use(dbus_bus_set_unique_name);                  \
  use(dbus_connection_close);                     \
  use(dbus_connection_get_is_authenticated);      \
  use(dbus_connection_open_private);              \
  use(dbus_connection_pop_message);               \
  use(dbus_connection_read_write);                \
  use(dbus_connection_send_with_reply_and_block); \
  use(dbus_connection_set_change_sigpipe);        \
  use(dbus_connection_set_exit_on_disconnect);    \
  use(dbus_connection_unref);                     \
  use(dbus_error_free);                           \
  use(dbus_error_init);                           \
  use(dbus_message_has_path);                     \
  use(dbus_message_is_signal);                    \
  use(dbus_message_iter_append_basic);            \
  use(dbus_message_iter_append_fixed_array);      \
  use(dbus_message_iter_close_container);         \
  use(dbus_message_iter_get_arg_type);            \
  use(dbus_message_iter_get_basic);               \
  use(dbus_message_iter_init);                    \
  use(dbus_message_iter_init_append);             \
  use(dbus_message_iter_next);                    \
  use(dbus_message_iter_open_container);          \
  use(dbus_message_iter_recurse);                 \
  use(dbus_message_new_method_call);              \
  use(dbus_message_unref);                        \
  use(dbus_validate_utf8)

struct BusFunctions {
#define ZEPH_BUS_MEMBER(name) decltype(&::name) name
  ZEPH_BUS_FUNCTIONS(ZEPH_BUS_MEMBER);
#undef ZEPH_BUS_MEMBER
};

// Null if the library is missing.
const BusFunctions* busFunctions();

struct MessageRelease {
  void operator()(DBusMessage* message) const { busFunctions()->dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, MessageRelease>;

// A private connection, separate from any that the host has.
class Bus {
 public:
  // Without a session bus, or without the library, there is no connection.
  Bus();
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  explicit operator bool() const { return connection_ != nullptr; }

  // Signals that fit the rule are received from here on.
  void listen(const std::string& rule);

  // The reply, or null after an error, or if there is none for half a minute.
  Message call(const Message& request);

  // The next message of any kind, or null once the connection has ended.
  Message receive();

 private:
  bool authenticate();
  bool introduce();
  void close();
  Message call(const Message& request, int milliseconds);

  DBusConnection* connection_ = nullptr;
};

}  // namespace zeph::platform
