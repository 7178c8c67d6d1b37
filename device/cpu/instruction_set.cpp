#include "device/cpu/instruction_set.h"

#include <algorithm>
#include <atomic>

namespace zeph::cpu {
namespace {

InstructionSet widestOfMachine() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) {
    return InstructionSet::avx512;
  }
  return __builtin_cpu_supports("avx2") ? InstructionSet::avx2 : InstructionSet::sse2;
}

std::atomic<InstructionSet>& setInUse() {
  static std::atomic<InstructionSet> set = widestOfMachine();
  return set;
}

}  // namespace

InstructionSet instructionSet() {
  return setInUse().load(std::memory_order_relaxed);
}

void limitInstructionSet(InstructionSet widest) {
  setInUse() = std::min(widest, widestOfMachine());
}

}  // namespace zeph::cpu
