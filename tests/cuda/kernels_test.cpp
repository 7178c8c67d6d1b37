// The kernels around the stage update: a GPU gives the same bits as the processor.
#include <gtest/gtest.h>

#include "kernels/kernels.h"
#include "tests/cuda/cuda_device.h"
#include "tests/cuda/launches.h"

namespace zeph {
namespace {

using test::DeviceArrays;
using test::expectSameBits;
using test::Sizes;

class GpuKernels : public test::GridOnCudaDevice {
 protected:
  // Both operators, or only the one with the larger arrays.
  static std::vector<std::uint32_t> operators() {
    if (n() >= test::largeGrid) return {1u};
    return {0u, 1u};
  }
  static std::size_t planes(std::uint32_t operatorKind) { return operatorKind == 0 ? 2 : 4; }
};

const std::vector<V2> noSpeeds(reductionBlocks, V2{-1.0f, -1.0f});
const std::vector<float4> noFigures(reductionBlocks, float4{-1.0f, -1.0f, -1.0f, -1.0f});

constexpr float bad[] = {test::notANumber, test::infinity, -test::infinity};

// How many records raise the flag in word `at` of `words`.
int flagged(const std::vector<float>& records, std::size_t at, std::size_t words) {
  int count = 0;
  for (std::size_t k = at; k < records.size(); k += words) count += records[k] != 0.0f;
  return count;
}

TEST_P(GpuKernels, ProjectAFullSpectrum) {
  const Sizes z(n());
  expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
    const V2* full = arrays.put(test::modes(z.n * z.n, 1));
    projectState(stream, full, arrays.put(test::modes(z.half, 2)), test::paramsOf(n()));
  });
}

TEST_P(GpuKernels, LayOutTheVelocityOfActiveModesAlone) {
  const Sizes z(n());
  std::vector<V2> omega = test::modes(z.half, 3);
  for (std::size_t j = 0; j < z.n; ++j) {
    for (std::size_t i = 0; i < z.w; ++i) {
      if (!test::isRetained(i, test::wavenumber(j, z.n), n()))
        omega[j * z.w + i] = {test::notANumber, test::infinity};
    }
  }
  for (const std::uint32_t operatorKind : operators()) {
    SCOPED_TRACE(operatorKind);
    expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
      const V2* state = arrays.put(omega);
      V2* padded = arrays.put(test::modes(planes(operatorKind) * z.plane, 4));
      velocityToPadded(stream, state, padded, test::paramsOf(n(), operatorKind));
    });
  }
}

TEST_P(GpuKernels, FormProductsAndBoundTheSpeed) {
  const Sizes z(n());
  for (const std::uint32_t operatorKind : operators()) {
    SCOPED_TRACE(operatorKind);
    const Params p = test::paramsOf(n(), operatorKind);
    const std::vector<float> physical = test::floats(planes(operatorKind) * 2 * z.plane, 5);
    expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
      float* work = arrays.put(physical);
      reduceCFLAndProducts(stream, work, arrays.put(noSpeeds), p);
    });
    expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
      nonlinearProducts(stream, arrays.put(physical), p);
    });
  }
}

TEST_P(GpuKernels, FlagVelocitiesThatAreNotFinite) {
  if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
  const Sizes z(n());
  for (const std::uint32_t operatorKind : {0u, 1u}) {
    const Params p = test::paramsOf(n(), operatorKind);
    for (std::size_t plane = 0; plane < planes(operatorKind); ++plane) {
      std::vector<float> physical = test::floats(planes(operatorKind) * 2 * z.plane, 6);
      // In the last row, the corner of which is the last sample.
      physical[plane * 2 * z.plane + (z.m - 1) * 2 * z.s + z.m - 1] = bad[plane % 3];
      const auto found = expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
        float* work = arrays.put(physical);
        reduceCFLAndProducts(stream, work, arrays.put(noSpeeds), p);
      });
      EXPECT_EQ(flagged(found[1], 1, 2), 1) << operatorKind << " " << plane;
    }
  }
}

TEST_P(GpuKernels, ReduceAStateToItsFigures) {
  const Sizes z(n());
  const Params p = test::paramsOf(n());
  std::vector<V2> omega = test::modes(z.half, 7);
  for (const bool isFinite : {true, false}) {
    if (!isFinite) omega[z.half - 1].im = test::notANumber;
    const auto found = expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
      const V2* state = arrays.put(omega);
      spectralStatistics(stream, state, arrays.put(noFigures), p);
    });
    EXPECT_EQ(flagged(found[1], 2, 4), isFinite ? 0 : 1);
  }
}

TEST_P(GpuKernels, LayOutTheSpectraOfASnapshot) {
  const Sizes z(n());
  Params p = test::paramsOf(n());
  for (const std::uint32_t count : {1u, 3u}) {
    p.stage = count;
    expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
      const V2* omega = arrays.put(test::modes(z.half, 8));
      prepareSnapshot(stream, omega, arrays.put(test::modes(3 * z.half, 9)), p);
    });
  }
}

