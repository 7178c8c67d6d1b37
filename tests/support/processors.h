// Runs the same work with each vector instruction set of the machine, on one thread and on all.
#pragma once

#include <gtest/gtest.h>

#include "device/cpu/instruction_set.h"
#include "device/cpu/thread_pool.h"

namespace zeph::test {

// Sets both limits while it exists.
class ProcessorLimit {
 public:
  ProcessorLimit(cpu::InstructionSet set, int threads) {
    cpu::limitInstructionSet(set);
    cpu::ThreadPool::shared().limit(threads);
  }
  ~ProcessorLimit() {
    cpu::limitInstructionSet(cpu::InstructionSet::avx512);
    cpu::ThreadPool::shared().limit(cpu::ThreadPool::shared().participants());
  }
  ProcessorLimit(const ProcessorLimit&) = delete;
  ProcessorLimit& operator=(const ProcessorLimit&) = delete;
};

template <class Body>
void onEveryProcessor(Body body) {
  using cpu::InstructionSet;
  const int all = cpu::ThreadPool::shared().participants();
  for (const auto set : {InstructionSet::sse2, InstructionSet::avx2, InstructionSet::avx512}) {
    for (int threads = 1; threads <= all; threads = threads < all ? all : all + 1) {
      const ProcessorLimit limit(set, threads);
      if (cpu::instructionSet() != set) continue;
      SCOPED_TRACE(testing::Message()
                   << "instruction set " << static_cast<int>(set) << ", threads " << threads);
      body();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

}  // namespace zeph::test
