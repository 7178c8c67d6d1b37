// The part of CUDA's runtime that shares memory with Direct3D 11, under CUDA's own names. Adapters
// and resources are Direct3D's interfaces, as plain pointers: an IDXGIAdapter and an
// ID3D11Resource.
//
// Everything fails on systems other than Windows, in builds without CUDA, and on the processor,
// which works in ordinary memory and needs none of it.
#pragma once

#include <cstddef>

#include "device/runtime.h"

namespace zeph {

using cudaGraphicsResource_t = struct DeviceGraphicsResource*;

constexpr unsigned graphicsRegisterFlagsNone = 0;     // cudaGraphicsRegisterFlagsNone
constexpr unsigned graphicsMapFlagsWriteDiscard = 2;  // cudaGraphicsMapFlagsWriteDiscard

// The device that drives an adapter, whatever device is selected.
cudaError_t cudaD3D11GetDevice(int* device, void* adapter);

cudaError_t cudaGraphicsD3D11RegisterResource(cudaGraphicsResource_t* interop, void* resource,
                                              unsigned flags);
cudaError_t cudaGraphicsResourceSetMapFlags(cudaGraphicsResource_t interop, unsigned flags);
cudaError_t cudaGraphicsUnregisterResource(cudaGraphicsResource_t interop);

// While it is mapped, a resource is memory of the device.
cudaError_t cudaGraphicsMapResources(int count, cudaGraphicsResource_t* interop,
                                     cudaStream_t stream);
cudaError_t cudaGraphicsResourceGetMappedPointer(void** pointer, std::size_t* bytes,
                                                 cudaGraphicsResource_t interop);
cudaError_t cudaGraphicsUnmapResources(int count, cudaGraphicsResource_t* interop,
                                       cudaStream_t stream);

}  // namespace zeph
