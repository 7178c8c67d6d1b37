// The device calls, on the processor.
#include "device/runtime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "device/check.h"
#include "device/cpu/thread_pool.h"
#include "platform/system.h"
#include "platform/system_memory.h"

namespace zeph {
namespace {

int processorOrdinal() {
  int count = 0;
  EXPECT_EQ(cudaGetDeviceCount(&count), cudaSuccess);
  return count - 1;
}

// The processor is selected on the test's thread, whatever GPUs the machine has.
class Runtime : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(cudaGetDevice(&before_), cudaSuccess);
    ASSERT_EQ(cudaSetDevice(processorOrdinal()), cudaSuccess);
  }
  void TearDown() override { cudaSetDevice(before_); }

 private:
  int before_ = 0;
};

TEST_F(Runtime, TheProcessorIsAlwaysTheLastDevice) {
  EXPECT_GE(processorOrdinal(), 0);
  EXPECT_STREQ(deviceBackend(), "CPU / built-in FFT");
  EXPECT_TRUE(deviceIsSynchronous());
}

TEST_F(Runtime, AnOrdinalWithoutADeviceIsInvalidAndChangesNothing) {
  const int last = processorOrdinal();
  for (const int ordinal : {last + 1, last + 100, -1, -2147483647 - 1, 2147483647}) {
    EXPECT_EQ(cudaSetDevice(ordinal), cudaErrorInvalidDevice);
    cudaDeviceProp properties;
    EXPECT_EQ(cudaGetDeviceProperties(&properties, ordinal), cudaErrorInvalidDevice);
    int selected = -1;
    EXPECT_EQ(cudaGetDevice(&selected), cudaSuccess);
    EXPECT_EQ(selected, last);
  }
}

TEST_F(Runtime, EachThreadSelectsForItself) {
  int elsewhere = -1;
  std::thread([&] { cudaGetDevice(&elsewhere); }).join();
  EXPECT_EQ(elsewhere, 0);
  std::thread([&] {
    cudaSetDevice(processorOrdinal());
    cudaGetDevice(&elsewhere);
  }).join();
  EXPECT_EQ(elsewhere, processorOrdinal());
}

TEST_F(Runtime, TheProcessorReportsItsModelThreadsAndMemory) {
  cudaDeviceProp properties;
  ASSERT_EQ(cudaGetDeviceProperties(&properties, processorOrdinal()), cudaSuccess);
  const int threads = cpu::ThreadPool::shared().participants();
  const std::string suffix =
      " (" + std::to_string(threads) + (threads == 1 ? " thread)" : " threads)");
  EXPECT_EQ(std::string(properties.name), platform::processorModel() + suffix);
  EXPECT_EQ(properties.totalGlobalMem, platform::physicalMemory());
  EXPECT_EQ(properties.major, 0);
  EXPECT_EQ(properties.minor, 0);
  std::size_t available = 0;
  std::size_t total = 0;
  ASSERT_EQ(cudaMemGetInfo(&available, &total), cudaSuccess);
  EXPECT_EQ(total, properties.totalGlobalMem);
  EXPECT_GT(available, 0u);
  EXPECT_LT(available, total);
}

TEST_F(Runtime, ABuildWithCudaReportsItsVersionAndTheDrivers) {
  int runtime = 0;
  int driver = 0;
  const cudaError_t runtimeResult = cudaRuntimeGetVersion(&runtime);
  const cudaError_t driverResult = cudaDriverGetVersion(&driver);
#if ZEPHANE_CUDA
  EXPECT_EQ(runtimeResult, cudaSuccess);
  EXPECT_GE(runtime, 12080);
  EXPECT_EQ(driverResult == cudaSuccess, driver > 0);
  if (processorOrdinal() > 0) {
    EXPECT_EQ(driverResult, cudaSuccess);
  }
#else
  EXPECT_EQ(runtimeResult, cudaErrorNotSupported);
  EXPECT_EQ(driverResult, cudaErrorNotSupported);
#endif
}

