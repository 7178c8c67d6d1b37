// One launch of the stage update as plain loops: mode after mode, component after component, every
// operation in single precision and in the order of the formulas.
#pragma once

#include <vector>

#include "kernels/kernels.h"
#include "tests/support/arrays.h"
#include "tests/support/guarded.h"

namespace zeph::test {

using enum Integrator;

constexpr std::uint32_t stagesOf(Integrator method) {
  return method == etdrk4 ? 4 : 3;
}
constexpr std::size_t coefficientPlanes(Integrator method) {
  return method == etdrk4 ? 6 : method == ifHeunRK3 ? 3 : 0;
}

// What a stage reads and writes. Arrays that the integrator does not use have one element.
struct Stage {
  std::vector<V2> omega, padded, base, first, middle, predictor, correction;
  std::vector<float> coefficients;
  ClockState clock;
};

// Every array filled with numbers, and a clock within a normal step.
inline Stage randomStage(const Params& p, float dt, unsigned seed) {
  const Sizes z(static_cast<int>(p.resolution));
  Numbers numbers(seed);
  const auto modes = [&](bool isUsed) { return numbers.modes(isUsed ? z.half : 1); };
  const std::size_t tables = coefficientPlanes(p.method);
  Stage stage = {
      .omega = modes(true),
      .padded = numbers.modes((p.operatorKind == OperatorKind::stress ? 2 : 4) * z.plane),
      .base = modes(p.method != imexRK3),
      .first = modes(true),
      .middle = modes(p.method == etdrk4),
      .predictor = modes(p.method == etdrk4),
      .correction = modes(true),
      .coefficients = numbers.floats(tables > 0 ? tables * z.half : 1),
      .clock = {},
  };
  stage.clock.dt = dt;
  stage.clock.rawDt = 77.0f;
  stage.clock.healthy = 1;
  stage.clock.stepState = 1;
  return stage;
}

// The nonlinear term of a mode from the transformed products.
inline V2 termOf(const Stage& stage, const Params& p, int i, int ky) {
  const Sizes z(static_cast<int>(p.resolution));
  const std::size_t row = static_cast<std::size_t>(ky >= 0 ? ky : ky + static_cast<int>(z.m));
  const std::size_t at = row * z.s + static_cast<std::size_t>(i);
  V2 t = stage.padded[at];
  if (p.operatorKind == OperatorKind::stress) {
    const V2 q = stage.padded[z.plane + at];
    const float c = static_cast<float>(ky * i);
    const float d = static_cast<float>(i * i - ky * ky);
    t = {(q.re * d) - (t.re * c), (q.im * d) - (t.im * c)};
  }
  const float r =
      static_cast<float>(p.resolution * p.resolution) / static_cast<float>(p.padded * p.padded);
  return {r * t.re, r * t.im};
}

// One component of one mode; the planes hold the coefficients of this step.
struct Component {
  float &omega, &base, &first, &middle, &predictor, &correction;
  const float* c;  // of the mode, one for each plane

  void compensate(float from, float increment) {
    const float y = increment - correction;
    const float t = from + y;
    correction = (t - from) - y;
    omega = t;
  }

  void imex(std::uint32_t stage, float n, float viscosity, float dt, float k2) {
    constexpr float gamma[] = {8.0f / 15.0f, 5.0f / 12.0f, 3.0f / 4.0f};
    constexpr float zeta[] = {0.0f, -17.0f / 60.0f, -5.0f / 12.0f};
    constexpr float beta[] = {4.0f / 15.0f, 1.0f / 15.0f, 1.0f / 6.0f};
    const float a = (viscosity * (beta[stage] * dt)) * k2;
    float r = gamma[stage] * n;
    if (stage > 0) r = r + zeta[stage] * first;
    compensate(omega, ((dt * r) - ((a + a) * omega)) / (a + 1.0f));
    first = n;
  }

  void heun(std::uint32_t stage, float n, float dt) {
    const float damped = n + n * c[0];
    if (stage == 0) {
      base = omega;
      first = n;
      omega = base + (((dt / 3.0f) * damped) + (c[0] * base));
    } else if (stage == 1) {
      omega = base + ((c[1] * base) + (((dt + dt) / 3.0f) * damped));
    } else {
      compensate(base, ((c[2] * base) + ((dt * 0.25f) * (first + c[2] * first))) +
                           (((dt * 3.0f) * 0.25f) * damped));
    }
  }

