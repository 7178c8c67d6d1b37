// The GPUs, as CUDA's runtime shows them.
#include <cstdio>
#include <cstring>

#include "tests/emulation/state.h"

using namespace zeph::emulation;

namespace {

cudaError_t driverObstacle() {
  const cudaError_t found = obstacle();
  return found == cudaErrorInsufficientDriver || found == cudaErrorNoDevice ? found : cudaSuccess;
}

bool isGpu(int ordinal) {
  return ordinal >= 0 && ordinal < state().gpus();
}

const Gpu& gpu(int ordinal) {
  return state().machine.gpus[static_cast<std::size_t>(ordinal)];
}

}  // namespace

extern "C" {

cudaError_t cudaRuntimeGetVersion(int* version) {
  return query("cudaRuntimeGetVersion", [=] {
    *version = CUDART_VERSION;
    return cudaSuccess;
  });
}

cudaError_t cudaDriverGetVersion(int* version) {
  return query("cudaDriverGetVersion", [=] {
    *version = state().machine.driverVersion;
    return cudaSuccess;
  });
}

cudaError_t cudaGetDeviceCount(int* count) {
  return query("cudaGetDeviceCount", [=] {
    *count = 0;
    const cudaError_t found = driverObstacle();
    if (found == cudaSuccess) *count = state().gpus();
    return found;
  });
}

cudaError_t cudaSetDevice(int ordinal) {
  return query("cudaSetDevice", [=] {
    const cudaError_t found = driverObstacle();
    if (found != cudaSuccess) return found;
    if (!isGpu(ordinal)) return cudaErrorInvalidDevice;
    currentGpu() = ordinal;
    return state().faults[static_cast<std::size_t>(ordinal)];
  });
}

cudaError_t cudaGetDevice(int* ordinal) {
  return query("cudaGetDevice", [=] {
    *ordinal = currentGpu();
    return driverObstacle();
  });
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* properties, int ordinal) {
  return query("cudaGetDeviceProperties", [=] {
    const cudaError_t found = driverObstacle();
    if (found != cudaSuccess) return found;
    if (!isGpu(ordinal)) return cudaErrorInvalidDevice;
    *properties = {};
    std::snprintf(properties->name, sizeof(properties->name), "Emulated GPU %d", ordinal);
    std::memcpy(properties->uuid.bytes, gpu(ordinal).uuid.data(), gpu(ordinal).uuid.size());
    properties->totalGlobalMem = gpu(ordinal).memory;
    properties->major = gpu(ordinal).major;
    properties->minor = gpu(ordinal).minor;
    return cudaSuccess;
  });
}

cudaError_t cudaDeviceGetAttribute(int* value, cudaDeviceAttr attribute, int ordinal) {
  return query("cudaDeviceGetAttribute", [=] {
    const cudaError_t found = driverObstacle();
    if (found != cudaSuccess) return found;
    if (!isGpu(ordinal)) return cudaErrorInvalidDevice;
    switch (attribute) {
      case cudaDevAttrComputeCapabilityMajor:
        *value = gpu(ordinal).major;
        return cudaSuccess;
      case cudaDevAttrComputeCapabilityMinor:
        *value = gpu(ordinal).minor;
        return cudaSuccess;
      default:
        return cudaErrorInvalidValue;
    }
  });
}

// Clears the thread's last error, but not a fault.
cudaError_t cudaGetLastError() {
  const std::lock_guard lock(state().mutex);
  const cudaError_t error = lastError();
  lastError() = cudaSuccess;
  return error != cudaSuccess ? error : obstacle();
}

const char* cudaGetErrorString(cudaError_t error) {
  switch (error) {
    case cudaSuccess:
      return "no error";
    case cudaErrorInvalidValue:
      return "invalid argument";
    case cudaErrorMemoryAllocation:
      return "out of memory";
    case cudaErrorInvalidConfiguration:
      return "invalid configuration argument";
    case cudaErrorInsufficientDriver:
      return "CUDA driver version is insufficient for CUDA runtime version";
    case cudaErrorInvalidDeviceFunction:
      return "invalid device function";
    case cudaErrorNoDevice:
      return "no CUDA-capable device is detected";
    case cudaErrorInvalidDevice:
      return "invalid device ordinal";
    case cudaErrorNoKernelImageForDevice:
      return "no kernel image is available for execution on the device";
    case cudaErrorInvalidResourceHandle:
      return "invalid resource handle";
    case cudaErrorSymbolNotFound:
      return "named symbol not found";
    case cudaErrorNotReady:
      return "device not ready";
    case cudaErrorIllegalAddress:
      return "an illegal memory access was encountered";
    case cudaErrorLaunchFailure:
      return "unspecified launch failure";
    case cudaErrorNotSupported:
      return "operation not supported";
    case cudaErrorStreamCaptureUnsupported:
      return "operation not permitted when stream is capturing";
    case cudaErrorStreamCaptureInvalidated:
      return "operation failed due to a previous error during capture";
    default:
      return "unknown error";
  }
}

}  // extern "C"
