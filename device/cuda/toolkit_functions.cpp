// The functions of the driver and of NVRTC that VkFFT calls. They are looked up when they are first
// called, so that the library loads where there is neither. A function that is not found returns
// the error of a missing driver or compiler.
#include <cuda.h>
#include <cuda_runtime_api.h>
#include <nvrtc.h>

#include "device/cuda/direct3d_functions.h"
#include "device/cuda/nvrtc_library.h"

namespace {

// The version of the driver's interface to look functions up in: the oldest supported driver has
// it.
constexpr unsigned driverInterface = 12000;

void* driverFunction(const char* name) {
  void* function = nullptr;
  cudaDriverEntryPointQueryResult found = cudaDriverEntryPointSymbolNotFound;
  const cudaError_t result =
      cudaGetDriverEntryPointByVersion(name, &function, driverInterface, cudaEnableDefault, &found);
  return result == cudaSuccess && found == cudaDriverEntryPointSuccess ? function : nullptr;
}

template <class Function, class... Arguments>
CUresult callDriver(void* function, Function*, Arguments... arguments) {
  if (function == nullptr) return CUDA_ERROR_NOT_INITIALIZED;
  return reinterpret_cast<Function*>(function)(arguments...);
}

template <class Function, class... Arguments>
nvrtcResult callNvrtc(void* function, Function*, Arguments... arguments) {
  if (function == nullptr) return NVRTC_ERROR_INTERNAL_ERROR;
  return reinterpret_cast<Function*>(function)(arguments...);
}

// The runtime's ordinal of a device of the driver.
cudaError_t ordinalOf(CUdevice device, int* ordinal) {
  int count = 0;
  const cudaError_t counted = cudaGetDeviceCount(&count);
  if (counted != cudaSuccess) return counted;
  for (int candidate = 0; candidate < count; ++candidate) {
    CUdevice found = 0;
    if (cuDeviceGet(&found, candidate) != CUDA_SUCCESS || found != device) continue;
    *ordinal = candidate;
    return cudaSuccess;
  }
  return cudaErrorInvalidDevice;
}

}  // namespace

// Macros of cuda.h append a version to some functions' names (cuMemcpyHtoD becomes
// cuMemcpyHtoD_v2). The driver is asked for the plain name, written as text, in the version above.
#define ZEPH_DRIVER_CALL(name, function, ...)      \
  static void* const found = driverFunction(name); \
  return callDriver(found, &function, __VA_ARGS__)
