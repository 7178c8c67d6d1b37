// What a click on the canvas does.
#pragma once

#include "controller/ui_handle.h"
#include "render/canvas.h"

namespace zeph {

// Presses the button of the interface that lies there, once the flow is ready. Raises nothing: the
// handle reports a failure.
void actOnClick(UIHandle& ui, const Click& click);

}  // namespace zeph
