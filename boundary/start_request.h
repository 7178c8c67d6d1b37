// How a request names what a flow starts from.
#pragma once

#include <optional>
#include <string>

#include "boundary/json_reading.h"
#include "solver/state_record.h"

namespace zeph {

// Empty where the request has none.
std::string initialPath(const Json& request);
std::string statePath(const Json& request);

// Raises std::invalid_argument where a request names both a starting field and a state.
void checkStart(const Json& request);

// The state that a request names, if it names one. Raises std::invalid_argument and
// std::runtime_error.
std::optional<StateRecord> readState(const Json& request);

}  // namespace zeph
