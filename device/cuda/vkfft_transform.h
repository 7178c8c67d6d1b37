// Transforms on a GPU, by VkFFT, which generates its kernels for each shape and has NVRTC compile
// them; see device/transform.h. A failure code is VkFFT's.
#pragma once

#include <vector>

#include "device/transform.h"

namespace zeph::cuda {

// Raises std::runtime_error for the failures that VkFFT has no code for: no driver device, no
// NVRTC, a wrong result.
int createTransform(const TransformRequest& request, Transform** transform);
int appendTransform(Transform* transform, void* buffer, bool inverse);
void destroyTransform(Transform* transform);
std::vector<TransformAllocation> transformAllocations(const Transform* transform);

}  // namespace zeph::cuda
