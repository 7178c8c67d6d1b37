// The boundary is where JSON text from the host meets the system: the nine exported functions
// (zephane.h, exports.cpp) and the frame around each call, the description of the machine, the
// engine and its operations. This header is the form in which a simulation's configuration crosses.
#pragma once

#include <cstdint>
#include <string_view>

#include "boundary/json_reading.h"
#include "solver/config_record.h"

namespace zeph {

// `base` with the object's members applied. Keys that a configuration lacks are ignored; absent
// and null members leave the base's values, except that a null "fixed_dt" returns to the adaptive
// step. Raises std::invalid_argument, std::out_of_range or the JSON library's type error.
Config parseConfig(const Json& object, const Config& base);

Json configToJson(const Config& config);

// Unsigned decimal numbers, for seeds and device indices. isDecimal() is true for one or more
// digits 0 to 9 and nothing else. decimalValue() expects such a text; a value above `limit` raises
// std::out_of_range with the text `overflow`.
bool isDecimal(std::string_view text);
std::uint64_t decimalValue(std::string_view digits, std::uint64_t limit, const char* overflow);

}  // namespace zeph
