#include "device/runtime.h"

#include "device/cpu/processor.h"
#include "device/device_kind.h"
#include "device/transform.h"
#if ZEPHANE_CUDA
#include "device/cuda/devices.h"
#endif

namespace zeph {
namespace {

struct Place {
  const DeviceKind* kind;
  int ordinal;  // within the kind
};

thread_local int selected = 0;

// The kinds in the order of their ordinals; the processor is the last.
const DeviceKind* const kinds[] = {
#if ZEPHANE_CUDA
    &cuda::deviceKind,
#endif
    &cpu::processorKind,
};

int deviceCount() {
  int count = 0;
  for (const DeviceKind* kind : kinds) count += kind->count();
  return count;
}

bool find(int device, Place& place) {
  if (device < 0) return false;
  for (const DeviceKind* kind : kinds) {
    const int count = kind->count();
    if (device < count) {
      place = {kind, device};
      return true;
    }
    device -= count;
  }
  return false;
}

}  // namespace

std::span<const DeviceKind* const> deviceKinds() {
  return kinds;
}

const DeviceKind& selectedKind() {
  Place place{};
  return find(selected, place) ? *place.kind : cpu::processorKind;
}

cudaError_t cudaGetDeviceCount(int* count) {
  *count = deviceCount();
  return cudaSuccess;
}

cudaError_t cudaSetDevice(int device) {
  Place place{};
  if (!find(device, place)) return cudaErrorInvalidDevice;
  // Select it even if the device then fails: its handles must never reach a device of another kind.
  selected = device;
  return place.kind->select(place.ordinal);
}

cudaError_t cudaGetDevice(int* device) {
  *device = selected;
  return cudaSuccess;
}

cudaError_t cudaGetDeviceProperties(cudaDeviceProp* properties, int device) {
  Place place{};
  if (!find(device, place)) return cudaErrorInvalidDevice;
  return place.kind->properties(properties, place.ordinal);
}

cudaError_t cudaMemGetInfo(std::size_t* available, std::size_t* total) {
  return selectedKind().memoryInfo(available, total);
}

// These are the versions of CUDA, whatever device is selected. A build without CUDA has none.
#if ZEPHANE_CUDA
cudaError_t cudaRuntimeGetVersion(int* version) {
  return cuda::runtimeVersion(version);
}
cudaError_t cudaDriverGetVersion(int* version) {
  return cuda::driverVersion(version);
}
#else
cudaError_t cudaRuntimeGetVersion(int*) {
  return cudaErrorNotSupported;
}
cudaError_t cudaDriverGetVersion(int*) {
  return cudaErrorNotSupported;
}
#endif

cudaError_t cudaMalloc(void** pointer, std::size_t bytes) {
  return selectedKind().allocate(pointer, bytes);
}

cudaError_t cudaFree(void* pointer) {
  return selectedKind().release(pointer);
}

cudaError_t cudaMallocHost(void** pointer, std::size_t bytes) {
  return selectedKind().allocateHost(pointer, bytes);
}

cudaError_t cudaFreeHost(void* pointer) {
  return selectedKind().releaseHost(pointer);
}

cudaError_t cudaMemcpy(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind) {
  return selectedKind().copy(to, from, bytes, kind);
}

cudaError_t cudaMemcpyAsync(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
                            cudaStream_t stream) {
  return selectedKind().copyAsync(to, from, bytes, kind, stream);
}

cudaError_t cudaMemsetAsync(void* to, int value, std::size_t bytes, cudaStream_t stream) {
  return selectedKind().setAsync(to, value, bytes, stream);
}

cudaError_t cudaImportExternalMemory(cudaExternalMemory_t* memory,
                                     const cudaExternalMemoryHandleDesc* description) {
  return selectedKind().importMemory(memory, description);
}

cudaError_t cudaExternalMemoryGetMappedBuffer(void** pointer, cudaExternalMemory_t memory,
                                              std::size_t bytes) {
  return selectedKind().mapMemory(pointer, memory, bytes);
}

cudaError_t cudaDestroyExternalMemory(cudaExternalMemory_t memory) {
  return selectedKind().releaseMemory(memory);
}

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned flags) {
  return selectedKind().createStream(stream, flags);
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream) {
  return selectedKind().synchronizeStream(stream);
}

cudaError_t cudaStreamDestroy(cudaStream_t stream) {
  return selectedKind().destroyStream(stream);
}

cudaError_t cudaEventCreate(cudaEvent_t* event) {
  return selectedKind().createEvent(event);
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream) {
  return selectedKind().recordEvent(event, stream);
}

cudaError_t cudaEventElapsedTime(float* milliseconds, cudaEvent_t begin, cudaEvent_t end) {
  return selectedKind().elapsedTime(milliseconds, begin, end);
}

cudaError_t cudaEventDestroy(cudaEvent_t event) {
  return selectedKind().destroyEvent(event);
}

cudaError_t cudaLaunchKernel(const Kernel& kernel, dim3 grid, dim3 block, void** arguments,
                             std::size_t sharedBytes, cudaStream_t stream) {
  return selectedKind().launch(kernel, grid, block, arguments, sharedBytes, stream);
}

cudaError_t cudaGetLastError(cudaStream_t stream) {
  return selectedKind().lastError(stream);
}

const char* cudaGetErrorString(cudaError_t error) {
  return selectedKind().errorString(error);
}

cudaError_t cudaStreamBeginCapture(cudaStream_t stream) {
  return selectedKind().beginCapture(stream);
}

cudaError_t cudaStreamEndCapture(cudaStream_t stream, cudaGraphExec_t* graph) {
  return selectedKind().endCapture(stream, graph);
}

cudaError_t cudaGraphLaunch(cudaGraphExec_t graph, cudaStream_t stream) {
  return selectedKind().launchGraph(graph, stream);
}

cudaError_t cudaGraphExecDestroy(cudaGraphExec_t graph) {
  return selectedKind().destroyGraph(graph);
}

bool deviceIsSynchronous() {
  return selectedKind().synchronous;
}

bool deviceRunsKernels(int device) {
  Place place{};
  return find(device, place) && place.kind->runsKernels(place.ordinal);
}

const char* deviceBackend(int device) {
  Place place{};
  return find(device, place) ? place.kind->backend : cpu::processorKind.backend;
}

const char* deviceBackend() {
  return selectedKind().backend;
}

int transformCreate(const TransformRequest& request, Transform** transform) {
  return selectedKind().createTransform(request, transform);
}

int transformAppend(Transform* transform, void* buffer, bool inverse) {
  return selectedKind().appendTransform(transform, buffer, inverse);
}

const char* transformErrorString(int result) {
  return selectedKind().transformErrorString(result);
}

void transformDestroy(Transform* transform) {
  selectedKind().destroyTransform(transform);
}

std::vector<TransformAllocation> transformAllocations(const Transform* transform) {
  return selectedKind().transformAllocations(transform);
}

}  // namespace zeph
