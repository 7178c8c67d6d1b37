#include "solver/fft_plan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "tests/support/arrays.h"
#include "tests/support/flows.h"
#include "tests/support/plans.h"

namespace zeph {
namespace {

using test::Sizes;

FftPlan gridPlan(int n) {
  return {n, true, n / 2 + 1, 0, nullptr};
}
FftPlan paddedPlan(int n) {
  return {3 * n / 2, true, static_cast<int>(Sizes(n).s), n / 2, nullptr};
}

TEST(FftPlan, MakesAnApplicationOncePerBatchCount) {
  FftPlan plan = gridPlan(16);
  EXPECT_EQ(plan.applicationCount(), 0u);
  Transform* three = plan.application(3);
  Transform* one = plan.application(1);
  EXPECT_NE(three, one);
  EXPECT_EQ(plan.application(3), three);
  EXPECT_EQ(plan.application(1), one);
  EXPECT_EQ(plan.applicationCount(), 2u);
}

TEST(FftPlan, ATransformReusesTheExistingApplication) {
  FftPlan plan = gridPlan(16);
  plan.application(1);
  std::vector<V2> buffer(Sizes(16).half * 2);
  plan.transform(buffer.data(), 1, true);
  plan.transform(buffer.data(), 1, false);
  EXPECT_EQ(plan.applicationCount(), 1u);
  plan.transform(buffer.data(), 2, true);
  EXPECT_EQ(plan.applicationCount(), 2u);
}

TEST(FftPlan, CountsMemoryThatItsApplicationsShareOnce) {
  for (const int n : {16, 18, 34, 256}) {
    FftPlan plan = paddedPlan(n);
    test::expectSharedMemoryCountedOnce(plan);
    EXPECT_GT(plan.deviceBytes(), 0u);
  }
}

TEST(FftPlan, TheInverseOfOneModeIsItsWaveAndTheForwardRecoversIt) {
  for (const int n : {16, 18, 34}) {
    const Sizes z(n);
    FftPlan plan = gridPlan(n);
    std::vector<V2> buffer(z.half, V2{0.0f, 0.0f});
    buffer[3 * z.w + 2] = {1.5f, -0.5f};
    plan.transform(buffer.data(), 1, true);
    const float* real = reinterpret_cast<const float*>(buffer.data());
    for (std::size_t y = 0; y < z.n; ++y) {
      for (std::size_t x = 0; x < z.n; ++x) {
        const double angle =
            2 * std::numbers::pi * static_cast<double>(2 * x + 3 * y) / static_cast<double>(n);
        const double exact = 2 * (1.5 * std::cos(angle) + 0.5 * std::sin(angle));
        ASSERT_NEAR(static_cast<double>(real[y * (z.n + 2) + x]), exact, 1e-5) << n;
      }
    }
    plan.transform(buffer.data(), 1, false);
    const float samples = static_cast<float>(z.n * z.n);
    for (std::size_t k = 0; k < z.half; ++k) {
      const V2 exact = k == 3 * z.w + 2 ? V2{1.5f * samples, -0.5f * samples} : V2{0.0f, 0.0f};
      ASSERT_NEAR(buffer[k].re, exact.re, 1e-5f * samples) << n << " " << k;
      ASSERT_NEAR(buffer[k].im, exact.im, 1e-5f * samples) << n << " " << k;
    }
  }
}

TEST(FftPlan, FieldsOfABatchDoNotMix) {
  const int n = 18;
  const Sizes z(n);
  FftPlan plan = paddedPlan(n);
  const std::vector<V2> modes = test::Numbers(101).modes(2 * z.plane);
  std::vector<V2> together = modes;
  plan.transform(together.data(), 2, true);
  for (std::size_t field = 0; field < 2; ++field) {
    std::vector<V2> alone(modes.begin() + static_cast<std::ptrdiff_t>(field * z.plane),
                          modes.begin() + static_cast<std::ptrdiff_t>((field + 1) * z.plane));
    plan.transform(alone.data(), 1, true);
    const float* one = reinterpret_cast<const float*>(alone.data());
    const float* both = reinterpret_cast<const float*>(together.data() + field * z.plane);
    for (std::size_t y = 0; y < z.m; ++y) {
      for (std::size_t x = 0; x < z.m; ++x) {
        ASSERT_EQ(one[y * 2 * z.s + x], both[y * 2 * z.s + x]) << field << " " << x << " " << y;
      }
    }
  }
}

TEST(FftPlan, AnUnsupportedShapeFailsWithAText) {
  FftPlan plan(-2, true, 4, 0, nullptr);
  const std::string text = test::runtimeFailure([&] { plan.application(1); });
  EXPECT_EQ(text, "FFT plan N=-2 batch=1: invalid argument");
  EXPECT_EQ(plan.applicationCount(), 0u);
}

}  // namespace
}  // namespace zeph
