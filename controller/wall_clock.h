// The controller's clock, which tests replace by one of their own.
#pragma once

#include <functional>

namespace zeph {

// Seconds since some fixed moment. Never runs backwards.
using Clock = std::function<double()>;

double monotonicSeconds();

}  // namespace zeph
