// The state of a flow after some steps, for comparing flows.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "solver/solver.h"
#include "tests/support/bits.h"

namespace zeph::test {

struct Outcome {
  std::vector<V2> spectrum;
  std::vector<float> fields;
  Statistics statistics;
};

inline Outcome outcomeOf(Solver& solver, int steps) {
  solver.advance(steps);
  Outcome outcome;
  outcome.statistics = solver.inspect();
  outcome.spectrum = solver.spectrum();
  outcome.fields = solver.copyFields(*solver.snapshot(true));
  return outcome;
}

inline void expectSame(const Outcome& a, const Outcome& b) {
  EXPECT_TRUE(sameBits(a.spectrum, b.spectrum));
  EXPECT_TRUE(sameBits(a.fields, b.fields));
  EXPECT_EQ(a.statistics.time, b.statistics.time);
  EXPECT_EQ(a.statistics.dt, b.statistics.dt);
  EXPECT_EQ(a.statistics.energy, b.statistics.energy);
  EXPECT_EQ(a.statistics.enstrophy, b.statistics.enstrophy);
  EXPECT_EQ(a.statistics.palinstrophy, b.statistics.palinstrophy);
}

}  // namespace zeph::test
