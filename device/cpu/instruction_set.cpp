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

constexpr int notAsked = -1;

// Set when it is first asked for. Threads that ask at once find the same.
constinit std::atomic<int> inUse = notAsked;

}  // namespace

InstructionSet instructionSet() {
  const int set = inUse.load(std::memory_order_relaxed);
  if (set != notAsked) return static_cast<InstructionSet>(set);
  const InstructionSet widest = widestOfMachine();
  inUse.store(static_cast<int>(widest), std::memory_order_relaxed);
  return widest;
}

void limitInstructionSet(InstructionSet widest) {
  inUse = static_cast<int>(std::min(widest, widestOfMachine()));
}

}  // namespace zeph::cpu
