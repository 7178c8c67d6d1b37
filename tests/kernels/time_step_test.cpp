// The choice of the time step.
#include <gtest/gtest.h>

#include <cmath>

#include "kernels/kernels.h"
#include "tests/support/arrays.h"
#include "tests/support/guarded.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Guarded;
using test::Numbers;

ClockState freshClock() {
  ClockState clock = {};
  clock.healthy = 1;
  return clock;
}

bool sameClock(const ClockState& a, const ClockState& b) {
  return test::sameBits(a.timeHigh, b.timeHigh) && test::sameBits(a.timeLow, b.timeLow) &&
         test::sameBits(a.dt, b.dt) && test::sameBits(a.rawDt, b.rawDt) && a.steps == b.steps &&
         test::sameBits(a.maxSpeed, b.maxSpeed) && a.healthy == b.healthy &&
         a.stepState == b.stepState;
}

ClockState expectedSelection(ClockState clock, const std::vector<V2>& partials, const Params& p) {
  bool bad = clock.healthy == 0;
  float m = 0.0f;
  for (const V2 partial : partials) {
    m = std::fmax(m, partial.re);
    bad = bad || partial.im != 0.0f;
  }
  clock.maxSpeed = m;
  clock.stepState = 0;
  if (bad) {
    clock.healthy = 0;
    return clock;
  }
  const float remaining = (p.endHigh - clock.timeHigh) + (p.endLow - clock.timeLow);
  if (p.hasEnd != 0 && remaining <= 0.0f) return clock;
  float d = p.fixedDt;
  if (!(p.fixedDt > 0.0f)) {
    if (m > 0.0f) {
      d = (p.cfl + p.cfl) / (m * static_cast<float>(p.resolution));
    } else {
      d = clock.rawDt > 0.0f ? clock.rawDt : 1.0f;
    }
    if (clock.rawDt > 0.0f) d = std::fmin(d, (d * 0.2f) + (clock.rawDt * 0.8f));
  }
  if (!(d > 0.0f) || !std::isfinite(d)) {
    clock.healthy = 0;
    return clock;
  }
  clock.rawDt = d;
  clock.stepState = p.hasEnd != 0 && d >= remaining ? 2 : 1;
  if (p.hasEnd != 0) d = std::fmin(d, remaining);
  clock.dt = d;
  return clock;
}

ClockState selected(const ClockState& clock, const std::vector<V2>& partials, const Params& p) {
  Guarded<V2> given(partials);
  ClockState result = clock;
  selectTimeStep(nullptr, given.data(), &result, p);
  EXPECT_TRUE(given.holds(partials));
  return result;
}

// The largest speed in one of the blocks, smaller ones elsewhere.
std::vector<V2> speeds(float largest) {
  std::vector<V2> partials(64, V2{largest * 0.5f, 0.0f});
  partials[41].re = largest;
  return partials;
}

void setEnd(Params& p, double end) {
  p.hasEnd = 1;
  p.endHigh = static_cast<float>(end);
  p.endLow = static_cast<float>(end - static_cast<double>(p.endHigh));
}

TEST(SelectTimeStep, FollowsItsRuleBitForBit) {
  Numbers numbers(31);
  for (int k = 0; k < 20000; ++k) {
    Params p = test::paramsOf(test::resolutions[numbers.below(5)]);
    p.cfl = std::fabs(numbers.next());
    if (numbers.below(4) == 0) p.fixedDt = std::fabs(numbers.next());
    if (numbers.below(2) == 0) setEnd(p, static_cast<double>(numbers.next()) + 1.0);
    ClockState clock = freshClock();
    clock.timeHigh = numbers.next();
    clock.timeLow = clock.timeHigh * 1e-8f;
    clock.rawDt = numbers.below(3) == 0 ? 0.0f : std::fabs(numbers.next());
    clock.dt = numbers.next();
    clock.steps = k;
    clock.maxSpeed = 5.0f;
    clock.healthy = numbers.below(20) != 0;
    clock.stepState = 1;
    std::vector<V2> partials(64, V2{0.0f, 0.0f});
    if (numbers.below(5) != 0) {
      for (V2& partial : partials) partial.re = std::fabs(numbers.next());
    }
    if (numbers.below(20) == 0) partials[numbers.below(64)].im = 1.0f;
    ASSERT_TRUE(sameClock(selected(clock, partials, p), expectedSelection(clock, partials, p)))
        << "case " << k;
  }
}

