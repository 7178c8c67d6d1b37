#include "render/d3d11/graphics_device.h"

#include <optional>

#include "device/check.h"
#include "render/d3d11/adapter_match.h"
#include "render/renderer.h"

namespace zeph {
namespace d3d11 {
namespace {

using zeph::check;

// Whether the frames of a device are in memory that every adapter can show.
bool isOnProcessor(int device) {
  check(cudaSetDevice(device), "cudaSetDevice(cudaDevice)");
  return deviceIsSynchronous();
}

// Null after the last one.
ComPtr<IDXGIAdapter1> adapterAt(IDXGIFactory2& factory, UINT index) {
  ComPtr<IDXGIAdapter1> adapter;
  const HRESULT result = factory.EnumAdapters1(index, &adapter);
  if (result == DXGI_ERROR_NOT_FOUND) return nullptr;
  d3d11::check(result, "Enumerate adapters");
  return adapter;
}

Adapter adapterFor(IDXGIFactory2& factory, int device) {
  if (isOnProcessor(device)) {
    const ComPtr<IDXGIAdapter1> first = adapterAt(factory, 0);
    if (!first) failWithoutAdapter();
    return {first, device};
  }
  ComPtr<IDXGIAdapter1> adapter;
  const int cudaDevice = firstCudaDevice([&](unsigned index) -> void* {
    adapter = adapterAt(factory, index);
    return static_cast<IDXGIAdapter*>(adapter.Get());
  });
  return {adapter, cudaDevice};
}

}  // namespace

GraphicsDevice::GraphicsDevice(int device)
    : factory_(createFactory()), adapter_(adapterFor(*factory_.Get(), device)) {
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
  d3d11::ComPtr<IDXGIFactory2> factory;
  d3d11::ComPtr<IDXGIAdapter1> adapter;
  return d3d11::deviceToDisplay([&](unsigned index) -> void* {
    if (!factory) factory = d3d11::createFactory();
    adapter = d3d11::adapterAt(*factory.Get(), index);
    return static_cast<IDXGIAdapter*>(adapter.Get());
  });
}

}  // namespace zeph
