// The portal's save dialog: org.freedesktop.portal.FileChooser.SaveFile.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <new>
#include <string>

#include "platform/linux/dialog_backends.h"
#include "platform/linux/file_uri.h"
#include "platform/linux/portal/bus.h"

namespace zeph::platform {
namespace {

constexpr char portalName[] = "org.freedesktop.portal.Desktop";
constexpr char portalPath[] = "/org/freedesktop/portal/desktop";
constexpr char chooser[] = "org.freedesktop.portal.FileChooser";
constexpr char requestInterface[] = "org.freedesktop.portal.Request";

// The first member of the signal "Response".
enum Response : dbus_uint32_t { responseChosen = 0, responseCancelled = 1 };

void require(dbus_bool_t done) {
  if (done == 0) throw std::bad_alloc();
}

// Writes the members of a message, or of a container in it.
class Writer {
 public:
  explicit Writer(const Message& message) {
    busFunctions()->dbus_message_iter_init_append(message.get(), &at_);
  }

  void text(const std::string& value) {
    const char* characters = value.c_str();
    require(busFunctions()->dbus_message_iter_append_basic(&at_, DBUS_TYPE_STRING, &characters));
  }
  void number(dbus_uint32_t value) {
    require(busFunctions()->dbus_message_iter_append_basic(&at_, DBUS_TYPE_UINT32, &value));
  }
  // Including the terminating NUL.
  void bytes(const std::string& value) {
    const char* first = value.c_str();
    const int count = static_cast<int>(value.size()) + 1;
    container(DBUS_TYPE_ARRAY, "y", [&](Writer& array) {
      require(busFunctions()->dbus_message_iter_append_fixed_array(&array.at_, DBUS_TYPE_BYTE,
                                                                   &first, count));
    });
  }
  template <class Fill>
  void container(int type, const char* signature, const Fill& fill) {
    Writer inner;
    require(busFunctions()->dbus_message_iter_open_container(&at_, type, signature, &inner.at_));
    fill(inner);
    require(busFunctions()->dbus_message_iter_close_container(&at_, &inner.at_));
  }
  template <class Fill>
  void option(const char* key, const char* signature, const Fill& fill) {
    container(DBUS_TYPE_DICT_ENTRY, nullptr, [&](Writer& entry) {
      entry.text(key);
      entry.container(DBUS_TYPE_VARIANT, signature, fill);
    });
  }

 private:
  Writer() = default;
  DBusMessageIter at_{};
};

// Reads the members of a message, or of a container in it, in turn.
class Reader {
 public:
  explicit Reader(const Message& message) {
    ended_ = busFunctions()->dbus_message_iter_init(message.get(), &at_) == 0;
  }

  // DBUS_TYPE_INVALID at the end.
  int type() const {
    return ended_ ? DBUS_TYPE_INVALID : busFunctions()->dbus_message_iter_get_arg_type(constAt());
  }
  void next() { busFunctions()->dbus_message_iter_next(&at_); }
  Reader inner() const {
    Reader reader;
    busFunctions()->dbus_message_iter_recurse(constAt(), &reader.at_);
    return reader;
  }
  // The value of a string or an object path.
  std::string text() const {
    const char* value = "";
    busFunctions()->dbus_message_iter_get_basic(constAt(), static_cast<void*>(&value));
    return value;
  }
  dbus_uint32_t number() const {
    dbus_uint32_t value = 0;
    busFunctions()->dbus_message_iter_get_basic(constAt(), &value);
    return value;
  }