TEST(SelectTimeStep, IsTheSameOnEveryInstructionSet) {
  Params p = test::paramsOf(18);
  setEnd(p, 0.7);
  const std::vector<V2> partials = speeds(1.7f);
  const ClockState expected = expectedSelection(freshClock(), partials, p);
  test::onEveryProcessor(
      [&] { EXPECT_TRUE(sameClock(selected(freshClock(), partials, p), expected)); });
}

TEST(SelectTimeStep, MeasuresTheSpeedBoundAgainstTheHighestWavenumber) {
  const ClockState clock = selected(freshClock(), speeds(2.5f), test::paramsOf(64));
  EXPECT_EQ(clock.dt, 3.0f / (2.5f * 32.0f));
  EXPECT_EQ(clock.rawDt, clock.dt);
  EXPECT_EQ(clock.maxSpeed, 2.5f);
  EXPECT_EQ(clock.stepState, 1u);
  EXPECT_EQ(clock.healthy, 1u);
}

TEST(SelectTimeStep, AtRestKeepsTheLastStepOrStartsWithOne) {
  const Params p = test::paramsOf(16);
  EXPECT_EQ(selected(freshClock(), speeds(0.0f), p).dt, 1.0f);
  ClockState later = freshClock();
  later.rawDt = 0.125f;
  EXPECT_NEAR(selected(later, speeds(0.0f), p).dt, 0.125f, 1e-8f);
}

TEST(SelectTimeStep, GrowsByAFifthOfTheWayAndShrinksAtOnce) {
  Params p = test::paramsOf(16);
  ClockState clock = freshClock();
  clock.rawDt = 0.01f;
  p.cfl = 0.01f * 16.0f * 10.0f / 2.0f;  // ten times the last step at speed 1
  EXPECT_NEAR(selected(clock, speeds(1.0f), p).dt, 0.028f, 1e-8f);
  p.cfl = 0.001f * 16.0f / 2.0f;
  EXPECT_EQ(selected(clock, speeds(1.0f), p).dt, (p.cfl + p.cfl) / 16.0f);
}

TEST(SelectTimeStep, AFixedStepIgnoresSpeedAndLimiter) {
  Params p = test::paramsOf(16);
  p.fixedDt = 0.3f;
  ClockState clock = freshClock();
  clock.rawDt = 0.001f;
  EXPECT_EQ(selected(clock, speeds(1e6f), p).dt, 0.3f);
  EXPECT_EQ(selected(clock, speeds(0.0f), p).dt, 0.3f);
}

TEST(SelectTimeStep, AFixedStepIsCutAtTheEndAndRemembersItsLength) {
  Params p = test::paramsOf(16);
  p.fixedDt = 0.25f;
  setEnd(p, 1.1);
  ClockState clock = freshClock();
  clock.timeHigh = 1.0f;
  const ClockState cut = selected(clock, speeds(1.0f), p);
  EXPECT_EQ(cut.stepState, 2u);
  EXPECT_EQ(cut.rawDt, 0.25f);
  EXPECT_EQ(cut.dt, (p.endHigh - 1.0f) + p.endLow);
}

TEST(SelectTimeStep, AStepThatEqualsTheRemainderIsTheFinalOne) {
  Params p = test::paramsOf(16);
  p.fixedDt = 0.25f;
  setEnd(p, 1.0);
  ClockState clock = freshClock();
  clock.timeHigh = 0.75f;
  EXPECT_EQ(selected(clock, speeds(1.0f), p).stepState, 2u);
  EXPECT_EQ(selected(clock, speeds(1.0f), p).dt, 0.25f);
  clock.timeHigh = 0.5f;
  EXPECT_EQ(selected(clock, speeds(1.0f), p).stepState, 1u);
}

