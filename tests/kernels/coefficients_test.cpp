// The per-mode factors that stage 0 computes for the step: phi functions and the exponential.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "tests/kernels/stage_reference.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Sizes;
using test::Stage;
using test::StageLaunch;

struct Phi {
  float one, two, three;
};

// 17 terms by a running term; quotients by powers of two are exact either way.
float series(float sum, float term, float z, int first, int last) {
  for (int m = first; m <= last; ++m) {
    sum = sum + term;
    term = term * (z / static_cast<float>(m));
  }
  return sum + term;
}

Phi seriesOf(float z) {
  const float sixth = 1.0f / 6.0f;
  return {series(1.0f + z / 2.0f, (z / 2.0f) * (z / 3.0f), z, 4, 17),
          series(0.5f + (z / 3.0f) * 0.5f, ((z / 3.0f) * 0.5f) * (z / 4.0f), z, 5, 18),
          series(sixth + (z / 4.0f) * sixth, ((z / 4.0f) * sixth) * (z / 5.0f), z, 6, 19)};
}

Phi closedOf(float z, float e) {
  const float one = (e - 1.0f) / z;
  const float two = (one - 1.0f) / z;
  return {one, two, (two - 0.5f) / z};
}

// The values allowed at z: one from the series; from the closed forms one for each exponential
// within a unit in the last place of the exact one.
std::vector<Phi> candidates(float z) {
  if (std::fabs(z) <= 1.0f) return {seriesOf(z)};
  const float e = static_cast<float>(std::exp(static_cast<double>(z)));
  return {closedOf(z, e), closedOf(z, std::nextafter(e, 0.0f)),
          closedOf(z, std::nextafter(e, 1.0f))};
}

Params paramsOf(int n, Integrator method, float viscosity) {
  Params p = test::paramsOf(n);
  p.method = method;
  p.viscosity = viscosity;
  return p;
}

struct Figures {
  float viscosity, dt;
};

// |L| from 0 to far beyond the underflow of its exponential; L = 1, 2 and 3 met exactly by modes.
constexpr Figures figures[] = {{0.0f, 0.1f},   {1e-30f, 1e-9f},      {1e-6f, 1e-2f}, {1e-3f, 0.02f},
                               {0.25f, 0.25f}, {0.25f, 0.25000003f}, {0.75f, 0.25f}, {0.3f, 0.7f},
                               {5.0f, 1.0f},   {3e30f, 1e3f}};

