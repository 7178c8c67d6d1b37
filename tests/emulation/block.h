// How a grid of blocks runs: one thread after another, each to its next barrier.
#pragma once

#include <cuda_runtime_api.h>

#include <cstddef>

#include "tests/emulation/kernel_function.h"

namespace zeph::emulation {

// The most shared memory that any GPU gives a block.
constexpr std::size_t mostSharedBytes = 232448;

struct Grid {
  ::dim3 blocks, threads;
  std::size_t sharedBytes;  // what the launch adds to the kernel's own
};

// One at a time in the process. Fails where a block's threads do not all come to a barrier that
// some of them wait at, or where a block writes past the end of its shared memory.
::cudaError_t runGrid(const Grid& grid, void (*kernel)(void**), void** arguments);

}  // namespace zeph::emulation
