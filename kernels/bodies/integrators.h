// One stage of a time integrator at one mode. `term` is the stage's nonlinear term, k2 = kx^2 +
// ky^2, and damping L = (nu dt) k2. Complex quantities are updated per component.
//
//   imexRK3    Crank-Nicolson in each stage of a low-storage third-order Runge-Kutta scheme (the
//              explicit coefficients of Spalart, Moser & Rogers 1991); second order in viscosity
//   ifHeunRK3  integrating factor on Heun's third-order scheme (Heun 1900)
//   etdrk4     exponential time differencing of fourth order (Cox & Matthews 2002), in phi
//   functions
#pragma once

#include "kernels/bodies/phi.h"

namespace zeph {

// `from` plus an increment by compensated summation (Kahan 1965): `correction` carries what
// rounding lost from one step to the next.
ZEPH_BODY V2 compensated(V2 from, V2 increment, V2& correction) {
  const V2 y = increment - correction;
  const V2 t = from + y;
  store(correction, (t - from) - y);
  return t;
}

// Coefficients are e^(-..) - 1, so that weak damping loses no digits: term + c term is e^(-..)
// term.
ZEPH_BODY V2 damped(V2 term, float c) {
  return term + c * term;
}

ZEPH_BODY float dampingOf(float viscosity, float dt, float k2) {
  return (viscosity * dt) * k2;
}

template <int STAGE>
ZEPH_BODY void imexStage(V2 term, float viscosity, float dt, float k2, V2& omega, V2& first,
                         V2& correction) {
  constexpr float gammas[] = {8.0f / 15.0f, 5.0f / 12.0f, 3.0f / 4.0f};
  constexpr float zetas[] = {0.0f, -17.0f / 60.0f, -5.0f / 12.0f};
  constexpr float betas[] = {4.0f / 15.0f, 1.0f / 15.0f, 1.0f / 6.0f};
  const float a = (viscosity * (betas[STAGE] * dt)) * k2;
  V2 r = gammas[STAGE] * term;
  if constexpr (STAGE > 0) r = r + zetas[STAGE] * first;
  const V2 increment = ((dt * r) - ((a + a) * omega)) / (a + 1.0f);
  store(omega, compensated(omega, increment, correction));
  store(first, term);
}

// Plane PLANE of "ifHeunRK3" holds e^z - 1 for this z: -L/3, -2L/3, -L.
template <int PLANE>
ZEPH_BODY float heunExponent(float damping) {
  if constexpr (PLANE == 0) return damping / -3.0f;
  if constexpr (PLANE == 1) return (damping * -2.0f) / 3.0f;
  return -damping;
}

template <bool SERIES>
ZEPH_BODY float heunCoefficient(float z) {
  return z * phi1<SERIES>(z);
}

struct HeunCoefficients {
  float c0, c1, c2;
};

template <int STAGE>
ZEPH_BODY void heunStage(V2 term, float dt, HeunCoefficients c, V2& omega, V2& base, V2& first,
                         V2& correction) {
  if constexpr (STAGE == 0) {
    store(base, omega);
    store(first, term);
    store(omega, base + (((dt / 3.0f) * damped(term, c.c0)) + (c.c0 * base)));
  } else if constexpr (STAGE == 1) {
    store(omega, base + ((c.c1 * base) + (((dt + dt) / 3.0f) * damped(term, c.c0))));
  } else {
    const V2 increment = ((c.c2 * base) + ((dt * 0.25f) * damped(first, c.c2))) +
                         (((dt * 3.0f) * 0.25f) * damped(term, c.c0));
    store(omega, compensated(base, increment, correction));
  }
}

// Exponents of the coefficients of "etdrk4": z = -L for the whole step, h = -L/2 for half of it.
ZEPH_BODY float wholeExponent(float damping) {
  return -damping;
}
ZEPH_BODY float halfExponent(float damping) {
  return damping * -0.5f;
}

struct HalfStepCoefficients {
  float c1, c2;  // e^(-L/2) - 1, (dt/2) phi1(-L/2)
};

template <bool SERIES>
ZEPH_BODY HalfStepCoefficients halfStepCoefficients(float h, float dt) {
  const float psi = phi1<SERIES>(h);
  return {h * psi, (dt * 0.5f) * psi};
}

struct WholeStepCoefficients {
  float c0, c3, c4, c5;  // e^(-L) - 1 and dt times phi1 - 3 phi2 + 4 phi3, phi2 - 2 phi3,
                         // 4 phi3 - phi2
};

template <bool SERIES>
ZEPH_BODY WholeStepCoefficients wholeStepCoefficients(float z, float dt) {
  const Phi phi = phiAll<SERIES>(z);
  return {phi.one * z, dt * ((phi.three * 4.0f) + (phi.one + (phi.two * -3.0f))),
          dt * (phi.two - (phi.three + phi.three)), dt * ((phi.three * 4.0f) - phi.two)};
}

struct EtdCoefficients {
  float c0, c1, c2, c3, c4, c5;
};

template <int STAGE>
ZEPH_BODY void etdStage(V2 term, EtdCoefficients c, V2& omega, V2& base, V2& first, V2& middle,
                        V2& predictor, V2& correction) {
  if constexpr (STAGE == 0) {
    store(base, omega);
    store(first, term);
    store(predictor, base + ((c.c2 * term) + (c.c1 * base)));
    store(omega, predictor);
  } else if constexpr (STAGE == 1) {
    store(middle, term);
    store(omega, base + ((c.c1 * base) + (c.c2 * term)));
  } else if constexpr (STAGE == 2) {
    store(middle, term + middle);
    store(omega, predictor + ((c.c1 * predictor) + (c.c2 * ((term + term) - first))));
  } else {
    const V2 increment =
        (((c.c0 * base) + (c.c3 * first)) + ((c.c4 + c.c4) * middle)) + (c.c5 * term);
    store(omega, compensated(base, increment, correction));
  }
}

}  // namespace zeph
