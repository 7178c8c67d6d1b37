// The state of a flow on a GPU.
#include "solver/state_record.h"

#include <gtest/gtest.h>

#include "tests/cuda/cuda_device.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

class GpuState : public test::CudaDevice {};

Config flowOf(Integrator integrator, OperatorKind operatorKind, float step) {
  Config config = test::configOf(16, integrator, operatorKind);
  config.fixed_dt = step;
  return config;
}

TEST_F(GpuState, GoesOnWithTheSameBits) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      for (const float step : {0.0f, 0.02f}) {
        Solver whole(flowOf(integrator, operatorKind, step));
        whole.advance(2);
        Solver continued(whole.state());
        for (Solver* solver : {&whole, &continued}) {
          solver->advance(4, solver->lastStats().time + 0.03);
          solver->advance(1);
        }
        const StateRecord expected = whole.state();
        const StateRecord found = continued.state();
        EXPECT_TRUE(test::sameBits(found.omega, expected.omega));
        EXPECT_TRUE(test::sameBits(found.correction, expected.correction));
        EXPECT_EQ(found.clock.steps, expected.clock.steps);
        EXPECT_TRUE(test::sameBits(found.clock.timeLow, expected.clock.timeLow));
        EXPECT_TRUE(test::sameBits(found.clock.rawDt, expected.clock.rawDt));
      }
    }
  }
}

TEST_F(GpuState, GoesOnOnTheProcessorAsNearAsTheTransformsAre) {
  Solver whole(flowOf(Integrator::etdrk4, OperatorKind::stress, 0.02f));
  whole.advance(5);
  const StateRecord state = whole.state();
  whole.advance(5);
  cudaSetDevice(test::processorDevice());
  Solver continued(state);
  EXPECT_TRUE(test::sameBits(continued.state().omega, state.omega));
  EXPECT_NE(continued.state().device, state.device);
  continued.advance(5);
  const std::vector<V2> expected = whole.spectrum();
  const std::vector<V2> found = continued.spectrum();
  for (std::size_t k = 0; k < found.size(); ++k) {
    EXPECT_NEAR(found[k].re, expected[k].re, 1e-5);
    EXPECT_NEAR(found[k].im, expected[k].im, 1e-5);
  }
}

}  // namespace
}  // namespace zeph
