// Comparison of floats by their bits. All NaNs are equal: which one an operation returns depends on
// the processor.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "kernels/params.h"

namespace zeph::test {

inline bool sameBits(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) || (a != a && b != b);
}
inline bool sameBits(V2 a, V2 b) {
  return sameBits(a.re, b.re) && sameBits(a.im, b.im);
}
inline bool sameBits(float4 a, float4 b) {
  return sameBits(a.x, b.x) && sameBits(a.y, b.y) && sameBits(a.z, b.z) && sameBits(a.w, b.w);
}

inline std::string textOf(float value) {
  return testing::PrintToString(value) + " (bits " +
         std::to_string(std::bit_cast<std::uint32_t>(value)) + ")";
}
inline std::string textOf(V2 value) {
  return "{" + textOf(value.re) + ", " + textOf(value.im) + "}";
}
inline std::string textOf(float4 value) {
  return "{" + textOf(value.x) + ", " + textOf(value.y) + ", " + textOf(value.z) + ", " +
         textOf(value.w) + "}";
}

template <class T>
testing::AssertionResult sameBits(const std::vector<T>& actual, const std::vector<T>& expected) {
  if (actual.size() != expected.size()) {
    return testing::AssertionFailure() << actual.size() << " elements, not " << expected.size();
  }
  for (std::size_t k = 0; k < actual.size(); ++k) {
    if (sameBits(actual[k], expected[k])) continue;
    return testing::AssertionFailure() << "element " << k << " is " << textOf(actual[k])
                                       << ", expected " << textOf(expected[k]);
  }
  return testing::AssertionSuccess();
}

}  // namespace zeph::test
