// When a flow has reached an endpoint.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace zeph {

// The time from which an endpoint counts as reached. The clock's time is a pair of floats, whose
// sum may fall a few units short of the endpoint.
inline double reachedFrom(double end) {
  constexpr double tolerance = 32 * std::numeric_limits<double>::epsilon();
  return end - std::max(std::abs(end), std::numeric_limits<double>::min()) * tolerance;
}

}  // namespace zeph
