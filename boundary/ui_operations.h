// The operations that a host sends to a view.
#pragma once

#include "boundary/json_reading.h"
#include "controller/ui_handle.h"

namespace zeph {

// Runs the operation that the request names under "op" and answers with the status report. None
// but "export" and "save" waits for anything. Raises for what is refused.
Json runUiOperation(UIHandle& ui, const Json& request);

}  // namespace zeph
