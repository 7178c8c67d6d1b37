// Addresses of files, as desktops write them (RFC 8089).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zeph::platform {

// The path of a local file's address, "file:///..." with its percent signs decoded; nothing for
// any other address.
std::optional<std::string> pathOfFileUri(std::string_view uri);

}  // namespace zeph::platform
