// The processor's fused step against the kernels one after another, and both against a flow in
// double precision.
#include "kernels/fused_step.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/flow64.h"
#include "tests/support/flows.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

class SeparateKernels {
 public:
  SeparateKernels() { useSeparateKernels(true); }
  ~SeparateKernels() { useSeparateKernels(false); }
};

// All modes alike, so that an error in any of them shows.
std::vector<float> noise(int n) {
  std::mt19937 source(static_cast<unsigned>(n));
  std::normal_distribution<float> normal;
  std::vector<float> samples(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  for (float& sample : samples) sample = normal(source);
  return samples;
}

std::vector<V2> spectrumAfter(const Config& config, int steps) {
  Solver solver(config, noise(config.resolution));
  solver.advance(steps);
  return solver.spectrum();
}

// The largest difference of a mode, relative to the root mean square of all.
double largestDifference(const std::vector<V2>& a, const std::vector<V2>& b) {
  double difference = 0, squares = 0;
  for (std::size_t k = 0; k < a.size(); ++k) {
    difference = std::max(difference, std::hypot(double{a[k].re} - double{b[k].re},
                                                 double{a[k].im} - double{b[k].im}));
    squares += double{b[k].re} * double{b[k].re} + double{b[k].im} * double{b[k].im};
  }
  return difference / std::sqrt(squares / static_cast<double>(a.size()));
}

class FusedSteps : public testing::TestWithParam<int> {};

TEST_P(FusedSteps, AgreeWithTheKernelsInEveryMode) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind kind : test::operators) {
      Config config = test::configOf(GetParam(), integrator, kind);
      config.cfl = 1;
      const std::vector<V2> fused = spectrumAfter(config, 2);
      const SeparateKernels separate;
      const double difference = largestDifference(fused, spectrumAfter(config, 2));
      EXPECT_LT(difference, 2e-5) << "integrator " << static_cast<int>(integrator) << ", operator "
                                  << static_cast<int>(kind);
      EXPECT_GT(difference, 0);
      EXPECT_EQ(fused[0].re, 0);
      EXPECT_EQ(fused[0].im, 0);
    }
  }
}

// Every outermost radix, blocks of every radix and of larger primes, tiles that are full and not.
INSTANTIATE_TEST_SUITE_P(OfAllKindsOfSizes, FusedSteps,
                         testing::Values(16, 18, 20, 22, 24, 26, 28, 30, 32, 34, 36, 38, 40, 44, 46,
                                         48, 50, 62, 64, 74, 80, 96, 122, 126, 128, 134, 254, 256,
                                         296, 320, 512));

double errorOf(const std::vector<V2>& spectrum, const test::Flow64& exact) {
  double squares = 0;
  for (std::size_t k = 0; k < spectrum.size(); ++k)
    squares += std::norm(exact.spectrum()[k] -
                         std::complex<double>(double{spectrum[k].re}, double{spectrum[k].im}));
  return std::sqrt(squares);
}

TEST(FusedStep, IsAsExactAsTheKernels) {
  for (const int n : {44, 64}) {
    for (const OperatorKind kind : test::operators) {
      Config config = test::configOf(n, Integrator::imexRK3, kind);
      config.fixed_dt = 0.0625f / static_cast<float>(n);
      const std::vector<V2> start = spectrumAfter(config, 0);
      test::Flow64 exact(n, start, double{viscosityOf(config.reynolds)});
      for (int step = 0; step < 8; ++step) exact.step(double{config.fixed_dt});
      const double fused = errorOf(spectrumAfter(config, 8), exact);
      const SeparateKernels separate;
      const double kernels = errorOf(spectrumAfter(config, 8), exact);
      EXPECT_LT(fused, 1.5 * kernels) << n;
      EXPECT_LT(fused, 1e-3 * errorOf(start, exact)) << n;
    }
  }
}

