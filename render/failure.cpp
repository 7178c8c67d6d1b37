#include "render/failure.h"

#include <array>
#include <charconv>
#include <stdexcept>
#include <string>

namespace zeph {

void checkResult(std::int32_t result, std::string_view step) {
  if (result < 0) failStep(static_cast<std::uint32_t>(result), step);
}

void failStep(std::uint32_t code, std::string_view step) {
  std::array<char, 8> digits{};
  char* end = std::to_chars(digits.data(), digits.data() + digits.size(), code, 16).ptr;
  std::string text(step);
  text.append(" failed (0x").append(digits.data(), end).append(")");
  throw std::runtime_error(text);
}

}  // namespace zeph
