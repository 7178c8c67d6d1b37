// The machine's memory: how much there is, how much is left, and whole pages of it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zeph::platform {

// Bytes of physical memory in the machine.
std::uint64_t physicalMemory();

// Bytes that this process could still use without anything being killed or swapped out: what the
// machine has available, cut to what the process's control groups still allow.
std::uint64_t availableMemory();

// Zeroed pages of at least `bytes`, aligned to a page, or null. Pages may be backed only when they
// are first touched.
void* mapPages(std::size_t bytes);
void unmapPages(void* pages, std::size_t bytes);

// Bytes of a mapping that already stand in physical memory. Where the system charges a mapping in
// full when it is made, all of it.
std::uint64_t residentBytes(const void* pages, std::size_t bytes);

}  // namespace zeph::platform
