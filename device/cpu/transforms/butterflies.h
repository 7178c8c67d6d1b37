// Forward transforms of a few elements, of as many lines at once as a vector holds floats.
// For code that is compiled once per instruction set.
#pragma once

#include "device/cpu/transforms/line_plan.h"
#include "device/cpu/transforms/vectors.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

ZEPH_INLINE ComplexVector operator+(ComplexVector a, ComplexVector b) {
  return {a.re + b.re, a.im + b.im};
}
ZEPH_INLINE ComplexVector operator-(ComplexVector a, ComplexVector b) {
  return {a.re - b.re, a.im - b.im};
}
ZEPH_INLINE ComplexVector operator*(ComplexVector a, float f) {
  return {a.re * f, a.im * f};
}

// a + i b, a - i b
ZEPH_INLINE ComplexVector plusI(ComplexVector a, ComplexVector b) {
  return {a.re - b.im, a.im + b.re};
}
ZEPH_INLINE ComplexVector minusI(ComplexVector a, ComplexVector b) {
  return {a.re + b.im, a.im - b.re};
}

// a times the complex number at w
ZEPH_INLINE ComplexVector times(ComplexVector a, const float* w) {
  return {a.re * w[0] - a.im * w[1], a.im * w[0] + a.re * w[1]};
}

ZEPH_INLINE void butterfly2(ComplexVector& a, ComplexVector& b) {
  const ComplexVector difference = a - b;
  a = a + b;
  b = difference;
}

ZEPH_INLINE void butterfly3(ComplexVector* a) {
  constexpr float sinThird = 0.866025403784438646763F;  // of a turn
  const ComplexVector sum = a[1] + a[2];
  const ComplexVector turned = (a[1] - a[2]) * sinThird;
  const ComplexVector middle = a[0] - sum * 0.5F;
  a[0] = a[0] + sum;
  a[1] = minusI(middle, turned);
  a[2] = plusI(middle, turned);
}

ZEPH_INLINE void butterfly4(ComplexVector& a0, ComplexVector& a1, ComplexVector& a2,
                            ComplexVector& a3) {
  const ComplexVector sum02 = a0 + a2, difference02 = a0 - a2;
  const ComplexVector sum13 = a1 + a3, difference13 = a1 - a3;
  a0 = sum02 + sum13;
  a1 = minusI(difference02, difference13);
  a2 = sum02 - sum13;
  a3 = plusI(difference02, difference13);
}

ZEPH_INLINE void butterfly8(ComplexVector* a) {
  constexpr float half = 0.707106781186547524401F;  // sqrt(1/2)
  unrolled<4>([&](auto k) ZEPH_INLINED { butterfly2(a[k], a[k + 4]); });
  // Times exp(-2 pi i k / 8).
  a[5] = minusI(a[5], a[5]) * half;
  a[6] = {a[6].im, -a[6].re};
  a[7] = ComplexVector{a[7].im - a[7].re, -(a[7].re + a[7].im)} * half;
  butterfly4(a[0], a[1], a[2], a[3]);
  butterfly4(a[4], a[5], a[6], a[7]);
  const ComplexVector b1 = a[1], b3 = a[3], b6 = a[6];
  a[1] = a[4];
  a[3] = a[5];
  a[6] = b3;
  a[4] = a[2];
  a[2] = b1;
  a[5] = b6;
}

// An odd prime radix: with s = a[q] + a[p-q], d = a[q] - a[p-q] and the angle t = 2 pi q k / p,
// results k and p - k are a[0] + sum s cos t -+ i sum d sin t.
template <int radix>
ZEPH_INLINE void oddButterfly(ComplexVector* a, const float* roots) {
  constexpr int half = radix / 2;
  ComplexVector sum[half], difference[half];
  ComplexVector total = a[0];
  unrolled<half>([&](auto q) ZEPH_INLINED {
    sum[q] = a[q + 1] + a[radix - 1 - q];
    difference[q] = a[q + 1] - a[radix - 1 - q];
    total = total + sum[q];
  });
  unrolled<half>([&](auto k) ZEPH_INLINED {
    ComplexVector even = a[0] + sum[0] * roots[2 * (k + 1)];
    ComplexVector odd = difference[0] * roots[2 * (k + 1) + 1];
    unrolled<half - 1>([&](auto before) ZEPH_INLINED {
      constexpr int q = before + 1;
      constexpr int angle = (q + 1) * (k + 1) % radix;
      even = even + sum[q] * roots[2 * angle];
      odd = odd + difference[q] * roots[2 * angle + 1];
    });
    a[k + 1] = minusI(even, odd);
    a[radix - 1 - k] = plusI(even, odd);
  });
  a[0] = total;
}

// The same for a radix known only at run time.
inline void oddButterfly(ComplexVector* a, int radix, const float* roots) {
  const int half = radix / 2;
  ComplexVector sum[largestRadix / 2], difference[largestRadix / 2];
  ComplexVector total = a[0];
  for (int q = 0; q < half; ++q) {
    sum[q] = a[q + 1] + a[radix - 1 - q];
    difference[q] = a[q + 1] - a[radix - 1 - q];
    total = total + sum[q];
  }
  for (int k = 1; k <= half; ++k) {
    ComplexVector even = a[0];
    ComplexVector odd = {};
    for (int q = 0, angle = k; q < half; ++q) {
      even = even + sum[q] * roots[2 * angle];
      odd = odd + difference[q] * roots[2 * angle + 1];
      angle += k;
      if (angle >= radix) angle -= radix;
    }
    a[k] = minusI(even, odd);
    a[radix - k] = plusI(even, odd);
  }
  a[0] = total;
}

template <int radix>
ZEPH_INLINE void butterfly(ComplexVector* a, const float* roots) {
  if constexpr (radix == 2) {
    butterfly2(a[0], a[1]);
  } else if constexpr (radix == 3) {
    butterfly3(a);
  } else if constexpr (radix == 4) {
    butterfly4(a[0], a[1], a[2], a[3]);
  } else if constexpr (radix == 8) {
    butterfly8(a);
  } else {
    oddButterfly<radix>(a, roots);
  }
}

}  // namespace
}  // namespace zeph::cpu::ZEPH_ISA
