#include "device/cpu/processor_memory.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <new>

#include "platform/system_memory.h"

namespace zeph::cpu {
namespace {

// Left free for the rest of the machine.
constexpr std::uint64_t margin = std::uint64_t{128} << 20;

// Blocks start at different places within a page: arrays that are walked side by side would
// otherwise compete for the same lines of the cache.
constexpr std::size_t stagger = 256;
constexpr unsigned placements = 16;

platform::MadeOnce<DeviceMemory> memoryOfProcess;

}  // namespace

DeviceMemory& DeviceMemory::shared() {
  return memoryOfProcess.get([] { return new DeviceMemory(platform::availableMemory); });
}

DeviceMemory::~DeviceMemory() {
  for (const auto& [pointer, block] : blocks_) platform::unmapPages(block.pages, block.bytes);
}

void* DeviceMemory::allocate(std::size_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max() / 2) return nullptr;
  const std::lock_guard lock(mutex_);
  const std::size_t offset = stagger * (placed_ % placements);
  const std::size_t mapped = std::max<std::size_t>(bytes, 1) + offset;
  if (mapped > availableLocked()) return nullptr;
  void* pages = platform::mapPages(mapped);
  if (pages == nullptr) return nullptr;
  void* pointer = static_cast<char*>(pages) + offset;
  blocks_.emplace(pointer, Block{pages, mapped, false});
  ++placed_;
  return pointer;
}

bool DeviceMemory::release(void* pointer) {
  const std::lock_guard lock(mutex_);
  const auto found = blocks_.find(pointer);
  if (found == blocks_.end()) return false;
  platform::unmapPages(found->second.pages, found->second.bytes);
  blocks_.erase(found);
  return true;
}

std::uint64_t DeviceMemory::inUse() {
  const std::lock_guard lock(mutex_);
  std::uint64_t bytes = 0;
  for (const auto& [address, block] : blocks_) bytes += block.bytes;
  return bytes;
}

std::uint64_t DeviceMemory::available() {
  const std::lock_guard lock(mutex_);
  return availableLocked();
}

std::uint64_t DeviceMemory::availableLocked() {
  const std::uint64_t committed = untouched() + margin;
  const std::uint64_t left = availableBytes_();
  return left - std::min(left, committed);
}

std::uint64_t DeviceMemory::untouched() {
  std::uint64_t sum = 0;
  for (auto& [pointer, block] : blocks_) {
    if (block.isResident) continue;
    const std::uint64_t resident = platform::residentBytes(block.pages, block.bytes);
    block.isResident = resident == block.bytes;
    sum += block.bytes - resident;
  }
  return sum;
}

DeviceFloats::DeviceFloats(std::size_t count)
    : floats_(static_cast<float*>(DeviceMemory::shared().allocate(count * sizeof(float)))),
      bytes_(count * sizeof(float)) {
  if (!floats_) throw std::bad_alloc();
}

}  // namespace zeph::cpu
