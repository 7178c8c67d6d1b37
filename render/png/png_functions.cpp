#include "render/png/png_functions.h"

#include <stdexcept>

#include "platform/dynamic_library.h"
#include "platform/fork.h"

namespace zeph {
namespace {

PngLibrary* findLibrary() {
  void* file = platform::openLibrary(platform::pngLibraryName());
  if (file == nullptr)
    throw std::runtime_error(platform::loadingFailure("libpng 1.6 was not found."));
  PngLibrary functions{};
#define ZEPH_FIND(name)                             \
  if (!platform::find(file, #name, functions.name)) \
    throw std::runtime_error("libpng lacks " #name ".");
  ZEPH_PNG_FUNCTIONS(ZEPH_FIND)
#undef ZEPH_FIND
  return new PngLibrary(functions);
}

platform::MadeOnce<PngLibrary> library;

}  // namespace

const PngLibrary& pngLibrary() {
  return library.get(findLibrary);
}

}  // namespace zeph
