#include "render/png/png_functions.h"

#include <stdexcept>

#include "platform/dynamic_library.h"

namespace zeph {
namespace {

PngLibrary findLibrary() {
  void* library = platform::openLibrary(platform::pngLibraryName());
  if (library == nullptr) throw std::runtime_error("libpng 1.6 was not found.");
  PngLibrary functions{};
#define ZEPH_FIND(name)                                \
  if (!platform::find(library, #name, functions.name)) \
    throw std::runtime_error("libpng lacks " #name ".");
  ZEPH_PNG_FUNCTIONS(ZEPH_FIND)
#undef ZEPH_FIND
  return functions;
}

}  // namespace

const PngLibrary& pngLibrary() {
  static const PngLibrary library = findLibrary();
  return library;
}

}  // namespace zeph
