#include "platform/system_memory.h"

#include <windows.h>
// After windows.h.
#include <psapi.h>

#include <algorithm>
#include <vector>

namespace zeph::platform {
namespace {

constexpr std::size_t pageBytes = 4096;

MEMORYSTATUSEX memoryStatus() {
  MEMORYSTATUSEX status = {};
  status.dwLength = sizeof(status);
  GlobalMemoryStatusEx(&status);
  return status;
}

}  // namespace

std::uint64_t physicalMemory() {
  return memoryStatus().ullTotalPhys;
}

// Windows gives no page that neither the memory nor the page file could back.
std::uint64_t availableMemory() {
  const MEMORYSTATUSEX status = memoryStatus();
  return std::min(status.ullAvailPhys, status.ullAvailPageFile);
}

void* mapPages(std::size_t bytes) {
  return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void unmapPages(void* pages, std::size_t) {
  VirtualFree(pages, 0, MEM_RELEASE);
}

std::uint64_t residentBytes(const void* pages, std::size_t bytes) {
  constexpr std::size_t window = std::size_t{1} << 14;  // pages asked for at a time
  const std::size_t count = (bytes + pageBytes - 1) / pageBytes;
  std::vector<PSAPI_WORKING_SET_EX_INFORMATION> asked(std::min(count, window));
  std::uint64_t resident = 0;
  for (std::size_t page = 0; page < count; page += asked.size()) {
    asked.resize(std::min(window, count - page));
    auto* address = static_cast<char*>(const_cast<void*>(pages)) + page * pageBytes;
    for (auto& information : asked) {
      information = {.VirtualAddress = address, .VirtualAttributes = {}};
      address += pageBytes;
    }
    const auto size = static_cast<DWORD>(asked.size() * sizeof(asked[0]));
    if (!K32QueryWorkingSetEx(GetCurrentProcess(), asked.data(), size)) return bytes;
    for (const auto& information : asked) resident += information.VirtualAttributes.Valid;
  }
  return std::min<std::uint64_t>(resident * pageBytes, bytes);
}

}  // namespace zeph::platform
