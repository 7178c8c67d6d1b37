#include "solver/checksum.h"

#include <array>
#include <cstring>

namespace zeph {
namespace {

constexpr std::uint32_t polynomial = 0xEDB88320;  // bit-reversed
constexpr std::size_t slice = 8;                  // bytes that are taken at once

using Table = std::array<std::uint32_t, 256>;

// Table k has the remainder of each byte with k zero bytes after it.
constexpr std::array<Table, slice> makeTables() {
  std::array<Table, slice> tables = {};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit)
      remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? polynomial : 0);
    tables[0][byte] = remainder;
  }
  for (std::size_t k = 1; k < slice; ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[k - 1][byte];
      tables[k][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}

constexpr std::array<Table, slice> tables = makeTables();

std::uint32_t takeSlice(std::uint32_t remainder, const std::byte* bytes) {
  std::uint32_t low = 0, high = 0;
  std::memcpy(&low, bytes, sizeof(low));
  std::memcpy(&high, bytes + sizeof(low), sizeof(high));
  low ^= remainder;
  return tables[7][low & 0xFF] ^ tables[6][(low >> 8) & 0xFF] ^ tables[5][(low >> 16) & 0xFF] ^
         tables[4][low >> 24] ^ tables[3][high & 0xFF] ^ tables[2][(high >> 8) & 0xFF] ^
         tables[1][(high >> 16) & 0xFF] ^ tables[0][high >> 24];
}

}  // namespace

std::uint32_t crc32(std::span<const std::byte> bytes) {
  std::uint32_t remainder = ~std::uint32_t{0};
  for (; bytes.size() >= slice; bytes = bytes.subspan(slice))
    remainder = takeSlice(remainder, bytes.data());
  for (const std::byte byte : bytes)
    remainder = (remainder >> 8) ^ tables[0][(remainder ^ static_cast<std::uint32_t>(byte)) & 0xFF];
  return ~remainder;
}

}  // namespace zeph
