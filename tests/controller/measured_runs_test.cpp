// How a running flow is paced and measured, on a clock that does not depend on the machine.
#include <gtest/gtest.h>

#include "controller/performance.h"
#include "tests/controller/driven_clock.h"
#include "tests/controller/flows.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::DrivenClock;

TEST(MeasuredRun, WithFixedBatchesCountsThemAndKeepsItsPace) {
  RunSettings run = test::freeRun();
  run.fixedBatch = true;
  run.batch = 4;
  run.until = 2;
  DrivenClock clock(1e-6);
  Controller controller(run, test::processor, clock.clock());
  const Status status = test::whenFinished(controller);
  EXPECT_EQ(status.batchCount, (status.stats.steps + 3) / 4);
  EXPECT_GT(status.batchSteps, 4);
}

TEST(MeasuredRun, PacesItsBatchesByItsClock) {
  // Hidden, so that no frame cuts a batch short.
  for (const double tick : {1e-7, 0.002, 0.005, 0.02}) {
    RunSettings run = test::pausedRun();
    DrivenClock clock(tick);
    Controller controller(run, test::processor, clock.clock());
    controller.setVisible(false);
    const Status status =
        test::afterRunning(controller, [](const Status& now) { return now.batchCount >= 40; });
    Pace pace;
    std::uint64_t steps = 0;
    for (std::uint32_t k = 0; k < status.batchCount; ++k) {
      steps += static_cast<std::uint64_t>(pace.batchSteps);
      // The two readings around a batch are a tick apart, but for the rounding of their sums.
      pace.account(pace.batchSteps, tick);
    }
    EXPECT_NEAR(static_cast<double>(status.stats.steps), static_cast<double>(steps), 40) << tick;
    EXPECT_NEAR(status.batchSteps, pace.batchSteps, 1) << tick;
  }
}

TEST(MeasuredRun, WhileVisibleMakesAFrameAtEachGridPoint) {
  RunSettings run = test::pausedRun();
  DrivenClock clock(0.05);  // slower than the grid
  Controller controller(run, test::processor, clock.clock());
  const Status status =
      test::afterRunning(controller, [](const Status& now) { return now.batchCount >= 50; });
  // One at the start, at most one more before the first batch, and one after each.
  EXPECT_GE(status.frameCount, status.batchCount + 1);
  EXPECT_LE(status.frameCount, status.batchCount + 2);
  EXPECT_EQ(status.stats.steps, status.batchCount);
}

TEST(MeasuredRun, MakesNoMoreFramesThanTheGridHasPoints) {
  RunSettings run = test::pausedRun();
  run.fixedBatch = true;
  run.batch = 1;
  DrivenClock clock(0.001);
  Controller controller(run, test::processor, clock.clock());
  const Status status =
      test::afterRunning(controller, [](const Status& now) { return now.elapsedSeconds >= 3; });
  EXPECT_LE(status.frameCount, status.elapsedSeconds * 60 + 3);
  EXPECT_GE(status.frameCount, status.elapsedSeconds * 60 - 3);
}

TEST(MeasuredRun, SamplesStatisticsFourTimesASecond) {
  Config slow = test::configOf(16);
  slow.fixed_dt = 1e-4f;  // so that its energy still changes at the end
  RunSettings run = test::pausedRun(slow);
  run.fixedBatch = true;
  run.batch = 1;
  DrivenClock clock(0.001);
  Controller controller(run, test::processor, clock.clock());
  const Status status =
      test::afterRunning(controller, [](const Status& now) { return now.elapsedSeconds >= 15; });
  const auto samples = static_cast<double>(status.history.size());
  EXPECT_LE(samples, status.elapsedSeconds / 0.25 + 3);
  EXPECT_GE(samples, status.elapsedSeconds / 0.27 - 1);
}

