// When the view presents. Times are seconds of a steady clock.
#pragma once

namespace zeph {

// Presentations fall on a fixed grid of 60 a second, anchored at the first one. A late presentation
// skips the grid points that it has missed.
class PresentationGrid {
 public:
  bool isDue(double now) const { return now >= next_; }
  void presented(double now);
  // How long the thread may sleep before its next turn, at most 16 milliseconds.
  double idleSeconds(double now) const;

 private:
  double next_ = 0;  // 0 before the first presentation
};

}  // namespace zeph
