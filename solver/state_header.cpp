#include "solver/state_header.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>

#include "solver/checksum.h"

namespace zeph {
namespace {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;  // "format" comes first

constexpr const char* layout = "1";
constexpr std::string_view beginning = R"({"__metadata__":{"format":"zephane state","version":")";
constexpr std::string_view checksumKey = R"("header_checksum":")";
constexpr std::size_t checksumDigits = 8;
constexpr std::size_t alignment = 8;

std::string hexadecimal(std::uint32_t value) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text(checksumDigits, '0');
  for (std::size_t k = 0; k < checksumDigits; ++k)
    text[k] = digits[(value >> (4 * (checksumDigits - 1 - k))) & 15];
  return text;
}

// Where the digits of the header's own checksum begin; npos if it has none.
std::size_t placeOfChecksum(const std::string& text) {
  const std::size_t key = text.find(checksumKey);
  if (key == std::string::npos) return key;
  const std::size_t digits = key + checksumKey.size();
  return text.size() - digits >= checksumDigits ? digits : std::string::npos;
}

// With zeros in the place of its digits.
std::uint32_t checksumOf(std::string text, std::size_t digits) {
  text.replace(digits, checksumDigits, checksumDigits, '0');
  return crc32(std::as_bytes(std::span(text)));
}

// Writing

std::string dumped(const OrderedJson& value) {
  return value.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

OrderedJson configurationOf(const Config& config) {
  OrderedJson object;
  object["resolution"] = config.resolution;
  object["k0"] = config.k0;
  object["seed"] = std::to_string(config.seed);
  object["reynolds"] = config.reynolds;
  object["cfl"] = static_cast<double>(config.cfl);
  object["fixed_dt"] = nullptr;
  if (config.fixed_dt > 0) object["fixed_dt"] = static_cast<double>(config.fixed_dt);
  object["integrator"] = nameOf(config.integrator);
  object["operator"] = nameOf(config.operatorKind);
  object["start_spectrum"] = nameOf(config.start_spectrum);
  return object;
}

OrderedJson clockOf(const StateRecord& state) {
  const ClockState& clock = state.clock;
  return {{"time_high", static_cast<double>(clock.timeHigh)},
          {"time_low", static_cast<double>(clock.timeLow)},
          {"dt", static_cast<double>(clock.dt)},
          {"raw_dt", static_cast<double>(clock.rawDt)},
          {"max_speed", static_cast<double>(clock.maxSpeed)},
          {"steps", clock.steps},
          {"initial_turnover_time", state.initialTurnoverTime}};
}

OrderedJson metadataOf(const StateRecord& state, const StateChecksums& checksums) {
  OrderedJson metadata;
  metadata["format"] = "zephane state";
  metadata["version"] = layout;
  metadata["library"] = ZEPHANE_VERSION;
  metadata["device"] = state.device;
  metadata["configuration"] = dumped(configurationOf(state.config));
  metadata["settings"] =
      dumped({{"reynolds", state.reynolds}, {"cfl", static_cast<double>(state.cfl)}});
  metadata["clock"] = dumped(clockOf(state));
  if (const auto& regulator = state.regulator)
    metadata["regulator"] = dumped({{"fast_palinstrophy", regulator->fastPalinstrophy},
                                    {"slow_palinstrophy", regulator->slowPalinstrophy},
                                    {"previous_error", regulator->previousError}});
  metadata["checksums"] = dumped({{spectrumArray, hexadecimal(checksums.spectrum)},
                                  {compensationArray, hexadecimal(checksums.compensation)}});
  metadata["header_checksum"] = std::string(checksumDigits, '0');
  return metadata;
}

OrderedJson arrayOf(const Config& config, std::size_t place) {
  const std::size_t bytes = stateArrayBytes(config);
  return {{"dtype", "F32"},
          {"shape", {config.resolution, halfWidth(config.resolution), 2}},
          {"data_offsets", {place * bytes, (place + 1) * bytes}}};
}

// Reading. What is read has the right checksum, so that refusals are for files made by others.
// Values are never copied, compared or serialised: that recurses as deep as they are nested.

const Json& member(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) refuseInvalid(std::string("it lacks \"") + key + "\"");
  return *found;
}

const std::string& text(const Json& object, const char* key) {
  const Json& value = member(object, key);
  if (!value.is_string()) refuseInvalid(std::string("\"") + key + "\" is not a text");
  return value.get_ref<const std::string&>();
}

