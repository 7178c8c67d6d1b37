// Controllers with small flows, and how a test waits for them.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "controller/controller.h"
#include "tests/support/flows.h"

namespace zeph::test {

constexpr int processor = 0;  // or whatever the first device is
constexpr std::chrono::seconds patience(60);

// Paused, and left alone by the regulator.
inline RunSettings pausedRun(const Config& config = configOf(16)) {
  RunSettings run;
  run.config = config;
  run.paused = true;
  run.regulated = false;
  return run;
}

// However long it runs: with a step by its speed a small flow comes to rest within a second, and
// its step then grows beyond all numbers.
inline Config lastingFlow() {
  Config config = configOf(16);
  config.fixed_dt = 0.001f;
  return config;
}

inline RunSettings freeRun(const Config& config = lastingFlow()) {
  RunSettings run = pausedRun(config);
  run.paused = false;
  return run;
}

// The first status for which the predicate holds. Fails the test on a timeout.
template <class Predicate>
Status waitFor(const Controller& controller, Predicate holds) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (;;) {
    Status status = controller.status();
    if (holds(status)) return status;
    if (std::chrono::steady_clock::now() > deadline) {
      ADD_FAILURE() << "timed out; steps " << status.stats.steps << ", running " << status.running
                    << ", settled " << status.settled << ", error \"" << status.error_message
                    << "\"";
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

inline Status whenSettled(const Controller& controller) {
  return waitFor(controller, [](const Status& status) { return status.settled; });
}

inline Status whenFinished(const Controller& controller) {
  return waitFor(controller,
                 [](const Status& status) { return status.finished && status.settled; });
}

inline Status afterSteps(const Controller& controller, std::uint64_t steps) {
  return waitFor(controller, [=](const Status& status) { return status.stats.steps >= steps; });
}

// Runs a paused flow until the predicate holds, pauses it, and returns its settled status.
template <class Predicate>
Status afterRunning(Controller& controller, Predicate holds) {
  whenSettled(controller);
  controller.setRunning(true);
  waitFor(controller, holds);
  controller.setRunning(false);
  return whenSettled(controller);
}

// The frames of a paused flow's start and first two steps: all the blocks that its solver has.
inline std::vector<std::shared_ptr<const Frame>> holdEveryBlock(Controller& controller) {
  std::vector<std::shared_ptr<const Frame>> held = {whenSettled(controller).frame};
  for (std::uint64_t k = 1; k <= 2; ++k) {
    controller.step();
    held.push_back(
        waitFor(controller, [=](const Status& now) { return now.frame->sequence == k; }).frame);
  }
  return held;
}

// Waits until the thread has run its loop a few times.
inline void waitForSomePasses() {
  std::this_thread::sleep_for(std::chrono::milliseconds(80));
}

// Whether the solver of the frame still exists: it holds a reference to each of its blocks.
inline bool solverExists(const std::shared_ptr<const Frame>& frame) {
  return frame->block.use_count() > 1;
}

}  // namespace zeph::test
