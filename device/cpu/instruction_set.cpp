#include "device/cpu/instruction_set.h"

#include <algorithm>
#include <atomic>
#include <optional>

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

// Empty until it is first asked for. Threads that ask at once find the same.
constinit std::atomic<std::optional<InstructionSet>> inUse;

}  // namespace

InstructionSet instructionSet() {
  std::optional<InstructionSet> set = inUse.load(std::memory_order_relaxed);
  if (!set) inUse.store(set = widestOfMachine(), std::memory_order_relaxed);
  return *set;
}

void limitInstructionSet(InstructionSet widest) {
  inUse = std::min(widest, widestOfMachine());
}

}  // namespace zeph::cpu
