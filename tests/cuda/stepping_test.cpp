// Stepping on a GPU, where steps are queued before the host knows the clock.
#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "tests/cuda/cuda_device.h"
#include "tests/support/bits.h"
#include "tests/support/failures.h"
#include "tests/support/flows.h"
#ifdef ZEPHANE_EMULATED_GPU
#include "tests/emulation/emulated_gpu.h"
#endif

namespace zeph {
namespace {

// The largest number of steps queued before the clock is read.
constexpr int batch = 256;

class GpuStepping : public test::CudaDevice {};

void expectSameState(Solver& a, Solver& b) {
  EXPECT_TRUE(test::sameBits(a.spectrum(), b.spectrum()));
  EXPECT_EQ(a.lastStats().time, b.lastStats().time);
  EXPECT_EQ(a.lastStats().steps, b.lastStats().steps);
  EXPECT_EQ(a.lastStats().dt, b.lastStats().dt);
}

TEST_F(GpuStepping, AnEndInsideABatchStopsTheFlowThere) {
  for (const Integrator integrator : test::integrators) {
    Solver solver(test::fixedStep(0.0078125f, integrator));
    Solver counted(test::fixedStep(0.0078125f, integrator));
    // Void steps cost as much as others on slow GPUs, so only some are queued there.
    const Statistics stats = solver.advance(test::isEmulated ? 30 : batch, 10 * 0.0078125);
    EXPECT_EQ(stats.steps, 10u);
    EXPECT_EQ(stats.time, 10 * 0.0078125);
    counted.advance(10);
    expectSameState(solver, counted);
    // The void steps after the end changed nothing: both continue identically.
    solver.advance(5);
    counted.advance(5);
    expectSameState(solver, counted);
  }
}

TEST_F(GpuStepping, TheLastStepIsCutToLandOnTheEnd) {
  for (const double end : {0.1, 1.0 / 3.0, 0.0500001}) {
    Solver solver(test::fixedStep(0.03f));
    const Statistics stats = solver.advance(20, end);
    EXPECT_EQ(stats.time, test::asPair(end));
    EXPECT_EQ(stats.steps, static_cast<std::uint64_t>(std::ceil(end / 0.03)));
    EXPECT_LT(stats.dt, 0.03f);
  }
}

TEST_F(GpuStepping, AnAdaptiveFlowLandsOnTheEndToo) {
  for (const Integrator integrator : test::integrators) {
    Solver solver(test::configOf(16, integrator));
    EXPECT_EQ(solver.advance(40, 3.7).time, test::asPair(3.7));
    const float cut = solver.lastStats().dt;
    EXPECT_GT(solver.advance(1).dt, cut);
  }
}

TEST_F(GpuStepping, LandsOnEachOfSeveralEnds) {
  Solver solver(test::fixedStep(0.03f));
  for (const double end : {0.05, 0.12, 0.2, 0.31}) {
    EXPECT_EQ(solver.advance(10, end).time, test::asPair(end));
  }
  EXPECT_EQ(solver.lastStats().steps, 2u + 3u + 3u + 4u);
}

TEST_F(GpuStepping, LandsOnAnEndInTheSecondBatch) {
  Solver solver(test::fixedStep(0.0078125f));
#ifdef ZEPHANE_EMULATED_GPU
  const long before = emulation::callsOf("cudaEventElapsedTime");  // once per batch
#endif
  const Statistics stats = solver.advance(2000, 300 * 0.0078125);
  EXPECT_EQ(stats.steps, 300u);
  EXPECT_EQ(stats.time, 300 * 0.0078125);
#ifdef ZEPHANE_EMULATED_GPU
  EXPECT_EQ(emulation::callsOf("cudaEventElapsedTime") - before, 2);
#endif
}

TEST_F(GpuStepping, DoesNothingAtTheEnd) {
  Solver solver(test::fixedStep(0.03f));
  const Statistics first = solver.advance(10, 0.1);
  const std::vector<V2> before = solver.spectrum();
  for (const double end : {0.1, 0.05, 0.0}) {
    const Statistics again = solver.advance(10, end);
    EXPECT_EQ(again.steps, first.steps);
    EXPECT_EQ(again.gpuMilliseconds, first.gpuMilliseconds);
  }
  EXPECT_TRUE(test::sameBits(solver.spectrum(), before));
}

TEST_F(GpuStepping, DoesNotDependOnHowStepsAreSplitIntoCalls) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      Solver whole(test::configOf(16, integrator, operatorKind));
      Solver parts(test::configOf(16, integrator, operatorKind));
      whole.advance(24);
      for (const int steps : {1, 2, 3, 4, 1, 12, 1}) parts.advance(steps);
      expectSameState(whole, parts);
    }
  }
}

TEST_F(GpuStepping, DeviceTimeIsThatOfTheLastLoop) {
  Solver solver(test::configOf(test::isEmulated ? 16 : 32));
  EXPECT_EQ(solver.lastStats().gpuMilliseconds, 0.0);
  const double many = solver.advance(60).gpuMilliseconds;
  const double one = solver.advance(1).gpuMilliseconds;
  EXPECT_GT(one, 0.0);
  EXPECT_GT(many, one);
  EXPECT_EQ(solver.advance(0).gpuMilliseconds, one);
  solver.reset();
  EXPECT_EQ(solver.lastStats().gpuMilliseconds, 0.0);
}

