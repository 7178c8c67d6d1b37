// Stepping: its arguments, where it stops, and what it reports.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>

#include "solver/endpoint.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

constexpr const char* refusal = "Invalid steps or endpoint.";
constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Advance, RefusesNegativeCountsAndInvalidTimes) {
  Solver solver(test::configOf(16));
  const std::vector<V2> before = solver.spectrum();
  EXPECT_EQ(test::badArgument([&] { solver.advance(-1); }), refusal);
  EXPECT_EQ(test::badArgument([&] { solver.advance(-2147483647 - 1); }), refusal);
  for (const double end :
       {-1.0, -1e-300, infinity, -infinity, 1e39, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(test::badArgument([&] { solver.advance(1, end); }), refusal) << end;
    EXPECT_EQ(test::badArgument([&] { solver.advance(0, end); }), refusal) << end;
  }
  EXPECT_TRUE(test::sameBits(solver.spectrum(), before));
  EXPECT_EQ(solver.lastStats().steps, 0u);
}

TEST(Advance, ByNoStepsChangesNothing) {
  Solver solver(test::configOf(16));
  const Statistics first = solver.advance(4);
  EXPECT_GT(first.gpuMilliseconds, 0.0);
  const std::vector<V2> before = solver.spectrum();
  const Statistics second = solver.advance(0);
  EXPECT_EQ(second.steps, 4u);
  EXPECT_EQ(second.time, first.time);
  EXPECT_EQ(second.gpuMilliseconds, first.gpuMilliseconds);
  EXPECT_TRUE(test::sameBits(solver.spectrum(), before));
}

TEST(Advance, CountsStepsAndTime) {
  for (const Integrator integrator : test::integrators) {
    Config config = test::configOf(16, integrator);
    config.fixed_dt = 0.0078125f;
    Solver solver(config);
    const Statistics stats = solver.advance(7);
    EXPECT_EQ(stats.steps, 7u);
    EXPECT_EQ(stats.time, 7 * 0.0078125);
    EXPECT_EQ(stats.dt, 0.0078125f);
    EXPECT_EQ(stats.reynolds, 1000.0);
  }
}

TEST(Advance, AnEndInsideABatchStopsTheFlow) {
  Solver solver(test::fixedStep(0.0078125f));
  const Statistics stats = solver.advance(1000, 10 * 0.0078125);
  EXPECT_EQ(stats.steps, 10u);
  EXPECT_EQ(stats.time, 10 * 0.0078125);
  EXPECT_EQ(stats.dt, 0.0078125f);
}

TEST(Advance, TheLastStepIsCutToLandOnTheEnd) {
  for (const double end : {0.1, 1.0 / 3.0, 0.0500001}) {
    Solver solver(test::fixedStep(0.03f));
    const Statistics stats = solver.advance(1000, end);
    EXPECT_EQ(stats.time, test::asPair(end));
    EXPECT_EQ(stats.steps, static_cast<std::uint64_t>(std::ceil(end / 0.03)));
    EXPECT_LT(stats.dt, 0.03f);
  }
}

TEST(Advance, AnAdaptiveFlowLandsOnTheEndToo) {
  for (const Integrator integrator : test::integrators) {
    Solver solver(test::configOf(16, integrator));
    EXPECT_EQ(solver.advance(100000, 3.7).time, test::asPair(3.7));
    // The cut step does not affect the time-step rule.
    const float cut = solver.lastStats().dt;
    EXPECT_GT(solver.advance(1).dt, cut);
  }
}

TEST(Advance, TheStepsMayEndBeforeTheTime) {
  Solver solver(test::fixedStep(0.01f));
  const Statistics stats = solver.advance(5, 100.0);
  EXPECT_EQ(stats.steps, 5u);
  EXPECT_NEAR(stats.time, 0.05, 1e-8);
}

TEST(Advance, ReturnsAtOnceAtTheEnd) {
  Solver solver(test::fixedStep(0.03f));
  const Statistics first = solver.advance(1000, 0.1);
  const std::vector<V2> before = solver.spectrum();
  for (const double end : {0.1, first.time, 0.05, 0.0}) {
    const Statistics again = solver.advance(10, end);
    EXPECT_EQ(again.steps, first.steps);
    EXPECT_EQ(again.time, first.time);
    EXPECT_EQ(again.gpuMilliseconds, first.gpuMilliseconds);
  }
  EXPECT_TRUE(test::sameBits(solver.spectrum(), before));
}

TEST(Advance, AnEndAtZeroIsReachedFromTheStart) {
  Solver solver(test::configOf(16));
  EXPECT_EQ(solver.advance(10, 0.0).steps, 0u);
}

TEST(Advance, AnEndJustAheadIsOneShortStep) {
  Solver solver(test::fixedStep(0.0625f));
  solver.advance(16);
  const Statistics stats = solver.advance(100, 1.0 + 1e-9);
  EXPECT_EQ(stats.steps, 17u);
  EXPECT_EQ(stats.time, test::asPair(1.0 + 1e-9));
  EXPECT_NEAR(stats.dt, 1e-9f, 1e-15f);
}

TEST(Advance, ATinyEndIsReached) {
  Solver solver(test::configOf(16));
  const Statistics stats = solver.advance(10, 1e-30);
  EXPECT_EQ(stats.steps, 1u);
  EXPECT_EQ(stats.time, test::asPair(1e-30));
}

TEST(Advance, AnEndBelowThePrecisionOfTheClockTakesNoStep) {
  Solver solver(test::configOf(16));
  const Statistics stats = solver.advance(std::numeric_limits<std::int32_t>::max(), 1e-50);
  EXPECT_EQ(stats.steps, 0u);
  EXPECT_EQ(stats.time, 0.0);
}

TEST(Advance, DoesNotDependOnHowStepsAreSplitIntoCalls) {
  for (const Integrator integrator : test::integrators) {
    Solver whole(test::configOf(16, integrator));
    Solver parts(test::configOf(16, integrator));
    const Statistics once = whole.advance(300);  // more than one batch
    for (int k = 0; k < 3; ++k) parts.advance(100);
    EXPECT_EQ(once.steps, 300u);
    EXPECT_EQ(once.time, parts.lastStats().time);
    EXPECT_EQ(once.dt, parts.lastStats().dt);
    EXPECT_TRUE(test::sameBits(whole.spectrum(), parts.spectrum()));
  }
}

TEST(Advance, LandsOnAnEndBeyondTheFirstBatch) {
  Solver solver(test::fixedStep(0.0078125f));
  const Statistics stats = solver.advance(2000, 600 * 0.0078125);
  EXPECT_EQ(stats.steps, 600u);
  EXPECT_EQ(stats.time, 600 * 0.0078125);
}

TEST(Advance, DeviceTimeIsThatOfTheLastLoop) {
  Solver solver(test::configOf(64));
  EXPECT_EQ(solver.lastStats().gpuMilliseconds, 0.0);
  const auto begin = std::chrono::steady_clock::now();
  const double many = solver.advance(600).gpuMilliseconds;  // three batches
  const std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(many, wall.count() * 1.001);
  EXPECT_GE(many, wall.count() * 0.5);
  const double one = solver.advance(1).gpuMilliseconds;
  EXPECT_GT(one, 0.0);
  EXPECT_GT(many, one);
  solver.inspect();
  EXPECT_EQ(solver.lastStats().gpuMilliseconds, one);
  solver.reset();
  EXPECT_EQ(solver.lastStats().gpuMilliseconds, 0.0);
}

TEST(Advance, AnEndCountsAsReachedThirtyTwoUnitsBelowIt) {
  constexpr double unit = std::numeric_limits<double>::epsilon();
  EXPECT_EQ(reachedFrom(1.0), 1.0 - 32 * unit);
  EXPECT_EQ(reachedFrom(1024.0), 1024.0 - 1024 * 32 * unit);
  EXPECT_LT(reachedFrom(0.0), 0.0);
}

TEST(Advance, KeepsTheFiguresOfTheLastInspection) {
  Solver solver(test::configOf(16));
  const double energy = solver.lastStats().energy;
  EXPECT_EQ(solver.advance(50).energy, energy);
  EXPECT_LT(solver.inspect().energy, energy);
}

TEST(Setters, RefuseInvalidNumbers) {
  Solver solver(test::configOf(16));
  for (const double reynolds :
       {0.0, -1.0, infinity, 1e-39, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(test::badArgument([&] { solver.setReynolds(reynolds); }),
              "Re must be finite and positive.");
  }
  for (const float cfl : {0.0f, -1.0f, std::numeric_limits<float>::infinity(),
                          std::numeric_limits<float>::quiet_NaN()}) {
    EXPECT_EQ(test::badArgument([&] { solver.setCFL(cfl); }), "CFL must be finite and positive.");
  }
  EXPECT_EQ(solver.lastStats().reynolds, 1000.0);
}

TEST(Setters, DoNotChangeTheConfiguration) {
  Solver solver(test::configOf(16));
  solver.setCFL(1.0f);
  solver.setReynolds(5.0);
  EXPECT_EQ(solver.config().cfl, 3.0f);
  EXPECT_EQ(solver.config().reynolds, 1000.0);
  solver.reset();
  EXPECT_EQ(solver.config().cfl, 3.0f);
  EXPECT_EQ(solver.lastStats().reynolds, 5.0);
  EXPECT_EQ(solver.inspect().reynolds, 5.0);
}

TEST(Setters, ACourantNumberAppliesFromTheNextStep) {
  Config config = test::configOf(32);
  config.reynolds = 1e12;
  const std::vector<float> wave = test::wave(32, 2, 1, 1.0);
  Solver solver(config, wave);
  const float start = solver.advance(1).dt;
  solver.setCFL(0.3f);
  EXPECT_NEAR(solver.advance(1).dt / start, 0.1f, 1e-5f);
  solver.setCFL(3.0f);
  EXPECT_NEAR(solver.advance(1).dt / start, 0.28f, 1e-5f);  // a fifth of the way
  solver.setCFL(1.0f);
  solver.reset(wave);
  EXPECT_NEAR(solver.lastStats().dt / start, 1.0f / 3.0f, 1e-5f);  // also kept by a reset
}

TEST(Setters, AReynoldsNumberAppliesFromTheNextStep) {
  Config config = test::configOf(16);
  config.fixed_dt = 0.01f;
  Solver solver(config, test::wave(16, 2, 0, 1.0));
  solver.advance(1);
  const double before = solver.inspect().energy;
  solver.setReynolds(1.0);
  solver.advance(1);
  EXPECT_NEAR(solver.inspect().energy / before, std::exp(-2 * 4 * 0.01), 1e-6);
}

}  // namespace
}  // namespace zeph
