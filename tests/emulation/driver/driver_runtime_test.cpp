// The runtime's functions where the driver alone does them.
#include <cuda_runtime_api.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/emulation/emulated_gpu.h"

namespace zeph {
namespace {

using emulation::failNext;
using emulation::Machine;
using emulation::MachineScope;

constexpr std::size_t megabyte = std::size_t{1} << 20;

std::size_t totalMemory() {
  std::size_t available = 0;
  std::size_t total = 0;
  EXPECT_EQ(::cudaMemGetInfo(&available, &total), ::cudaSuccess);
  return total;
}

TEST(RuntimeOverDriver, EachThreadStartsOnTheFirstDeviceAndSelectsForItself) {
  const MachineScope scope({.gpus = {{.memory = megabyte}, {.memory = 2 * megabyte}}});
  std::thread([] { EXPECT_EQ(totalMemory(), megabyte); }).join();
  std::thread([] {
    ASSERT_EQ(::cudaSetDevice(1), ::cudaSuccess);
    std::thread([] { EXPECT_EQ(totalMemory(), megabyte); }).join();
    EXPECT_EQ(totalMemory(), 2 * megabyte);
    int device = -1;
    EXPECT_EQ(::cudaGetDevice(&device), ::cudaSuccess);
    EXPECT_EQ(device, 1);
    EXPECT_EQ(::cudaSetDevice(2), ::cudaErrorInvalidDevice);
    EXPECT_EQ(totalMemory(), 2 * megabyte);
  }).join();
}

TEST(RuntimeOverDriver, KeepsAnErrorForItsThreadUntilItIsRead) {
  const MachineScope scope({});
  failNext("cudaMalloc", ::cudaErrorMemoryAllocation);
  void* block = nullptr;
  EXPECT_EQ(::cudaMalloc(&block, 16), ::cudaErrorMemoryAllocation);
  std::thread([] { EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess); }).join();
  EXPECT_EQ(::cudaGetLastError(), ::cudaErrorMemoryAllocation);
  EXPECT_EQ(::cudaGetLastError(), ::cudaSuccess);
}

TEST(RuntimeOverDriver, AllocatesAndFreesNothing) {
  const MachineScope scope({});
  void* block = &block;
  EXPECT_EQ(::cudaMalloc(&block, 0), ::cudaSuccess);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(::cudaFree(nullptr), ::cudaSuccess);
  EXPECT_EQ(::cudaFreeHost(nullptr), ::cudaSuccess);
}

TEST(RuntimeOverDriver, DescribesADeviceInFull) {
  std::array<char, 16> uuid = {};
  uuid.fill('u');
  const MachineScope scope(
      {.gpus = {{}, {.major = 9, .minor = 1, .memory = 3 * megabyte, .uuid = uuid}}});
  ::cudaDeviceProp properties;
  ASSERT_EQ(::cudaGetDeviceProperties(&properties, 1), ::cudaSuccess);
  EXPECT_STREQ(properties.name, "Emulated GPU 1");
  EXPECT_EQ(properties.major, 9);
  EXPECT_EQ(properties.minor, 1);
  EXPECT_EQ(properties.totalGlobalMem, 3 * megabyte);
  EXPECT_EQ(std::string(properties.uuid.bytes, 16), std::string(16, 'u'));
  EXPECT_EQ(::cudaGetDeviceProperties(&properties, 2), ::cudaErrorInvalidDevice);
  ::cudaGetLastError();
}

TEST(RuntimeOverDriver, RefusesCopiesOfAnUnknownKind) {
  const MachineScope scope({});
  int from = 0;
  int to = 0;
  EXPECT_EQ(::cudaMemcpy(&to, &from, sizeof(to), ::cudaMemcpyDefault), ::cudaErrorInvalidValue);
  EXPECT_EQ(::cudaMemcpyAsync(&to, &from, sizeof(to), ::cudaMemcpyDefault, nullptr),
            ::cudaErrorInvalidValue);
  ::cudaGetLastError();
}

// The driver is opened once per process, so each machine has a process for itself, which exits
// with 0 if nothing failed.
[[noreturn]] void endOn(const Machine& machine, ::cudaError_t error, int version) {
  emulation::setMachine(machine);
  int count = 7;
  EXPECT_EQ(::cudaGetDeviceCount(&count), error);
  EXPECT_EQ(count, 0);
  void* block = nullptr;
  EXPECT_EQ(::cudaMalloc(&block, 16), error);
  EXPECT_EQ(::cudaSetDevice(0), error);
  EXPECT_EQ(::cudaGetLastError(), error);
  int found = -1;
  EXPECT_EQ(::cudaDriverGetVersion(&found), ::cudaSuccess);
  EXPECT_EQ(found, version);
  EXPECT_EQ(::cudaRuntimeGetVersion(&found), ::cudaSuccess);
  EXPECT_EQ(found, CUDART_VERSION);
  EXPECT_STREQ(::cudaGetErrorString(::cudaErrorInsufficientDriver),
               "CUDA driver version is insufficient for CUDA runtime version");
  EXPECT_STREQ(::cudaGetErrorString(::cudaErrorNoDevice), "no CUDA-capable device is detected");
  std::fflush(nullptr);
  std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

class DriverThatCannotBeUsed : public testing::Test {
 protected:
  DriverThatCannotBeUsed() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(DriverThatCannotBeUsed, IsOfAnOlderMajorVersion) {
  constexpr int oldest = CUDART_VERSION / 1000 * 1000;
  EXPECT_EXIT(endOn({.driverVersion = oldest - 10}, ::cudaErrorInsufficientDriver, oldest - 10),
              testing::ExitedWithCode(0), "");
}

TEST_F(DriverThatCannotBeUsed, HasNoGpu) {
  EXPECT_EXIT(endOn({.gpus = {}}, ::cudaErrorNoDevice, 13000), testing::ExitedWithCode(0), "");
}

TEST_F(DriverThatCannotBeUsed, LacksAFunction) {
  EXPECT_EXIT(endOn({.missing = "cuGraphLaunch"}, ::cudaErrorInsufficientDriver, 13000),
              testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zeph
