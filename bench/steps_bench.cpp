// Whole steps of a flow, and what comes before the first one.
#include <benchmark/benchmark.h>

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

void step(benchmark::State& state, Integrator integrator, OperatorKind kind) {
  Solver solver(configOf(state, integrator, kind));
  solver.advance(2);
  for (auto _ : state) solver.advance(1);
}
BENCHMARK_CAPTURE(step, etdrk4_stress, Integrator::etdrk4, OperatorKind::stress)
    ->RangeMultiplier(2)
    ->Range(256, 4096)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(step, etdrk4_advective, Integrator::etdrk4, OperatorKind::advective)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(step, imexRK3_stress, Integrator::imexRK3, OperatorKind::stress)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(step, ifHeunRK3_stress, Integrator::ifHeunRK3, OperatorKind::stress)
    ->Arg(1024)
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
