#include "controller/regulator.h"

#include <algorithm>
#include <cmath>

#include "solver/config_record.h"

namespace zeph {
namespace {

constexpr double target = 20;
constexpr double filterDivisor = 6;
constexpr double deadBand = 0.001;  // of the relative error
constexpr double gainOnChange = 25;
constexpr double gainOnError = 0.25;
constexpr double largestChange = 0.01;  // of the number's logarithm, in one sample
constexpr double largestFactor = 1000;  // between the number and the grid's default
constexpr double largestReynolds = 1000000;
constexpr double smallestReynolds = 1000;

bool isPositive(double value) {
  return value > 0 && std::isfinite(value);
}

double limited(double candidate, int resolution, int k0) {
  const double usual = DefaultReynolds(resolution, k0);
  const double upper = std::min(usual * largestFactor, largestReynolds);
  const double lower = std::max(usual / largestFactor, smallestReynolds);
  // On small grids the lower limit lies above the upper one, which is tested first.
  if (candidate > upper) return upper;
  return candidate < lower ? lower : candidate;
}

}  // namespace

Regulator::Regulator(const RegulatorRecord& record)
    : fastPalinstrophy_(record.fastPalinstrophy),
      slowPalinstrophy_(record.slowPalinstrophy),
      previousError_(record.previousError) {}

RegulatorRecord Regulator::record() const {
  return {.fastPalinstrophy = fastPalinstrophy_,
          .slowPalinstrophy = slowPalinstrophy_,
          .previousError = previousError_};
}

std::optional<double> Regulator::sample(double palinstrophyRatio, double reynolds, int resolution,
                                        int k0) {
  const double palinstrophy = palinstrophyRatio * palinstrophyScale;
  if (!isPositive(palinstrophy) || !isPositive(reynolds)) return std::nullopt;
  filter(palinstrophy);
  const double error = (slowPalinstrophy_ - target) / target;
  if (deadBand > std::abs(error)) return std::nullopt;
  const double wanted = (error - previousError_) * gainOnChange + error * gainOnError;
  previousError_ = error;
  const double change = std::clamp(wanted, -largestChange, largestChange);
  return limited(std::exp(change) * reynolds, resolution, k0);
}

void Regulator::filter(double palinstrophy) {
  if (slowPalinstrophy_ == 0) {
    fastPalinstrophy_ = palinstrophy;
    slowPalinstrophy_ = palinstrophy;
    return;
  }
  fastPalinstrophy_ += (palinstrophy - fastPalinstrophy_) / filterDivisor;
  slowPalinstrophy_ += (fastPalinstrophy_ - slowPalinstrophy_) / filterDivisor;
}

}  // namespace zeph
