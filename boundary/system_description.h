// What the process has settled on, and how the machine is described to the host.
#pragma once

#include <cstdint>
#include <string>

#include "boundary/json_reading.h"

namespace zeph {

// Written only by initialize().
extern std::uint32_t mainThreadId;  // 0 before the first call, and no thread's id
extern std::int32_t deviceId;       // the device that every call selects
extern std::string gpuName;

// Makes the calling thread the main thread, chooses the device and describes the system. May be
// called again from the same thread. Raises std::runtime_error from another one, and for a device
// that cannot be had.
Json initialize();

// The device that ZEPHANE_DEVICE names or, without it, the first: a GPU where there is one, else
// the processor. Whether there is such a device is not tested. Raises std::invalid_argument or
// std::out_of_range.
std::int32_t chooseDevice();

}  // namespace zeph
