// How a failure of the graphics system is told.
#pragma once

#include <cstdint>
#include <string_view>

namespace zeph {

// Raises std::runtime_error with the text "STEP failed (0xRESULT)" where the result is negative.
void checkResult(std::int32_t result, std::string_view step);

// The same for an error of the system, which is never negative.
[[noreturn]] void failStep(std::uint32_t code, std::string_view step);

}  // namespace zeph
