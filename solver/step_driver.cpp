// Time stepping on the host. The host never reads the flow: it queues steps in batches and reads
// the clock once per batch.
#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "device/check.h"
#include "kernels/kernels.h"
#include "solver/endpoint.h"
#include "solver/impl.h"

namespace zeph {
namespace {

constexpr std::int32_t batchLimit = 256;  // steps between two reads of the clock

// On grids up to about this size launches take longer than the work, so a step is recorded and
// replayed as one launch. Recording costs a few steps, so a shorter batch is not worth it.
constexpr int largestRecorded = 2048;
constexpr std::int32_t leastReplays = 4;

void checkRequest(std::int32_t steps, std::optional<double> end) {
  const bool endIsTime =
      !end || (std::isfinite(*end) && *end >= 0 && std::isfinite(static_cast<float>(*end)));
  if (steps < 0 || !endIsTime) throw std::invalid_argument("Invalid steps or endpoint.");
}

}  // namespace

Statistics Solver::Impl::advance(std::int32_t steps, std::optional<double> end) {
  checkRequest(steps, end);
  requireHealth();
  if (steps == 0) return lastStats();
  const double limit = end ? reachedFrom(*end) : std::numeric_limits<double>::infinity();
  if (statistics.time >= limit) return lastStats();
  try {
    runBatches(steps, end, limit);
  } catch (...) {
    failed = true;
    throw;
  }
  return lastStats();
}

void Solver::Impl::runBatches(std::int32_t steps, std::optional<double> end, double limit) {
  float milliseconds = 0;
  for (std::int32_t remaining = steps; remaining >= 1;) {
    const std::int32_t batch = std::min(remaining, batchLimit);
    milliseconds += runBatch(batch, end);
    remaining -= batch;
    // noStep: the endpoint is reached; further batches would be void.
    if (statistics.time >= limit || pinned.data->hostClock.stepState == noStep) break;
  }
  statistics.gpuMilliseconds = static_cast<double>(milliseconds);
}

float Solver::Impl::runBatch(int steps, std::optional<double> end) {
  check(cudaEventRecord(events.begin, stream()), "cudaEventRecord(s.events.begin,stream())");
  if (deviceIsSynchronous()) {
    runSteps(steps, end);
  } else {
    queueSteps(steps, end);
  }
  check(cudaEventRecord(events.end, stream()), "cudaEventRecord(s.events.end,stream())");
  readClock();
  float ms = 0;
  check(cudaEventElapsedTime(&ms, events.begin, events.end),
        "cudaEventElapsedTime(&ms,s.events.begin,s.events.end)");
  return ms;
}

// On a synchronous device the clock can be read after each step, so the void steps after a final or
// a failed one are not run.
void Solver::Impl::runSteps(int steps, std::optional<double> end) {
  if (fusedStep) {
    const FusedArrays arrays = {stageArrays(), padded.as<V2>(), snapshotSpectra.as<V2>(),
                                cflPartials.as<V2>()};
    return fusedStep->run(arrays, params(0, end), steps);
  }
  const ClockState& now = *clock.as<const ClockState>();
  for (int step = 0; step < steps; ++step) {
    runStep(end);
    if (now.stepState != normalStep || now.healthy == 0) return;
  }
}

void Solver::Impl::queueSteps(int steps, std::optional<double> end) {
  const Params step = params(0, end);
  int queued = 0;
  if (n <= largestRecorded && steps >= leastReplays && !stepGraph.holds(step)) {
    // Run a step before recording one, so that whatever its kernels still have to load is loaded by
    // then.
    runStep(end);
    ++queued;
    stepGraph.record(stream(), step, [&] { runStep(end); });
  }
  const bool replayed = stepGraph.holds(step);
  for (; queued < steps; ++queued) {
    if (replayed) {
      stepGraph.launch(stream());
    } else {
      runStep(end);
    }
  }
}

void Solver::Impl::runStep(std::optional<double> end) {
  const int stages = needsOf(config.integrator).stages;
  for (int stage = 0; stage < stages; ++stage) queueStage(stage, end);
  commitStep(stream(), clock.as<ClockState>(), params(0, end));
}

void Solver::Impl::queueStage(int stage, std::optional<double> end) {
  const Params p = params(stage, end);
  queueTerm(p);
  queueTransformBack();
  advanceStage(stream(), stageArrays(), p);
}

StageArrays Solver::Impl::stageArrays() const {
  return {
      .omega = omega.as<V2>(),
      .padded = padded.as<const V2>(),
      .base = base.as<V2>(),
      .first = first.as<V2>(),
      .middle = middle.as<V2>(),
      .predictor = predictor.as<V2>(),
      .coefficients = coefficients.as<float>(),
      .clock = clock.as<ClockState>(),
      .correction = correction.as<V2>(),
  };
}

// The products of the nonlinear term in physical space; at stage 0 also the time step.
void Solver::Impl::queueTerm(const Params& p) {
  velocityToPadded(stream(), omega.as<const V2>(), padded.as<V2>(), p);
  paddedPlan->transform(padded.ptr, needsOf(config.operatorKind).fields, true);
  if (p.stage == 0) {
    reduceCFLAndProducts(stream(), padded.as<float>(), cflPartials.as<V2>(), p);
    selectTimeStep(stream(), cflPartials.as<const V2>(), clock.as<ClockState>(), p);
  } else {
    nonlinearProducts(stream(), padded.as<float>(), p);
  }
}

void Solver::Impl::queueTransformBack() {
  paddedPlan->transform(padded.ptr, needsOf(config.operatorKind).products, false);
}

void Solver::Impl::readClock() {
  check(cudaGetLastError(queue.value), "cudaGetLastError()");
  ClockState& hostClock = pinned.data->hostClock;
  check(cudaMemcpyAsync(&hostClock, clock.ptr, sizeof(hostClock), cudaMemcpyDeviceToHost,
                        queue.value),
        "cudaMemcpyAsync(&hostClock,clock.ptr,sizeof(hostClock),cudaMemcpyDeviceToHost,"
        "queue.value)");
  check(cudaStreamSynchronize(queue.value), "cudaStreamSynchronize(queue.value)");
  if (hostClock.healthy == 0) {
    throw std::runtime_error("The solver encountered a non-finite field or timestep.");
  }
  statistics.time =
      static_cast<double>(hostClock.timeLow) + static_cast<double>(hostClock.timeHigh);
  statistics.steps = hostClock.steps;
  statistics.dt = hostClock.dt;
  statistics.reynolds = reynolds;
  if (!std::isfinite(statistics.time) || !std::isfinite(statistics.dt)) {
    throw std::runtime_error("Non-finite clock.");
  }
}

}  // namespace zeph
