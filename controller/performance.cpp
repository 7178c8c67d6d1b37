#include "controller/performance.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double batchSeconds = 0.008;      // the duration that batches aim at
constexpr double longBatchSeconds = 0.016;  // a longer batch shrinks the next one at once
constexpr double largestBatch = 32;
constexpr double shortestStep = 1e-6;
constexpr double newShare = 0.2;  // weight of a new measurement in the smoothed figure
constexpr double oldShare = 0.8;

constexpr double framesPerSecond = 60;
constexpr double windowSeconds = 0.25;
constexpr std::size_t historyLength = 120;

}  // namespace

void Pace::account(std::int32_t steps, double seconds) {
  const double perStep = seconds / std::max(steps, 1);
  secondsPerStep = newShare * std::max(perStep, shortestStep) + oldShare * secondsPerStep;
  const auto target =
      static_cast<std::int32_t>(std::clamp(batchSeconds / secondsPerStep, 1.0, largestBatch));
  batchSteps = std::min(target, std::max(2 * batchSteps, 1));
  if (seconds > longBatchSeconds) {
    const auto measured = static_cast<std::int32_t>(steps * batchSeconds / seconds);
    batchSteps = std::max(1, std::min(batchSteps, measured));
  }
}

void WallClock::open(double now) {
  if (!start) start = now;
}

void WallClock::close(double now) {
  seconds = at(now);
  start.reset();
}

double WallClock::at(double now) const {
  return start ? seconds + std::max(now - *start, 0.0) : seconds;
}

void FrameGrid::advance(double now) {
  if (next == 0) {
    next = now + 1 / framesPerSecond;
  } else if (now >= next) {
    next += (std::floor((now - next) * framesPerSecond) + 1) / framesPerSecond;
  }
}

bool RateWindow::isOver(double now) const {
  return now - start >= windowSeconds;
}

double RateWindow::close(double now, double stepCount) {
  const double rate = (stepCount - steps) / (now - start);
  start = now;
  steps = stepCount;
  return rate;
}

double ratePer(double amount, double per) {
  return per > 0 ? amount / per : 0;
}

void addToHistory(std::vector<double>& history, double value) {
  if (!history.empty() && history.back() == value) return;
  history.push_back(value);
  if (history.size() > historyLength) history.erase(history.begin());
}

}  // namespace zeph
