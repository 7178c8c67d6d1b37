// The two ways to open a save dialog on a Linux desktop. Each returns nothing if it cannot open
// one, so that the other can be tried.
#pragma once

#include <optional>

#include "platform/dialog.h"

namespace zeph::platform {

// By the desktop's portal, over the session's D-Bus.
std::optional<SaveAnswer> askPortal(const SaveQuestion& question);

// By the first of the common dialog programs that is installed and works.
std::optional<SaveAnswer> askDialogProgram(const SaveQuestion& question);

}  // namespace zeph::platform
