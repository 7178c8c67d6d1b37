// The kernels' machine code, which is part of this library, as functions of the devices.
#pragma once

#include <cuda_runtime_api.h>

namespace zeph::cuda {

// The kernel of a name, as cudaLaunchKernel takes it, on every device alike. The code is loaded
// when the first kernel is asked for; a device that it has nothing for fails here or at the launch.
::cudaError_t findKernel(const char* name, const void** function);

}  // namespace zeph::cuda
