// What a host is told of a view.
#pragma once

#include "boundary/json_reading.h"
#include "controller/ui_handle.h"

namespace zeph {

// Takes the handle's mutex.
Json statusReport(const UIHandle& ui);

}  // namespace zeph
