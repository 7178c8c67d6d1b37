// The transforms of one stage: inverse and forward on the padded grid, two fields at a time.
#include <benchmark/benchmark.h>

#include "bench/bytes_moved.h"
#include "bench/device_time.h"
#include "bench/flow.h"
#include "solver/fft_plan.h"

namespace zeph::bench {
namespace {

void paddedPair(benchmark::State& state) {
  orSkip(state, [&] {
    const int n = static_cast<int>(state.range(0));
    const Flow flow(n, Integrator::etdrk4, OperatorKind::stress);
    const int m = paddedResolution(n);
    FftPlan plan(m, true, paddedStride(m), n / 2, flow.queue.value);
    plan.application(2);
    // Transforms do not scale, so the field grows from round to round: fill it again.
    const auto fillAgain = [&] {
      velocityToPadded(flow.queue.value, flow.omega.as<V2>(), flow.padded.as<V2>(), flow.params(0));
    };
    timeOnDevice(state, flow.queue.value, fillAgain, [&] {
      plan.transform(flow.padded.ptr, 2, true);
      plan.transform(flow.padded.ptr, 2, false);
    });
    const auto bytes = static_cast<std::int64_t>(4 * GridBytes(n).transform());
    state.SetBytesProcessed(state.iterations() * bytes);
  });
}
BENCHMARK(paddedPair)
    ->Arg(256)
    ->Arg(512)
    ->Arg(1000)
    ->Arg(1024)
    ->Arg(1026)
    ->Arg(2048)
    ->Arg(4096)
    ->Arg(8192)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

}  // namespace
}  // namespace zeph::bench
