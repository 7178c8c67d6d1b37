// The main thread and the device of the process, and the description of the machine for the host.
#pragma once

#include <cstdint>
#include <string>

#include "boundary/json_reading.h"

namespace zeph {

// Written only by initialize().
extern std::uint32_t mainThreadId;  // 0 before the first call, and no thread's id
extern std::int32_t deviceId;       // the device that every call selects
extern std::string& gpuName;        // never destroyed: calls may outlive the statics at exit

// Makes the calling thread the main thread, chooses the device and describes the system. May be
// called again from the same thread. Raises std::runtime_error from another one, and for a device
// that cannot be used.
Json initialize();

// The index in ZEPHANE_DEVICE, which may be one that does not exist, or else the first device that
// runs kernels: a GPU if there is one, otherwise the processor. Raises std::invalid_argument or
// std::out_of_range.
std::int32_t chooseDevice();

}  // namespace zeph
