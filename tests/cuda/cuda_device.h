// Shared by the tests on GPUs: a GPU to select, and the grids to try on it.
//
// The same tests run on emulated GPUs (ZEPHANE_EMULATED_GPU), with small grids.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "device/runtime.h"
#include "solver/device_resources.h"
#include "tests/support/devices.h"

namespace zeph::test {

#ifdef ZEPHANE_EMULATED_GPU
constexpr bool isEmulated = true;
#else
constexpr bool isEmulated = false;
#endif

// Resolutions; with 18 and 54 the padded grid has an odd side.
inline std::vector<int> gridSizes() {
  if (isEmulated) return {16, 18, 32, 48};
  return {16, 18, 54, 256, 1024, 4096, 8192, 16384};
}

// From this size on a test runs one case of each kind.
constexpr int largeGrid = 2048;

inline std::size_t availableOn(int device) {
  const DeviceScope scope(device);
  std::size_t available = 0;
  std::size_t total = 0;
  cudaMemGetInfo(&available, &total);
  return available;
}

// Skipped without a GPU; otherwise the first one is selected while the test runs.
class CudaDevice : public testing::Test {
 protected:
  void SetUp() override {
    cudaGetDevice(&before_);
    const std::vector<int> found = gpus();
    if (found.empty()) GTEST_SKIP() << "there is no CUDA device that can run the kernels";
    gpu_ = found.front();
    ASSERT_EQ(cudaSetDevice(gpu_), cudaSuccess);
  }
  void TearDown() override { cudaSetDevice(before_); }

  int gpu() const { return gpu_; }

 private:
  int before_ = 0;
  int gpu_ = -1;
};

// The same for each grid that fits the machine.
class GridOnCudaDevice : public CudaDevice, public testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    CudaDevice::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    const std::size_t samples = static_cast<std::size_t>(n()) * static_cast<std::size_t>(n());
    // In bytes for each sample: what the largest test holds on the GPU, and in copies on the host.
    if (availableOn(gpu()) < 130 * samples || availableOn(processorDevice()) < 320 * samples) {
      GTEST_SKIP() << "there is no room for a grid of side " << n();
    }
  }

  static int n() { return GetParam(); }
};

inline std::string gridName(const testing::TestParamInfo<int>& info) {
  return "N" + std::to_string(info.param);
}

}  // namespace zeph::test

#define ZEPHANE_ON_EVERY_GRID(fixture)                                                 \
  INSTANTIATE_TEST_SUITE_P(Grids, fixture, testing::ValuesIn(zeph::test::gridSizes()), \
                           zeph::test::gridName)
