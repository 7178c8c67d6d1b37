#include "platform/system.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "platform/linux/control_groups.h"

namespace zeph::platform {

const char* systemName() {
  return "Linux";
}

std::uint32_t threadId() {
  return static_cast<std::uint32_t>(gettid());
}

namespace {

int processorsOfAffinity() {
  // Machines with more than 1024 processors need a larger set than cpu_set_t.
  for (int capacity = CPU_SETSIZE; capacity <= 1 << 20; capacity *= 4) {
    cpu_set_t* set = CPU_ALLOC(static_cast<std::size_t>(capacity));
    if (set == nullptr) break;
    const std::size_t bytes = CPU_ALLOC_SIZE(static_cast<std::size_t>(capacity));
    const bool known = sched_getaffinity(0, bytes, set) == 0;
    const int count = known ? CPU_COUNT_S(bytes, set) : 0;
    CPU_FREE(set);
    if (known) return std::max(count, 1);
  }
  return 1;
}

}  // namespace

// More threads than a control group gives time to would stop one another in the middle of a step.
int usableProcessors() {
  int least = processorsOfAffinity();
  for (const ControlGroup& group : controlGroups("cpu"))
    least = std::min(least, processorsAllowed(group));
  return least;
}

// What sysconf says of the third level may be the sum over all of a machine's processors.
std::size_t lastLevelCacheBytes() {
  constexpr std::size_t otherwise = std::size_t{32} << 20;
  std::size_t largest = 0;
  for (int index = 0; index < 8; ++index) {
    std::ifstream file("/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(index) +
                       "/size");  // as "1024K"
    std::size_t kibibytes = 0;
    if (file >> kibibytes) largest = std::max(largest, kibibytes << 10);
  }
  return largest > 0 ? largest : otherwise;
}

std::string processorModel() {
  std::ifstream info("/proc/cpuinfo");
  std::string line;
  while (std::getline(info, line)) {
    if (!line.starts_with("model name")) continue;
    const std::size_t begin = line.find_first_not_of(" \t", line.find(':') + 1);
    if (begin == std::string::npos) break;
    return line.substr(begin, line.find_last_not_of(" \t") + 1 - begin);
  }
  return "Processor";
}

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::filesystem::path pathFromUtf8(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return {};
  return std::filesystem::path(std::string(text));
}

std::string pathToUtf8(const std::filesystem::path& path) {
  return path.string();
}

}  // namespace zeph::platform
