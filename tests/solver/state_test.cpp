// A flow that goes on from its state.
#include "solver/state_record.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/failures.h"
#include "tests/support/flows.h"
#include "tests/support/outcome.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Outcome;

constexpr double endpoint = 0.7;

std::vector<Config> everyMethod(int n) {
  std::vector<Config> configs;
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      for (const float step : {0.0f, 0.02f}) {
        configs.push_back(test::configOf(n, integrator, operatorKind));
        configs.back().fixed_dt = step;
      }
    }
  }
  return configs;
}

// The second half of a run, with an endpoint that cuts a step.
Outcome secondHalf(Solver& solver) {
  solver.advance(3);
  solver.advance(1000, endpoint);
  return test::outcomeOf(solver, 4);
}

TEST(State, GoesOnWithTheSameBitsOnEveryInstructionSetAndThreadCount) {
  for (const Config& config : everyMethod(34)) {
    SCOPED_TRACE(testing::Message() << nameOf(config.integrator) << ", "
                                    << nameOf(config.operatorKind) << ", " << config.fixed_dt);
    Solver whole(config);
    whole.advance(6);
    const StateRecord state = whole.state();
    const Outcome expected = secondHalf(whole);
    test::onEveryProcessor([&] {
      Solver continued(state);
      test::expectSame(secondHalf(continued), expected);
      Solver begun(config);
      begun.advance(6);
      EXPECT_TRUE(test::sameBits(begun.state().correction, state.correction));
    });
  }
}

TEST(State, TakenAtAnEndpointKeepsTheStepThatWasCut) {
  for (const Config& config : everyMethod(18)) {
    Solver whole(config);
    whole.advance(1000, endpoint);
    Solver continued(whole.state());
    EXPECT_EQ(continued.lastStats().time, test::asPair(endpoint));
    EXPECT_EQ(continued.lastStats().dt, whole.lastStats().dt);
    test::expectSame(test::outcomeOf(continued, 5), test::outcomeOf(whole, 5));
  }
}

TEST(State, HasTheSettingsInForceAndTheTurnoverTimeOfTheStart) {
  Solver whole(test::configOf(16));
  whole.setReynolds(321);
  whole.setCFL(0.75f);
  whole.advance(5);
  Solver continued(test::configOf(16));
  continued.setReynolds(5000);
  continued.restore(whole.state());
  EXPECT_EQ(continued.lastStats().reynolds, 321);
  EXPECT_EQ(continued.lastStats().initialTurnoverTime, whole.lastStats().initialTurnoverTime);
  EXPECT_GT(continued.lastStats().initialTurnoverTime, 0);
  EXPECT_EQ(continued.lastStats().steps, 5u);
  EXPECT_EQ(continued.config().reynolds, 1000);
  test::expectSame(test::outcomeOf(continued, 5), test::outcomeOf(whole, 5));
  continued.reset();
  EXPECT_EQ(continued.lastStats().reynolds, 321);
}

TEST(State, BringsALostFlowBack) {
  Solver lost(test::explosive(16));
  const StateRecord start = lost.state();
  EXPECT_NE(test::runtimeFailure([&] { lost.advance(1); }), "nothing failed");
  EXPECT_EQ(test::runtimeFailure([&] { lost.state(); }),
            "The flow became non-finite or a GPU operation failed. Reset to recover.");
  lost.restore(start);
  EXPECT_EQ(lost.inspect().steps, 0u);
}

TEST(State, WithNumbersThatAreNotFiniteLosesTheFlow) {
  Solver solver(test::configOf(16));
  StateRecord state = solver.state();
  state.omega[20].re = std::numeric_limits<float>::infinity();
  EXPECT_EQ(test::runtimeFailure([&] { solver.restore(state); }),
            "Non-finite spectral diagnostics.");
  EXPECT_NE(test::runtimeFailure([&] { solver.inspect(); }), "nothing failed");
}

TEST(State, OfAnotherConfigurationIsRefusedAndLeavesTheFlow) {
  const auto refusal = [](const auto& change) {
    Config other = test::configOf(16);
    change(other);
    Solver solver(test::configOf(16));
    solver.advance(2);
    const std::vector<V2> before = solver.spectrum();
    std::string text = test::badArgument([&] { solver.restore(Solver(other).state()); });
    EXPECT_TRUE(test::sameBits(solver.spectrum(), before));
    return text;
  };
  const std::string start = "State of another configuration: ";
  EXPECT_EQ(refusal([](Config& c) { c.resolution = 18; }), start + "resolution is 18, not 16.");
  EXPECT_EQ(refusal([](Config& c) { c.k0 = 2; }), start + "k0 is 2, not 3.");
  EXPECT_EQ(refusal([](Config& c) { c.seed = 7; }), start + "seed is 7, not 2.");
  EXPECT_EQ(refusal([](Config& c) { c.fixed_dt = 0.1f; }),
            start + "fixed_dt is 0.1, not adaptive.");
  EXPECT_EQ(refusal([](Config& c) { c.integrator = Integrator::imexRK3; }),
            start + "integrator is imexRK3, not etdrk4.");
  EXPECT_EQ(refusal([](Config& c) { c.operatorKind = OperatorKind::advective; }),
            start + "operator is advective, not stress.");
  EXPECT_EQ(refusal([](Config& c) { c.start_spectrum = StartSpectrum::KM3; }),
            start + "start_spectrum is KM3, not PAO.");
}

TEST(State, WithoutItsArraysIsRefused) {
  Solver solver(test::configOf(16));
  StateRecord state = solver.state();
  state.correction.pop_back();
  EXPECT_EQ(test::badArgument([&] { solver.restore(state); }),
            "State of another configuration: its arrays have another size.");
}

}  // namespace
}  // namespace zeph
