// How a flow starts, and the figures of its start.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "solver/start_spectra.h"
#include "tests/support/arrays.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::Sizes;

constexpr double turn = 2 * std::numbers::pi;

// The coefficient (kx, ky) of a spectrum of N * N.
V2 coefficient(const std::vector<V2>& spectrum, int n, int kx, int ky) {
  const auto index = [n](int k) { return static_cast<std::size_t>((k + n) % n); };
  return spectrum[index(ky) * static_cast<std::size_t>(n) + index(kx)];
}

std::vector<float> sum(std::vector<float> a, const std::vector<float>& b) {
  for (std::size_t k = 0; k < a.size(); ++k) a[k] += b[k];
  return a;
}

TEST(Reset, ANewSolverIsAtTimeZeroWithItsFirstStepChosen) {
  for (const Integrator integrator : test::integrators) {
    for (const OperatorKind operatorKind : test::operators) {
      const Solver solver(test::configOf(18, integrator, operatorKind));
      const Statistics stats = solver.lastStats();
      EXPECT_EQ(stats.steps, 0u);
      EXPECT_EQ(stats.time, 0.0);
      EXPECT_GT(stats.dt, 0.0f);
      EXPECT_GT(stats.energy, 0.0);
      EXPECT_EQ(stats.gpuMilliseconds, 0.0);
      EXPECT_EQ(stats.reynolds, 1000.0);
    }
  }
}

TEST(Reset, WithoutSamplesStartsTheSeededFlow) {
  for (const StartSpectrum spectrum : {StartSpectrum::PAO, StartSpectrum::KM3}) {
    Config config = test::configOf(34);
    config.start_spectrum = spectrum;
    const Sizes z(34);
    const std::vector<V2> seeded = startSpectrum(config);
    const std::vector<V2> full = Solver(config).spectrum();
    const float g = 1.0f / static_cast<float>(34 * 34);
    for (std::size_t j = 0; j < z.n; ++j) {
      for (std::size_t i = 0; i < z.n; ++i) {
        const bool isStored = i <= z.h;
        const V2 w = isStored ? seeded[j * z.w + i] : seeded[(z.n - j) % z.n * z.w + (z.n - i)];
        ASSERT_TRUE(test::sameBits(full[j * z.n + i], V2{g * w.re, g * (isStored ? w.im : -w.im)}))
            << i << " " << j;
      }
    }
  }
}

TEST(Reset, ASpectrumHasBothHalvesOfARealField) {
  Solver solver(test::configOf(16));
  solver.advance(5);
  const std::vector<V2> full = solver.spectrum();
  ASSERT_EQ(full.size(), 256u);
  for (int ky = -7; ky <= 7; ++ky) {
    for (int kx = -7; kx <= 7; ++kx) {
      const V2 a = coefficient(full, 16, kx, ky);
      const V2 b = coefficient(full, 16, -kx, -ky);
      if (kx != 0) {
        EXPECT_EQ(a.re, b.re);
        EXPECT_EQ(a.im, -b.im);
      } else {
        EXPECT_NEAR(a.re, b.re, 1e-7f);
        EXPECT_NEAR(a.im, -b.im, 1e-7f);
      }
    }
  }
}

TEST(Reset, SamplesBecomeTheirFourierCoefficients) {
  for (const int n : {16, 18}) {
    const Solver solver(test::configOf(n), test::wave(n, 3, -2, 4.0));
    const std::vector<V2> full = solver.spectrum();
    for (int ky = 1 - n / 2; ky < n / 2; ++ky) {
      for (int kx = 1 - n / 2; kx < n / 2; ++kx) {
        const bool isWave = (kx == 3 && ky == -2) || (kx == -3 && ky == 2);
        EXPECT_NEAR(coefficient(full, n, kx, ky).re, isWave ? 2.0f : 0.0f, 2e-6f);
        EXPECT_NEAR(coefficient(full, n, kx, ky).im, 0.0f, 2e-6f);
      }
    }
  }
}

TEST(Reset, TheMeanAndTheNyquistWavesOfSamplesAreRemoved) {
  const std::vector<float> kept = test::wave(16, 2, 1, 1.0);
  std::vector<float> given = sum(kept, std::vector<float>(256, 9.0f));
  given = sum(given, test::wave(16, 8, 0, 5.0));
  given = sum(given, test::wave(16, 3, 8, 5.0));
  const Solver solver(test::configOf(16), given);
  EXPECT_NEAR(solver.lastStats().enstrophy, 0.25, 1e-5);
  EXPECT_TRUE(test::sameBits(coefficient(solver.spectrum(), 16, 0, 0), V2{0.0f, 0.0f}));
  EXPECT_TRUE(test::sameBits(coefficient(solver.spectrum(), 16, 8, 0), V2{0.0f, 0.0f}));
}

