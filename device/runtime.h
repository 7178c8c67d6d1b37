// The part of the CUDA runtime that the system uses, under CUDA's own names.
//
// The devices are the CUDA devices, ordinals 0 to n-1, and the processor, always the last ordinal,
// n. Each call goes to the device that the calling thread has selected (device 0 until it selects
// one). Results and meanings are CUDA's. The processor's stream is synchronous: work queued on it
// is done when the call returns.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zeph {

enum cudaError_t : int {
  cudaSuccess = 0,
  cudaErrorInvalidValue = 1,
  cudaErrorMemoryAllocation = 2,
  cudaErrorInsufficientDriver = 35,
  cudaErrorNoDevice = 100,
  cudaErrorInvalidDevice = 101,
  cudaErrorInvalidResourceHandle = 400,
  cudaErrorLaunchFailure = 719,
  cudaErrorNotSupported = 801,
};

enum cudaMemcpyKind : int {
  cudaMemcpyHostToDevice = 1,
  cudaMemcpyDeviceToHost = 2,
  cudaMemcpyDeviceToDevice = 3,
};

struct dim3 {
  unsigned x = 1, y = 1, z = 1;
};

struct cudaUUID_t {
  char bytes[16] = {};
};

struct cudaDeviceProp {
  char name[256] = {};
  cudaUUID_t uuid;                 // zero for the processor
  std::size_t totalGlobalMem = 0;  // bytes
  int major = 0;                   // compute capability
  int minor = 0;
};

// Handles; what they point to belongs to the device that made them.
using cudaStream_t = struct DeviceStream*;
using cudaEvent_t = struct DeviceEvent*;
using cudaGraphExec_t = struct DeviceGraph*;
using cudaExternalMemory_t = struct DeviceExternalMemory*;

// Memory that another interface of the same GPU has exported, by a handle of the system (on Linux a
// file descriptor, which belongs to the device once it has been imported).
struct cudaExternalMemoryHandleDesc {
  int fd = -1;
  std::size_t size = 0;  // bytes
};

constexpr unsigned streamNonBlocking = 1;  // cudaStreamNonBlocking

// A kernel: its name in the embedded GPU code, and its body for the processor, which takes the
// addresses of the arguments as a launch does.
struct Kernel {
  const char* name;
  void (*onProcessor)(void** arguments);
};

cudaError_t cudaGetDeviceCount(int* count);
cudaError_t cudaSetDevice(int device);
cudaError_t cudaGetDevice(int* device);
cudaError_t cudaGetDeviceProperties(cudaDeviceProp* properties, int device);
cudaError_t cudaMemGetInfo(std::size_t* available, std::size_t* total);  // bytes
cudaError_t cudaRuntimeGetVersion(int* version);
cudaError_t cudaDriverGetVersion(int* version);

cudaError_t cudaMalloc(void** pointer, std::size_t bytes);
cudaError_t cudaFree(void* pointer);
cudaError_t cudaMallocHost(void** pointer, std::size_t bytes);
cudaError_t cudaFreeHost(void* pointer);
cudaError_t cudaMemcpy(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind);
cudaError_t cudaMemcpyAsync(void* to, const void* from, std::size_t bytes, cudaMemcpyKind kind,
                            cudaStream_t stream);
cudaError_t cudaMemsetAsync(void* to, int value, std::size_t bytes, cudaStream_t stream);

// A synchronous device does not support these: it works in ordinary memory, which needs no import.
cudaError_t cudaImportExternalMemory(cudaExternalMemory_t* memory,
                                     const cudaExternalMemoryHandleDesc* description);
cudaError_t cudaExternalMemoryGetMappedBuffer(void** pointer, cudaExternalMemory_t memory,
                                              std::size_t bytes);
cudaError_t cudaDestroyExternalMemory(cudaExternalMemory_t memory);

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned flags);
cudaError_t cudaStreamSynchronize(cudaStream_t stream);
cudaError_t cudaStreamDestroy(cudaStream_t stream);

cudaError_t cudaEventCreate(cudaEvent_t* event);
cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream);
cudaError_t cudaEventElapsedTime(float* milliseconds, cudaEvent_t begin, cudaEvent_t end);
cudaError_t cudaEventDestroy(cudaEvent_t event);

// A failed launch is also kept as the last error of its stream, which cudaGetLastError returns and
// clears. Without a stream it is that of any, and what else the runtime keeps for the thread.
cudaError_t cudaLaunchKernel(const Kernel& kernel, dim3 grid, dim3 block, void** arguments,
                             std::size_t sharedBytes, cudaStream_t stream);
cudaError_t cudaGetLastError(cudaStream_t stream = nullptr);
const char* cudaGetErrorString(cudaError_t error);

// Work queued on the stream between these two calls is recorded instead of done, to be launched as
// one piece. A synchronous device does not support this.
cudaError_t cudaStreamBeginCapture(cudaStream_t stream);
cudaError_t cudaStreamEndCapture(cudaStream_t stream, cudaGraphExec_t* graph);
cudaError_t cudaGraphLaunch(cudaGraphExec_t graph, cudaStream_t stream);
cudaError_t cudaGraphExecDestroy(cudaGraphExec_t graph);

// Whether the selected device does queued work at once, so that the host may read and write its
// memory between two calls.
bool deviceIsSynchronous();

// Whether the kernels can run on a device; a GPU may be too old for them.
bool deviceRunsKernels(int device);

// "CUDA / VkFFT" or "CPU / built-in FFT", for the selected device and for any.
const char* deviceBackend();
const char* deviceBackend(int device);

}  // namespace zeph
