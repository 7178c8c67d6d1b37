// The transforms of one shape, one application for each batch count in use.
#pragma once

#include <cstddef>
#include <map>
#include <memory>

#include "device/runtime.h"
#include "device/transform.h"

namespace zeph {

class FftPlan {
 public:
  // Both axes have the length `size`; rows are `rowStride` complex elements apart. Wavenumbers from
  // `cutoff` on are not part of the transform; 0 keeps all. See device/transform.h.
  FftPlan(int size, bool realToComplex, int rowStride, int cutoff, cudaStream_t stream);

  // Makes the application for a batch count, unless it exists. This is slow on some devices, so
  // call it before the loop that needs it. `scratch` is memory of the transform's size that may be
  // overwritten, or null.
  Transform* application(int batch, void* scratch = nullptr);

  // Queues a transform in place, forward exp(-i k x), inverse exp(+i k x), neither scaled.
  void transform(void* buffer, int batch, bool inverse);

  // Device memory inside the plan; what applications share counts once.
  std::size_t deviceBytes() const;

  std::size_t applicationCount() const { return applications_.size(); }

 private:
  struct Destroy {
    void operator()(Transform* application) const { transformDestroy(application); }
  };

  [[noreturn]] void failPlan(int batch, int code) const;

  int size_;
  int rowStride_;
  int cutoff_;
  bool realToComplex_;
  cudaStream_t stream_;
  std::map<int, std::unique_ptr<Transform, Destroy>> applications_;
};

}  // namespace zeph
