// Completed fields in a GPU's memory, and the three blocks that they share.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <thread>

#include "tests/cuda/cuda_device.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"
#include "tests/support/frames.h"

namespace zeph {
namespace {

class GpuFrames : public test::CudaDevice {};

TEST_F(GpuFrames, HoldTheFieldAndItsVelocity) {
  for (const int n : {16, 18}) test::expectFieldAndVelocity(n);
}

TEST_F(GpuFrames, CarryTheirMoments) {
  Solver solver(test::configOf(18));
  solver.advance(8);
  const auto frame = solver.snapshot(true);
  test::expectMoments(*frame, solver.copyFields(*frame));
  EXPECT_EQ(frame->sequence, 8u);
  EXPECT_NEAR(frame->stdVorticity, std::sqrt(2 * solver.inspect().enstrophy), 1e-4);
}

TEST_F(GpuFrames, HaveZerosForAMissingVelocity) {
  Solver solver(test::configOf(16));
  { const auto full = solver.snapshot(true); }  // fills the block with other values
  const auto frame = solver.snapshot(false);
  test::expectZerosForVelocity(*frame, solver.copyFields(*frame));
}

TEST_F(GpuFrames, AtMostThreeAreAliveAtATime) {
  test::expectThreeAtATime();
}

TEST_F(GpuFrames, AreNotWrittenWhileTheyAreHeld) {
  test::expectNoWritesWhileHeld(6);
}

TEST_F(GpuFrames, OutliveTheirSolverAndMayBeReleasedOnAnotherThread) {
  const Solver other(test::configOf(16));
  for (const bool isElsewhere : {false, true}) {
    const std::size_t before = test::availableOn(gpu());
    std::shared_ptr<const Frame> frame;
    std::vector<float> fields;
    {
      Solver solver(test::configOf(16));
      solver.advance(4);
      frame = solver.snapshot(true);
      fields = solver.copyFields(*frame);
    }
    EXPECT_TRUE(test::sameBits(other.copyFields(*frame), fields));
    std::thread([&] {
      if (isElsewhere) test::selectProcessor();
      frame.reset();
      EXPECT_EQ(cudaGetLastError(), cudaSuccess);
    }).join();
    // A GPU allocates memory in larger pieces and keeps some of it.
    if (test::isEmulated) {
      EXPECT_EQ(test::availableOn(gpu()), before);
    }
  }
}

TEST_F(GpuFrames, MayBeReleasedOnOtherThreadsWhileTheFlowRuns) {
  Solver solver(test::configOf(16));
  std::vector<std::thread> holders;
  for (int k = 0; k < 30; ++k) {
    auto frame = solver.snapshot(true);
    if (!frame) {
      std::this_thread::yield();
      continue;
    }
    holders.emplace_back([held = std::move(frame)]() mutable { held.reset(); });
    solver.advance(1);
  }
  for (std::thread& holder : holders) holder.join();
  const auto first = solver.snapshot(true);
  const auto second = solver.snapshot(true);
  EXPECT_TRUE(first && second && solver.snapshot(true));
}

}  // namespace
}  // namespace zeph
