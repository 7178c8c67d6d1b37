// The NVIDIA GPUs as devices. Nothing of CUDA is needed to load the library: the runtime is part of
// it and opens the driver when the devices are first counted; a machine without a driver has none.
#pragma once

#include "device/device_kind.h"

namespace zeph::cuda {

extern const DeviceKind deviceKind;

cudaError_t runtimeVersion(int* version);
// Fails where there is no driver.
cudaError_t driverVersion(int* version);

}  // namespace zeph::cuda
