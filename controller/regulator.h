// The feedback from the palinstrophy ratio of a flow to its Reynolds number: an incremental
// proportional-integral law on the number's logarithm, behind two low-pass stages. The Reynolds
// number itself holds the integral, so that nothing can wind up.
#pragma once

#include <optional>

#include "solver/state_record.h"

namespace zeph {

// The controlled quantity is the palinstrophy ratio times this.
constexpr double palinstrophyScale = 10000;

class Regulator {
 public:
  Regulator() = default;
  explicit Regulator(const RegulatorRecord& record);
  RegulatorRecord record() const;

  // The new Reynolds number after a sample of the statistics, or none if the sample is unusable or
  // within the dead band around the target.
  std::optional<double> sample(double palinstrophyRatio, double reynolds, int resolution, int k0);

 private:
  void filter(double palinstrophy);

  double fastPalinstrophy_ = 0;
  double slowPalinstrophy_ = 0;  // 0 before the first sample
  double previousError_ = 0;     // of the last sample outside the dead band
};

}  // namespace zeph
