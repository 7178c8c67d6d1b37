// The factors of a step of etdrk4 (S. M. Cox and P. C. Matthews, J. Comput. Phys. 176, 430, 2002),
// for a fixed step and viscosity.
#pragma once
#include <cmath>

#include "layout.h"
#include "memory.h"

namespace expert {

// phi_k(z) = (phi_(k-1)(z) - 1/(k-1)!) / z with phi_0 = exp; the closed form cancels near zero.
inline double phi(int k, double z) {
  if (std::fabs(z) < 1) {
    double sum = 0;
    for (int j = 17; j >= 0; --j) sum = sum * z + 1 / std::tgamma(j + k + 1.0);
    return sum;
  }
  double value = std::expm1(z) / z;
  for (int j = 1; j < k; ++j) value = (value - 1 / std::tgamma(j + 1.0)) / z;
  return value;
}

struct Coefficients {
  Array<Real> half, whole;  // damping over half a step and a whole one
  Array<Real> stage;
  Array<Real> first, middle, last;
  Array<Real> inverseLaplacian;  // 1/k^2, zero for modes that are not kept

  Coefficients(const Layout& at, double viscosity, double dt)
      : half(at.modes()),
        whole(at.modes()),
        stage(at.modes()),
        first(at.modes()),
        middle(at.modes()),
        last(at.modes()),
        inverseLaplacian(at.modes()) {
#pragma omp parallel for
    for (int ky = 1 - at.h; ky < at.h; ++ky) {
      for (int kx = 0; kx < at.h; ++kx) {
        const double k2 = double(kx) * kx + double(ky) * ky;
        if (k2 > 0)
          fill(at.stateRow(ky) + static_cast<std::size_t>(kx), k2, -viscosity * dt * k2, dt);
      }
    }
  }

 private:
  void fill(std::size_t i, double k2, double z, double dt) {
    const double one = phi(1, z), two = phi(2, z), three = phi(3, z);
    half[i] = static_cast<Real>(std::exp(z / 2));
    whole[i] = static_cast<Real>(std::exp(z));
    stage[i] = static_cast<Real>(dt / 2 * phi(1, z / 2));
    first[i] = static_cast<Real>(dt * (one - 3 * two + 4 * three));
    middle[i] = static_cast<Real>(2 * dt * (two - 2 * three));
    last[i] = static_cast<Real>(dt * (4 * three - two));
    inverseLaplacian[i] = static_cast<Real>(1 / k2);
  }
};

}  // namespace expert
