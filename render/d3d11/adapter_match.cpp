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

AdapterMatch firstCudaAdapter(const AdapterAt& adapterAt) {
  for (unsigned index = 0;; ++index) {
    void* adapter = adapterAt(index);
    if (adapter == nullptr) throw std::runtime_error("No CUDA-compatible Direct3D adapter found.");
    int device = 0;
    if (cudaD3D11GetDevice(&device, adapter) == cudaSuccess && deviceRunsKernels(device))
      return {index, device};
  }
}

std::optional<int> deviceOfFirstCudaAdapter(const AdapterAt& adapterAt) {
  if (!hasCudaDevice()) return std::nullopt;
  return firstCudaAdapter(adapterAt).device;
}

}  // namespace zeph::d3d11
