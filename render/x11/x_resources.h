// What the display's settings say of its resolution.
#pragma once

#include <string_view>

namespace zeph::x11 {

// "Xft.dpi" of a resource manager's text, over 96; 1 where it is missing or no positive number.
float scaleOfResources(std::string_view text);

}  // namespace zeph::x11
