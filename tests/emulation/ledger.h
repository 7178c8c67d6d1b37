// The memory of the GPUs, and the host's page-locked memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace zeph::emulation {

class Ledger {
 public:
  // Both kinds are initially full of NaN. Null if the host is out of memory.
  void* allocate(int gpu, std::size_t bytes);
  void* allocateHost(std::size_t bytes);
  // A block of memory owned by another interface: the pages of a file from an offset on. Null on
  // failure.
  void* adopt(int gpu, int file, std::size_t offset, std::size_t bytes);

  // The GPU that a block begins on, or -1 for a pointer that is no block's beginning.
  int gpuOf(const void* block) const;

  // False for a pointer that is no block's beginning.
  bool release(void* block);
  bool releaseHost(void* block);
  void clear();

  // Whether all bytes lie within one block of a GPU, and whether the pointer lies within any.
  bool holds(const void* pointer, std::size_t bytes) const;
  bool isDevicePointer(const void* pointer) const;
  bool isPageLocked(const void* pointer) const;

  std::size_t bytesOn(int gpu) const;
  std::size_t blocks() const { return blocks_.size(); }
  std::size_t hostBlocks() const { return hostBlocks_.size(); }

  // Except while work runs, the memory of GPUs cannot be accessed.
  void setOpen(int gpu, bool isOpen) const;

  // Whether nothing has been written beside the blocks of a GPU, whose memory is open. Not checked
  // for adopted memory, whose neighbours may be written.
  bool isIntact(int gpu) const;

 private:
  struct Block {
    int gpu;
    std::size_t bytes;
    std::byte* mapped;  // pages around the block, the first and the last of which stay inaccessible
    std::size_t mappedBytes;
    bool isAdopted = false;
  };
  using Address = std::uintptr_t;

  static void* reserve(std::size_t pages);
  const Block* blockAround(const void* pointer, Address& begin) const;

  std::map<Address, Block> blocks_;
  std::map<Address, std::size_t> hostBlocks_;
};

// Makes the memory of a GPU accessible while it exists.
class OpenMemory {
 public:
  OpenMemory(const Ledger& ledger, int gpu) : ledger_(ledger), gpu_(gpu) {
    ledger_.setOpen(gpu_, true);
  }
  ~OpenMemory() { ledger_.setOpen(gpu_, false); }
  OpenMemory(const OpenMemory&) = delete;
  OpenMemory& operator=(const OpenMemory&) = delete;

 private:
  const Ledger& ledger_;
  int gpu_;
};

}  // namespace zeph::emulation
