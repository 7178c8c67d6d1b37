// Expectations for transform plans, on every device.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "solver/fft_plan.h"

namespace zeph::test {

// Of a plan without an application. The applications made share their tables.
inline void expectSharedMemoryCountedOnce(FftPlan& plan) {
  EXPECT_EQ(plan.deviceBytes(), 0u);
  std::map<const void*, std::size_t> distinct;
  for (const int batch : {4, 1}) {
    for (const TransformAllocation& allocation : transformAllocations(plan.application(batch))) {
      std::size_t& bytes = distinct[allocation.pointer];
      bytes = std::max(bytes, allocation.bytes);
    }
  }
  std::size_t sum = 0;
  for (const auto& [pointer, bytes] : distinct) sum += bytes;
  EXPECT_EQ(plan.deviceBytes(), sum);
}

}  // namespace zeph::test
