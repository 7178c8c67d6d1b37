#include "platform/system.h"

#include <windows.h>
// After windows.h.
#include <cpuid.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "platform/windows/texts.h"

namespace zeph::platform {
namespace {

// Longer paths need a prefix that switches off the limit of 260 characters; a folder's name may be
// 12 shorter.
constexpr std::size_t longestPlainPath = 247;

std::wstring withoutLimit(const std::wstring& path) {
  if (path.size() <= longestPlainPath || path.starts_with(L"\\\\")) return path;
  std::wstring full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
  full.resize(
      GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  if (full.empty() || full.starts_with(L"\\\\")) return path;
  return L"\\\\?\\" + full;
}

}  // namespace

const char* systemName() {
  return "Windows";
}

std::uint32_t threadId() {
  return GetCurrentThreadId();
}

// Both masks are 0 for a process in several groups of processors.
int usableProcessors() {
  DWORD_PTR ofProcess = 0, ofSystem = 0;
  GetProcessAffinityMask(GetCurrentProcess(), &ofProcess, &ofSystem);
  const int count = ofProcess != 0
                        ? std::popcount(std::uint64_t{ofProcess})
                        : static_cast<int>(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS));
  return std::max(count, 1);
}

std::size_t lastLevelCacheBytes() {
  constexpr std::size_t otherwise = std::size_t{32} << 20;
  DWORD bytes = 0;
  GetLogicalProcessorInformationEx(RelationCache, nullptr, &bytes);
  std::vector<std::byte> records(bytes);
  auto* first = reinterpret_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX*>(records.data());
  if (bytes == 0 || !GetLogicalProcessorInformationEx(RelationCache, first, &bytes))
    return otherwise;
  std::size_t largest = 0;
  for (DWORD at = 0; at < bytes;) {
    const auto* record =
        reinterpret_cast<const SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX*>(records.data() + at);
    largest = std::max<std::size_t>(largest, record->Cache.CacheSize);
    at += record->Size;
  }
  return largest > 0 ? largest : otherwise;
}

std::string processorModel() {
  constexpr unsigned firstPart = 0x80000002, lastPart = 0x80000004;
  std::array<unsigned, 12> words = {};
  for (unsigned part = firstPart; part <= lastPart; ++part) {
    unsigned* word = words.data() + 4 * (part - firstPart);
    if (__get_cpuid(part, word, word + 1, word + 2, word + 3) == 0) return "Processor";
  }
  char text[sizeof(words) + 1] = {};
  std::memcpy(text, words.data(), sizeof(words));
  const std::string name(text);
  const std::size_t begin = name.find_first_not_of(' ');
  if (begin == std::string::npos) return "Processor";
  return name.substr(begin, name.find_last_not_of(' ') + 1 - begin);
}

// The C library's getenv() would answer from a copy made when the process began.
std::optional<std::string> environmentVariable(const char* name) {
  const std::wstring wide = wideText(name);
  std::wstring value;
  for (DWORD size = 256;;) {
    value.resize(size);
    SetLastError(ERROR_SUCCESS);
    size = GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size()));
    if (size == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
    if (size <= value.size()) break;
  }
  value.resize(std::wcslen(value.c_str()));
  return utf8Text(value);
}

std::filesystem::path pathFromUtf8(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return {};
  return std::filesystem::path(withoutLimit(wideText(text)));
}

std::string pathToUtf8(const std::filesystem::path& path) {
  return utf8Text(path.native());
}

}  // namespace zeph::platform
