// The file URIs of desktops (RFC 8089).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zeph::platform {

// The path of a local file's URI, "file:///...", with percent escapes decoded; nothing for any
// other URI.
std::optional<std::string> pathOfFileUri(std::string_view uri);

}  // namespace zeph::platform
