// The table of operations that each kind of device fills in; see runtime.h and graphics_interop.h
// for what they do. Ordinals count the devices of that kind, from 0.
#pragma once

#include <span>

#include "device/graphics_interop.h"
#include "device/runtime.h"
#include "device/transform.h"

namespace zeph {

struct DeviceKind {
  const char* backend;
  bool synchronous;

  int (*count)();
  cudaError_t (*select)(int ordinal);
  cudaError_t (*properties)(cudaDeviceProp* properties, int ordinal);
  bool (*runsKernels)(int ordinal);
  cudaError_t (*memoryInfo)(std::size_t* available, std::size_t* total);

  cudaError_t (*allocate)(void** pointer, std::size_t bytes);
  cudaError_t (*release)(void* pointer);
  cudaError_t (*allocateHost)(void** pointer, std::size_t bytes);
  cudaError_t (*releaseHost)(void* pointer);
  cudaError_t (*copy)(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind);
  cudaError_t (*copyAsync)(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
                           cudaStream_t stream);
  cudaError_t (*setAsync)(void* to, int value, std::size_t bytes, cudaStream_t stream);

  cudaError_t (*importMemory)(cudaExternalMemory_t* memory,
                              const cudaExternalMemoryHandleDesc* description);
  cudaError_t (*mapMemory)(void** pointer, cudaExternalMemory_t memory, std::size_t bytes);
  cudaError_t (*releaseMemory)(cudaExternalMemory_t memory);

  cudaError_t (*deviceOfAdapter)(int* ordinal, void* adapter);
  cudaError_t (*registerResource)(cudaGraphicsResource_t* resource, void* buffer, unsigned flags);
  cudaError_t (*setMapFlags)(cudaGraphicsResource_t resource, unsigned flags);
  cudaError_t (*mapResources)(int count, cudaGraphicsResource_t* resources, cudaStream_t stream);
  cudaError_t (*mappedPointer)(void** pointer, std::size_t* bytes, cudaGraphicsResource_t resource);
  cudaError_t (*unmapResources)(int count, cudaGraphicsResource_t* resources, cudaStream_t stream);
  cudaError_t (*unregisterResource)(cudaGraphicsResource_t resource);

  cudaError_t (*createStream)(cudaStream_t* stream, unsigned flags);
  cudaError_t (*synchronizeStream)(cudaStream_t stream);
  cudaError_t (*destroyStream)(cudaStream_t stream);

  cudaError_t (*createEvent)(cudaEvent_t* event);
  cudaError_t (*recordEvent)(cudaEvent_t event, cudaStream_t stream);
  cudaError_t (*elapsedTime)(float* milliseconds, cudaEvent_t begin, cudaEvent_t end);
  cudaError_t (*destroyEvent)(cudaEvent_t event);

  cudaError_t (*launch)(const Kernel& kernel, dim3 grid, dim3 block, void** arguments,
                        std::size_t sharedBytes, cudaStream_t stream);
  cudaError_t (*lastError)(cudaStream_t stream);
  const char* (*errorString)(cudaError_t error);

  cudaError_t (*beginCapture)(cudaStream_t stream);
  cudaError_t (*endCapture)(cudaStream_t stream, cudaGraphExec_t* graph);
  cudaError_t (*launchGraph)(cudaGraphExec_t graph, cudaStream_t stream);
  cudaError_t (*destroyGraph)(cudaGraphExec_t graph);

  int (*createTransform)(const TransformRequest& request, Transform** transform);
  int (*appendTransform)(Transform* transform, void* buffer, bool inverse);
  const char* (*transformErrorString)(int result);
  void (*destroyTransform)(Transform* transform);
  std::vector<TransformAllocation> (*transformAllocations)(const Transform* transform);
};

// All kinds, in the order of their ordinals.
std::span<const DeviceKind* const> deviceKinds();

// The kind of the device that the calling thread has selected.
const DeviceKind& selectedKind();

}  // namespace zeph
