// The stage update: one loop over a row of modes for each stage of each integrator.
#include "kernels/bodies/integrators.h"
#include "kernels/bodies/products.h"
#include "kernels/processor/processor_kernels.h"
#include "kernels/processor/processor_loops.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

constexpr int mostPlanes = needsOf(Integrator::etdrk4).coefficientPlanes;

// Everything that a row of modes needs; arrays begin at the row.
struct Row {
  int ky;
  int begin, end;  // active modes
  V2 *omega, *base, *first, *middle, *predictor, *correction;
  float* coefficients[mostPlanes];
  const V2 *plane0, *plane1;  // transformed products at the row of the same wavenumber
};

struct Step {
  float viscosity, dt;
  float scale;  // of the nonlinear term
};

// Advances a row by a stage. True if the state is no longer finite.
using RowUpdate = bool (*)(const Row& row, const Step& step);

template <bool ADVECTIVE>
ZEPH_BODY V2 termAt(const V2* plane0, const V2* plane1, int i, int ky, float scale) {
  if constexpr (ADVECTIVE) return scale * plane0[i];
  return scale * stressTerm(plane0[i], plane1[i], i, ky);
}

ZEPH_BODY unsigned nonFiniteMode(V2 w) {
  return static_cast<unsigned>(nonFinite(w.re)) | static_cast<unsigned>(nonFinite(w.im));
}

// Calls update(i, term) for each active mode of a row.
template <bool ADVECTIVE, class Update>
ZEPH_BODY bool updateModes(const Row& row, const Step& step, Update update) {
  const V2* plane0 = row.plane0;
  const V2* plane1 = row.plane1;
  const V2* omega = row.omega;
  const int ky = row.ky;
  const float scale = step.scale;
  unsigned invalid = 0;
  ZEPH_INDEPENDENT
  for (int i = row.begin; i < row.end; ++i) {
    update(i, termAt<ADVECTIVE>(plane0, plane1, i, ky, scale));
    invalid |= nonFiniteMode(omega[i]);
  }
  return invalid != 0;
}

// The rows and the step are copied, so that the loops keep them in registers.
template <bool ADVECTIVE, int STAGE>
bool imexRow(const Row& row, const Step& step) {
  return updateModes<ADVECTIVE>(row, step, [r = row, s = step](int i, V2 term) {
    imexStage<STAGE>(term, s.viscosity, s.dt, waveSquare(i, r.ky), r.omega[i], r.first[i],
                     r.correction[i]);
  });
}

template <bool ADVECTIVE, int STAGE>
bool heunRow(const Row& row, const Step& step) {
  return updateModes<ADVECTIVE>(row, step, [r = row, s = step](int i, V2 term) {
    const auto& c = r.coefficients;
    heunStage<STAGE>(term, s.dt, HeunCoefficients<>{c[0][i], c[1][i], c[2][i]}, r.omega[i],
                     r.base[i], r.first[i], r.correction[i]);
  });
}

template <bool ADVECTIVE, int STAGE>
bool etdRow(const Row& row, const Step& step) {
  return updateModes<ADVECTIVE>(row, step, [r = row](int i, V2 term) {
    const auto& c = r.coefficients;
    etdStage<STAGE>(term, EtdCoefficients<>{c[0][i], c[1][i], c[2][i], c[3][i], c[4][i], c[5][i]},
                    r.omega[i], r.base[i], r.first[i], r.middle[i], r.predictor[i],
                    r.correction[i]);
  });
}

template <bool ADVECTIVE>
RowUpdate updateOf(Integrator method, std::uint32_t stage) {
  constexpr RowUpdate imex[needsOf(Integrator::imexRK3).stages] = {
      imexRow<ADVECTIVE, 0>, imexRow<ADVECTIVE, 1>, imexRow<ADVECTIVE, 2>};
  constexpr RowUpdate heun[needsOf(Integrator::ifHeunRK3).stages] = {
      heunRow<ADVECTIVE, 0>, heunRow<ADVECTIVE, 1>, heunRow<ADVECTIVE, 2>};
  constexpr RowUpdate etd[needsOf(Integrator::etdrk4).stages] = {
      etdRow<ADVECTIVE, 0>, etdRow<ADVECTIVE, 1>, etdRow<ADVECTIVE, 2>, etdRow<ADVECTIVE, 3>};
  if (method == Integrator::imexRK3) return imex[stage];
  if (method == Integrator::ifHeunRK3) return heun[stage];
  return etd[stage];
}

