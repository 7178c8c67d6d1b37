// Which of the processor's vector instruction sets is in use. Results have the same bits on all of
// them.
#pragma once

namespace zeph::cpu {

enum class InstructionSet { sse2, avx2, avx512 };

// The widest one of this machine, or the limit if one has been set.
InstructionSet instructionSet();

// Uses at most `widest` from now on; for tests and benchmarks.
void limitInstructionSet(InstructionSet widest);

// The argument for the set in use.
template <class T>
const T& forInstructionSet(const T& sse2, const T& avx2, const T& avx512) {
  switch (instructionSet()) {
    case InstructionSet::avx512:
      return avx512;
    case InstructionSet::avx2:
      return avx2;
    default:
      return sse2;
  }
}

}  // namespace zeph::cpu
