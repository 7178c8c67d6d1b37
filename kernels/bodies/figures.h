// What one mode adds to the statistics of a flow, and one sample to the moments of a snapshot.
#pragma once

#include "kernels/bodies/body.h"

namespace zeph {

struct ModeFigures {
  float enstrophy, palinstrophy, energy;
  bool invalid;
};

// The half spectrum leaves out the conjugate of each mode, so modes count twice, except in the
// columns that hold their own conjugates, 0 and N/2. The mean mode has no energy.
ZEPH_BODY ModeFigures modeFigures(V2 w, float scale, int i, int ky, int nyquist) {
  const float a = scale * w.re;
  const float b = scale * w.im;
  const float weight = i == 0 || i == nyquist ? 1.0f : 2.0f;
  const int square = i * i + ky * ky;
  const float k2 = static_cast<float>(square);
  const float q = (((a * a) + (b * b)) * 0.5f) * weight;
  return {q, q * k2, square != 0 ? q / k2 : 0.0f, nonFinite(a) || nonFinite(b)};
}

ZEPH_BODY float euclideanSpeed(float u, float v) {
  return squareRoot((u * u) + (v * v));
}

}  // namespace zeph
