#include "solver/device_resources.h"

#include "device/check.h"

namespace zeph {

int selectedDevice() {
  int device = 0;
  check(cudaGetDevice(&device), "cudaGetDevice(&device)");
  return device;
}

DeviceScope::DeviceScope(int device) : device_(device), before_(device) {
  cudaGetDevice(&before_);
  if (before_ != device_) cudaSetDevice(device_);
}

DeviceScope::~DeviceScope() {
  if (before_ != device_) cudaSetDevice(before_);
}

CudaQueue::CudaQueue() {
  check(cudaStreamCreateWithFlags(&value, streamNonBlocking),
        "cudaStreamCreateWithFlags(&value,cudaStreamNonBlocking)");
}

CudaQueue::~CudaQueue() {
  cudaStreamSynchronize(value);
  cudaStreamDestroy(value);
}

TimingEvents::TimingEvents() {
  check(cudaEventCreate(&begin), "cudaEventCreate(&begin)");
  const cudaError_t second = cudaEventCreate(&end);
  if (second != cudaSuccess) cudaEventDestroy(begin);
  check(second, "cudaEventCreate(&end)");
}

TimingEvents::~TimingEvents() {
  cudaEventDestroy(begin);
  cudaEventDestroy(end);
}

DeviceBuffer::~DeviceBuffer() {
  cudaFree(ptr);
}

void DeviceBuffer::allocate(std::size_t size) {
  check(cudaMalloc(&ptr, size), "cudaMalloc(&ptr,bytes)");
  bytes = size;
}

std::shared_ptr<float> allocateBlock(std::size_t count) {
  void* ptr = nullptr;
  check(cudaMalloc(&ptr, count * sizeof(float)), "cudaMalloc(&ptr,bytes)");
  return {static_cast<float*>(ptr), [device = selectedDevice()](float* block) {
            const DeviceScope scope(device);
            cudaFree(block);
          }};
}

PinnedData::PinnedData() {
  void* block = nullptr;
  check(cudaMallocHost(&block, sizeof(Data)),
        "cudaMallocHost(reinterpret_cast<void**>(&data),sizeof(Data))");
  data = static_cast<Data*>(block);
}

PinnedData::~PinnedData() {
  cudaFreeHost(data);
}

}  // namespace zeph
