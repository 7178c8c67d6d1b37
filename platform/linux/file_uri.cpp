#include "platform/linux/file_uri.h"

#include <charconv>

namespace zeph::platform {
namespace {

constexpr std::string_view scheme = "file://";
constexpr std::string_view thisHost = "localhost";

}  // namespace

std::optional<std::string> pathOfFileUri(std::string_view uri) {
  if (!uri.starts_with(scheme)) return std::nullopt;
  uri.remove_prefix(scheme.size());
  if (uri.starts_with(thisHost)) uri.remove_prefix(thisHost.size());
  if (!uri.starts_with('/')) return std::nullopt;
  std::string path;
  for (std::size_t k = 0; k < uri.size(); ++k) {
    if (uri[k] != '%') {
      path += uri[k];
      continue;
    }
    unsigned char byte = 0;
    const std::string_view digits = uri.substr(k + 1, 2);
    const char* end = digits.data() + digits.size();
    if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end || byte == 0)
      return std::nullopt;
    path += static_cast<char>(byte);
    k += 2;
  }
  return path;
}

}  // namespace zeph::platform
