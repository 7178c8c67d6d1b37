#include "render/pacing.h"

#include <algorithm>
#include <cmath>

namespace zeph {
namespace {

constexpr double presentationsPerSecond = 60;

}  // namespace

void PresentationGrid::presented(double now) {
  if (next_ == 0) next_ = now;
  const double late = std::max(now - next_, 0.0);
  next_ += (std::floor(late * presentationsPerSecond) + 1) / presentationsPerSecond;
}

}  // namespace zeph
