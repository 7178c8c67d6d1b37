// Memory and copies of CUDA's runtime.
#include <cstring>

#include "tests/emulation/work.h"

using namespace zeph::emulation;

namespace {

bool fits(int gpu, std::size_t bytes) {
  const std::size_t size = state().machine.gpus[static_cast<std::size_t>(gpu)].memory;
  return bytes <= size && state().ledger.bytesOn(gpu) <= size - bytes;
}

bool isCopyAllowed(const void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind) {
  const Ledger& ledger = state().ledger;
  const bool isToDevice = kind == cudaMemcpyHostToDevice || kind == cudaMemcpyDeviceToDevice;
  const bool isFromDevice = kind == cudaMemcpyDeviceToHost || kind == cudaMemcpyDeviceToDevice;
  if (!isToDevice && !isFromDevice) return false;
  const auto isRight = [&](const void* pointer, bool isDevice) {
    return isDevice ? ledger.holds(pointer, bytes)
                    : pointer != nullptr && !ledger.isDevicePointer(pointer);
  };
  return isRight(to, isToDevice) && isRight(from, isFromDevice);
}

// The caller's memory may change as soon as the call is over, unless it is page-locked.
Work copyFromHost(const Stream& stream, void* to, const void* from, std::size_t bytes) {
  if (stream.isCapturing || state().ledger.isPageLocked(from)) {
    return [=] {
      std::memcpy(to, from, bytes);
      return cudaSuccess;
    };
  }
  const auto* begin = static_cast<const std::byte*>(from);
  return [to, values = std::vector<std::byte>(begin, begin + bytes)] {
    std::memcpy(to, values.data(), values.size());
    return cudaSuccess;
  };
}

cudaError_t queueCopy(Stream& stream, void* to, const void* from, std::size_t bytes,
                      cudaMemcpyKind kind) {
  if (bytes == 0) return cudaSuccess;
  if (!isCopyAllowed(to, from, bytes, kind)) return cudaErrorInvalidValue;
  if (kind == cudaMemcpyHostToDevice) {
    queue(stream, copyFromHost(stream, to, from, bytes));
    return cudaSuccess;
  }
  queue(stream, [=] {
    std::memcpy(to, from, bytes);
    return cudaSuccess;
  });
  // Pageable memory has the values when the call returns.
  const bool isAwaited = kind == cudaMemcpyDeviceToHost && !state().ledger.isPageLocked(to);
  return isAwaited && !stream.isCapturing ? finish(stream) : cudaSuccess;
}

}  // namespace

extern "C" {

cudaError_t cudaMemGetInfo(std::size_t* available, std::size_t* total) {
  return call("cudaMemGetInfo", [=] {
    *total = state().machine.gpus[static_cast<std::size_t>(currentGpu())].memory;
    *available = *total - state().ledger.bytesOn(currentGpu());
    return cudaSuccess;
  });
}

cudaError_t cudaMalloc(void** pointer, std::size_t bytes) {
  return call("cudaMalloc", [=] {
    *pointer = nullptr;
    if (bytes == 0) return cudaSuccess;
    if (!fits(currentGpu(), bytes)) return cudaErrorMemoryAllocation;
    *pointer = state().ledger.allocate(currentGpu(), bytes);
    return *pointer != nullptr ? cudaSuccess : cudaErrorMemoryAllocation;
  });
}

// Running work may still use the memory.
cudaError_t cudaFree(void* pointer) {
  return call("cudaFree", [=] {
    if (pointer == nullptr) return cudaSuccess;
    const int gpu = state().ledger.gpuOf(pointer);
    if (gpu < 0) return cudaErrorInvalidValue;
    const cudaError_t result = finishGpu(gpu);
    state().ledger.release(pointer);
    return result;
  });
}

cudaError_t cudaMallocHost(void** pointer, std::size_t bytes) {
  return call("cudaMallocHost", [=] {
    *pointer = state().ledger.allocateHost(bytes);
    return *pointer != nullptr ? cudaSuccess : cudaErrorMemoryAllocation;
  });
}

cudaError_t cudaFreeHost(void* pointer) {
  return call("cudaFreeHost", [=] {
    if (pointer == nullptr) return cudaSuccess;
    for (int gpu = 0; gpu < state().gpus(); ++gpu) finishGpu(gpu);
    return state().ledger.releaseHost(pointer) ? cudaSuccess : cudaErrorInvalidValue;
  });
}

cudaError_t cudaMemcpy(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind) {
  return call("cudaMemcpy", [=] {
    Stream& stream = *streamOf(nullptr);
    const cudaError_t result = queueCopy(stream, to, from, bytes, kind);
    return result == cudaSuccess ? finish(stream) : result;
  });
}

cudaError_t cudaMemcpyAsync(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
                            cudaStream_t handle) {
  return call("cudaMemcpyAsync", [=] {
    Stream* stream = streamOf(handle);
    if (stream == nullptr) return cudaErrorInvalidResourceHandle;
    return queueCopy(*stream, to, from, bytes, kind);
  });
}

cudaError_t cudaMemsetAsync(void* to, int value, std::size_t bytes, cudaStream_t handle) {
  return call("cudaMemsetAsync", [=] {
    Stream* stream = streamOf(handle);
    if (stream == nullptr) return cudaErrorInvalidResourceHandle;
    if (bytes == 0) return cudaSuccess;
    if (!state().ledger.holds(to, bytes)) return cudaErrorInvalidValue;
    queue(*stream, [=] {
      std::memset(to, value, bytes);
      return cudaSuccess;
    });
    return cudaSuccess;
  });
}

cudaError_t cudaMemset(void* to, int value, std::size_t bytes) {
  return cudaMemsetAsync(to, value, bytes, nullptr);
}

}  // extern "C"
