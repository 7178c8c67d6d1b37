// The kernels that lay spectra out for a transform.
#include <gtest/gtest.h>

#include "kernels/kernels.h"
#include "tests/support/arrays.h"
#include "tests/support/guarded.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Guarded;
using test::Numbers;
using test::Sizes;

constexpr V2 untouched = {12345.0f, -54321.0f};

struct Velocity {
  V2 u, v;
};

Velocity velocity(V2 w, int i, int ky) {
  const float a = -w.im;
  const float b = w.re;
  const float square = static_cast<float>(i * i + ky * ky);
  const float p = static_cast<float>(ky) / square;
  const float q = (-static_cast<float>(i)) / square;
  return {{p * a, p * b}, {q * a, q * b}};
}

std::vector<V2> expectedPadded(const std::vector<V2>& omega, int n, std::size_t planes) {
  const Sizes z(n);
  std::vector<V2> expected(planes * z.plane, untouched);
  for (std::size_t j = 0; j < z.m; ++j) {
    const int ky = test::wavenumber(j, z.m);
    for (std::size_t i = 0; i <= z.m / 2; ++i) {
      V2* at = expected.data() + j * z.s + i;
      for (std::size_t k = 0; k < planes; ++k) at[k * z.plane] = {0.0f, 0.0f};
      if (!test::isRetained(i, ky, n)) continue;
      const std::size_t row = static_cast<std::size_t>(ky >= 0 ? ky : ky + n);
      const V2 w = omega[row * z.w + i];
      const Velocity velocities = velocity(w, static_cast<int>(i), ky);
      at[0] = velocities.u;
      at[z.plane] = velocities.v;
      if (planes < 4) continue;
      const float fx = static_cast<float>(i);
      const float fy = static_cast<float>(ky);
      at[2 * z.plane] = {fx * -w.im, fx * w.re};
      at[3 * z.plane] = {fy * -w.im, fy * w.re};
    }
  }
  return expected;
}

TEST(VelocityToPadded, WritesOnlyTheWorkPlanes) {
  for (const int n : test::resolutions) {
    const Sizes z(n);
    const std::vector<V2> omega = Numbers(7).modes(z.half);
    for (const std::uint32_t operatorKind : {0u, 1u}) {
      SCOPED_TRACE(testing::Message() << "N = " << n << ", operator " << operatorKind);
      const std::vector<V2> expected = expectedPadded(omega, n, operatorKind == 0 ? 2 : 4);
      test::onEveryProcessor([&] {
        Guarded<V2> padded(expected.size(), untouched);
        velocityToPadded(nullptr, omega.data(), padded.data(), test::paramsOf(n, operatorKind));
        ASSERT_TRUE(padded.holds(expected));
      });
    }
  }
}

TEST(VelocityToPadded, ReadsNoModeOutsideTheActiveSet) {
  const Sizes z(18);
  std::vector<V2> omega = Numbers(3).modes(z.half);
  for (std::size_t j = 0; j < z.n; ++j) {
    for (std::size_t i = 0; i < z.w; ++i) {
      if (!test::isRetained(i, test::wavenumber(j, z.n), 18)) {
        omega[j * z.w + i] = {test::notANumber, test::infinity};
      }
    }
  }
  Guarded<V2> padded(4 * z.plane, untouched);
  velocityToPadded(nullptr, omega.data(), padded.data(), test::paramsOf(18, 1));
  for (const V2 value : padded.content()) {
    ASSERT_TRUE(std::isfinite(value.re) && std::isfinite(value.im));
  }
}

TEST(VelocityToPadded, AShearAlongXHasNoVelocityAcross) {
  const Sizes z(16);
  std::vector<V2> omega(z.half, V2{0.0f, 0.0f});
  omega[7 * z.w] = {70.0f, 7.0f};
  Guarded<V2> padded(2 * z.plane, untouched);
  velocityToPadded(nullptr, omega.data(), padded.data(), test::paramsOf(16));
  EXPECT_EQ(padded[7 * z.s].re, (1.0f / 7.0f) * -7.0f);
  EXPECT_EQ(padded[7 * z.s].im, (1.0f / 7.0f) * 70.0f);
  for (std::size_t j = 0; j < z.m; ++j) EXPECT_EQ(padded[z.plane + j * z.s].re, 0.0f);
}

TEST(VelocityToPadded, TheLastRetainedColumnIsTheOneBeforeNyquist) {
  const Sizes z(16);
  const std::vector<V2> omega(z.half, V2{1.0f, 2.0f});
  Guarded<V2> padded(2 * z.plane, untouched);
  velocityToPadded(nullptr, omega.data(), padded.data(), test::paramsOf(16));
  for (const std::size_t row : {std::size_t{1}, std::size_t{7}, z.m - 7, z.m - 1}) {
    EXPECT_NE(padded[row * z.s + 7].re, 0.0f);
    EXPECT_EQ(padded[row * z.s + 8].re, 0.0f);
  }
  for (const std::size_t row : {std::size_t{8}, z.m / 2, z.m - 8}) {
    EXPECT_EQ(padded[row * z.s + 3].re, 0.0f);
  }
}

