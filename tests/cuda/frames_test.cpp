// Completed fields in a GPU's memory, and the three blocks that they share.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <thread>

#include "tests/cuda/cuda_device.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

class GpuFrames : public test::CudaDevice {};

TEST_F(GpuFrames, HoldTheFieldAndItsVelocity) {
  for (const int n : {16, 18}) {
    Solver solver(test::configOf(n), test::wave(n, 3, -2, 1.0));
    const auto frame = solver.snapshot(true);
    ASSERT_NE(frame, nullptr);
    const std::vector<float> fields = solver.copyFields(*frame);
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

TEST_F(GpuFrames, CarryTheirMoments) {
  Solver solver(test::configOf(18));
  solver.advance(8);
  const auto frame = solver.snapshot(true);
  const std::vector<float> fields = solver.copyFields(*frame);
  const std::size_t plane = 18 * 18;
  float largest = 0;
  float fastest = 0;
  for (std::size_t k = 0; k < plane; ++k) {
    largest = std::max(largest, std::fabs(fields[k]));
    const float u = fields[plane + k];
    const float v = fields[2 * plane + k];
    fastest = std::max(fastest, std::sqrt(u * u + v * v));
  }
  EXPECT_EQ(frame->maxVorticity, largest);
  EXPECT_EQ(frame->maxSpeed, fastest);
  EXPECT_EQ(frame->sequence, 8u);
  EXPECT_NEAR(frame->stdVorticity, std::sqrt(2 * solver.inspect().enstrophy), 1e-4);
}

TEST_F(GpuFrames, WithoutVelocityHaveZerosInItsPlace) {
  Solver solver(test::configOf(16));
  { const auto full = solver.snapshot(true); }  // what stood in the block before is gone
  const auto frame = solver.snapshot(false);
  EXPECT_FALSE(frame->hasVelocity);
  EXPECT_EQ(frame->maxSpeed, 0.0f);
  const std::vector<float> fields = solver.copyFields(*frame);
  EXPECT_TRUE(std::all_of(fields.begin() + 256, fields.end(), [](float f) { return f == 0.0f; }));
}

TEST_F(GpuFrames, AtMostThreeAreAliveAtATime) {
  Solver solver(test::configOf(16));
  auto first = solver.snapshot(true);
  auto second = solver.snapshot(false);
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
  EXPECT_EQ(solver.snapshot(true), nullptr);
}

TEST_F(GpuFrames, AreNotWrittenWhileTheyAreHeld) {
  Solver solver(test::configOf(16));
  const auto kept = solver.snapshot(true);
  const std::vector<float> before = solver.copyFields(*kept);
  for (int k = 0; k < 6; ++k) {
    solver.advance(3);
    const auto passing = solver.snapshot(true);
    EXPECT_FALSE(test::sameBits(solver.copyFields(*passing), before));
  }
  solver.reset(test::still(16));
  EXPECT_TRUE(test::sameBits(solver.copyFields(*kept), before));
}

TEST_F(GpuFrames, OutliveTheirSolverAndMayBeLetGoOnAnotherThread) {
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
    // A GPU gives memory out in larger pieces and keeps some of it.
    if (test::isEmulated) {
      EXPECT_EQ(test::availableOn(gpu()), before);
    }
  }
}

TEST_F(GpuFrames, ComeAndGoOnOtherThreadsWhileTheFlowGoesOn) {
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
