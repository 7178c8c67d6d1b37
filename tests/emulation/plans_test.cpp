// Transforms on emulated GPUs with little shared memory per block. There VkFFT splits the transform
// of a small grid's axis into several kernels, as it does with large grids on real GPUs.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "device/transform.h"
#include "solver/device_resources.h"
#include "tests/emulation/emulated_gpu.h"
#include "tests/support/arrays.h"
#include "tests/support/devices.h"

namespace zeph {
namespace {

constexpr int n = 128;

struct Passes {
  const char* name;
  std::size_t sharedMemory;  // bytes
  long kernels;              // per plan, for both axes and both directions
  long plans;                // attempts until the check of a plan passes
};

class PlanOfPasses : public testing::TestWithParam<Passes> {
 protected:
  static constexpr std::size_t memory = std::size_t{1} << 30;
  emulation::MachineScope scope_{
      {.gpus = {{.memory = memory, .sharedMemory = GetParam().sharedMemory}, {}}}};
};

TransformRequest paddedRequest() {
  return {.size = paddedResolution(n),
          .rowStride = paddedStride(paddedResolution(n)),
          .cutoff = n / 2,
          .batch = 2};
}

// Random values in the retained modes of two fields, zero in all others.
std::vector<V2> spectrum() {
  const test::Sizes z(n);
  test::Numbers numbers(7);
  std::vector<V2> modes(2 * z.plane, V2{0.0f, 0.0f});
  for (std::size_t j = 0; j < 2 * z.m; ++j) {
    for (std::size_t i = 1; i < z.h; ++i) {
      const V2 mode = {numbers.next(), numbers.next()};
      if (test::isRetained(i, test::wavenumber(j % z.m, z.m), n)) modes[j * z.s + i] = mode;
    }
  }
  return modes;
}

struct BothWays {
  std::vector<V2> physical, spectral;
};

BothWays transformOn(int device) {
  const DeviceScope scope(device);
  const std::vector<V2> start = spectrum();
  BothWays result = {start, start};
  DeviceBuffer buffer;
  buffer.allocate(start.size() * sizeof(V2));
  Transform* plan = nullptr;
  EXPECT_EQ(transformCreate(paddedRequest(), &plan), 0);
  EXPECT_EQ(cudaMemcpy(buffer.ptr, start.data(), buffer.bytes, cudaMemcpyHostToDevice),
            cudaSuccess);
  const auto pass = [&](bool inverse, std::vector<V2>& to) {
    EXPECT_EQ(transformAppend(plan, buffer.ptr, inverse), 0);
    EXPECT_EQ(cudaMemcpy(to.data(), buffer.ptr, buffer.bytes, cudaMemcpyDeviceToHost), cudaSuccess);
  };
  pass(true, result.physical);
  pass(false, result.spectral);
  transformDestroy(plan);
  return result;
}

// The relative error in the root mean square, over the elements for which `counts` is true.
template <class Counts>
double difference(const std::vector<V2>& found, const std::vector<V2>& expected, Counts counts) {
  double error = 0;
  double magnitude = 0;
  for (std::size_t k = 0; k < found.size(); ++k) {
    if (!counts(k)) continue;
    const auto square = [](float re, float im) {
      return static_cast<double>(re) * static_cast<double>(re) +
             static_cast<double>(im) * static_cast<double>(im);
    };
    error += square(found[k].re - expected[k].re, found[k].im - expected[k].im);
    magnitude += square(expected[k].re, expected[k].im);
  }
  return std::sqrt(error / magnitude);
}

TEST_P(PlanOfPasses, IsCorrectAndStaysWithinItsMemory) {
  const long before = emulation::callsOf("nvrtcCompileProgram");
  const BothWays found = transformOn(0);
  const long compiled = emulation::callsOf("nvrtcCompileProgram") - before;
  EXPECT_FALSE(emulation::hasFault(0));
  EXPECT_EQ(emulation::holdings(), emulation::Holdings());
  const BothWays expected = transformOn(test::processorDevice());
  const test::Sizes z(n);
  EXPECT_LT(difference(found.physical, expected.physical,
                       [&](std::size_t k) { return k % z.s < z.m / 2; }),
            1e-6);
  EXPECT_LT(difference(found.spectral, expected.spectral,
                       [&](std::size_t k) {
                         const int ky = test::wavenumber(k / z.s % z.m, z.m);
                         return k % z.s < z.h && std::abs(ky) < n / 2;
                       }),
            1e-6);
  EXPECT_EQ(compiled, GetParam().kernels * GetParam().plans);
}

// If the columns take two passes, VkFFT's results are wrong when the discarded band is left out on
// both axes. The second plan leaves it out down the columns alone and is right.
INSTANTIATE_TEST_SUITE_P(Of, PlanOfPasses,
                         testing::Values(Passes{"OnePassEach", 0, 4, 1},
                                         Passes{"TwoPassesDown", 4096, 6, 2},
                                         Passes{"TwoPassesEach", 1024, 8, 2}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace zeph
