// PNG files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace zeph {

// Writes rows of 8-bit blue, green, red, alpha, the top one first, to a path in UTF-8. Raises
// std::runtime_error that names the step, with the system's code: "Open PNG failed (0x2)". On
// Linux a file that was there before stays as it was then; on Windows what was written stays.
void writePng(const std::string& path, std::uint32_t width, std::uint32_t height,
              std::span<const std::byte> pixels);

}  // namespace zeph
