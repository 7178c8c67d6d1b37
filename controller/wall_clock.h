// The time that the controller lives by.
#pragma once

#include <functional>

namespace zeph {

// Seconds since some fixed moment. Never runs backwards.
using Clock = std::function<double()>;

double monotonicSeconds();

}  // namespace zeph
