// The open files and threads of the process.
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

// A joined thread may be listed a moment longer, so it reads repeatedly.
inline std::ptrdiff_t threads() {
  std::ptrdiff_t least = entriesOf("/proc/self/task");
  for (int look = 0; look < 20; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    least = std::min(least, entriesOf("/proc/self/task"));
  }
  return least;
}

}  // namespace zeph::test
