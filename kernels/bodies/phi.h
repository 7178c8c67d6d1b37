// The phi functions of exponential integrators (Hochbruck & Ostermann 2010), in single precision:
//   phi1(z) = (e^z - 1)/z,  phi2(z) = (phi1(z) - 1)/z,  phi3(z) = (phi2(z) - 1/2)/z.
//
// For |z| <= 1, where the closed forms would cancel, the Taylor series with 17 terms; for larger z
// and for NaN the closed forms. Division by a power of two is done as a product of the same value.
#pragma once

#include "kernels/bodies/exponential.h"

namespace zeph {

ZEPH_BODY bool hasSeries(float z) {
  return magnitude(z) <= 1.0f;
}

template <int M>
ZEPH_BODY float quotient(float z) {
  if constexpr (M == 2) return z * 0.5f;
  if constexpr (M == 4) return z * 0.25f;
  if constexpr (M == 8) return z * 0.125f;
  if constexpr (M == 16) return z * 0.0625f;
  return z / static_cast<float>(M);
}

// Adds `term` and those after it: s = s + t, t = t * (z / m) for m = FIRST to LAST, then s + t.
template <int FIRST, int LAST>
ZEPH_BODY float sumSeries(float sum, float term, float z) {
  sum = sum + term;
  if constexpr (FIRST <= LAST) {
    return sumSeries<FIRST + 1, LAST>(sum, term * quotient<FIRST>(z), z);
  }
  return sum;
}

ZEPH_BODY float phi1Series(float z) {
  const float second = quotient<2>(z);
  return sumSeries<4, 17>(1.0f + second, second * quotient<3>(z), z);
}

ZEPH_BODY float phi2Series(float z) {
  const float second = quotient<3>(z) * 0.5f;
  return sumSeries<5, 18>(0.5f + second, second * quotient<4>(z), z);
}

ZEPH_BODY float phi3Series(float z) {
  constexpr float sixth = 1.0f / 6.0f;
  const float second = quotient<4>(z) * sixth;
  return sumSeries<6, 19>(sixth + second, second * quotient<5>(z), z);
}

struct Phi {
  float one, two, three;
};

// SERIES chooses the form at compile time, so that loops over many z have no branch inside.
template <bool SERIES>
ZEPH_BODY float phi1(float z) {
  if constexpr (SERIES) return phi1Series(z);
  return (exponential(z) - 1.0f) / z;
}

template <bool SERIES>
ZEPH_BODY Phi phiAll(float z) {
  if constexpr (SERIES) return {phi1Series(z), phi2Series(z), phi3Series(z)};
  const float one = phi1<false>(z);
  const float two = (one - 1.0f) / z;
  return {one, two, (two - 0.5f) / z};
}

}  // namespace zeph
