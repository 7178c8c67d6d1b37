// Two-dimensional single-precision Fourier transforms of the selected device, in place.
#pragma once

#include <cstddef>
#include <vector>

#include "device/runtime.h"

namespace zeph {

// The request for a transform of `batch` square fields of side `size`, each of `rowStride` * `size`
// complex elements, one after another.
//
// A complex field has row j at complex element rowStride * j, natural order in both directions. A
// real field (`realToComplex`) has, in frequency space, size / 2 + 1 complex columns in each row,
// and in physical space, in the same memory, row r at float 2 * rowStride * r. The first axis (the
// fast one) is the halved one. Neither direction scales. Forward is exp(-i...), inverse exp(+i...).
//
// With `cutoff` > 0 (real fields only) the frequency band from `cutoff` up to size - cutoff on both
// axes is not part of the transform: an inverse takes it as zero without reading it, and a forward
// transform leaves undefined values there.
struct TransformRequest {
  int size = 0;
  int rowStride = 0;
  int cutoff = 0;
  int batch = 1;
  bool realToComplex = true;
  cudaStream_t stream = nullptr;
  // Memory of the transform's size that may be overwritten while the new transform is checked; if
  // null, some is allocated for the check.
  void* scratch = nullptr;
};

struct Transform;  // belongs to the device that made it

struct TransformAllocation {
  const void* pointer;
  std::size_t bytes;
};

// Each returns 0, or the device's failure code.
int transformCreate(const TransformRequest& request, Transform** transform);
int transformAppend(Transform* transform, void* buffer, bool inverse);

// What such a code means, or null on a device whose codes are those of VkFFT.
const char* transformErrorString(int result);

void transformDestroy(Transform* transform);

// The memory that a transform holds beside its buffer. Transforms may share tables, so several of
// them can return the same pointer.
std::vector<TransformAllocation> transformAllocations(const Transform* transform);

}  // namespace zeph
