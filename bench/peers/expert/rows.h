// What happens between transforms, to a piece of one row. Complex numbers are pairs here,
// which the compiler vectorises better.
#pragma once
#include "layout.h"

namespace expert {

inline Real* numbers(Complex* row) {
  return reinterpret_cast<Real*>(row);
}
inline const Real* numbers(const Complex* row) {
  return reinterpret_cast<const Real*>(row);
}

// u^ = i ky w^ / k^2, v^ = -i kx w^ / k^2 for columns begin to end.
inline void velocityRow(const Complex* vorticity, const Real* inverseLaplacian, int ky, int begin,
                        int end, Complex* u, Complex* v) {
  const Real* in = numbers(vorticity);
  Real *toU = numbers(u), *toV = numbers(v);
  const auto row = static_cast<Real>(ky);
#pragma omp simd
  for (int i = begin; i < end; ++i) {
    const Real re = in[2 * i] * inverseLaplacian[i], im = in[2 * i + 1] * inverseLaplacian[i];
    const auto column = static_cast<Real>(i);
    toU[2 * i] = -row * im;
    toU[2 * i + 1] = row * re;
    toV[2 * i] = column * im;
    toV[2 * i + 1] = -column * re;
  }
}

// u and v become u^2 - v^2 and u v.
inline void productsRow(Complex* u, Complex* v, int samples) {
  Real *a = numbers(u), *b = numbers(v);
#pragma omp simd
  for (int i = 0; i < samples; ++i) {
    const Real x = a[i], y = b[i];
    a[i] = (x - y) * (x + y);
    b[i] = x * y;
  }
}

// (kx^2 - ky^2) (uv)^ - kx ky (u^2 - v^2)^; no transform scales, so this does.
inline void termRow(const Complex* difference, const Complex* product, int ky, Real scale,
                    int begin, int end, Complex* term) {
  const Real *d = numbers(difference), *p = numbers(product);
  Real* out = numbers(term);
  const auto row = static_cast<Real>(ky);
#pragma omp simd
  for (int i = begin; i < end; ++i) {
    const auto column = static_cast<Real>(i);
    const Real ofProduct = (column * column - row * row) * scale;
    const Real ofDifference = -column * row * scale;
    out[2 * i] = ofProduct * p[2 * i] + ofDifference * d[2 * i];
    out[2 * i + 1] = ofProduct * p[2 * i + 1] + ofDifference * d[2 * i + 1];
  }
}

}  // namespace expert
