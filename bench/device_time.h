// Timing that is correct whether a device does its work at once or only queues it.
#pragma once

#include <benchmark/benchmark.h>

#include <exception>
#include <vector>

#include "device/check.h"
#include "solver/device_resources.h"

namespace zeph::bench {

// How often the work is queued before waiting for the device: often enough that each launch happens
// while the device still works on the one before.
inline int roundsAtOnce() {
  return deviceIsSynchronous() ? 1 : 32;
}

inline double secondsBetween(const TimingEvents& events) {
  float milliseconds = 0;
  check(cudaEventElapsedTime(&milliseconds, events.begin, events.end), "cudaEventElapsedTime");
  return static_cast<double>(milliseconds) * 1e-3;
}

inline void finish(cudaStream_t stream) {
  check(cudaGetLastError(), "cudaGetLastError");
  check(cudaStreamSynchronize(stream), "cudaStreamSynchronize");
}

// Runs the iterations of a benchmark with manual time: `work` queues one on the stream. The time is
// measured by the device's own clock.
template <class Work>
void timeOnDevice(benchmark::State& state, cudaStream_t stream, Work work) {
  const TimingEvents events;
  const int rounds = roundsAtOnce();
  work();  // loads what is loaded at first use
  finish(stream);
  while (state.KeepRunningBatch(rounds)) {
    check(cudaEventRecord(events.begin, stream), "cudaEventRecord");
    for (int round = 0; round < rounds; ++round) work();
    check(cudaEventRecord(events.end, stream), "cudaEventRecord");
    finish(stream);
    state.SetIterationTime(secondsBetween(events));
  }
}

// The same with `prepare` queued before each iteration, and not timed.
template <class Prepare, class Work>
void timeOnDevice(benchmark::State& state, cudaStream_t stream, Prepare prepare, Work work) {
  const std::vector<TimingEvents> events(static_cast<std::size_t>(roundsAtOnce()));
  prepare();
  work();
  finish(stream);
  while (state.KeepRunningBatch(roundsAtOnce())) {
    for (const TimingEvents& round : events) {
      prepare();
      check(cudaEventRecord(round.begin, stream), "cudaEventRecord");
      work();
      check(cudaEventRecord(round.end, stream), "cudaEventRecord");
    }
    finish(stream);
    double seconds = 0;
    for (const TimingEvents& round : events) seconds += secondsBetween(round);
    state.SetIterationTime(seconds);
  }
}

// A grid that the device's memory cannot hold ends its benchmark, not the program.
template <class Body>
void orSkip(benchmark::State& state, Body body) {
  try {
    body();
  } catch (const std::exception& failure) {
    state.SkipWithError(failure.what());
  }
}

}  // namespace zeph::bench
