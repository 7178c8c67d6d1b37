// What a view costs its user's machine: a paused one in processor time, a running one in the steps
// that a solver without a view would have made in the same time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>
#include <stdexcept>
#include <thread>

#include "controller/controller.h"
#include "solver/solver.h"

namespace zeph::bench {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr int firstDevice = 0;
constexpr Seconds idle(4);
constexpr Seconds slice(1.5);

RunSettings settingsOf(const benchmark::State& state) {
  RunSettings run;
  run.config.resolution = static_cast<int>(state.range(0));
  run.config.reynolds = DefaultReynolds(run.config.resolution, run.config.k0);
  return run;
}

template <class Predicate>
void waitFor(const Controller& controller, Predicate holds) {
  for (;;) {
    const Status status = controller.status();
    if (holds(status)) return;
    if (!status.error_message.empty()) throw std::runtime_error(status.error_message);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

double processorSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// The share of one core that a view uses while it is paused.
void pausedView(benchmark::State& state) {
  RunSettings run = settingsOf(state);
  run.paused = true;
  Controller controller(run, firstDevice);
  waitFor(controller, [](const Status& status) { return status.settled; });
  for (auto _ : state) {
    const double before = processorSeconds();
    std::this_thread::sleep_for(idle);
    state.counters["share_of_a_core"] = (processorSeconds() - before) / idle.count();
  }
}
BENCHMARK(pausedView)->Arg(256)->Arg(1024)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

struct Measured {
  double steps = 0;
  double seconds = 0;
  double rate() const { return steps / seconds; }
};

void runBare(Solver& solver, Measured& bare) {
  const auto begin = std::chrono::steady_clock::now();
  const std::uint64_t before = solver.lastStats().steps;
  Seconds passed(0);
  do {
    solver.advance(8);
    passed = std::chrono::steady_clock::now() - begin;
  } while (passed < slice);
  bare.steps += static_cast<double>(solver.lastStats().steps - before);
  bare.seconds += passed.count();
}

void runView(Controller& controller, Measured& view) {
  const auto begin = std::chrono::steady_clock::now();
  const std::uint64_t before = controller.status().stats.steps;
  controller.setRunning(true);
  std::this_thread::sleep_for(slice);
  controller.setRunning(false);
  waitFor(controller, [](const Status& status) { return status.settled; });
  const Seconds passed = std::chrono::steady_clock::now() - begin;
  view.steps += static_cast<double>(controller.status().stats.steps - before);
  view.seconds += passed.count();
}

// A visible view at full speed, with its statistics, frames and short batches, alternating with a
// solver alone.
void runningView(benchmark::State& state, bool velocity) {
  RunSettings run = settingsOf(state);
  run.settings.flow = velocity;
  run.paused = true;
  Controller controller(run, firstDevice);
  waitFor(controller, [](const Status& status) { return status.settled; });
  Solver solver(run.config);
  for (auto _ : state) {
    Measured view, bare;
    for (int round = 0; round < 4; ++round) {
      runView(controller, view);
      runBare(solver, bare);
    }
    state.counters["steps_per_s"] = view.rate();
    state.counters["bare_steps_per_s"] = bare.rate();
    state.counters["of_bare"] = view.rate() / bare.rate();
  }
}
BENCHMARK_CAPTURE(runningView, plain, false)
    ->Arg(256)
    ->Arg(1024)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(runningView, velocity, true)
    ->Arg(256)
    ->Arg(1024)
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

}  // namespace
}  // namespace zeph::bench
