// Expectations for a failed flow, on every device.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph::test {

constexpr const char* exploded = "The solver encountered a non-finite field or timestep.";
constexpr const char* latched =
    "The flow became non-finite or a GPU operation failed. Reset to recover.";

inline void expectLatched(Solver& solver) {
  EXPECT_EQ(runtimeFailure([&] { solver.advance(1); }), latched);
  EXPECT_EQ(runtimeFailure([&] { solver.advance(0); }), latched);
  EXPECT_EQ(runtimeFailure([&] { solver.advance(1, 0.0); }), latched);
  EXPECT_EQ(runtimeFailure([&] { solver.lastStats(); }), latched);
  EXPECT_EQ(runtimeFailure([&] { solver.inspect(); }), latched);
  EXPECT_EQ(runtimeFailure([&] { solver.snapshot(true); }), latched);
  EXPECT_EQ(runtimeFailure([&] { solver.spectrum(); }), latched);
}

// After a failure within so many steps.
inline void expectCleanFlowAfterAReset(int steps) {
  Config config = configOf(16);
  config.fixed_dt = 0.01f;
  Solver fresh(config);
  Solver failed(config);
  // Leaves values that are not finite in every buffer of the step.
  std::vector<float> huge = wave(16, 1, 2, 1e18);
  for (std::size_t k = 0; k < huge.size(); ++k) huge[k] += 1e18f * static_cast<float>(k % 7);
  failed.reset(huge);
  EXPECT_EQ(runtimeFailure([&] { failed.advance(steps); }), exploded);
  expectLatched(failed);
  failed.reset();
  fresh.advance(20);
  failed.advance(20);
  EXPECT_TRUE(sameBits(failed.spectrum(), fresh.spectrum()));
  EXPECT_EQ(failed.lastStats().time, fresh.lastStats().time);
  EXPECT_EQ(failed.lastStats().steps, fresh.lastStats().steps);
  EXPECT_EQ(failed.lastStats().dt, fresh.lastStats().dt);
  EXPECT_NE(failed.snapshot(true), nullptr);
}

}  // namespace zeph::test
