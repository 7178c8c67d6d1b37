// The stage update of the three integrators, given its coefficients.
#include <gtest/gtest.h>

#include <utility>

#include "tests/kernels/stage_reference.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Sizes;
using test::Stage;
using test::StageLaunch;

template <class Body>
void forEveryStage(Body body) {
  for (const Integrator method : {test::imexRK3, test::ifHeunRK3, test::etdrk4}) {
    for (std::uint32_t stage = 0; stage < test::stagesOf(method); ++stage) {
      SCOPED_TRACE(testing::Message()
                   << "method " << static_cast<int>(method) << ", stage " << stage);
      body(method, stage);
    }
  }
}

Params paramsOf(int n, Integrator method, std::uint32_t stage, std::uint32_t operatorKind) {
  Params p = test::paramsOf(n, operatorKind);
  p.method = method;
  p.stage = stage;
  return p;
}

// A mode's element in a half spectrum, and in a padded plane.
std::size_t modeAt(const Sizes& z, std::size_t i, int ky) {
  return static_cast<std::size_t>(ky >= 0 ? ky : ky + static_cast<int>(z.n)) * z.w + i;
}
std::size_t paddedAt(const Sizes& z, std::size_t i, int ky) {
  return static_cast<std::size_t>(ky >= 0 ? ky : ky + static_cast<int>(z.m)) * z.s + i;
}

TEST(AdvanceStage, UpdatesEveryModeBitForBit) {
  for (const int n : test::resolutions) {
    for (const std::uint32_t operatorKind : {0u, 1u}) {
      forEveryStage([&](Integrator method, std::uint32_t stage) {
        SCOPED_TRACE(testing::Message() << "N = " << n << ", operator " << operatorKind);
        const Params p = paramsOf(n, method, stage, operatorKind);
        const Stage start = test::randomStage(p, 0.01f, 61);
        test::onEveryProcessor([&] {
          StageLaunch launch(start);
          launch.run(p);
          Stage expected = start;
          // Those of stage 0 are tested separately.
          if (stage == 0) expected.coefficients = launch.coefficients.content();
          test::advance(expected, p);
          launch.expect(expected);
        });
      });
    }
  }
}

TEST(AdvanceStage, OutsideAStepNothingIsWritten) {
  for (const std::uint32_t operatorKind : {0u, 1u}) {
    forEveryStage([&](Integrator method, std::uint32_t stage) {
      const Params p = paramsOf(18, method, stage, operatorKind);
      Stage start = test::randomStage(p, 0.01f, 62);
      start.clock.stepState = 0;
      start.padded[3] = {test::notANumber, test::infinity};
      StageLaunch launch(start);
      launch.run(p);
      launch.expect(start);
    });
  }
}

TEST(AdvanceStage, RunsInAFinalStepAndAfterAFailureWithinTheStep) {
  forEveryStage([&](Integrator method, std::uint32_t stage) {
    const Params p = paramsOf(16, method, stage, 0);
    const Stage start = test::randomStage(p, 0.01f, 63);
    StageLaunch normal(start);
    normal.run(p);
    for (const auto& [stepState, healthy] : {std::pair{2u, 1u}, std::pair{1u, 0u}}) {
      Stage other = start;
      other.clock.stepState = stepState;
      other.clock.healthy = healthy;
      StageLaunch launch(other);
      launch.run(p);
      EXPECT_TRUE(launch.omega.holds(normal.omega.content()));
      EXPECT_EQ(launch.clock.healthy, healthy);
    }
  });
}

TEST(AdvanceStage, MaskedModesAreSetToZero) {
  forEveryStage([&](Integrator method, std::uint32_t stage) {
    const Params p = paramsOf(18, method, stage, 0);
    const Sizes z(18);
    Stage start = test::randomStage(p, 0.01f, 64);
    const auto isMasked = [&](std::size_t j, std::size_t i) {
      return !test::isRetained(i, test::wavenumber(j, z.n), 18);
    };
    for (std::size_t j = 0; j < z.n; ++j) {
      for (std::size_t i = 0; i < z.w; ++i) {
        if (isMasked(j, i)) start.omega[j * z.w + i] = {test::notANumber, test::infinity};
      }
    }
    StageLaunch launch(start);
    launch.run(p);
    EXPECT_EQ(launch.clock.healthy, 1u);
    int masked = 0;
    for (std::size_t j = 0; j < z.n; ++j) {
      for (std::size_t i = 0; i < z.w; ++i) {
        if (!isMasked(j, i)) continue;
        ++masked;
        EXPECT_TRUE(test::sameBits(launch.omega[j * z.w + i], V2{0.0f, 0.0f}));
        EXPECT_TRUE(test::sameBits(launch.correction[j * z.w + i], V2{0.0f, 0.0f}));
      }
    }
    EXPECT_EQ(masked, 18 + 10 - 1 + 1);  // Nyquist column, Nyquist row, mean
  });
}