TEST(Reset, AConstantFieldIsAFlowAtRest) {
  Solver solver(test::configOf(16), test::still(16));
  const Statistics stats = solver.lastStats();
  EXPECT_EQ(stats.energy, 0.0);
  EXPECT_EQ(stats.enstrophy, 0.0);
  EXPECT_EQ(stats.palinstrophyRatio, 0.0);
  EXPECT_EQ(stats.initialTurnoverTime, 0.0);
  EXPECT_EQ(stats.dt, 1.0f);
  EXPECT_NEAR(solver.advance(3).time, 3.0, 1e-6);
  EXPECT_EQ(solver.inspect().energy, 0.0);
}

TEST(Reset, TheFirstStepFollowsFromTheFieldOrIsFixed) {
  const std::vector<float> wave = test::wave(32, 0, 2, 1.0);  // |u| <= 1/2, met on the finer grid
  Config config = test::configOf(32);
  EXPECT_NEAR(Solver(config, wave).lastStats().dt, 2 * 3.0 / (0.5 * 32), 1e-5);
  config.cfl = 0.5f;
  EXPECT_NEAR(Solver(config, wave).lastStats().dt, 2 * 0.5 / (0.5 * 32), 1e-6);
  config.fixed_dt = 0.125f;
  EXPECT_EQ(Solver(config, wave).lastStats().dt, 0.125f);
}

TEST(Reset, TheTurnoverTimeIsThatOfTheEnergyAndTheEnstrophy) {
  Solver solver(test::configOf(32));
  const Statistics stats = solver.lastStats();
  const double expected =
      std::sqrt(stats.energy / stats.enstrophy) * turn / std::sqrt(2 * stats.energy);
  EXPECT_DOUBLE_EQ(stats.initialTurnoverTime, expected);
  EXPECT_EQ(solver.advance(20).initialTurnoverTime, stats.initialTurnoverTime);
  EXPECT_EQ(solver.inspect().initialTurnoverTime, stats.initialTurnoverTime);
}

TEST(Reset, ASeededFlowTurnsOverInTheTimeOfItsPeak) {
  Config config = test::configOf(128);
  config.k0 = 6;
  EXPECT_NEAR(Solver(config).lastStats().initialTurnoverTime, turn / 6, 0.05);
}

TEST(Reset, RestoresTheSameFlow) {
  for (const Integrator integrator : test::integrators) {
    Solver solver(test::configOf(16, integrator));
    const std::vector<V2> start = solver.spectrum();
    solver.advance(30);
    const std::vector<V2> later = solver.spectrum();
    solver.reset();
    EXPECT_TRUE(test::sameBits(solver.spectrum(), start));
    EXPECT_EQ(solver.lastStats().steps, 0u);
    solver.advance(30);
    EXPECT_TRUE(test::sameBits(solver.spectrum(), later));
  }
}

TEST(Reset, AcceptsSamplesAtAnyTime) {
  Solver solver(test::configOf(16));
  solver.advance(3);
  solver.reset(test::wave(16, 1, 0, 2.0));
  EXPECT_NEAR(solver.lastStats().enstrophy, 1.0, 1e-6);
  EXPECT_NEAR(solver.lastStats().energy, 1.0, 1e-6);
  solver.reset(test::wave(16, 2, 0, 2.0));
  EXPECT_NEAR(solver.lastStats().energy, 0.25, 1e-6);
  EXPECT_NEAR(solver.lastStats().palinstrophy, 4.0, 1e-5);
}

TEST(Inspection, TwiceInARowGivesTheSameFigures) {
  Solver solver(test::configOf(34));
  solver.advance(5);
  const Statistics first = solver.inspect();
  const Statistics second = solver.inspect();
  EXPECT_EQ(first.energy, second.energy);
  EXPECT_EQ(first.enstrophy, second.enstrophy);
  EXPECT_EQ(first.palinstrophy, second.palinstrophy);
  EXPECT_EQ(first.palinstrophyRatio, second.palinstrophyRatio);
  EXPECT_EQ(first.steps, 5u);
}

TEST(Inspection, ThePalinstrophyRatioMeasuresAgainstTheLargestWavenumber) {
  Solver solver(test::configOf(16));
  const Statistics stats = solver.inspect();
  EXPECT_DOUBLE_EQ(stats.palinstrophyRatio, stats.palinstrophy / (2 * stats.enstrophy * 49));
  solver.reset(test::wave(16, 0, 7, 1.0));
  EXPECT_NEAR(solver.inspect().palinstrophyRatio, 0.5, 1e-6);
}

TEST(Inspection, DoesNotChangeTheFlow) {
  Solver watched(test::configOf(16));
  Solver alone(test::configOf(16));
  for (int k = 0; k < 10; ++k) {
    watched.advance(2);
    watched.inspect();
    const auto frame = watched.snapshot(k % 2 == 0);
    watched.spectrum();
  }
  alone.advance(20);
  EXPECT_TRUE(test::sameBits(watched.spectrum(), alone.spectrum()));
  EXPECT_EQ(watched.lastStats().time, alone.lastStats().time);
}

}  // namespace
}  // namespace zeph
