// The frame around every call of the host: how a request is parsed, and how a result or a failure
// becomes text that the host owns.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "boundary/json_reading.h"
#include "platform/thread_environment.h"

namespace zeph {

// Raises std::invalid_argument for a null pointer and for JSON that is not an object, and the JSON
// library's error for text that is not JSON.
Json parseObject(const char* text);

// Compact JSON. Raises the JSON library's error for a string that is not UTF-8.
std::string serialise(const Json& value);

// The text with U+FFFD in place of bytes that are not UTF-8.
std::string validUtf8(const char* text);

// A NUL-terminated copy allocated by malloc; null if there is no memory.
char* hostText(std::string_view text) noexcept;

// {"error": what}, as a host text.
char* errorReply(const char* what) noexcept;
char* unknownFailureReply() noexcept;

// Runs an operation that returns JSON and answers with its text or with an error object. The
// operation runs in the default floating-point mode, whichever one the host has set.
template <class Operation>
char* reply(Operation&& operation) noexcept {
  const platform::CallEnvironment environment;
  try {
    return hostText(serialise(operation()));
  } catch (const std::exception& failure) {
    return errorReply(failure.what());
  } catch (...) {
    return unknownFailureReply();
  }
}

}  // namespace zeph
