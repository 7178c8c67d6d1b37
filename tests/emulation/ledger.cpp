#include "tests/emulation/ledger.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace zeph::emulation {
namespace {

constexpr std::size_t pageBytes = 4096;
constexpr std::size_t alignment = 256;  // of every block, as CUDA's
constexpr int nanByte = 0xFF;

std::size_t roundUp(std::size_t bytes, std::size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

bool isUntouched(const std::byte* begin, const std::byte* end) {
  static const std::vector<unsigned char> untouched(pageBytes, nanByte);
  return std::memcmp(begin, untouched.data(), static_cast<std::size_t>(end - begin)) == 0;
}

std::uintptr_t addressOf(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

}  // namespace

// Inaccessible pages, with one more on each side.
void* Ledger::reserve(std::size_t pages) {
  void* mapped =
      mmap(nullptr, pages + 2 * pageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return mapped != MAP_FAILED ? mapped : nullptr;
}

// A block ends at the end of its last page, as closely as its alignment allows.
void* Ledger::allocate(int gpu, std::size_t bytes) {
  const std::size_t used = roundUp(bytes, alignment);
  const std::size_t pages = roundUp(used, pageBytes);
  void* mapped = reserve(pages);
  if (mapped == nullptr) return nullptr;
  auto* first = static_cast<std::byte*>(mapped);
  std::byte* begin = first + pageBytes + pages - used;
  const Block block = {gpu, bytes, first, pages + 2 * pageBytes};
  blocks_.emplace(addressOf(begin), block);
  mprotect(first + pageBytes, pages, PROT_READ | PROT_WRITE);
  std::memset(first + pageBytes, nanByte, pages);
  mprotect(first + pageBytes, pages, PROT_NONE);
  return begin;
}

void* Ledger::adopt(int gpu, int file, std::size_t offset, std::size_t bytes) {
  const std::size_t pages = roundUp(bytes, pageBytes);
  void* mapped = reserve(pages);
  if (mapped == nullptr) return nullptr;
  auto* first = static_cast<std::byte*>(mapped);
  std::byte* begin = first + pageBytes;
  if (mmap(begin, pages, PROT_NONE, MAP_SHARED | MAP_FIXED, file, static_cast<off_t>(offset)) ==
      MAP_FAILED) {
    munmap(mapped, pages + 2 * pageBytes);
    return nullptr;
  }
  blocks_.emplace(addressOf(begin), Block{gpu, bytes, first, pages + 2 * pageBytes, true});
  return begin;
}

void* Ledger::allocateHost(std::size_t bytes) {
  void* block = std::malloc(bytes);
  if (block == nullptr) return nullptr;
  std::memset(block, nanByte, bytes);
  hostBlocks_.emplace(addressOf(block), bytes);
  return block;
}

int Ledger::gpuOf(const void* block) const {
  const auto found = blocks_.find(addressOf(block));
  return found != blocks_.end() ? found->second.gpu : -1;
}

bool Ledger::release(void* block) {
  const auto found = blocks_.find(addressOf(block));
  if (found == blocks_.end()) return false;
  munmap(found->second.mapped, found->second.mappedBytes);
  blocks_.erase(found);
  return true;
}

bool Ledger::releaseHost(void* block) {
  if (hostBlocks_.erase(addressOf(block)) == 0) return false;
  std::free(block);
  return true;
}

void Ledger::clear() {
  while (!blocks_.empty()) release(reinterpret_cast<void*>(blocks_.begin()->first));
  while (!hostBlocks_.empty()) releaseHost(reinterpret_cast<void*>(hostBlocks_.begin()->first));
}

const Ledger::Block* Ledger::blockAround(const void* pointer, Address& begin) const {
  auto found = blocks_.upper_bound(addressOf(pointer));
  if (found == blocks_.begin()) return nullptr;
  --found;
  begin = found->first;
  return addressOf(pointer) - begin < found->second.bytes ? &found->second : nullptr;
}

bool Ledger::holds(const void* pointer, std::size_t bytes) const {
  Address begin = 0;
  const Block* block = blockAround(pointer, begin);
  return block != nullptr && bytes <= block->bytes - (addressOf(pointer) - begin);
}

bool Ledger::isDevicePointer(const void* pointer) const {
  Address begin = 0;
  return blockAround(pointer, begin) != nullptr;
}

bool Ledger::isPageLocked(const void* pointer) const {
  auto found = hostBlocks_.upper_bound(addressOf(pointer));
  if (found == hostBlocks_.begin()) return false;
  --found;
  return addressOf(pointer) - found->first < found->second;
}

std::size_t Ledger::bytesOn(int gpu) const {
  std::size_t sum = 0;
  for (const auto& [begin, block] : blocks_) {
    if (block.gpu == gpu && !block.isAdopted) sum += block.bytes;
  }
  return sum;
}

void Ledger::setOpen(int gpu, bool isOpen) const {
  for (const auto& [begin, block] : blocks_) {
    if (block.gpu != gpu) continue;
    mprotect(block.mapped + pageBytes, block.mappedBytes - 2 * pageBytes,
             isOpen ? PROT_READ | PROT_WRITE : PROT_NONE);
  }
}

bool Ledger::isIntact(int gpu) const {
  return std::all_of(blocks_.begin(), blocks_.end(), [gpu](const auto& entry) {
    const Block& block = entry.second;
    if (block.gpu != gpu || block.isAdopted) return true;
    const auto* begin = reinterpret_cast<const std::byte*>(entry.first);
    return isUntouched(block.mapped + pageBytes, begin) &&
           isUntouched(begin + block.bytes, block.mapped + block.mappedBytes - pageBytes);
  });
}

}  // namespace zeph::emulation