template <class Check>
void forEveryMode(int n, Integrator method, Check check) {
  const Sizes z(n);
  for (const Figures& f : figures) {
    SCOPED_TRACE(testing::Message() << "N " << n << ", nu " << f.viscosity << ", dt " << f.dt);
    const Params p = paramsOf(n, method, f.viscosity);
    StageLaunch launch(test::randomStage(p, f.dt, 71));
    launch.run(p);
    for (std::size_t j = 0; j < z.n; ++j) {
      const int ky = test::wavenumber(j, z.n);
      for (std::size_t i = 0; i < z.h; ++i) {
        if (!test::isRetained(i, ky, n)) continue;
        std::array<float, 6> c = {};
        for (std::size_t k = 0; k < test::coefficientPlanes(method); ++k) {
          c[k] = launch.coefficients[k * z.half + j * z.w + i];
        }
        const int kx = static_cast<int>(i);
        check((f.viscosity * f.dt) * static_cast<float>(kx * kx + ky * ky), f.dt, c);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

TEST(Coefficients, ThoseOfTheIntegratingFactorFollowTheirFormulasBitForBit) {
  for (const int n : {16, 18, 34, 64}) {
    forEveryMode(n, test::ifHeunRK3, [](float damping, float, const std::array<float, 6>& c) {
      const float z[] = {damping / -3.0f, (damping * -2.0f) / 3.0f, -damping};
      for (std::size_t k = 0; k < 3; ++k) {
        bool found = false;
        for (const Phi& phi : candidates(z[k])) {
          found = found || test::sameBits(c[k], z[k] * phi.one);
        }
        EXPECT_TRUE(found) << "plane " << k << ", z " << z[k] << ": " << test::textOf(c[k]);
      }
    });
  }
}

TEST(Coefficients, ThoseOfExponentialTimeDifferencingFollowTheirFormulasBitForBit) {
  for (const int n : {16, 18, 34, 64}) {
    forEveryMode(n, test::etdrk4, [](float damping, float dt, const std::array<float, 6>& c) {
      const float z = -damping;
      bool whole = false;
      for (const Phi& phi : candidates(z)) {
        const float c3 = dt * ((phi.three * 4.0f) + (phi.one + (phi.two * -3.0f)));
        whole = whole || (test::sameBits(c[0], phi.one * z) && test::sameBits(c[3], c3) &&
                          test::sameBits(c[4], dt * (phi.two - (phi.three + phi.three))) &&
                          test::sameBits(c[5], dt * ((phi.three * 4.0f) - phi.two)));
      }
      EXPECT_TRUE(whole) << "z " << z;
      const float h = damping * -0.5f;
      bool halves = false;
      for (const Phi& psi : candidates(h)) {
        halves = halves ||
                 (test::sameBits(c[1], h * psi.one) && test::sameBits(c[2], (dt * 0.5f) * psi.one));
      }
      EXPECT_TRUE(halves) << "h " << h;
    });
  }
}

TEST(Coefficients, AreNearTheirExactValues) {
  const auto near = [](float value, double exact, double scale) {
    EXPECT_NEAR(static_cast<double>(value), exact, 1.5e-6 * scale);
  };
  forEveryMode(64, test::etdrk4, [&](float damping, float dt, const std::array<float, 6>& c) {
    const double z = -static_cast<double>(damping);
    double one = 1;
    double two = 0.5;
    double three = 1.0 / 6;
    if (z < -0.5) {
      one = std::expm1(z) / z;
      two = (one - 1) / z;
      three = (two - 0.5) / z;
    } else {
      double factor = 1;
      for (int m = 1; m < 24; ++m) {
        factor *= z / (m + 1);
        one += factor;
        two += factor / (m + 2);
        three += factor / ((m + 2) * (m + 3));
      }
    }
    const double step = static_cast<double>(dt);
    near(c[0], std::expm1(z), std::fabs(std::expm1(z)));
    near(c[1], std::expm1(z / 2), std::fabs(std::expm1(z / 2)));
    near(c[2], z == 0 ? step / 2 : step * std::expm1(z / 2) / z, step);
    near(c[3], step * (one - 3 * two + 4 * three), step);
    near(c[4], step * (two - 2 * three), step);
    near(c[5], step * (4 * three - two), step);
  });
}

TEST(Coefficients, WeakDampingIsNotLostToRounding) {
  const Params p = paramsOf(16, test::ifHeunRK3, 1e-12f);
  StageLaunch launch(test::randomStage(p, 1e-3f, 72));
  launch.run(p);
  const Sizes z(16);
  for (std::size_t i = 1; i < z.h; ++i) {
    const double damping = 1e-15 * static_cast<double>(i * i);
    EXPECT_NEAR(launch.coefficients[i], -damping / 3, damping * 1e-6);
    EXPECT_NEAR(launch.coefficients[z.half + i], -damping * 2 / 3, damping * 1e-6);
    EXPECT_NEAR(launch.coefficients[2 * z.half + i], -damping, damping * 1e-6);
  }
}

TEST(Coefficients, WithoutViscosityTheSchemesFallBackToTheirExplicitTableaus) {
  for (const Integrator method : {test::ifHeunRK3, test::etdrk4}) {
    const Params p = paramsOf(16, method, 0.0f);
    StageLaunch launch(test::randomStage(p, 0.5f, 73));
    launch.run(p);
    const std::size_t half = Sizes(16).half;
    const float* c = launch.coefficients.data() + 3;
    EXPECT_EQ(c[0], 0.0f);
    EXPECT_EQ(c[half], 0.0f);
    if (method == test::ifHeunRK3) {
      EXPECT_EQ(c[2 * half], 0.0f);
    } else {
      EXPECT_EQ(c[2 * half], 0.25f);
      EXPECT_NEAR(c[3 * half], 0.5 / 6, 1e-7);  // 1, 2, 2, 1 sixths of the step
      EXPECT_NEAR(c[4 * half], 0.5 / 6, 1e-7);
      EXPECT_NEAR(c[5 * half], 0.5 / 6, 1e-7);
    }
  }
}

TEST(Coefficients, DampingBeyondTheExponentialsRangeClearsAModeInOneStep) {
  for (const Integrator method : {test::imexRK3, test::ifHeunRK3, test::etdrk4}) {
    SCOPED_TRACE(static_cast<int>(method));
    Params p = paramsOf(16, method, 1e3f);
    Stage start = test::randomStage(p, 1.0f, 74);
    for (V2& value : start.padded) value = {0.0f, 0.0f};
    for (V2& value : start.correction) value = {0.0f, 0.0f};
    StageLaunch launch(start);
    for (p.stage = 0; p.stage < test::stagesOf(method); ++p.stage) launch.run(p);
    EXPECT_EQ(launch.clock.healthy, 1u);
    if (method == test::imexRK3) continue;  // Crank-Nicolson turns such a mode round instead
    for (std::size_t k = 0; k < start.omega.size(); ++k) {
      EXPECT_LE(std::fabs(launch.omega[k].re), 2e-7f * std::fabs(start.omega[k].re));
    }
  }
}

TEST(Coefficients, OfModesOutsideTheActiveSetAreNotWritten) {
  const Sizes z(18);
  for (const Integrator method : {test::ifHeunRK3, test::etdrk4}) {
    const Params p = paramsOf(18, method, 0.01f);
    const Stage start = test::randomStage(p, 0.1f, 75);
    test::onEveryProcessor([&] {
      StageLaunch launch(start);
      launch.run(p);
      std::vector<float> expected = launch.coefficients.content();
      for (std::size_t k = 0; k < expected.size(); ++k) {
        const std::size_t j = k % z.half / z.w;
        if (!test::isRetained(k % z.w, test::wavenumber(j, z.n), 18)) {
          expected[k] = start.coefficients[k];
        } else {
          EXPECT_NE(expected[k], start.coefficients[k]);
        }
      }
      ASSERT_TRUE(launch.coefficients.holds(expected));
    });
  }
}

TEST(Coefficients, AreNotChangedByLaterStages) {
  for (const Integrator method : {test::ifHeunRK3, test::etdrk4}) {
    Params p = paramsOf(16, method, 0.01f);
    const Stage start = test::randomStage(p, 0.1f, 76);
    for (p.stage = 1; p.stage < test::stagesOf(method); ++p.stage) {
      StageLaunch launch(start);
      launch.run(p);
      EXPECT_TRUE(launch.coefficients.holds(start.coefficients));
    }
  }
}

TEST(Coefficients, AreTheSameOnEveryProcessor) {
  for (const int n : {34, 256}) {
    for (const Integrator method : {test::ifHeunRK3, test::etdrk4}) {
      for (const Figures& f : figures) {
        const Params p = paramsOf(n, method, f.viscosity);
        const Stage start = test::randomStage(p, f.dt, 77);
        StageLaunch first(start);
        first.run(p);
        test::onEveryProcessor([&] {
          StageLaunch launch(start);
          launch.run(p);
          ASSERT_TRUE(launch.coefficients.holds(first.coefficients.content()));
        });
      }
    }
  }
}

// The exponential is visible in plane 2 of the integrating factor: z phi1(z) = e^z - 1 for z < -1.
TEST(Coefficients, TheExponentialIsNearTheExactOneOverItsWholeRange) {
  const Sizes z(16);
  double worst = 0;
  for (float dt = 1.0001f; dt < 130.0f; dt *= 1.0007f) {
    const Params p = paramsOf(16, test::ifHeunRK3, 1.0f);
    StageLaunch launch(test::randomStage(p, dt, 78));
    launch.run(p);
    for (const std::size_t i : {std::size_t{1}, std::size_t{2}, std::size_t{3}}) {
      const float damping = dt * static_cast<float>(i * i);
      const double exact = std::expm1(-static_cast<double>(damping));
      const double value = static_cast<double>(launch.coefficients[2 * z.half + i]);
      worst = std::max(worst, std::fabs(value - exact));
    }
  }
  EXPECT_LE(worst, 1.2e-7);  // one rounding each of e - 1, the quotient and the product
}

}  // namespace
}  // namespace zeph
