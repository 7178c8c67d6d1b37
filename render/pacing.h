// When the view presents. Times are seconds of a steady clock.
#pragma once

namespace zeph {

// Presentations stand on a fixed grid of 60 a second that begins with the first. A late one skips
// the points that it has missed.
class PresentationGrid {
 public:
  bool isDue(double now) const { return now >= next_; }
  void presented(double now);
  // How long the thread may sleep before it looks again, at most 16 milliseconds.
  double idleSeconds(double now) const;

 private:
  double next_ = 0;  // 0 before the first presentation
};

}  // namespace zeph
