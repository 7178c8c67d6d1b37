// CRC-32, the checksum of zlib, PNG and ZIP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zeph {

std::uint32_t crc32(std::span<const std::byte> bytes);

}  // namespace zeph
