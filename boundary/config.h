// The boundary is where JSON text from the host meets the system: the nine exported functions
// (zephane.h, exports.cpp) and the frame around each call, the description of the machine, the
// engine and its operations. This header is the form in which a simulation's configuration crosses.
#pragma once

#include "boundary/json_reading.h"
#include "solver/config.h"

namespace zeph {

// `base` with the object's members applied. Keys that a configuration lacks are ignored; absent
// and null members leave the base's values, except that a null "fixed_dt" returns to the adaptive
// step. Raises std::invalid_argument, std::out_of_range or the JSON library's type error.
Config parseConfig(const Json& object, const Config& base);

Json configToJson(const Config& config);

}  // namespace zeph
