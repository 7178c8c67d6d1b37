#include "device/graphics_interop.h"

namespace zeph {

cudaError_t cudaD3D11GetDevice(int*, void*) {
  return cudaErrorNotSupported;
}

cudaError_t cudaGraphicsD3D11RegisterResource(cudaGraphicsResource_t*, void*, unsigned) {
  return cudaErrorNotSupported;
}

cudaError_t cudaGraphicsResourceSetMapFlags(cudaGraphicsResource_t, unsigned) {
  return cudaErrorNotSupported;
}

cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t) {
  return cudaErrorNotSupported;
}

cudaError_t cudaGraphicsMapResources(int, cudaGraphicsResource_t*, cudaStream_t) {
  return cudaErrorNotSupported;
}

cudaError_t cudaGraphicsResourceGetMappedPointer(void**, std::size_t*, cudaGraphicsResource_t) {
  return cudaErrorNotSupported;
}

cudaError_t cudaGraphicsUnmapResources(int, cudaGraphicsResource_t*, cudaStream_t) {
  return cudaErrorNotSupported;
}

}  // namespace zeph
