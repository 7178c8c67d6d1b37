#include "controller/simulation.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>

#include "controller/controller.h"
#include "controller/performance.h"
#include "controller/regulator.h"
#include "device/check.h"
#include "platform/thread_environment.h"
#include "solver/endpoint.h"
#include "solver/raw_files.h"
#include "solver/solver.h"
#include "solver/state_file.h"

namespace zeph {
namespace {

constexpr double statisticsSeconds = 0.25;  // between two refreshes while the flow runs

// A batch about to be run.
struct Batch {
  std::int32_t steps = 1;
  std::optional<double> until;
  bool single = false;
  bool stepLimited = false;
};

bool needsNewSolver(const Config& made, const Config& wanted) {
  return !(made.resolution == wanted.resolution && made.k0 == wanted.k0 &&
           made.seed == wanted.seed && made.fixed_dt == wanted.fixed_dt &&
           made.integrator == wanted.integrator && made.operatorKind == wanted.operatorKind &&
           made.start_spectrum == wanted.start_spectrum && !std::isnan(wanted.reynolds) &&
           !std::isnan(wanted.cfl));
}

void writeResultFiles(Solver& solver, const RunSettings& run) {
  if (!run.spectrum.empty()) writeRawFile(run.spectrum, solver.spectrum());
  if (run.field.empty()) return;
  const auto frame = solver.snapshot(true);
  if (!frame) throw std::runtime_error("No snapshot slot.");
  writeRawFile(run.field, solver.copyFields(*frame));
}

// The state of one generation; a rebuild starts with a new one.
struct Generation {
  bool built = false;     // the solver has the flow of this generation
  bool failed = false;    // the solver is not used again in this generation
  bool finished = false;  // a run limit has been reached
  bool frameDue = true;   // a frame is due out of turn, whatever the grid of frames says
  bool statsDue = true;
  bool wasRunning = false;  // in the pass before
  Statistics stats;
  Statistics firstStats;
  double lastStatsTime = 0;
  double simulatedSeconds = 0;  // in free running
  double gpuSeconds = 0;
  std::uint32_t batchCount = 0;
  std::uint32_t frameCount = 0;
  Pace pace;
  WallClock wall;
  FrameGrid frames;
  RateWindow window;
  Rates rates;
  Regulator regulator;
  std::vector<double> history;
};

class Simulation {
 public:
  Simulation(Controller& controller, const Clock& clock) : controller_(controller), now_(clock) {}

  void run();

 private:
  void pass();
  void rebuild();
  void restart(const std::vector<float>& samples);
  void goOnFrom(const StateRecord& state);
  StateRecord state();
  void answerStateRequests();
  void takeEpochs();
  void takeRunningEdge();
  void refreshStatistics();
  std::shared_ptr<const Frame> dueFrame();
  bool publish(const std::shared_ptr<const Frame>& frame);
  void idle();
  Batch planBatch(bool single) const;
  void runBatch(bool single);
  void account(const Batch& batch, double seconds, double before);
  bool settleBatch(const Batch& batch, double now);
  bool isOver(const Batch& batch, double now) const;
  void closeWindow(double now);
  void fail(const char* text);

