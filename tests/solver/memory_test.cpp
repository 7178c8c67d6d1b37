// The memory of a solver on its device.
#include <gtest/gtest.h>

#include "device/cpu/processor_memory.h"
#include "device/runtime.h"
#include "solver/device_resources.h"
#include "tests/support/arrays.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::Sizes;

std::uint64_t expectedBytes(int n, Integrator integrator, OperatorKind operatorKind) {
  const Sizes z(n);
  const std::uint64_t half = z.half * 8;
  const std::uint64_t padded = z.s * z.m * (operatorKind == OperatorKind::stress ? 16 : 32);
  const std::uint64_t table = z.half * 4;
  const std::uint64_t small = 40 + 512 + 1024 + 2048;
  const std::uint64_t fields = 3 * 12 * z.n * z.n;
  const std::uint64_t common = 3 * half + padded + small + 3 * half + fields;
  if (integrator == Integrator::imexRK3) return common + 8 + 8 + 8 + 4;
  if (integrator == Integrator::ifHeunRK3) return common + half + 8 + 8 + 3 * table;
  return common + 3 * half + 6 * table;
}

TEST(SolverMemory, EqualsItsBuffersForEveryIntegratorAndOperator) {
  for (const int n : {16, 18, 64}) {
    for (const Integrator integrator : test::integrators) {
      for (const OperatorKind operatorKind : test::operators) {
        const Solver solver(test::configOf(n, integrator, operatorKind));
        EXPECT_EQ(solver.lastStats().allocatedBytes, expectedBytes(n, integrator, operatorKind))
            << n << " " << static_cast<int>(integrator) << " " << static_cast<int>(operatorKind);
      }
    }
  }
}

TEST(SolverMemory, MatchesACountByHand) {
  // N = 16: M = 24, W = 9, S = 16, a half spectrum of 1152 bytes.
  const Solver small(test::configOf(16, Integrator::imexRK3));
  EXPECT_EQ(small.lastStats().allocatedBytes, 6 * 1152 + 6144 + 28 + 3624 + 9216u);
}

TEST(SolverMemory, IsConstant) {
  Solver solver(test::configOf(16));
  const std::uint64_t bytes = solver.lastStats().allocatedBytes;
  solver.advance(3);
  solver.reset(test::wave(16, 1, 2, 1.0));
  const auto frame = solver.snapshot(true);
  EXPECT_EQ(solver.inspect().allocatedBytes, bytes);
}

TEST(SolverMemory, OfTheTransformsIsCountedSeparately) {
  Solver solver(test::configOf(16));
  const std::uint64_t before = solver.lastStats().workspaceBytes;
  EXPECT_GT(before, 0u);
  EXPECT_EQ(solver.inspect().workspaceBytes, before);
  // The complex plan is created at the first start from samples, and kept.
  solver.reset(test::wave(16, 1, 2, 1.0));
  const std::uint64_t withSamples = solver.inspect().workspaceBytes;
  EXPECT_GE(withSamples, before);
  solver.reset();
  EXPECT_EQ(solver.inspect().workspaceBytes, withSamples);
}

TEST(SolverMemory, IsFreed) {
  const auto inUse = [] { return cpu::DeviceMemory::shared().inUse(); };
  const std::uint64_t before = inUse();
  for (int k = 0; k < 3; ++k) {
    const Solver solver(test::configOf(64), test::still(64));
    EXPECT_GE(inUse(), before + solver.lastStats().allocatedBytes);
  }
  EXPECT_EQ(inUse(), before);
}

TEST(SolverMemory, AFailedAllocationNamesItsCall) {
  DeviceBuffer buffer;
  EXPECT_EQ(test::runtimeFailure([&] { buffer.allocate(std::size_t{1} << 60); }),
            "cudaMalloc(&ptr,bytes): out of memory");
  EXPECT_EQ(test::runtimeFailure([] { allocateBlock(std::size_t{1} << 58); }),
            "cudaMalloc(&ptr,bytes): out of memory");
}

TEST(SolverMemory, AFlowTooLargeForTheMachineIsRefusedAtOnce) {
  const Config config = test::configOf(16384, Integrator::etdrk4, OperatorKind::advective);
  std::size_t available = 0;
  std::size_t total = 0;
  ASSERT_EQ(cudaMemGetInfo(&available, &total), cudaSuccess);
  const std::uint64_t needed = expectedBytes(16384, config.integrator, config.operatorKind);
  if (available > needed * 9 / 10) GTEST_SKIP() << "this machine can hold it";
  EXPECT_EQ(test::runtimeFailure([&] { const Solver solver(config); }),
            "cudaMalloc(&ptr,bytes): out of memory");
}

}  // namespace
}  // namespace zeph
