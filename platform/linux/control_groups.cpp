#include "platform/linux/control_groups.h"

#include <algorithm>
#include <fstream>

namespace zeph::platform {

std::uint64_t numberIn(const std::string& file, std::uint64_t otherwise) {
  std::ifstream stream(file);
  std::uint64_t value = 0;
  return stream >> value ? value : otherwise;
}

std::vector<ControlGroup> controlGroups(const std::string& controller) {
  std::ifstream memberships("/proc/self/cgroup");  // "number:controllers:path"
  std::string line;
  std::vector<ControlGroup> groups;
  while (std::getline(memberships, line)) {
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const bool isUnified = controllers.empty();
    if (!isUnified && ("," + controllers + ",").find("," + controller + ",") == std::string::npos)
      continue;
    const std::string root = isUnified ? "/sys/fs/cgroup" : "/sys/fs/cgroup/" + controller;
    std::string path = line.substr(second + 1);
    if (path == "/") path.clear();
    for (;; path.erase(path.find_last_of('/'))) {
      groups.push_back({root + path, isUnified});
      if (path.empty()) break;
    }
  }
  return groups;
}

int processorsAllowed(const ControlGroup& group) {
  std::uint64_t quota = unlimitedNumber, period = 0;  // microseconds
  if (group.isUnified) {
    std::ifstream limits(group.folder + "/cpu.max");  // "quota period" or "max period"
    if (!(limits >> quota >> period)) return std::numeric_limits<int>::max();
  } else {
    quota = numberIn(group.folder + "/cpu.cfs_quota_us", unlimitedNumber);  // -1 without a limit
    period = numberIn(group.folder + "/cpu.cfs_period_us", 0);
  }
  constexpr std::uint64_t most = std::numeric_limits<int>::max();
  if (period == 0 || quota >= most * period) return std::numeric_limits<int>::max();
  return static_cast<int>(std::max<std::uint64_t>((quota + period - 1) / period, 1));
}

}  // namespace zeph::platform
