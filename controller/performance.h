// The batch size, the grid of frame times, the elapsed time and the rates of a running flow. Times
// are seconds of the controller's clock.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace zeph {

// The size of a batch, which aims at 8 milliseconds and at most doubles from one to the next.
struct Pace {
  double secondsPerStep = 0.001;  // smoothed
  std::int32_t batchSteps = 1;

  // Takes in that a batch of `steps` took `seconds`.
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

// The times of frames: a fixed grid of 60 a second, on which missed points are skipped.
struct FrameGrid {
  double next = 0;  // 0 before the first frame

  bool isDue(double now) const { return now >= next; }
  void advance(double now);
};

struct Rates {
  double simtimePerSecond = 0;  // over the whole generation
  double turnoversPerSecond = 0;
  double stepsPerSecond = 0;  // over the last window
};

// The time window over which the step rate is measured: a quarter of a second, or a little more.
struct RateWindow {
  double start = 0;
  double steps = 0;

  bool isOver(double now) const;
  // Returns the steps per second and begins the next window.
  double close(double now, double stepCount);
};

// The quotient, or 0 if the divisor is not positive.
double ratePer(double amount, double per);

// Appends the value unless it equals the last one, and keeps the newest 120.
void addToHistory(std::vector<double>& history, double value);

}  // namespace zeph
