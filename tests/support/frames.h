// Expectations for frames, on every device.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph::test {

// Of a wave, whose velocity is known.
inline void expectFieldAndVelocity(int n) {
  const Solver reader(configOf(n));
  Solver solver(configOf(n), wave(n, 3, -2, 1.0));
  const auto frame = solver.snapshot(true);
  ASSERT_NE(frame, nullptr);
  const std::vector<float> fields = reader.copyFields(*frame);
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

// Of a frame with velocity.
inline void expectMoments(const Frame& frame, const std::vector<float>& fields) {
  const std::size_t plane = fields.size() / 3;
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
  const double deviation = std::sqrt(squares / static_cast<double>(plane) - mean * mean);
  EXPECT_TRUE(frame.hasVelocity);
  EXPECT_EQ(frame.maxVorticity, largest);
  EXPECT_EQ(frame.maxSpeed, fastest);
  EXPECT_NEAR(frame.meanVorticity, mean, 1e-6);
  EXPECT_NEAR(frame.stdVorticity, deviation, deviation * 1e-6);
}

// Of a frame without velocity.
inline void expectZerosForVelocity(const Frame& frame, const std::vector<float>& fields) {
  EXPECT_FALSE(frame.hasVelocity);
  EXPECT_EQ(frame.maxSpeed, 0.0f);
  const auto velocity = fields.begin() + static_cast<std::ptrdiff_t>(fields.size() / 3);
  EXPECT_TRUE(std::all_of(velocity, fields.end(), [](float value) { return value == 0.0f; }));
}

inline void expectThreeAtATime() {
  Solver solver(configOf(16));
  const auto first = solver.snapshot(true);
  auto second = solver.snapshot(false);
  const auto third = solver.snapshot(true);
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
  EXPECT_EQ(solver.snapshot(true), nullptr);
}

// While other frames are made and released so often, and the flow is reset.
inline void expectNoWritesWhileHeld(int others) {
  Solver solver(configOf(16));
  const auto kept = solver.snapshot(true);
  const std::vector<float> before = solver.copyFields(*kept);
  for (int k = 0; k < others; ++k) {
    solver.advance(3);
    const auto passing = solver.snapshot(true);
    EXPECT_FALSE(sameBits(solver.copyFields(*passing), before));
  }
  solver.reset(still(16));
  EXPECT_TRUE(sameBits(solver.copyFields(*kept), before));
}

}  // namespace zeph::test