// The first mode of a row whose exponent is too large for the series. Damping grows along the row,
// so all modes before it use the series and all others the closed form.
template <class Exponent>
int endOfSeries(const Row& row, Exponent exponent) {
  int begin = row.begin;
  int end = row.end;
  while (begin < end) {
    const int middle = begin + (end - begin) / 2;
    if (hasSeries(exponent(middle))) {
      begin = middle + 1;
    } else {
      end = middle;
    }
  }
  return begin;
}

template <bool SERIES, int PLANE>
void heunCoefficients(const Row& row, const Step& step, int begin, int end) {
  float* __restrict c = row.coefficients[PLANE];
  const Step s = step;
  const int ky = row.ky;
  for (int i = begin; i < end; ++i) {
    c[i] = heunCoefficient<SERIES>(
        heunExponent<PLANE>(dampingOf(s.viscosity, s.dt, waveSquare(i, ky))));
  }
}

template <int PLANE>
void heunPlane(const Row& row, const Step& step) {
  const int split = endOfSeries(row, [&](int i) {
    return heunExponent<PLANE>(dampingOf(step.viscosity, step.dt, waveSquare(i, row.ky)));
  });
  heunCoefficients<true, PLANE>(row, step, row.begin, split);
  heunCoefficients<false, PLANE>(row, step, split, row.end);
}

template <bool SERIES>
void halfStepRow(const Row& row, const Step& step, int begin, int end) {
  float* __restrict c1 = row.coefficients[1];
  float* __restrict c2 = row.coefficients[2];
  const Step s = step;
  const int ky = row.ky;
  for (int i = begin; i < end; ++i) {
    const float h = halfExponent(dampingOf(s.viscosity, s.dt, waveSquare(i, ky)));
    const HalfStepCoefficients<> c = halfStepCoefficients<SERIES>(h, s.dt);
    c1[i] = c.c1;
    c2[i] = c.c2;
  }
}

template <bool SERIES>
void wholeStepRow(const Row& row, const Step& step, int begin, int end) {
  float* __restrict c0 = row.coefficients[0];
  float* __restrict c3 = row.coefficients[3];
  float* __restrict c4 = row.coefficients[4];
  float* __restrict c5 = row.coefficients[5];
  const Step s = step;
  const int ky = row.ky;
  for (int i = begin; i < end; ++i) {
    const float z = wholeExponent(dampingOf(s.viscosity, s.dt, waveSquare(i, ky)));
    const WholeStepCoefficients<> c = wholeStepCoefficients<SERIES>(z, s.dt);
    c0[i] = c.c0;
    c3[i] = c.c3;
    c4[i] = c.c4;
    c5[i] = c.c5;
  }
}

void formCoefficients(const Row& row, const Step& step, Integrator method) {
  const auto damping = [&](int i) {
    return dampingOf(step.viscosity, step.dt, waveSquare(i, row.ky));
  };
  if (method == Integrator::ifHeunRK3) {
    heunPlane<0>(row, step);
    heunPlane<1>(row, step);
    heunPlane<2>(row, step);
  } else if (method == Integrator::etdrk4) {
    const int half = endOfSeries(row, [&](int i) { return halfExponent(damping(i)); });
    halfStepRow<true>(row, step, row.begin, half);
    halfStepRow<false>(row, step, half, row.end);
    const int whole = endOfSeries(row, [&](int i) { return wholeExponent(damping(i)); });
    wholeStepRow<true>(row, step, row.begin, whole);
    wholeStepRow<false>(row, step, whole, row.end);
  }
}

// The rows of ky and -ky have the same coefficients.
void copyCoefficients(const Row& from, const Row& to, int planes) {
  for (int k = 0; k < planes; ++k) {
    for (int i = from.begin; i < from.end; ++i) to.coefficients[k][i] = from.coefficients[k][i];
  }
}

