// The Direct3D device, on an adapter that the field's device drives too.
#pragma once

#include "device/runtime.h"
#include "render/d3d11/system_functions.h"

namespace zeph::d3d11 {

// An adapter, and the device whose frames it shows.
struct Adapter {
  ComPtr<IDXGIAdapter1> adapter;
  int cudaDevice = 0;
};

class GraphicsDevice {
 public:
  // For the frames of a device. Those of the processor are shown by the first adapter, those of a
  // GPU by the first one that CUDA drives: afterwards the thread has that one's device selected,
  // which may be another GPU.
  explicit GraphicsDevice(int device);
  ~GraphicsDevice();
  GraphicsDevice(const GraphicsDevice&) = delete;
  GraphicsDevice& operator=(const GraphicsDevice&) = delete;

  IDXGIFactory2& factory() const { return *factory_.Get(); }
  IDXGIAdapter1& adapter() const { return *adapter_.adapter.Get(); }
  const ComPtr<ID3D11Device>& device() const { return device_; }
  ID3D11DeviceContext& context() const { return *context_.Get(); }

  int cudaDevice() const { return adapter_.cudaDevice; }
  cudaStream_t copyStream() const { return copyStream_; }

 private:
  ComPtr<IDXGIFactory2> factory_;
  Adapter adapter_;
  cudaStream_t copyStream_ = nullptr;
  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> context_;
};

}  // namespace zeph::d3d11
