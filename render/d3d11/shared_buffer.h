// A buffer of Direct3D that CUDA copies fields into. It includes no header of Windows, so that its
// tests run on every system.
#pragma once

#include <cstddef>

#include "device/graphics_interop.h"

namespace zeph::d3d11 {

class SharedBuffer {
 public:
  SharedBuffer() = default;
  ~SharedBuffer();
  SharedBuffer(const SharedBuffer&) = delete;
  SharedBuffer& operator=(const SharedBuffer&) = delete;

  // Registers an ID3D11Buffer, which must outlive the registration. Each of these raises
  // std::runtime_error with the text of the call that failed.
  void registerBuffer(void* buffer);
  // Does nothing if no buffer is registered.
  void unregister();
  // Copies from the memory of the selected device, and waits until the copy is finished.
  void copyFrom(const void* data, std::size_t bytes, cudaStream_t copyStream);

 private:
  void queueCopy(const void* data, std::size_t bytes, cudaStream_t copyStream);

  cudaGraphicsResource_t interop_ = nullptr;
};

}  // namespace zeph::d3d11
