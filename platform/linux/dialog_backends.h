// The ways in which a desktop on Linux is asked for a path. Each answers nothing where it cannot
// ask, so that another may.
#pragma once

#include <optional>

#include "platform/dialog.h"

namespace zeph::platform {

// The desktop's portal, over the session's D-Bus.
std::optional<SaveAnswer> askPortal(const SaveQuestion& question);

// The first of the common dialog programs that is there and works.
std::optional<SaveAnswer> askDialogProgram(const SaveQuestion& question);

}  // namespace zeph::platform
