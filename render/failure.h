// The error texts of the graphics system.
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph {

// If the result is negative, raises std::runtime_error with the text "STEP failed (0xRESULT)".
void checkResult(std::int32_t result, std::string_view step);

// The same for an error number of the operating system, which is never negative.
[[noreturn]] void failStep(std::uint32_t code, std::string_view step);

}  // namespace zeph
