// Commands that arrive at every moment of a pass: between any two readings of the clock, and so
// before, during and after the batch.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>

#include "tests/controller/driven_clock.h"
#include "tests/controller/flows.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::DrivenClock;
using Command = std::function<void(Controller&)>;

constexpr int moments = 40;  // several passes, with and without statistics and frames
constexpr double tick = 0.03;

RunSettings batchesOfFour() {
  RunSettings run = test::pausedRun();
  run.fixedBatch = true;
  run.batch = 4;
  return run;
}

// A flow that is sent the command at the `moment`-th reading after it has begun to run.
class Interrupted {
 public:
  Interrupted(const RunSettings& run, int moment, const Command& command) : clock_(tick) {
    controller_ = std::make_unique<Controller>(run, test::processor, clock_.clock());
    test::whenSettled(*controller_);
    clock_.onReading([this, moment, command] {
      if (!begun_ && !controller_->control().running) return;
      begun_ = true;
      if (++readings_ == moment) {
        command(*controller_);
        sent_ = true;
      }
    });
    controller_->setRunning(true);
    const auto deadline = std::chrono::steady_clock::now() + test::patience;
    while (!sent_ && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    EXPECT_TRUE(sent_);
  }

  Controller& controller() { return *controller_; }

 private:
  DrivenClock clock_;
  bool begun_ = false;
  int readings_ = 0;
  std::atomic<bool> sent_ = false;
  std::unique_ptr<Controller> controller_;
};

template <class Check>
void atEveryMoment(const Command& command, Check check, const RunSettings& run = batchesOfFour()) {
  for (int moment = 1; moment <= moments; ++moment) {
    SCOPED_TRACE(testing::Message() << "at reading " << moment);
    Interrupted flow(run, moment, command);
    check(flow.controller());
    if (testing::Test::HasFailure()) return;
  }
}

TEST(CommandTiming, AResetKeepsNothingOfTheOldFlow) {
  const auto command = [](Controller& controller) {
    controller.setRunning(false);
    controller.reset();
  };
  atEveryMoment(command, [](const Controller& controller) {
    const Status status = test::whenSettled(controller);
    EXPECT_EQ(status.generation, 2u);
    EXPECT_EQ(status.stats.steps, 0u);
    EXPECT_EQ(status.stats.time, 0);
    EXPECT_EQ(status.frame->sequence, 0u);
    EXPECT_EQ(status.frameCount, 1u);
    EXPECT_EQ(status.batchCount, 0u);
    EXPECT_EQ(status.history.size(), 1u);
    EXPECT_EQ(status.elapsedSeconds, 0);
    EXPECT_EQ(status.gpuSeconds, 0);
    EXPECT_EQ(status.stepsPerSecond, 0);
    EXPECT_EQ(status.simtimePerSecond, 0);
    EXPECT_EQ(status.stats.energy, status.firstStats.energy);
  });
}

TEST(CommandTiming, ANewRunningFlowCountsOnlyItsOwnSteps) {
  const auto command = [](Controller& controller) {
    Config config = test::configOf(18);
    config.reynolds = 123;
    config.fixed_dt = 0.0078125f;  // otherwise the flow decays before the status is read
    controller.applyConfig(config);
  };
  atEveryMoment(command, [](Controller& controller) {
    test::afterSteps(controller, 8);
    controller.setRunning(false);
    const Status status = test::whenSettled(controller);
    EXPECT_EQ(status.generation, 2u);
    EXPECT_EQ(status.stats.steps, 4 * status.batchCount);
    EXPECT_EQ(status.frame->gridSize, 18);
    EXPECT_EQ(status.stats.reynolds, 123);
  });
}

TEST(CommandTiming, APauseTakesEffectAfterTheCurrentBatch) {
  const auto command = [](Controller& controller) { controller.setRunning(false); };
  atEveryMoment(command, [](const Controller& controller) {
    const Status status = test::whenSettled(controller);
    EXPECT_FALSE(status.running);
    EXPECT_EQ(status.stats.steps, 4 * status.batchCount);
    EXPECT_EQ(status.elapsedSeconds > 0, status.batchCount > 0);
    // The status shows the paused flow, and does not change.
    Solver solver(test::configOf(16));
    solver.advance(static_cast<std::int32_t>(status.stats.steps));
    EXPECT_EQ(status.stats.energy, solver.inspect().energy);
    EXPECT_EQ(status.history.back(), status.stats.energy);
    std::this_thread::sleep_for(std::chrono::milliseconds(45));
    const Status later = controller.status();
    EXPECT_EQ(later.elapsedSeconds, status.elapsedSeconds);
    EXPECT_EQ(later.history, status.history);
    EXPECT_EQ(later.frameCount, status.frameCount);
  });
}

TEST(CommandTiming, AStepFollowsTheCurrentBatch) {
  const auto command = [](Controller& controller) { controller.step(); };
  atEveryMoment(command, [](const Controller& controller) {
    const Status status = test::whenSettled(controller);
    EXPECT_FALSE(status.running);
    EXPECT_EQ(status.stats.steps, 4 * (status.batchCount - 1) + 1);
    EXPECT_EQ(status.frame->sequence, status.stats.steps);
    EXPECT_EQ(controller.control().pendingSteps, 0);
  });
}

TEST(CommandTiming, SwitchingRegulationKeepsTheNumberShown) {
  const auto command = [](Controller& controller) {
    controller.setRegulated(true);
    controller.setRegulated(false);
    controller.setLive(2.0f, 4321);
    controller.setRunning(false);
  };
  atEveryMoment(command, [](Controller& controller) {
    EXPECT_EQ(test::whenSettled(controller).stats.reynolds, 4321);
    controller.step();
    test::waitFor(controller, [](const Status& now) { return now.stats.steps % 4 == 1; });
    const Status status = test::whenSettled(controller);
    EXPECT_EQ(status.stats.reynolds, 4321);
    EXPECT_EQ(status.config.reynolds, 4321);
    EXPECT_EQ(status.generation, 1u);
  });
}

TEST(CommandTiming, ShowingAHiddenViewMakesANewFrame) {
  const auto command = [](Controller& controller) {
    controller.setVisible(false);
    controller.setRunning(false);
  };
  atEveryMoment(command, [](Controller& controller) {
    const Status hidden = test::whenSettled(controller);
    test::waitFor(controller, [](const Status& now) { return now.settled; });
    controller.setVisible(true);
    const Status shown = test::waitFor(
        controller, [&](const Status& now) { return now.frameCount == hidden.frameCount + 1; });
    EXPECT_EQ(shown.frame->sequence, shown.stats.steps);
  });
}

TEST(CommandTiming, ReplacingAFailingFlowLeavesNoMessage) {
  const auto command = [](Controller& controller) {
    controller.setLive(-1.0f, -1.0);
    controller.setRunning(false);
    controller.applyConfig(test::configOf(16));
  };
  atEveryMoment(command, [](const Controller& controller) {
    const Status status = test::whenSettled(controller);
    EXPECT_EQ(status.error_message, "");
    EXPECT_TRUE(status.ready);
    EXPECT_EQ(status.stats.steps, 0u);
  });
}

TEST(CommandTiming, TheEndOfAReplacedRunDoesNotEndTheNextOne) {
  RunSettings limited = batchesOfFour();
  limited.config.fixed_dt = 0.0078125f;
  limited.until = 12 * 0.0078125;  // three batches
  bool running = false;
  const auto command = [&](Controller& controller) {
    RunSettings run = limited;
    run.until.reset();
    controller.setRun(run);
    controller.reset();
    running = controller.status().running;
  };
  int replaced = 0;
  const auto check = [&](Controller& controller) {
    if (!running) return;  // it had already ended
    ++replaced;
    test::afterSteps(controller, 40);
    EXPECT_TRUE(controller.status().running);
    EXPECT_FALSE(controller.status().finished);
  };
  atEveryMoment(command, check, limited);
  EXPECT_GT(replaced, 10);
}

}  // namespace
}  // namespace zeph
