// Snapshots, and the three blocks that they share.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

TEST(Frames, HoldTheFieldAndItsVelocity) {
  for (const int n : {16, 18, 34}) {
    const Solver constant(test::configOf(n));
    Solver solver(test::configOf(n), test::wave(n, 3, -2, 1.0));
    const auto frame = solver.snapshot(true);
    ASSERT_NE(frame, nullptr);
    const std::vector<float> fields = constant.copyFields(*frame);
    const std::size_t plane = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
    ASSERT_EQ(fields.size(), 3 * plane);
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        // psi = w / 13; u = dpsi/dy, v = -dpsi/dx.
        const double angle = 2 * std::numbers::pi / n * (3 * x - 2 * y);
        const std::size_t at = static_cast<std::size_t>(y * n + x);
        ASSERT_NEAR(fields[at], std::cos(angle), 2e-6);
        ASSERT_NEAR(fields[plane + at], 2 * std::sin(angle) / 13, 2e-6);
        ASSERT_NEAR(fields[2 * plane + at], 3 * std::sin(angle) / 13, 2e-6);
      }
    }
  }
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
  EXPECT_TRUE(frame->hasVelocity);
  const std::vector<float> fields = solver.copyFields(*frame);
  const std::size_t plane = 34 * 34;
  double sum = 0;
  double squares = 0;
  float largest = 0;
  float fastest = 0;
  for (std::size_t k = 0; k < plane; ++k) {
    sum += static_cast<double>(fields[k]);
    squares += static_cast<double>(fields[k]) * static_cast<double>(fields[k]);
    largest = std::max(largest, std::fabs(fields[k]));
    const float u = fields[plane + k];
    const float v = fields[2 * plane + k];
    fastest = std::max(fastest, std::sqrt(u * u + v * v));
  }
  const double mean = sum / static_cast<double>(plane);
  EXPECT_EQ(frame->maxVorticity, largest);
  EXPECT_EQ(frame->maxSpeed, fastest);
  EXPECT_NEAR(frame->meanVorticity, mean, 1e-6);
  EXPECT_NEAR(frame->meanVorticity, 0.0, 1e-5);
  const double deviation = std::sqrt(squares / static_cast<double>(plane) - mean * mean);
  EXPECT_NEAR(frame->stdVorticity, deviation, deviation * 1e-6);
  EXPECT_NEAR(frame->stdVorticity, std::sqrt(2 * solver.inspect().enstrophy), deviation * 1e-5);
}

TEST(Frames, WithoutVelocityHaveZerosInItsPlace) {
  Solver solver(test::configOf(16));
  { const auto full = solver.snapshot(true); }  // what stood in the block before is gone
  const auto frame = solver.snapshot(false);
  EXPECT_FALSE(frame->hasVelocity);
  EXPECT_EQ(frame->maxSpeed, 0.0f);
  const std::vector<float> fields = solver.copyFields(*frame);
  EXPECT_TRUE(std::all_of(fields.begin() + 256, fields.end(), [](float f) { return f == 0.0f; }));
  const auto both = solver.snapshot(true);
  const std::vector<float> withVelocity = solver.copyFields(*both);
  EXPECT_TRUE(std::equal(fields.begin(), fields.begin() + 256, withVelocity.begin()));
}

TEST(Frames, OfAFlowAtRestHaveNoMoments) {
  Solver solver(test::configOf(16), test::still(16));
  const auto frame = solver.snapshot(true);
  EXPECT_EQ(frame->maxVorticity, 0.0f);
  EXPECT_EQ(frame->stdVorticity, 0.0f);
  EXPECT_EQ(frame->maxSpeed, 0.0f);
}

TEST(Frames, AtMostThreeAreAliveAtATime) {
  Solver solver(test::configOf(16));
  auto first = solver.snapshot(true);
  auto second = solver.snapshot(true);
  auto third = solver.snapshot(true);
  ASSERT_TRUE(first && second && third);
  EXPECT_NE(first->data(), second->data());
  EXPECT_NE(second->data(), third->data());
  EXPECT_NE(first->data(), third->data());
  EXPECT_EQ(solver.snapshot(true), nullptr);
  EXPECT_EQ(solver.snapshot(false), nullptr);
  EXPECT_EQ(solver.advance(1).steps, 1u);  // nothing has failed

  const float* released = second->data();
  second.reset();
  second = solver.snapshot(true);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->data(), released);
  EXPECT_EQ(second->sequence, 1u);
}

TEST(Frames, TheFirstFreeBlockIsTaken) {
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
  Solver solver(test::configOf(16));
  const auto kept = solver.snapshot(true);
  const std::vector<float> before = solver.copyFields(*kept);
  for (int k = 0; k < 10; ++k) {
    solver.advance(3);
    const auto passing = solver.snapshot(true);
    EXPECT_FALSE(test::sameBits(solver.copyFields(*passing), before));
  }
  solver.reset(test::still(16));
  EXPECT_TRUE(test::sameBits(solver.copyFields(*kept), before));
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

TEST(Frames, MayBeLetGoOnAnotherThread) {
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

TEST(Frames, ComeAndGoWhileAReaderIsAtWork) {
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