  void etd(std::uint32_t stage, float n) {
    if (stage == 0) {
      base = omega;
      first = n;
      predictor = base + ((n * c[2]) + (c[1] * base));
      omega = predictor;
    } else if (stage == 1) {
      middle = n;
      omega = base + ((c[1] * base) + (n * c[2]));
    } else if (stage == 2) {
      middle = n + middle;
      omega = predictor + ((c[1] * predictor) + (c[2] * ((n + n) - first)));
    } else {
      compensate(base, (((c[0] * base) + (c[3] * first)) + ((c[4] + c[4]) * middle)) + (n * c[5]));
    }
  }

  void advance(const Params& p, float n, float dt, float k2) {
    if (p.method == imexRK3) imex(p.stage, n, p.viscosity, dt, k2);
    if (p.method == ifHeunRK3) heun(p.stage, n, dt);
    if (p.method == etdrk4) etd(p.stage, n);
  }
};

inline void advanceMode(Stage& stage, const Params& p, std::size_t at, int i, int ky) {
  const std::size_t half = Sizes(static_cast<int>(p.resolution)).half;
  float c[6] = {};
  for (std::size_t k = 0; k < coefficientPlanes(p.method); ++k) {
    c[k] = stage.coefficients[k * half + at];
  }
  const std::size_t base = p.method == imexRK3 ? 0 : at;
  const std::size_t etd = p.method == etdrk4 ? at : 0;
  const float k2 = static_cast<float>(i * i + ky * ky);
  const V2 n = termOf(stage, p, i, ky);
  Component re = {stage.omega[at].re,
                  stage.base[base].re,
                  stage.first[at].re,
                  stage.middle[etd].re,
                  stage.predictor[etd].re,
                  stage.correction[at].re,
                  c};
  Component im = {stage.omega[at].im,
                  stage.base[base].im,
                  stage.first[at].im,
                  stage.middle[etd].im,
                  stage.predictor[etd].im,
                  stage.correction[at].im,
                  c};
  re.advance(p, n.re, stage.clock.dt, k2);
  im.advance(p, n.im, stage.clock.dt, k2);
  const V2 w = stage.omega[at];
  if (!std::isfinite(w.re) || !std::isfinite(w.im)) stage.clock.healthy = 0;
}

// A whole launch, with the coefficients in the planes.
inline void advance(Stage& stage, const Params& p) {
  if (stage.clock.stepState == 0) return;
  const Sizes z(static_cast<int>(p.resolution));
  for (std::size_t j = 0; j < z.n; ++j) {
    const int ky = wavenumber(j, z.n);
    for (std::size_t i = 0; i < z.w; ++i) {
      const std::size_t at = j * z.w + i;
      if (isRetained(i, ky, static_cast<int>(z.n))) {
        advanceMode(stage, p, at, static_cast<int>(i), ky);
      } else {
        stage.omega[at] = {0.0f, 0.0f};
        stage.correction[at] = {0.0f, 0.0f};
      }
    }
  }
}

// The kernel on guarded copies of the arrays.
struct StageLaunch {
  explicit StageLaunch(const Stage& stage)
      : omega(stage.omega),
        padded(stage.padded),
        base(stage.base),
        first(stage.first),
        middle(stage.middle),
        predictor(stage.predictor),
        correction(stage.correction),
        coefficients(stage.coefficients),
        clock(stage.clock) {}

  void run(const Params& p) {
    const StageArrays arrays = {
        .omega = omega.data(),
        .padded = padded.data(),
        .base = base.data(),
        .first = first.data(),
        .middle = middle.data(),
        .predictor = predictor.data(),
        .coefficients = coefficients.data(),
        .clock = &clock,
        .correction = correction.data(),
    };
    advanceStage(nullptr, arrays, p);
  }

  void expect(const Stage& expected) const {
    EXPECT_TRUE(omega.holds(expected.omega)) << "omega";
    EXPECT_TRUE(padded.holds(expected.padded)) << "padded";
    EXPECT_TRUE(base.holds(expected.base)) << "base";
    EXPECT_TRUE(first.holds(expected.first)) << "first";
    EXPECT_TRUE(middle.holds(expected.middle)) << "middle";
    EXPECT_TRUE(predictor.holds(expected.predictor)) << "predictor";
    EXPECT_TRUE(correction.holds(expected.correction)) << "correction";
    EXPECT_TRUE(coefficients.holds(expected.coefficients)) << "coefficients";
    EXPECT_EQ(clock.healthy, expected.clock.healthy);
    EXPECT_EQ(clock.stepState, expected.clock.stepState);
    EXPECT_EQ(clock.dt, expected.clock.dt);
    EXPECT_EQ(clock.rawDt, expected.clock.rawDt);
    EXPECT_EQ(clock.steps, expected.clock.steps);
  }

  Guarded<V2> omega, padded, base, first, middle, predictor, correction;
  Guarded<float> coefficients;
  ClockState clock;
};

}  // namespace zeph::test
