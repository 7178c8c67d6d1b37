#include "render/d3d11/graphics_device.h"

#include <optional>
#include <stdexcept>

#include "device/check.h"
#include "device/graphics_interop.h"
#include "render/renderer.h"

namespace zeph {
namespace d3d11 {
namespace {

using zeph::check;

constexpr const char* noAdapter = "No CUDA-compatible Direct3D adapter found.";

// Whether the frames of a device are in memory that every adapter can show.
bool isOnProcessor(int device) {
  check(cudaSetDevice(device), "cudaSetDevice(cudaDevice)");
  return deviceIsSynchronous();
}

std::optional<int> cudaDeviceOf(IDXGIAdapter* adapter) {
  int device = 0;
  if (cudaD3D11GetDevice(&device, adapter) == cudaSuccess) return device;
  cudaGetLastError();
  return std::nullopt;
}

// Raises std::runtime_error after the last one.
ComPtr<IDXGIAdapter1> adapterAt(IDXGIFactory2& factory, UINT index) {
  ComPtr<IDXGIAdapter1> adapter;
  const HRESULT result = factory.EnumAdapters1(index, &adapter);
  if (result == DXGI_ERROR_NOT_FOUND) throw std::runtime_error(noAdapter);
  d3d11::check(result, "Enumerate adapters");
  return adapter;
}

}  // namespace

Adapter firstAdapter(IDXGIFactory2& factory) {
  for (UINT index = 0;; ++index) {
    const ComPtr<IDXGIAdapter1> adapter = adapterAt(factory, index);
    const std::optional<int> device = cudaDeviceOf(adapter.Get());
    if (device && deviceRunsKernels(*device)) return {adapter, *device};
  }
}

GraphicsDevice::GraphicsDevice(int device)
    : factory_(createFactory()),
      adapter_(isOnProcessor(device) ? Adapter{adapterAt(*factory_.Get(), 0), device}
                                     : firstAdapter(*factory_.Get())) {
  check(cudaSetDevice(adapter_.cudaDevice), "cudaSetDevice(cudaDevice)");
  check(cudaStreamCreateWithFlags(&copyStream_, streamNonBlocking),
        "cudaStreamCreateWithFlags(&copyStream,cudaStreamNonBlocking)");
  try {
    createDevice(adapter_.adapter.Get(), device_, context_);
  } catch (...) {
    cudaStreamDestroy(copyStream_);
    throw;
  }
}

GraphicsDevice::~GraphicsDevice() {
  cudaStreamDestroy(copyStream_);
}

}  // namespace d3d11

std::optional<int> displayDevice() {
  int count = 0;
  check(cudaGetDeviceCount(&count), "cudaGetDeviceCount(&count)");
  bool hasGpu = false;
  for (int device = 0; device < count - 1; ++device) hasGpu |= deviceRunsKernels(device);
  if (!hasGpu) return std::nullopt;
  return d3d11::firstAdapter(*d3d11::createFactory().Get()).cudaDevice;
}

}  // namespace zeph
