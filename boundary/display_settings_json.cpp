#include "boundary/display_settings_json.h"

#include <algorithm>
#include <array>

namespace zeph {
namespace {

constexpr std::array displayNames{"vorticity", "speed", "enstrophy"};
constexpr std::array paletteNames{"aurora", "ember", "glacier", "inferno"};
constexpr std::array colorRangeNames{"sigma", "exposure"};

void readClamped(const Json& object, const char* key, double low, double high, float& value) {
  if (const auto given = readNumber(object, key))
    value = static_cast<float>(std::clamp(*given, low, high));
}

}  // namespace

DisplaySettings readDisplaySettings(const Json& object, DisplaySettings present) {
  readName(object, "display", displayNames, present.display);
  readName(object, "palette", paletteNames, present.palette);
  readName(object, "color_range", colorRangeNames, present.colorRange);
  readClamped(object, "exposure", 0.25, 3.0, present.exposure);
  readClamped(object, "sigma", 1.5, 3.5, present.sigma);
  present.flow = findBoolean(object, "flow").value_or(present.flow);
  return present;
}

Json displaySettingsToJson(const DisplaySettings& settings) {
  Json object;
  object["display"] = displayNames.at(static_cast<std::size_t>(settings.display));
  object["palette"] = paletteNames.at(static_cast<std::size_t>(settings.palette));
  object["color_range"] = colorRangeNames.at(static_cast<std::size_t>(settings.colorRange));
  object["exposure"] = static_cast<double>(settings.exposure);
  object["sigma"] = static_cast<double>(settings.sigma);
  object["flow"] = settings.flow;
  return object;
}

}  // namespace zeph
