// How the thread of a controller carries out commands.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <vector>

#include "solver/raw_files.h"
#include "tests/controller/driven_clock.h"
#include "tests/controller/flows.h"
#include "tests/support/failures.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::DrivenClock;

TEST(PausedFlow, HasOneFrameOneSampleAndNoTime) {
  Controller controller(test::pausedRun(), test::processor);
  Status status = test::whenSettled(controller);
  EXPECT_TRUE(status.ready);
  ASSERT_NE(status.frame, nullptr);
  EXPECT_EQ(status.frame->sequence, 0u);
  EXPECT_FALSE(status.frame->hasVelocity);
  EXPECT_EQ(status.frameCount, 1u);
  EXPECT_EQ(status.history, std::vector<double>{status.stats.energy});
  EXPECT_EQ(status.stats.energy, Solver(test::configOf(16)).inspect().energy);
  EXPECT_EQ(status.firstStats.energy, status.stats.energy);
  EXPECT_EQ(status.stats.steps, 0u);
  test::waitForSomePasses();
  status = controller.status();
  EXPECT_TRUE(status.settled);
  EXPECT_FALSE(status.running);
  EXPECT_EQ(status.frameCount, 1u);
  EXPECT_EQ(status.batchCount, 0u);
  EXPECT_EQ(status.elapsedSeconds, 0);
  EXPECT_EQ(status.gpuSeconds, 0);
}

TEST(PausedFlow, TakesExactlyTheRequestedStepsEachWithAFrame) {
  DrivenClock clock;
  Controller controller(test::pausedRun(), test::processor, clock.clock());
  test::whenSettled(controller);
  {
    DrivenClock::Hold hold(clock);
    hold.awaitReader();
    controller.step();
    controller.step();
    controller.step();
  }
  const Status status = test::whenSettled(controller);
  EXPECT_EQ(status.stats.steps, 3u);
  EXPECT_EQ(status.batchCount, 3u);
  EXPECT_EQ(status.frameCount, 4u);
  EXPECT_EQ(status.frame->sequence, 3u);
  EXPECT_EQ(status.history.size(), 4u);
  // Single steps count neither as running time nor in the rates.
  EXPECT_EQ(status.elapsedSeconds, 0);
  EXPECT_EQ(status.stepsPerSecond, 0);
  EXPECT_EQ(status.simtimePerSecond, 0);
  Solver solver(test::configOf(16));
  solver.advance(3);
  EXPECT_EQ(status.stats.energy, solver.inspect().energy);
  EXPECT_EQ(status.stats.time, solver.lastStats().time);
}

TEST(RunningFlow, PausesForAStepAndTakesExactlyOne) {
  RunSettings run = test::freeRun();
  run.fixedBatch = true;
  run.batch = 4;
  Controller controller(run, test::processor);
  test::afterSteps(controller, 40);
  controller.step();
  const Status status = test::whenSettled(controller);
  EXPECT_FALSE(status.running);
  EXPECT_EQ(status.stats.steps % 4, 1u);
  EXPECT_EQ(status.stats.steps, 4 * (status.batchCount - 1) + 1);
  EXPECT_EQ(status.frame->sequence, status.stats.steps);
}

TEST(RunningFlow, KeepsPendingStepsAndRunsOn) {
  Controller controller(test::pausedRun(), test::processor);
  test::whenSettled(controller);
  controller.step();
  controller.setRunning(true);
  test::afterSteps(controller, 20);
  EXPECT_TRUE(controller.status().running);
}

