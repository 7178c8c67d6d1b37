// When a flow has reached an endpoint.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {

// The clock reaches an endpoint as a pair of floats, whose sum may fall a few units short of it:
// the time from which on it counts as reached.
inline double reachedFrom(double end) {
  constexpr double tolerance = 32 * std::numeric_limits<double>::epsilon();
  return end - std::max(std::abs(end), std::numeric_limits<double>::min()) * tolerance;
}

}  // namespace zeph
