// When the view presents. Times are seconds of a steady clock.
#pragma once

#include <algorithm>

namespace zeph {

// Presentations fall on a fixed grid of 60 a second, anchored at the first one. A late presentation
// skips the grid points that it has missed.
class PresentationGrid {
 public:
  bool isDue(double now) const { return now >= next_; }
  void presented(double now);
  double secondsUntilDue(double now) const { return std::max(next_ - now, 0.0); }

 private:
  double next_ = 0;  // 0 before the first presentation
};

}  // namespace zeph
