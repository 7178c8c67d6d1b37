#include "render/d3d11/shared_buffer.h"

#include <stdexcept>

#include "device/check.h"

namespace zeph::d3d11 {

SharedBuffer::~SharedBuffer() {
  if (interop_ != nullptr) cudaGraphicsUnregisterResource(interop_);
}

void SharedBuffer::registerBuffer(void* buffer) {
  unregister();
  check(cudaGraphicsD3D11RegisterResource(&interop_, buffer, graphicsRegisterFlagsNone),
        "cudaGraphicsD3D11RegisterResource(&interop,fields.Get(),cudaGraphicsRegisterFlagsNone)");
  check(cudaGraphicsResourceSetMapFlags(interop_, graphicsMapFlagsWriteDiscard),
        "cudaGraphicsResourceSetMapFlags(interop,cudaGraphicsMapFlagsWriteDiscard)");
}

void SharedBuffer::unregister() {
  if (interop_ == nullptr) return;
  check(cudaGraphicsUnregisterResource(interop_), "cudaGraphicsUnregisterResource(interop)");
  interop_ = nullptr;
}

void SharedBuffer::copyFrom(const void* data, std::size_t bytes, cudaStream_t copyStream) {
  check(cudaGraphicsMapResources(1, &interop_, copyStream),
        "cudaGraphicsMapResources(1,&interop,copyStream)");
  try {
    queueCopy(data, bytes, copyStream);
    check(cudaGraphicsUnmapResources(1, &interop_, copyStream),
          "cudaGraphicsUnmapResources(1,&interop,copyStream)");
  } catch (...) {
    cudaGraphicsUnmapResources(1, &interop_, copyStream);
    throw;
  }
  check(cudaStreamSynchronize(copyStream), "cudaStreamSynchronize(copyStream)");
}

void SharedBuffer::queueCopy(const void* data, std::size_t bytes, cudaStream_t copyStream) {
  void* pointer = nullptr;
  std::size_t size = 0;
  check(cudaGraphicsResourceGetMappedPointer(&pointer, &size, interop_),
        "cudaGraphicsResourceGetMappedPointer(&pointer,&size,interop)");
  if (size < bytes) throw std::runtime_error("Shared field buffer too small.");
  check(cudaMemcpyAsync(pointer, data, bytes, cudaMemcpyDeviceToDevice, copyStream),
        "cudaMemcpyAsync(pointer,frame->data(),bytes,cudaMemcpyDeviceToDevice,copyStream)");
}

}  // namespace zeph::d3d11
