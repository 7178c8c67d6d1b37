// Flows on a GPU against the same flows on the processor. Only their transforms round differently.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/cuda/cuda_device.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"
#include "tests/support/outcome.h"

namespace zeph {
namespace {

using test::Outcome;

Outcome outcomeOn(int device, const Config& config, const std::vector<float>& samples, int steps) {
  const DeviceScope scope(device);
  Solver solver(config, samples);
  return test::outcomeOf(solver, steps);
}

double difference(const float* found, const float* expected, std::size_t count) {
  double error = 0;
  double magnitude = 0;
  for (std::size_t k = 0; k < count; ++k) {
    const double right = static_cast<double>(expected[k]);
    error += (static_cast<double>(found[k]) - right) * (static_cast<double>(found[k]) - right);
    magnitude += right * right;
  }
  return std::sqrt(error / magnitude);
}

// Within the rounding of single precision, which grows with the steps.
void expectNear(const Outcome& found, const Outcome& expected, double tolerance) {
  const Statistics& a = found.statistics;
  const Statistics& b = expected.statistics;
  EXPECT_EQ(a.steps, b.steps);
  EXPECT_EQ(a.allocatedBytes, b.allocatedBytes);
  EXPECT_NEAR(a.time, b.time, b.time * tolerance);
  EXPECT_NEAR(a.dt, b.dt, b.dt * tolerance);
  EXPECT_NEAR(a.energy, b.energy, b.energy * tolerance);
  EXPECT_NEAR(a.enstrophy, b.enstrophy, b.enstrophy * tolerance);
  EXPECT_NEAR(a.palinstrophy, b.palinstrophy, b.palinstrophy * tolerance);
  EXPECT_NEAR(a.initialTurnoverTime, b.initialTurnoverTime, b.initialTurnoverTime * tolerance);
  ASSERT_EQ(found.spectrum.size(), expected.spectrum.size());
  ASSERT_EQ(found.fields.size(), expected.fields.size());
  EXPECT_LT(difference(&found.spectrum[0].re, &expected.spectrum[0].re, 2 * found.spectrum.size()),
            tolerance);
  const std::size_t plane = found.fields.size() / 3;
  for (std::size_t k = 0; k < 3; ++k) {
    EXPECT_LT(
        difference(found.fields.data() + k * plane, expected.fields.data() + k * plane, plane),
        tolerance)
        << "plane " << k;
  }
}

class GpuFlows : public test::GridOnCudaDevice {
 protected:
  static int steps() {
    if (test::isEmulated) return 12;
    return n() <= 256 ? 40 : n() < test::largeGrid ? 10 : 3;
  }

  void expectSameFlow(const Config& config, const std::vector<float>& samples, int steps) {
    const Outcome expected = outcomeOn(test::processorDevice(), config, samples, steps);
    expectNear(outcomeOn(gpu(), config, samples, steps), expected, tolerance);
  }

  static constexpr double tolerance = 2e-5;
};

TEST_P(GpuFlows, FromASeedMatchTheProcessor) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      const bool isDefault =
          integrator == Integrator::etdrk4 && operatorKind == OperatorKind::stress;
      if (n() > 256 && !isDefault) continue;
      SCOPED_TRACE(testing::Message()
                   << static_cast<int>(integrator) << ", " << static_cast<int>(operatorKind));
      expectSameFlow(test::configOf(n(), integrator, operatorKind), {}, steps());
    }
  }
}

TEST_P(GpuFlows, FromSamplesMatchTheProcessor) {
  std::vector<float> samples = test::wave(n(), 3, -2, 2.0);
  const std::vector<float> other = test::wave(n(), 1, 4, 1.0);
  for (std::size_t k = 0; k < samples.size(); ++k) samples[k] += other[k];
  expectSameFlow(test::configOf(n()), samples, std::min(steps(), 10));
}

TEST_P(GpuFlows, StartFromTheSameSpectrumBitForBit) {
  for (const StartSpectrum spectrum : {StartSpectrum::PAO, StartSpectrum::KM3}) {
    if (n() >= test::largeGrid) GTEST_SKIP() << "shown on smaller grids";
    Config config = test::configOf(n());
    config.start_spectrum = spectrum;
    const Solver here(config);
    const DeviceScope scope(test::processorDevice());
    EXPECT_TRUE(test::sameBits(here.spectrum(), Solver(config).spectrum()));
  }
}

TEST_P(GpuFlows, AreRepeatableBitForBit) {
  for (const Integrator integrator : test::integrators) {
    if (n() >= test::largeGrid && integrator != Integrator::etdrk4) continue;
    const Config config = test::configOf(n(), integrator);
    const Outcome first = outcomeOn(gpu(), config, {}, std::min(steps(), 12));
    const Outcome second = outcomeOn(gpu(), config, {}, std::min(steps(), 12));
    test::expectSame(first, second);
  }
}

ZEPHANE_ON_EVERY_GRID(GpuFlows);

}  // namespace
}  // namespace zeph