TEST_F(Runtime, TheProcessorRunsTheKernelsAndOrdinalsWithoutADeviceDoNot) {
  EXPECT_TRUE(deviceRunsKernels(processorOrdinal()));
  EXPECT_FALSE(deviceRunsKernels(processorOrdinal() + 1));
  EXPECT_FALSE(deviceRunsKernels(-1));
}

TEST_F(Runtime, MemoryIsAllocatedAndFreed) {
  void* pointer = nullptr;
  ASSERT_EQ(cudaMalloc(&pointer, 1000), cudaSuccess);
  ASSERT_NE(pointer, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pointer) % 64, 0u);
  EXPECT_EQ(cudaFree(pointer), cudaSuccess);
  EXPECT_EQ(cudaFree(pointer), cudaErrorInvalidValue);
  EXPECT_EQ(cudaFree(nullptr), cudaSuccess);
  ASSERT_EQ(cudaMallocHost(&pointer, 1000), cudaSuccess);
  EXPECT_EQ(cudaFreeHost(pointer), cudaSuccess);
  EXPECT_EQ(cudaFreeHost(nullptr), cudaSuccess);
}

TEST_F(Runtime, AHugeAllocationFails) {
  for (const std::size_t bytes : {std::size_t{1} << 60, ~std::size_t{0}, ~std::size_t{0} / 2}) {
    void* pointer = nullptr;
    EXPECT_EQ(cudaMalloc(&pointer, bytes), cudaErrorMemoryAllocation);
    EXPECT_EQ(cudaMallocHost(&pointer, bytes), cudaErrorMemoryAllocation);
  }
}

TEST_F(Runtime, AnAllocationOfZeroBytesSucceeds) {
  for (int k = 0; k < 40; ++k) {
    void* pointer = nullptr;
    EXPECT_EQ(cudaMalloc(&pointer, 0), cudaSuccess) << k;
    EXPECT_EQ(cudaFree(pointer), cudaSuccess) << k;
  }
}

TEST_F(Runtime, CopiesAndFillsAreCompleteOnReturn) {
  cudaStream_t stream = nullptr;
  ASSERT_EQ(cudaStreamCreateWithFlags(&stream, streamNonBlocking), cudaSuccess);
  void* device = nullptr;
  ASSERT_EQ(cudaMalloc(&device, 64), cudaSuccess);
  const std::vector<unsigned char> given = {1, 2, 3, 4, 5, 6, 7, 8};
  std::vector<unsigned char> back(8);
  EXPECT_EQ(cudaMemsetAsync(device, 0xEE, 64, stream), cudaSuccess);
  EXPECT_EQ(cudaMemcpyAsync(device, given.data(), 5, cudaMemcpyHostToDevice, stream), cudaSuccess);
  EXPECT_EQ(cudaMemcpyAsync(back.data(), device, 8, cudaMemcpyDeviceToHost, stream), cudaSuccess);
  EXPECT_EQ(back, (std::vector<unsigned char>{1, 2, 3, 4, 5, 0xEE, 0xEE, 0xEE}));
  EXPECT_EQ(cudaMemcpy(back.data(), static_cast<char*>(device) + 3, 2, cudaMemcpyDeviceToHost),
            cudaSuccess);
  EXPECT_EQ(back[0], 4);
  EXPECT_EQ(cudaMemcpy(nullptr, nullptr, 0, cudaMemcpyDeviceToHost), cudaSuccess);
  EXPECT_EQ(cudaStreamSynchronize(stream), cudaSuccess);
  EXPECT_EQ(cudaFree(device), cudaSuccess);
  EXPECT_EQ(cudaStreamDestroy(stream), cudaSuccess);
}

