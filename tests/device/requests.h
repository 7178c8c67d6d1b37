// Requests for transforms.
#pragma once

#include <cstddef>

#include "device/transform.h"

namespace zeph::test {

inline TransformRequest requestOf(int size, int rowStride, int cutoff, int batch,
                                  bool isReal = true) {
  TransformRequest request;
  request.size = size;
  request.rowStride = rowStride;
  request.cutoff = cutoff;
  request.batch = batch;
  request.realToComplex = isReal;
  return request;
}

// Of a padded grid, whose rows are whole vectors.
inline int paddedStride(int size) {
  return (size / 2 + 8) / 8 * 8;
}

inline std::size_t fieldFloats(const TransformRequest& request) {
  return 2 * static_cast<std::size_t>(request.rowStride) * static_cast<std::size_t>(request.size);
}

}  // namespace zeph::test
