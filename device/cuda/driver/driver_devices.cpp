// The runtime's functions for devices and errors.
#include <cstring>
#include <map>
#include <mutex>

#include "device/cuda/driver/runtime_call.h"
#include "device/error_text.h"

namespace zeph::cuda {
namespace {

// Retained once per process and never released: the driver does that at its end.
struct Contexts {
  std::mutex mutex;
  std::map<int, CUcontext> ofDevice;
};

Contexts& contexts() {
  static auto* const made = new Contexts;
  return *made;
}

CUresult contextOf(int ordinal, CUcontext& context) {
  Contexts& shared = contexts();
  const std::lock_guard lock(shared.mutex);
  const auto found = shared.ofDevice.find(ordinal);
  if (found != shared.ofDevice.end()) {
    context = found->second;
    return CUDA_SUCCESS;
  }
  CUdevice device = 0;
  CUresult result = driver().cuDeviceGet(&device, ordinal);
  if (result == CUDA_SUCCESS) result = driver().cuDevicePrimaryCtxRetain(&context, device);
  if (result == CUDA_SUCCESS) shared.ofDevice.emplace(ordinal, context);
  return result;
}

thread_local bool hasEntered = false;

}  // namespace

int& currentDevice() {
  thread_local int ordinal = 0;
  return ordinal;
}

::cudaError_t& lastError() {
  thread_local ::cudaError_t error = ::cudaSuccess;
  return error;
}

::cudaError_t enterDevice(int ordinal) {
  CUcontext context = nullptr;
  CUresult result = contextOf(ordinal, context);
  if (result == CUDA_SUCCESS) result = driver().cuCtxSetCurrent(context);
  hasEntered = result == CUDA_SUCCESS;
  return asRuntimes(result);
}

::cudaError_t enterCurrentDevice() {
  return hasEntered ? ::cudaSuccess : enterDevice(currentDevice());
}

}  // namespace zeph::cuda

using namespace zeph::cuda;

namespace {

CUresult describe(const Driver& found, int ordinal, cudaDeviceProp& properties) {
  CUdevice device = 0;
  CUuuid uuid = {};
  CUresult result = found.cuDeviceGet(&device, ordinal);
  if (result == CUDA_SUCCESS)
    result = found.cuDeviceGetName(properties.name, sizeof(properties.name), device);
  if (result == CUDA_SUCCESS) result = found.cuDeviceGetUuid(&uuid, device);
  std::memcpy(&properties.uuid, &uuid, sizeof(uuid));
  if (result == CUDA_SUCCESS) result = found.cuDeviceTotalMem(&properties.totalGlobalMem, device);
  if (result == CUDA_SUCCESS)
    result = found.cuDeviceGetAttribute(&properties.major,
                                        CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR, device);
  if (result == CUDA_SUCCESS)
    result = found.cuDeviceGetAttribute(&properties.minor,
                                        CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR, device);
  return result;
}

}  // namespace

extern "C" {

// The version of CUDA that this library was built with, as where the runtime is linked in.
cudaError_t cudaRuntimeGetVersion(int* version) {
  *version = CUDART_VERSION;
  return cudaSuccess;
}

cudaError_t cudaDriverGetVersion(int* version) {
  *version = driver().version;
  return cudaSuccess;
}

cudaError_t cudaGetDeviceCount(int* count) {
  *count = 0;
  return query([=](const Driver& found) { return found.cuDeviceGetCount(count); });
}

// The ordinal counts as selected even if the device fails then.
cudaError_t cudaSetDevice(int ordinal) {
  return query([=](const Driver& found) {
    CUdevice device = 0;
    const CUresult result = found.cuDeviceGet(&device, ordinal);
    if (result != CUDA_SUCCESS) return result;
    currentDevice() = ordinal;
    return static_cast<CUresult>(enterDevice(ordinal));
  });
}

cudaError_t cudaGetDevice(int* ordinal) {
  return query([=](const Driver&) {
    *ordinal = currentDevice();
    return CUDA_SUCCESS;
  });
}

// Only the members that the library reads; the others are zero.
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* properties, int ordinal) {
  *properties = {};
  return query([=](const Driver& found) { return describe(found, ordinal, *properties); });
}

cudaError_t cudaDeviceGetAttribute(int* value, cudaDeviceAttr attribute, int ordinal) {
  return query([=](const Driver& found) {
    CUdevice device = 0;
    const CUresult result = found.cuDeviceGet(&device, ordinal);
    if (result != CUDA_SUCCESS) return result;
    return found.cuDeviceGetAttribute(value, static_cast<CUdevice_attribute>(attribute), device);
  });
}

cudaError_t cudaDeviceSynchronize() {
  return call([](const Driver& found) { return found.cuCtxSynchronize(); });
}

cudaError_t cudaGetLastError() {
  const cudaError_t error = lastError();
  lastError() = cudaSuccess;
  return error;
}

// A driver that is missing or too old cannot be asked.
const char* cudaGetErrorString(cudaError_t error) {
  const char* text = nullptr;
  if (driver().cuGetErrorString == nullptr ||
      driver().cuGetErrorString(static_cast<CUresult>(error), &text) != CUDA_SUCCESS ||
      text == nullptr)
    return zeph::errorText(static_cast<zeph::cudaError_t>(error));
  return text;
}

cudaError_t cudaGetDriverEntryPointByVersion(const char* name, void** function, unsigned version,
                                             unsigned long long flags,
                                             cudaDriverEntryPointQueryResult* status) {
  return query([=](const Driver& found) {
    CUdriverProcAddressQueryResult result = CU_GET_PROC_ADDRESS_SYMBOL_NOT_FOUND;
    const CUresult code =
        found.cuGetProcAddress(name, function, static_cast<int>(version), flags, &result);
    *status = static_cast<cudaDriverEntryPointQueryResult>(result);
    return code;
  });
}

}  // extern "C"
