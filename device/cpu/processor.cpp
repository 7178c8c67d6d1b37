#include "device/cpu/processor.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>

#include "device/cpu/parallel.h"
#include "device/cpu/processor_memory.h"
#include "device/cpu/thread_pool.h"
#include "device/cpu/transforms/plane_transform.h"
#include "device/error_text.h"
#include "platform/system.h"
#include "platform/system_memory.h"

namespace zeph {

struct DeviceStream {};

struct DeviceEvent {
  std::chrono::steady_clock::time_point recorded;
  bool isRecorded = false;
};

namespace cpu {
namespace {

// Of the tasks that a large block is copied or filled in. On machines whose processors have memory
// of their own, a page belongs to the one that first writes to it. Each thread begins with the same
// share of a block as of the tiles that later lie in it.
constexpr std::size_t taskBytes = std::size_t{1} << 20;

// Calls part(offset, bytes) for all of a block.
template <class Part>
void inParts(std::size_t bytes, Part part) {
  struct Block {
    Part* part;
    std::size_t bytes;
  } block = {&part, bytes};
  const auto call = [](void* context, int index, int) {
    const Block& b = *static_cast<Block*>(context);
    const std::size_t offset = static_cast<std::size_t>(index) * taskBytes;
    (*b.part)(offset, std::min(taskBytes, b.bytes - offset));
  };
  runTasks(static_cast<int>((bytes + taskBytes - 1) / taskBytes), call, &block);
}

cudaError_t select(int) {
  return cudaSuccess;
}

cudaError_t properties(cudaDeviceProp* properties, int) {
  *properties = {};
  const int threads = ThreadPool::shared().participants();
  const std::string name = platform::processorModel() + " (" + std::to_string(threads) +
                           (threads == 1 ? " thread)" : " threads)");
  std::snprintf(properties->name, sizeof(properties->name), "%s", name.c_str());
  properties->totalGlobalMem = platform::physicalMemory();
  return cudaSuccess;
}

cudaError_t memoryInfo(std::size_t* available, std::size_t* total) {
  *available = DeviceMemory::shared().available();
  *total = platform::physicalMemory();
  return cudaSuccess;
}

cudaError_t allocate(void** pointer, std::size_t bytes) {
  *pointer = DeviceMemory::shared().allocate(bytes);
  return *pointer != nullptr ? cudaSuccess : cudaErrorMemoryAllocation;
}

cudaError_t release(void* pointer) {
  if (pointer == nullptr || DeviceMemory::shared().release(pointer)) return cudaSuccess;
  return cudaErrorInvalidValue;
}

cudaError_t copy(void* to, const void* from, std::size_t bytes, cudaMemcpyKind) {
  inParts(bytes, [=](std::size_t offset, std::size_t count) {
    std::memcpy(static_cast<char*>(to) + offset, static_cast<const char*>(from) + offset, count);
  });
  return cudaSuccess;
}

cudaError_t copyAsync(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
                      cudaStream_t) {
  return copy(to, from, bytes, kind);
}

cudaError_t setAsync(void* to, int value, std::size_t bytes, cudaStream_t) {
  inParts(bytes, [=](std::size_t offset, std::size_t count) {
    std::memset(static_cast<char*>(to) + offset, value, count);
  });
  return cudaSuccess;
}

cudaError_t createStream(cudaStream_t* stream, unsigned) {
  *stream = new (std::nothrow) DeviceStream;
  return *stream != nullptr ? cudaSuccess : cudaErrorMemoryAllocation;
}

cudaError_t synchronizeStream(cudaStream_t) {
  return cudaSuccess;
}

cudaError_t destroyStream(cudaStream_t stream) {
  delete stream;
  return cudaSuccess;
}

cudaError_t createEvent(cudaEvent_t* event) {
  *event = new (std::nothrow) DeviceEvent;
  return *event != nullptr ? cudaSuccess : cudaErrorMemoryAllocation;
}

cudaError_t recordEvent(cudaEvent_t event, cudaStream_t) {
  event->recorded = std::chrono::steady_clock::now();
  event->isRecorded = true;
  return cudaSuccess;
}

cudaError_t elapsedTime(float* milliseconds, cudaEvent_t begin, cudaEvent_t end) {
  if (!begin->isRecorded || !end->isRecorded) return cudaErrorInvalidResourceHandle;
  *milliseconds = std::chrono::duration<float, std::milli>(end->recorded - begin->recorded).count();
  return cudaSuccess;
}

cudaError_t destroyEvent(cudaEvent_t event) {
  delete event;
  return cudaSuccess;
}

// The processor's kernels take their loop bounds from the arguments and ignore the launch's shape.
cudaError_t launch(const Kernel& kernel, dim3, dim3, void** arguments, std::size_t, cudaStream_t) {
  kernel.onProcessor(arguments);
  return cudaSuccess;
}

cudaError_t noCapture(cudaStream_t) {
  return cudaErrorNotSupported;
}

}  // namespace

const DeviceKind processorKind = {
    .backend = "CPU / built-in FFT",
    .synchronous = true,
    .count = [] { return 1; },
    .select = select,
    .properties = properties,
    .runsKernels = [](int) { return true; },
    .memoryInfo = memoryInfo,
    .allocate = allocate,
    .release = release,
    .allocateHost = allocate,
    .releaseHost = release,
    .copy = copy,
    .copyAsync = copyAsync,
    .setAsync = setAsync,
    .importMemory = [](cudaExternalMemory_t*,
                       const cudaExternalMemoryHandleDesc*) { return cudaErrorNotSupported; },
    .mapMemory = [](void**, cudaExternalMemory_t, std::size_t) { return cudaErrorNotSupported; },
    .releaseMemory = [](cudaExternalMemory_t) { return cudaErrorNotSupported; },
    .deviceOfAdapter = [](int*, void*) { return cudaErrorNoDevice; },
    .registerResource = [](cudaGraphicsResource_t*, void*,
                           unsigned) { return cudaErrorNotSupported; },
    .setMapFlags = [](cudaGraphicsResource_t, unsigned) { return cudaErrorNotSupported; },
    .mapResources = [](int, cudaGraphicsResource_t*,
                       cudaStream_t) { return cudaErrorNotSupported; },
    .mappedPointer = [](void**, std::size_t*,
                        cudaGraphicsResource_t) { return cudaErrorNotSupported; },
    .unmapResources = [](int, cudaGraphicsResource_t*,
                         cudaStream_t) { return cudaErrorNotSupported; },
    .unregisterResource = [](cudaGraphicsResource_t) { return cudaErrorNotSupported; },
    .createStream = createStream,
    .synchronizeStream = synchronizeStream,
    .destroyStream = destroyStream,
    .createEvent = createEvent,
    .recordEvent = recordEvent,
    .elapsedTime = elapsedTime,
    .destroyEvent = destroyEvent,
    .launch = launch,
    .lastError = [](cudaStream_t) { return cudaSuccess; },
    .errorString = errorText,
    .beginCapture = noCapture,
    .endCapture = [](cudaStream_t stream, cudaGraphExec_t*) { return noCapture(stream); },
    .launchGraph = [](cudaGraphExec_t, cudaStream_t stream) { return noCapture(stream); },
    .destroyGraph = [](cudaGraphExec_t) { return cudaErrorNotSupported; },
    .createTransform = createTransform,
    .appendTransform = appendTransform,
    .transformErrorString = [](int result) { return errorText(static_cast<cudaError_t>(result)); },
    .destroyTransform = destroyTransform,
    .transformAllocations = transformAllocations,
};

}  // namespace cpu
}  // namespace zeph
