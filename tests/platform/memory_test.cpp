#include "platform/system_memory.h"

#include <gtest/gtest.h>

#include <cstring>

namespace zeph::platform {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

TEST(MachineMemory, TheAvailableAmountIsPositiveAndAtMostTheTotal) {
  EXPECT_GT(availableMemory(), 0u);
  EXPECT_LE(availableMemory(), physicalMemory());
}

TEST(MappedPages, AreZeroedAndAligned) {
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{4096}, std::size_t{4097},
                                  3 * mebibyte, 4 * mebibyte, 9 * mebibyte + 12345}) {
    auto* pages = static_cast<unsigned char*>(mapPages(bytes));
    ASSERT_NE(pages, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(pages) % 4096, 0u);
    for (std::size_t k = 0; k < bytes; ++k) ASSERT_EQ(pages[k], 0) << bytes;
    std::memset(pages, 0xAB, bytes);
    unmapPages(pages, bytes);
  }
}

TEST(MappedPages, UseMemoryOnlyWhereTouched) {
  for (const std::size_t bytes : {100 * std::size_t{4096}, 10 * mebibyte + 100}) {
    auto* pages = static_cast<unsigned char*>(mapPages(bytes));
    ASSERT_NE(pages, nullptr);
    const std::uint64_t untouched = residentBytes(pages, bytes);
    pages[bytes / 2] = 1;
    const std::uint64_t once = residentBytes(pages, bytes);
    std::memset(pages, 1, bytes);
    EXPECT_EQ(residentBytes(pages, bytes), bytes);
    if (untouched < bytes) {
      EXPECT_EQ(untouched, 0u);
      EXPECT_GT(once, 0u);
      EXPECT_LT(once, bytes);
    }
    unmapPages(pages, bytes);
  }
}

TEST(MappedPages, ManyCanComeAndGo) {
  for (int k = 0; k < 200; ++k) {
    void* pages = mapPages(64 * mebibyte);
    ASSERT_NE(pages, nullptr);
    std::memset(pages, 1, 100);
    unmapPages(pages, 64 * mebibyte);
  }
}

TEST(MappedPages, AreRefusedBeyondTheAddressSpace) {
  EXPECT_EQ(mapPages(std::size_t{1} << 62), nullptr);
}

}  // namespace
}  // namespace zeph::platform
