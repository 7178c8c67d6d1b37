// The operations that a host sends to a view.
#pragma once

#include "boundary/json_reading.h"
#include "render/view.h"

namespace zeph {

// Runs the operation that the request names under "op" and returns the status report. Only "export"
// and "save" block. A refused request raises an exception.
Json runUiOperation(View& view, const Json& request);

}  // namespace zeph