TEST(ProjectState, KeepsActiveModesUnchanged) {
  for (const int n : test::resolutions) {
    SCOPED_TRACE(n);
    const Sizes z(n);
    const std::vector<V2> full = Numbers(11).modes(z.n * z.n);
    std::vector<V2> expected(z.half, V2{0.0f, 0.0f});
    for (std::size_t j = 0; j < z.n; ++j) {
      for (std::size_t i = 0; i < z.h; ++i) {
        if (test::isRetained(i, test::wavenumber(j, z.n), n)) {
          expected[j * z.w + i] = full[j * z.n + i];
        }
      }
    }
    test::onEveryProcessor([&] {
      Guarded<V2> omega(z.half, untouched);
      projectState(nullptr, full.data(), omega.data(), test::paramsOf(n));
      ASSERT_TRUE(omega.holds(expected));
    });
  }
}

TEST(ProjectState, ClearsValuesThatAreNotFiniteOutsideTheActiveSet) {
  const Sizes z(16);
  std::vector<V2> full(z.n * z.n, V2{1.0f, 1.0f});
  full[0] = {test::notANumber, 0.0f};
  for (std::size_t k = 0; k < z.n; ++k) {
    full[8 * z.n + k] = {test::infinity, test::notANumber};
    full[k * z.n + 8] = {test::notANumber, test::infinity};
  }
  Guarded<V2> omega(z.half, untouched);
  projectState(nullptr, full.data(), omega.data(), test::paramsOf(16));
  EXPECT_TRUE(test::sameBits(omega[0], V2{0.0f, 0.0f}));
  for (std::size_t j = 0; j < z.n; ++j) {
    EXPECT_TRUE(test::sameBits(omega[j * z.w + 8], V2{0.0f, 0.0f}));
    EXPECT_TRUE(test::sameBits(omega[j * z.w + 1], j == 8 ? V2{0.0f, 0.0f} : V2{1.0f, 1.0f}));
  }
}

std::vector<V2> expectedSnapshot(const std::vector<V2>& omega, int n, bool velocities) {
  const Sizes z(n);
  std::vector<V2> expected(3 * z.half, untouched);
  for (std::size_t j = 0; j < z.n; ++j) {
    const int ky = test::wavenumber(j, z.n);
    for (std::size_t i = 0; i < z.w; ++i) {
      V2* at = expected.data() + j * z.w + i;
      at[0] = omega[j * z.w + i];
      if (!velocities) continue;
      const bool isMean = i == 0 && ky == 0;
      const Velocity both =
          isMean ? Velocity{{0.0f, 0.0f}, {0.0f, 0.0f}} : velocity(at[0], static_cast<int>(i), ky);
      at[z.half] = both.u;
      at[2 * z.half] = both.v;
    }
  }
  return expected;
}

TEST(PrepareSnapshot, LaysOutVorticityAndVelocityOfEveryStoredMode) {
  for (const int n : test::resolutions) {
    const Sizes z(n);
    const std::vector<V2> omega = Numbers(5).modes(z.half);
    for (const std::uint32_t planes : {1u, 3u}) {
      SCOPED_TRACE(testing::Message() << "N = " << n << ", planes " << planes);
      const std::vector<V2> expected = expectedSnapshot(omega, n, planes == 3);
      Params p = test::paramsOf(n);
      p.stage = planes;
      test::onEveryProcessor([&] {
        Guarded<V2> spectra(3 * z.half, untouched);
        prepareSnapshot(nullptr, omega.data(), spectra.data(), p);
        ASSERT_TRUE(spectra.holds(expected));
      });
    }
  }
}

TEST(PrepareSnapshot, TheVelocityOfAModeHasNoDivergence) {
  const int n = 34;
  const Sizes z(n);
  const std::vector<V2> omega = Numbers(6).modes(z.half);
  Params p = test::paramsOf(n);
  p.stage = 3;
  Guarded<V2> spectra(3 * z.half, untouched);
  prepareSnapshot(nullptr, omega.data(), spectra.data(), p);
  for (std::size_t j = 0; j < z.n; ++j) {
    for (std::size_t i = 0; i < z.w; ++i) {
      const double kx = static_cast<double>(i);
      const double ky = test::wavenumber(j, z.n);
      const V2 u = spectra[z.half + j * z.w + i];
      const V2 v = spectra[2 * z.half + j * z.w + i];
      const double size = std::abs(kx * double{u.re}) + std::abs(ky * double{v.re});
      ASSERT_LE(std::abs(kx * double{u.re} + ky * double{v.re}), 3e-7 * size);
    }
  }
}

}  // namespace
}  // namespace zeph
