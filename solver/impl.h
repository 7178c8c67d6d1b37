// Everything that a solver owns. Its functions are in solver.cpp (what exists), reset.cpp (how it
// starts), step_driver.cpp (how it runs), diagnostics.cpp and snapshot.cpp (how it is read),
// state.cpp (how it is saved and continued).
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "kernels/fused_step.h"
#include "solver/device_resources.h"
#include "solver/fft_plan.h"
#include "solver/solver.h"
#include "solver/step_graph.h"

namespace zeph {

struct Solver::Impl {
  explicit Impl(const Config& start);
  ~Impl();
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  cudaStream_t stream() const { return queue.value; }
  void makeFusedStep();
  std::size_t halfSpectrum() const;  // elements
  std::size_t samples() const;       // N * N

  // The parameters of a launch, with the current Reynolds and Courant numbers.
  Params params(int stage, std::optional<double> end = std::nullopt) const;

  Statistics advance(std::int32_t steps, std::optional<double> end);
  void runBatches(std::int32_t steps, std::optional<double> end, double limit);
  float runBatch(int steps, std::optional<double> end);
  void runSteps(int steps, std::optional<double> end);
  void queueSteps(int steps, std::optional<double> end);
  void runStep(std::optional<double> end);
  void queueStage(int stage, std::optional<double> end);
  StageArrays stageArrays() const;
  void queueTerm(const Params& p);
  void queueTransformBack();
  void readClock();

  void reset(const std::vector<float>& values);
  void start(const std::vector<float>& values);
  void projectSamples(const std::vector<float>& values);
  void seedSpectrum();

  void requireHealth() const;
  Statistics lastStats() const;
  Statistics inspect();
  void reduceStatistics();

  std::shared_ptr<const Frame> snapshot(bool includeVelocity);
  std::shared_ptr<float> freeBlock() const;
  void complete(Frame& frame);

  std::vector<V2> spectrum() const;

  StateRecord state();
  void restore(const StateRecord& record);
  void copyFromDevice(std::vector<V2>& to, const DeviceBuffer& from) const;
  void copyToDevice(const DeviceBuffer& to, const std::vector<V2>& from) const;

  // Constructed in this order. The destructor waits for the stream before they are destroyed.
  Config config;
  int device;  // the one that was selected when the solver was made
  CudaQueue queue;
  TimingEvents events;
  std::unique_ptr<FftPlan> paddedPlan;   // the nonlinear term, side M
  std::unique_ptr<FftPlan> gridPlan;     // snapshots, side N
  std::unique_ptr<FftPlan> complexPlan;  // start from samples; made when first needed
  DeviceBuffer omega, correction, padded, base, first, middle, predictor, coefficients, clock,
      cflPartials, statPartials, snapshotSpectra, snapshotPartials;
  std::array<std::shared_ptr<float>, 3> fields;
  std::unique_ptr<FusedStep> fusedStep;  // null on devices that step by the kernels
  PinnedData pinned;
  StepGraph stepGraph;

  Statistics statistics;
  double reynolds;
  float cfl;
  int n, m, w, s;  // N, M, W, S
  bool failed = false;
};

}  // namespace zeph
