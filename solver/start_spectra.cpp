#include "solver/start_spectra.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>

#include "device/cpu/parallel.h"
#include "platform/elementary_functions.h"

namespace zeph {
namespace {

constexpr double pi = std::numbers::pi;

// Rows are shared out in this many groups, whatever the number of threads, so that sums over
// groups always add up in the same order.
constexpr int rowGroups = 64;

// Calls rows(group, begin, end) for each group of neighbouring rows below `count`, on all threads.
template <class Rows>
void forRowGroups(int count, Rows rows) {
  struct Shares {
    Rows* rows;
    int count;
  } shares = {&rows, count};
  cpu::runTasks(
      rowGroups,
      [](void* context, int group, int) {
        const Shares& s = *static_cast<Shares*>(context);
        const auto edge = [&s](int g) {
          return static_cast<int>(std::int64_t{s.count} * g / rowGroups);
        };
        (*s.rows)(group, edge(group), edge(group + 1));
      },
      &shares);
}

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
// bits. The state only counts, so a sequence can start behind the first `skipped` phases.
class PhaseSequence {
 public:
  PhaseSequence(std::uint64_t seed, std::uint64_t skipped)
      : state_(seed + increment * (skipped + 1)) {}

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

// cos(phase) and sin(phase) in the two components.
V2 unitVector(double phase) {
  const SineCosine turned = sineCosine(phase);
  return {roundToFloat(turned.cosine), roundToFloat(turned.sine)};
}

struct ModeVelocity {
  V2 u, v;
};

// The velocity of a mode with the given energy and phase, in the one direction that is free of
// divergence.
ModeVelocity solenoidal(int i, int ky, float energy, float phase) {
  const auto [c, s] = unitVector(static_cast<double>(phase));
  if (i == 0) {
    const float m = std::sqrt(energy);
    return {{m * c, m * s}, {0.0f, 0.0f}};
  }
  const float slope = static_cast<float>(ky) / static_cast<float>(i);
  const float m = std::sqrt(energy / ((slope * slope) + 1.0f));
  const V2 v = {m * c, m * s};
  return {{-slope * v.re, -slope * v.im}, v};
}

// e^x rounded once, for x <= 0.
float decay(float x) {
  constexpr float lowest = -104.0f;  // below it even the smallest float is too large
  return x < lowest ? 0.0f : roundToFloat(exponentialOf(static_cast<double>(x)));
}

// The number of phases drawn for the rows before row j: N/2 for each ky > 0, where the column i = 0
// takes part, none for the Nyquist row, and one less for any other.
std::uint64_t phasesBefore(int j, int nyquist) {
  const auto rows = static_cast<std::uint64_t>(j);
  const auto columns = static_cast<std::uint64_t>(nyquist);
  if (rows == 0) return 0;
  if (rows <= columns) return rows * columns - 1;
  return columns * columns - 1 + (rows - columns - 1) * (columns - 1);
}

// Mode energy exp(-k^2/k0^2) / (pi k0^2), one phase for each mode of the half plane.
void fillPaoRow(Field& field, const Config& config, int j) {
  const float k = static_cast<float>(config.k0);
  const float area = (k * static_cast<float>(pi)) * k;
  const float scale = static_cast<float>(field.n * field.n);
  const int ky = j - (j > field.nyquist ? field.n : 0);
  if (std::abs(ky) >= field.nyquist) return;
  PhaseSequence phases(config.seed, phasesBefore(j, field.nyquist));
  for (int i = ky <= 0 ? 1 : 0; i < field.nyquist; ++i) {
    const float energy = decay(-static_cast<float>(i * i + ky * ky) / (k * k)) / area;
    const auto [u, v] = solenoidal(i, ky, energy, phases.next());
    const float fx = static_cast<float>(i);
    const float fy = static_cast<float>(ky);
    const V2 w = {-((fx * v.im) - (fy * u.im)) * scale, ((fx * v.re) - (fy * u.re)) * scale};
    field.at(j, i) = w;
    if (i == 0) field.at(field.n - ky, 0) = {w.re, -w.im};
  }
}

void fillPao(Field& field, const Config& config) {
  forRowGroups(field.n, [&](int, int begin, int end) {
    for (int j = begin; j < end; ++j) fillPaoRow(field, config, j);
  });
}

double fraction(double t) {
  return t - std::floor(t);
}

// Two pseudo-random numbers in [0, 1) for a mode, from its indices and the seed. Conjugate modes,
// which meet only in column i = 0, have the same ones.
class Hash {
 public:
  Hash(const Field& field, int i, int row, std::uint64_t seed)
      : x_(((foldedRow(field, i, row) + 1) * 78.233 + (i + 1) * 12.9898) +
           (static_cast<double>(seed) + 1) * 0.010001) {}

