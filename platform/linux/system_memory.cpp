#include "platform/system_memory.h"

#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

namespace zeph::platform {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

std::size_t pageSize() {
  return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

std::size_t roundUp(std::size_t bytes, std::size_t unit) {
  return (bytes + unit - 1) / unit * unit;
}

// The first number in a file, or `otherwise` if there is none, as in "max".
std::uint64_t numberIn(const std::string& file, std::uint64_t otherwise) {
  std::ifstream stream(file);
  std::uint64_t value = 0;
  return stream >> value ? value : otherwise;
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
std::uint64_t headroom(const std::string& group, const char* limitFile, const char* usageFile,
                       const char* cacheKey) {
  const std::uint64_t limit = numberIn(group + limitFile, unlimited);
  if (limit == unlimited) return unlimited;
  const std::uint64_t usage = numberIn(group + usageFile, 0);
  const std::uint64_t cache = numberAfter(group + "/memory.stat", cacheKey);
  const std::uint64_t held = usage - std::min(usage, cache);
  return limit - std::min(limit, held);
}

// The smallest headroom of a group and its ancestors.
std::uint64_t headroomUpward(const std::string& root, std::string path, const char* limitFile,
                             const char* usageFile, const char* cacheKey) {
  std::uint64_t least = unlimited;
  for (;;) {
    least = std::min(least, headroom(root + path, limitFile, usageFile, cacheKey));
    if (path.empty()) return least;
    path.erase(path.find_last_of('/'));
  }
}

std::uint64_t controlGroupHeadroom() {
  std::ifstream groups("/proc/self/cgroup");
  std::string line;
  std::uint64_t least = unlimited;
  while (std::getline(groups, line)) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    std::string path = line.substr(second + 1);
    if (path == "/") path.clear();
    if (controllers.empty()) {
      least = std::min(least, headroomUpward("/sys/fs/cgroup", path, "/memory.max",
                                             "/memory.current", "inactive_file"));
    } else if (("," + controllers + ",").find(",memory,") != std::string::npos) {
      least =
          std::min(least, headroomUpward("/sys/fs/cgroup/memory", path, "/memory.limit_in_bytes",
                                         "/memory.usage_in_bytes", "total_inactive_file"));
    }
  }
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
