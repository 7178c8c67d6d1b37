// How a running flow measures itself, and how its batches and frames are timed. Times are seconds
// of the controller's clock.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace zeph {

// The size of a batch, which aims at 8 milliseconds and at most doubles from one to the next.
struct Pace {
  double secondsPerStep = 0.001;  // smoothed
  std::int32_t batchSteps = 1;

  // A batch of `steps` has taken so long.
  void account(std::int32_t steps, double seconds);
};

// The wall time spent in free running.
struct WallClock {
  double seconds = 0;           // of the stretches that have ended
  std::optional<double> start;  // of the present stretch

  void open(double now);
  void close(double now);
  double at(double now) const;
};

// Frames stand on a fixed grid of 60 a second. Points that have been missed are skipped.
struct FrameGrid {
  double next = 0;  // 0 before the grid has begun

  bool isDue(double now) const { return now >= next; }
  void advance(double now);
};

struct Rates {
  double simtimePerSecond = 0;  // over the whole generation
  double turnoversPerSecond = 0;
  double stepsPerSecond = 0;  // over the last window
};

// The window of a quarter of a second, or a little more, over which steps are counted.
struct RateWindow {
  double start = 0;
  double steps = 0;

  bool isOver(double now) const;
  // Steps a second, and the beginning of the next window.
  double close(double now, double stepCount);
};

// The quotient, or 0 where there is nothing to divide by.
double ratePer(double amount, double per);

// Appends a value that differs from the last one; the oldest of more than 120 goes.
void addToHistory(std::vector<double>& history, double value);

}  // namespace zeph