#define ZEPH_NVRTC_CALL(function, ...)                             \
  static void* const found = zeph::cuda::nvrtcFunction(#function); \
  return callNvrtc(found, &function, __VA_ARGS__)

extern "C" {

CUresult cuDeviceGet(CUdevice* device, int ordinal) {
  ZEPH_DRIVER_CALL("cuDeviceGet", cuDeviceGet, device, ordinal);
}
CUresult cuDeviceGetAttribute(int* value, CUdevice_attribute attribute, CUdevice device) {
  ZEPH_DRIVER_CALL("cuDeviceGetAttribute", cuDeviceGetAttribute, value, attribute, device);
}
CUresult cuModuleLoadDataEx(CUmodule* module, const void* image, unsigned count,
                            CUjit_option* options, void** values) {
  ZEPH_DRIVER_CALL("cuModuleLoadDataEx", cuModuleLoadDataEx, module, image, count, options, values);
}
CUresult cuModuleUnload(CUmodule module) {
  ZEPH_DRIVER_CALL("cuModuleUnload", cuModuleUnload, module);
}
CUresult cuModuleGetFunction(CUfunction* function, CUmodule module, const char* name) {
  ZEPH_DRIVER_CALL("cuModuleGetFunction", cuModuleGetFunction, function, module, name);
}
CUresult cuModuleGetGlobal(CUdeviceptr* address, size_t* bytes, CUmodule module, const char* name) {
  ZEPH_DRIVER_CALL("cuModuleGetGlobal", cuModuleGetGlobal, address, bytes, module, name);
}
CUresult cuFuncSetAttribute(CUfunction function, CUfunction_attribute attribute, int value) {
  ZEPH_DRIVER_CALL("cuFuncSetAttribute", cuFuncSetAttribute, function, attribute, value);
}
CUresult cuMemcpyHtoD(CUdeviceptr to, const void* from, size_t bytes) {
  ZEPH_DRIVER_CALL("cuMemcpyHtoD", cuMemcpyHtoD, to, from, bytes);
}
CUresult cuLaunchKernel(CUfunction function, unsigned gridX, unsigned gridY, unsigned gridZ,
                        unsigned blockX, unsigned blockY, unsigned blockZ, unsigned sharedBytes,
                        CUstream stream, void** arguments, void** extra) {
  ZEPH_DRIVER_CALL("cuLaunchKernel", cuLaunchKernel, function, gridX, gridY, gridZ, blockX, blockY,
                   blockZ, sharedBytes, stream, arguments, extra);
}

// The driver has these two on Windows alone. Its graphics resources and the runtime's are the same
// objects.
cudaError_t cudaD3D11GetDevice(int* ordinal, IDXGIAdapter* adapter) {
  static void* const found = driverFunction("cuD3D11GetDevice");
  if (found == nullptr) return cudaErrorNotSupported;
  CUdevice device = 0;
  const CUresult result = callDriver(found, &cuD3D11GetDevice, &device, adapter);
  return result == CUDA_SUCCESS ? ordinalOf(device, ordinal) : static_cast<cudaError_t>(result);
}
cudaError_t cudaGraphicsD3D11RegisterResource(cudaGraphicsResource_t* resource,
                                              ID3D11Resource* buffer, unsigned flags) {
  static void* const found = driverFunction("cuGraphicsD3D11RegisterResource");
  if (found == nullptr) return cudaErrorNotSupported;
  return static_cast<cudaError_t>(callDriver(found, &cuGraphicsD3D11RegisterResource,
                                             reinterpret_cast<CUgraphicsResource*>(resource),
                                             buffer, flags));
}

nvrtcResult nvrtcCreateProgram(nvrtcProgram* program, const char* source, const char* name,
                               int count, const char* const* headers, const char* const* names) {
  ZEPH_NVRTC_CALL(nvrtcCreateProgram, program, source, name, count, headers, names);
}
nvrtcResult nvrtcDestroyProgram(nvrtcProgram* program) {
  ZEPH_NVRTC_CALL(nvrtcDestroyProgram, program);
}
nvrtcResult nvrtcAddNameExpression(nvrtcProgram program, const char* name) {
  ZEPH_NVRTC_CALL(nvrtcAddNameExpression, program, name);
}
nvrtcResult nvrtcCompileProgram(nvrtcProgram program, int count, const char* const* options) {
  ZEPH_NVRTC_CALL(nvrtcCompileProgram, program, count, options);
}
nvrtcResult nvrtcGetPTXSize(nvrtcProgram program, size_t* bytes) {
  ZEPH_NVRTC_CALL(nvrtcGetPTXSize, program, bytes);
}
nvrtcResult nvrtcGetPTX(nvrtcProgram program, char* code) {
  ZEPH_NVRTC_CALL(nvrtcGetPTX, program, code);
}
nvrtcResult nvrtcGetProgramLogSize(nvrtcProgram program, size_t* bytes) {
  ZEPH_NVRTC_CALL(nvrtcGetProgramLogSize, program, bytes);
}
nvrtcResult nvrtcGetProgramLog(nvrtcProgram program, char* text) {
  ZEPH_NVRTC_CALL(nvrtcGetProgramLog, program, text);
}

// VkFFT only prints this text, and its output is discarded.
const char* nvrtcGetErrorString(nvrtcResult) {
  return "";
}

}  // extern "C"
