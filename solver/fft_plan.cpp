#include "solver/fft_plan.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "device/check.h"

namespace zeph {

FftPlan::FftPlan(int size, bool realToComplex, int rowStride, int cutoff, cudaStream_t stream)
    : size_(size),
      rowStride_(rowStride),
      cutoff_(cutoff),
      realToComplex_(realToComplex),
      stream_(stream) {
  int dev = 0;
  check(cudaGetDevice(&dev), "cudaGetDevice(&dev)");
}

void FftPlan::failPlan(int batch, int code) const {
  const std::string shape = std::to_string(size_) + " batch=" + std::to_string(batch);
  if (const char* reason = transformErrorString(code))
    throw std::runtime_error("FFT plan N=" + shape + ": " + reason);
  throw std::runtime_error("VkFFT CUDA plan N=" + shape + " failed: " + std::to_string(code));
}

Transform* FftPlan::application(int batch, void* scratch) {
  const auto found = applications_.find(batch);
  if (found != applications_.end()) return found->second.get();
  const TransformRequest request = {
      .size = size_,
      .rowStride = rowStride_,
      .cutoff = cutoff_,
      .batch = batch,
      .realToComplex = realToComplex_,
      .stream = stream_,
      .scratch = scratch,
  };
  Transform* made = nullptr;
  const int code = transformCreate(request, &made);
  if (code != 0) failPlan(batch, code);
  std::unique_ptr<Transform, Destroy> owned(made);
  return applications_.emplace(batch, std::move(owned)).first->second.get();
}

void FftPlan::transform(void* buffer, int batch, bool inverse) {
  const int code = transformAppend(application(batch), buffer, inverse);
  if (code != 0) throw std::runtime_error("VkFFT CUDA append failed: " + std::to_string(code));
}

std::size_t FftPlan::deviceBytes() const {
  std::map<const void*, std::size_t> largest;
  for (const auto& [batch, application] : applications_) {
    for (const TransformAllocation& allocation : transformAllocations(application.get())) {
      std::size_t& bytes = largest[allocation.pointer];
      bytes = std::max(bytes, allocation.bytes);
    }
  }
  std::size_t sum = 0;
  for (const auto& [pointer, bytes] : largest) sum += bytes;
  return sum;
}

}  // namespace zeph
