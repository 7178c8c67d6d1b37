#include "boundary/decimal.h"

#include <stdexcept>

namespace zeph {

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

}  // namespace zeph
