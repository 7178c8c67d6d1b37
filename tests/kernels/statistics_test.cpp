// The reduction of a spectrum to energy, enstrophy and palinstrophy.
#include <gtest/gtest.h>

#include <cmath>

#include "kernels/kernels.h"
#include "tests/support/arrays.h"
#include "tests/support/guarded.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Guarded;
using test::Numbers;
using test::Sizes;

struct Lanes {
  float energy[256] = {};
  float enstrophy[256] = {};
  float palinstrophy[256] = {};
  unsigned invalid[256] = {};
};

void addMode(Lanes& lanes, std::size_t t, V2 w, float scale, std::size_t k, const Sizes& z) {
  const float a = scale * w.re;
  const float b = scale * w.im;
  if (!std::isfinite(a) || !std::isfinite(b)) lanes.invalid[t] = 1;
  const int i = static_cast<int>(k % z.w);
  const int ky = test::wavenumber(k / z.w, z.n);
  const float g = i == 0 || i == static_cast<int>(z.h) ? 1.0f : 2.0f;
  const int square = i * i + ky * ky;
  const float q = (((a * a) + (b * b)) * 0.5f) * g;
  lanes.enstrophy[t] += q;
  lanes.palinstrophy[t] += q * static_cast<float>(square);
  if (square != 0) lanes.energy[t] += q / static_cast<float>(square);
}

float4 reduced(Lanes& lanes) {
  for (std::size_t stride = 128; stride > 0; stride /= 2) {
    for (std::size_t t = 0; t < stride; ++t) {
      lanes.energy[t] = lanes.energy[t] + lanes.energy[t + stride];
      lanes.enstrophy[t] = lanes.enstrophy[t] + lanes.enstrophy[t + stride];
      lanes.palinstrophy[t] = lanes.palinstrophy[t] + lanes.palinstrophy[t + stride];
      lanes.invalid[t] |= lanes.invalid[t + stride];
    }
  }
  return {lanes.energy[0], lanes.enstrophy[0], static_cast<float>(lanes.invalid[0]),
          lanes.palinstrophy[0]};
}

std::vector<float4> expectedPartials(const std::vector<V2>& omega, int n) {
  const Sizes z(n);
  const float scale = test::paramsOf(n).scale;
  std::vector<float4> partials(64);
  for (std::size_t block = 0; block < 64; ++block) {
    Lanes lanes;
    for (std::size_t t = 0; t < 256; ++t) {
      for (std::size_t k = block * 256 + t; k < z.half; k += 64 * 256) {
        addMode(lanes, t, omega[k], scale, k, z);
      }
    }
    partials[block] = reduced(lanes);
  }
  return partials;
}

std::vector<float4> partialsOf(const std::vector<V2>& omega, int n) {
  const Guarded<V2> state(omega);
  Guarded<float4> partials(64, float4{-1.0f, -1.0f, -1.0f, -1.0f});
  spectralStatistics(nullptr, state.data(), partials.data(), test::paramsOf(n));
  EXPECT_TRUE(state.holds(omega));
  EXPECT_TRUE(partials.isIntact());
  return partials.content();
}

struct Totals {
  double energy = 0, enstrophy = 0, palinstrophy = 0;
  int flags = 0;
};

Totals totalsOf(const std::vector<V2>& omega, int n) {
  Totals totals;
  for (const float4& partial : partialsOf(omega, n)) {
    totals.energy += static_cast<double>(partial.x);
    totals.enstrophy += static_cast<double>(partial.y);
    totals.palinstrophy += static_cast<double>(partial.w);
    totals.flags += partial.z != 0.0f;
  }
  return totals;
}

TEST(SpectralStatistics, ReduceInTheFixedOrderBitForBit) {
  for (const int n : test::resolutions) {
    SCOPED_TRACE(n);
    const std::vector<V2> omega = Numbers(81).modes(Sizes(n).half);
    const std::vector<float4> expected = expectedPartials(omega, n);
    test::onEveryProcessor([&] { ASSERT_TRUE(test::sameBits(partialsOf(omega, n), expected)); });
  }
}

