#include "render/d3d11/adapter_match.h"

#include <stdexcept>

#include "device/check.h"
#include "device/graphics_interop.h"

namespace zeph::d3d11 {
namespace {

// The last device is the processor.
bool hasCudaDevice() {
  int count = 0;
  check(cudaGetDeviceCount(&count), "cudaGetDeviceCount(&count)");
  for (int device = 0; device < count - 1; ++device) {
    if (deviceRunsKernels(device)) return true;
  }
  return false;
}

}  // namespace

int firstCudaDevice(const AdapterAt& adapterAt) {
  for (unsigned index = 0;; ++index) {
    void* adapter = adapterAt(index);
    if (adapter == nullptr) failWithoutAdapter();
    int device = 0;
    if (cudaD3D11GetDevice(&device, adapter) == cudaSuccess && deviceRunsKernels(device))
      return device;
  }
}

std::optional<int> deviceToDisplay(const AdapterAt& adapterAt) {
  if (!hasCudaDevice()) return std::nullopt;
  return firstCudaDevice(adapterAt);
}

void failWithoutAdapter() {
  throw std::runtime_error("No CUDA-compatible Direct3D adapter found.");
}

}  // namespace zeph::d3d11
