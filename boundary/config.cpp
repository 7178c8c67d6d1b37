#include "boundary/config.h"

#include <limits>
#include <stdexcept>

namespace zeph {
namespace {

constexpr std::int32_t largestK0 = 1000000;

// Usually text, because a double cannot hold every seed; of a JSON number the digits count.
std::uint64_t toSeed(const Json& value) {
  std::string text;
  if (value.is_string())
    text = value.get<std::string>();
  else if (value.is_number())
    text = value.dump();
  if (!isDecimal(text)) throw std::invalid_argument("Seed must be UInt64.");
  return decimalValue(text, std::numeric_limits<std::uint64_t>::max(),
                      "stoull argument out of range");
}

float readFixedStep(const Json& object, float absent) {
  const Json* member = findMember(object, "fixed_dt");
  if (!member) return absent;
  if (member->is_null()) return 0.0f;
  const auto step = static_cast<float>(readNumber(object, "fixed_dt", absent));
  if (!(step > 0)) throw std::invalid_argument("Fixed timestep must be positive.");
  return step;
}

}  // namespace

bool isDecimal(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::uint64_t decimalValue(std::string_view digits, std::uint64_t limit, const char* overflow) {
  std::uint64_t value = 0;
  for (const char character : digits) {
    const auto digit = static_cast<std::uint64_t>(character - '0');
    if (digit > limit || value > (limit - digit) / 10) throw std::out_of_range(overflow);
    value = value * 10 + digit;
  }
  return value;
}

Config parseConfig(const Json& object, const Config& base) {
  Config config = base;
  if (const Json* value = findValue(object, "resolution")) config.resolution = toInt32(*value);
  if (const Json* value = findValue(object, "k0")) config.k0 = toInt32(*value);
  if (const Json* value = findValue(object, "seed")) config.seed = toSeed(*value);
  config.reynolds = readNumber(object, "reynolds", base.reynolds);
  config.cfl = static_cast<float>(readNumber(object, "cfl", base.cfl));
  readName(object, "integrator", integratorNames, config.integrator);
  readName(object, "operator", operatorNames, config.operatorKind);
  readName(object, "start_spectrum", startSpectrumNames, config.start_spectrum);
  config.fixed_dt = readFixedStep(object, base.fixed_dt);
  checkConfig(config);
  if (config.k0 > largestK0) throw std::invalid_argument("Initial wavenumber is too large.");
  return config;
}

Json configToJson(const Config& config) {
  Json object;
  object["resolution"] = config.resolution;
  object["padded_resolution"] = 3 * std::int64_t{config.resolution} / 2;
  object["reynolds"] = config.reynolds;
  object["viscosity"] = static_cast<double>(viscosityOf(config.reynolds));
  object["k0"] = config.k0;
  object["seed"] = std::to_string(config.seed);
  object["cfl"] = static_cast<double>(config.cfl);
  object["integrator"] = nameOf(config.integrator);
  object["operator"] = nameOf(config.operatorKind);
  object["start_spectrum"] = nameOf(config.start_spectrum);
  object["fixed_dt"] = nullptr;
  if (config.fixed_dt > 0) object["fixed_dt"] = static_cast<double>(config.fixed_dt);
  return object;
}

}  // namespace zeph