TEST(SelectTimeStep, AtOrPastTheEndNoStepIsTakenAndNothingFails) {
  Params p = test::paramsOf(16);
  setEnd(p, 1.0);
  ClockState clock = freshClock();
  clock.dt = 0.5f;
  clock.rawDt = 0.25f;
  clock.stepState = 2;
  for (const float time : {1.0f, 2.0f}) {
    clock.timeHigh = time;
    const ClockState result = selected(clock, speeds(1.0f), p);
    EXPECT_EQ(result.stepState, 0u);
    EXPECT_EQ(result.healthy, 1u);
    EXPECT_EQ(result.dt, 0.5f);
    EXPECT_EQ(result.rawDt, 0.25f);
    EXPECT_EQ(result.maxSpeed, 1.0f);
  }
}

TEST(SelectTimeStep, TheLowPartOfTheClockDecidesNearTheEnd) {
  Params p = test::paramsOf(16);
  p.fixedDt = 0.25f;
  setEnd(p, 1.0);
  ClockState clock = freshClock();
  clock.timeHigh = 1.0f;
  clock.timeLow = -1e-9f;
  const ClockState result = selected(clock, speeds(1.0f), p);
  EXPECT_EQ(result.stepState, 2u);
  EXPECT_EQ(result.dt, 1e-9f);
}

TEST(SelectTimeStep, AnyNonzeroFlagIsBad) {
  const Params p = test::paramsOf(16);
  for (const float flag : {1.0f, -1.0f, 1e-45f, test::infinity, test::notANumber}) {
    for (const std::size_t block : {std::size_t{0}, std::size_t{63}}) {
      std::vector<V2> partials = speeds(2.0f);
      partials[block].im = flag;
      ClockState clock = freshClock();
      clock.stepState = 1;
      clock.dt = 0.5f;
      const ClockState result = selected(clock, partials, p);
      EXPECT_EQ(result.healthy, 0u);
      EXPECT_EQ(result.stepState, 0u);
      EXPECT_EQ(result.maxSpeed, 2.0f);
      EXPECT_EQ(result.dt, 0.5f);
    }
  }
  std::vector<V2> negativeZero = speeds(2.0f);
  negativeZero[5].im = -0.0f;
  EXPECT_EQ(selected(freshClock(), negativeZero, p).healthy, 1u);
}

TEST(SelectTimeStep, BadFlagsFailAFixedStepToo) {
  Params p = test::paramsOf(16);
  p.fixedDt = 0.1f;
  std::vector<V2> partials = speeds(1.0f);
  partials[9].im = 1.0f;
  EXPECT_EQ(selected(freshClock(), partials, p).healthy, 0u);
}

TEST(SelectTimeStep, HealthIsNotRestored) {
  ClockState clock = freshClock();
  clock.healthy = 0;
  clock.stepState = 1;
  const ClockState result = selected(clock, speeds(1.0f), test::paramsOf(16));
  EXPECT_EQ(result.healthy, 0u);
  EXPECT_EQ(result.stepState, 0u);
}

TEST(SelectTimeStep, AnInfiniteSpeedBoundFails) {
  const ClockState result = selected(freshClock(), speeds(test::infinity), test::paramsOf(16));
  EXPECT_EQ(result.healthy, 0u);
  EXPECT_EQ(result.stepState, 0u);
  EXPECT_EQ(result.maxSpeed, test::infinity);
}

TEST(SelectTimeStep, AStepThatOverflowsFails) {
  Params p = test::paramsOf(16);
  p.cfl = 3e38f;
  EXPECT_EQ(selected(freshClock(), speeds(1.0f), p).healthy, 0u);
  p.cfl = 1.0f;
  EXPECT_EQ(selected(freshClock(), speeds(1e-45f), p).healthy, 0u);
}

TEST(SelectTimeStep, ANaNBoundIsIgnored) {
  std::vector<V2> partials = speeds(2.0f);
  partials[0].re = test::notANumber;
  partials[63].re = test::notANumber;
  EXPECT_EQ(selected(freshClock(), partials, test::paramsOf(16)).maxSpeed, 2.0f);
}

}  // namespace
}  // namespace zeph
