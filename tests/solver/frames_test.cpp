// Snapshots, and the three blocks that they share.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/flows.h"
#include "tests/support/frames.h"

namespace zeph {
namespace {

TEST(Frames, HoldTheFieldAndItsVelocity) {
  for (const int n : {16, 18, 34}) test::expectFieldAndVelocity(n);
}

TEST(Frames, CarryTheirMomentsAndTheirTime) {
  Config config = test::configOf(34);
  config.fixed_dt = 0.0078125f;
  Solver solver(config);
  solver.advance(8);
  const auto frame = solver.snapshot(true);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->gridSize, 34);
  EXPECT_EQ(frame->sequence, 8u);
  EXPECT_EQ(frame->time, 0.0625);
  test::expectMoments(*frame, solver.copyFields(*frame));
  EXPECT_NEAR(frame->meanVorticity, 0.0, 1e-5);
  const double deviation = std::sqrt(2 * solver.inspect().enstrophy);
  EXPECT_NEAR(frame->stdVorticity, deviation, deviation * 1e-5);
}

TEST(Frames, HaveZerosForAMissingVelocity) {
  Solver solver(test::configOf(16));
  { const auto full = solver.snapshot(true); }  // fills the block with other values
  const auto frame = solver.snapshot(false);
  const std::vector<float> fields = solver.copyFields(*frame);
  test::expectZerosForVelocity(*frame, fields);
  const auto both = solver.snapshot(true);
  const std::vector<float> withVelocity = solver.copyFields(*both);
  EXPECT_TRUE(std::equal(fields.begin(), fields.begin() + 256, withVelocity.begin()));
}

TEST(Frames, OfAFlowAtRestHaveZeroMoments) {
  Solver solver(test::configOf(16), test::still(16));
  const auto frame = solver.snapshot(true);
  EXPECT_EQ(frame->maxVorticity, 0.0f);
  EXPECT_EQ(frame->stdVorticity, 0.0f);
  EXPECT_EQ(frame->maxSpeed, 0.0f);
}

TEST(Frames, AtMostThreeAreAliveAtATime) {
  test::expectThreeAtATime();
}

TEST(Frames, UseTheFirstFreeBlock) {
  Solver solver(test::configOf(16));
  auto first = solver.snapshot(true);
  auto second = solver.snapshot(true);
  const float* block = first->data();
  first.reset();
  second.reset();
  EXPECT_EQ(solver.snapshot(true)->data(), block);
}

TEST(Frames, AnyReferenceHoldsTheBlock) {
  Solver solver(test::configOf(16));
  std::shared_ptr<float> block = solver.snapshot(true)->block;  // the frame itself is gone
  const auto second = solver.snapshot(true);
  const auto third = solver.snapshot(true);
  EXPECT_EQ(solver.snapshot(true), nullptr);
  block.reset();
  EXPECT_NE(solver.snapshot(true), nullptr);
}

TEST(Frames, AreNotWrittenWhileTheyAreHeld) {
  test::expectNoWritesWhileHeld(10);
}

TEST(Frames, OutliveTheirSolver) {
  const Solver other(test::configOf(16));
  std::shared_ptr<const Frame> frame;
  std::vector<float> before;
  {
    Solver solver(test::configOf(16));
    frame = solver.snapshot(true);
    before = solver.copyFields(*frame);
  }
  EXPECT_TRUE(test::sameBits(other.copyFields(*frame), before));
}

TEST(Frames, MayBeReleasedOnAnotherThread) {
  Solver solver(test::configOf(16));
  for (int k = 0; k < 50; ++k) {
    auto frame = solver.snapshot(true);
    ASSERT_NE(frame, nullptr);
    const float expected = frame->maxVorticity;
    std::thread([held = std::move(frame), expected]() mutable {
      float largest = 0;
      for (std::size_t at = 0; at < 256; ++at) {
        largest = std::max(largest, std::fabs(held->data()[at]));
      }
      EXPECT_EQ(largest, expected);
      held.reset();
    }).join();
    solver.advance(1);
  }
}

TEST(Frames, MayBeReleasedWhileAReaderWorks) {
  Solver solver(test::configOf(32));
  std::vector<std::thread> readers;
  for (int k = 0; k < 100; ++k) {
    auto frame = solver.snapshot(true);
    if (!frame) {
      std::this_thread::yield();
      continue;
    }
    readers.emplace_back([held = std::move(frame)] {
      float largest = 0;
      for (std::size_t at = 0; at < 1024; ++at) {
        largest = std::max(largest, std::fabs(held->data()[at]));
      }
      EXPECT_EQ(largest, held->maxVorticity);
    });
    solver.advance(1);
  }
  EXPECT_GE(readers.size(), 3u);
  for (std::thread& reader : readers) reader.join();
  const auto first = solver.snapshot(true);
  const auto second = solver.snapshot(true);
  EXPECT_TRUE(first && second && solver.snapshot(true));
}

}  // namespace
}  // namespace zeph
