// The open files and threads of the process.
#pragma once

#ifdef _WIN32
#include <windows.h>
// After windows.h.
#include <tlhelp32.h>
#else
#include <ctime>
#include <filesystem>
#include <iterator>
#endif

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <thread>

namespace zeph::test {

#ifdef _WIN32

// Files, and whatever else the system counts as one.
inline std::ptrdiff_t openFiles() {
  DWORD handles = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  return static_cast<std::ptrdiff_t>(handles);
}

inline std::ptrdiff_t listedThreads() {
  const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 thread = {};
  thread.dwSize = sizeof(thread);
  std::ptrdiff_t count = 0;
  for (BOOL found = Thread32First(all, &thread); found; found = Thread32Next(all, &thread))
    count += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
  CloseHandle(all);
  return count;
}

// Processor time of the whole process.
inline double processorSeconds() {
  FILETIME began, ended, inKernel, inProgram;
  GetProcessTimes(GetCurrentProcess(), &began, &ended, &inKernel, &inProgram);
  const auto seconds = [](const FILETIME& time) {
    constexpr double ticks = 1e7;  // a second
    return (static_cast<double>(time.dwHighDateTime) * 0x1p32 + time.dwLowDateTime) / ticks;
  };
  return seconds(inKernel) + seconds(inProgram);
}

#else

inline std::ptrdiff_t entriesOf(const char* folder) {
  namespace fs = std::filesystem;
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

inline std::ptrdiff_t openFiles() {
  return entriesOf("/proc/self/fd");
}

inline std::ptrdiff_t listedThreads() {
  return entriesOf("/proc/self/task");
}

// Processor time of the whole process.
inline double processorSeconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

#endif

// A joined thread may be listed a moment longer, so it reads repeatedly.
inline std::ptrdiff_t threads() {
  std::ptrdiff_t least = listedThreads();
  for (int look = 0; look < 20; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    least = std::min(least, listedThreads());
  }
  return least;
}

}  // namespace zeph::test
