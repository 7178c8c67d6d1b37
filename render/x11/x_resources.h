// The display's resolution from its settings.
#pragma once

#include <string_view>

namespace zeph::x11 {

// "Xft.dpi" in the text of the resource manager, divided by 96; 1 if it is missing or not a
// positive number.
double scaleOfResources(std::string_view text);

}  // namespace zeph::x11
