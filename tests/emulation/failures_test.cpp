// Failures of the emulated GPU: injected ones, and those of other machines.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "tests/emulation/launching.h"
// The built-in names, after CUDA's own headers.
#include "tests/emulation/cuda_language.h"

namespace zeph::emulation {
namespace {

__global__ void nothing(int) {}

TEST(EmulatedFailure, OccursOnceAfterThePassingCalls) {
  const MachineScope scope({});
  failNext("cudaMalloc", ::cudaErrorMemoryAllocation, 1);
  const long before = callsOf("cudaMalloc");
  void* blocks[3] = {};
  EXPECT_EQ(::cudaMalloc(&blocks[0], 16), ::cudaSuccess);
  EXPECT_EQ(::cudaMalloc(&blocks[1], 16), ::cudaErrorMemoryAllocation);
  EXPECT_EQ(::cudaMalloc(&blocks[2], 16), ::cudaSuccess);
  EXPECT_EQ(callsOf("cudaMalloc"), before + 3);
  EXPECT_EQ(holdings().allocations, 2u);
  ::cudaFree(blocks[0]);
  ::cudaFree(blocks[2]);
}

TEST(EmulatedFailure, IsTheLastErrorOfItsThreadUntilRead) {
  const MachineScope scope({});
  EXPECT_EQ(::cudaSetDevice(2), ::cudaErrorInvalidDevice);
  std::thread([] { EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess); }).join();
  EXPECT_EQ(::cudaGetLastError(), ::cudaErrorInvalidDevice);
  EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess);
}

TEST(EmulatedFailure, AThreadStartsOnTheFirstGpu) {
  ASSERT_EQ(::cudaSetDevice(1), ::cudaSuccess);
  std::thread([] {
    int gpu = -1;
    EXPECT_EQ(::cudaGetDevice(&gpu), ::cudaSuccess);
    EXPECT_EQ(gpu, 0);
  }).join();
  ASSERT_EQ(::cudaSetDevice(0), ::cudaSuccess);
}

TEST(EmulatedMachine, WithoutADriverOrWithAnOldOneHasNoGpu) {
  for (const int driver : {0, 12080}) {
    const MachineScope scope({.driverVersion = driver});
    int count = 7;
    EXPECT_EQ(::cudaGetDeviceCount(&count), ::cudaErrorInsufficientDriver);
    EXPECT_EQ(count, 0);
    int version = -1;
    EXPECT_EQ(::cudaDriverGetVersion(&version), ::cudaSuccess);
    EXPECT_EQ(version, driver);
    void* block = nullptr;
    EXPECT_EQ(::cudaMalloc(&block, 16), ::cudaErrorInsufficientDriver);
  }
  const MachineScope scope({.gpus = {}});
  int count = 7;
  EXPECT_EQ(::cudaGetDeviceCount(&count), ::cudaErrorNoDevice);
}

TEST(EmulatedMachine, AnOldGpuHasNoCode) {
  const MachineScope scope({.gpus = {{.major = 7, .minor = 0}, {.major = 12, .minor = 0}}});
  EXPECT_EQ(launch<&nothing>(1, 1, 0, nullptr, 0), ::cudaErrorNoKernelImageForDevice);
  ASSERT_EQ(::cudaSetDevice(1), ::cudaSuccess);
  EXPECT_EQ(launch<&nothing>(1, 1, 0, nullptr, 0), ::cudaSuccess);
}

TEST(EmulatedMachine, NamesErrorsAsCudaDoes) {
  EXPECT_EQ(::cudaGetErrorString(::cudaErrorMemoryAllocation), std::string("out of memory"));
  EXPECT_EQ(::cudaGetErrorString(::cudaErrorInvalidDevice), std::string("invalid device ordinal"));
}

}  // namespace
}  // namespace zeph::emulation
