// The single-precision exponential of the kernels.
#pragma once

#include "kernels/bodies/body.h"

namespace zeph {

// Argument reduction by multiples of ln 2 (Cody & Waite 1980), in double precision, whose range
// covers every result: e^x to within a little more than half a unit in the last place, subnormal
// results and overflow included, with the same bits on every machine and device.
ZEPH_BODY float exponential(float x) {
  constexpr double lowest = -110.0;  // e^-110 rounds to 0, e^90 to infinity
  constexpr double highest = 90.0;
  constexpr double perLn2 = 1.4426950408889634;
  constexpr double ln2 = 0.6931471805599453;
  constexpr double roundToInteger = 6755399441055744.0;  // 1.5 * 2^52

  double y = static_cast<double>(x);
  y = y < lowest ? lowest : y;
  y = y > highest ? highest : y;
  const double shifted = y * perLn2 + roundToInteger;  // the integer is in the lowest bits
  const double r = y - (shifted - roundToInteger) * ln2;

  double sum = 1.0 / 40320.0;
  sum = sum * r + 1.0 / 5040.0;
  sum = sum * r + 1.0 / 720.0;
  sum = sum * r + 1.0 / 120.0;
  sum = sum * r + 1.0 / 24.0;
  sum = sum * r + 1.0 / 6.0;
  sum = sum * r + 0.5;
  sum = sum * r + 1.0;
  sum = sum * r + 1.0;

  const std::uint64_t exponent = __builtin_bit_cast(std::uint64_t, shifted) + 1023u;
  return static_cast<float>(sum * __builtin_bit_cast(double, exponent << 52));
}

}  // namespace zeph
