// The same flow has the same bits: on every instruction set, on any number of threads, beside other
// flows.
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "tests/support/devices.h"
#include "tests/support/flows.h"
#include "tests/support/outcome.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Outcome;

TEST(Repetition, AFlowIsTheSameOnEveryInstructionSetAndThreadCount) {
  for (const int n : {16, 18, 34, 64, 150}) {
    for (const Integrator integrator : test::integrators) {
      for (const OperatorKind operatorKind : test::operators) {
        SCOPED_TRACE(testing::Message() << "N = " << n << ", " << static_cast<int>(integrator)
                                        << ", " << static_cast<int>(operatorKind));
        const Config config = test::configOf(n, integrator, operatorKind);
        Solver usual(config);
        const Outcome expected = test::outcomeOf(usual, 6);
        test::onEveryProcessor([&] {
          Solver solver(config);
          test::expectSame(test::outcomeOf(solver, 6), expected);
        });
      }
    }
  }
}

TEST(Repetition, SamplesStartTheSameFlowEverywhere) {
  const std::vector<float> samples = test::wave(50, 3, 4, 1.5);
  Solver usual(test::configOf(50), samples);
  const Outcome expected = test::outcomeOf(usual, 3);
  test::onEveryProcessor([&] {
    Solver solver(test::configOf(50), samples);
    test::expectSame(test::outcomeOf(solver, 3), expected);
  });
}

TEST(Repetition, FlowsOnSeveralThreadsDoNotAffectEachOther) {
  const auto configOf = [](std::size_t k) {
    Config config =
        test::configOf(k % 2 == 0 ? 64 : 34, test::integrators[k % 3], test::operators[k % 2]);
    config.seed = k;
    return config;
  };
  constexpr std::size_t flows = 4;
  std::vector<Outcome> together(flows);
  std::vector<std::thread> threads;
  for (std::size_t k = 0; k < flows; ++k) {
    threads.emplace_back([&, k] {
      test::selectProcessor();
      Solver solver(configOf(k));
      for (int part = 0; part < 9; ++part) solver.advance(5);
      together[k] = test::outcomeOf(solver, 5);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t k = 0; k < flows; ++k) {
    Solver solver(configOf(k));
    test::expectSame(test::outcomeOf(solver, 50), together[k]);
  }
}

TEST(Repetition, ASolverMayMoveFromThreadToThread) {
  const Config config = test::configOf(34);
  Solver still(config);
  const Outcome expected = test::outcomeOf(still, 12);
  std::unique_ptr<Solver> moving;
  std::thread([&] {
    test::selectProcessor();
    moving = std::make_unique<Solver>(config);
  }).join();
  for (int k = 0; k < 4; ++k) std::thread([&] { moving->advance(2); }).join();
  moving->advance(2);
  Outcome outcome;
  std::thread([&] { outcome = test::outcomeOf(*moving, 2); }).join();
  test::expectSame(outcome, expected);
  std::thread([&] { moving.reset(); }).join();
}

}  // namespace
}  // namespace zeph
