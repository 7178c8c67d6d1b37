// The seeded start of a flow.
#pragma once

#include <vector>

#include "kernels/params.h"
#include "solver/config_record.h"

namespace zeph {

// The vorticity half spectrum at time zero, N rows of N/2 + 1. A seed always gives the same flow:
// the order of the draws and of the arithmetic is fixed.
std::vector<V2> startSpectrum(const Config& config);

}  // namespace zeph
