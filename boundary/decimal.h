// Unsigned decimal numbers in text, strict about their form and the same on every platform.
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph {

// Whether the text is one or more of the characters 0 to 9 and nothing else.
bool isDecimal(std::string_view text);

// The value of such a text. Raises std::out_of_range with the text `overflow` above `limit`.
std::uint64_t decimalValue(std::string_view digits, std::uint64_t limit, const char* overflow);

}  // namespace zeph
