#include "device/cuda/devices.h"

#include <cuda_runtime_api.h>

#include <cstring>
#include <map>
#include <mutex>

#include "device/cuda/direct3d_functions.h"
#include "device/cuda/kernel_library.h"
#include "device/cuda/vkfft_transform.h"
#include "platform/fork.h"

namespace zeph::cuda {
namespace {

// The oldest GPU that the embedded kernels have code for, as 10 * major + minor.
constexpr int oldestCapability = ZEPHANE_OLDEST_GPU;

// The first failed launch of each stream since its last error was asked for. A stream belongs to
// one solver, which may be used by any thread and must not meet the failures of others.
struct FailedLaunches {
  std::mutex mutex;
  std::map<zeph::cudaStream_t, ::cudaError_t> ofStream;
};

FailedLaunches& failedLaunches() {
  static auto* const made = new FailedLaunches;
  return *made;
}

// Clears the runtime's last error after a failure: the caller has the result, and must not meet it
// again at the next cudaGetLastError.
cudaError_t clearingLastError(::cudaError_t result) {
  if (result != ::cudaSuccess) ::cudaGetLastError();
  return static_cast<cudaError_t>(result);
}

::cudaStream_t native(cudaStream_t stream) {
  return reinterpret_cast<::cudaStream_t>(stream);
}
::cudaEvent_t native(cudaEvent_t event) {
  return reinterpret_cast<::cudaEvent_t>(event);
}
::cudaGraphExec_t native(cudaGraphExec_t graph) {
  return reinterpret_cast<::cudaGraphExec_t>(graph);
}
::cudaMemcpyKind native(cudaMemcpyKind kind) {
  return static_cast<::cudaMemcpyKind>(kind);
}
::dim3 native(dim3 size) {
  return {size.x, size.y, size.z};
}

platform::MadeOnce<const int> countOfProcess;

// 0 if the driver is missing, too old, or has no device.
int count() {
  return countOfProcess.get([] {
    int devices = 0;
    const bool isKnown = clearingLastError(::cudaGetDeviceCount(&devices)) == cudaSuccess;
    return new const int(isKnown ? devices : 0);
  });
}

cudaError_t properties(cudaDeviceProp* properties, int ordinal) {
  ::cudaDeviceProp found = {};
  const cudaError_t result = clearingLastError(::cudaGetDeviceProperties(&found, ordinal));
  if (result != cudaSuccess) return result;
  *properties = {};
  static_assert(sizeof(properties->name) == sizeof(found.name));
  std::memcpy(properties->name, found.name, sizeof(found.name));
  static_assert(sizeof(properties->uuid.bytes) == sizeof(found.uuid.bytes));
  std::memcpy(properties->uuid.bytes, found.uuid.bytes, sizeof(found.uuid.bytes));
  properties->totalGlobalMem = found.totalGlobalMem;
  properties->major = found.major;
  properties->minor = found.minor;
  return cudaSuccess;
}

bool runsKernels(int ordinal) {
  const auto read = [ordinal](::cudaDeviceAttr attribute, int& value) {
    return clearingLastError(::cudaDeviceGetAttribute(&value, attribute, ordinal)) == cudaSuccess;
  };
  int major = 0;
  int minor = 0;
  return read(cudaDevAttrComputeCapabilityMajor, major) &&
         read(cudaDevAttrComputeCapabilityMinor, minor) && 10 * major + minor >= oldestCapability;
}

::cudaExternalMemory_t native(cudaExternalMemory_t memory) {
  return reinterpret_cast<::cudaExternalMemory_t>(memory);
}

cudaError_t importMemory(cudaExternalMemory_t* memory,
                         const cudaExternalMemoryHandleDesc* description) {
  ::cudaExternalMemoryHandleDesc handle = {};
  handle.type = cudaExternalMemoryHandleTypeOpaqueFd;
  handle.handle.fd = description->fd;
  handle.size = description->size;
  ::cudaExternalMemory_t imported = nullptr;
  const cudaError_t result = clearingLastError(::cudaImportExternalMemory(&imported, &handle));
  *memory = reinterpret_cast<cudaExternalMemory_t>(imported);
  return result;
}

cudaError_t mapMemory(void** pointer, cudaExternalMemory_t memory, std::size_t bytes) {
  ::cudaExternalMemoryBufferDesc range = {};
  range.size = bytes;
  return clearingLastError(::cudaExternalMemoryGetMappedBuffer(pointer, native(memory), &range));
}

::cudaGraphicsResource_t native(cudaGraphicsResource_t resource) {
  return reinterpret_cast<::cudaGraphicsResource_t>(resource);
}
::cudaGraphicsResource_t* native(cudaGraphicsResource_t* resources) {
  return reinterpret_cast<::cudaGraphicsResource_t*>(resources);
}

cudaError_t registerResource(cudaGraphicsResource_t* resource, void* buffer, unsigned flags) {
  return clearingLastError(::cudaGraphicsD3D11RegisterResource(
      native(resource), static_cast<ID3D11Resource*>(buffer), flags));
}

cudaError_t launch(const Kernel& kernel, dim3 grid, dim3 block, void** arguments,
                   std::size_t sharedBytes, cudaStream_t stream) {
  const void* function = nullptr;
  ::cudaError_t result = findKernel(kernel.name, &function);
  if (result == ::cudaSuccess) {
    result = ::cudaLaunchKernel(function, native(grid), native(block), arguments, sharedBytes,
                                native(stream));
  }
  if (result != ::cudaSuccess) {
    FailedLaunches& failed = failedLaunches();
    const std::lock_guard lock(failed.mutex);
    failed.ofStream.emplace(stream, result);
  }
  return clearingLastError(result);
}

cudaError_t lastError(cudaStream_t stream) {
  const ::cudaError_t runtimes = ::cudaGetLastError();
  FailedLaunches& failed = failedLaunches();
  const std::lock_guard lock(failed.mutex);
  const auto found = stream != nullptr ? failed.ofStream.find(stream) : failed.ofStream.begin();
  if (found == failed.ofStream.end()) return static_cast<cudaError_t>(runtimes);
  const ::cudaError_t launches = found->second;
  failed.ofStream.erase(found);
  return static_cast<cudaError_t>(launches);
}

cudaError_t destroyStream(cudaStream_t stream) {
  {
    FailedLaunches& failed = failedLaunches();
    const std::lock_guard lock(failed.mutex);
    failed.ofStream.erase(stream);
  }
  return clearingLastError(::cudaStreamDestroy(native(stream)));
}

// Relaxed: the capture must not forbid other threads any calls, such as synchronous ones.
cudaError_t beginCapture(cudaStream_t stream) {
  return clearingLastError(::cudaStreamBeginCapture(native(stream), cudaStreamCaptureModeRelaxed));
}

cudaError_t endCapture(cudaStream_t stream, cudaGraphExec_t* graph) {
  ::cudaGraph_t captured = nullptr;
  cudaError_t result = clearingLastError(::cudaStreamEndCapture(native(stream), &captured));
  if (result != cudaSuccess) return result;
  ::cudaGraphExec_t made = nullptr;
  result = clearingLastError(::cudaGraphInstantiate(&made, captured, 0));
  clearingLastError(::cudaGraphDestroy(captured));
  *graph = reinterpret_cast<cudaGraphExec_t>(made);
  return result;
}

}  // namespace

cudaError_t runtimeVersion(int* version) {
  return clearingLastError(::cudaRuntimeGetVersion(version));
}

cudaError_t driverVersion(int* version) {
  const cudaError_t result = clearingLastError(::cudaDriverGetVersion(version));
  return result == cudaSuccess && *version == 0 ? cudaErrorInsufficientDriver : result;
}

const DeviceKind deviceKind = {
    .backend = "CUDA / VkFFT",
    .synchronous = false,
    .count = count,
    .select = [](int ordinal) { return clearingLastError(::cudaSetDevice(ordinal)); },
    .properties = properties,
    .runsKernels = runsKernels,
    .memoryInfo =
        [](std::size_t* available, std::size_t* total) {
          return clearingLastError(::cudaMemGetInfo(available, total));
        },
    .allocate = [](void** pointer,
                   std::size_t bytes) { return clearingLastError(::cudaMalloc(pointer, bytes)); },
    .release = [](void* pointer) { return clearingLastError(::cudaFree(pointer)); },
    .allocateHost =
        [](void** pointer, std::size_t bytes) {
          return clearingLastError(::cudaMallocHost(pointer, bytes));
        },
    .releaseHost = [](void* pointer) { return clearingLastError(::cudaFreeHost(pointer)); },
    .copy =
        [](void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind) {
          return clearingLastError(::cudaMemcpy(to, from, bytes, native(kind)));
        },
    .copyAsync =
        [](void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
           cudaStream_t stream) {
          return clearingLastError(
              ::cudaMemcpyAsync(to, from, bytes, native(kind), native(stream)));
        },
    .setAsync =
        [](void* to, int value, std::size_t bytes, cudaStream_t stream) {
          return clearingLastError(::cudaMemsetAsync(to, value, bytes, native(stream)));
        },
    .importMemory = importMemory,
    .mapMemory = mapMemory,
    .releaseMemory =
        [](cudaExternalMemory_t memory) {
          return clearingLastError(::cudaDestroyExternalMemory(native(memory)));
        },
    .deviceOfAdapter =
        [](int* ordinal, void* adapter) {
          return clearingLastError(
              ::cudaD3D11GetDevice(ordinal, static_cast<IDXGIAdapter*>(adapter)));
        },
    .registerResource = registerResource,
    .setMapFlags =
        [](cudaGraphicsResource_t resource, unsigned flags) {
          return clearingLastError(::cudaGraphicsResourceSetMapFlags(native(resource), flags));
        },
    .mapResources =
        [](int count, cudaGraphicsResource_t* resources, cudaStream_t stream) {
          return clearingLastError(
              ::cudaGraphicsMapResources(count, native(resources), native(stream)));
        },
    .mappedPointer =
        [](void** pointer, std::size_t* bytes, cudaGraphicsResource_t resource) {
          return clearingLastError(
              ::cudaGraphicsResourceGetMappedPointer(pointer, bytes, native(resource)));
        },
    .unmapResources =
        [](int count, cudaGraphicsResource_t* resources, cudaStream_t stream) {
          return clearingLastError(
              ::cudaGraphicsUnmapResources(count, native(resources), native(stream)));
        },
    .unregisterResource =
        [](cudaGraphicsResource_t resource) {
          return clearingLastError(::cudaGraphicsUnregisterResource(native(resource)));
        },
    .createStream =
        [](cudaStream_t* stream, unsigned flags) {
          return clearingLastError(
              ::cudaStreamCreateWithFlags(reinterpret_cast<::cudaStream_t*>(stream), flags));
        },
    .synchronizeStream =
        [](cudaStream_t stream) {
          return clearingLastError(::cudaStreamSynchronize(native(stream)));
        },
    .destroyStream = destroyStream,
    .createEvent =
        [](cudaEvent_t* event) {
          return clearingLastError(::cudaEventCreate(reinterpret_cast<::cudaEvent_t*>(event)));
        },
    .recordEvent =
        [](cudaEvent_t event, cudaStream_t stream) {
          return clearingLastError(::cudaEventRecord(native(event), native(stream)));
        },
    .elapsedTime =
        [](float* milliseconds, cudaEvent_t begin, cudaEvent_t end) {
          return clearingLastError(
              ::cudaEventElapsedTime(milliseconds, native(begin), native(end)));
        },
    .destroyEvent =
        [](cudaEvent_t event) { return clearingLastError(::cudaEventDestroy(native(event))); },
    .launch = launch,
    .lastError = lastError,
    .errorString =
        [](cudaError_t error) {
          return ::cudaGetErrorString(static_cast<::cudaError_t>(static_cast<int>(error)));
        },
    .beginCapture = beginCapture,
    .endCapture = endCapture,
    .launchGraph =
        [](cudaGraphExec_t graph, cudaStream_t stream) {
          return clearingLastError(::cudaGraphLaunch(native(graph), native(stream)));
        },
    .destroyGraph =
        [](cudaGraphExec_t graph) {
          return clearingLastError(::cudaGraphExecDestroy(native(graph)));
        },
    .createTransform = createTransform,
    .appendTransform = appendTransform,
    .transformErrorString = [](int) -> const char* { return nullptr; },
    .destroyTransform = destroyTransform,
    .transformAllocations = transformAllocations,
};

}  // namespace zeph::cuda
