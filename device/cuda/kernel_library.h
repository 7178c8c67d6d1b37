// Finds the kernels in the machine code that is embedded in this library.
#pragma once

#include <cuda_runtime_api.h>

namespace zeph::cuda {

// The kernel of a name, as cudaLaunchKernel takes it, the same for every device. The code is loaded
// when the first kernel is asked for. Fails, or lets the launch fail, on a device for which there
// is no code.
::cudaError_t findKernel(const char* name, const void** function);

}  // namespace zeph::cuda