// They are done in parts, by all threads.
TEST_F(Runtime, LargeCopiesAndFillsAreWhole) {
  for (const std::size_t bytes : {std::size_t{1} << 20, (std::size_t{3} << 20) + 5}) {
    void* device = nullptr;
    ASSERT_EQ(cudaMalloc(&device, bytes + 1), cudaSuccess);
    std::vector<unsigned char> given(bytes);
    for (std::size_t k = 0; k < bytes; ++k) given[k] = static_cast<unsigned char>(k % 251);
    std::vector<unsigned char> back(bytes + 1);
    EXPECT_EQ(cudaMemsetAsync(device, 0xEE, bytes, nullptr), cudaSuccess);
    EXPECT_EQ(cudaMemcpy(back.data(), device, bytes + 1, cudaMemcpyDeviceToHost), cudaSuccess);
    EXPECT_EQ(std::count(back.begin(), back.end(), 0xEE), static_cast<std::ptrdiff_t>(bytes));
    EXPECT_EQ(back.back(), 0);
    EXPECT_EQ(cudaMemcpy(device, given.data(), bytes, cudaMemcpyHostToDevice), cudaSuccess);
    EXPECT_EQ(cudaMemcpy(back.data(), device, bytes + 1, cudaMemcpyDeviceToHost), cudaSuccess);
    EXPECT_TRUE(std::equal(given.begin(), given.end(), back.begin()));
    EXPECT_EQ(back.back(), 0);
    EXPECT_EQ(cudaFree(device), cudaSuccess);
  }
}

TEST_F(Runtime, EventsMeasureMilliseconds) {
  cudaEvent_t begin = nullptr;
  cudaEvent_t end = nullptr;
  ASSERT_EQ(cudaEventCreate(&begin), cudaSuccess);
  ASSERT_EQ(cudaEventCreate(&end), cudaSuccess);
  float milliseconds = -1;
  EXPECT_EQ(cudaEventElapsedTime(&milliseconds, begin, end), cudaErrorInvalidResourceHandle);
  EXPECT_EQ(cudaEventRecord(begin, nullptr), cudaSuccess);
  EXPECT_EQ(cudaEventElapsedTime(&milliseconds, begin, end), cudaErrorInvalidResourceHandle);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(cudaEventRecord(end, nullptr), cudaSuccess);
  EXPECT_EQ(cudaEventElapsedTime(&milliseconds, begin, end), cudaSuccess);
  EXPECT_GE(milliseconds, 20.0f);
  EXPECT_LT(milliseconds, 20000.0f);
  EXPECT_EQ(cudaEventDestroy(begin), cudaSuccess);
  EXPECT_EQ(cudaEventDestroy(end), cudaSuccess);
}

TEST_F(Runtime, ALaunchRunsTheKernelWithTheAddressesOfItsArguments) {
  const Kernel add = {"add", [](void** arguments) {
                        **static_cast<int**>(arguments[0]) += *static_cast<int*>(arguments[1]);
                      }};
  int sum = 40;
  int* target = &sum;
  int increment = 2;
  void* arguments[] = {&target, &increment};
  EXPECT_EQ(cudaLaunchKernel(add, {1}, {1}, arguments, 0, nullptr), cudaSuccess);
  EXPECT_EQ(sum, 42);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST(ErrorTexts, AreStable) {
  EXPECT_STREQ(cudaGetErrorString(cudaSuccess), "no error");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidValue), "invalid argument");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorMemoryAllocation), "out of memory");
  EXPECT_STREQ(cudaGetErrorString(cudaErrorInvalidDevice), "invalid device ordinal");
  EXPECT_STREQ(cudaGetErrorString(static_cast<cudaError_t>(12345)), "unrecognized error code");
}

TEST(Check, NamesTheCallAndTheError) {
  EXPECT_NO_THROW(check(cudaSuccess, "anything"));
  try {
    check(cudaErrorMemoryAllocation, "cudaMalloc(&ptr,bytes)");
    FAIL() << "a failure passed the check";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "cudaMalloc(&ptr,bytes): out of memory");
  }
}

}  // namespace
}  // namespace zeph
