// How a flow starts: from samples in physical space or from the seeded spectrum, at time zero. The
// first time step is chosen at once, so that the growth limiter knows it.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

#include "device/check.h"
#include "kernels/kernels.h"
#include "solver/impl.h"
#include "solver/start_spectra.h"

namespace zeph {
namespace {

// The time that the velocity sqrt(2 E) takes to cross 2 pi times the eddy size sqrt(E / Z).
double turnoverTime(double energy, double enstrophy) {
  if (!(energy > 0) || !(enstrophy > 0)) return 0;
  return (std::sqrt(energy / enstrophy) * (2 * std::numbers::pi)) / std::sqrt(energy * 2);
}

}  // namespace

void Solver::Impl::reset(const std::vector<float>& values) {
  const auto isFinite = [](float value) { return std::isfinite(value); };
  if (!values.empty() &&
      (values.size() != samples() || !std::all_of(values.begin(), values.end(), isFinite))) {
    throw std::invalid_argument(
        "Initial vorticity must contain exactly N² finite Float32 samples.");
  }
  failed = false;
  try {
    start(values);
  } catch (...) {
    failed = true;
    throw;
  }
}

void Solver::Impl::start(const std::vector<float>& values) {
  if (values.empty()) {
    seedSpectrum();
  } else {
    projectSamples(values);
  }

  ClockState fresh = {};
  fresh.healthy = 1;
  check(cudaMemcpyAsync(clock.ptr, &fresh, sizeof(fresh), cudaMemcpyHostToDevice, queue.value),
        "cudaMemcpyAsync(clock.ptr,&fresh,sizeof(fresh),cudaMemcpyHostToDevice,queue.value)");
  check(cudaMemsetAsync(correction.ptr, 0, correction.bytes, queue.value),
        "cudaMemsetAsync(correction.ptr,0,correction.bytes,queue.value)");
  check(cudaMemsetAsync(first.ptr, 0, first.bytes, queue.value),
        "cudaMemsetAsync(first.ptr,0,first.bytes,queue.value)");
  statistics.gpuMilliseconds = 0;
  statistics.initialTurnoverTime = 0;

  queueTerm(params(0));
  readClock();
  inspect();
  statistics.initialTurnoverTime = turnoverTime(statistics.energy, statistics.enstrophy);
}

void Solver::Impl::projectSamples(const std::vector<float>& values) {
  std::vector<V2> field(values.size());
  std::transform(values.begin(), values.end(), field.begin(), [](float value) {
    return V2{value, 0.0f};
  });
  DeviceBuffer full;
  full.allocate(field.size() * sizeof(V2));
  if (!complexPlan) complexPlan = std::make_unique<FftPlan>(n, false, n, 0, stream());
  complexPlan->application(1, full.ptr);
  check(cudaMemcpyAsync(full.ptr, field.data(), full.bytes, cudaMemcpyHostToDevice, queue.value),
        "cudaMemcpyAsync(full.ptr,field.data(),full.bytes,cudaMemcpyHostToDevice,queue.value)");
  complexPlan->transform(full.ptr, 1, false);
  projectState(stream(), full.as<const V2>(), omega.as<V2>(), params(0));
  check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize(queue.value)");
}

void Solver::Impl::seedSpectrum() {
  const std::vector<V2> seeded = startSpectrum(config);
  check(cudaMemcpyAsync(omega.ptr, seeded.data(), omega.bytes, cudaMemcpyHostToDevice, queue.value),
        "cudaMemcpyAsync(omega.ptr,seeded.data(),omega.bytes,cudaMemcpyHostToDevice,queue.value)");
  check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize(queue.value)");
}

}  // namespace zeph
