#include "device/cpu/transforms/padded_plan.h"

#include "device/cpu/transforms/roots_of_unity.h"

namespace zeph::cpu {
namespace {

int outerRadix(int half) {
  if (half % 4 == 0) return 12;
  return half % 2 == 0 ? 6 : 3;
}

}  // namespace

PaddedPlan::PaddedPlan(int half) {
  tables_.half = half;
  tables_.length = 3 * half;
  tables_.radix = outerRadix(half);
  tables_.span = tables_.length / tables_.radix;
  tables_.blockStride = tables_.span + 1;
  block_ = LinePlan::forLength(tables_.span);
  tables_.block = &block_->tables();
  twiddles_ = DeviceFloats(2 * static_cast<std::size_t>(tables_.radix - 1) *
                           static_cast<std::size_t>(tables_.span));
  float* next = twiddles_.get();
  for (std::int64_t j = 0; j < tables_.span; ++j) {
    for (std::int64_t k = 1; k < tables_.radix; ++k, next += 2) {
      const std::complex<double> root = rootOfUnity(j * k, tables_.length);
      next[0] = static_cast<float>(root.real());
      next[1] = static_cast<float>(root.imag());
    }
  }
  tables_.twiddles = twiddles_.get();
}

std::vector<TransformAllocation> PaddedPlan::allocations() const {
  std::vector<TransformAllocation> all = block_->allocations();
  all.push_back({twiddles_.get(), twiddles_.bytes()});
  return all;
}

}  // namespace zeph::cpu
