#include "platform/dynamic_library.h"

#include <windows.h>
// After windows.h.
#include <psapi.h>

namespace zeph::platform {
namespace {

constexpr DWORD longestPath = 32768;  // in characters

}  // namespace

// A library that is given by its path finds those that it needs beside it. One that is given by its
// name is not looked for in the current folder, where anybody may have put it.
void* openLibrary(const std::filesystem::path& library) {
  const DWORD searched = library.is_absolute()
                             ? LOAD_LIBRARY_SEARCH_DEFAULT_DIRS | LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR
                             : LOAD_LIBRARY_SEARCH_DEFAULT_DIRS;
  return LoadLibraryExW(library.c_str(), nullptr, searched);
}

std::string loadingFailure(const std::string& otherwise) {
  return otherwise;
}

const char* pngLibraryName() {
  return "libpng16-16.dll";
}

void* findFunction(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

std::vector<std::filesystem::path> loadedFiles() {
  std::vector<HMODULE> modules(256);
  for (DWORD bytes = 0;;) {
    const auto room = static_cast<DWORD>(modules.size() * sizeof(HMODULE));
    if (!K32EnumProcessModules(GetCurrentProcess(), modules.data(), room, &bytes)) bytes = 0;
    const bool fits = bytes <= room;
    modules.resize(bytes / sizeof(HMODULE));
    if (fits) break;
  }
  std::vector<std::filesystem::path> files;
  std::wstring name(longestPath, L'\0');
  for (const HMODULE module : modules) {
    const DWORD length = GetModuleFileNameW(module, name.data(), longestPath);
    if (length > 0) files.emplace_back(name.substr(0, length));
  }
  return files;
}

}  // namespace zeph::platform
