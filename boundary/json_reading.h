// How the members of a JSON object are read, for configurations, operations and display settings
// alike.
//
// A value of the wrong type raises the JSON library's own type error. Values are never copied,
// compared or serialised here: that recurses, and a host may nest them deeper than the stack
// allows.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>

namespace zeph {

using Json = nlohmann::json;

// The member, or null if it is absent.
const Json* findMember(const Json& object, const char* key);
// The member, or null if it is absent or JSON's null.
const Json* findValue(const Json& object, const char* key);

// From a number or a boolean: an integer keeps its low 32 bits, a fraction is truncated, and a
// floating value out of range becomes the smallest integer.
std::int32_t toInt32(const Json& value);

// Null is refused.
std::int32_t readInteger(const Json& object, const char* key, std::int32_t absent);
bool readBoolean(const Json& object, const char* key, bool absent);

// Null counts as absent.
std::optional<bool> findBoolean(const Json& object, const char* key);

// Null counts as absent. A result that is not finite raises std::invalid_argument "Non-finite KEY".
std::optional<double> readNumber(const Json& object, const char* key);
double readNumber(const Json& object, const char* key, double absent);

// A path as UTF-8 text. Null counts as absent.
std::optional<std::string> readPath(const Json& object, const char* key);

// The position of a name in `names`. Null counts as absent; an unknown name raises
// std::invalid_argument "Unknown KEY: NAME".
std::optional<std::size_t> findName(const Json& object, const char* key,
                                    std::span<const char* const> names);

// If a name is given, sets `value` to the enumerator at its position in `names`.
template <class Enumeration>
void readName(const Json& object, const char* key, std::span<const char* const> names,
              Enumeration& value) {
  if (const auto position = findName(object, key, names))
    value = static_cast<Enumeration>(*position);
}

}  // namespace zeph
