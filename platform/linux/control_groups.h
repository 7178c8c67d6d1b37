// The control groups of this process, which may allow it less than the machine has.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace zeph::platform {

struct ControlGroup {
  std::string folder;  // that the kernel shows it as
  bool isUnified;      // version 2 of control groups, with other names of files
};

// The groups that bound a controller ("memory", "cpu") for this process: its own and their parents.
std::vector<ControlGroup> controlGroups(const std::string& controller);

// How many processors' time a group may use, rounded up, or the largest int if it has no limit.
int processorsAllowed(const ControlGroup& group);

constexpr std::uint64_t unlimitedNumber = std::numeric_limits<std::uint64_t>::max();

// The first number in a file, or `otherwise` if there is none, as in "max".
std::uint64_t numberIn(const std::string& file, std::uint64_t otherwise);

}  // namespace zeph::platform