TEST(MeasuredRun, MeasuresStepsPerSecondOverItsLastWindow) {
  RunSettings run = test::pausedRun();
  run.fixedBatch = true;
  run.batch = 2;
  DrivenClock clock(0.01);
  Controller controller(run, test::processor, clock.clock());
  controller.setVisible(false);
  const Status status =
      test::afterRunning(controller, [](const Status& now) { return now.elapsedSeconds >= 3; });
  // Two steps a pass, and a pass reads the clock three times, with statistics four.
  EXPECT_GE(status.stepsPerSecond, 2 / 0.04);
  EXPECT_LE(status.stepsPerSecond, 2 / 0.03 + 1);
  EXPECT_NEAR(status.simtimePerSecond, status.stats.time / status.elapsedSeconds,
              0.2 * status.simtimePerSecond);
}

TEST(MeasuredRun, LeavesPausesAndSingleStepsOutOfItsRates) {
  RunSettings run = test::pausedRun();
  DrivenClock clock(0.01);
  Controller controller(run, test::processor, clock.clock());
  const Status stopped =
      test::afterRunning(controller, [](const Status& now) { return now.elapsedSeconds >= 1; });
  controller.step();
  controller.step();
  const Status stepped = test::whenSettled(controller);
  EXPECT_EQ(stepped.stats.steps, stopped.stats.steps + 2);
  EXPECT_EQ(stepped.elapsedSeconds, stopped.elapsedSeconds);
  EXPECT_EQ(stepped.stepsPerSecond, stopped.stepsPerSecond);
  EXPECT_EQ(stepped.simtimePerSecond, stopped.simtimePerSecond);
  EXPECT_GT(stepped.gpuSeconds, stopped.gpuSeconds);
}

TEST(MeasuredRun, LeavesSingleStepsOutOfItsSimulatedTime) {
  Config config = test::configOf(16);
  config.fixed_dt = 0.0078125f;
  RunSettings run = test::pausedRun(config);
  run.fixedBatch = true;
  run.batch = 1;
  DrivenClock clock(0.01);
  Controller controller(run, test::processor, clock.clock());
  for (std::uint64_t k = 1; k <= 400; ++k) controller.step();
  test::afterSteps(controller, 400);
  const Status status =
      test::afterRunning(controller, [](const Status& now) { return now.simtimePerSecond > 0; });
  const double batches = status.batchCount - 400.0;
  EXPECT_LE(status.simtimePerSecond * status.elapsedSeconds, 2 * batches * 0.0078125);
}

// Clock time per batch of a running flow that is interrupted by so many single steps.
double secondsOfABatch(int singles) {
  RunSettings run = test::pausedRun();
  run.fixedBatch = true;
  run.batch = 1;
  DrivenClock clock(0.01);
  Controller controller(run, test::processor, clock.clock());
  controller.setVisible(false);
  test::whenSettled(controller);
  controller.setRunning(true);
  test::waitFor(controller, [](const Status& now) { return now.batchCount > 10; });
  {
    DrivenClock::Hold hold(clock);
    hold.awaitReader();
    for (int k = 0; k < singles; ++k) controller.step();
    controller.setRunning(true);
  }
  test::waitFor(controller, [=](const Status& now) {
    return now.batchCount > static_cast<unsigned>(singles) + 200;
  });
  controller.setRunning(false);
  const Status status = test::whenSettled(controller);
  return status.elapsedSeconds / (status.batchCount - singles);
}

TEST(MeasuredRun, LeavesSingleStepsOutOfItsWallTime) {
  EXPECT_NEAR(secondsOfABatch(400), secondsOfABatch(0), 0.01);
}

TEST(MeasuredRun, HasNoRatesIfItEndsWithItsFirstBatch) {
  RunSettings run = test::freeRun();
  run.wallSeconds = 0.1;
  DrivenClock clock(0.3);  // every batch is a window
  Controller controller(run, test::processor, clock.clock());
  const Status status = test::whenFinished(controller);
  EXPECT_EQ(status.batchCount, 1u);
  EXPECT_GT(status.elapsedSeconds, 0.1);
  EXPECT_EQ(status.stepsPerSecond, 0);
  EXPECT_EQ(status.simtimePerSecond, 0);
}

}  // namespace
}  // namespace zeph
