// The plan of a one-dimensional transform with the 3/2 padding of the dealiased nonlinear term: of
// its 3 h elements in frequency space only the wavenumbers -h < k < h are in use.
//
// The outermost stage has radix 3 q with q = 4, 2 or 1, so that the third of its inputs (inverse)
// or outputs (forward) that is padding is known at compile time and never computed. It is a prime
// factor transform of 3 by q points (I. J. Good 1958), which needs no inner twiddles. It leaves 3 q
// blocks of `span` neighbouring places, each an ordinary line. In a tile the blocks are an element
// further apart, because the butterflies of the outermost stage would otherwise reach for elements
// that compete for the same lines of the first-level cache.
#pragma once

#include <memory>
#include <vector>

#include "device/cpu/processor_memory.h"
#include "device/cpu/transforms/line_plan.h"

namespace zeph::cpu {

// The tables as the vector code reads them. Pointers belong to a PaddedPlan.
struct PaddedTables {
  int half = 0;                       // h
  int length = 0;                     // 3 h
  int radix = 0;                      // 3 q, of the outermost stage
  int span = 0;                       // length / radix
  int blockStride = 0;                // elements from one block to the next in a tile
  const float* twiddles = nullptr;    // exp(-2 pi i j k / length) at (j, k - 1), re then im
  const LineTables* block = nullptr;  // of the lines of length `span`
};

class PaddedPlan {
 public:
  // Raises std::bad_alloc.
  explicit PaddedPlan(int half);
  PaddedPlan(const PaddedPlan&) = delete;
  PaddedPlan& operator=(const PaddedPlan&) = delete;

  const PaddedTables& tables() const { return tables_; }

  // The memory of the tables.
  std::vector<TransformAllocation> allocations() const;

 private:
  PaddedTables tables_;
  std::shared_ptr<const LinePlan> block_;
  DeviceFloats twiddles_;
};

}  // namespace zeph::cpu