double number(const Json& object, const char* key) {
  const Json& value = member(object, key);
  const double given = value.is_number() ? value.get<double>() : std::nan("");
  if (!std::isfinite(given)) refuseInvalid(std::string("\"") + key + "\" is not a finite number");
  return given;
}

float single(const Json& object, const char* key) {
  const auto value = static_cast<float>(number(object, key));
  if (!std::isfinite(value)) refuseInvalid(std::string("\"") + key + "\" leaves single precision");
  return value;
}

float positiveOrZero(const Json& object, const char* key) {
  const float value = single(object, key);
  if (value < 0) refuseInvalid(std::string("\"") + key + "\" is negative");
  return value;
}

std::uint64_t whole(const Json& object, const char* key, std::uint64_t largest) {
  const Json& value = member(object, key);
  if (!value.is_number_unsigned() || value.get<std::uint64_t>() > largest)
    refuseInvalid(std::string("\"") + key + "\" is not a whole number in its range");
  return value.get<std::uint64_t>();
}

std::uint64_t decimal(const std::string& digits, int base, const char* key) {
  std::uint64_t value = 0;
  const char* end = digits.data() + digits.size();
  const auto read = std::from_chars(digits.data(), end, value, base);
  if (read.ec != std::errc() || read.ptr != end)
    refuseInvalid(std::string("\"") + key + "\" is not a number in its range");
  return value;
}

template <class Enumeration, std::size_t count>
Enumeration named(const Json& object, const char* key,
                  const std::array<const char*, count>& names) {
  const auto found = std::find(names.begin(), names.end(), text(object, key));
  if (found == names.end()) refuseInvalid(std::string("\"") + key + "\" is unknown");
  return static_cast<Enumeration>(found - names.begin());
}

Json parsed(const std::string& text, const char* what) {
  Json value = Json::parse(text, nullptr, false);
  if (!value.is_object()) refuseInvalid(std::string("its ") + what + " is not a JSON object");
  return value;
}

Json part(const Json& metadata, const char* key) {
  return parsed(text(metadata, key), key);
}

Config readConfiguration(const Json& object) {
  constexpr std::uint64_t largest = std::numeric_limits<std::int32_t>::max();
  Config config;
  config.resolution = static_cast<std::int32_t>(whole(object, "resolution", largest));
  config.k0 = static_cast<std::int32_t>(whole(object, "k0", largest));
  config.seed = decimal(text(object, "seed"), 10, "seed");
  config.reynolds = number(object, "reynolds");
  config.cfl = single(object, "cfl");
  config.fixed_dt = member(object, "fixed_dt").is_null() ? 0 : single(object, "fixed_dt");
  config.integrator = named<Integrator>(object, "integrator", integratorNames);
  config.operatorKind = named<OperatorKind>(object, "operator", operatorNames);
  config.start_spectrum = named<StartSpectrum>(object, "start_spectrum", startSpectrumNames);
  try {
    checkConfig(config);
  } catch (const std::invalid_argument&) {
    refuseInvalid("its configuration is out of range");
  }
  return config;
}

void readSettings(const Json& object, StateRecord& state) {
  state.reynolds = number(object, "reynolds");
  state.cfl = single(object, "cfl");
  if (!isReynolds(state.reynolds) || !isCfl(state.cfl))
    refuseInvalid("its settings are out of range");
}

void readClock(const Json& object, StateRecord& state) {
  ClockState& clock = state.clock;
  clock.timeHigh = positiveOrZero(object, "time_high");
  clock.timeLow = single(object, "time_low");
  clock.dt = positiveOrZero(object, "dt");
  clock.rawDt = positiveOrZero(object, "raw_dt");
  clock.maxSpeed = positiveOrZero(object, "max_speed");
  clock.steps = whole(object, "steps", std::numeric_limits<std::uint64_t>::max());
  clock.healthy = 1;
  clock.stepState = normalStep;
  state.initialTurnoverTime = number(object, "initial_turnover_time");
  if (state.initialTurnoverTime < 0) refuseInvalid("\"initial_turnover_time\" is negative");
}

RegulatorRecord readRegulator(const Json& object) {
  return {.fastPalinstrophy = number(object, "fast_palinstrophy"),
          .slowPalinstrophy = number(object, "slow_palinstrophy"),
          .previousError = number(object, "previous_error")};
}

