// The phi functions of exponential integrators (Hochbruck & Ostermann 2010), in single precision:
//   phi1(z) = (e^z - 1)/z,  phi2(z) = (phi1(z) - 1)/z,  phi3(z) = (phi2(z) - 1/2)/z.
//
// For |z| <= 1, where the closed forms would cancel, the Taylor series with 17 terms; for larger z
// and for NaN the closed forms. Division by a power of two is done as a product of the same value.
// F is a float or, for the series, a vector of them.
#pragma once

#include "kernels/bodies/exponential.h"

namespace zeph {

ZEPH_BODY bool hasSeries(float z) {
  return magnitude(z) <= 1.0f;
}

template <int M, class F>
ZEPH_BODY F quotient(F z) {
  if constexpr (M == 2) return z * 0.5f;
  if constexpr (M == 4) return z * 0.25f;
  if constexpr (M == 8) return z * 0.125f;
  if constexpr (M == 16) return z * 0.0625f;
  return z / static_cast<float>(M);
}

// Whether no further term of a series can change its sum. The processor ends the series of a vector
// of modes there, see series_vectors.h; for single modes the test would cost more than it saves.
template <class F>
struct SeriesEnd {
  ZEPH_BODY bool isReached(F) { return false; }
};

// Adds `term` and those after it: s = s + t, t = t * (z / m) for m = FIRST to LAST, then s + t.
template <int FIRST, int LAST, class F>
ZEPH_BODY F sumSeries(F sum, F term, F z) {
  sum = sum + term;
  if constexpr (FIRST <= LAST) {
    const F next = term * quotient<FIRST>(z);
    if (SeriesEnd<F>::isReached(next)) return sum;
    return sumSeries<FIRST + 1, LAST>(sum, next, z);
  }
  return sum;
}

template <class F>
ZEPH_BODY F phi1Series(F z) {
  const F second = quotient<2>(z);
  return sumSeries<4, 17>(1.0f + second, second * quotient<3>(z), z);
}

template <class F>
ZEPH_BODY F phi2Series(F z) {
  const F second = quotient<3>(z) * 0.5f;
  return sumSeries<5, 18>(0.5f + second, second * quotient<4>(z), z);
}

template <class F>
ZEPH_BODY F phi3Series(F z) {
  constexpr float sixth = 1.0f / 6.0f;
  const F second = quotient<4>(z) * sixth;
  return sumSeries<6, 19>(sixth + second, second * quotient<5>(z), z);
}

template <class F = float>
struct Phi {
  F one, two, three;
};

// SERIES chooses the form at compile time, so that loops over many z have no branch inside.
template <bool SERIES, class F>
ZEPH_BODY F phi1(F z) {
  if constexpr (SERIES) {
    return phi1Series(z);
  } else {
    return (exponential(z) - 1.0f) / z;
  }
}

template <bool SERIES, class F>
ZEPH_BODY Phi<F> phiAll(F z) {
  if constexpr (SERIES) {
    return {phi1Series(z), phi2Series(z), phi3Series(z)};
  } else {
    const F one = phi1<false>(z);
    const F two = (one - 1.0f) / z;
    return {one, two, (two - 0.5f) / z};
  }
}

}  // namespace zeph
