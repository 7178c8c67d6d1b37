#include "platform/elementary_functions.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>

namespace zeph {
namespace {

// The float that a value of 64 significant bits rounds to, and false where those do not decide it:
// where the next floats on both sides are about equally far.
bool decidesFloat(long double value, float& nearest) {
  const long double margin = std::fabs(value) * 0x1p-60L;
  nearest = static_cast<float>(value);
  return static_cast<float>(value - margin) == nearest &&
         static_cast<float>(value + margin) == nearest;
}

void expectRounded(DoubleSum sum, long double exact, double x) {
  float nearest = 0;
  if (decidesFloat(exact, nearest)) {
    ASSERT_EQ(roundToFloat(sum), nearest) << "at " << x;
  }
}

double relativeError(DoubleSum sum, long double exact) {
  const long double value = static_cast<long double>(sum.hi) + sum.lo;
  return static_cast<double>(std::fabs((value - exact) / exact));
}

TEST(ElementaryFunctions, OfThePhasesThatAreDrawnAreRoundedOnce) {
  constexpr float turn = static_cast<float>(2 * std::numbers::pi);
  for (std::uint32_t drawn = 0; drawn < 1u << 24; drawn += 61) {
    const double phase = static_cast<double>((static_cast<float>(drawn) * 0x1p-24f) * turn);
    const SineCosine found = sineCosine(phase);
    expectRounded(found.sine, std::sin(static_cast<long double>(phase)), phase);
    expectRounded(found.cosine, std::cos(static_cast<long double>(phase)), phase);
  }
}

TEST(ElementaryFunctions, ExponentialsAreRoundedOnceDownToTheSmallestFloat) {
  const auto first = std::bit_cast<std::uint32_t>(0x1p-26f);
  const auto last = std::bit_cast<std::uint32_t>(104.0f);
  for (std::uint32_t bits = first; bits <= last; bits += 997) {
    const double x = -static_cast<double>(std::bit_cast<float>(bits));
    expectRounded(exponentialOf(x), std::exp(static_cast<long double>(x)), x);
  }
}

TEST(ElementaryFunctions, OfLargeAnglesKeepFullPrecision) {
  // Close to a multiple of pi.
  const volatile long double angle = 0x1.3b5a47904d25fp+25L, sineOfIt = 2.277526718396297286379e-9L;
  if (std::fabs(std::sin(angle) / sineOfIt - 1) > 0x1p-56L)
    GTEST_SKIP() << "The C library's own sine is not precise here.";
  std::mt19937_64 random(5);
  for (int trial = 0; trial < 20000; ++trial) {
    const double size = std::ldexp(1.0, static_cast<int>(random() % 62));
    const double x = static_cast<double>(random() >> 11) * 0x1p-53 * size;
    if (x == 0) continue;
    const SineCosine found = sineCosine(x);
    ASSERT_LT(relativeError(found.sine, std::sin(static_cast<long double>(x))), 0x1p-53) << x;
    ASSERT_LT(relativeError(found.cosine, std::cos(static_cast<long double>(x))), 0x1p-53) << x;
  }
}

TEST(ElementaryFunctions, AreOddAndEven) {
  for (const double x : {0.1, 1.0, 2.5, 4.0, 6.1, 1e3, 1e9, 1e17}) {
    EXPECT_EQ(sineCosine(-x).sine.hi, -sineCosine(x).sine.hi);
    EXPECT_EQ(sineCosine(-x).cosine.hi, sineCosine(x).cosine.hi);
  }
  EXPECT_EQ(sineCosine(0).sine.hi, 0.0);
  EXPECT_EQ(sineCosine(0).cosine.hi, 1.0);
}

// Half a unit above 1 lies between two floats; what is lost to the double decides.
TEST(ElementaryFunctions, ASumIsRoundedByWhatItsFirstPartHasLost) {
  constexpr double midpoint = 1 + 0x1p-24;
  EXPECT_EQ(roundToFloat({midpoint, 0}), 1.0f);
  EXPECT_EQ(roundToFloat({midpoint, 0x1p-60}), 1.0f + 0x1p-23f);
  EXPECT_EQ(roundToFloat({midpoint + 0x1p-23, -0x1p-60}), 1.0f + 0x1p-23f);
  EXPECT_EQ(roundToFloat({-midpoint, -0x1p-60}), -1.0f - 0x1p-23f);
}

}  // namespace
}  // namespace zeph
