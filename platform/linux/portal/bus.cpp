#include "platform/linux/portal/bus.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "platform/dynamic_library.h"
#include "platform/fork.h"

namespace zeph::platform {
namespace {

// With a bus, which should answer at once. In milliseconds.
constexpr int patience = 3000;
constexpr int authenticationStep = 100;

struct Error {
  Error() { busFunctions()->dbus_error_init(&value); }
  ~Error() { busFunctions()->dbus_error_free(&value); }
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;
  DBusError value{};
};

// Null members if the library is missing.
BusFunctions* load() {
  void* library = openLibrary("libdbus-1.so.3");
  if (library == nullptr) return new BusFunctions{};
  BusFunctions found{};
  bool whole = true;
#define ZEPH_BUS_FIND(name) whole = find(library, #name, found.name) && whole
  ZEPH_BUS_FUNCTIONS(ZEPH_BUS_FIND);
#undef ZEPH_BUS_FIND
  return whole ? new BusFunctions(found) : new BusFunctions{};
}

platform::MadeOnce<BusFunctions> functionsOfProcess;

// The bus of the user's session. If there is none, none is started.
std::string sessionAddress() {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && *address != '\0') {
    return std::string(address).starts_with("autolaunch:") ? "" : address;
  }
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  if (folder == nullptr || *folder != '/') return "";
  const std::filesystem::path socket = std::filesystem::path(folder) / "bus";
  std::error_code error;
  return std::filesystem::is_socket(socket, error) ? "unix:path=" + socket.string() : "";
}

}  // namespace

const BusFunctions* busFunctions() {
  const BusFunctions& found = functionsOfProcess.get(load);
  return found.dbus_error_init != nullptr ? &found : nullptr;
}

Bus::Bus() {
  const std::string address = sessionAddress();
  if (address.empty() || busFunctions() == nullptr) return;
  const BusFunctions& f = *busFunctions();
  // By default libdbus ignores SIGPIPE, and ends the process when the connection is lost.
  f.dbus_connection_set_change_sigpipe(FALSE);
  Error error;
  connection_ = f.dbus_connection_open_private(address.c_str(), &error.value);
  if (connection_ == nullptr) return;
  f.dbus_connection_set_exit_on_disconnect(connection_, FALSE);
  if (!authenticate() || !introduce()) close();
}

Bus::~Bus() {
  if (connection_ != nullptr) close();
}

void Bus::close() {
  busFunctions()->dbus_connection_close(connection_);
  busFunctions()->dbus_connection_unref(connection_);
  connection_ = nullptr;
}

// Before this is done no message can be sent, and libdbus would wait for that without a limit.
bool Bus::authenticate() {
  const BusFunctions& f = *busFunctions();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
  while (std::chrono::steady_clock::now() < deadline) {
    if (f.dbus_connection_get_is_authenticated(connection_) != 0) return true;
    if (f.dbus_connection_read_write(connection_, authenticationStep) == 0) return false;
  }
  return false;
}

// The first message on every connection. Libdbus would wait longer for its answer.
bool Bus::introduce() {
  const BusFunctions& f = *busFunctions();
  const Message hello(f.dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                     DBUS_INTERFACE_DBUS, "Hello"));
  const Message answer = hello ? call(hello, patience) : nullptr;
  DBusMessageIter members;
  if (!answer || f.dbus_message_iter_init(answer.get(), &members) == 0 ||
      f.dbus_message_iter_get_arg_type(&members) != DBUS_TYPE_STRING)
    return false;
  const char* name = "";
  f.dbus_message_iter_get_basic(&members, static_cast<void*>(&name));
  return f.dbus_bus_set_unique_name(connection_, name) != 0;
}

// The bus takes the messages of a connection in their order, so its answer is not waited for.
void Bus::listen(const std::string& rule) {
  busFunctions()->dbus_bus_add_match(connection_, rule.c_str(), nullptr);
}

Message Bus::call(const Message& request) {
  return call(request, DBUS_TIMEOUT_USE_DEFAULT);
}

Message Bus::call(const Message& request, int milliseconds) {
  Error error;
  return Message(busFunctions()->dbus_connection_send_with_reply_and_block(
      connection_, request.get(), milliseconds, &error.value));
}

Message Bus::receive() {
  const BusFunctions& f = *busFunctions();
  for (;;) {
    if (DBusMessage* message = f.dbus_connection_pop_message(connection_)) return Message(message);
    if (f.dbus_connection_read_write(connection_, -1) == 0) return nullptr;
  }
}

}  // namespace zeph::platform
