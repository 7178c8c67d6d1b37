// The accounting of the processor's device memory, on machines of invented sizes.
#include "device/cpu/processor_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <thread>
#include <vector>

namespace zeph::cpu {
namespace {

constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20;
constexpr std::uint64_t keptBack = 128 * mebibyte;
constexpr std::uint64_t slack = 4096;  // blocks start at different places within a page

std::uint64_t with64() {
  return keptBack + 64 * mebibyte;
}
std::uint64_t without() {
  return keptBack / 2;
}

TEST(ProcessorMemory, GivesZeroedBlocksOnCacheLines) {
  DeviceMemory memory(with64);
  for (const std::size_t bytes : {std::size_t{1}, std::size_t{40}, std::size_t{5000},
                                  static_cast<std::size_t>(5 * mebibyte)}) {
    auto* block = static_cast<unsigned char*>(memory.allocate(bytes));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0u);
    for (std::size_t k = 0; k < bytes; ++k) ASSERT_EQ(block[k], 0);
    std::memset(block, 0xFF, bytes);
  }
}

TEST(ProcessorMemory, RefusesMoreThanTheMachineCanBack) {
  DeviceMemory memory(with64);
  EXPECT_EQ(memory.available(), 64 * mebibyte);
  EXPECT_EQ(memory.allocate(65 * mebibyte), nullptr);
  void* block = memory.allocate(64 * mebibyte - slack);
  EXPECT_NE(block, nullptr);
  EXPECT_TRUE(memory.release(block));
  EXPECT_EQ(memory.allocate(~std::size_t{0}), nullptr);
  EXPECT_EQ(memory.allocate(~std::size_t{0} / 2), nullptr);
}

TEST(ProcessorMemory, LeavesAMarginForOtherPrograms) {
  DeviceMemory memory(without);
  EXPECT_EQ(memory.available(), 0u);
  EXPECT_EQ(memory.allocate(4096), nullptr);
}

TEST(ProcessorMemory, CountsAnUntouchedBlock) {
  DeviceMemory memory(with64);
  void* first = memory.allocate(40 * mebibyte);
  ASSERT_NE(first, nullptr);
  EXPECT_LE(memory.available(), 24 * mebibyte);
  EXPECT_GE(memory.available(), 24 * mebibyte - slack);
  EXPECT_EQ(memory.allocate(40 * mebibyte), nullptr);
  EXPECT_NE(memory.allocate(20 * mebibyte), nullptr);
}

TEST(ProcessorMemory, DoesNotCountATouchedBlockTwice) {
  DeviceMemory memory(with64);
  void* first = memory.allocate(40 * mebibyte);
  ASSERT_NE(first, nullptr);
  std::memset(first, 1, 20 * mebibyte);
  EXPECT_GE(memory.available(), 44 * mebibyte - 2 * mebibyte);
  EXPECT_LE(memory.available(), 44 * mebibyte + 4 * mebibyte);  // huge pages
  std::memset(first, 1, 40 * mebibyte);
  EXPECT_GE(memory.available(), 64 * mebibyte - slack);
  EXPECT_NE(memory.allocate(40 * mebibyte), nullptr);
}

TEST(ProcessorMemory, FreesABlockOnce) {
  DeviceMemory memory(with64);
  void* block = memory.allocate(40 * mebibyte);
  int elsewhere = 0;
  EXPECT_FALSE(memory.release(&elsewhere));
  EXPECT_FALSE(memory.release(static_cast<char*>(block) + 64));
  EXPECT_TRUE(memory.release(block));
  EXPECT_FALSE(memory.release(block));
  EXPECT_EQ(memory.available(), 64 * mebibyte);
  EXPECT_NE(memory.allocate(40 * mebibyte), nullptr);
}

TEST(ProcessorMemory, BlocksDoNotOverlap) {
  DeviceMemory memory(with64);
  std::vector<unsigned char*> blocks;
  for (int k = 0; k < 50; ++k) {
    const std::size_t bytes = 1000 + 977 * static_cast<std::size_t>(k);
    blocks.push_back(static_cast<unsigned char*>(memory.allocate(bytes)));
    ASSERT_NE(blocks.back(), nullptr);
    std::memset(blocks.back(), k, bytes);
  }
  for (int k = 0; k < 50; ++k) {
    for (std::size_t at = 0; at < 1000 + 977 * static_cast<std::size_t>(k); ++at) {
      ASSERT_EQ(blocks[static_cast<std::size_t>(k)][at], k);
    }
  }
}

TEST(ProcessorMemory, ServesSeveralThreads) {
  DeviceMemory memory(with64);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&memory] {
      for (int k = 0; k < 200; ++k) {
        void* block = memory.allocate(10000);
        ASSERT_NE(block, nullptr);
        std::memset(block, 7, 10000);
        ASSERT_TRUE(memory.release(block));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(memory.available(), 64 * mebibyte);
}

TEST(ProcessorMemory, OfTheProcessUsesTheRealMachine) {
  const std::uint64_t before = DeviceMemory::shared().available();
  EXPECT_GT(before, 0u);
  EXPECT_EQ(DeviceMemory::shared().allocate(std::size_t{1} << 50), nullptr);
}

}  // namespace
}  // namespace zeph::cpu
