// Each kernel alone, at the resolution of the argument.
#include <benchmark/benchmark.h>

#include "bench/device_time.h"
#include "bench/flow.h"

namespace zeph::bench {
namespace {

constexpr OperatorKind stress = OperatorKind::stress;
constexpr OperatorKind advective = OperatorKind::advective;

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(256)->Arg(1024)->Arg(2048)->Arg(4096);
  b->Unit(benchmark::kMillisecond)->UseManualTime();
}

void velocity(benchmark::State& state, OperatorKind kind) {
  const Flow flow(static_cast<int>(state.range(0)), Integrator::etdrk4, kind);
  timeOnDevice(state, flow.queue.value, [&] {
    velocityToPadded(flow.queue.value, flow.omega.as<V2>(), flow.padded.as<V2>(), flow.params(0));
  });
}
BENCHMARK_CAPTURE(velocity, stress, stress)->Apply(sizes);
BENCHMARK_CAPTURE(velocity, advective, advective)->Apply(sizes);

void products(benchmark::State& state, OperatorKind kind) {
  const Flow flow(static_cast<int>(state.range(0)), Integrator::etdrk4, kind);
  timeOnDevice(state, flow.queue.value, [&] {
    nonlinearProducts(flow.queue.value, flow.padded.as<float>(), flow.params(1));
  });
}
BENCHMARK_CAPTURE(products, stress, stress)->Apply(sizes);
BENCHMARK_CAPTURE(products, advective, advective)->Apply(sizes);

void productsWithSpeedBound(benchmark::State& state) {
  const Flow flow(static_cast<int>(state.range(0)), Integrator::etdrk4, stress);
  timeOnDevice(state, flow.queue.value, [&] {
    reduceCFLAndProducts(flow.queue.value, flow.padded.as<float>(), flow.cflPartials.as<V2>(),
                         flow.params(0));
  });
}
BENCHMARK(productsWithSpeedBound)->Apply(sizes);

void stage(benchmark::State& state, Integrator integrator, int index) {
  const Flow flow(static_cast<int>(state.range(0)), integrator, stress);
  timeOnDevice(state, flow.queue.value,
               [&] { advanceStage(flow.queue.value, flow.stageArrays(), flow.params(index)); });
}
BENCHMARK_CAPTURE(stage, imexRK3_stage1, Integrator::imexRK3, 1)->Apply(sizes);
BENCHMARK_CAPTURE(stage, ifHeunRK3_stage0, Integrator::ifHeunRK3, 0)->Apply(sizes);
BENCHMARK_CAPTURE(stage, etdrk4_stage0, Integrator::etdrk4, 0)->Apply(sizes);
BENCHMARK_CAPTURE(stage, etdrk4_stage3, Integrator::etdrk4, 3)->Apply(sizes);

void statistics(benchmark::State& state) {
  const Flow flow(static_cast<int>(state.range(0)), Integrator::etdrk4, stress);
  timeOnDevice(state, flow.queue.value, [&] {
    spectralStatistics(flow.queue.value, flow.omega.as<V2>(), flow.partials.as<float4>(),
                       flow.params(0));
  });
}
BENCHMARK(statistics)->Apply(sizes);

void extract(benchmark::State& state) {
  const Flow flow(static_cast<int>(state.range(0)), Integrator::etdrk4, stress);
  timeOnDevice(state, flow.queue.value, [&] {
    prepareSnapshot(flow.queue.value, flow.omega.as<V2>(), flow.spectra.as<V2>(), flow.params(3));
    extractSnapshot(flow.queue.value, flow.spectra.as<float>(), flow.fields.as<float>(),
                    flow.partials.as<float4>(), flow.params(3));
  });
}
BENCHMARK(extract)->Apply(sizes);

}  // namespace
}  // namespace zeph::bench
