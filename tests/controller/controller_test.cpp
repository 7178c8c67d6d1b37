// What each operation of a controller changes at once in Control and Status, while its thread is
// held.
#include "controller/controller.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <optional>

#include "tests/controller/driven_clock.h"
#include "tests/controller/flows.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::DrivenClock;

constexpr const char* refused =
    "Invalid resolution, Reynolds number, k0, CFL, fixed timestep, method or start spectrum.";

// A controller whose thread is held before it has published anything.
class ControllerTest : public testing::Test {
 protected:
  void make(const RunSettings& run) {
    hold_.emplace(clock_);
    controller_ = std::make_unique<Controller>(run, test::processor, clock_.clock());
    hold_->awaitReader();
  }
  // The same, but with a flow that has settled.
  void makeSettled(const RunSettings& run) {
    controller_ = std::make_unique<Controller>(run, test::processor, clock_.clock());
    test::whenSettled(*controller_);
    hold_.emplace(clock_);
    hold_->awaitReader();
  }
  Controller& controller() { return *controller_; }
  Control control() const { return controller_->control(); }
  Status status() const { return controller_->status(); }

  DrivenClock clock_;
  std::unique_ptr<Controller> controller_;
  std::optional<DrivenClock::Hold> hold_;
};

bool isFresh(const Status& status) {
  return !status.ready && !status.settled && !status.finished && !status.frame &&
         status.stats.steps == 0 && status.stats.energy == 0 && status.stats.reynolds == 0 &&
         status.firstStats.energy == 0 && status.simtimePerSecond == 0 &&
         status.turnoversPerSecond == 0 && status.stepsPerSecond == 0 &&
         status.elapsedSeconds == 0 && status.gpuSeconds == 0 && status.batchCount == 0 &&
         status.frameCount == 0 && status.batchSteps == 1 && status.history.empty() &&
         status.error_message.empty();
}

TEST_F(ControllerTest, StartsWithItsSettings) {
  RunSettings run;
  run.config = test::configOf(16);
  make(run);
  EXPECT_EQ(control().config, run.config);
  EXPECT_EQ(control().generation, 1u);
  EXPECT_EQ(control().parameterEpoch, 0u);
  EXPECT_EQ(control().regulationEpoch, 0u);
  EXPECT_EQ(control().displayEpoch, 0u);
  EXPECT_TRUE(control().running);
  EXPECT_TRUE(control().visible);
  EXPECT_FALSE(control().velocityNeeded);
  EXPECT_TRUE(control().regulated);
  EXPECT_FALSE(control().stopRequested);
  EXPECT_TRUE(control().stopRulesArmed);
  EXPECT_EQ(control().pendingSteps, 0);
  EXPECT_TRUE(isFresh(status()));
  EXPECT_EQ(status().config, run.config);
  EXPECT_EQ(status().generation, 1u);
  EXPECT_TRUE(status().running);
  EXPECT_TRUE(status().regulated);
}

TEST_F(ControllerTest, CanStartPausedUnregulatedAndWithoutLimits) {
  RunSettings run = test::pausedRun();
  run.stepLimited = true;
  make(run);
  EXPECT_FALSE(control().running);
  EXPECT_FALSE(control().regulated);
  EXPECT_FALSE(control().stopRulesArmed);
  EXPECT_FALSE(status().running);
  EXPECT_FALSE(status().regulated);
}

TEST_F(ControllerTest, NeedsTheVelocityForSpeedFlowLinesAndReaders) {
  const auto needed = [this](auto change) {
    RunSettings run = test::pausedRun();
    change(run);
    make(run);
    const bool answer = control().velocityNeeded;
    hold_.reset();
    controller_.reset();
    return answer;
  };
  EXPECT_FALSE(needed([](RunSettings& run) { run.settings.display = Display::enstrophy; }));
  EXPECT_TRUE(needed([](RunSettings& run) { run.settings.display = Display::speed; }));
  EXPECT_TRUE(needed([](RunSettings& run) { run.settings.flow = true; }));
  EXPECT_TRUE(needed([](RunSettings& run) { run.velocity = "somewhere"; }));
  EXPECT_FALSE(needed([](RunSettings& run) { run.spectrum = "somewhere"; }));
}

TEST_F(ControllerTest, AppliesRunningAtOnceAndIsNoLongerSettled) {
  makeSettled(test::pausedRun());
  controller().setRunning(true);
  EXPECT_TRUE(control().running);
  EXPECT_TRUE(status().running);
  EXPECT_FALSE(status().settled);
  EXPECT_FALSE(status().finished);
  EXPECT_TRUE(status().ready);
}

TEST_F(ControllerTest, APauseDropsThePendingStepsAndRunningKeepsThem) {
  makeSettled(test::pausedRun());
  controller().step();
  controller().step();
  EXPECT_EQ(control().pendingSteps, 2);
  controller().setRunning(true);
  EXPECT_EQ(control().pendingSteps, 2);
  controller().setRunning(false);
  EXPECT_EQ(control().pendingSteps, 0);
  EXPECT_FALSE(status().running);
  EXPECT_FALSE(status().settled);
}

