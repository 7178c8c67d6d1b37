// The request of an "export" as a plain record.
#pragma once

#include "boundary/json_reading.h"
#include "controller/export_task.h"

namespace zeph {

// Both read the paths and the picture's size, in the order in which they are acted on. A member
// that is refused ends the reading; its exception is not raised but stored in the record.

// The display settings are left for the view to fill in.
FrameFiles readViewExport(const Json& request);
// The display settings come from the request.
FrameFiles readEngineExport(const Json& request);

}  // namespace zeph