bool areNumbers(const Json& list, std::initializer_list<std::size_t> expected) {
  return list.is_array() && list.size() == expected.size() &&
         std::equal(list.begin(), list.end(), expected.begin(),
                    [](const Json& value, std::size_t wanted) {
                      return value.is_number_unsigned() && value.get<std::size_t>() == wanted;
                    });
}

void checkArray(const Json& header, const char* name, const Config& config, std::size_t place) {
  const Json& array = member(header, name);
  const auto n = static_cast<std::size_t>(config.resolution);
  const std::size_t bytes = stateArrayBytes(config);
  const bool fits = array.is_object() && text(array, "dtype") == "F32" &&
                    areNumbers(member(array, "shape"), {n, n / 2 + 1, 2}) &&
                    areNumbers(member(array, "data_offsets"), {place * bytes, (place + 1) * bytes});
  if (!fits) refuseInvalid(std::string("\"") + name + "\" is not the array of its configuration");
}

std::uint32_t readChecksum(const Json& object, const char* key) {
  const std::string& digits = text(object, key);
  if (digits.size() != checksumDigits)
    refuseInvalid(std::string("it has no checksum of \"") + key + "\"");
  return static_cast<std::uint32_t>(decimal(digits, 16, key));
}

void checkVersion(const std::string& header) {
  const std::size_t end = header.find('"', beginning.size());
  const std::string version = header.substr(beginning.size(), end - beginning.size());
  const bool isNumber =
      !version.empty() && version.find_first_not_of("0123456789") == std::string::npos;
  if (isNumber && version != layout)
    throw std::runtime_error("State file has layout " + version + ", and this library reads " +
                             layout + ".");
}

void checkHeaderChecksum(const std::string& header) {
  const std::size_t digits = placeOfChecksum(header);
  if (digits == std::string::npos ||
      header.compare(digits, checksumDigits, hexadecimal(checksumOf(header, digits))) != 0)
    refuseDamaged("its header");
}

}  // namespace

void refuseDamaged(const std::string& part) {
  throw std::runtime_error("State file is damaged: the checksum of " + part + " does not match.");
}

void refuseInvalid(const std::string& what) {
  throw std::runtime_error("State file is invalid: " + what + ".");
}

void refuseForeign(const std::string& what) {
  throw std::runtime_error("Not a state file: " + what + ".");
}

std::size_t stateArrayBytes(const Config& config) {
  const auto n = static_cast<std::size_t>(config.resolution);
  return n * (n / 2 + 1) * sizeof(V2);
}

std::string formatStateHeader(const StateRecord& state, const StateChecksums& checksums) {
  OrderedJson object;
  object["__metadata__"] = metadataOf(state, checksums);
  object[spectrumArray] = arrayOf(state.config, 0);
  object[compensationArray] = arrayOf(state.config, 1);
  std::string text = dumped(object);
  text.append((alignment - text.size() % alignment) % alignment, ' ');
  sealStateHeader(text);
  return text;
}

bool beginsStateHeader(std::string_view text) {
  return text.substr(0, beginning.size()) == beginning.substr(0, text.size());
}

void sealStateHeader(std::string& text) {
  const std::size_t digits = placeOfChecksum(text);
  if (digits == std::string::npos) return;
  text.replace(digits, checksumDigits, hexadecimal(checksumOf(text, digits)));
}

StateHeader parseStateHeader(const std::string& text) {
  if (text.size() < beginning.size() || !beginsStateHeader(text))
    refuseForeign("its header is not that of a state");
  checkVersion(text);
  checkHeaderChecksum(text);
  const Json object = parsed(text, "header");
  const Json& metadata = member(object, "__metadata__");
  if (!metadata.is_object()) refuseInvalid("its metadata is not a JSON object");
  StateHeader header;
  StateRecord& state = header.state;
  state.config = readConfiguration(part(metadata, "configuration"));
  readSettings(part(metadata, "settings"), state);
  readClock(part(metadata, "clock"), state);
  if (metadata.contains("regulator")) state.regulator = readRegulator(part(metadata, "regulator"));
  state.device = zeph::text(metadata, "device");
  const Json checksums = part(metadata, "checksums");
  header.checksums.spectrum = readChecksum(checksums, spectrumArray);
  header.checksums.compensation = readChecksum(checksums, compensationArray);
  checkArray(object, spectrumArray, state.config, 0);
  checkArray(object, compensationArray, state.config, 1);
  return header;
}

}  // namespace zeph
