// The kernels that are part of the program, and their launches by CUDA's runtime.
#include <algorithm>
#include <cstring>

#include "tests/emulation/own_kernels.h"
#include "tests/emulation/work.h"

using namespace zeph::emulation;

namespace {

// The dynamic shared memory that a kernel may use without setting an attribute.
constexpr std::size_t usualSharedBytes = 48 * 1024;

bool hasCode(const Gpu& gpu) {
  return 10 * gpu.major + gpu.minor >= oldestCapability;
}

}  // namespace

extern "C" {

cudaError_t cudaLibraryLoadData(cudaLibrary_t* library, const void* code, cudaJitOption*, void**,
                                unsigned, cudaLibraryOption*, void**, unsigned) {
  return call("cudaLibraryLoadData", [=] {
    if (code == nullptr) return cudaErrorInvalidValue;
    *library = reinterpret_cast<cudaLibrary_t>(const_cast<void*>(code));
    return cudaSuccess;
  });
}

cudaError_t cudaLibraryGetKernel(cudaKernel_t* kernel, cudaLibrary_t library, const char* name) {
  return call("cudaLibraryGetKernel", [=] {
    const auto* image = reinterpret_cast<const KernelImage*>(library);
    const KernelFunction* end = image->kernels + image->count;
    const KernelFunction* found = std::find_if(image->kernels, end, [name](const auto& candidate) {
      return std::strcmp(candidate.name, name) == 0;
    });
    if (found == end) return cudaErrorSymbolNotFound;
    state().kernels.insert(found);
    *kernel = reinterpret_cast<cudaKernel_t>(const_cast<KernelFunction*>(found));
    return cudaSuccess;
  });
}

cudaError_t cudaLaunchKernel(const void* function, dim3 grid, dim3 block, void** arguments,
                             std::size_t sharedBytes, cudaStream_t stream) {
  return call("cudaLaunchKernel", [=] {
    const auto* kernel = static_cast<const KernelFunction*>(function);
    if (!state().kernels.contains(kernel)) return cudaErrorInvalidDeviceFunction;
    if (!hasCode(state().machine.gpus[static_cast<std::size_t>(currentGpu())]))
      return cudaErrorNoKernelImageForDevice;
    static const auto always = std::make_shared<const bool>(true);
    const Launch launch = {*kernel, {grid, block, sharedBytes}, usualSharedBytes, always};
    return queueLaunch(stream, launch, arguments);
  });
}

}  // extern "C"