TEST(RunningFlow, KeepsItsFiguresWhenPaused) {
  Controller controller(test::freeRun(), test::processor);
  test::waitFor(controller, [](const Status& status) { return status.stepsPerSecond > 0; });
  controller.setRunning(false);
  const Status stopped = test::whenSettled(controller);
  EXPECT_FALSE(stopped.running);
  EXPECT_GT(stopped.stepsPerSecond, 0);
  EXPECT_GT(stopped.simtimePerSecond, 0);
  EXPECT_DOUBLE_EQ(stopped.turnoversPerSecond,
                   stopped.simtimePerSecond / stopped.stats.initialTurnoverTime);
  EXPECT_GT(stopped.elapsedSeconds, 0);
  EXPECT_GT(stopped.gpuSeconds, 0);
  test::waitForSomePasses();
  const Status later = controller.status();
  EXPECT_EQ(later.elapsedSeconds, stopped.elapsedSeconds);
  EXPECT_EQ(later.stepsPerSecond, stopped.stepsPerSecond);
  EXPECT_EQ(later.stats.steps, stopped.stats.steps);
  EXPECT_EQ(later.batchCount, stopped.batchCount);
  EXPECT_EQ(later.history, stopped.history);
}

TEST(RunningFlow, MatchesTheFlowOfASolver) {
  Controller controller(test::freeRun(), test::processor);
  test::afterSteps(controller, 100);
  controller.step();  // ends with statistics and a frame of the last step
  const Status status = test::whenSettled(controller);
  Solver solver(test::lastingFlow());
  solver.advance(static_cast<std::int32_t>(status.stats.steps));
  EXPECT_EQ(status.stats.time, solver.lastStats().time);
  EXPECT_EQ(status.stats.energy, solver.inspect().energy);
  EXPECT_EQ(status.frame->maxVorticity, solver.snapshot(false)->maxVorticity);
}

TEST(NewGeneration, KeepsTheSolverIfOnlyNumbersDiffer) {
  for (const auto& change : std::vector<std::function<void(Config&)>>{
           [](Config&) {},
           [](Config& config) { config.reynolds = 50; },
           [](Config& config) { config.cfl = 0.25f; },
       }) {
    Controller controller(test::pausedRun(), test::processor);
    const auto frame = test::whenSettled(controller).frame;
    Config config = test::configOf(16);
    change(config);
    controller.applyConfig(config);
    const Status status = test::whenSettled(controller);
    EXPECT_EQ(status.generation, 2u);
    EXPECT_TRUE(test::solverExists(frame));
    EXPECT_EQ(status.stats.reynolds, config.reynolds);
    EXPECT_EQ(status.stats.dt, Solver(config).inspect().dt);
  }
}

TEST(NewGeneration, CreatesANewSolverForAnotherKindOfFlow) {
  for (const auto& change : std::vector<std::function<void(Config&)>>{
           [](Config& config) { config.resolution = 18; },
           [](Config& config) { config.k0 = 2; },
           [](Config& config) { config.seed += 1; },
           [](Config& config) { config.fixed_dt = 0.01f; },
           [](Config& config) { config.integrator = Integrator::imexRK3; },
           [](Config& config) { config.operatorKind = OperatorKind::advective; },
           [](Config& config) { config.start_spectrum = StartSpectrum::KM3; },
       }) {
    Controller controller(test::pausedRun(), test::processor);
    const auto frame = test::whenSettled(controller).frame;
    Config config = test::configOf(16);
    change(config);
    followGrid(config, test::configOf(16), false);
    controller.applyConfig(config);
    const Status status = test::whenSettled(controller);
    EXPECT_FALSE(test::solverExists(frame));
    Solver solver(config);
    EXPECT_EQ(status.stats.energy, solver.inspect().energy);
    EXPECT_EQ(status.stats.allocatedBytes, solver.lastStats().allocatedBytes);
    EXPECT_EQ(status.stats.dt, solver.lastStats().dt);
  }
}

TEST(NewGeneration, DropsTheNumberThatTheRegulatorReached) {
  RunSettings run = test::pausedRun();
  run.regulated = true;
  Controller controller(run, test::processor);
  test::whenSettled(controller);
  for (int k = 0; k < 5; ++k) {
    controller.step();
    test::afterSteps(controller, static_cast<std::uint64_t>(k) + 1);
  }
  const Status reached = test::whenSettled(controller);
  controller.reset();
  const Status fresh = test::whenSettled(controller);
  // One sample from the configured number, not from the one reached.
  EXPECT_NE(reached.stats.reynolds, fresh.stats.reynolds);
  EXPECT_NEAR(std::abs(std::log(fresh.stats.reynolds / 1000)), 0.01, 1e-12);
  EXPECT_EQ(fresh.config.reynolds, 1000);
}

