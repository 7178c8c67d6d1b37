// The NVIDIA GPUs as devices. The library loads on a machine without CUDA: the runtime is linked in
// and opens the driver when the devices are first counted; without a driver there are none.
#pragma once

#include "device/device_kind.h"

namespace zeph::cuda {

extern const DeviceKind deviceKind;

cudaError_t runtimeVersion(int* version);
// Fails where there is no driver.
cudaError_t driverVersion(int* version);

}  // namespace zeph::cuda
