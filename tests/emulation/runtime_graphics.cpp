// Buffers of Direct3D that CUDA's runtime registers and maps.
#include <algorithm>
#include <cstring>

#include "device/cuda/direct3d_functions.h"
#include "tests/emulation/work.h"

using namespace zeph::emulation;

namespace {

cudaError_t map(GraphicsResource& resource, Stream& stream) {
  if (resource.mapped != nullptr) return cudaErrorAlreadyMapped;
  const GraphicsBuffer& buffer = *resource.buffer;
  if (buffer.gpu != stream.gpu) return cudaErrorInvalidGraphicsContext;
  resource.mapped = state().ledger.allocate(buffer.gpu, buffer.contents.size());
  if (resource.mapped == nullptr) return cudaErrorMapBufferObjectFailed;
  if (resource.mapFlags == cudaGraphicsMapFlagsWriteDiscard) return cudaSuccess;
  queue(stream, [&buffer, to = resource.mapped] {
    std::memcpy(to, buffer.contents.data(), buffer.contents.size());
    return cudaSuccess;
  });
  return cudaSuccess;
}

cudaError_t unmap(GraphicsResource& resource, Stream& stream) {
  if (resource.mapped == nullptr) return cudaErrorNotMapped;
  queue(stream, [buffer = resource.buffer, from = resource.mapped] {
    std::memcpy(buffer->contents.data(), from, buffer->contents.size());
    state().ledger.release(from);
    return cudaSuccess;
  });
  resource.mapped = nullptr;
  return cudaSuccess;
}

template <class Change>
cudaError_t changeAll(int count, cudaGraphicsResource_t* handles, cudaStream_t streamHandle,
                      Change change) {
  Stream* stream = streamOf(streamHandle);
  if (stream == nullptr || count < 1 || handles == nullptr) return cudaErrorInvalidResourceHandle;
  for (int k = 0; k < count; ++k) {
    const auto resource = state().graphics.find(handles[k]);
    const cudaError_t result =
        resource != nullptr ? change(*resource, *stream) : cudaErrorInvalidResourceHandle;
    if (result != cudaSuccess) return result;
  }
  return cudaSuccess;
}

}  // namespace

extern "C" {

cudaError_t cudaD3D11GetDevice(int* ordinal, IDXGIAdapter* adapter) {
  return query("cudaD3D11GetDevice", [=] {
    const int gpu = reinterpret_cast<const Adapter*>(adapter)->gpu;
    if (gpu < 0 || gpu >= state().gpus()) return cudaErrorUnknown;
    *ordinal = gpu;
    return cudaSuccess;
  });
}

cudaError_t cudaGraphicsD3D11RegisterResource(cudaGraphicsResource_t* handle,
                                              ID3D11Resource* buffer, unsigned flags) {
  return call("cudaGraphicsD3D11RegisterResource", [=] {
    auto* found = reinterpret_cast<GraphicsBuffer*>(buffer);
    if (found == nullptr || flags != cudaGraphicsRegisterFlagsNone) return cudaErrorInvalidValue;
    if (found->gpu != currentGpu()) return cudaErrorInvalidGraphicsContext;
    *handle = state().graphics.add({.buffer = found});
    return cudaSuccess;
  });
}

cudaError_t cudaGraphicsResourceSetMapFlags(cudaGraphicsResource_t handle, unsigned flags) {
  return call("cudaGraphicsResourceSetMapFlags", [=] {
    const auto resource = state().graphics.find(handle);
    if (resource == nullptr) return cudaErrorInvalidResourceHandle;
    if (resource->mapped != nullptr) return cudaErrorAlreadyMapped;
    resource->mapFlags = flags;
    return cudaSuccess;
  });
}

cudaError_t cudaGraphicsMapResources(int count, cudaGraphicsResource_t* handles,
                                     cudaStream_t stream) {
  return call("cudaGraphicsMapResources", [=] { return changeAll(count, handles, stream, map); });
}

cudaError_t cudaGraphicsResourceGetMappedPointer(void** pointer, std::size_t* bytes,
                                                 cudaGraphicsResource_t handle) {
  return call("cudaGraphicsResourceGetMappedPointer", [=] {
    const auto resource = state().graphics.find(handle);
    if (resource == nullptr) return cudaErrorInvalidResourceHandle;
    if (resource->mapped == nullptr) return cudaErrorNotMapped;
    *pointer = resource->mapped;
    *bytes = resource->buffer->contents.size();
    return cudaSuccess;
  });
}

cudaError_t cudaGraphicsUnmapResources(int count, cudaGraphicsResource_t* handles,
                                       cudaStream_t stream) {
  return call("cudaGraphicsUnmapResources",
              [=] { return changeAll(count, handles, stream, unmap); });
}

cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t handle) {
  return call("cudaGraphicsUnregisterResource", [=] {
    const auto resource = state().graphics.find(handle);
    if (resource == nullptr) return cudaErrorInvalidResourceHandle;
    if (resource->mapped != nullptr) return cudaErrorAlreadyMapped;
    state().graphics.remove(handle);
    return cudaSuccess;
  });
}

}  // extern "C"
