// Libraries that are loaded at run time.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zeph::platform {

// The library at a path, or one that the loader finds by its name; null if it is missing or cannot
// be loaded. It is never unloaded.
void* openLibrary(const std::filesystem::path& library);

// Why libraries could not be loaded: `otherwise`, unless the process can open no more files.
std::string loadingFailure(const std::string& otherwise);

// The name by which the loader finds libpng.
const char* pngLibraryName();

// The address of one of its functions, or null.
void* findFunction(void* library, const char* name);

// The same with the function's type. False if there is no such function.
template <class Function>
bool find(void* library, const char* name, Function*& function) {
  function = reinterpret_cast<Function*>(findFunction(library, name));
  return function != nullptr;
}

// The files of the program and of the libraries loaded so far.
std::vector<std::filesystem::path> loadedFiles();

}  // namespace zeph::platform
