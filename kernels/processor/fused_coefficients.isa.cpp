// The factors of all modes for the fused step, a vector of modes at once, with the bits that the
// stage update of single modes gives them.
#include "kernels/processor/fused_columns.h"
#include "kernels/processor/fused_update.h"

namespace zeph {

// Ends the series of a vector of modes where the terms of all of them are below 2^-28. The sums of
// phi1, phi2 and phi3 lie between 1/8 and 1 for the z of a series, so that half a unit in the last
// place of each is more, and later terms are smaller still: every bit of the sums stays.
template <>
struct SeriesEnd<cpu::ZEPH_ISA::Vector> {
  [[gnu::always_inline]] static inline bool isReached(cpu::ZEPH_ISA::Vector term) {
    constexpr float negligible = 3.7252903e-9f;  // 2^-28
    return !cpu::ZEPH_ISA::anyLane(~(cpu::ZEPH_ISA::magnitude(term) < negligible));
  }
};

}  // namespace zeph

namespace zeph::cpu::ZEPH_ISA {
namespace {

// phi1 alone, or all three functions.
struct Phi1Alone {
  static constexpr int count = 1;
  ZEPH_INLINE static void ofVector(Vector z, Vector* phi) { phi[0] = phi1<true>(z); }
  ZEPH_INLINE static void ofMode(float z, float* const* phi, int l) { phi[0][l] = phi1<false>(z); }
};
struct AllPhi {
  static constexpr int count = 3;
  ZEPH_INLINE static void ofVector(Vector z, Vector* phi) {
    const Phi<Vector> all = phiAll<true>(z);
    phi[0] = all.one;
    phi[1] = all.two;
    phi[2] = all.three;
  }
  ZEPH_INLINE static void ofMode(float z, float* const* phi, int l) {
    const Phi<> all = phiAll<false>(z);
    phi[0][l] = all.one;
    phi[1][l] = all.two;
    phi[2][l] = all.three;
  }
};

// The closed forms, lane by lane in a loop that the compiler makes vectors of.
template <class Functions>
void closedForms(Vector z, Vector* phi) {
  alignas(vectorBytes) float exponents[vectorWidth], values[Functions::count][vectorWidth];
  float* rows[Functions::count];
  for (int k = 0; k < Functions::count; ++k) rows[k] = values[k];
  store(exponents, z);
  for (int l = 0; l < vectorWidth; ++l) Functions::ofMode(exponents[l], rows, l);
  for (int k = 0; k < Functions::count; ++k) phi[k] = load(values[k]);
}

// Each mode by the form that its exponent has.
template <class Functions>
ZEPH_INLINE void phiFunctions(Vector z, Vector* phi) {
  const IntVector series = magnitude(z) <= 1.0f;
  if (anyLane(series)) Functions::ofVector(z, phi);
  if (!anyLane(~series)) return;
  Vector closed[Functions::count];
  closedForms<Functions>(z, closed);
  for (int k = 0; k < Functions::count; ++k) phi[k] = series ? phi[k] : closed[k];
}

template <int PLANE>
ZEPH_INLINE Vector heunFactor(Vector damping) {
  const Vector z = heunExponent<PLANE>(damping);
  Vector phi = {};
  phiFunctions<Phi1Alone>(z, &phi);
  return z * phi;
}

void formHeun(const FactorTile& factors, int ky, Vector damping) {
  factors.store(ky, 0, heunFactor<0>(damping));
  factors.store(ky, 1, heunFactor<1>(damping));
  factors.store(ky, 2, heunFactor<2>(damping));
}

void formEtd(const FactorTile& factors, int ky, Vector damping, float dt) {
  const Vector h = halfExponent(damping), z = wholeExponent(damping);
  Vector psi = {}, phi[3] = {};
  phiFunctions<Phi1Alone>(h, &psi);
  phiFunctions<AllPhi>(z, phi);
  const HalfStepCoefficients<Vector> half = halfStepOf(h, psi, dt);
  const WholeStepCoefficients<Vector> whole =
      wholeStepOf(z, Phi<Vector>{phi[0], phi[1], phi[2]}, dt);
  factors.store(ky, etdC1, half.c1);
  factors.store(ky, etdC2, half.c2);
  factors.store(ky, etdC0, whole.c0);
  factors.store(ky, etdC3, whole.c3);
  factors.store(ky, etdC4, whole.c4);
  factors.store(ky, etdC5, whole.c5);
}

}  // namespace

void fusedCoefficients(const FusedPass& pass, int tile, int) {
  const TileColumns columns(pass, tile);
  const FactorTile factors(pass, columns);
  const float viscosity = pass.p.viscosity, dt = pass.clock->dt;
  for (int ky = 0; ky < pass.line->half; ++ky) {
    const Vector damping = dampingOf(viscosity, dt, columns.waveSquare(ky));
    if (pass.p.method == Integrator::etdrk4) {
      formEtd(factors, ky, damping, dt);
    } else {
      formHeun(factors, ky, damping);
    }
  }
}

}  // namespace zeph::cpu::ZEPH_ISA
