// Discrete Fourier transforms in double precision, straight from their definition.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace zeph::test {

using ExactValues = std::vector<std::complex<double>>;

// exp(sign * 2 pi i k / n) for k < n.
inline ExactValues exactRoots(int n, int sign) {
  ExactValues roots(static_cast<std::size_t>(n));
  for (int k = 0; k < n; ++k) {
    const double angle = sign * 2 * std::numbers::pi * k / n;
    roots[static_cast<std::size_t>(k)] = {std::cos(angle), std::sin(angle)};
  }
  return roots;
}

// Element k of the transform of a line whose roots are given.
inline std::complex<double> exactElement(const ExactValues& line, const ExactValues& roots, int k) {
  std::complex<double> sum = 0;
  std::size_t angle = 0;
  for (const std::complex<double>& value : line) {
    sum += value * roots[angle];
    angle = (angle + static_cast<std::size_t>(k)) % line.size();
  }
  return sum;
}

// The transform of an n x n plane, rows and then columns.
inline ExactValues exactPlane(ExactValues plane, int n, int sign) {
  const ExactValues roots = exactRoots(n, sign);
  const auto side = static_cast<std::size_t>(n);
  ExactValues line(side);
  for (const bool alongRows : {true, false}) {
    const std::size_t step = alongRows ? 1 : side, next = alongRows ? side : 1;
    for (std::size_t l = 0; l < side; ++l) {
      for (std::size_t j = 0; j < side; ++j) line[j] = plane[l * next + j * step];
      for (int k = 0; k < n; ++k) {
        plane[l * next + static_cast<std::size_t>(k) * step] = exactElement(line, roots, k);
      }
    }
  }
  return plane;
}

// Root mean square of a difference, relative to the exact values.
class RelativeError {
 public:
  void add(std::complex<double> value, std::complex<double> right) {
    difference_ += std::norm(value - right);
    magnitude_ += std::norm(right);
  }
  double value() const { return std::sqrt(difference_ / magnitude_); }

 private:
  double difference_ = 0;
  double magnitude_ = 0;
};

inline std::vector<float> noise(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<float> values(count);
  for (float& value : values) {
    value = static_cast<float>(static_cast<double>(random()) / 4294967296.0 - 0.5);
  }
  return values;
}

}  // namespace zeph::test
