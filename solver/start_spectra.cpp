#include "solver/start_spectra.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

namespace zeph {
namespace {

constexpr double pi = std::numbers::pi;

// The half spectrum under construction.
struct Field {
  explicit Field(int resolution)
      : n(resolution),
        nyquist(resolution / 2),
        width(static_cast<std::size_t>(halfWidth(resolution))),
        modes(static_cast<std::size_t>(resolution) * width, V2{0.0f, 0.0f}) {}

  V2& at(int row, int i) {
    return modes[static_cast<std::size_t>(row) * width + static_cast<std::size_t>(i)];
  }

  int n, nyquist;
  std::size_t width;
  std::vector<V2> modes;
};

// SplitMix64 (Steele, Lea & Flood 2014) without its last mixing step, which does not touch the top
// bits.
class PhaseSequence {
 public:
  explicit PhaseSequence(std::uint64_t seed) : state_(seed + increment) {}

  // A phase in [0, 2 pi).
  float next() {
    constexpr float turn = static_cast<float>(2 * pi);
    state_ += increment;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return (static_cast<float>(z >> 40) * 0x1p-24f) * turn;
  }

 private:
  static constexpr std::uint64_t increment = 0x9E3779B97F4A7C15u;
  std::uint64_t state_;
};

struct ModeVelocity {
  V2 u, v;
};

// The velocity of a mode with the given energy and phase, in the one direction that is free of
// divergence.
ModeVelocity solenoidal(int i, int ky, float energy, float phase) {
  const float c = std::cos(phase);
  const float s = std::sin(phase);
  if (i == 0) {
    const float m = std::sqrt(energy);
    return {{m * c, m * s}, {0.0f, 0.0f}};
  }
  const float slope = static_cast<float>(ky) / static_cast<float>(i);
  const float m = std::sqrt(energy / ((slope * slope) + 1.0f));
  const V2 v = {m * c, m * s};
  return {{-slope * v.re, -slope * v.im}, v};
}

// Mode energy exp(-k^2/k0^2) / (pi k0^2), one phase for each mode of the half plane.
void fillPao(Field& field, const Config& config) {
  const float k = static_cast<float>(config.k0);
  const float area = (k * static_cast<float>(pi)) * k;
  const float scale = static_cast<float>(field.n * field.n);
  PhaseSequence phases(config.seed);
  for (int j = 0; j < field.n; ++j) {
    const int ky = j - (j > field.nyquist ? field.n : 0);
    if (std::abs(ky) >= field.nyquist) continue;
    for (int i = ky <= 0 ? 1 : 0; i < field.nyquist; ++i) {
      const float energy = std::exp(-static_cast<float>(i * i + ky * ky) / (k * k)) / area;
      const auto [u, v] = solenoidal(i, ky, energy, phases.next());
      const float fx = static_cast<float>(i);
      const float fy = static_cast<float>(ky);
      const V2 w = {-((fx * v.im) - (fy * u.im)) * scale, ((fx * v.re) - (fy * u.re)) * scale};
      field.at(ky < 0 ? ky + field.n : ky, i) = w;
      if (i == 0) field.at((field.n - ky) % field.n, 0) = {w.re, -w.im};
    }
  }
}

double fraction(double t) {
  return t - std::floor(t);
}

// Two pseudo-random numbers in [0, 1) for a mode, from its indices and the seed. Conjugate modes,
// which meet only in column i = 0, have the same ones.
struct Hash {
  Hash(const Field& field, int i, int row, std::uint64_t seed) {
    const int folded = i == 0 && row > field.nyquist ? field.n - row : row;
    const double x =
        ((folded + 1) * 78.233 + (i + 1) * 12.9898) + (static_cast<double>(seed) + 1) * 0.010001;
    amplitude = fraction(std::sin(x + 678.942) * 43758.5453123);
    phase = fraction(std::sin(x + 2036.826) * 43758.5453123);
  }

  double weight() const { return (amplitude * 0.5) + 0.75; }

  double amplitude, phase;
};

// The shell of unit width that a mode belongs to.
struct Shell {
  Shell(const Field& field, int i, int row)
      : ky(row < field.nyquist ? row : row - field.n),
        square(ky * ky + i * i),
        index(static_cast<std::size_t>(std::sqrt(static_cast<double>(square)) + 0.5)) {
    const double radius = std::sqrt(static_cast<double>(square));
    inside =
        radius > 0 && radius <= field.nyquist && index <= static_cast<std::size_t>(field.nyquist);
  }

