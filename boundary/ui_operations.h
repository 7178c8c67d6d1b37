// The operations that a host sends to a view.
#pragma once

#include "boundary/json_reading.h"
#include "render/view.h"

namespace zeph {

// Runs the operation that the request names under "op" and answers with the status report. None
// but "export" and "save" waits for anything. Raises for what is refused.
Json runUiOperation(View& view, const Json& request);

}  // namespace zeph
