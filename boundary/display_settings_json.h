// The form in which the choice of picture crosses the boundary.
#pragma once

#include "boundary/json_reading.h"
#include "render/display_settings.h"

namespace zeph {

// `present` with the object's members applied. "exposure" and "sigma" are clamped to what the
// picture can show. Raises std::invalid_argument or the JSON library's type error.
DisplaySettings readDisplaySettings(const Json& object, DisplaySettings present);

Json displaySettingsToJson(const DisplaySettings& settings);

}  // namespace zeph
