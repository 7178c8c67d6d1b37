#include "device/transform.h"

#include "device/device_kind.h"

namespace zeph {

int transformCreate(const TransformRequest& request, Transform** transform) {
  return selectedKind().createTransform(request, transform);
}

int transformAppend(Transform* transform, void* buffer, bool inverse) {
  return selectedKind().appendTransform(transform, buffer, inverse);
}

void transformDestroy(Transform* transform) {
  selectedKind().destroyTransform(transform);
}

std::vector<TransformAllocation> transformAllocations(const Transform* transform) {
  return selectedKind().transformAllocations(transform);
}

}  // namespace zeph
