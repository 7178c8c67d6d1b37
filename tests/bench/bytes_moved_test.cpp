#include "bench/bytes_moved.h"

#include <gtest/gtest.h>

namespace zeph::bench {
namespace {

constexpr Integrator integrators[] = {Integrator::imexRK3, Integrator::ifHeunRK3,
                                      Integrator::etdrk4};
constexpr OperatorKind operators[] = {OperatorKind::stress, OperatorKind::advective};

// N = 16, M = 24: 1024 bytes of modes, 1536 of columns between the passes, 2304 of samples.
TEST(BytesMoved, ATransformReadsAndWritesItsFieldOncePerAxis) {
  EXPECT_EQ(GridBytes(16).transform(), (1024u + 1536u) + (1536u + 2304u));
}

// Four stages, each with four transforms, two products made of two fields, and two terms.
TEST(BytesMoved, AStepOfEtdrk4WithStressIsCountedByHand) {
  const StepBytes bytes = bytesOfStep(16, Integrator::etdrk4, OperatorKind::stress);
  EXPECT_EQ(bytes.transforms, 4u * 4u * 6400u);
  EXPECT_EQ(bytes.kernels, 4u * (3u * 1024u + 4u * 2304u + 2u * 1024u) + 19u * 1024u + 14u * 512u);
}

TEST(BytesMoved, AStepOfImexRK3WithAdvectiveIsCountedByHand) {
  const StepBytes bytes = bytesOfStep(16, Integrator::imexRK3, OperatorKind::advective);
  EXPECT_EQ(bytes.transforms, 3u * 5u * 6400u);
  EXPECT_EQ(bytes.kernels, 3u * (5u * 1024u + 5u * 2304u + 1u * 1024u) + 17u * 1024u);
}

TEST(BytesMoved, DoublingTheGridQuadruplesTheBytes) {
  for (const Integrator integrator : integrators) {
    for (const OperatorKind operatorKind : operators) {
      const std::uint64_t small = bytesOfStep(4096, integrator, operatorKind).total();
      EXPECT_EQ(bytesOfStep(8192, integrator, operatorKind).total(), 4 * small);
    }
  }
}

TEST(BytesMoved, TheLargestGridDoesNotOverflow) {
  EXPECT_EQ(bytesOfStep(16384, Integrator::etdrk4, OperatorKind::stress).total(),
            728u * (std::uint64_t{1} << 28));
}

}  // namespace
}  // namespace zeph::bench