TEST_P(GpuKernels, ExtractTheFieldsAndMomentsOfASnapshot) {
  const Sizes z(n());
  Params p = test::paramsOf(n());
  std::vector<float> planes = test::floats(3 * 2 * z.half, 10);
  for (const std::uint32_t count : {1u, 3u}) {
    for (const bool isFinite : {true, false}) {
      p.stage = count;
      // In the last plane that is read.
      float& last = planes[(count - 1) * 2 * z.half + (z.n - 1) * (z.n + 2) + z.n - 1];
      const float usual = last;
      if (!isFinite) last = -test::infinity;
      const auto found = expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
        const float* given = arrays.put(planes);
        float* fields = arrays.put(test::floats(3 * z.n * z.n, 11));
        std::vector<float4> moments = noFigures;
        moments.insert(moments.end(), noFigures.begin(), noFigures.end());
        extractSnapshot(stream, given, fields, arrays.put(moments), p);
      });
      EXPECT_EQ(flagged(found[2], 2, 4), isFinite ? 0 : 1);
      last = usual;
    }
  }
}

ZEPHANE_ON_EVERY_GRID(GpuKernels);

class GpuClock : public test::CudaDevice {
 protected:
  static constexpr std::size_t cases = test::isEmulated ? 500 : 5000;
};

ClockState randomClock(test::Numbers& numbers) {
  ClockState clock = {};
  clock.timeHigh = numbers.next();
  clock.timeLow = clock.timeHigh * 1e-8f;
  clock.dt = std::fabs(numbers.next());
  clock.rawDt = numbers.below(3) == 0 ? 0.0f : std::fabs(numbers.next());
  clock.steps = 0xFFFFFFF0u + numbers.below(32);
  clock.maxSpeed = 5.0f;
  clock.healthy = numbers.below(10) != 0;
  clock.stepState = static_cast<std::uint32_t>(numbers.below(3));
  return clock;
}

Params randomParams(test::Numbers& numbers) {
  Params p = test::paramsOf(test::resolutions[numbers.below(5)]);
  p.cfl = std::fabs(numbers.next());
  if (numbers.below(4) == 0) p.fixedDt = std::fabs(numbers.next());
  if (numbers.below(2) == 0) return p;
  const double end = static_cast<double>(numbers.next()) + 1.0;
  p.hasEnd = 1;
  p.endHigh = static_cast<float>(end);
  p.endLow = static_cast<float>(end - static_cast<double>(p.endHigh));
  return p;
}

TEST_F(GpuClock, ChoosesTheSameSteps) {
  expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
    test::Numbers numbers(61);
    std::vector<ClockState> clocks;
    std::vector<V2> speeds(cases * reductionBlocks, V2{0.0f, 0.0f});
    for (std::size_t k = 0; k < cases; ++k) {
      clocks.push_back(randomClock(numbers));
      if (numbers.below(5) == 0) continue;  // at rest
      V2* partials = speeds.data() + k * reductionBlocks;
      for (std::size_t b = 0; b < reductionBlocks; ++b) partials[b].re = std::fabs(numbers.next());
      if (numbers.below(20) == 0) partials[numbers.below(64)].re = test::infinity;
      if (numbers.below(20) == 0) partials[numbers.below(64)].re = test::notANumber;
      if (numbers.below(20) == 0) partials[numbers.below(64)].im = 1.0f;
    }
    const V2* partials = arrays.put(speeds);
    ClockState* clock = arrays.put(clocks);
    for (std::size_t k = 0; k < cases; ++k) {
      selectTimeStep(stream, partials + k * reductionBlocks, clock + k, randomParams(numbers));
    }
  });
}

TEST_F(GpuClock, AdvancesIdentically) {
  expectSameBits(gpu(), [&](DeviceArrays& arrays, cudaStream_t stream) {
    test::Numbers numbers(62);
    std::vector<ClockState> clocks;
    for (std::size_t k = 0; k < cases; ++k) clocks.push_back(randomClock(numbers));
    ClockState* clock = arrays.put(clocks);
    for (std::size_t k = 0; k < cases; ++k) commitStep(stream, clock + k, randomParams(numbers));
  });
}

class GpuLaunch : public test::CudaDevice {};

TEST_F(GpuLaunch, OfAMissingKernelIsReportedOnceAtTheNextCheck) {
  const Kernel missing = {"noSuchKernel", [](void**) {}};
  EXPECT_NE(cudaLaunchKernel(missing, {1}, {1}, nullptr, 0, nullptr), cudaSuccess);
  EXPECT_NE(cudaGetLastError(), cudaSuccess);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

TEST_F(GpuLaunch, OfAnImpossibleShapeIsReportedOnceAtTheNextCheck) {
  const CudaQueue queue;
  ClockState* clock = nullptr;
  Params p = test::paramsOf(16);
  void* arguments[] = {&clock, &p};
  const Kernel commit = {"commitStep", [](void**) {}};
  EXPECT_NE(cudaLaunchKernel(commit, {1}, {4096}, arguments, 0, queue.value), cudaSuccess);
  EXPECT_NE(cudaGetLastError(), cudaSuccess);
  EXPECT_EQ(cudaGetLastError(), cudaSuccess);
}

}  // namespace
}  // namespace zeph
