// Turns a device call's failure into an exception that names the call.
#pragma once

#include "device/runtime.h"

namespace zeph {

// Raises std::runtime_error with the text "CALL: ERROR" unless `result` is cudaSuccess. `call` is
// the text of the call, part of the message that the host sees.
void check(cudaError_t result, const char* call);

}  // namespace zeph
