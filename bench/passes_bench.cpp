// The passes of the processor's step, each alone and on all threads: how far it is from the
// bandwidth of the memory (of_copy) and from the machine's arithmetic (Gflop/s, with the customary
// 5 n log2 n operations of a complex transform of n points and none for the rest).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <string_view>

#include "bench/copy_bandwidth.h"
#include "bench/flow.h"
#include "device/cpu/instruction_set.h"
#include "device/cpu/thread_pool.h"
#include "kernels/processor/fused_pass.h"

namespace zeph::bench {
namespace {

class Passes {
 public:
  explicit Passes(int resolution)
      : flow_(resolution, Integrator::etdrk4, OperatorKind::stress),
        passes_(cpu::forInstructionSet(cpu::sse2::fusedPasses, cpu::avx2::fusedPasses,
                                       cpu::avx512::fusedPasses)),
        plan_(resolution / 2) {
    pass_.line = &plan_.tables();
    pass_.arrays = flow_.stageArrays();
    pass_.state = pass_.arrays.base;
    pass_.correction = flow_.spectra.as<V2>();
    pass_.work = flow_.padded.as<float>();
    pass_.clock = flow_.clock.as<ClockState>();
    pass_.speedBound = flow_.cflPartials.as<V2>();
    pass_.p = flow_.params(0);
    pass_.rowTiles = cpu::fusedTiles(length(), passes_.lanes);
    pass_.scratchFloats = 2 * cpu::fusedTileFloats(pass_, passes_.lanes);
    const auto threads = static_cast<std::size_t>(cpu::ThreadPool::shared().participants());
    scratch_ = cpu::DeviceFloats(threads * pass_.scratchFloats);
    pass_.scratch = scratch_.get();
    run(passes_.firstColumns, columnTiles());
  }

  void rows() { run(passes_.rows, pass_.rowTiles); }
  void columns() { run(passes_.columns, columnTiles()); }
  void coefficients() { run(passes_.coefficients, columnTiles()); }
  void setStage(std::uint32_t stage) { pass_.p.stage = stage; }

  int half() const { return pass_.line->half; }
  int length() const { return pass_.line->length; }
  double planeBytes() const { return 2.0 * length() * half() * sizeof(V2); }

 private:
  int columnTiles() const { return cpu::fusedTiles(half(), passes_.lanes); }
  void run(cpu::FusedPasses::Task task, int tiles) {
    struct Context {
      const cpu::FusedPass& pass;
      cpu::FusedPasses::Task task;
    } context = {pass_, task};
    cpu::ThreadPool::shared().run(
        tiles,
        [](void* pointer, int index, int participant) {
          const Context& c = *static_cast<const Context*>(pointer);
          c.task(c.pass, index, participant);
        },
        &context);
  }

  Flow flow_;
  cpu::FusedPasses passes_;
  cpu::PaddedPlan plan_;
  cpu::FusedPass pass_;
  cpu::DeviceFloats scratch_;
};

void pass(benchmark::State& state, const char* name, int stage) {
  if (!deviceIsSynchronous()) return state.SkipWithError("only on the processor");
  const double bandwidth = copyBandwidth();
  Passes passes(static_cast<int>(state.range(0)));
  passes.setStage(static_cast<std::uint32_t>(stage));
  const bool isRows = std::string_view(name) == "rows";
  const auto begin = std::chrono::steady_clock::now();
  for (auto _ : state) {
    if (isRows) {
      passes.rows();
    } else {
      passes.columns();
    }
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  const double rate = static_cast<double>(state.iterations()) / taken.count();
  // The planes there and back, and for columns a quarter of what a step's updates access.
  const double modes = 2.0 * passes.half() * passes.half();
  const double update = modes * (sizeof(V2) * 19 + sizeof(float) * 10) / 4;
  const double bytes = 2 * passes.planeBytes() + (isRows ? 0 : update);
  const double length = passes.length();
  const double lines = 2 * (isRows ? length : 2.0 * passes.half());
  state.counters["of_copy"] = bytes * rate / bandwidth;
  state.counters["Gflop/s"] = lines * 5 * length * std::log2(length) * rate * 1e-9;
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(256)->Arg(512)->Arg(1024)->Arg(2048)->Arg(4096);
  b->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK_CAPTURE(pass, rows, "rows", 1)->Apply(sizes);
BENCHMARK_CAPTURE(pass, columns_stage1, "columns", 1)->Apply(sizes);
BENCHMARK_CAPTURE(pass, columns_stage3, "columns", 3)->Apply(sizes);

void coefficients(benchmark::State& state) {
  if (!deviceIsSynchronous()) return state.SkipWithError("only on the processor");
  Passes passes(static_cast<int>(state.range(0)));
  for (auto _ : state) passes.coefficients();
}
BENCHMARK(coefficients)->Apply(sizes);

}  // namespace
}  // namespace zeph::bench
