// The render thread of a view: it alone makes, uses and destroys the renderer. Sixty times a second
// at most it shows the newest frame with the interface on top; in between it does the renderer's
// other work and hears clicks.
#pragma once

#include "controller/ui_handle.h"

namespace zeph {

// Lays the canvas into the host's window and starts the thread, for the frames of a device. Called
// without the handle's mutex. Raises std::runtime_error, and std::system_error where a thread
// cannot be had.
void attachCanvas(UIHandle& ui, void* parent, int device);

}  // namespace zeph
