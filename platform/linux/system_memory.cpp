#include "platform/system_memory.h"

#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "platform/linux/control_groups.h"

namespace zeph::platform {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;

std::size_t pageSize() {
  return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t roundUp(std::size_t bytes, std::size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

// The number after `key` in a file of "key number" lines.
std::uint64_t numberAfter(const std::string& file, const std::string& key) {
  std::ifstream stream(file);
  std::string word;
  std::uint64_t value = 0;
  while (stream >> word) {
    if (word == key && stream >> value) return value;
  }
  return 0;
}

// What one control group still allows. File cache that can be dropped at once counts as free.
std::uint64_t headroom(const ControlGroup& group) {
  const char* limitFile = group.isUnified ? "/memory.max" : "/memory.limit_in_bytes";
  const char* usageFile = group.isUnified ? "/memory.current" : "/memory.usage_in_bytes";
  const std::uint64_t limit = numberIn(group.folder + limitFile, unlimitedNumber);
  if (limit == unlimitedNumber) return unlimitedNumber;
  const std::uint64_t usage = numberIn(group.folder + usageFile, 0);
  const std::uint64_t cache = numberAfter(
      group.folder + "/memory.stat", group.isUnified ? "inactive_file" : "total_inactive_file");
  const std::uint64_t held = usage - std::min(usage, cache);
  return limit - std::min(limit, held);
}

std::uint64_t controlGroupHeadroom() {
  std::uint64_t least = unlimitedNumber;
  for (const ControlGroup& group : controlGroups("memory"))
    least = std::min(least, headroom(group));
  return least;
}

// For a process that cannot read /proc, or has no file descriptor left for it. The file cache that
// could be dropped is not in it.
std::uint64_t unusedMemory() {
  struct sysinfo machine = {};
  if (sysinfo(&machine) != 0) return 0;
  return (std::uint64_t{machine.freeram} + machine.bufferram) * machine.mem_unit;
}

}  // namespace

std::uint64_t physicalMemory() {
  return static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) * pageSize();
}

std::uint64_t availableMemory() {
  const std::uint64_t machine = numberAfter("/proc/meminfo", "MemAvailable:") * 1024;
  return std::min(machine > 0 ? machine : unusedMemory(), controlGroupHeadroom());
}

void* mapPages(std::size_t bytes) {
  const std::size_t length = roundUp(bytes, pageSize());
  const bool huge = length >= 2 * hugePage;
  // Huge pages need their own alignment, cut out of a somewhat larger mapping.
  const std::size_t mapped = huge ? length + hugePage : length;
  void* raw = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  if (!huge) return raw;
  const auto begin = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t aligned = roundUp(begin, hugePage);
  if (aligned > begin) munmap(raw, aligned - begin);
  const std::uintptr_t end = begin + mapped;
  if (end > aligned + length)
    munmap(reinterpret_cast<void*>(aligned + length), end - aligned - length);
  void* pages = reinterpret_cast<void*>(aligned);
  madvise(pages, length, MADV_HUGEPAGE);
  return pages;
}

void unmapPages(void* pages, std::size_t bytes) {
  munmap(pages, roundUp(bytes, pageSize()));
}

std::uint64_t residentBytes(const void* pages, std::size_t bytes) {
  constexpr std::size_t window = std::size_t{1} << 16;  // pages asked for at a time
  const std::size_t count = roundUp(bytes, pageSize()) / pageSize();
  std::vector<unsigned char> present(std::min(count, window));
  std::uint64_t resident = 0;
  for (std::size_t page = 0; page < count; page += window) {
    const std::size_t asked = std::min(window, count - page);
    char* begin = static_cast<char*>(const_cast<void*>(pages)) + page * pageSize();
    if (mincore(begin, asked * pageSize(), present.data()) != 0) return bytes;
    for (std::size_t k = 0; k < asked; ++k) resident += present[k] & 1u;
  }
  return std::min<std::uint64_t>(resident * pageSize(), bytes);
}

}  // namespace zeph::platform
