// Libraries that are looked for while the process runs.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zeph::platform {

// The library of a path, or of a name that the loader looks for itself; null where it is missing or
// cannot be loaded. Never unloaded.
void* openLibrary(const std::filesystem::path& library);

// The names under which the system has libraries that are used where they are found.
const char* pngLibraryName();

// The address of a function of it, or null.
void* findFunction(void* library, const char* name);

// The same as a function of its type. False where there is none.
template <class Function>
bool find(void* library, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(findFunction(library, name));
  return function != nullptr;
}

// The files of this process's code: the program and the libraries loaded so far.
std::vector<std::filesystem::path> loadedFiles();

}  // namespace zeph::platform
