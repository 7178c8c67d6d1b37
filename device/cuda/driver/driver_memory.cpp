// The runtime's functions for memory, copies, and memory shared with graphics systems.
#include "device/cuda/driver/runtime_call.h"

using namespace zeph::cuda;

namespace {

CUdeviceptr address(const void* pointer) {
  return reinterpret_cast<CUdeviceptr>(pointer);
}

CUresult copy(const Driver& found, void* to, const void* from, std::size_t bytes,
              cudaMemcpyKind kind) {
  switch (kind) {
    case cudaMemcpyHostToDevice:
      return found.cuMemcpyHtoD(address(to), from, bytes);
    case cudaMemcpyDeviceToHost:
      return found.cuMemcpyDtoH(to, address(from), bytes);
    case cudaMemcpyDeviceToDevice:
      return found.cuMemcpyDtoD(address(to), address(from), bytes);
    default:
      return CUDA_ERROR_INVALID_VALUE;
  }
}

CUresult copyAsync(const Driver& found, void* to, const void* from, std::size_t bytes,
                   cudaMemcpyKind kind, CUstream stream) {
  switch (kind) {
    case cudaMemcpyHostToDevice:
      return found.cuMemcpyHtoDAsync(address(to), from, bytes, stream);
    case cudaMemcpyDeviceToHost:
      return found.cuMemcpyDtoHAsync(to, address(from), bytes, stream);
    case cudaMemcpyDeviceToDevice:
      return found.cuMemcpyDtoDAsync(address(to), address(from), bytes, stream);
    default:
      return CUDA_ERROR_INVALID_VALUE;
  }
}

// The driver refuses to allocate nothing, which the runtime allows.
CUresult allocate(const Driver& found, void** pointer, std::size_t bytes) {
  *pointer = nullptr;
  if (bytes == 0) return CUDA_SUCCESS;
  CUdeviceptr made = 0;
  const CUresult result = found.cuMemAlloc(&made, bytes);
  *pointer = reinterpret_cast<void*>(made);
  return result;
}

// The runtime's handles are the driver's.
CUexternalMemory native(cudaExternalMemory_t memory) {
  return reinterpret_cast<CUexternalMemory>(memory);
}
CUgraphicsResource native(cudaGraphicsResource_t resource) {
  return reinterpret_cast<CUgraphicsResource>(resource);
}

}  // namespace

extern "C" {

cudaError_t cudaMemGetInfo(std::size_t* available, std::size_t* total) {
  return call([=](const Driver& found) { return found.cuMemGetInfo(available, total); });
}

cudaError_t cudaMalloc(void** pointer, std::size_t bytes) {
  return call([=](const Driver& found) { return allocate(found, pointer, bytes); });
}

cudaError_t cudaFree(void* pointer) {
  return call([=](const Driver& found) {
    return pointer != nullptr ? found.cuMemFree(address(pointer)) : CUDA_SUCCESS;
  });
}

cudaError_t cudaMallocHost(void** pointer, std::size_t bytes) {
  return call([=](const Driver& found) { return found.cuMemHostAlloc(pointer, bytes, 0); });
}

cudaError_t cudaFreeHost(void* pointer) {
  return call([=](const Driver& found) {
    return pointer != nullptr ? found.cuMemFreeHost(pointer) : CUDA_SUCCESS;
  });
}

cudaError_t cudaMemcpy(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind) {
  return call([=](const Driver& found) { return copy(found, to, from, bytes, kind); });
}

cudaError_t cudaMemcpyAsync(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
                            cudaStream_t stream) {
  return call([=](const Driver& found) { return copyAsync(found, to, from, bytes, kind, stream); });
}

cudaError_t cudaMemsetAsync(void* to, int value, std::size_t bytes, cudaStream_t stream) {
  return call([=](const Driver& found) {
    return found.cuMemsetD8Async(address(to), static_cast<unsigned char>(value), bytes, stream);
  });
}

// Memory by its file descriptor, the only kind that the library imports.
cudaError_t cudaImportExternalMemory(cudaExternalMemory_t* memory,
                                     const cudaExternalMemoryHandleDesc* description) {
  return call([=](const Driver& found) {
    if (description->type != cudaExternalMemoryHandleTypeOpaqueFd) return CUDA_ERROR_INVALID_VALUE;
    CUDA_EXTERNAL_MEMORY_HANDLE_DESC handle = {};
    handle.type = CU_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD;
    handle.handle.fd = description->handle.fd;
    handle.size = description->size;
    return found.cuImportExternalMemory(reinterpret_cast<CUexternalMemory*>(memory), &handle);
  });
}

cudaError_t cudaExternalMemoryGetMappedBuffer(void** pointer, cudaExternalMemory_t memory,
                                              const cudaExternalMemoryBufferDesc* range) {
  return call([=](const Driver& found) {
    CUDA_EXTERNAL_MEMORY_BUFFER_DESC part = {};
    part.offset = range->offset;
    part.size = range->size;
    part.flags = range->flags;
    CUdeviceptr mapped = 0;
    const CUresult result = found.cuExternalMemoryGetMappedBuffer(&mapped, native(memory), &part);
    *pointer = reinterpret_cast<void*>(mapped);
    return result;
  });
}

cudaError_t cudaDestroyExternalMemory(cudaExternalMemory_t memory) {
  return call([=](const Driver& found) { return found.cuDestroyExternalMemory(native(memory)); });
}

cudaError_t cudaGraphicsResourceSetMapFlags(cudaGraphicsResource_t resource, unsigned flags) {
  return call([=](const Driver& found) {
    return found.cuGraphicsResourceSetMapFlags(native(resource), flags);
  });
}

cudaError_t cudaGraphicsMapResources(int count, cudaGraphicsResource_t* resources,
                                     cudaStream_t stream) {
  return call([=](const Driver& found) {
    return found.cuGraphicsMapResources(static_cast<unsigned>(count),
                                        reinterpret_cast<CUgraphicsResource*>(resources), stream);
  });
}

cudaError_t cudaGraphicsResourceGetMappedPointer(void** pointer, std::size_t* bytes,
                                                 cudaGraphicsResource_t resource) {
  return call([=](const Driver& found) {
    CUdeviceptr mapped = 0;
    const CUresult result =
        found.cuGraphicsResourceGetMappedPointer(&mapped, bytes, native(resource));
    *pointer = reinterpret_cast<void*>(mapped);
    return result;
  });
}

cudaError_t cudaGraphicsUnmapResources(int count, cudaGraphicsResource_t* resources,
                                       cudaStream_t stream) {
  return call([=](const Driver& found) {
    return found.cuGraphicsUnmapResources(static_cast<unsigned>(count),
                                          reinterpret_cast<CUgraphicsResource*>(resources), stream);
  });
}

cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t resource) {
  return call(
      [=](const Driver& found) { return found.cuGraphicsUnregisterResource(native(resource)); });
}

}  // extern "C"
