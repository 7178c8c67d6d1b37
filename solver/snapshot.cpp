// Completed fields, and the spectrum on the host.
#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "device/check.h"
#include "kernels/kernels.h"
#include "solver/impl.h"

namespace zeph {

std::shared_ptr<const Frame> Solver::Impl::snapshot(bool includeVelocity) {
  requireHealth();
  std::shared_ptr<float> block = freeBlock();
  if (!block) return nullptr;
  const auto frame = std::make_shared<Frame>();
  frame->block = std::move(block);
  frame->gridSize = n;
  frame->sequence = statistics.steps;
  frame->time = statistics.time;
  frame->hasVelocity = includeVelocity;
  try {
    complete(*frame);
  } catch (...) {
    failed = true;
    throw;
  }
  return frame;
}

// The first block that nobody but the solver holds, or null.
std::shared_ptr<float> Solver::Impl::freeBlock() const {
  for (const std::shared_ptr<float>& block : fields) {
    if (block.use_count() != 1) continue;
    // The last reader may have let go on another thread, and use_count orders nothing. Changing the
    // count once more orders that reader's reads before the next writes.
    std::shared_ptr<float> mine = block;
    std::shared_ptr<float>(mine).reset();
    return mine;
  }
  return nullptr;
}

void Solver::Impl::complete(Frame& frame) {
  const int planes = static_cast<int>(frame.hasVelocity ? vorticityAndVelocity : vorticityAlone);
  const Params p = params(planes);
  prepareSnapshot(stream(), omega.as<const V2>(), snapshotSpectra.as<V2>(), p);
  gridPlan->transform(snapshotSpectra.ptr, planes, true);
  extractSnapshot(stream(), snapshotSpectra.as<const float>(), frame.block.get(),
                  snapshotPartials.as<float4>(), p);
  const float4* partials = pinned.data->snapshot;
  check(cudaMemcpyAsync(pinned.data->snapshot, snapshotPartials.ptr, snapshotPartials.bytes,
                        cudaMemcpyDeviceToHost, queue.value),
        "cudaMemcpyAsync(partials,snapshotPartials.ptr,snapshotPartials.bytes,"
        "cudaMemcpyDeviceToHost,queue.value)");
  check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize(queue.value)");

  float maxVorticity = 0;
  float maxSpeed = 0;
  double sum = 0;
  double squares = 0;
  for (std::uint32_t b = 0; b < reductionBlocks; ++b) {
    if (partials[b].z != 0.0f) throw std::runtime_error("Non-finite snapshot.");
    maxVorticity = std::max(maxVorticity, partials[b].x);
    maxSpeed = std::max(maxSpeed, partials[b].y);
    sum += static_cast<double>(partials[reductionBlocks + b].x);
    squares += static_cast<double>(partials[reductionBlocks + b].y);
  }
  const double count = static_cast<double>(samples());
  const double mean = sum / count;
  const double variance = squares / count - mean * mean;
  if (!std::isfinite(mean) || !std::isfinite(variance)) {
    throw std::runtime_error("Non-finite snapshot moments.");
  }
  frame.maxVorticity = maxVorticity;
  frame.maxSpeed = maxSpeed;
  frame.meanVorticity = static_cast<float>(mean);
  frame.stdVorticity = static_cast<float>(std::sqrt(std::max(0.0, variance)));
}

std::vector<V2> Solver::Impl::spectrum() const {
  requireHealth();
  std::vector<V2> half(halfSpectrum());
  check(cudaMemcpyAsync(half.data(), omega.ptr, omega.bytes, cudaMemcpyDeviceToHost, queue.value),
        "cudaMemcpyAsync(half.data(),omega.ptr,omega.bytes,cudaMemcpyDeviceToHost,queue.value)");
  check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize(queue.value)");

  const std::size_t side = static_cast<std::size_t>(n);
  const std::size_t width = static_cast<std::size_t>(w);
  const float g = 1.0f / static_cast<float>(n * n);
  std::vector<V2> full(samples());
  for (std::size_t j = 0; j < side; ++j) {
    const V2* row = half.data() + j * width;
    const V2* mirror = half.data() + ((side - j) % side) * width;
    V2* to = full.data() + j * side;
    for (std::size_t i = 0; i < width; ++i) to[i] = {g * row[i].re, g * row[i].im};
    for (std::size_t i = width; i < side; ++i) {
      to[i] = {g * mirror[side - i].re, g * -mirror[side - i].im};
    }
  }
  return full;
}

}  // namespace zeph
