// The devices of the machine that the tests run on.
#pragma once

#include <cstddef>
#include <vector>

#include "device/runtime.h"

namespace zeph::test {

inline int processorDevice() {
  int count = 0;
  cudaGetDeviceCount(&count);
  return count - 1;
}

// The GPUs that the kernels run on.
inline std::vector<int> gpus() {
  std::vector<int> found;
  for (int device = 0; device < processorDevice(); ++device) {
    if (deviceRunsKernels(device)) found.push_back(device);
  }
  return found;
}

// For the calling thread; a new thread starts with device 0.
inline void selectProcessor() {
  cudaSetDevice(processorDevice());
}

}  // namespace zeph::test