 private:
  Reader() = default;
  DBusMessageIter* constAt() const { return const_cast<DBusMessageIter*>(&at_); }
  DBusMessageIter at_{};
  bool ended_ = false;
};

void writeFilter(Writer& writer, const SaveQuestion& question) {
  writer.container(DBUS_TYPE_STRUCT, nullptr, [&](Writer& filter) {
    filter.text(question.filterName);
    filter.container(DBUS_TYPE_ARRAY, "(us)", [&](Writer& patterns) {
      patterns.container(DBUS_TYPE_STRUCT, nullptr, [&](Writer& pattern) {
        pattern.number(0);  // a pattern for names, not a MIME type
        pattern.text("*." + question.suffix);
      });
    });
  });
}

void writeOptions(Writer& options, const SaveQuestion& question) {
  options.option("filters", "a(sa(us))", [&](Writer& value) {
    value.container(DBUS_TYPE_ARRAY, "(sa(us))",
                    [&](Writer& filters) { writeFilter(filters, question); });
  });
  options.option("current_filter", "(sa(us))",
                 [&](Writer& value) { writeFilter(value, question); });
  const std::filesystem::path path = question.name;
  const std::string name = path.filename().string();
  if (busFunctions()->dbus_validate_utf8(name.c_str(), nullptr) != 0)
    options.option("current_name", "s", [&](Writer& value) { value.text(name); });
  if (path.has_parent_path()) {
    options.option("current_folder", "ay",
                   [&](Writer& value) { value.bytes(path.parent_path().string()); });
  }
}

std::string windowName(const void* window) {
  if (window == nullptr) return "";
  char text[32];
  std::snprintf(text, sizeof text, "x11:%jx", reinterpret_cast<std::uintmax_t>(window));
  return text;
}

Message makeRequest(const SaveQuestion& question) {
  Message request(
      busFunctions()->dbus_message_new_method_call(portalName, portalPath, chooser, "SaveFile"));
  if (!request) throw std::bad_alloc();
  Writer writer(request);
  writer.text(windowName(question.parent));
  writer.text(question.title);
  writer.container(DBUS_TYPE_ARRAY, "{sv}",
                   [&](Writer& options) { writeOptions(options, question); });
  return request;
}

// The first URI in the dictionary of results; empty if there is none.
std::string firstUri(Reader results) {
  for (; results.type() == DBUS_TYPE_DICT_ENTRY; results.next()) {
    Reader entry = results.inner();
    if (entry.type() != DBUS_TYPE_STRING || entry.text() != "uris") continue;
    entry.next();
    if (entry.type() != DBUS_TYPE_VARIANT) continue;
    const Reader value = entry.inner();
    if (value.type() != DBUS_TYPE_ARRAY) continue;
    const Reader addresses = value.inner();
    if (addresses.type() == DBUS_TYPE_STRING) return addresses.text();
  }
  return "";
}

std::optional<SaveAnswer> readResponse(const Message& signal) {
  Reader reader(signal);
  if (reader.type() != DBUS_TYPE_UINT32) return std::nullopt;
  const dbus_uint32_t response = reader.number();
  if (response == responseCancelled) return SaveAnswer{SaveOutcome::cancelled, ""};
  reader.next();
  if (response != responseChosen || reader.type() != DBUS_TYPE_ARRAY) return std::nullopt;
  const auto path = pathOfFileUri(firstUri(reader.inner()));
  // A URI without a local path cannot be written to.
  return path ? SaveAnswer{SaveOutcome::chosen, *path} : SaveAnswer();
}

bool isSignal(const Message& message, const char* interface, const char* name) {
  return busFunctions()->dbus_message_is_signal(message.get(), interface, name) != 0;
}

bool isFrom(const Message& message, const std::string& object) {
  return busFunctions()->dbus_message_has_path(message.get(), object.c_str()) != 0;
}

// Whether the portal has left the bus: then no answer will come.
bool isEndOfPortal(const Message& message) {
  if (!isSignal(message, DBUS_INTERFACE_DBUS, "NameOwnerChanged")) return false;
  Reader reader(message);
  if (reader.type() != DBUS_TYPE_STRING || reader.text() != portalName) return false;
  reader.next();
  reader.next();
  return reader.type() == DBUS_TYPE_STRING && reader.text().empty();
}

std::optional<SaveAnswer> waitForResponse(Bus& bus, const std::string& request) {
  while (const Message message = bus.receive()) {
    if (isEndOfPortal(message)) return std::nullopt;
    if (isSignal(message, requestInterface, "Response") && isFrom(message, request))
      return readResponse(message);
  }
  return std::nullopt;
}

}  // namespace

// Listens for the response before making the call, because it may arrive before the call's reply.
std::optional<SaveAnswer> askPortal(const SaveQuestion& question) {
  Bus bus;
  if (!bus) return std::nullopt;
  bus.listen("type='signal',sender='" + std::string(portalName) + "',interface='" +
             requestInterface + "',member='Response'");
  bus.listen("type='signal',sender='" DBUS_SERVICE_DBUS "',member='NameOwnerChanged',arg0='" +
             std::string(portalName) + "'");
  const Message reply = bus.call(makeRequest(question));
  if (!reply) return std::nullopt;
  const Reader handle(reply);
  if (handle.type() != DBUS_TYPE_OBJECT_PATH) return std::nullopt;
  return waitForResponse(bus, handle.text());
}

}  // namespace zeph::platform
