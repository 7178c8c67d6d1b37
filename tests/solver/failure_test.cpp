// Flows that fail, and their recovery by a reset.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/bits.h"
#include "tests/support/failures.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

constexpr const char* badSamples =
    "Initial vorticity must contain exactly N\u00b2 finite Float32 samples.";

TEST(Failure, IsReportedOnceAndThenLatched) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      Config config = test::explosive(16);
      config.integrator = integrator;
      config.operatorKind = operatorKind;
      Solver solver(config);
      EXPECT_EQ(test::runtimeFailure([&] { solver.advance(1000); }), test::exploded);
      test::expectLatched(solver);
    }
  }
}

TEST(Failure, DoesNotHideABadRequest) {
  Solver solver(test::explosive(16));
  test::runtimeFailure([&] { solver.advance(1000); });
  EXPECT_EQ(test::badArgument([&] { solver.advance(-1); }), "Invalid steps or endpoint.");
  EXPECT_EQ(test::badArgument([&] { solver.advance(1, 1e39); }), "Invalid steps or endpoint.");
  test::expectLatched(solver);
}

TEST(Failure, KeepsTheSettersAndTheConfigurationUsable) {
  Solver solver(test::explosive(16));
  test::runtimeFailure([&] { solver.advance(1000); });
  EXPECT_NO_THROW(solver.setReynolds(10.0));
  EXPECT_NO_THROW(solver.setCFL(0.5f));
  EXPECT_EQ(solver.config().resolution, 16);
  EXPECT_EQ(test::badArgument([&] { solver.setCFL(0.0f); }), "CFL must be finite and positive.");
  test::expectLatched(solver);
}

TEST(Failure, IsClearedByAReset) {
  Solver solver(test::explosive(16));
  const std::vector<V2> start = solver.spectrum();
  test::runtimeFailure([&] { solver.advance(1000); });
  solver.reset();
  EXPECT_EQ(solver.lastStats().steps, 0u);
  EXPECT_EQ(solver.lastStats().time, 0.0);
  EXPECT_TRUE(test::sameBits(solver.spectrum(), start));
  EXPECT_NE(solver.snapshot(true), nullptr);
}

TEST(Failure, AfterAResetAFlowRunsLikeANewOne) {
  test::expectCleanFlowAfterAReset(10000);
}

TEST(Failure, RefusedSamplesKeepALatchedSolverLatched) {
  Solver solver(test::explosive(16));
  test::runtimeFailure([&] { solver.advance(1000); });
  EXPECT_EQ(test::badArgument([&] { solver.reset(std::vector<float>(3)); }), badSamples);
  test::expectLatched(solver);
}

TEST(Failure, RefusedSamplesDoNotChangeARunningSolver) {
  Solver solver(test::configOf(16));
  const Statistics before = solver.advance(5);
  const std::vector<V2> spectrum = solver.spectrum();
  std::vector<float> bad = test::wave(16, 1, 1, 1.0);
  for (const float value :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity()}) {
    bad.back() = value;
    EXPECT_EQ(test::badArgument([&] { solver.reset(bad); }), badSamples);
  }
  for (const std::size_t count : {std::size_t{1}, std::size_t{255}, std::size_t{257}}) {
    EXPECT_EQ(test::badArgument([&] { solver.reset(std::vector<float>(count)); }), badSamples);
  }
  EXPECT_EQ(test::badArgument([&] { Solver other(test::configOf(16), bad); }), badSamples);
  EXPECT_EQ(solver.lastStats().steps, before.steps);
  EXPECT_EQ(solver.lastStats().gpuMilliseconds, before.gpuMilliseconds);
  EXPECT_TRUE(test::sameBits(solver.spectrum(), spectrum));
}

TEST(Failure, SamplesTooLargeForTheTransformsLatchTheReset) {
  Solver solver(test::configOf(16));
  std::vector<float> huge = test::wave(16, 1, 0, 3e38);
  EXPECT_EQ(test::runtimeFailure([&] { solver.reset(huge); }), test::exploded);
  test::expectLatched(solver);
  solver.reset();
  EXPECT_EQ(solver.advance(1).steps, 1u);
}

TEST(Failure, AnOverflowOfTheEnstrophyIsReported) {
  EXPECT_EQ(
      test::runtimeFailure([] { Solver solver(test::configOf(16), test::wave(16, 1, 0, 1e25)); }),
      "Non-finite spectral reduction.");
}

TEST(Failure, AStepThatOverflowsFails) {
  Config config = test::configOf(16);
  config.cfl = 3e38f;
  EXPECT_EQ(test::runtimeFailure([&] { Solver solver(config); }), test::exploded);
}

TEST(Failure, AnOverflowOfTheClockIsReported) {
  Config config = test::configOf(16);
  config.fixed_dt = 3e38f;
  config.reynolds = 1e38;
  Solver solver(config, test::still(16));
  EXPECT_EQ(solver.advance(1).steps, 1u);
  EXPECT_EQ(test::runtimeFailure([&] { solver.advance(1); }), "Non-finite clock.");
  test::expectLatched(solver);
  solver.reset(test::still(16));
  EXPECT_EQ(solver.lastStats().time, 0.0);
}

}  // namespace
}  // namespace zeph
