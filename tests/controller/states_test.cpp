// Flows of a view that are saved, and that go on from a state.
#include <gtest/gtest.h>

#include "controller/regulator.h"
#include "solver/state_file.h"
#include "tests/controller/flows.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"
#include "tests/support/scratch_folder.h"

namespace zeph {
namespace {

constexpr const char* noFlow = "No flow to save.";

std::string refusalOf(Controller& controller) {
  return test::runtimeFailure([&] { controller.askState().get(); });
}

class ViewStates : public testing::Test {
 protected:
  std::string path() const { return folder_.file("state"); }

  // A run that goes on from a state.
  RunSettings continued(const StateRecord& state, RunSettings run) const {
    writeStateFile(path(), state);
    run.config = state.config;
    run.state = path();
    return run;
  }

 private:
  test::ScratchFolder folder_;
};

TEST_F(ViewStates, AreThoseOfTheFlowAfterWholeSteps) {
  Controller controller(test::freeRun(), test::processor);
  std::uint64_t seen = 0;
  for (int k = 0; k < 5; ++k) {
    test::afterSteps(controller, seen + 1);
    const StateRecord state = controller.askState().get();
    EXPECT_GT(state.clock.steps, seen);
    seen = state.clock.steps;
    Solver solver(test::lastingFlow());
    solver.advance(static_cast<std::int32_t>(seen));
    EXPECT_TRUE(test::sameBits(state.omega, solver.state().omega));
    EXPECT_TRUE(test::sameBits(state.correction, solver.state().correction));
    EXPECT_FALSE(state.regulator);
  }
}

TEST_F(ViewStates, AreOfTheNewFlowRightAfterAChange) {
  Controller controller(test::freeRun(), test::processor);
  test::afterSteps(controller, 100);
  controller.setRunning(false);
  controller.applyConfig(test::configOf(16, Integrator::imexRK3));
  const StateRecord state = controller.askState().get();
  EXPECT_EQ(state.config, test::configOf(16, Integrator::imexRK3));
  EXPECT_EQ(state.clock.steps, 0u);
}

TEST_F(ViewStates, GoOnWithTheSameBits) {
  Solver whole(test::configOf(16));
  whole.advance(30);
  const StateRecord state = whole.state();
  RunSettings run = continued(state, test::freeRun());
  run.until = 4;
  Controller controller(run, test::processor);
  const Status status = test::whenFinished(controller);
  EXPECT_EQ(status.error_message, "");
  EXPECT_EQ(status.firstStats.steps, 30u);
  EXPECT_EQ(status.firstStats.initialTurnoverTime, state.initialTurnoverTime);
  whole.advance(100000, 4);
  const StateRecord end = controller.askState().get();
  EXPECT_EQ(end.clock.steps, whole.lastStats().steps);
  EXPECT_TRUE(test::sameBits(end.omega, whole.state().omega));
  // Each generation begins with the state again.
  controller.reset();
  controller.setRunning(true);
  EXPECT_EQ(test::whenFinished(controller).stats.steps, whole.lastStats().steps);
}

TEST_F(ViewStates, TakeTheNumbersOfTheView) {
  RunSettings run = continued(Solver(test::configOf(16)).state(), test::pausedRun());
  run.config.reynolds = 777;
  run.config.cfl = 0.5f;
  Controller controller(run, test::processor);
  EXPECT_EQ(test::whenSettled(controller).stats.reynolds, 777);
  const StateRecord state = controller.askState().get();
  EXPECT_EQ(state.reynolds, 777);
  EXPECT_EQ(state.cfl, 0.5f);
  EXPECT_EQ(state.config.reynolds, 777);
}

TEST_F(ViewStates, OfARegulatedViewGoOnRegulated) {
  RunSettings run = test::pausedRun();
  run.regulated = true;
  Controller first(run, test::processor);
  test::whenSettled(first);
  for (int k = 0; k < 3; ++k) first.step();
  const Status before =
      test::waitFor(first, [](const Status& now) { return now.settled && now.stats.steps == 3; });
  const StateRecord state = first.askState().get();
  ASSERT_TRUE(state.regulator);
  EXPECT_NE(state.regulator->slowPalinstrophy, 0);
  EXPECT_EQ(state.reynolds, before.stats.reynolds);
  EXPECT_NE(state.reynolds, 1000);
  EXPECT_EQ(state.config.reynolds, 1000);

  // The start of the new flow takes one more sample.
  Regulator regulator(*state.regulator);
  Solver solver(state);
  const auto next =
      regulator.sample(solver.lastStats().palinstrophyRatio, state.reynolds, 16, state.config.k0);
  run = continued(state, run);
  Controller second(run, test::processor);
  EXPECT_EQ(test::whenSettled(second).stats.reynolds, next.value());
  EXPECT_EQ(second.askState().get().regulator->slowPalinstrophy,
            regulator.record().slowPalinstrophy);

  run.regulated = false;
  Controller free(run, test::processor);
  EXPECT_EQ(test::whenSettled(free).stats.reynolds, 1000);
  EXPECT_FALSE(free.askState().get().regulator);
}

TEST_F(ViewStates, OfAnotherConfigurationStopTheFlowUntilTheNext) {
  RunSettings run = continued(Solver(test::configOf(18)).state(), test::freeRun());
  run.config = test::configOf(16);
  Controller controller(run, test::processor);
  const Status status =
      test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(status.error_message, "State of another configuration: resolution is 18, not 16.");
  EXPECT_FALSE(status.running);
  EXPECT_EQ(refusalOf(controller), noFlow);
  run.state.clear();
  controller.setRun(run);
  controller.reset();
  EXPECT_EQ(controller.askState().get().clock.steps, 0u);
}

TEST_F(ViewStates, OfALostFlowAreRefused) {
  RunSettings run = test::pausedRun(test::explosive(16));
  Controller controller(run, test::processor);
  controller.step();
  test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(refusalOf(controller),
            "The flow became non-finite or a GPU operation failed. Reset to recover.");
}

TEST_F(ViewStates, AreRefusedWithoutADevice) {
  Controller controller(test::freeRun(), 12345);
  EXPECT_EQ(refusalOf(controller), noFlow);
  test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(refusalOf(controller), noFlow);
}

}  // namespace
}  // namespace zeph