TEST(SpectralStatistics, AreNearTheSumsInDoublePrecision) {
  const int n = 64;
  const Sizes z(n);
  const std::vector<V2> omega = Numbers(82).modes(z.half);
  Totals exact;
  for (std::size_t j = 0; j < z.n; ++j) {
    for (std::size_t i = 0; i < z.w; ++i) {
      const double re = static_cast<double>(omega[j * z.w + i].re) / (n * n);
      const double im = static_cast<double>(omega[j * z.w + i].im) / (n * n);
      const double ky = test::wavenumber(j, z.n);
      const double square = static_cast<double>(i * i) + ky * ky;
      const double q = (re * re + im * im) * (i == 0 || i == z.h ? 0.5 : 1.0);
      exact.enstrophy += q;
      exact.palinstrophy += q * square;
      if (square > 0) exact.energy += q / square;
    }
  }
  const Totals totals = totalsOf(omega, n);
  EXPECT_NEAR(totals.energy, exact.energy, exact.energy * 1e-6);
  EXPECT_NEAR(totals.enstrophy, exact.enstrophy, exact.enstrophy * 1e-6);
  EXPECT_NEAR(totals.palinstrophy, exact.palinstrophy, exact.palinstrophy * 1e-6);
}

TEST(SpectralStatistics, ASingleModeAndItsImpliedMirrorCountTogether) {
  const int n = 16;
  const Sizes z(n);
  std::vector<V2> omega(z.half, V2{0.0f, 0.0f});
  omega[3 * z.w + 4] = {3.0f * 256.0f, 4.0f * 256.0f};  // |v| = 5, K = 25
  const Totals totals = totalsOf(omega, n);
  EXPECT_EQ(totals.energy, 1.0);
  EXPECT_EQ(totals.enstrophy, 25.0);
  EXPECT_EQ(totals.palinstrophy, 625.0);
}

TEST(SpectralStatistics, AConjugatePairInTheFirstColumnHasTheSameTotals) {
  const int n = 16;
  const Sizes z(n);
  std::vector<V2> omega(z.half, V2{0.0f, 0.0f});
  omega[5 * z.w] = {3.0f * 256.0f, 4.0f * 256.0f};
  omega[11 * z.w] = {3.0f * 256.0f, -4.0f * 256.0f};
  const Totals totals = totalsOf(omega, n);
  EXPECT_EQ(totals.energy, 1.0);
  EXPECT_EQ(totals.enstrophy, 25.0);
  EXPECT_EQ(totals.palinstrophy, 625.0);
}

TEST(SpectralStatistics, TheMeanModeHasNoEnergy) {
  std::vector<V2> omega(Sizes(16).half, V2{0.0f, 0.0f});
  omega[0] = {256.0f, 0.0f};
  const Totals totals = totalsOf(omega, 16);
  EXPECT_EQ(totals.energy, 0.0);
  EXPECT_EQ(totals.enstrophy, 0.5);
  EXPECT_EQ(totals.palinstrophy, 0.0);
  EXPECT_EQ(totals.flags, 0);
}

TEST(SpectralStatistics, AnEmptySpectrumGivesZerosAndAClearFlag) {
  for (const int n : {16, 18}) {
    const std::vector<V2> omega(Sizes(n).half, V2{0.0f, 0.0f});
    EXPECT_TRUE(test::sameBits(partialsOf(omega, n),
                               std::vector<float4>(64, float4{0.0f, 0.0f, 0.0f, 0.0f})));
  }
}

TEST(SpectralStatistics, AValueThatIsNotFiniteFlagsOnlyTheRecordOfItsBlock) {
  const int n = 256;
  const Sizes z(n);
  const std::vector<V2> clean = Numbers(83).modes(z.half);
  for (const float value : {test::notANumber, test::infinity, -test::infinity}) {
    for (const bool imaginary : {false, true}) {
      for (const std::size_t k :
           {std::size_t{0}, std::size_t{1000}, std::size_t{20000}, z.half - 1}) {
        std::vector<V2> omega = clean;
        (imaginary ? omega[k].im : omega[k].re) = value;
        const std::vector<float4> partials = partialsOf(omega, n);
        for (std::size_t b = 0; b < 64; ++b) {
          ASSERT_EQ(partials[b].z, b == k / 256 % 64 ? 1.0f : 0.0f) << k << " " << value;
        }
        EXPECT_TRUE(test::sameBits(partials, expectedPartials(omega, n)));
      }
    }
  }
}

TEST(SpectralStatistics, AnOverflowOfASquareSetsNoFlag) {
  const int n = 16;
  std::vector<V2> omega(Sizes(n).half, V2{0.0f, 0.0f});
  omega[20] = {1e30f, 0.0f};
  const Totals totals = totalsOf(omega, n);
  EXPECT_EQ(totals.flags, 0);
  EXPECT_TRUE(std::isinf(totals.enstrophy));
}

}  // namespace
}  // namespace zeph
