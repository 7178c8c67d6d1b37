// A picture in the host's memory: texels row by row from the top, tightly packed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zeph {

enum class TexelFormat {
  bgra8,   // 4 bytes, display values
  rgba16,  // 4 half floats, linear scRGB
};

constexpr std::size_t bytesPerTexel(TexelFormat format) {
  return format == TexelFormat::bgra8 ? 4 : 8;
}

struct Texels {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  TexelFormat format = TexelFormat::bgra8;
  std::vector<std::byte> data;
};

// IEEE binary16 to binary32, exactly.
float floatOfHalf(std::uint16_t half);

// Blue, green, red, alpha in 8 bits. Linear values are clamped to 0..1, encoded as sRGB
// (IEC 61966-2-1) and rounded; their alpha is 255.
std::vector<std::byte> displayValues(Texels texels);

}  // namespace zeph
