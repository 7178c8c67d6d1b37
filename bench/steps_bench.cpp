// Whole steps of a flow, and what comes before the first one.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>

#include "bench/bytes_moved.h"
#include "bench/copy_bandwidth.h"
#include "bench/device_time.h"
#include "kernels/fused_step.h"
#include "solver/solver.h"
#include "solver/start_spectra.h"

namespace zeph::bench {
namespace {

Config configOf(benchmark::State& state, Integrator integrator, OperatorKind kind) {
  Config config;
  config.resolution = static_cast<int>(state.range(0));
  config.reynolds = DefaultReynolds(config.resolution, config.k0);
  config.integrator = integrator;
  config.operatorKind = kind;
  return config;
}

// Enough steps that the cost of the call and of reading the clock is negligible.
int stepsAtOnce(Solver& solver) {
  constexpr double enough = 50;  // milliseconds
  solver.advance(1);             // makes what is made at first use
  const double one = solver.advance(1).gpuMilliseconds;
  const int steps = static_cast<int>(std::clamp(enough / one, 1.0, 256.0));
  solver.advance(steps);
  return steps;
}

// Reports, beside the time, steps per second, the bytes that a step must move, and its speed
// relative to copying as many bytes.
void step(benchmark::State& state, Integrator integrator, OperatorKind kind) {
  orSkip(state, [&] {
    const double bandwidth = copyBandwidth();
    Solver solver(configOf(state, integrator, kind));
    const int steps = stepsAtOnce(solver);
    const auto begin = std::chrono::steady_clock::now();
    while (state.KeepRunningBatch(steps)) solver.advance(steps);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    const double rate = static_cast<double>(state.iterations()) / taken.count();
    const auto bytes =
        static_cast<double>(bytesOfStep(solver.config().resolution, integrator, kind).total());
    state.counters["steps/s"] = rate;
    state.counters["GB/step"] = bytes * 1e-9;
    state.counters["of_copy"] = bytes * rate / bandwidth;
  });
}
BENCHMARK_CAPTURE(step, etdrk4_stress, Integrator::etdrk4, OperatorKind::stress)
    ->RangeMultiplier(2)
    ->Range(64, 8192)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(step, etdrk4_advective, Integrator::etdrk4, OperatorKind::advective)
    ->Arg(1024)
    ->Arg(4096)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(step, imexRK3_stress, Integrator::imexRK3, OperatorKind::stress)
    ->Arg(1024)
    ->Arg(4096)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(step, ifHeunRK3_stress, Integrator::ifHeunRK3, OperatorKind::stress)
    ->Arg(1024)
    ->Arg(4096)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The same on the processor by the kernels one after another.
void separateStep(benchmark::State& state) {
  useSeparateKernels(true);
  step(state, Integrator::etdrk4, OperatorKind::stress);
  useSeparateKernels(false);
}
BENCHMARK(separateStep)
    ->RangeMultiplier(2)
    ->Range(256, 4096)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void start(benchmark::State& state, StartSpectrum spectrum) {
  Config config = configOf(state, Integrator::etdrk4, OperatorKind::stress);
  config.start_spectrum = spectrum;
  for (auto _ : state) benchmark::DoNotOptimize(startSpectrum(config));
}
BENCHMARK_CAPTURE(start, PAO, StartSpectrum::PAO)->Arg(1024)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(start, KM3, StartSpectrum::KM3)->Arg(1024)->Unit(benchmark::kMillisecond);

void create(benchmark::State& state) {
  const Config config = configOf(state, Integrator::etdrk4, OperatorKind::stress);
  for (auto _ : state) Solver solver(config);
}
BENCHMARK(create)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->UseRealTime();

void snapshot(benchmark::State& state) {
  Solver solver(configOf(state, Integrator::etdrk4, OperatorKind::stress));
  for (auto _ : state) benchmark::DoNotOptimize(solver.snapshot(true));
}
BENCHMARK(snapshot)->Arg(1024)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace zeph::bench
