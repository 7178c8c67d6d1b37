// One stage of a time integrator at one mode. `term` is the stage's nonlinear term, k2 = kx^2 +
// ky^2, and damping L = (nu dt) k2. Complex quantities are updated per component. F is a float or a
// vector of them, one mode to each lane, and C the complex number made of it.
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
template <class C>
ZEPH_BODY C compensated(C from, C increment, C& correction) {
  const C y = increment - correction;
  const C t = from + y;
  store(correction, (t - from) - y);
  return t;
}

// Coefficients are e^(-..) - 1, so that weak damping loses no digits: term + c term is e^(-..)
// term.
template <class C, class F>
ZEPH_BODY C damped(C term, F c) {
  return term + c * term;
}

template <class F>
ZEPH_BODY F dampingOf(float viscosity, float dt, F k2) {
  return (viscosity * dt) * k2;
}

template <int STAGE, class C, class F>
ZEPH_BODY void imexStage(C term, float viscosity, float dt, F k2, C& omega, C& first,
                         C& correction) {
  constexpr float gammas[] = {8.0f / 15.0f, 5.0f / 12.0f, 3.0f / 4.0f};
  constexpr float zetas[] = {0.0f, -17.0f / 60.0f, -5.0f / 12.0f};
  constexpr float betas[] = {4.0f / 15.0f, 1.0f / 15.0f, 1.0f / 6.0f};
  const F a = (viscosity * (betas[STAGE] * dt)) * k2;
  C r = gammas[STAGE] * term;
  if constexpr (STAGE > 0) r = r + zetas[STAGE] * first;
  const C increment = ((dt * r) - ((a + a) * omega)) / (a + 1.0f);
  store(omega, compensated(omega, increment, correction));
  store(first, term);
}

// Plane PLANE of "ifHeunRK3" holds e^z - 1 for this z: -L/3, -2L/3, -L.
template <int PLANE, class F>
ZEPH_BODY F heunExponent(F damping) {
  if constexpr (PLANE == 0) return damping / -3.0f;
  if constexpr (PLANE == 1) return (damping * -2.0f) / 3.0f;
  return -damping;
}

template <bool SERIES, class F>
ZEPH_BODY F heunCoefficient(F z) {
  return z * phi1<SERIES>(z);
}

template <class F = float>
struct HeunCoefficients {
  F c0, c1, c2;
};

template <int STAGE, class C, class F>
ZEPH_BODY void heunStage(C term, float dt, HeunCoefficients<F> c, C& omega, C& base, C& first,
                         C& correction) {
  if constexpr (STAGE == 0) {
    store(base, omega);
    store(first, term);
    store(omega, base + (((dt / 3.0f) * damped(term, c.c0)) + (c.c0 * base)));
  } else if constexpr (STAGE == 1) {
    store(omega, base + ((c.c1 * base) + (((dt + dt) / 3.0f) * damped(term, c.c0))));
  } else {
    const C increment = ((c.c2 * base) + ((dt * 0.25f) * damped(first, c.c2))) +
                        (((dt * 3.0f) * 0.25f) * damped(term, c.c0));
    store(omega, compensated(base, increment, correction));
  }
}

// Exponents of the coefficients of "etdrk4": z = -L for the whole step, h = -L/2 for half of it.
template <class F>
ZEPH_BODY F wholeExponent(F damping) {
  return -damping;
}
template <class F>
ZEPH_BODY F halfExponent(F damping) {
  return damping * -0.5f;
}

template <class F = float>
struct HalfStepCoefficients {
  F c1, c2;  // e^(-L/2) - 1, (dt/2) phi1(-L/2)
};

template <class F>
ZEPH_BODY HalfStepCoefficients<F> halfStepOf(F h, F psi, float dt) {
  return {h * psi, (dt * 0.5f) * psi};
}

template <bool SERIES, class F>
ZEPH_BODY HalfStepCoefficients<F> halfStepCoefficients(F h, float dt) {
  return halfStepOf(h, phi1<SERIES>(h), dt);
}

template <class F = float>
struct WholeStepCoefficients {
  F c0, c3, c4, c5;  // e^(-L) - 1 and dt times phi1 - 3 phi2 + 4 phi3, phi2 - 2 phi3,
                     // 4 phi3 - phi2
};

template <class F>
ZEPH_BODY WholeStepCoefficients<F> wholeStepOf(F z, Phi<F> phi, float dt) {
  return {phi.one * z, dt * ((phi.three * 4.0f) + (phi.one + (phi.two * -3.0f))),
          dt * (phi.two - (phi.three + phi.three)), dt * ((phi.three * 4.0f) - phi.two)};
}

template <bool SERIES, class F>
ZEPH_BODY WholeStepCoefficients<F> wholeStepCoefficients(F z, float dt) {
  return wholeStepOf(z, phiAll<SERIES>(z), dt);
}

template <class F = float>
struct EtdCoefficients {
  F c0, c1, c2, c3, c4, c5;
};

template <class C, class F>
ZEPH_BODY C etdPredictor(C base, C first, EtdCoefficients<F> c) {
  return base + ((c.c2 * first) + (c.c1 * base));
}

template <int STAGE, class C, class F>
ZEPH_BODY void etdStage(C term, EtdCoefficients<F> c, C& omega, C& base, C& first, C& middle,
                        C& predictor, C& correction) {
  if constexpr (STAGE == 0) {
    store(base, omega);
    store(first, term);
    store(predictor, etdPredictor(base, term, c));
    store(omega, predictor);
  } else if constexpr (STAGE == 1) {
    store(middle, term);
    store(omega, base + ((c.c1 * base) + (c.c2 * term)));
  } else if constexpr (STAGE == 2) {
    store(middle, term + middle);
    store(omega, predictor + ((c.c1 * predictor) + (c.c2 * ((term + term) - first))));
  } else {
    const C increment =
        (((c.c0 * base) + (c.c3 * first)) + ((c.c4 + c.c4) * middle)) + (c.c5 * term);
    store(omega, compensated(base, increment, correction));
  }
}

}  // namespace zeph