// The arguments of the kernel, and where a row begins in them.
struct StageUpdate {
  StageArrays arrays;
  Params p;
  IntegratorNeeds needs;
  Step step;
  RowUpdate update;

  int n() const { return static_cast<int>(p.resolution); }
  int m() const { return static_cast<int>(p.padded); }

  Row rowAt(int ky) const {
    const int nyquist = n() / 2;
    const std::size_t width = static_cast<std::size_t>(halfWidth(n()));
    const std::size_t at = static_cast<std::size_t>(rowOf(ky, n())) * width;
    const std::size_t stride = static_cast<std::size_t>(paddedStride(m()));
    const V2* plane0 = arrays.padded + static_cast<std::size_t>(rowOf(ky, m())) * stride;
    Row row = {};
    row.ky = ky;
    row.begin = ky == 0 ? 1 : 0;
    row.end = nyquist;
    row.omega = arrays.omega + at;
    row.first = arrays.first + at;
    row.correction = arrays.correction + at;
    // Arrays that are not in use may have a single element.
    row.base = needs.base ? arrays.base + at : arrays.base;
    row.middle = needs.middle ? arrays.middle + at : arrays.middle;
    row.predictor = needs.predictor ? arrays.predictor + at : arrays.predictor;
    for (int k = 0; k < mostPlanes; ++k) {
      const std::size_t plane = static_cast<std::size_t>(k) * width * p.resolution;
      row.coefficients[k] = arrays.coefficients + (k < needs.coefficientPlanes ? plane + at : 0);
    }
    row.plane0 = plane0;
    row.plane1 = plane0 + stride * static_cast<std::size_t>(m());
    return row;
  }

  void clearModes(int ky, int begin, int end) const {
    const std::size_t at =
        static_cast<std::size_t>(rowOf(ky, n())) * static_cast<std::size_t>(halfWidth(n()));
    for (int i = begin; i < end; ++i) arrays.omega[at + static_cast<std::size_t>(i)] = {0.0f, 0.0f};
    for (int i = begin; i < end; ++i)
      arrays.correction[at + static_cast<std::size_t>(i)] = {0.0f, 0.0f};
  }

  bool updateRow(const Row& row) const {
    const bool invalid = update(row, step);
    clearModes(row.ky, 0, row.begin);
    clearModes(row.ky, row.end, halfWidth(n()));
    return invalid;
  }

  // Advances the rows ky and -ky. The row of the Nyquist wavenumber has no active mode.
  bool updatePair(int ky) const {
    if (ky == n() / 2) {
      clearModes(ky, 0, halfWidth(n()));
      return false;
    }
    const Row row = rowAt(ky);
    if (p.stage == 0) formCoefficients(row, step, p.method);
    bool invalid = updateRow(row);
    if (ky > 0) {
      const Row mirror = rowAt(-ky);
      if (p.stage == 0) copyCoefficients(row, mirror, needs.coefficientPlanes);
      invalid = updateRow(mirror) || invalid;
    }
    return invalid;
  }
};

}  // namespace

void advanceStage(const StageArrays& arrays, const Params& p) {
  ClockState* clock = arrays.clock;
  if (clock->stepState == noStep) return;
  const StageUpdate stage = {
      .arrays = arrays,
      .p = p,
      .needs = needsOf(p.method),
      .step = {p.viscosity, clock->dt, termScale(p.resolution, p.padded)},
      .update = p.operatorKind == OperatorKind::advective ? updateOf<true>(p.method, p.stage)
                                                          : updateOf<false>(p.method, p.stage),
  };
  const int pairs = stage.n() / 2 + 1;
  shareRows(pairs, stage.n(), [&stage, clock](int begin, int end) {
    bool invalid = false;
    for (int ky = begin; ky < end; ++ky) invalid = stage.updatePair(ky) || invalid;
    if (invalid) __atomic_exchange_n(&clock->healthy, 0u, __ATOMIC_RELAXED);
  });
}

}  // namespace zeph::cpu::ZEPH_ISA
