#include "render/texels.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

namespace zeph {
namespace {

// NaN, like everything that is not above 0, gives 0.
std::byte encoded(float linear) {
  float c = linear > 0 ? linear : 0.0f;
  if (c > 1) c = 1;
  const float display = c <= 0.0031308f ? 12.92f * c : 1.055f * std::pow(c, 1 / 2.4f) - 0.055f;
  return static_cast<std::byte>(display * 255 + 0.5f);
}

}  // namespace

float floatOfHalf(std::uint16_t half) {
  constexpr int bias = 127 - 15;
  const std::uint32_t sign = static_cast<std::uint32_t>(half & 0x8000u) << 16;
  const std::uint32_t exponent = (half >> 10) & 0x1fu;
  const std::uint32_t fraction = half & 0x3ffu;
  if (exponent == 0) {
    const float magnitude = std::ldexp(static_cast<float>(fraction), -24);
    return sign != 0 ? -magnitude : magnitude;
  }
  const std::uint32_t wide = exponent == 0x1f ? 0xff : exponent + bias;
  return std::bit_cast<float>(sign | wide << 23 | fraction << 13);
}

std::vector<std::byte> displayValues(Texels texels) {
  if (texels.format == TexelFormat::bgra8) return std::move(texels.data);
  const std::size_t count = std::size_t{texels.width} * texels.height;
  std::vector<std::byte> values(count * 4);
  for (std::size_t k = 0; k < count; ++k) {
    std::uint16_t halves[4];
    std::memcpy(halves, &texels.data[k * sizeof(halves)], sizeof(halves));
    for (std::size_t channel = 0; channel < 3; ++channel)
      values[4 * k + channel] = encoded(floatOfHalf(halves[2 - channel]));
    values[4 * k + 3] = std::byte{255};
  }
  return values;
}

}  // namespace zeph
