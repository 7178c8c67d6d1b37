// Which of the processor's vector instruction sets is in use. The same work has the same bits on
// each of them.
#pragma once

namespace zeph::cpu {

enum class InstructionSet { sse2, avx2, avx512 };

// The widest that this machine has, unless it has been limited.
InstructionSet instructionSet();

// Uses at most `widest` from now on; for tests and benchmarks.
void limitInstructionSet(InstructionSet widest);

// One of three by the set in use.
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
