#include "device/graphics_interop.h"

#include "device/device_kind.h"

namespace zeph {

cudaError_t cudaD3D11GetDevice(int* device, void* adapter) {
  int first = 0;  // ordinal of the kind's first device
  cudaError_t result = cudaErrorNoDevice;
  for (const DeviceKind* kind : deviceKinds()) {
    const int count = kind->count();
    int ordinal = 0;
    if (count > 0) result = kind->deviceOfAdapter(&ordinal, adapter);
    if (result == cudaSuccess) {
      *device = first + ordinal;
      return cudaSuccess;
    }
    first += count;
  }
  return result;
}

cudaError_t cudaGraphicsD3D11RegisterResource(cudaGraphicsResource_t* interop, void* resource,
                                              unsigned flags) {
  return selectedKind().registerResource(interop, resource, flags);
}

cudaError_t cudaGraphicsResourceSetMapFlags(cudaGraphicsResource_t interop, unsigned flags) {
  return selectedKind().setMapFlags(interop, flags);
}

cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t interop) {
  return selectedKind().unregisterResource(interop);
}

cudaError_t cudaGraphicsMapResources(int count, cudaGraphicsResource_t* interop,
                                     cudaStream_t stream) {
  return selectedKind().mapResources(count, interop, stream);
}

cudaError_t cudaGraphicsResourceGetMappedPointer(void** pointer, std::size_t* bytes,
                                                 cudaGraphicsResource_t interop) {
  return selectedKind().mappedPointer(pointer, bytes, interop);
}

cudaError_t cudaGraphicsUnmapResources(int count, cudaGraphicsResource_t* interop,
                                       cudaStream_t stream) {
  return selectedKind().unmapResources(count, interop, stream);
}

}  // namespace zeph
