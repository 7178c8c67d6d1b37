// Display settings as JSON.
#pragma once

#include "boundary/json_reading.h"
#include "render/display_settings.h"

namespace zeph {

// `present` with the object's members applied. "exposure" is clamped to 0.25..3 and "sigma"
// to 1.5..3.5. Raises std::invalid_argument or the JSON library's type error.
DisplaySettings readDisplaySettings(const Json& object, DisplaySettings present);

Json displaySettingsToJson(const DisplaySettings& settings);

}  // namespace zeph