// Clock readings while the new flow is being made.
int readingsOfResets(int resets) {
  DrivenClock clock(0.01);
  Controller controller(test::freeRun(), test::processor, clock.clock());
  test::afterSteps(controller, 10);
  int readings = 0;
  {
    DrivenClock::Hold hold(clock);
    hold.awaitReader();
    clock.onReading([&] { readings += controller.status().ready ? 0 : 1; });
    for (int k = 0; k < resets; ++k) controller.reset();
  }
  test::afterSteps(controller, 10);
  clock.onReading(nullptr);
  DrivenClock::Hold hold(clock);
  hold.awaitReader();
  return readings;
}

TEST(NewGeneration, IsOneForSeveralResetsInOneBatch) {
  // The thread may be anywhere in its pass, so the count varies by a few readings.
  const int one = readingsOfResets(1);
  EXPECT_GT(one, 2);
  EXPECT_LT(readingsOfResets(50), one + 100);
}

TEST(LostFlow, IsReportedAndWaitsForANewGeneration) {
  Controller controller(test::freeRun(test::explosive(16)), test::processor);
  Status status =
      test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(status.error_message, test::exploded);
  EXPECT_FALSE(status.running);
  status = test::whenSettled(controller);
  EXPECT_TRUE(status.ready);  // the start was valid

  // Running, stepping and dismissing do not recover it.
  controller.setRunning(true);
  controller.step();
  controller.setRunning(true);
  controller.setLive(1.0f, 500);
  controller.setRegulated(true);
  controller.setVisible(false);
  controller.setVisible(true);
  test::waitForSomePasses();
  status = controller.status();
  EXPECT_TRUE(status.running);
  EXPECT_EQ(status.error_message, test::exploded);
  EXPECT_EQ(status.stats.steps, 0u);
  EXPECT_EQ(status.frameCount, 1u);
  controller.clearError();
  test::waitForSomePasses();
  EXPECT_EQ(controller.status().error_message, "");
  EXPECT_EQ(controller.status().stats.steps, 0u);

  controller.applyConfig(test::configOf(16));
  status = test::afterSteps(controller, 10);
  EXPECT_EQ(status.error_message, "");
  EXPECT_TRUE(status.running);
}

TEST(LostFlow, DropsTheStepsAfterTheFailedOne) {
  DrivenClock clock;
  Controller controller(test::pausedRun(test::explosive(16)), test::processor, clock.clock());
  test::whenSettled(controller);
  {
    DrivenClock::Hold hold(clock);
    hold.awaitReader();
    for (int k = 0; k < 3; ++k) controller.step();
  }
  test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(controller.control().pendingSteps, 0);
}

TEST(LostFlow, IsLostAgainAfterAReset) {
  Controller controller(test::freeRun(test::explosive(16)), test::processor);
  test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  controller.reset();
  Status status = test::whenSettled(controller);
  EXPECT_EQ(status.error_message, "");
  EXPECT_FALSE(status.running);
  EXPECT_TRUE(status.ready);
  controller.step();
  status = test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(status.error_message, test::exploded);
  EXPECT_EQ(status.generation, 2u);
}

TEST(LiveNumbers, RefusedByTheSolverFailTheFlowOnce) {
  Controller controller(test::pausedRun(), test::processor);
  test::whenSettled(controller);
  controller.setLive(-1.0f, 1000);
  Status status =
      test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(status.error_message, "CFL must be finite and positive.");
  // If the value were tried again, the message would return.
  controller.clearError();
  test::waitForSomePasses();
  EXPECT_EQ(controller.status().error_message, "");
  controller.applyConfig(test::configOf(16));
  EXPECT_EQ(test::whenSettled(controller).error_message, "");
}