TEST_F(GpuStepping, NewSettingsApplyFromTheNextStep) {
  Config config = test::configOf(32);
  config.reynolds = 1e12;
  Solver solver(config, test::wave(32, 2, 1, 1.0));
  // Enough steps for a graph to be recorded.
  const float start = solver.advance(16).dt;
  solver.setCFL(0.3f);
  EXPECT_NEAR(solver.advance(16).dt / start, 0.1f, 1e-5f);
  solver.setCFL(3.0f);
  EXPECT_NEAR(solver.advance(1).dt / start, 0.28f, 1e-5f);  // a fifth of the way
  const double before = solver.inspect().energy;
  const double time = solver.lastStats().time;
  solver.setReynolds(10.0);
  const double elapsed = solver.advance(16).time - time;
  EXPECT_NEAR(solver.inspect().energy / before, std::exp(-2 * 5 * 0.1 * elapsed), 1e-5);
}

TEST_F(GpuStepping, ChangesBetweenBatchesEqualChangesBetweenSteps) {
  Solver batches(test::configOf(16));
  Solver steps(test::configOf(16));
  for (const double reynolds : {1000.0, 50.0, 1000.0, 300.0}) {
    const float cfl = reynolds > 100 ? 2.0f : 0.5f;
    for (Solver* solver : {&batches, &steps}) {
      solver->setReynolds(reynolds);
      solver->setCFL(cfl);
    }
    batches.advance(12);
    for (int k = 0; k < 12; ++k) steps.advance(1);
    expectSameState(batches, steps);
  }
}

class GpuFailure : public test::CudaDevice {};

TEST_F(GpuFailure, IsReportedOnceAndThenLatchedWithAnotherBatchQueued) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      Config config = test::explosive(16);
      config.integrator = integrator;
      config.operatorKind = operatorKind;
      Solver solver(config);
      // On slow GPUs a few void steps are enough.
      const int steps = test::isEmulated ? 10 : batch;
      EXPECT_EQ(test::runtimeFailure([&] { solver.advance(steps); }), test::exploded);
      test::expectLatched(solver);
      EXPECT_EQ(test::badArgument([&] { solver.advance(-1); }), "Invalid steps or endpoint.");
      EXPECT_NO_THROW(solver.setReynolds(10.0));
    }
  }
}

TEST_F(GpuFailure, IsClearedCompletelyByAReset) {
  test::expectCleanFlowAfterAReset(test::isEmulated ? 10 : batch);
}

class GpuEngines : public test::CudaDevice {};

TEST_F(GpuEngines, OnSeveralThreadsDoNotAffectEachOther) {
  const auto configOf = [](std::size_t k) {
    Config config = test::configOf(k == 0 ? 32 : 18, test::integrators[k], test::operators[k]);
    config.seed = k;
    return config;
  };
  const std::vector<int> all = test::gpus();
  std::vector<std::vector<V2>> together(2);
  std::vector<std::thread> threads;
  for (std::size_t k = 0; k < together.size(); ++k) {
    threads.emplace_back([&, k] {
      cudaSetDevice(all[k % all.size()]);
      Solver solver(configOf(k));
      for (int part = 0; part < 8; ++part) {
        solver.advance(5);
        const auto frame = solver.snapshot(part % 2 == 0);
        solver.inspect();
      }
      together[k] = solver.spectrum();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t k = 0; k < together.size(); ++k) {
    Solver solver(configOf(k));
    solver.advance(40);
    EXPECT_TRUE(test::sameBits(solver.spectrum(), together[k])) << k;
  }
}

TEST_F(GpuEngines, StayOnTheirDeviceWhateverIsSelectedLater) {
  Solver still(test::configOf(18));
  still.advance(20);
  const DeviceScope elsewhere(test::processorDevice());
  Solver other(test::configOf(18));
  std::vector<V2> later;
  {
    const DeviceScope scope(gpu());
    auto made = std::make_unique<Solver>(test::configOf(18));
    const DeviceScope back(test::processorDevice());
    made->advance(12);
    other.advance(20);
    made->advance(8);
    made->inspect();
    later = made->spectrum();
    const auto frame = made->snapshot(true);
    EXPECT_EQ(made->copyFields(*frame), still.copyFields(*still.snapshot(true)));
    made->reset(test::still(18));
    made.reset();
    EXPECT_EQ(selectedDevice(), test::processorDevice());
  }
  EXPECT_TRUE(test::sameBits(later, still.spectrum()));
  EXPECT_FALSE(test::sameBits(later, other.spectrum()));  // the processor rounds differently
}

TEST_F(GpuEngines, MayMoveFromThreadToThread) {
  Solver still(test::configOf(18));
  still.advance(12);
  std::unique_ptr<Solver> moving;
  std::thread([&] {
    cudaSetDevice(gpu());
    moving = std::make_unique<Solver>(test::configOf(18));
  }).join();
  for (int k = 0; k < 3; ++k) std::thread([&] { moving->advance(4); }).join();
  EXPECT_TRUE(test::sameBits(moving->spectrum(), still.spectrum()));
  std::thread([&] {
    test::selectProcessor();
    moving.reset();
  }).join();
}

}  // namespace
}  // namespace zeph
