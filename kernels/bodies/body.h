// What the kernels' bodies share: complex arithmetic per component, and the grid's index rules. A
// body is written once and compiled by both compilers.
//
// It is inlined into each kernel that uses it and has no linkage, so that the linker cannot replace
// the code of one instruction set by that of another.
#pragma once

#include "kernels/params.h"

#if defined(__CUDACC__)
#define ZEPH_BODY static __device__ __forceinline__
#else
#define ZEPH_BODY [[gnu::always_inline]] static inline
#endif

namespace zeph {

// Component by component: the compiler would not vectorise a loop that copies whole records.
ZEPH_BODY void store(V2& to, V2 value) {
  to.re = value.re;
  to.im = value.im;
}

ZEPH_BODY V2 operator+(V2 a, V2 b) {
  return {a.re + b.re, a.im + b.im};
}
ZEPH_BODY V2 operator-(V2 a, V2 b) {
  return {a.re - b.re, a.im - b.im};
}
ZEPH_BODY V2 operator*(float f, V2 a) {
  return {f * a.re, f * a.im};
}
ZEPH_BODY V2 operator/(V2 a, float f) {
  return {a.re / f, a.im / f};
}

#if defined(__CUDACC__)
ZEPH_BODY float magnitude(float x) {
  return fabsf(x);
}
ZEPH_BODY float squareRoot(float x) {
  return __fsqrt_rn(x);
}
#else
ZEPH_BODY float magnitude(float x) {
  return __builtin_fabsf(x);
}
ZEPH_BODY float squareRoot(float x) {
  return __builtin_sqrtf(x);
}
#endif

// The larger of a running maximum and x; a NaN in x is ignored.
ZEPH_BODY float larger(float maximum, float x) {
  return x > maximum ? x : maximum;
}

// True for both infinities and NaN.
ZEPH_BODY bool nonFinite(float x) {
  return !(magnitude(x) <= 3.40282346638528859812e+38f);
}

// The signed wavenumber of row j in an array of side `side`, and the row of a signed wavenumber.
ZEPH_BODY int foldRow(int j, int side) {
  return j - (j > side / 2 ? side : 0);
}
ZEPH_BODY int rowOf(int ky, int side) {
  return ky >= 0 ? ky : ky + side;
}

ZEPH_BODY bool isActive(int i, int ky, int nyquist) {
  return i < nyquist && ky < nyquist && -ky < nyquist && (i != 0 || ky != 0);
}

// kx^2 + ky^2, rounded once.
ZEPH_BODY float waveSquare(int i, int ky) {
  return static_cast<float>(i * i + ky * ky);
}

}  // namespace zeph
