#include "solver/solver.h"

#include <new>
#include <stdexcept>

#include "device/check.h"
#include "solver/impl.h"

namespace zeph {
namespace {

// The size of an array that the integrator does not use: every kernel argument is a valid pointer.
constexpr std::size_t unusedSpectrum = sizeof(V2);
constexpr std::size_t unusedTable = sizeof(float);

std::size_t size(int n) {
  return static_cast<std::size_t>(n);
}

}  // namespace

Solver::Impl::Impl(const Config& start)
    : config(start),
      device(selectedDevice()),
      reynolds(start.reynolds),
      cfl(start.cfl),
      n(start.resolution),
      m(paddedResolution(n)),
      w(halfWidth(n)),
      s(paddedStride(m)) {
  const std::size_t spectrum = halfSpectrum() * sizeof(V2);
  const std::size_t plane = size(s) * size(m) * sizeof(V2);
  const IntegratorNeeds stage = needsOf(config.integrator);
  const OperatorNeeds term = needsOf(config.operatorKind);
  const std::size_t table = size(stage.coefficientPlanes) * halfSpectrum() * sizeof(float);

  const auto allocate = [this](DeviceBuffer& buffer, std::size_t bytes) {
    buffer.allocate(bytes);
    statistics.allocatedBytes += bytes;
  };
  allocate(omega, spectrum);
  allocate(correction, spectrum);
  allocate(first, spectrum);
  allocate(padded, size(term.fields) * plane);
  allocate(base, stage.base ? spectrum : unusedSpectrum);
  allocate(middle, stage.middle ? spectrum : unusedSpectrum);
  allocate(predictor, stage.predictor ? spectrum : unusedSpectrum);
  allocate(coefficients, table > 0 ? table : unusedTable);
  allocate(clock, sizeof(ClockState));
  allocate(cflPartials, reductionBlocks * sizeof(V2));
  allocate(statPartials, reductionBlocks * sizeof(float4));
  allocate(snapshotSpectra, 3 * spectrum);
  allocate(snapshotPartials, 2 * reductionBlocks * sizeof(float4));
  for (std::shared_ptr<float>& block : fields) {
    block = allocateBlock(3 * samples());
    statistics.allocatedBytes += 3 * samples() * sizeof(float);
  }

  paddedPlan = std::make_unique<FftPlan>(m, true, s, n / 2, stream());
  gridPlan = std::make_unique<FftPlan>(n, true, w, 0, stream());
  paddedPlan->application(term.fields, padded.ptr);
  paddedPlan->application(term.products, padded.ptr);
  gridPlan->application(1, snapshotSpectra.ptr);
  gridPlan->application(3, snapshotSpectra.ptr);
  if (deviceIsSynchronous() && !usesSeparateKernels()) makeFusedStep();
}

void Solver::Impl::makeFusedStep() {
  try {
    fusedStep = std::make_unique<FusedStep>(n, config.operatorKind);
  } catch (const std::bad_alloc&) {
    check(cudaErrorMemoryAllocation, "cudaMalloc(&ptr,bytes)");
  }
}

Solver::Impl::~Impl() {
  cudaStreamSynchronize(stream());
}

std::size_t Solver::Impl::halfSpectrum() const {
  return size(n) * size(w);
}
std::size_t Solver::Impl::samples() const {
  return size(n) * size(n);
}

Params Solver::Impl::params(int stage, std::optional<double> end) const {
  const float endHigh = end ? static_cast<float>(*end) : 0.0f;
  const float endLow = end ? static_cast<float>(*end - static_cast<double>(endHigh)) : 0.0f;
  return {
      .resolution = static_cast<std::uint32_t>(n),
      .padded = static_cast<std::uint32_t>(m),
      .method = config.integrator,
      .stage = static_cast<std::uint32_t>(stage),
      .viscosity = viscosityOf(reynolds),
      .cfl = cfl,
      .fixedDt = config.fixed_dt,
      .scale = 1.0f / static_cast<float>(n * n),
      .endHigh = endHigh,
      .endLow = endLow,
      .hasEnd = end ? 1u : 0u,
      .blocks = reductionBlocks,
      .operatorKind = config.operatorKind,
  };
}

Solver::Solver(const Config& config, const std::vector<float>& samples) {
  checkConfig(config);
  impl_ = std::make_unique<Impl>(config);
  reset(samples);
}

Solver::~Solver() {
  const DeviceScope scope(impl_->device);
  impl_.reset();
}

Statistics Solver::advance(std::int32_t steps, std::optional<double> end) {
  const DeviceScope scope(impl_->device);
  return impl_->advance(steps, end);
}

Statistics Solver::inspect() {
  const DeviceScope scope(impl_->device);
  return impl_->inspect();
}

Statistics Solver::lastStats() const {
  return impl_->lastStats();
}

void Solver::setReynolds(double reynolds) {
  if (!isReynolds(reynolds)) throw std::invalid_argument("Re must be finite and positive.");
  impl_->reynolds = reynolds;
}

void Solver::setCFL(float cfl) {
  if (!isCfl(cfl)) throw std::invalid_argument("CFL must be finite and positive.");
  impl_->cfl = cfl;
}

const Config& Solver::config() const {
  return impl_->config;
}

void Solver::reset(const std::vector<float>& samples) {
  const DeviceScope scope(impl_->device);
  impl_->reset(samples);
}

std::shared_ptr<const Frame> Solver::snapshot(bool includeVelocity) {
  const DeviceScope scope(impl_->device);
  return impl_->snapshot(includeVelocity);
}

std::vector<V2> Solver::spectrum() const {
  const DeviceScope scope(impl_->device);
  return impl_->spectrum();
}

std::vector<float> Solver::copyFields(const Frame& f) const {
  const DeviceScope scope(impl_->device);
  return zeph::copyFields(f);
}

std::vector<float> copyFields(const Frame& f) {
  const std::size_t side = size(f.gridSize);
  std::vector<float> data(3 * side * side);
  check(cudaMemcpy(data.data(), f.data(), data.size() * sizeof(float), cudaMemcpyDeviceToHost),
        "cudaMemcpy(data.data(),f.data(),data.size()*sizeof(float),cudaMemcpyDeviceToHost)");
  return data;
}

}  // namespace zeph