TEST(LiveNumbers, ApplyFromTheNextStepInTheSameFlow) {
  Controller controller(test::pausedRun(), test::processor);
  test::whenSettled(controller);
  controller.setLive(0.5f, 77);
  test::waitForSomePasses();
  EXPECT_EQ(controller.status().stats.reynolds, 77);
  controller.step();
  const Status status = test::afterSteps(controller, 1);
  Solver solver(test::configOf(16));
  solver.setCFL(0.5f);
  solver.setReynolds(77);
  solver.advance(1);
  EXPECT_EQ(status.stats.dt, solver.lastStats().dt);
  EXPECT_EQ(test::whenSettled(controller).stats.energy, solver.inspect().energy);
  EXPECT_EQ(status.stats.reynolds, 77);
  EXPECT_EQ(status.generation, 1u);
}

TEST(Regulation, MovesTheNumberOncePerSample) {
  RunSettings run = test::pausedRun();
  run.regulated = true;
  DrivenClock clock(0.01);
  Controller controller(run, test::processor, clock.clock());
  double before = run.config.reynolds;
  for (std::uint64_t k = 0; k <= 6; ++k) {
    if (k > 0) controller.step();
    const Status status = test::waitFor(
        controller, [=](const Status& now) { return now.settled && now.stats.steps == k; });
    EXPECT_NEAR(std::abs(std::log(status.stats.reynolds / before)), 0.01, 1e-12);
    EXPECT_EQ(status.config.reynolds, run.config.reynolds);
    before = status.stats.reynolds;
  }
  test::waitForSomePasses();
  EXPECT_EQ(controller.status().stats.reynolds, before);
}

TEST(Regulation, StartsFromTheConfiguredNumberAndKeepsTheNumberWhenSwitchedOff) {
  Controller controller(test::pausedRun(), test::processor);
  test::whenSettled(controller);
  controller.setLive(3.0f, 4000);
  controller.setRegulated(true);
  controller.step();
  Status status = test::afterSteps(controller, 1);
  status = test::whenSettled(controller);
  EXPECT_NEAR(std::abs(std::log(status.stats.reynolds / 4000)), 0.01, 1e-12);
  controller.setRegulated(false);
  const double held = controller.status().config.reynolds;
  EXPECT_EQ(held, status.stats.reynolds);
  controller.step();
  status = test::waitFor(controller,
                         [](const Status& now) { return now.settled && now.stats.steps == 2; });
  EXPECT_EQ(status.stats.reynolds, held);
}

// Two waves whose mean squared wavenumber, 3.88, is a little above the target of a grid of 64.
std::vector<float> nearTheTarget() {
  std::vector<float> samples = test::wave(64, 1, 0, 0.2);
  const std::vector<float> other = test::wave(64, 2, 0, 0.98);
  for (std::size_t k = 0; k < samples.size(); ++k) samples[k] += other[k];
  return samples;
}

TEST(Regulation, RestartsWhenItIsSwitched) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("zephane-regulation-" + std::to_string(monotonicSeconds()));
  writeRawFile(path.string(), nearTheTarget());
  RunSettings run = test::pausedRun(test::configOf(64));
  run.regulated = true;
  run.config.reynolds = 20000;
  run.config.fixed_dt = 1e-6f;
  run.initial = path.string();
  Controller controller(run, test::processor);
  std::uint64_t steps = 0;
  const auto change = [&] {
    const double before = test::whenSettled(controller).stats.reynolds;
    controller.step();
    ++steps;
    test::afterSteps(controller, steps);
    return std::log(test::whenSettled(controller).stats.reynolds / before);
  };
  // Only at the first sample does the change of the error move the number.
  EXPECT_NEAR(std::log(test::whenSettled(controller).stats.reynolds / 20000), 0.01, 1e-9);
  EXPECT_LT(change(), 0.009);
  EXPECT_LT(change(), 0.009);
  controller.setRegulated(false);
  controller.setRegulated(true);
  EXPECT_NEAR(change(), 0.01, 1e-9);
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace zeph
