// Texels that have been read back, and their display values.
#include "render/texels.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace zeph {
namespace {

// IEEE 754, binary16: 1 bit of sign, 5 of exponent, 10 of fraction.
double valueOfHalf(unsigned half) {
  const double sign = (half & 0x8000) != 0 ? -1 : 1;
  const int exponent = static_cast<int>(half >> 10 & 31);
  const double fraction = (half & 1023) / 1024.0;
  if (exponent == 31)
    return fraction == 0 ? sign * std::numeric_limits<double>::infinity()
                         : std::numeric_limits<double>::quiet_NaN();
  return exponent == 0 ? sign * fraction * std::pow(2.0, -14)
                       : sign * (1 + fraction) * std::pow(2.0, exponent - 15);
}

std::byte displayReference(double linear) {
  const double c = linear > 0 ? std::min(linear, 1.0) : 0.0;
  const double display = c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1 / 2.4) - 0.055;
  return static_cast<std::byte>(display * 255 + 0.5);
}

TEST(Halves, EveryOneHasItsValueAsAFloat) {
  for (unsigned half = 0; half < 0x10000; ++half) {
    const float found = floatOfHalf(static_cast<std::uint16_t>(half));
    const double expected = valueOfHalf(half);
    if (std::isnan(expected)) {
      ASSERT_TRUE(std::isnan(found)) << half;
    } else {
      ASSERT_EQ(static_cast<double>(found), expected) << half;
      ASSERT_EQ(std::signbit(found), (half & 0x8000) != 0) << half;
    }
  }
}

// Red, green, blue and alpha, one texel after another.
Texels texelsOf(std::uint32_t width, std::uint32_t height,
                const std::vector<std::uint16_t>& halves) {
  Texels texels = {.width = width, .height = height, .format = TexelFormat::rgba16, .data = {}};
  texels.data.resize(halves.size() * sizeof(std::uint16_t));
  std::memcpy(texels.data.data(), halves.data(), texels.data.size());
  return texels;
}

TEST(DisplayValues, OfEveryHalfAreItsLightClampedEncodedAndRounded) {
  std::vector<std::uint16_t> halves;
  for (unsigned half = 0; half < 0x10000; ++half) {
    const auto value = static_cast<std::uint16_t>(half);
    halves.insert(halves.end(), {value, value, value, value});
  }
  const std::vector<std::byte> values = displayValues(texelsOf(256, 256, halves));
  ASSERT_EQ(values.size(), 4u * 0x10000);
  for (unsigned half = 0; half < 0x10000; ++half) {
    const std::byte expected = displayReference(valueOfHalf(half));
    for (std::size_t channel = 0; channel < 3; ++channel)
      ASSERT_EQ(values[4 * half + channel], expected) << half;
    ASSERT_EQ(values[4 * half + 3], std::byte{255}) << half;
  }
}

TEST(DisplayValues, OfLightAreInTheOrderBlueGreenRedAlpha) {
  constexpr std::uint16_t one = 0x3c00;
  constexpr std::uint16_t quarter = 0x3400;
  const std::vector<std::byte> values =
      displayValues(texelsOf(2, 1, {one, quarter, 0, 0, 0, one, quarter, one}));
  const std::byte middle = displayReference(0.25);
  const std::byte full{255};
  const std::byte none{0};
  EXPECT_EQ(values, (std::vector{none, middle, full, full, middle, full, none, full}));
}

TEST(DisplayValues, OfDisplayValuesAreThemselves) {
  const std::vector<std::byte> data = {std::byte{1},   std::byte{2}, std::byte{3},   std::byte{4},
                                       std::byte{250}, std::byte{0}, std::byte{255}, std::byte{7}};
  EXPECT_EQ(displayValues({.width = 1, .height = 2, .format = TexelFormat::bgra8, .data = data}),
            data);
}

}  // namespace
}  // namespace zeph