  Controller& controller_;
  const Clock& now_;
  Control control_;
  RunSettings run_;
  std::uint64_t seenGeneration_ = 0;
  std::uint64_t seenParameterEpoch_ = 0;
  std::uint64_t seenRegulationEpoch_ = 0;
  std::uint64_t seenDisplayEpoch_ = 0;
  std::unique_ptr<Solver> solver_;
  Generation g_;
};

void Simulation::run() {
  for (;;) {
    control_ = controller_.control();
    if (control_.stopRequested) return;
    try {
      pass();
    } catch (const std::exception& failure) {
      fail(failure.what());
    }
  }
}

// The early returns are for a generation that has changed in the meantime.
void Simulation::pass() {
  if (control_.generation != seenGeneration_) rebuild();
  if (!controller_.ifCurrent(seenGeneration_,
                             [this](const Control& control, Status&) { control_ = control; }))
    return;
  takeEpochs();
  answerStateRequests();
  takeRunningEdge();
  std::shared_ptr<const Frame> frame;
  if (!g_.failed) {
    if (g_.statsDue) refreshStatistics();
    frame = dueFrame();
  }
  if (!publish(frame)) return;
  const bool wanted = control_.running || control_.pendingSteps > 0;
  if (g_.failed || g_.finished || !wanted) {
    idle();
  } else {
    runBatch(control_.pendingSteps > 0);
  }
}

void Simulation::rebuild() {
  control_ = controller_.control(run_);
  seenGeneration_ = control_.generation;
  g_ = Generation();
  if (run_.state.empty()) {
    restart(loadInitialFile(control_.config.resolution, run_.initial));
  } else {
    goOnFrom(readStateFile(run_.state));
  }
  g_.built = true;
  g_.stats = solver_->inspect();
  g_.firstStats = g_.stats;
  seenParameterEpoch_ = control_.parameterEpoch;
  seenRegulationEpoch_ = control_.regulationEpoch;
  g_.window.start = now_();
}

// Reuses the solver where only the start of the flow has to be set up again. Otherwise frees the
// old one first: two may not fit in memory together.
void Simulation::restart(const std::vector<float>& samples) {
  if (solver_ && !needsNewSolver(solver_->config(), control_.config)) {
    solver_->setReynolds(control_.config.reynolds);
    solver_->setCFL(control_.config.cfl);
    solver_->reset(samples);
    return;
  }
  solver_.reset();
  solver_ = std::make_unique<Solver>(control_.config, samples);
}

// The Reynolds and the Courant number are those of the view. But a regulated view takes up the
// number that the regulator of the state had reached.
void Simulation::goOnFrom(const StateRecord& state) {
  requireSameFlow(state.config, control_.config);
  if (solver_ && !needsNewSolver(solver_->config(), control_.config)) {
    solver_->restore(state);
  } else {
    solver_.reset();
    solver_ = std::make_unique<Solver>(state);
  }
  solver_->setCFL(control_.config.cfl);
  if (control_.regulated && state.regulator) {
    g_.regulator = Regulator(*state.regulator);
  } else {
    solver_->setReynolds(control_.config.reynolds);
  }
}

StateRecord Simulation::state() {
  if (!g_.built) throw std::runtime_error(noFlowToSave);
  StateRecord state = solver_->state();
  state.config = control_.config;
  if (control_.regulated) state.regulator = g_.regulator.record();
  return state;
}

void Simulation::answerStateRequests() {
  for (auto& request : controller_.takeStateRequests()) {
    try {
      request.set_value(state());
    } catch (...) {
      request.set_exception(std::current_exception());
    }
  }
}

// Epochs are marked as seen before they are acted on, so that a value that the solver refuses is
// not tried again.
void Simulation::takeEpochs() {
  const bool switched = control_.regulationEpoch != seenRegulationEpoch_;
  const bool changed = control_.parameterEpoch != seenParameterEpoch_;
  if (switched) g_.regulator = Regulator();
  if (control_.displayEpoch != seenDisplayEpoch_) g_.frameDue = true;
  seenRegulationEpoch_ = control_.regulationEpoch;
  seenParameterEpoch_ = control_.parameterEpoch;
  seenDisplayEpoch_ = control_.displayEpoch;
  if (!changed || !solver_) return;
  solver_->setCFL(control_.config.cfl);
  // Regulation starts from the configured number; after that the regulator alone changes it.
  if (!control_.regulated || switched) solver_->setReynolds(control_.config.reynolds);
}

// Handles a start, and a pause that came between two batches. One that came during a batch has been
// handled at its end.
void Simulation::takeRunningEdge() {
  if (!control_.running) {
    g_.wall.close(now_());
    g_.statsDue = g_.statsDue || g_.wasRunning;
  } else if (!g_.wasRunning) {
    g_.window = {now_(), static_cast<double>(g_.stats.steps)};
    g_.finished = false;
  }
  g_.wasRunning = control_.running;
}

void Simulation::refreshStatistics() {
  g_.stats = solver_->inspect();
  g_.lastStatsTime = now_();
  g_.statsDue = false;
  if (control_.regulated) {
    const auto reynolds = g_.regulator.sample(g_.stats.palinstrophyRatio, g_.stats.reynolds,
                                              control_.config.resolution, control_.config.k0);
    if (reynolds) {
      solver_->setReynolds(*reynolds);
      g_.stats.reynolds = *reynolds;
    }
  }
  addToHistory(g_.history, g_.stats.energy);
}

// Null if no frame is due or no block is free for one.
std::shared_ptr<const Frame> Simulation::dueFrame() {
  if (!control_.visible) return nullptr;
  const bool moving = control_.running || control_.pendingSteps > 0;
  if (!g_.frameDue && !(moving && g_.frames.isDue(now_()))) return nullptr;
  auto frame = solver_->snapshot(control_.velocityNeeded);
  if (frame) {
    g_.frameCount += 1;
    g_.frameDue = false;
  }
  g_.frames.advance(now_());
  return frame;
}

// Publishes a frame together with the statistics of the same step.
bool Simulation::publish(const std::shared_ptr<const Frame>& frame) {
  const double elapsed = g_.wall.at(now_());
  return controller_.ifCurrent(seenGeneration_, [&](const Control& control, Status& status) {
    if (frame) {
      status.frame = frame;
      status.ready = true;
    }
    status.stats = g_.stats;
    if (!control.regulated) status.stats.reynolds = control.config.reynolds;
    status.firstStats = g_.firstStats;
    status.history = g_.history;
    status.elapsedSeconds = elapsed;
    status.gpuSeconds = g_.gpuSeconds;
    status.batchCount = g_.batchCount;
    status.frameCount = g_.frameCount;
    status.batchSteps = g_.pace.batchSteps;
    status.finished = g_.finished;
    // A paused view goes on showing its last rates.
    if (!control.running) return;
    status.simtimePerSecond = g_.rates.simtimePerSecond;
    status.turnoversPerSecond = g_.rates.turnoversPerSecond;
    status.stepsPerSecond = g_.rates.stepsPerSecond;
  });
}

void Simulation::idle() {
  g_.wall.close(now_());
  controller_.waitForChange(control_);
}

Batch Simulation::planBatch(bool single) const {
  Batch batch;
  batch.single = single;
  if (single) return batch;
  batch.steps = run_.fixedBatch ? run_.batch : g_.pace.batchSteps;
  if (!run_.fixedBatch && control_.visible && g_.frames.next > 0) {
    // Let the batch of a visible view end about when the next frame is due.
    const double left = std::max(g_.frames.next - now_(), 0.0) / g_.pace.secondsPerStep;
    batch.steps = static_cast<std::int32_t>(
        std::clamp(left, 1.0, static_cast<double>(std::max(batch.steps, 1))));
  }
  if (!control_.stopRulesArmed) return batch;
  batch.until = run_.until;
  if (run_.untilTurnovers) batch.until = g_.firstStats.initialTurnoverTime * *run_.untilTurnovers;
  batch.stepLimited = run_.stepLimited && !batch.until && run_.wallSeconds == 0;
  if (batch.stepLimited) {
    const auto steps = static_cast<std::int32_t>(g_.stats.steps);
    batch.steps = std::min(batch.steps, std::max(run_.stepLimit - steps, 0));
  }
  return batch;
}

void Simulation::runBatch(bool single) {
  if (single && !controller_.ifCurrent(seenGeneration_, [](Control& control, Status&) {
        // It may be 0: a pause that came in between has dropped the pending steps.
        if (control.pendingSteps > 0) control.pendingSteps -= 1;
      }))
    return;
  const Batch batch = planBatch(single);
  const double begin = now_();
  if (single) {
    g_.wall.close(begin);
  } else {
    g_.wall.open(begin);
  }
  const double before = g_.stats.time;
  g_.stats = solver_->advance(batch.steps, batch.until);
  const double end = now_();
  account(batch, end - begin, before);
  if (!settleBatch(batch, end)) return;
  if (!single && g_.window.isOver(end)) closeWindow(end);
  g_.frameDue = g_.frameDue || g_.frames.isDue(end) || single || g_.finished;
}

void Simulation::account(const Batch& batch, double seconds, double before) {
  const double after = g_.stats.time;
  if (!batch.single && std::isfinite(after) && after >= before)
    g_.simulatedSeconds += after - before;
  g_.gpuSeconds += g_.stats.gpuMilliseconds / 1000;
  g_.batchCount += 1;
  g_.pace.account(batch.steps, seconds);
}

bool Simulation::settleBatch(const Batch& batch, double now) {
  return controller_.ifCurrent(seenGeneration_, [&](Control& control, Status& status) {
    if (isOver(batch, now)) {
      g_.finished = true;
      control.running = false;
      status.running = false;
      writeResultFiles(*solver_, run_);
    }
    if (!control.running) {
      g_.wall.close(now);
      g_.wasRunning = false;
    }
    g_.statsDue = now - g_.lastStatsTime >= statisticsSeconds || batch.single || g_.finished ||
                  !control.running;
  });
}

bool Simulation::isOver(const Batch& batch, double now) const {
  if (batch.single || !control_.stopRulesArmed) return false;
  if (batch.until && g_.stats.time >= reachedFrom(*batch.until)) return true;
  if (batch.stepLimited && static_cast<std::int32_t>(g_.stats.steps) >= run_.stepLimit) return true;
  return run_.wallSeconds > 0 && g_.wall.at(now) >= run_.wallSeconds;
}

void Simulation::closeWindow(double now) {
  g_.rates.simtimePerSecond = ratePer(g_.simulatedSeconds, g_.wall.at(now));
  g_.rates.turnoversPerSecond = ratePer(g_.rates.simtimePerSecond, g_.stats.initialTurnoverTime);
  g_.rates.stepsPerSecond = g_.window.close(now, static_cast<double>(g_.stats.steps));
}

// A failure of a generation that has been replaced is dropped.
void Simulation::fail(const char* text) {
  g_.failed = true;
  g_.wall.close(now_());
  controller_.ifCurrent(seenGeneration_, [&](Control& control, Status& status) {
    status.error_message = text;
    status.running = false;
    status.settled = true;
    control.running = false;
    control.pendingSteps = 0;
  });
}

}  // namespace

void simulate(Controller& controller, int device, const Clock& clock) {
  platform::enterOwnThread();
  try {
    check(cudaSetDevice(device), "cudaSetDevice(device)");
  } catch (const std::exception& failure) {
    controller.failStart(failure.what());
    return;
  }
  Simulation(controller, clock).run();
}

}  // namespace zeph
