// The processor's two-dimensional transforms; see device/transform.h. The work is done when a call
// returns. Each failure code is a cudaError_t.
#pragma once

#include <vector>

#include "device/transform.h"

namespace zeph::cpu {

int createTransform(const TransformRequest& request, Transform** transform);
int appendTransform(Transform* transform, void* buffer, bool inverse);
void destroyTransform(Transform* transform);
std::vector<TransformAllocation> transformAllocations(const Transform* transform);

}  // namespace zeph::cpu
