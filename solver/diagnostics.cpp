// The figures of a flow, finished in double precision in ascending block order.
#include <cmath>
#include <stdexcept>

#include "device/check.h"
#include "kernels/kernels.h"
#include "solver/impl.h"

namespace zeph {
namespace {

// The mean squared wavenumber of the vorticity over twice the square of the largest one retained.
double palinstrophyRatio(double enstrophy, double palinstrophy, int n) {
  if (!(enstrophy > 0)) return 0;
  const double largest = n / 2 - 1;
  return palinstrophy / (((enstrophy + enstrophy) * largest) * largest);
}

std::size_t bytesOf(const std::unique_ptr<FftPlan>& plan) {
  return plan ? plan->deviceBytes() : 0;
}
std::size_t bytesOf(const std::unique_ptr<FusedStep>& step) {
  std::size_t sum = 0;
  if (!step) return sum;
  for (const TransformAllocation& allocation : step->allocations()) sum += allocation.bytes;
  return sum;
}

}  // namespace

void Solver::Impl::requireHealth() const {
  if (failed) {
    throw std::runtime_error(
        "The flow became non-finite or a GPU operation failed. Reset to recover.");
  }
}

Statistics Solver::Impl::lastStats() const {
  requireHealth();
  Statistics record = statistics;
  record.reynolds = reynolds;
  return record;
}

Statistics Solver::Impl::inspect() {
  requireHealth();
  try {
    reduceStatistics();
  } catch (...) {
    failed = true;
    throw;
  }
  statistics.workspaceBytes =
      bytesOf(paddedPlan) + bytesOf(gridPlan) + bytesOf(complexPlan) + bytesOf(fusedStep);
  return statistics;
}

void Solver::Impl::reduceStatistics() {
  spectralStatistics(stream(), omega.as<const V2>(), statPartials.as<float4>(), params(0));
  float4* partials = pinned.data->statistics;
  check(cudaMemcpyAsync(partials, statPartials.ptr, statPartials.bytes, cudaMemcpyDeviceToHost,
                        queue.value),
        "cudaMemcpyAsync(partials,statPartials.ptr,statPartials.bytes,cudaMemcpyDeviceToHost,"
        "queue.value)");
  readClock();
  double energy = 0;
  double enstrophy = 0;
  double palinstrophy = 0;
  for (std::uint32_t p = 0; p < reductionBlocks; ++p) {
    if (partials[p].z != 0.0f) throw std::runtime_error("Non-finite spectral diagnostics.");
    energy += static_cast<double>(partials[p].x);
    enstrophy += static_cast<double>(partials[p].y);
    palinstrophy += static_cast<double>(partials[p].w);
  }
  if (!std::isfinite(energy) || !std::isfinite(enstrophy) || !std::isfinite(palinstrophy)) {
    throw std::runtime_error("Non-finite spectral reduction.");
  }
  statistics.energy = energy;
  statistics.enstrophy = enstrophy;
  statistics.palinstrophy = palinstrophy;
  statistics.palinstrophyRatio = palinstrophyRatio(enstrophy, palinstrophy, n);
}

}  // namespace zeph
