// Launches of a test's own kernels on the emulated GPU.
#pragma once

#include <cuda_runtime_api.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "tests/emulation/emulated_gpu.h"
#include "tests/emulation/own_kernels.h"

namespace zeph::emulation {

// The handle of a kernel, as a program's own kernels get theirs.
template <auto kernel>
const void* handleOf() {
  static constexpr KernelFunction functions[] = {functionOf<kernel>("kernel")};
  static constexpr KernelImage image = {functions, 1};
  ::cudaLibrary_t library = nullptr;
  ::cudaKernel_t handle = nullptr;
  EXPECT_EQ(::cudaLibraryLoadData(&library, &image, nullptr, nullptr, 0, nullptr, nullptr, 0),
            ::cudaSuccess);
  EXPECT_EQ(::cudaLibraryGetKernel(&handle, library, "kernel"), ::cudaSuccess);
  return reinterpret_cast<const void*>(handle);
}

template <auto kernel, class... Arguments>
::cudaError_t launch(::dim3 blocks, ::dim3 threads, std::size_t sharedBytes, ::cudaStream_t stream,
                     Arguments... arguments) {
  void* addresses[] = {&arguments...};
  return ::cudaLaunchKernel(handleOf<kernel>(), blocks, threads, addresses, sharedBytes, stream);
}

// An array on the GPU, through the default stream.
template <class T>
class DeviceArray {
 public:
  explicit DeviceArray(std::size_t count) : count_(count) {
    void* block = nullptr;
    EXPECT_EQ(::cudaMalloc(&block, count * sizeof(T)), ::cudaSuccess);
    begin_ = static_cast<T*>(block);
  }
  ~DeviceArray() { ::cudaFree(begin_); }
  DeviceArray(const DeviceArray&) = delete;
  DeviceArray& operator=(const DeviceArray&) = delete;

  T* begin() const { return begin_; }

  std::vector<T> content() const {
    std::vector<T> values(count_);
    EXPECT_EQ(::cudaMemcpy(values.data(), begin_, count_ * sizeof(T), ::cudaMemcpyDeviceToHost),
              ::cudaSuccess);
    return values;
  }

 private:
  std::size_t count_;
  T* begin_;
};

}  // namespace zeph::emulation
