#include "solver/start_spectra.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>

#include "device/cpu/thread_pool.h"
#include "tests/support/arrays.h"
#include "tests/support/bits.h"

namespace zeph {
namespace {

using test::Sizes;

Config configOf(int n, int k0, std::uint64_t seed, StartSpectrum spectrum) {
  Config config;
  config.resolution = n;
  config.k0 = k0;
  config.seed = seed;
  config.start_spectrum = spectrum;
  return config;
}

constexpr StartSpectrum both[] = {StartSpectrum::PAO, StartSpectrum::KM3};

// Energy of a stored mode, its mirror included, in double precision.
double energyOf(const std::vector<V2>& modes, const Sizes& z, std::size_t j, std::size_t i) {
  const V2 w = modes[j * z.w + i];
  const double samples = static_cast<double>(z.n * z.n);
  const double re = static_cast<double>(w.re) / samples;
  const double im = static_cast<double>(w.im) / samples;
  const double ky = test::wavenumber(j, z.n);
  const double square = static_cast<double>(i * i) + ky * ky;
  return square > 0 ? (re * re + im * im) / square * (i == 0 ? 0.5 : 1.0) : 0.0;
}

struct Totals {
  double energy = 0, enstrophy = 0;
};

Totals totalsOf(const std::vector<V2>& modes, const Sizes& z) {
  Totals totals;
  for (std::size_t j = 0; j < z.n; ++j) {
    for (std::size_t i = 0; i < z.w; ++i) {
      const double ky = test::wavenumber(j, z.n);
      const double energy = energyOf(modes, z, j, i);
      totals.energy += energy;
      totals.enstrophy += energy * (static_cast<double>(i * i) + ky * ky);
    }
  }
  return totals;
}

// Energy by shells of unit width.
std::vector<double> shellsOf(const std::vector<V2>& modes, const Sizes& z) {
  std::vector<double> shells(z.n);
  for (std::size_t j = 0; j < z.n; ++j) {
    for (std::size_t i = 0; i < z.w; ++i) {
      const double radius = std::hypot(static_cast<double>(i), test::wavenumber(j, z.n));
      shells[static_cast<std::size_t>(radius + 0.5)] += energyOf(modes, z, j, i);
    }
  }
  return shells;
}

TEST(StartSpectra, TheSameSeedGivesTheSameField) {
  for (const StartSpectrum spectrum : both) {
    const Config config = configOf(64, 4, 77, spectrum);
    EXPECT_TRUE(test::sameBits(startSpectrum(config), startSpectrum(config)));
  }
}

TEST(StartSpectra, AnotherSeedChangesEveryPhase) {
  const Sizes z(32);
  for (const StartSpectrum spectrum : both) {
    const std::vector<V2> first = startSpectrum(configOf(32, 8, 1, spectrum));
    for (const std::uint64_t seed : {std::uint64_t{2}, std::uint64_t{1} << 40}) {
      const std::vector<V2> second = startSpectrum(configOf(32, 8, seed, spectrum));
      int same = 0;
      for (std::size_t k = 0; k < first.size(); ++k) {
        same += first[k].re != 0.0f && test::sameBits(first[k], second[k]);
      }
      EXPECT_EQ(same, 0);
    }
  }
}

TEST(StartSpectra, EverySeedIsAccepted) {
  for (const StartSpectrum spectrum : both) {
    for (const std::uint64_t seed : {std::uint64_t{0}, ~std::uint64_t{0}}) {
      for (const V2 w : startSpectrum(configOf(16, 3, seed, spectrum))) {
        ASSERT_TRUE(std::isfinite(w.re) && std::isfinite(w.im));
      }
    }
  }
}

TEST(StartSpectra, NyquistAndMeanAreZero) {
  for (const StartSpectrum spectrum : both) {
    for (const int n : {16, 18, 64}) {
      const Sizes z(n);
      const std::vector<V2> modes = startSpectrum(configOf(n, 5, 3, spectrum));
      ASSERT_EQ(modes.size(), z.half);
      for (std::size_t j = 0; j < z.n; ++j) EXPECT_EQ(energyOf(modes, z, j, z.h), 0.0);
      for (std::size_t i = 0; i < z.w; ++i) EXPECT_EQ(energyOf(modes, z, z.h, i), 0.0);
      EXPECT_TRUE(test::sameBits(modes[0], V2{0.0f, 0.0f}));
    }
  }
}

TEST(StartSpectra, TheFirstColumnIsItsOwnMirror) {
  for (const StartSpectrum spectrum : both) {
    const Sizes z(34);
    const std::vector<V2> modes = startSpectrum(configOf(34, 5, 3, spectrum));
    for (std::size_t j = 1; j < z.h; ++j) {
      const V2 w = modes[j * z.w];
      const V2 mirror = modes[(z.n - j) * z.w];
      EXPECT_NE(w.re, 0.0f);
      EXPECT_EQ(w.re, mirror.re);
      EXPECT_EQ(w.im, -mirror.im);
    }
  }
}

TEST(StartSpectra, PaoHasHalfAUnitOfEnergyAndItsEnstrophyAtThePeak) {
  for (const int k0 : {3, 6}) {
    const Totals totals =
        totalsOf(startSpectrum(configOf(128, k0, 5, StartSpectrum::PAO)), Sizes(128));
    EXPECT_NEAR(totals.energy, 0.5, 0.03);  // less the share of the mean mode
    EXPECT_NEAR(totals.enstrophy, 0.5 * k0 * k0, 0.01 * k0 * k0);
  }
}

TEST(StartSpectra, EachPaoModeHasItsGaussianEnergy) {
  const Sizes z(32);
  const double k0 = 4;
  const std::vector<V2> modes = startSpectrum(configOf(32, 4, 9, StartSpectrum::PAO));
  for (std::size_t j = 0; j < z.n; ++j) {
    const int ky = test::wavenumber(j, z.n);
    for (std::size_t i = 0; i < z.w; ++i) {
      const double square = static_cast<double>(i * i) + static_cast<double>(ky * ky);
      const double density =
          std::exp(-square / (k0 * k0)) / (std::numbers::pi * k0 * k0) * (i == 0 ? 0.5 : 1.0);
      const double exact = test::isRetained(i, ky, 32) ? density : 0.0;
      EXPECT_NEAR(energyOf(modes, z, j, i), exact, exact * 3e-5) << i << " " << ky;
    }
  }
}

// The phases are those of a well-known generator, whose numbers are drawn here in another way:
// theta is the argument of the velocity along the mode's transverse direction.
TEST(StartSpectra, PaoDrawsItsPhasesRowByRow) {
  const int n = 16;
  const Sizes z(n);
  const std::uint64_t seed = 12345;
  const std::vector<V2> modes = startSpectrum(configOf(n, 4, seed, StartSpectrum::PAO));
  std::uint64_t state = seed + 2 * 0x9E3779B97F4A7C15u;
  for (std::size_t j = 0; j < z.n; ++j) {
    const int ky = test::wavenumber(j, z.n);
    if (j == z.h) continue;
    for (std::size_t i = 0; i < z.h; ++i) {
      if (i == 0 && ky <= 0) continue;
      std::uint64_t mixed = (state ^ (state >> 30)) * 0xBF58476D1CE4E5B9u;
      mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
      state += 0x9E3779B97F4A7C15u;
      const double theta = static_cast<double>(mixed >> 40) / 16777216.0 * 2 * std::numbers::pi;
      // For i > 0 the vorticity is i k^2 / kx times v, for i = 0 it is -i ky times u.
      const V2 w = modes[j * z.w + i];
      const double re = static_cast<double>(i > 0 ? w.im : -w.im);
      const double im = static_cast<double>(i > 0 ? -w.re : w.re);
      EXPECT_NEAR(std::cos(std::atan2(im, re) - theta), 1.0, 1e-9) << i << " " << ky;
    }
  }
}

TEST(StartSpectra, Km3HasTheEnergyOfItsPaoFieldInTheTargetShape) {
  for (const int n : {16, 18, 64}) {
    for (const int k0 : {1, 4, 1000}) {
      SCOPED_TRACE(testing::Message() << "N = " << n << ", k0 = " << k0);
      const Sizes z(n);
      const std::vector<double> pao =
          shellsOf(startSpectrum(configOf(n, k0, 6, StartSpectrum::PAO)), z);
      const std::vector<double> km3 =
          shellsOf(startSpectrum(configOf(n, k0, 6, StartSpectrum::KM3)), z);
      double energy = 0;
      double target = 0;
      const auto shape = [&](double s) {
        return k0 > s ? std::pow(s / k0, 4) / std::pow(k0, 3) : std::pow(s, -3);
      };
      // The outermost shell is cut by the Nyquist circle and the rows and columns beyond it.
      for (std::size_t s = 1; s < z.h; ++s) {
        energy += pao[s];
        target += shape(static_cast<double>(s));
      }
      const double ratio = km3[1] / shape(1);
      for (std::size_t s = 1; s < z.h; ++s) {
        EXPECT_NEAR(km3[s] / (ratio * shape(static_cast<double>(s))), 1.0, 1e-4) << s;
      }
      if (k0 < n / 4) {
        EXPECT_NEAR(ratio, energy / target, ratio * 0.02);
      }
      for (std::size_t s = z.h + 1; s < z.n; ++s) EXPECT_EQ(km3[s], 0.0);
    }
  }
}

// Every mode from the hash and the shell weights, evaluated in double precision.
TEST(StartSpectra, Km3ModesHaveHashedAmplitudesAndPhases) {
  const int n = 16;
  const Sizes z(n);
  const std::uint64_t seed = 4;
  const std::vector<V2> modes = startSpectrum(configOf(n, 3, seed, StartSpectrum::KM3));
  const auto hash = [&](std::size_t i, std::size_t j, double shift) {
    const std::size_t f = i == 0 && j > z.h ? z.n - j : j;
    const double x = (static_cast<double>(f + 1) * 78.233 + static_cast<double>(i + 1) * 12.9898) +
                     (static_cast<double>(seed) + 1) * 0.010001;
    const double t = std::sin(x + shift) * 43758.5453123;
    return t - std::floor(t);
  };
  const auto amplitude = [&](std::size_t i, std::size_t j) {
    return hash(i, j, 678.942) * 0.5 + 0.75;
  };
  // Within a shell, energies are in the ratio of the amplitudes.
  double expected = 0;
  for (std::size_t j = 0; j < z.n; ++j) {
    const int ky = test::wavenumber(j, z.n);
    for (std::size_t i = 0; i < z.h; ++i) {
      const double radius = std::hypot(static_cast<double>(i), ky);
      if (j == z.h || static_cast<int>(radius + 0.5) != 5) continue;
      const double perAmplitude = energyOf(modes, z, j, i) / amplitude(i, j) * (i == 0 ? 2.0 : 1.0);
      if (expected == 0) expected = perAmplitude;
      EXPECT_NEAR(perAmplitude / expected, 1.0, 1e-5) << i << " " << ky;
      const double sign = i == 0 && j > z.h ? -1.0 : 1.0;
      const double phase = hash(i, j, 2036.826) * 2 * sign * std::numbers::pi;
      const V2 w = modes[j * z.w + i];
      // i (kx v - ky u): along the phase turned by a right angle.
      const double turn = i > 0 || ky < 0 ? 0.5 : -0.5;
      const double angle = std::atan2(static_cast<double>(w.im), static_cast<double>(w.re));
      EXPECT_NEAR(std::cos(angle - phase - turn * std::numbers::pi), 1.0, 1e-9) << i << " " << ky;
    }
  }
}

// FNV-1a over the bits of the field.
std::uint64_t digestOf(const std::vector<V2>& modes) {
  std::uint64_t digest = 0xcbf29ce484222325;
  const auto take = [&digest](float value) {
    for (std::uint32_t bits = std::bit_cast<std::uint32_t>(value), k = 0; k < 4; ++k) {
      digest = (digest ^ (bits >> 8 * k & 0xff)) * 0x100000001b3;
    }
  };
  for (const V2 w : modes) {
    take(w.re);
    take(w.im);
  }
  return digest;
}

// No system and no C library may change them.
TEST(StartSpectra, ASeedHasTheseBits) {
  EXPECT_EQ(digestOf(startSpectrum(configOf(66, 5, 7, StartSpectrum::PAO))), 13782008986504085462u);
  EXPECT_EQ(digestOf(startSpectrum(configOf(66, 5, 7, StartSpectrum::KM3))), 11380992483502020675u);
  EXPECT_EQ(digestOf(startSpectrum(configOf(48, 9, ~std::uint64_t{0}, StartSpectrum::KM3))),
            2644315034892399377u);
}

TEST(StartSpectra, TheNumberOfThreadsChangesNoBit) {
  const Config config = configOf(256, 6, 3, StartSpectrum::KM3);
  const std::vector<V2> shared = startSpectrum(config);
  cpu::ThreadPool::shared().limit(1);
  const std::vector<V2> alone = startSpectrum(config);
  cpu::ThreadPool::shared().limit(cpu::ThreadPool::shared().participants());
  EXPECT_EQ(digestOf(shared), digestOf(alone));
}

TEST(StartSpectra, APeakFarBeyondTheGridGivesAFiniteFieldWithEnergy) {
  for (const StartSpectrum spectrum : both) {
    const Totals totals = totalsOf(startSpectrum(configOf(16, 1000000, 1, spectrum)), Sizes(16));
    EXPECT_GT(totals.energy, 0.0);
    EXPECT_TRUE(std::isfinite(totals.enstrophy));
  }
}

}  // namespace
}  // namespace zeph