// Steps of one call keep what they have begun for the next one; steps of several calls do not.
TEST(FusedStep, HasTheSameBitsInOneCallAndInMany) {
  for (const int n : {34, 134}) {
    for (const Integrator integrator : test::integrators) {
      for (const OperatorKind kind : test::operators) {
        const Config config = test::configOf(n, integrator, kind);
        Solver atOnce(config), oneByOne(config);
        atOnce.advance(5);
        for (int step = 0; step < 5; ++step) oneByOne.advance(1);
        EXPECT_TRUE(test::sameBits(atOnce.spectrum(), oneByOne.spectrum())) << n;
      }
    }
  }
}

// A flow by itself, with a clock that can be set.
struct BareFlow {
  BareFlow(int n, Integrator integrator) : step(n, OperatorKind::stress), half(size(n, n / 2 + 1)) {
    p.resolution = static_cast<std::uint32_t>(n);
    p.padded = static_cast<std::uint32_t>(paddedResolution(n));
    p.method = integrator;
    p.scale = 1.0f / static_cast<float>(n * n);
    p.viscosity = 1e-3f;
    p.blocks = reductionBlocks;
    clock.healthy = 1;
    spectra.resize(9 * half);
    padded.resize(2 * size(paddedStride(static_cast<int>(p.padded)), static_cast<int>(p.padded)));
    coefficients.resize(6 * half);
    spectra[1] = spectra[2 * size(n, 1)] = {0.5f, 0.25f};
  }

  void run(int steps) {
    V2* s = spectra.data();
    const StageArrays stage = {s,
                               padded.data(),
                               s + 2 * half,
                               s + 3 * half,
                               s + 4 * half,
                               s + 5 * half,
                               coefficients.data(),
                               &clock,
                               s + half};
    step.run({stage, padded.data(), s + 6 * half, speeds}, p, steps);
  }
  // The state and its compensation.
  std::vector<V2> kept() const {
    return {spectra.begin(), spectra.begin() + 2 * static_cast<std::ptrdiff_t>(half)};
  }

  FusedStep step;
  Params p = {};
  ClockState clock = {};

 private:
  static std::size_t size(int a, int b) {
    return static_cast<std::size_t>(a) * static_cast<std::size_t>(b);
  }

  std::size_t half;
  std::vector<V2> spectra, padded;
  std::vector<float> coefficients;
  V2 speeds[reductionBlocks] = {};
};

// The time that remains is 1 - 2^-24 and rounds to 1, so that a step of just that length is not
// taken for the last one and the next finds nothing left to do.
TEST(FusedStep, LeavesTheStateWhereABatchEndsUnforeseen) {
  for (const Integrator integrator : test::integrators) {
    BareFlow unforeseen(20, integrator), single(20, integrator);
    for (BareFlow* flow : {&unforeseen, &single}) {
      flow->p.fixedDt = 1.0f - 0x1p-24f;
      flow->p.hasEnd = 1;
      flow->p.endHigh = 1.0f;
      flow->p.endLow = -0x1p-25f;
      flow->clock.timeHigh = 0x1p-25f;
    }
    unforeseen.run(3);
    single.run(1);
    EXPECT_EQ(unforeseen.clock.stepState, noStep);
    EXPECT_EQ(unforeseen.clock.steps, 1u);
    EXPECT_EQ(unforeseen.clock.healthy, 1u);
    EXPECT_EQ(single.clock.stepState, normalStep);
    EXPECT_TRUE(test::sameBits(unforeseen.kept(), single.kept()));
    EXPECT_FALSE(test::sameBits(unforeseen.kept(), BareFlow(20, integrator).kept()));
  }
}

TEST(FusedStep, HasTheSameBitsOnEveryProcessor) {
  for (const int n : {22, 34, 134, 254, 256}) {
    for (const OperatorKind kind : test::operators) {
      const Config config = test::configOf(n, Integrator::etdrk4, kind);
      const std::vector<V2> expected = spectrumAfter(config, 2);
      test::onEveryProcessor(
          [&] { ASSERT_TRUE(test::sameBits(spectrumAfter(config, 2), expected)); });
    }
  }
}

}  // namespace
}  // namespace zeph
