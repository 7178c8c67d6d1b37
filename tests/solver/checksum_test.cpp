#include "solver/checksum.h"

#include <gtest/gtest.h>

#include <random>
#include <span>
#include <string>

namespace zeph {
namespace {

std::uint32_t checksumOf(const std::string& text) {
  return crc32(std::as_bytes(std::span(text)));
}

// Bit by bit, from the definition.
std::uint32_t slowly(const std::string& text) {
  std::uint32_t remainder = 0xFFFFFFFF;
  for (const char character : text) {
    remainder ^= static_cast<unsigned char>(character);
    for (int bit = 0; bit < 8; ++bit)
      remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? 0xEDB88320u : 0u);
  }
  return ~remainder;
}

TEST(Checksum, HasTheKnownValues) {
  EXPECT_EQ(checksumOf(""), 0u);
  EXPECT_EQ(checksumOf("123456789"), 0xCBF43926u);
}

TEST(Checksum, IsTheRemainderAtEveryLength) {
  std::mt19937 source(1);
  std::string text;
  for (int length = 0; length < 70; ++length) {
    EXPECT_EQ(checksumOf(text), slowly(text)) << length;
    text += static_cast<char>(source());
  }
}

}  // namespace
}  // namespace zeph
