// Checks a transform by its results for a few known modes.
#pragma once

#include "device/transform.h"

namespace zeph {

struct TransformTrial {
  int code = 0;  // what a failed call of `append` returned; the results are then unknown
  bool isRight = false;
};

// Transforms a small set of modes of each field back and forth and compares the result with the
// exact one: some rows of the physical fields, and some of their spectra within the band that
// `request` keeps. Works in `request.scratch`, or allocates memory where that is null. Raises
// std::runtime_error if a device call fails.
TransformTrial tryTransform(Transform* transform,
                            int (*append)(Transform* transform, void* buffer, bool inverse),
                            const TransformRequest& request);

}  // namespace zeph
