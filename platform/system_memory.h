// The machine's memory: its size, what is still available, and the mapping of pages.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zeph::platform {

// Bytes of physical memory in the machine.
std::uint64_t physicalMemory();

// Bytes that this process could still use without anything being killed or swapped out: the memory
// available on the machine, within the limits of the process's control groups.
std::uint64_t availableMemory();

// Zeroed pages of at least `bytes`, aligned to a page, or null. Pages may be backed only when they
// are first touched.
void* mapPages(std::size_t bytes);
void unmapPages(void* pages, std::size_t bytes);

// Bytes of a mapping that are already in physical memory; all of it on systems that charge a
// mapping in full when it is made.
std::uint64_t residentBytes(const void* pages, std::size_t bytes);

}  // namespace zeph::platform