TEST_F(ControllerTest, AStepPauses) {
  make(test::freeRun());
  controller().step();
  EXPECT_EQ(control().pendingSteps, 1);
  EXPECT_FALSE(control().running);
  EXPECT_FALSE(status().running);
  EXPECT_FALSE(status().settled);
}

TEST_F(ControllerTest, AResetStartsANewFlowWithNothingOfTheOldOne) {
  makeSettled(test::pausedRun());
  EXPECT_TRUE(status().ready);
  controller().step();
  controller().reset();
  EXPECT_EQ(control().generation, 2u);
  EXPECT_EQ(control().pendingSteps, 0);
  EXPECT_TRUE(isFresh(status()));
  EXPECT_EQ(status().generation, 2u);
  EXPECT_EQ(status().config, control().config);
  EXPECT_FALSE(status().running);
  controller().setRunning(true);
  controller().setRegulated(true);
  controller().reset();
  EXPECT_EQ(status().generation, 3u);
  EXPECT_TRUE(status().running);
  EXPECT_TRUE(status().regulated);
  EXPECT_TRUE(control().running);
}

TEST_F(ControllerTest, KeepsWorkingAfterARefusedConfiguration) {
  makeSettled(test::pausedRun());
  controller().step();
  const auto text = [this](auto change) {
    Config config = control().config;
    change(config);
    return test::badArgument([&] { controller().applyConfig(config); });
  };
  EXPECT_EQ(text([](Config& config) { config.resolution = 17; }), refused);
  EXPECT_EQ(text([](Config& config) { config.k0 = 0; }), refused);
  EXPECT_EQ(text([](Config& config) { config.cfl = 0; }), refused);
  EXPECT_EQ(text([](Config& config) { config.reynolds = -1; }), refused);
  EXPECT_EQ(control().generation, 1u);
  EXPECT_EQ(control().pendingSteps, 1);
  EXPECT_TRUE(status().ready);
  // A fine start is refused where configurations are read, and not here.
  EXPECT_EQ(text([](Config& config) { config.k0 = 1000001; }), "nothing failed");
}

TEST_F(ControllerTest, UsesTheDefaultReynoldsNumberOfANewGrid) {
  makeSettled(test::pausedRun());
  Config config = control().config;
  config.resolution = 32;
  controller().applyConfig(config);
  EXPECT_EQ(control().config.reynolds, DefaultReynolds(32, config.k0));
  EXPECT_EQ(status().config, control().config);
}

TEST(FollowGrid, KeepsTheReynoldsNumberOnTheSameGrid) {
  const Config current = test::configOf(16);
  Config next = current;
  next.seed = 9;
  next.reynolds = 123;
  next.cfl = 1;
  for (const bool regulated : {false, true}) {
    Config followed = next;
    followGrid(followed, current, regulated);
    EXPECT_EQ(followed, next);
  }
}

TEST(FollowGrid, OnAnotherGridOnlyANumberThatIsGivenAndNotRegulatedIsKept) {
  const Config current = test::configOf(16);
  const auto followed = [&](int resolution, int k0, double reynolds, bool regulated) {
    Config next = current;
    next.resolution = resolution;
    next.k0 = k0;
    next.reynolds = reynolds;
    followGrid(next, current, regulated);
    return next.reynolds;
  };
  for (const auto& [resolution, k0] : {std::pair{32, 3}, std::pair{16, 4}, std::pair{64, 1}}) {
    const double usual = DefaultReynolds(resolution, k0);
    EXPECT_EQ(followed(resolution, k0, current.reynolds, true), usual);
    EXPECT_EQ(followed(resolution, k0, current.reynolds, false), usual);
    EXPECT_EQ(followed(resolution, k0, 555, true), usual);
    EXPECT_EQ(followed(resolution, k0, 555, false), 555);
  }
}

TEST(FollowGrid, NaNDiffersFromEveryNumber) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  Config current = test::configOf(16);
  Config next = test::configOf(32);
  next.reynolds = nan;
  followGrid(next, current, false);
  EXPECT_TRUE(std::isnan(next.reynolds));
  current.reynolds = nan;
  followGrid(next, current, true);
  EXPECT_EQ(next.reynolds, DefaultReynolds(32, next.k0));
}

TEST_F(ControllerTest, LiveValuesShowAtOnceInTheSameFlow) {
  makeSettled(test::pausedRun());
  controller().setLive(1.5f, 2000);
  EXPECT_EQ(control().parameterEpoch, 1u);
  EXPECT_EQ(control().config.cfl, 1.5f);
  EXPECT_EQ(control().config.reynolds, 2000);
  EXPECT_EQ(status().config.cfl, 1.5f);
  EXPECT_EQ(status().config.reynolds, 2000);
  EXPECT_EQ(status().stats.reynolds, 2000);
  EXPECT_EQ(status().generation, 1u);
  EXPECT_TRUE(status().ready);
  // Even if nothing has changed.
  controller().setLive(1.5f, 2000);
  EXPECT_EQ(control().parameterEpoch, 2u);
}

