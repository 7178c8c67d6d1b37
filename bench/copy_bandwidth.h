// How fast the selected device copies from its memory to its memory.
#pragma once

#include <cstddef>

#include "solver/device_resources.h"

namespace zeph::bench {

// Two blocks that no cache can hold.
class LargeCopy {
 public:
  LargeCopy();

  // Queues one copy; on the processor all threads share the work.
  void run() const;

  cudaStream_t stream() const { return queue_.value; }
  std::size_t bytesMoved() const { return 2 * from_.bytes; }  // read and written

 private:
  CudaQueue queue_;
  DeviceBuffer from_, to_;
};

// Bytes read and written in a second, measured at the first call: the best of several copies.
double copyBandwidth();

}  // namespace zeph::bench
