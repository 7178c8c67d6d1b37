// A solver's arrays by themselves, so that single kernels can be timed on a real flow.
#pragma once

#include <cstddef>
#include <vector>

#include "device/check.h"
#include "kernels/kernels.h"
#include "solver/config_record.h"
#include "solver/device_resources.h"
#include "solver/start_spectra.h"

namespace zeph::bench {

struct Flow {
  Flow(int resolution, Integrator integrator, OperatorKind operatorKind) {
    config.resolution = resolution;
    config.integrator = integrator;
    config.operatorKind = operatorKind;
    const std::size_t n = static_cast<std::size_t>(resolution);
    const std::size_t half = n * static_cast<std::size_t>(halfWidth(resolution));
    const std::size_t m = static_cast<std::size_t>(paddedResolution(resolution));
    const std::size_t plane = m * static_cast<std::size_t>(paddedStride(static_cast<int>(m)));
    for (DeviceBuffer* buffer : {&omega, &base, &first, &middle, &predictor, &correction}) {
      allocateZero(*buffer, half * sizeof(V2));
    }
    allocateZero(coefficients, static_cast<std::size_t>(mostCoefficients) * half * sizeof(float));
    allocateZero(padded, static_cast<std::size_t>(mostFields) * plane * sizeof(V2));
    allocateZero(spectra, 3 * half * sizeof(V2));
    allocateZero(fields, 3 * n * n * sizeof(float));
    allocateZero(clock, sizeof(ClockState));
    allocateZero(cflPartials, reductionBlocks * sizeof(V2));
    allocateZero(partials, 2 * reductionBlocks * sizeof(float4));

    fill(omega, startSpectrum(config).data());
    ClockState running = {};
    running.dt = running.rawDt = 1e-4f;
    running.healthy = 1;
    running.stepState = normalStep;
    fill(clock, &running);
  }

  Params params(int stage) const {
    const std::uint32_t n = static_cast<std::uint32_t>(config.resolution);
    return {.resolution = n,
            .padded = static_cast<std::uint32_t>(paddedResolution(config.resolution)),
            .method = config.integrator,
            .stage = static_cast<std::uint32_t>(stage),
            .viscosity = viscosityOf(config.reynolds),
            .cfl = config.cfl,
            .fixedDt = 0,
            .scale = 1.0f / static_cast<float>(n * n),
            .endHigh = 0,
            .endLow = 0,
            .hasEnd = 0,
            .blocks = reductionBlocks,
            .operatorKind = config.operatorKind};
  }

  StageArrays stageArrays() const {
    return {.omega = omega.as<V2>(),
            .padded = padded.as<const V2>(),
            .base = base.as<V2>(),
            .first = first.as<V2>(),
            .middle = middle.as<V2>(),
            .predictor = predictor.as<V2>(),
            .coefficients = coefficients.as<float>(),
            .clock = clock.as<ClockState>(),
            .correction = correction.as<V2>()};
  }

  Config config;
  CudaQueue queue;
  DeviceBuffer omega, base, first, middle, predictor, correction, coefficients, padded, spectra,
      fields, clock, cflPartials, partials;

 private:
  static constexpr int mostCoefficients = needsOf(Integrator::etdrk4).coefficientPlanes;
  static constexpr int mostFields = needsOf(OperatorKind::advective).fields;

  void allocateZero(DeviceBuffer& buffer, std::size_t bytes) {
    buffer.allocate(bytes);
    check(cudaMemsetAsync(buffer.ptr, 0, bytes, queue.value), "cudaMemsetAsync");
  }

  void fill(const DeviceBuffer& buffer, const void* content) {
    check(cudaMemcpyAsync(buffer.ptr, content, buffer.bytes, cudaMemcpyHostToDevice, queue.value),
          "cudaMemcpyAsync");
    check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize");
  }
};

}  // namespace zeph::bench
