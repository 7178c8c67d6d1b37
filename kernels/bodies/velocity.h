// Velocity and gradient spectra: u^ = i ky w^ / k^2, v^ = -i kx w^ / k^2.
#pragma once

#include "kernels/bodies/body.h"

namespace zeph {

struct SpectrumPair {
  V2 x, y;
};

// k^2 is not 0. The quotient is rounded once and serves both components.
ZEPH_BODY SpectrumPair velocityOf(V2 w, int i, int ky) {
  const V2 iw = {-w.im, w.re};
  const float k2 = waveSquare(i, ky);
  const float p = static_cast<float>(ky) / k2;
  const float q = -static_cast<float>(i) / k2;
  return {p * iw, q * iw};
}

ZEPH_BODY SpectrumPair gradientOf(V2 w, int i, int ky) {
  const V2 iw = {-w.im, w.re};
  return {static_cast<float>(i) * iw, static_cast<float>(ky) * iw};
}

}  // namespace zeph
