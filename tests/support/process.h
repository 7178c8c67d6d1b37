// What the process holds of the machine.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

namespace zeph::test {

inline std::ptrdiff_t entriesOf(const char* folder) {
  namespace fs = std::filesystem;
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

inline std::ptrdiff_t openFiles() {
  return entriesOf("/proc/self/fd");
}

// A thread that has been joined may be listed for a moment still, so it looks repeatedly.
inline std::ptrdiff_t threads() {
  std::ptrdiff_t least = entriesOf("/proc/self/task");
  for (int look = 0; look < 20; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    least = std::min(least, entriesOf("/proc/self/task"));
  }
  return least;
}

}  // namespace zeph::test
