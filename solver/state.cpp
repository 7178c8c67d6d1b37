// Takes the state of a flow from its device, and puts one back. The other arrays of a solver carry
// nothing from one step to the next.
#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

#include "device/check.h"
#include "solver/impl.h"

namespace zeph {
namespace {

std::string textOf(float value) {
  std::array<char, 32> digits = {};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  return {digits.data(), end.ptr};
}

std::string stepOf(const Config& config) {
  return config.fixed_dt > 0 ? textOf(config.fixed_dt) : "adaptive";
}

[[noreturn]] void refuse(const std::string& what) {
  throw std::invalid_argument("State of another configuration: " + what + ".");
}

void require(const std::string& key, const std::string& state, const std::string& wanted) {
  if (state != wanted) refuse(key + " is " + state + ", not " + wanted);
}

}  // namespace

void requireSameFlow(const Config& state, const Config& wanted) {
  require("resolution", std::to_string(state.resolution), std::to_string(wanted.resolution));
  require("k0", std::to_string(state.k0), std::to_string(wanted.k0));
  require("seed", std::to_string(state.seed), std::to_string(wanted.seed));
  require("fixed_dt", stepOf(state), stepOf(wanted));
  require("integrator", nameOf(state.integrator), nameOf(wanted.integrator));
  require("operator", nameOf(state.operatorKind), nameOf(wanted.operatorKind));
  require("start_spectrum", nameOf(state.start_spectrum), nameOf(wanted.start_spectrum));
}

Solver::Solver(const StateRecord& state) {
  checkConfig(state.config);
  impl_ = std::make_unique<Impl>(state.config);
  restore(state);
}

StateRecord Solver::state() {
  const DeviceScope scope(impl_->device);
  return impl_->state();
}

void Solver::restore(const StateRecord& state) {
  const DeviceScope scope(impl_->device);
  impl_->restore(state);
}

StateRecord Solver::Impl::state() {
  requireHealth();
  cudaDeviceProp prop;
  check(cudaGetDeviceProperties(&prop, device), "cudaGetDeviceProperties(&prop,device)");
  StateRecord record = {.config = config,
                        .reynolds = reynolds,
                        .cfl = cfl,
                        .initialTurnoverTime = statistics.initialTurnoverTime,
                        .clock = pinned.data->hostClock,
                        .omega = std::vector<V2>(halfSpectrum()),
                        .correction = std::vector<V2>(halfSpectrum()),
                        .regulator = std::nullopt,
                        .device = prop.name};
  copyFromDevice(record.omega, omega);
  copyFromDevice(record.correction, correction);
  check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize(queue.value)");
  return record;
}

void Solver::Impl::restore(const StateRecord& record) {
  requireSameFlow(record.config, config);
  if (record.omega.size() != halfSpectrum() || record.correction.size() != halfSpectrum())
    refuse("its arrays have another size");
  if (!isReynolds(record.reynolds) || !isCfl(record.cfl)) refuse("its settings are out of range");
  failed = false;
  try {
    reynolds = record.reynolds;
    cfl = record.cfl;
    copyToDevice(omega, record.omega);
    copyToDevice(correction, record.correction);
    check(
        cudaMemcpyAsync(clock.ptr, &record.clock, clock.bytes, cudaMemcpyHostToDevice, queue.value),
        "cudaMemcpyAsync(clock.ptr,&record.clock,clock.bytes,cudaMemcpyHostToDevice,queue.value)");
    statistics.gpuMilliseconds = 0;
    statistics.initialTurnoverTime = record.initialTurnoverTime;
    readClock();
    inspect();
  } catch (...) {
    failed = true;
    throw;
  }
}

void Solver::Impl::copyFromDevice(std::vector<V2>& to, const DeviceBuffer& from) const {
  check(cudaMemcpyAsync(to.data(), from.ptr, from.bytes, cudaMemcpyDeviceToHost, queue.value),
        "cudaMemcpyAsync(to.data(),from.ptr,from.bytes,cudaMemcpyDeviceToHost,queue.value)");
}

void Solver::Impl::copyToDevice(const DeviceBuffer& to, const std::vector<V2>& from) const {
  check(cudaMemcpyAsync(to.ptr, from.data(), to.bytes, cudaMemcpyHostToDevice, queue.value),
        "cudaMemcpyAsync(to.ptr,from.data(),to.bytes,cudaMemcpyHostToDevice,queue.value)");
}

}  // namespace zeph
