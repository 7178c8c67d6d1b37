// Runs a grid of blocks: one thread after another, each to its next barrier.
#pragma once

#include <cuda_runtime_api.h>

#include <cstddef>

#include "tests/emulation/kernel_function.h"

namespace zeph::emulation {

// The most shared memory that any GPU gives a block.
constexpr std::size_t mostSharedBytes = 232448;

struct Grid {
  ::dim3 blocks, threads;
  std::size_t sharedBytes;  // dynamic, in addition to the kernel's static memory
};

// One at a time in the process. Fails if some threads of a block wait at a barrier that others
// never reach, or if a block writes past the end of its shared memory.
::cudaError_t runGrid(const Grid& grid, void (*kernel)(void**), void** arguments);

}  // namespace zeph::emulation
