// Whether a transform does what it should, tried on a few known modes.
#pragma once

#include "device/transform.h"

namespace zeph {

struct TransformTrial {
  int code = 0;  // of the application that failed; then nothing is known of the results
  bool isRight = false;
};

// Transforms a small set of modes of each field back and forth and compares the result with the
// exact one: some rows of the physical fields, and some of their spectra within the band that
// `request` keeps. Works in `request.scratch`, or in memory of its own where that is null. Raises
// std::runtime_error for a device call that fails.
TransformTrial tryTransform(Transform* transform,
                            int (*append)(Transform* transform, void* buffer, bool inverse),
                            const TransformRequest& request);

}  // namespace zeph
