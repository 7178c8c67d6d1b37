#include "platform/dynamic_library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include <cerrno>

namespace zeph::platform {

void* openLibrary(const std::filesystem::path& library) {
  return dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
}

std::string loadingFailure(const std::string& otherwise) {
  const int file = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (file < 0 && (errno == EMFILE || errno == ENFILE)) return "No file descriptor is left.";
  if (file >= 0) close(file);
  return otherwise;
}

const char* pngLibraryName() {
  return "libpng16.so.16";
}

void* findFunction(void* library, const char* name) {
  return dlsym(library, name);
}

std::vector<std::filesystem::path> loadedFiles() {
  std::vector<std::filesystem::path> files;
  std::error_code error;
  files.push_back(std::filesystem::read_symlink("/proc/self/exe", error));
  dl_iterate_phdr(
      [](dl_phdr_info* info, std::size_t, void* found) {
        if (info->dlpi_name != nullptr && info->dlpi_name[0] != '\0')
          static_cast<std::vector<std::filesystem::path>*>(found)->emplace_back(info->dlpi_name);
        return 0;
      },
      &files);
  return files;
}

}  // namespace zeph::platform
