// The memory of the emulated GPU.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <csignal>
#include <vector>

#include "tests/emulation/launching.h"
// The built-in names, after CUDA's own headers.
#include "tests/emulation/cuda_language.h"

namespace zeph::emulation {
namespace {

constexpr std::size_t kib = 1024;

__global__ void writeAt(float* array, int at) {
  array[at] = 1.0f;
}

::cudaError_t allocate(std::size_t bytes, void** block) {
  return ::cudaMalloc(block, bytes);
}

TEST(EmulatedMemory, IsInitiallyFullOfNaN) {
  for (const float value : DeviceArray<float>(100).content()) EXPECT_TRUE(std::isnan(value));
}

TEST(EmulatedMemory, IsLimitedToThatOfTheGpu) {
  const MachineScope scope({.gpus = {{.memory = 64 * kib}, {.memory = 16 * kib}}});
  void* block = nullptr;
  EXPECT_EQ(allocate(64 * kib + 1, &block), ::cudaErrorMemoryAllocation);
  ASSERT_EQ(allocate(60 * kib, &block), ::cudaSuccess);
  void* more = nullptr;
  EXPECT_EQ(allocate(5 * kib, &more), ::cudaErrorMemoryAllocation);
  std::size_t available = 0;
  std::size_t total = 0;
  ASSERT_EQ(::cudaMemGetInfo(&available, &total), ::cudaSuccess);
  EXPECT_EQ(available, 4 * kib);
  EXPECT_EQ(total, 64 * kib);
  EXPECT_EQ(holdings().bytes, 60 * kib);
  ASSERT_EQ(::cudaFree(block), ::cudaSuccess);
  ASSERT_EQ(allocate(64 * kib, &block), ::cudaSuccess);
  ASSERT_EQ(::cudaFree(block), ::cudaSuccess);
}

TEST(EmulatedMemory, IsFreedOnce) {
  void* block = nullptr;
  ASSERT_EQ(allocate(100, &block), ::cudaSuccess);
  EXPECT_EQ(::cudaFree(static_cast<char*>(block) + 4), ::cudaErrorInvalidValue);
  EXPECT_EQ(::cudaFree(block), ::cudaSuccess);
  EXPECT_EQ(::cudaFree(block), ::cudaErrorInvalidValue);
  EXPECT_EQ(::cudaFree(nullptr), ::cudaSuccess);
  int ours = 0;
  EXPECT_EQ(::cudaFree(&ours), ::cudaErrorInvalidValue);
  EXPECT_EQ(::cudaFreeHost(&ours), ::cudaErrorInvalidValue);
  ::cudaGetLastError();
}

TEST(EmulatedMemory, CopiesMustStayWithinABlockAndMatchTheirKind) {
  const DeviceArray<float> array(16);
  const DeviceArray<float> other(16);
  std::vector<float> host(32);
  const auto copy = [](void* to, const void* from, std::size_t count, ::cudaMemcpyKind kind) {
    return ::cudaMemcpy(to, from, count * sizeof(float), kind);
  };
  float* const on = array.begin();
  EXPECT_EQ(copy(on, host.data(), 16, ::cudaMemcpyHostToDevice), ::cudaSuccess);
  EXPECT_EQ(copy(on + 15, host.data(), 1, ::cudaMemcpyHostToDevice), ::cudaSuccess);
  EXPECT_EQ(copy(other.begin(), on, 16, ::cudaMemcpyDeviceToDevice), ::cudaSuccess);
  EXPECT_EQ(copy(on, host.data(), 17, ::cudaMemcpyHostToDevice), ::cudaErrorInvalidValue);
  EXPECT_EQ(copy(on + 1, host.data(), 16, ::cudaMemcpyHostToDevice), ::cudaErrorInvalidValue);
  EXPECT_EQ(copy(host.data(), on, 17, ::cudaMemcpyDeviceToHost), ::cudaErrorInvalidValue);
  EXPECT_EQ(copy(host.data(), on, 16, ::cudaMemcpyHostToDevice), ::cudaErrorInvalidValue);
  EXPECT_EQ(copy(host.data(), on, 16, ::cudaMemcpyDeviceToDevice), ::cudaErrorInvalidValue);
  EXPECT_EQ(::cudaMemsetAsync(on, 0, 17 * sizeof(float), nullptr), ::cudaErrorInvalidValue);
  ::cudaGetLastError();
}

TEST(EmulatedMemory, AWriteBesideABlockIsAFault) {
  for (const int at : {-1, 16}) {
    const MachineScope scope({});
    const DeviceArray<float> array(16);
    ASSERT_EQ(launch<&writeAt>(1, 1, 0, nullptr, array.begin(), at), ::cudaSuccess);
    EXPECT_EQ(::cudaDeviceSynchronize(), ::cudaErrorIllegalAddress);
    EXPECT_TRUE(hasFault(0));
  }
}

// How the system or the address sanitizer ends a process.
bool isFault(int status) {
  return (WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) || testing::ExitedWithCode(1)(status);
}

TEST(EmulatedMemoryDeathTest, TheHostCannotTouchIt) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        const DeviceArray<float> array(16);
        ::cudaDeviceSynchronize();
        *array.begin() = 1.0f;
      },
      isFault, "");
}

TEST(EmulatedMemoryDeathTest, AKernelCannotTouchThatOfAnotherGpu) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        const DeviceArray<float> array(16);
        ::cudaSetDevice(1);
        launch<&writeAt>(1, 1, 0, nullptr, array.begin(), 0);
        ::cudaDeviceSynchronize();
      },
      isFault, "");
}

}  // namespace
}  // namespace zeph::emulation
