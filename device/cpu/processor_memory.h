// The processor's device memory: blocks of pages for which the machine has physical memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "platform/fork.h"

namespace zeph::cpu {

// Pages take physical memory only when they are touched, so the system promises more than it has
// and later kills a process. This ledger refuses a block if the memory left could not hold it
// together with the untouched pages of the blocks already given out.
class DeviceMemory {
 public:
  using AvailableBytes = std::uint64_t (*)();

  explicit DeviceMemory(AvailableBytes availableBytes) : availableBytes_(availableBytes) {}
  ~DeviceMemory();
  DeviceMemory(const DeviceMemory&) = delete;
  DeviceMemory& operator=(const DeviceMemory&) = delete;

  // The one of this process.
  static DeviceMemory& shared();

  // A zeroed block on a 64-byte boundary, or null.
  void* allocate(std::size_t bytes);

  // False for a pointer that is no block of this memory.
  bool release(void* pointer);

  // Bytes that one more block could have.
  std::uint64_t available();

  // Bytes of the blocks that have not been given back.
  std::uint64_t inUse();

 private:
  struct Block {
    void* pages;
    std::size_t bytes;
    bool isResident;  // every page has been seen in physical memory
  };
  std::uint64_t untouched();
  std::uint64_t availableLocked();

  AvailableBytes availableBytes_;
  platform::ProcessMutex mutex_;
  std::map<void*, Block> blocks_;
  unsigned placed_ = 0;  // blocks given out so far
};

// A zeroed block of floats of the shared memory, freed with its owner.
class DeviceFloats {
 public:
  DeviceFloats() = default;
  // Raises std::bad_alloc.
  explicit DeviceFloats(std::size_t count);

  float* get() const { return floats_.get(); }
  std::size_t bytes() const { return bytes_; }

 private:
  struct Release {
    void operator()(float* block) const { DeviceMemory::shared().release(block); }
  };
  std::unique_ptr<float, Release> floats_;
  std::size_t bytes_ = 0;
};

}  // namespace zeph::cpu
