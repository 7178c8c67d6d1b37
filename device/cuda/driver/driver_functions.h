// The functions of CUDA's driver. Its library comes with the driver of the GPU, and is opened when
// the first of them is needed.
#pragma once

#include <cuda.h>
#include <cuda_runtime_api.h>

// Macros of cuda.h append a version to some of these names; the driver is asked for the plain name
// in one version of its interface.
#define ZEPH_DRIVER_FUNCTIONS(X)        \
  X(cuInit)                             \
  X(cuGetErrorString)                   \
  X(cuDeviceGet)                        \
  X(cuDeviceGetCount)                   \
  X(cuDeviceGetName)                    \
  X(cuDeviceGetUuid)                    \
  X(cuDeviceGetAttribute)               \
  X(cuDeviceTotalMem)                   \
  X(cuDevicePrimaryCtxRetain)           \
  X(cuCtxSetCurrent)                    \
  X(cuCtxSynchronize)                   \
  X(cuMemGetInfo)                       \
  X(cuMemAlloc)                         \
  X(cuMemFree)                          \
  X(cuMemHostAlloc)                     \
  X(cuMemFreeHost)                      \
  X(cuMemcpyHtoD)                       \
  X(cuMemcpyDtoH)                       \
  X(cuMemcpyDtoD)                       \
  X(cuMemcpyHtoDAsync)                  \
  X(cuMemcpyDtoHAsync)                  \
  X(cuMemcpyDtoDAsync)                  \
  X(cuMemsetD8Async)                    \
  X(cuImportExternalMemory)             \
  X(cuExternalMemoryGetMappedBuffer)    \
  X(cuDestroyExternalMemory)            \
  X(cuGraphicsResourceSetMapFlags)      \
  X(cuGraphicsMapResources)             \
  X(cuGraphicsResourceGetMappedPointer) \
  X(cuGraphicsUnmapResources)           \
  X(cuGraphicsUnregisterResource)       \
  X(cuStreamCreate)                     \
  X(cuStreamSynchronize)                \
  X(cuStreamDestroy)                    \
  X(cuStreamBeginCapture)               \
  X(cuStreamEndCapture)                 \
  X(cuEventCreate)                      \
  X(cuEventRecord)                      \
  X(cuEventSynchronize)                 \
  X(cuEventElapsedTime)                 \
  X(cuEventDestroy)                     \
  X(cuGraphInstantiateWithFlags)        \
  X(cuGraphDestroy)                     \
  X(cuGraphLaunch)                      \
  X(cuGraphExecDestroy)                 \
  X(cuLibraryLoadData)                  \
  X(cuLibraryGetKernel)                 \
  X(cuLaunchKernel)

namespace zeph::cuda {

struct Driver {
// NOLINTNEXTLINE(bugprone-macro-parentheses): it is the name of a member
#define ZEPH_MEMBER(name) decltype(&::name) name = nullptr;
  ZEPH_DRIVER_FUNCTIONS(ZEPH_MEMBER)
#undef ZEPH_MEMBER
  // Finds any function by its plain name and a version of the interface.
  decltype(&::cuGetProcAddress) cuGetProcAddress = nullptr;

  int version = 0;  // 0 without a driver
  // Why nothing can be called: no driver, one that is too old for the kernels, no GPU.
  ::cudaError_t state = ::cudaErrorInsufficientDriver;
};

// Looks everything up at the first call.
const Driver& driver();

}  // namespace zeph::cuda