TEST_F(ControllerTest, ALiveReynoldsNumberIsDroppedWhileRegulated) {
  RunSettings run = test::pausedRun();
  run.regulated = true;
  makeSettled(run);
  const Status before = status();
  controller().setLive(1.5f, 2000);
  EXPECT_EQ(control().parameterEpoch, 1u);
  EXPECT_EQ(control().config.cfl, 1.5f);
  EXPECT_EQ(control().config.reynolds, run.config.reynolds);
  EXPECT_EQ(status().config.reynolds, run.config.reynolds);
  EXPECT_EQ(status().stats.reynolds, before.stats.reynolds);
}

TEST_F(ControllerTest, SettingTheCurrentRegulationChangesNothing) {
  makeSettled(test::pausedRun());
  controller().setRegulated(false);
  EXPECT_EQ(control().regulationEpoch, 0u);
  EXPECT_EQ(control().parameterEpoch, 0u);
}

TEST_F(ControllerTest, SwitchingRegulationOnKeepsTheConfiguredNumber) {
  makeSettled(test::pausedRun());
  controller().setRegulated(true);
  EXPECT_EQ(control().regulationEpoch, 1u);
  EXPECT_EQ(control().parameterEpoch, 1u);
  EXPECT_TRUE(control().regulated);
  EXPECT_TRUE(status().regulated);
  EXPECT_EQ(control().config.reynolds, 1000);
  EXPECT_TRUE(status().settled);
}

TEST_F(ControllerTest, SwitchingRegulationOffKeepsTheNumberReached) {
  RunSettings run = test::pausedRun();
  run.regulated = true;
  makeSettled(run);
  const double reached = status().stats.reynolds;
  ASSERT_NE(reached, run.config.reynolds);
  ASSERT_GT(reached, 0);
  EXPECT_EQ(status().config.reynolds, run.config.reynolds);
  controller().setRegulated(false);
  EXPECT_EQ(control().config.reynolds, reached);
  EXPECT_EQ(status().config.reynolds, reached);
  EXPECT_FALSE(status().regulated);
  EXPECT_EQ(control().regulationEpoch, 1u);
  EXPECT_EQ(control().parameterEpoch, 1u);
}

TEST_F(ControllerTest, SwitchingRegulationOffBeforeAnyStatisticsKeepsTheConfiguredNumber) {
  RunSettings run = test::pausedRun();
  run.regulated = true;
  make(run);
  ASSERT_EQ(status().stats.reynolds, 0);
  controller().setRegulated(false);
  EXPECT_EQ(control().config.reynolds, run.config.reynolds);
  EXPECT_EQ(status().config.reynolds, run.config.reynolds);
}

TEST_F(ControllerTest, CountsDisplayChangesEvenIfTheyAreUndone) {
  makeSettled(test::pausedRun());
  controller().setVisible(true);
  controller().setVelocityNeeded(false);
  EXPECT_EQ(control().displayEpoch, 0u);
  controller().setVisible(false);
  EXPECT_EQ(control().displayEpoch, 1u);
  EXPECT_FALSE(control().visible);
  controller().setVisible(true);
  EXPECT_EQ(control().displayEpoch, 2u);
  controller().setVelocityNeeded(true);
  EXPECT_EQ(control().displayEpoch, 3u);
  EXPECT_TRUE(control().velocityNeeded);
  EXPECT_TRUE(status().settled);
}

TEST_F(ControllerTest, KeepsLimitsForTheNextGeneration) {
  makeSettled(test::pausedRun());
  RunSettings limits = test::pausedRun();
  limits.until = 1;
  limits.stepLimited = true;
  limits.paused = false;
  controller().setRun(limits);
  EXPECT_FALSE(control().running);
  EXPECT_TRUE(control().stopRulesArmed);
  EXPECT_EQ(control().generation, 1u);
  RunSettings kept;
  controller().control(kept);
  EXPECT_EQ(kept.until, 1);
}

TEST_F(ControllerTest, HandsOutTheFrameItself) {
  makeSettled(test::pausedRun());
  const auto frame = status().frame;
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(status().frame, frame);
  controller().reset();
  EXPECT_EQ(status().frame, nullptr);
  EXPECT_EQ(frame->gridSize, 16);
}

TEST_F(ControllerTest, ANewFlowClearsTheMessage) {
  make(test::pausedRun());
  controller().failStart("words");
  EXPECT_EQ(status().error_message, "words");
  controller().clearError();
  EXPECT_EQ(status().error_message, "");
  controller().failStart("words");
  controller().reset();
  EXPECT_EQ(status().error_message, "");
}

TEST(ControllerWithoutADevice, ReportsItAndNeverBecomesReady) {
  Controller controller(test::freeRun(), 1000);
  const Status failed =
      test::waitFor(controller, [](const Status& status) { return !status.error_message.empty(); });
  EXPECT_EQ(failed.error_message, "cudaSetDevice(device): invalid device ordinal");
  EXPECT_FALSE(failed.running);
  EXPECT_FALSE(failed.ready);
  controller.reset();
  test::waitForSomePasses();
  EXPECT_FALSE(controller.status().ready);
  EXPECT_EQ(controller.status().generation, 2u);
}

}  // namespace
}  // namespace zeph
