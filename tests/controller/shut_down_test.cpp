// A controller shuts down within the time of a batch, whatever its flow is doing.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>

#include "tests/controller/flows.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

// A batch is near 8 milliseconds; the rest is a margin for busy machines and sanitizers. Finishing
// the queued work would take much longer.
constexpr double prompt = 5;

double secondsToEnd(const RunSettings& run, const std::function<void(Controller&)>& prepare) {
  auto controller = std::make_unique<Controller>(run, test::processor);
  prepare(*controller);
  const auto begin = std::chrono::steady_clock::now();
  controller.reset();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

TEST(ShutDown, IsPromptWhileIdle) {
  EXPECT_LT(secondsToEnd(test::pausedRun(test::configOf(128)), test::whenSettled), prompt);
}

TEST(ShutDown, IsPromptWhileRunning) {
  const auto running = [](Controller& controller) { test::afterSteps(controller, 20); };
  EXPECT_LT(secondsToEnd(test::freeRun(test::configOf(128)), running), prompt);
}

TEST(ShutDown, IsPromptWithStepsPending) {
  const auto stepping = [](Controller& controller) {
    for (int k = 0; k < 100000; ++k) controller.step();
    test::afterSteps(controller, 2);
  };
  EXPECT_LT(secondsToEnd(test::pausedRun(test::configOf(128)), stepping), prompt);
}

TEST(ShutDown, IsPromptAfterAFinishedRun) {
  RunSettings run = test::freeRun();
  run.until = 0.1;
  const auto finished = [](Controller& controller) {
    test::waitFor(controller, [](const Status& status) { return status.finished; });
    controller.step();
  };
  EXPECT_LT(secondsToEnd(run, finished), prompt);
}

TEST(ShutDown, IsPromptAfterAFailure) {
  const auto failed = [](Controller& controller) {
    test::waitFor(controller, [](const Status& status) { return !status.error_message.empty(); });
    controller.step();
  };
  EXPECT_LT(secondsToEnd(test::freeRun(test::explosive(16)), failed), prompt);
}

TEST(ShutDown, IsPromptWithoutADevice) {
  const Controller controller(test::freeRun(), 1000);
}

// The construction of a solver is not interrupted.
TEST(ShutDown, WaitsForALargeFlowThatIsBeingCreated) {
  const auto building = [](Controller& controller) { EXPECT_FALSE(controller.status().ready); };
  EXPECT_LT(secondsToEnd(test::freeRun(test::configOf(1024)), building), 30);
  const auto rebuilding = [](Controller& controller) {
    test::afterSteps(controller, 4);
    controller.applyConfig(test::configOf(1024));
  };
  EXPECT_LT(secondsToEnd(test::freeRun(), rebuilding), 30);
}

TEST(ShutDown, KeepsAHeldFrameIntact) {
  std::shared_ptr<const Frame> frame;
  {
    Controller controller(test::pausedRun(), test::processor);
    frame = test::whenSettled(controller).frame;
  }
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->block.use_count(), 1);
  const Solver solver(test::configOf(16));
  EXPECT_EQ(solver.copyFields(*frame).size(), 3u * 256);
}

TEST(ShutDown, WorksAThousandTimes) {
  for (int k = 0; k < 1000; ++k) {
    Controller controller(k % 2 == 0 ? test::freeRun() : test::pausedRun(), test::processor);
    if (k % 5 == 0) controller.step();
    if (k % 7 == 0) controller.reset();
    if (k % 3 == 0) test::waitFor(controller, [](const Status& status) { return status.ready; });
  }
}

}  // namespace
}  // namespace zeph
