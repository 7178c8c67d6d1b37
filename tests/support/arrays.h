// Sizes, parameters and contents for tests of kernels and solvers.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#include "kernels/params.h"

namespace zeph::test {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

// The side of the grid, of the padded grid, and the rows of their spectra.
struct Sizes {
  explicit Sizes(int resolution)
      : n(static_cast<std::size_t>(resolution)),
        h(n / 2),
        w(n / 2 + 1),
        m(3 * n / 2),
        s((m / 2 + 8) / 8 * 8),
        half(n * w),
        plane(s * m) {}

  std::size_t n, h, w, m, s;
  std::size_t half;   // elements of a half spectrum
  std::size_t plane;  // complex elements of a padded plane
};

// Resolutions with an odd padded grid, with rows shorter than a vector, and with several sweeps of
// a reduction.
constexpr int resolutions[] = {16, 18, 34, 64, 256};

inline Params paramsOf(int n, std::uint32_t operatorKind = 0) {
  Params p = {};
  p.resolution = static_cast<std::uint32_t>(n);
  p.padded = static_cast<std::uint32_t>(3 * n / 2);
  p.viscosity = 1e-3f;
  p.cfl = 3.0f;
  p.scale = 1.0f / static_cast<float>(n * n);
  p.blocks = 64;
  p.operatorKind = OperatorKind{operatorKind};
  return p;
}

// Numbers of both signs over a range of magnitudes.
class Numbers {
 public:
  explicit Numbers(unsigned seed) : engine_(seed) {}

  float next() {
    const float fraction = static_cast<float>(static_cast<int>(engine_() >> 7) - (1 << 24));
    const int exponent = static_cast<int>(engine_() % 17) - 8;
    return std::ldexp(fraction, exponent - 24);
  }

  std::vector<float> floats(std::size_t count) {
    std::vector<float> values(count);
    for (float& value : values) value = next();
    return values;
  }

  std::vector<V2> modes(std::size_t count) {
    std::vector<V2> values(count);
    for (V2& value : values) value = {next(), next()};
    return values;
  }

  std::size_t below(std::size_t bound) { return engine_() % bound; }

 private:
  std::mt19937 engine_;
};

// The signed wavenumber of a row in an array of `side` rows.
inline int wavenumber(std::size_t row, std::size_t side) {
  return static_cast<int>(row) - (row > side / 2 ? static_cast<int>(side) : 0);
}

inline bool isRetained(std::size_t i, int ky, int n) {
  const int kx = static_cast<int>(i);
  return kx < n / 2 && ky < n / 2 && ky > -n / 2 && (kx != 0 || ky != 0);
}

}  // namespace zeph::test
