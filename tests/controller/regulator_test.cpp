#include "controller/regulator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>

#include "solver/config_record.h"

namespace zeph {
namespace {

constexpr int n = 1024;
constexpr int k0 = 4;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// The palinstrophy ratio whose relative error against the target is about `error`.
double ratioOf(double error) {
  return 0.002 * (1 + error);
}

// The control law, written independently.
struct Model {
  double fast = 0, slow = 0, previous = 0;

  double sample(double ratio, double re, int resolution, int wave) {
    const double p = ratio * 10000;
    if (!(p > 0) || std::isinf(p)) return re;
    if (!(re > 0) || std::isinf(re)) return re;
    if (slow == 0) {
      fast = slow = p;
    } else {
      fast += (p - fast) / 6;
      slow += (fast - slow) / 6;
    }
    const double e = (slow - 20) / 20;
    if (0.001 > std::fabs(e)) return re;
    double u = (e - previous) * 25 + e * 0.25;
    previous = e;
    if (u > 0.01) u = 0.01;
    if (u < -0.01) u = -0.01;
    const double candidate = std::exp(u) * re;
    const double d =
        std::pow(10.0, 1.06624 * std::log10(static_cast<double>(resolution)) -
                           0.083911 * std::log10(static_cast<double>(wave)) + 1.286396);
    const double upper = d * 1000 < 1000000 ? d * 1000 : 1000000;
    const double lower = d / 1000 > 1000 ? d / 1000 : 1000;
    if (candidate > upper) return upper;
    if (candidate < lower) return lower;
    return candidate;
  }
};

TEST(Regulator, MatchesTheModelBitForBit) {
  std::mt19937_64 source(7);
  std::lognormal_distribution<double> ratio(std::log(0.002), 0.02);
  for (const int resolution : {16, 64, 1024, 16384}) {
    for (const int wave : {1, 4, 1000}) {
      Regulator regulator;
      Model model;
      double reynolds = DefaultReynolds(resolution, wave);
      double expected = reynolds;
      for (int k = 0; k < 2000; ++k) {
        // Sometimes the flow jumps, and sometimes a sample is unusable.
        const double r = k % 97 == 0 ? ratio(source) * 3 : k % 41 == 0 ? 0 : ratio(source);
        reynolds = regulator.sample(r, reynolds, resolution, wave).value_or(reynolds);
        expected = model.sample(r, expected, resolution, wave);
        ASSERT_EQ(reynolds, expected) << "N " << resolution << ", k0 " << wave << ", sample " << k;
      }
    }
  }
}

TEST(Regulator, RaisesTheNumberByOneStepIfTheFirstRatioIsFarAboveTheTarget) {
  EXPECT_EQ(Regulator().sample(ratioOf(0.5), 20000, n, k0), std::exp(0.01) * 20000);
  EXPECT_EQ(Regulator().sample(ratioOf(1e300), 20000, n, k0), std::exp(0.01) * 20000);
}

TEST(Regulator, LowersTheNumberByOneStepIfTheFirstRatioIsFarBelowTheTarget) {
  EXPECT_EQ(Regulator().sample(ratioOf(-0.5), 20000, n, k0), std::exp(-0.01) * 20000);
  EXPECT_EQ(Regulator().sample(std::numeric_limits<double>::denorm_min() * 1e4, 20000, n, k0),
            std::exp(-0.01) * 20000);
}

TEST(Regulator, KeepsTheNumberAtAndNearTheTarget) {
  for (const double error : {0.0, 0.0005, -0.0005, 0.00099, -0.00099})
    EXPECT_EQ(Regulator().sample(ratioOf(error), 20000, n, k0), std::nullopt) << error;
  for (const double error : {0.0011, -0.0011})
    EXPECT_NE(Regulator().sample(ratioOf(error), 20000, n, k0), std::nullopt) << error;
}

TEST(Regulator, ASmallErrorMovesTheNumberByLessThanAStep) {
  // Both gains on the first error: (0.25 + 25) times a little more than the band is 0.026, which is
  // cut; the next sample has the smaller gain alone.
  Regulator regulator;
  const double ratio = ratioOf(0.002);
  EXPECT_EQ(regulator.sample(ratio, 20000, n, k0), std::exp(0.01) * 20000);
  const double p = ratio * 10000;
  const double error = (p - 20) / 20;
  EXPECT_EQ(regulator.sample(ratio, 20000, n, k0), std::exp(error * 0.25) * 20000);
}

TEST(Regulator, MeasuresTheChangeFromTheLastSampleOutsideTheBand) {
  Regulator regulator;
  Model model;
  double reynolds = 20000;
  // Into the band and out of it again: the error before the band counts.
  for (const double error : {0.1, -0.9, -0.6, -0.2, 0.1, 0.15, 0.2, 0.1, 0.05, 0.0, -0.1, 0.3}) {
    const auto given = regulator.sample(ratioOf(error), reynolds, n, k0);
    const double expected = model.sample(ratioOf(error), reynolds, n, k0);
    EXPECT_EQ(given.value_or(reynolds), expected);
    reynolds = expected;
  }
}

TEST(Regulator, ASampleInsideTheBandStillMovesTheFilter) {
  Regulator regulator;
  EXPECT_EQ(regulator.sample(ratioOf(0.0005), 20000, n, k0), std::nullopt);
  // A sample that follows is filtered; as a first one it would give -0.5 and a full step.
  const double first = ratioOf(0.0005) * 10000;
  const double p = ratioOf(-0.03) * 10000;
  const double fast = first + (p - first) / 6;
  const double slow = first + (fast - first) / 6;
  const double error = (slow - 20) / 20;
  ASSERT_LT(error, 0);
  EXPECT_EQ(regulator.sample(ratioOf(-0.03), 20000, n, k0).has_value(), std::abs(error) >= 0.001);
}

TEST(Regulator, IgnoresAnUnusableRatio) {
  for (const double useless : {0.0, -0.0, -0.002, infinity, -infinity, nan}) {
    Regulator regulator;
    EXPECT_EQ(regulator.sample(useless, 20000, n, k0), std::nullopt);
    // The filter has not begun: the next sample is the first.
    EXPECT_EQ(regulator.sample(ratioOf(0.5), 20000, n, k0), std::exp(0.01) * 20000);
    Regulator undisturbed = regulator;
    EXPECT_EQ(regulator.sample(useless, 20000, n, k0), std::nullopt);
    for (const double error : {0.49, 0.2, -0.8})
      EXPECT_EQ(regulator.sample(ratioOf(error), 20000, n, k0),
                undisturbed.sample(ratioOf(error), 20000, n, k0));
  }
}

TEST(Regulator, IgnoresAnUnusableNumber) {
  for (const double useless : {0.0, -1.0, infinity, -infinity, nan}) {
    Regulator regulator;
    EXPECT_EQ(regulator.sample(ratioOf(0.5), useless, n, k0), std::nullopt);
    EXPECT_EQ(regulator.sample(ratioOf(0.0), 20000, n, k0), std::nullopt);
    EXPECT_EQ(regulator.sample(ratioOf(0.0), 20000, n, k0), std::nullopt);
  }
}

TEST(Regulator, IgnoresARatioTooLargeForTheScale) {
  EXPECT_EQ(Regulator().sample(1e305, 20000, n, k0), std::nullopt);
}

TEST(Regulator, StaysBetweenAThousandAndAMillionOnAnOrdinaryGrid) {
  EXPECT_EQ(DefaultReynolds(n, k0), 27898.36614974335);
  EXPECT_EQ(Regulator().sample(ratioOf(1), 1000000, n, k0), 1000000.0);
  EXPECT_EQ(Regulator().sample(ratioOf(1), 995000, n, k0), 1000000.0);
  EXPECT_EQ(Regulator().sample(ratioOf(1), 5e9, n, k0), 1000000.0);
  EXPECT_EQ(Regulator().sample(ratioOf(-0.9), 1000, n, k0), 1000.0);
  EXPECT_EQ(Regulator().sample(ratioOf(-0.9), 3, n, k0), 1000.0);
  EXPECT_EQ(Regulator().sample(ratioOf(1), 3, n, k0), 1000.0);
}

TEST(Regulator, LowersANumberAboveTheLimitOnlyOutsideTheBand) {
  Regulator regulator;
  EXPECT_EQ(regulator.sample(ratioOf(0.0001), 2e6, n, k0), std::nullopt);
  EXPECT_EQ(regulator.sample(ratioOf(-5.0 / 6), 2e6, n, k0), 1000000.0);
}

TEST(Regulator, OnASmallGridTheGridSetsTheUpperLimit) {
  const double usual = DefaultReynolds(16, 1);
  EXPECT_NEAR(usual, 372, 1);
  EXPECT_EQ(Regulator().sample(ratioOf(1), 1e6, 16, 1), usual * 1000);
  EXPECT_EQ(Regulator().sample(ratioOf(-0.9), 5, 16, 1), 1000.0);
}

TEST(Regulator, AppliesTheUpperLimitFirstIfTheLimitsCross) {
  // No valid configuration has such a grid.
  const double upper = DefaultReynolds(1, 4) * 1000;
  EXPECT_EQ(Regulator().sample(ratioOf(1), 1e6, 1, 4), upper);
}

}  // namespace
}  // namespace zeph
