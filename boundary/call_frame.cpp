#include "boundary/call_frame.h"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace zeph {
namespace {

constexpr int noIndent = -1;

std::string dumpReplacing(const Json& value) {
  return value.dump(noIndent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

Json parseObject(const char* text) {
  constexpr bool throwing = true;
  constexpr bool ignoreComments = false;
  if (!text) throw std::invalid_argument("Expected a JSON object.");
  Json value = Json::parse(text, nullptr, throwing, ignoreComments);
  if (!value.is_object()) throw std::invalid_argument("Expected a JSON object.");
  return value;
}

std::string serialise(const Json& value) {
  return value.dump(noIndent, ' ', false, Json::error_handler_t::strict);
}

std::string validUtf8(const char* text) {
  return Json::parse(dumpReplacing(Json(text))).get<std::string>();
}

char* hostText(std::string_view text) noexcept {
  auto* block = static_cast<char*>(std::malloc(text.size() + 1));
  if (!block) return nullptr;
  std::memcpy(block, text.data(), text.size());
  block[text.size()] = '\0';
  return block;
}

// A parse error may quote bytes of the request that are not UTF-8; they are replaced.
char* errorReply(const char* what) noexcept {
  try {
    return hostText(dumpReplacing(Json::object({{"error", what}})));
  } catch (...) {
    return unknownFailureReply();
  }
}

char* unknownFailureReply() noexcept {
  return hostText(R"({"error":"Unknown native failure"})");
}

}  // namespace zeph
