#include "device/cpu/instruction_set.h"

#include <gtest/gtest.h>

namespace zeph::cpu {
namespace {

TEST(InstructionSets, ALimitHoldsUntilItIsRaised) {
  const InstructionSet widest = instructionSet();
  limitInstructionSet(InstructionSet::sse2);
  EXPECT_EQ(instructionSet(), InstructionSet::sse2);
  EXPECT_EQ(forInstructionSet(4, 8, 16), 4);
  limitInstructionSet(InstructionSet::avx512);
  EXPECT_EQ(instructionSet(), widest);
}

TEST(InstructionSets, NeverExceedWhatTheMachineHas) {
  limitInstructionSet(InstructionSet::avx2);
  EXPECT_LE(instructionSet(), InstructionSet::avx2);
  limitInstructionSet(InstructionSet::avx512);
  const int width = forInstructionSet(4, 8, 16);
  EXPECT_EQ(width, 4 << static_cast<int>(instructionSet()));
}

}  // namespace
}  // namespace zeph::cpu
