// The form in which an "export" crosses the boundary.
#pragma once

#include "boundary/json_reading.h"
#include "controller/export_task.h"

namespace zeph {

// The files that a request names, a picture's size with it. These never raise: members are read in
// the order in which they are acted on, and the first that is refused ends the reading and becomes
// the record's refusal. A view fills in its own display settings,
FrameFiles readViewExport(const Json& request);
// and an engine's export has them in the request.
FrameFiles readEngineExport(const Json& request);

}  // namespace zeph
