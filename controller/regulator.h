// The feedback that holds the palinstrophy ratio of a flow at its target by way of the Reynolds
// number: an incremental proportional-and-integral law on the number's logarithm, behind two
// low-pass stages. The number is its own memory, so that nothing can wind up.
#pragma once

#include <optional>

namespace zeph {

// What is controlled: so many times the palinstrophy ratio.
constexpr double palinstrophyScale = 10000;

class Regulator {
 public:
  // The Reynolds number that a sample of the statistics asks for, or none where the sample is of no
  // use or near enough to the target.
  std::optional<double> sample(double palinstrophyRatio, double reynolds, int resolution, int k0);

 private:
  void filter(double palinstrophy);

  double fastPalinstrophy_ = 0;
  double slowPalinstrophy_ = 0;  // 0 before the first sample
  double previousError_ = 0;     // of the last sample outside the dead band
};

}  // namespace zeph
