// The advance of the clock by a step.
#include <gtest/gtest.h>

#include <cmath>

#include "kernels/kernels.h"
#include "tests/support/arrays.h"
#include "tests/support/bits.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

ClockState clockAt(float high, float low, float dt) {
  ClockState clock = {};
  clock.timeHigh = high;
  clock.timeLow = low;
  clock.dt = dt;
  clock.rawDt = 0.75f;
  clock.steps = 41;
  clock.maxSpeed = 3.0f;
  clock.healthy = 1;
  clock.stepState = 1;
  return clock;
}

double timeOf(const ClockState& clock) {
  return static_cast<double>(clock.timeLow) + static_cast<double>(clock.timeHigh);
}

TEST(CommitStep, AddsTheStepByATwoSum) {
  test::Numbers numbers(51);
  for (int k = 0; k < 20000; ++k) {
    const float hi = numbers.next();
    const float lo = hi * 1e-8f;
    const float dt = std::fabs(numbers.next());
    ClockState clock = clockAt(hi, lo, dt);
    commitStep(nullptr, &clock, test::paramsOf(16));
    const float s = hi + dt;
    const float b = s - hi;
    const float e = (dt - b) + (hi - (s - b));
    const float l = lo + e;
    const float h = s + l;
    ASSERT_TRUE(test::sameBits(clock.timeHigh, h));
    ASSERT_TRUE(test::sameBits(clock.timeLow, l - (h - s)));
    ASSERT_EQ(clock.steps, 42u);
  }
}

TEST(CommitStep, AMillionStepsAddUpToThePrecisionOfAPairOfFloats) {
  ClockState clock = clockAt(0.0f, 0.0f, 0.0f);
  long double exact = 0;
  float naive = 0;
  test::Numbers numbers(52);
  const Params p = test::paramsOf(16);
  for (int k = 0; k < 1000000; ++k) {
    clock.dt = 1e-3f * (1.0f + 0.5f * static_cast<float>(numbers.below(1u << 24)) * 0x1p-24f);
    exact += static_cast<long double>(clock.dt);
    naive += clock.dt;
    commitStep(nullptr, &clock, p);
  }
  EXPECT_EQ(clock.steps, 1000041u);
  EXPECT_NEAR(timeOf(clock), static_cast<double>(exact), static_cast<double>(exact) * 1e-10);
  EXPECT_GT(std::abs(static_cast<long double>(naive) - exact), exact * 1e-6);
  EXPECT_LE(std::fabs(clock.timeLow), std::fabs(clock.timeHigh) * 0x1p-24f);
}

TEST(CommitStep, TheFinalStepLandsOnTheEndExactly) {
  Params p = test::paramsOf(16);
  p.hasEnd = 1;
  p.endHigh = 0.1f;
  p.endLow = static_cast<float>(0.1 - static_cast<double>(0.1f));
  ClockState clock = clockAt(0.09f, 1e-9f, 0.3f);
  clock.stepState = 2;
  commitStep(nullptr, &clock, p);
  EXPECT_EQ(clock.timeHigh, p.endHigh);
  EXPECT_EQ(clock.timeLow, p.endLow);
  EXPECT_NEAR(timeOf(clock), 0.1, 1e-16);
  EXPECT_EQ(clock.steps, 42u);
}

TEST(CommitStep, DoesNotChangeTheOtherFigures) {
  ClockState clock = clockAt(1.0f, 0.0f, 0.5f);
  commitStep(nullptr, &clock, test::paramsOf(16));
  EXPECT_EQ(clock.dt, 0.5f);
  EXPECT_EQ(clock.rawDt, 0.75f);
  EXPECT_EQ(clock.maxSpeed, 3.0f);
  EXPECT_EQ(clock.healthy, 1u);
  EXPECT_EQ(clock.stepState, 1u);
}

TEST(CommitStep, TheClockDoesNotAdvanceWithoutAStepOrAfterAFailure) {
  Params p = test::paramsOf(16);
  p.endHigh = 9.0f;
  struct Case {
    std::uint32_t healthy, stepState;
  };
  for (const Case& c : {Case{1, 0}, Case{0, 1}, Case{0, 2}, Case{0, 0}}) {
    ClockState clock = clockAt(1.0f, 0.25f, 0.5f);
    clock.healthy = c.healthy;
    clock.stepState = c.stepState;
    commitStep(nullptr, &clock, p);
    EXPECT_EQ(clock.timeHigh, 1.0f);
    EXPECT_EQ(clock.timeLow, 0.25f);
    EXPECT_EQ(clock.steps, 41u);
    EXPECT_EQ(clock.healthy, c.healthy);
    EXPECT_EQ(clock.stepState, c.stepState);
  }
}

TEST(CommitStep, CountsStepsInSixtyFourBits) {
  ClockState clock = clockAt(1.0f, 0.0f, 0.5f);
  clock.steps = 0xFFFFFFFFu;
  commitStep(nullptr, &clock, test::paramsOf(16));
  EXPECT_EQ(clock.steps, 0x100000000u);
}

TEST(CommitStep, IsTheSameOnEveryInstructionSet) {
  ClockState first = clockAt(100.0f, 1e-6f, 0.1f);
  commitStep(nullptr, &first, test::paramsOf(16));
  test::onEveryProcessor([&] {
    ClockState clock = clockAt(100.0f, 1e-6f, 0.1f);
    commitStep(nullptr, &clock, test::paramsOf(16));
    EXPECT_TRUE(test::sameBits(clock.timeHigh, first.timeHigh));
    EXPECT_TRUE(test::sameBits(clock.timeLow, first.timeLow));
  });
}

}  // namespace
}  // namespace zeph