  double weight() const { return (numberAt(678.942) * 0.5) + 0.75; }
  double phase() const { return numberAt(2036.826); }

 private:
  static int foldedRow(const Field& field, int i, int row) {
    return i == 0 && row > field.nyquist ? field.n - row : row;
  }
  double numberAt(double offset) const {
    return fraction(sineCosine(x_ + offset).sine.hi * 43758.5453123);
  }

  double x_;
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
  if (shell >= peak) return 1 / (shell * shell * shell);
  const double square = (shell / peak) * (shell / peak);
  return (square * square) / (peak * peak * peak);
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
  // Energy and weight of each shell, in every group of rows first.
  void gather() {
    std::vector<std::vector<double>> energies(rowGroups, energy_);
    std::vector<std::vector<double>> weights(rowGroups, weight_);
    forRowGroups(field_.n, [&](int group, int begin, int end) {
      const auto g = static_cast<std::size_t>(group);
      for (int j = begin; j < end; ++j) gatherRow(j, energies[g], weights[g]);
    });
    for (std::size_t g = 0; g < energies.size(); ++g) {
      for (std::size_t s = 0; s < energy_.size(); ++s) {
        energy_[s] += energies[g][s];
        weight_[s] += weights[g][s];
      }
    }
  }

  void gatherRow(int j, std::vector<double>& energy, std::vector<double>& weight) const {
    const double samples = static_cast<double>(field_.n) * static_cast<double>(field_.n);
    const double samplesSquared = samples * samples;
    for (int i = 0; i < field_.nyquist; ++i) {
      const Shell shell(field_, i, j);
      if (!shell.inside) continue;
      const double count = i > 0 ? 2 : 1;
      const double a = static_cast<double>(field_.at(j, i).re);
      const double b = static_cast<double>(field_.at(j, i).im);
      energy[shell.index] += ((b * b + a * a) / (shell.square * samplesSquared)) * count;
      weight[shell.index] += Hash(field_, i, j, seed_).weight() * count;
    }
  }

  void rewrite(double ratio) {
    forRowGroups(field_.n, [&](int, int begin, int end) {
      for (int j = begin; j < end; ++j) rewriteRow(j, ratio);
    });
  }

  void rewriteRow(int j, double ratio) {
    const float scale = static_cast<float>(field_.n * field_.n);
    for (int i = 0; i < field_.nyquist; ++i) {
      if (j == field_.nyquist) {
        field_.at(j, i) = {0.0f, 0.0f};
        continue;
      }
      const Shell shell(field_, i, j);
      const auto [u, v] = velocityAt(shell, i, j, ratio);
      const float fx = static_cast<float>(i);
      const float fy = static_cast<float>(shell.ky);
      field_.at(j, i) = {((u.im * fy) - (v.im * fx)) * scale, ((v.re * fx) - (u.re * fy)) * scale};
    }
  }

  ModeVelocity velocityAt(const Shell& shell, int i, int j, double ratio) const {
    const ModeVelocity none = {{0.0f, 0.0f}, {0.0f, 0.0f}};
    if (!shell.inside || !(weight_[shell.index] > 0)) return none;
    const Hash hash(field_, i, j, seed_);
    double energy = (hash.weight() * (ratio * target_[shell.index])) / weight_[shell.index];
    const double sign = i == 0 && j > field_.nyquist ? -1 : 1;
    const double phase = hash.phase() * ((sign + sign) * pi);
    const auto [c, s] = unitVector(phase);
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
