#include "boundary/json_reading.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace zeph {
namespace {

double finite(double value, const char* key) {
  if (!std::isfinite(value)) throw std::invalid_argument(std::string("Non-finite ") + key);
  return value;
}

}  // namespace

const Json* findMember(const Json& object, const char* key) {
  const auto member = object.find(key);
  return member == object.end() ? nullptr : &*member;
}

const Json* findValue(const Json& object, const char* key) {
  const Json* member = findMember(object, key);
  return member && !member->is_null() ? member : nullptr;
}

std::int32_t toInt32(const Json& value) {
  if (!value.is_number_float()) return value.get<std::int32_t>();
  constexpr auto smallest = std::numeric_limits<std::int32_t>::min();
  constexpr auto largest = std::numeric_limits<std::int32_t>::max();
  const double whole = std::trunc(value.get<double>());
  return whole >= smallest && whole <= largest ? static_cast<std::int32_t>(whole) : smallest;
}

std::int32_t readInteger(const Json& object, const char* key, std::int32_t absent) {
  const Json* member = findMember(object, key);
  return member ? toInt32(*member) : absent;
}

bool readBoolean(const Json& object, const char* key, bool absent) {
  const Json* member = findMember(object, key);
  return member ? member->get<bool>() : absent;
}

std::optional<bool> findBoolean(const Json& object, const char* key) {
  const Json* value = findValue(object, key);
  if (!value) return std::nullopt;
  return value->get<bool>();
}

std::optional<double> readNumber(const Json& object, const char* key) {
  const Json* value = findValue(object, key);
  if (!value) return std::nullopt;
  return finite(value->get<double>(), key);
}

double readNumber(const Json& object, const char* key, double absent) {
  return finite(readNumber(object, key).value_or(absent), key);
}

std::optional<std::string> readPath(const Json& object, const char* key) {
  const Json* value = findValue(object, key);
  if (!value) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::size_t> findName(const Json& object, const char* key,
                                    std::span<const char* const> names) {
  const Json* value = findValue(object, key);
  if (!value) return std::nullopt;
  const auto name = value->get<std::string>();
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end())
    throw std::invalid_argument(std::string("Unknown ") + key + ": " + name);
  return static_cast<std::size_t>(found - names.begin());
}

}  // namespace zeph