  int ky;
  int square;
  std::size_t index;
  bool inside;
};

// Grows as k^4 up to the peak and falls as k^-3 beyond it; continuous at the peak.
double targetShape(double shell, double peak) {
  if (peak > shell) return std::pow(shell / peak, 4) / std::pow(peak, 3);
  return 1 / std::pow(shell, 3);
}

class Reshaping {
 public:
  Reshaping(Field& field, const Config& config)
      : field_(field),
        seed_(config.seed),
        peak_(std::max(config.k0, 1)),
        energy_(static_cast<std::size_t>(field.nyquist) + 1),
        weight_(energy_.size()),
        target_(energy_.size()) {}

  void run() {
    gather();
    double energy = 0;
    double target = 0;
    for (std::size_t s = 1; s < target_.size(); ++s) {
      target_[s] = targetShape(static_cast<double>(s), peak_);
      energy += energy_[s];
      target += target_[s];
    }
    if (!(energy > 0) || !(target > 0)) return;
    rewrite(energy / target);
  }

 private:
  void gather() {
    const double samples = static_cast<double>(field_.n) * static_cast<double>(field_.n);
    const double samplesSquared = samples * samples;
    for (int i = 0; i < field_.nyquist; ++i) {
      const double count = i > 0 ? 2 : 1;
      for (int j = 0; j < field_.n; ++j) {
        const Shell shell(field_, i, j);
        if (!shell.inside) continue;
        const double a = static_cast<double>(field_.at(j, i).re);
        const double b = static_cast<double>(field_.at(j, i).im);
        energy_[shell.index] += ((b * b + a * a) / (shell.square * samplesSquared)) * count;
        weight_[shell.index] += Hash(field_, i, j, seed_).weight() * count;
      }
    }
  }

  void rewrite(double ratio) {
    const float scale = static_cast<float>(field_.n * field_.n);
    for (int i = 0; i < field_.nyquist; ++i) {
      for (int j = 0; j < field_.n; ++j) {
        if (j == field_.nyquist) {
          field_.at(j, i) = {0.0f, 0.0f};
          continue;
        }
        const Shell shell(field_, i, j);
        const auto [u, v] = velocityAt(shell, i, j, ratio);
        const float fx = static_cast<float>(i);
        const float fy = static_cast<float>(shell.ky);
        field_.at(j, i) = {((u.im * fy) - (v.im * fx)) * scale,
                           ((v.re * fx) - (u.re * fy)) * scale};
      }
    }
  }

  ModeVelocity velocityAt(const Shell& shell, int i, int j, double ratio) const {
    const ModeVelocity none = {{0.0f, 0.0f}, {0.0f, 0.0f}};
    if (!shell.inside || !(weight_[shell.index] > 0)) return none;
    const Hash hash(field_, i, j, seed_);
    double energy = (hash.weight() * (ratio * target_[shell.index])) / weight_[shell.index];
    const double sign = i == 0 && j > field_.nyquist ? -1 : 1;
    const double phase = hash.phase * ((sign + sign) * pi);
    const float c = static_cast<float>(std::cos(phase));
    const float s = static_cast<float>(std::sin(phase));
    if (i == 0) {
      const float m = static_cast<float>(std::sqrt(energy));
      return {{m * c, m * s}, {0.0f, 0.0f}};
    }
    const double ky = shell.ky;
    energy = energy / ((ky * ky) / (static_cast<double>(i) * i) + 1);
    const float m = static_cast<float>(std::sqrt(energy));
    const V2 v = {m * c, m * s};
    const float slope = static_cast<float>(-ky / i);
    return {{v.re * slope, v.im * slope}, v};
  }

  Field& field_;
  std::uint64_t seed_;
  double peak_;
  std::vector<double> energy_, weight_, target_;  // by shell
};

}  // namespace

std::vector<V2> startSpectrum(const Config& config) {
  Field field(config.resolution);
  fillPao(field, config);
  if (config.start_spectrum == StartSpectrum::KM3) Reshaping(field, config).run();
  return std::move(field.modes);
}

}  // namespace zeph
