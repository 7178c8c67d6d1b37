// The render thread of a view: it alone makes, uses and destroys the renderer. At most sixty times
// a second it shows the newest frame with the interface on top; in between it writes the files of
// exports and handles clicks.
#pragma once

#include "controller/ui_handle.h"
#include "render/canvas.h"

namespace zeph {

// The thread's main function, for the frames of a device. A failure ends the thread, and the handle
// reports it.
void renderFrames(UIHandle& ui, Canvas& canvas, int device);

}  // namespace zeph
