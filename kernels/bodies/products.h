// The nonlinear term -u.grad w: its products at a point, and its assembly from their spectra.
#pragma once

#include "kernels/bodies/body.h"

namespace zeph {

// The time step is bounded by the sum of the components, not by the Euclidean speed.
ZEPH_BODY float speedBound(float u, float v) {
  return magnitude(u) + magnitude(v);
}

struct StressProducts {
  float difference, product;  // u^2 - v^2, u v
};

ZEPH_BODY StressProducts stressProducts(float u, float v) {
  return {(u * u) - (v * v), u * v};
}

ZEPH_BODY float advectiveProduct(float u, float v, float gx, float gy) {
  return -((u * gx) + (v * gy));
}

// The curl of the divergence of the momentum flux: (kx^2 - ky^2) (uv)^ - kx ky (u^2 - v^2)^.
// c = kx ky and d = kx^2 - ky^2, each rounded once.
template <class C, class F>
ZEPH_BODY C stressTermOf(C difference, C product, F c, F d) {
  return (d * product) - (c * difference);
}

ZEPH_BODY V2 stressTerm(V2 difference, V2 product, int i, int ky) {
  return stressTermOf(difference, product, static_cast<float>(ky * i),
                      static_cast<float>(i * i - ky * ky));
}

// N^2 / M^2, which converts a spectrum of the padded grid to the scale of the state.
ZEPH_BODY float termScale(std::uint32_t n, std::uint32_t m) {
  return static_cast<float>(n * n) / static_cast<float>(m * m);
}

}  // namespace zeph