TEST(AdvanceStage, AModeThatIsNotFiniteClearsTheHealthFlag) {
  const int n = 64;
  const Sizes z(n);
  for (const std::uint32_t operatorKind : {0u, 1u}) {
    forEveryStage([&](Integrator method, std::uint32_t stage) {
      const Params p = paramsOf(n, method, stage, operatorKind);
      const Stage start = test::randomStage(p, 0.01f, 65);
      struct Mode {
        std::size_t i;
        int ky;
      };
      for (const Mode& mode :
           {Mode{1, 0}, Mode{0, 1}, Mode{0, -1}, Mode{31, 31}, Mode{31, -31}, Mode{17, -5}}) {
        for (const float value : {test::notANumber, test::infinity, -test::infinity}) {
          for (const bool imaginary : {false, true}) {
            Stage bad = start;
            // A plane that the term of this mode uses.
            const bool needsProduct = operatorKind == 0 && (mode.i == 0 || mode.ky == 0);
            V2& given = bad.padded[(needsProduct ? z.plane : 0) + paddedAt(z, mode.i, mode.ky)];
            (imaginary ? given.im : given.re) = value;
            StageLaunch launch(bad);
            launch.run(p);
            EXPECT_EQ(launch.clock.healthy, 0u)
                << mode.i << " " << mode.ky << " " << value << " " << imaginary;
            // The other modes are still advanced.
            EXPECT_TRUE(std::isfinite(launch.omega[modeAt(z, 9, 9)].re));
          }
        }
      }
    });
  }
}

TEST(AdvanceStage, PaddedModesOutsideTheActiveSetAreNotRead) {
  for (const int n : {16, 18}) {
    const Sizes z(n);
    forEveryStage([&](Integrator method, std::uint32_t stage) {
      const Params p = paramsOf(n, method, stage, 0);
      Stage start = test::randomStage(p, 0.01f, 66);
      for (std::size_t k = 0; k < 2 * z.plane; ++k) {
        const std::size_t j = k % z.plane / z.s;
        if (!test::isRetained(k % z.s, test::wavenumber(j, z.m), n)) {
          start.padded[k] = {test::notANumber, test::notANumber};
        }
      }
      StageLaunch launch(start);
      launch.run(p);
      EXPECT_EQ(launch.clock.healthy, 1u);
    });
  }
}

TEST(AdvanceStage, TheFirstStageReadsNothingOfAnEarlierStep) {
  for (const Integrator method : {test::imexRK3, test::ifHeunRK3, test::etdrk4}) {
    SCOPED_TRACE(static_cast<int>(method));
    const Params p = paramsOf(16, method, 0, 0);
    Stage start = test::randomStage(p, 0.01f, 67);
    const V2 bad = {test::notANumber, test::notANumber};
    for (auto* array : {&start.base, &start.first, &start.middle, &start.predictor}) {
      for (V2& value : *array) value = bad;
    }
    for (float& value : start.coefficients) value = test::notANumber;
    StageLaunch launch(start);
    launch.run(p);
    EXPECT_EQ(launch.clock.healthy, 1u);
  }
}

TEST(AdvanceStage, AModeAt45DegreesUsesOnlyOneProductOfTheStress) {
  const Sizes z(16);
  const Params p = paramsOf(16, test::imexRK3, 0, 0);
  const Stage start = test::randomStage(p, 0.01f, 68);
  const auto changed = [&](std::size_t plane, std::size_t i, int ky) {
    Stage other = start;
    other.padded[plane * z.plane + paddedAt(z, i, ky)].re += 100.0f;
    StageLaunch before(start);
    StageLaunch after(other);
    before.run(p);
    after.run(p);
    return !test::sameBits(before.omega[modeAt(z, i, ky)], after.omega[modeAt(z, i, ky)]);
  };
  EXPECT_TRUE(changed(0, 5, -5));
  EXPECT_FALSE(changed(1, 5, -5));
  EXPECT_FALSE(changed(0, 0, 5));
  EXPECT_TRUE(changed(1, 0, 5));
  EXPECT_FALSE(changed(0, 5, 0));
  EXPECT_TRUE(changed(1, 5, 0));
}

TEST(AdvanceStage, TheCorrectionCarriesTheRoundingError) {
  // Increments far below the last digit of the state add up over many steps.
  const Sizes z(16);
  for (const Integrator method : {test::imexRK3, test::ifHeunRK3, test::etdrk4}) {
    SCOPED_TRACE(static_cast<int>(method));
    Params p = paramsOf(16, method, 0, 1);
    p.viscosity = 0.0f;
    Stage start = test::randomStage(p, 1e-3f, 69);
    for (V2& value : start.omega) value = {1.0f, 1.0f};
    for (V2& value : start.correction) value = {0.0f, 0.0f};
    for (V2& value : start.padded) value = {2.25e-5f, 0.0f};  // a term of 1e-5
    StageLaunch launch(start);
    for (int step = 0; step < 1000; ++step) {
      for (p.stage = 0; p.stage < test::stagesOf(method); ++p.stage) launch.run(p);
    }
    EXPECT_NEAR(launch.omega[modeAt(z, 3, 2)].re, 1.0 + 1000 * 1e-3 * 1e-5, 1.3e-7);
    EXPECT_GT(launch.omega[modeAt(z, 3, 2)].re, 1.000009f);
  }
}

}  // namespace
}  // namespace zeph
