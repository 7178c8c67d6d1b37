// Windows' texts are UTF-16, ours are UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace zeph::platform {

// What is not UTF-8 becomes U+FFFD.
std::wstring wideText(std::string_view utf8);
std::string utf8Text(std::wstring_view wide);

}  // namespace zeph::platform
