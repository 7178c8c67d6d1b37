// The replacement of a program's machine code for its kernels.
#pragma once

#include "tests/emulation/kernel_function.h"

namespace zeph::emulation {

struct KernelImage {
  const KernelFunction* kernels;
  std::size_t count;
};

// The oldest processor that the image has code for, as 10 * major + minor.
constexpr int oldestCapability = ZEPHANE_OLDEST_GPU;

}  // namespace zeph::emulation
