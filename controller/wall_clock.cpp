#include "controller/wall_clock.h"

#include <chrono>

namespace zeph {

double monotonicSeconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  const auto count = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
  return static_cast<double>(count) / 1e9;
}

}  // namespace zeph
